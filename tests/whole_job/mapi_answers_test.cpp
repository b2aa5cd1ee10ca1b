// Jobs whose mail client gives other answers than it should, and jobs whose sending runs out of
// memory.

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/send_mail.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "tests/whole_job/whole_job.h"

namespace zentpost {
namespace {

using test::kWithMailClient;
using test::Situation;

class MapiAnswers : public test::WholeJobTest {
 protected:
  // Exit code and job file agree, and the mail client's accounts are in order.
  void ExpectOutcome(const Situation& situation, bool is_delivered) {
    EXPECT_EQ(exit_code_, is_delivered ? 0 : 1);
    EXPECT_EQ(mapi_->Accounts(), "");
    if (!situation.on_command_line) {
      const std::string job_file = fake_.FileBytes(test::kJobPath).value_or("no job file");
      EXPECT_EQ(job_file == test::WithSuccess(test::JobFileOf(situation)), is_delivered);
      EXPECT_EQ(job_file.find("\"MAPI Error\"") != std::string::npos, !is_delivered);
    }
  }
};

// The calls of the library in a delivery in which nothing fails, each with its place among those of
// its name.
struct NamedCall {
  std::string name;
  std::size_t index;
};

std::vector<NamedCall> NamedCalls(const std::vector<std::string>& calls) {
  std::map<std::string, std::size_t> counts;
  std::vector<NamedCall> named;
  for (const std::string& call : calls) {
    const std::string name = call.substr(0, call.find('('));
    named.push_back({name, counts[name]++});
  }
  return named;
}

TEST_F(MapiAnswers, AnyResultThatIsNotNegativeIsASuccess) {
  std::size_t runs = 0;
  for (const Situation& situation : kWithMailClient) {
    SCOPED_TRACE(situation.name);
    StartOver(situation);
    RunJob(situation);
    EXPECT_EQ(exit_code_, 0);
    const std::vector<std::string> calls = mapi_->Calls();
    for (const NamedCall& call : NamedCalls(calls)) {
      if (!situation.is_online && call.name == "IMAPISession::OpenMsgStore" && call.index == 0) {
        continue;  // has an answer of its own
      }
      SCOPED_TRACE(call.name + " " + std::to_string(call.index));
      StartOver(situation);
      mapi_->Answer(call.name, call.index, 1);
      RunJob(situation);
      ExpectOutcome(situation, true);
      EXPECT_EQ(mapi_->Calls(), calls);
      ++runs;
    }
  }
  std::cout << "deliveries with an unusual success: " << runs << " runs\n";
}

// The functions that hand something out without which the message cannot be made. Without anything
// from the others the job goes on.
constexpr std::string_view kHandOutWhatIsNeeded[] = {
    "IMAPISession::GetMsgStoresTable",
    "IMAPISession::OpenMsgStore",
    "IMsgStore::GetProps",
    "IMsgStore::OpenEntry",
    "IMAPIFolder::CreateMessage",
    "IMAPISession::OpenAddressBook",
    "IAddrBook::CreateOneOff",
    "IMessage::CreateAttach",
    "MAPIOpenFormMgr",
    "IMessage::GetProps",
    "IMAPISession::PrepareForm",
};

TEST_F(MapiAnswers, ASuccessThatHandsOutNothingDoesNoHarm) {
  std::size_t runs = 0;
  for (const Situation& situation : kWithMailClient) {
    SCOPED_TRACE(situation.name);
    StartOver(situation);
    RunJob(situation);
    EXPECT_EQ(exit_code_, 0);
    const std::vector<NamedCall> calls = NamedCalls(mapi_->Calls());
    const auto query = std::count_if(calls.begin(), calls.end(), [](const NamedCall& call) {
      return call.name == "HrQueryAllRows";
    });
    EXPECT_EQ(query, 2);
    for (const NamedCall& call : calls) {
      if (!situation.is_online && call.name == "IMAPISession::OpenMsgStore") {
        continue;
      }
      SCOPED_TRACE(call.name + " " + std::to_string(call.index));
      StartOver(situation);
      mapi_->GiveNothing(call.name, call.index);
      RunJob(situation);
      const bool has_recipient = *situation.receiver != '\0';
      const bool is_needed =
          std::find(std::begin(kHandOutWhatIsNeeded), std::end(kHandOutWhatIsNeeded), call.name) !=
              std::end(kHandOutWhatIsNeeded) ||
          // the rows of the stores; the recipient's values and the attachment's; and without the
          // recipient's list there is nobody to submit a message to
          (call.name == "HrQueryAllRows" && call.index == 1) ||
          (call.name == "MAPIAllocateBuffer" &&
           (call.index > 0 || !has_recipient || !situation.preview));
      ExpectOutcome(situation, !is_needed);
      ExpectDocumentIsKept();
      ++runs;
    }
  }
  std::cout << "deliveries in which nothing is handed out: " << runs << " runs\n";
}

// --- running out of memory ---

// The calls with which the send flow lets go of all that it got in `calls`, the last first.
std::vector<std::string> CleanUpAfter(const std::vector<std::string>& calls,
                                      bool has_form_manager) {
  const auto has = [&](std::string_view start) {
    return std::any_of(calls.begin(), calls.end(),
                       [&](const std::string& call) { return call.starts_with(start); });
  };
  std::vector<std::string> cleanup;
  if (has("IMAPIFolder::CreateMessage(")) {
    cleanup.emplace_back("IMessage::Release()");
  }
  if (has_form_manager) {
    cleanup.emplace_back("IMAPIFormMgr::Release()");
  }
  if (has("IMsgStore::OpenEntry(")) {
    cleanup.emplace_back("IMAPIFolder::Release()");
  }
  if (has("IMsgStore::GetProps(")) {
    cleanup.emplace_back("MAPIFreeBuffer(block 1)");
  }
  if (has("IMAPISession::OpenMsgStore(")) {
    cleanup.emplace_back("IMsgStore::Release()");
  }
  if (has("MAPILogonEx(")) {
    for (const char* const call :
         {"IMAPISession::QueryInterface(IMAPIClientShutdown)",
          "IMAPIClientShutdown::QueryFastShutdown()", "IMAPIClientShutdown::DoFastShutdown()",
          "IMAPIClientShutdown::Release()", "IMAPISession::Logoff(0, 0x0, 0)",
          "IMAPISession::Release()"}) {
      cleanup.emplace_back(call);
    }
  }
  return cleanup;
}

TEST_F(MapiAnswers, WithoutMemoryTheSendFlowCleansUpAndSaysSo) {
  for (const bool is_shown : {false, true}) {
    const Situation situation = {
        .name = "send flow", .has_mail_client = true, .is_automatic = is_shown};
    std::size_t out_of_memory = 0;
    test::SweepAllocations(
        is_shown ? "a message is shown" : "a message is submitted",
        [&](test::AllocationFaults& faults) {
          StartOver(situation);
          // Longer than what a string object holds without memory of its own.
          const std::u16string text = u"a text that needs memory of its own";
          const std::u16string path = test::kDocumentPath;
          const std::u16string name = u"a document with a long name.and a long extension";
          const std::u16string recipient = u"030123456789 extension 12345";
          HRESULT result = 1;
          EXPECT_TRUE(faults.Run([&] {
            result =
                SendMail(text, text, is_shown ? 1 : 0, 1, 0, 0, recipient, text, path, name, text);
          })) << "an exception came out";
          ForgetMapiLoading();  // also what the process would keep
          EXPECT_EQ(mapi_->Accounts(), "");
          EXPECT_EQ(fake_.OpenHandles(), 0u);
          ExpectDocumentIsKept();
          const std::vector<std::string>& calls = mapi_->Calls();
          if (result == MAPI_E_CALL_FAILED) {
            // The search for the library went without the memory that it needs.
            EXPECT_EQ(calls, std::vector<std::string>());
            return;
          }
          const bool has_form_manager = !mapi_->CallsOf("MAPIOpenFormMgr").empty();
          const std::vector<std::string> cleanup = CleanUpAfter(calls, has_form_manager);
          ASSERT_GE(calls.size(), cleanup.size());
          EXPECT_EQ(std::vector<std::string>(
                        calls.end() - static_cast<std::ptrdiff_t>(cleanup.size()), calls.end()),
                    cleanup);
          const bool reaches_its_end = !mapi_->CallsOf("IMAPISession::ShowForm").empty() ||
                                       !mapi_->CallsOf("IMessage::SubmitMessage").empty();
          EXPECT_EQ(result, reaches_its_end ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY);
          out_of_memory += reaches_its_end ? 0 : 1;
        });
    EXPECT_GT(out_of_memory, 0u);
  }
}

}  // namespace
}  // namespace zentpost
