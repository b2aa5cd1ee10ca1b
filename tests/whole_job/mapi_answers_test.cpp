// Jobs whose mail client gives other answers than it should, and jobs whose sending runs out of
// memory.

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mapi/send_mail.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "tests/whole_job/whole_job.h"

namespace zentpost {
namespace {

using test::kWithMailClient;
using test::Situation;
using Calls = std::vector<std::string>;

// A call of the library, with its place among those of its name.
struct NamedCall {
  std::string name;
  std::size_t index;
};

class MapiAnswers : public test::WholeJobTest {
 protected:
  // Starts over for each call that the library gets in jobs in which nothing fails, and has `visit`
  // run the job with that call answered otherwise.
  template <class Visit>
  void ForEachCall(const char* what, const Visit& visit) {
    std::size_t runs = 0;
    for (const Situation& situation : kWithMailClient) {
      SCOPED_TRACE(situation.name);
      StartOver(situation);
      RunJob(situation);
      EXPECT_EQ(exit_code_, 0);
      const Calls calls = mapi_->Calls();
      std::map<std::string, std::size_t> counts;
      for (const std::string& text : calls) {
        const std::string name = text.substr(0, text.find('('));
        const NamedCall call = {name, counts[name]++};
        if (!situation.is_online && name == "IMAPISession::OpenMsgStore" && call.index == 0) {
          continue;  // has an answer of its own
        }
        SCOPED_TRACE(name + " " + std::to_string(call.index));
        StartOver(situation);
        visit(situation, call, calls);
        ++runs;
      }
    }
    std::cout << what << ": " << runs << " runs\n";
  }

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

TEST_F(MapiAnswers, AnyResultThatIsNotNegativeIsASuccess) {
  ForEachCall("deliveries with an unusual success",
              [&](const Situation& situation, const NamedCall& call, const Calls& calls) {
                mapi_->Answer(call.name, call.index, 1);
                RunJob(situation);
                ExpectOutcome(situation, true);
                EXPECT_EQ(mapi_->Calls(), calls);
              });
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
  ForEachCall("deliveries in which nothing is handed out",
              [&](const Situation& situation, const NamedCall& call, const Calls& /*calls*/) {
                mapi_->GiveNothing(call.name, call.index);
                RunJob(situation);
                const bool has_recipient = *situation.receiver != '\0';
                const bool is_needed =
                    std::find(std::begin(kHandOutWhatIsNeeded), std::end(kHandOutWhatIsNeeded),
                              call.name) != std::end(kHandOutWhatIsNeeded) ||
                    // the rows of the stores; the recipient's values and the attachment's; and
                    // without the recipient's list there is nobody to submit a message to
                    (call.name == "HrQueryAllRows" && call.index == 1) ||
                    (call.name == "MAPIAllocateBuffer" &&
                     (call.index > 0 || !has_recipient || !situation.preview));
                ExpectOutcome(situation, !is_needed);
                ExpectDocumentIsKept();
              });
}

// --- running out of memory ---

// The calls with which the send flow lets go of all that it got in `calls`, the last first.
Calls CleanUpAfter(const Calls& calls) {
  const std::pair<std::string_view, Calls> kCleanUps[] = {
      {"IMAPIFolder::CreateMessage(", {"IMessage::Release()"}},
      {"MAPIOpenFormMgr(", {"IMAPIFormMgr::Release()"}},
      {"IMsgStore::OpenEntry(", {"IMAPIFolder::Release()"}},
      {"IMsgStore::GetProps(", {"MAPIFreeBuffer(block 1)"}},
      {"IMAPISession::OpenMsgStore(", {"IMsgStore::Release()"}},
      {"MAPILogonEx(",
       {"IMAPISession::QueryInterface(IMAPIClientShutdown)",
        "IMAPIClientShutdown::QueryFastShutdown()", "IMAPIClientShutdown::DoFastShutdown()",
        "IMAPIClientShutdown::Release()", "IMAPISession::Logoff(0, 0x0, 0)",
        "IMAPISession::Release()"}}};
  Calls all;
  for (const auto& [origin, cleanup] : kCleanUps) {
    if (std::any_of(calls.begin(), calls.end(), [start = origin](const std::string& call) {
          return call.starts_with(start);
        })) {
      all.insert(all.end(), cleanup.begin(), cleanup.end());
    }
  }
  return all;
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
          const Calls calls = mapi_->Calls();
          if (result == MAPI_E_CALL_FAILED) {
            // The search for the library went without the memory that it needs.
            EXPECT_EQ(calls, Calls());
            return;
          }
          const Calls cleanup = CleanUpAfter(calls);
          ASSERT_GE(calls.size(), cleanup.size());
          EXPECT_EQ(Calls(calls.end() - static_cast<std::ptrdiff_t>(cleanup.size()), calls.end()),
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
