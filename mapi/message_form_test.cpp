#include "mapi/message_form.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::Lines;
using test::Number;
using test::Text;

constexpr HRESULT kFailure = MakeResult(0x80040115);
constexpr HRESULT kInvalidEntryId = MakeResult(0x80040107);
constexpr char kFailureCode[] = "log ERROR: Code 0x80040115 --> (CDO) A network error occured.";

constexpr char kGetProps[] =
    "IMessage::GetProps([0x0e070003, 0x001a001f, 0x0ff40003, 0x0fff0102, 0x0e170003], 0x80000000)";
constexpr char kPrepare[] = "IMAPISession::PrepareForm(null, message)";
constexpr char kPrepared[] = "log INFO: OpenMessageModal(): Dialog prepared.";
constexpr char kStatus[] = "IMAPIFolder::GetMessageStatus(4 bytes 6d736721, 0x0)";
constexpr char kHasStatus[] = "log INFO: OpenMessageModal(): Message status retrieval succeeded.";
constexpr char kShow[] =
    "IMAPISession::ShowForm(0, store, outbox, null, 0x1234, null, 0x0, 0x40, 0x9, 0x3f, "
    "\"IPM.Note\")";
constexpr char kShowWithoutFacts[] =
    "IMAPISession::ShowForm(0, store, outbox, null, 0x1234, null, 0x0, 0x40, 0x0, 0x0, "
    "\"IPM.Note\")";
constexpr char kFree[] = "MAPIFreeBuffer(block 1)";

class MessageForm : public test::MapiTest {
 protected:
  // Opens a message of a session, all of which is given back.
  HRESULT Open() {
    IMAPISession* const session = mapi_->OpenSession();
    IMsgStore* const store = mapi_->OpenStore();
    IMAPIFolder* const outbox = mapi_->OpenOutbox();
    IMessage* const message = mapi_->OpenMessage();
    const HRESULT result = OpenMessageModal(session, store, outbox, message);
    trace_ = Trace();
    message->Release();
    outbox->Release();
    store->Release();
    session->Release();
    return result;
  }

  std::string trace_;
};

TEST_F(MessageForm, IsShown) {
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(trace_, Lines({kGetProps, kPrepare, kPrepared, kStatus, kHasStatus, kShow, kFree}));
}

TEST_F(MessageForm, ThatTheUserCancelsIsASuccess) {
  mapi_->Answer("IMAPISession::ShowForm", 0, MAPI_E_USER_CANCEL);
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(trace_, Lines({kGetProps, kPrepare, kPrepared, kStatus, kHasStatus, kShow, kFree}));
}

TEST_F(MessageForm, EverySuccessOfShowingCountsAsOne) {
  mapi_->Answer("IMAPISession::ShowForm", 0, 1);
  EXPECT_EQ(Open(), S_OK);
}

TEST_F(MessageForm, OnlyShowingCanBeCancelled) {
  for (const char* const call :
       {"IMessage::GetProps", "IMAPISession::PrepareForm", "IMAPIFolder::GetMessageStatus"}) {
    StartOver();
    mapi_->Answer(call, 0, MAPI_E_USER_CANCEL);
    EXPECT_EQ(Open(), MAPI_E_USER_CANCEL) << call;
  }
}

TEST_F(MessageForm, EveryFailureIsLoggedAndGivenBack) {
  const std::vector<std::string> steps = {kGetProps, kPrepare,   kPrepared,
                                          kStatus,   kHasStatus, kShow};
  const struct {
    const char* call;
    std::ptrdiff_t steps_done;  // the failing one included
    const char* log;
    bool has_values;
  } kCases[] = {
      {"IMessage::GetProps", 1, "Getting properties failed.", false},
      {"IMAPISession::PrepareForm", 2, "Dialog preparation failed.", true},
      {"IMAPIFolder::GetMessageStatus", 4, "Dialog message status retrieval failed.", true},
      {"IMAPISession::ShowForm", 6, "The form cannot be shown.", true},
  };
  for (const bool leaves_garbage : {false, true}) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(std::string(test.call) + (leaves_garbage ? " with garbage" : ""));
      StartOver();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->Answer(test.call, 0, kFailure);
      EXPECT_EQ(Open(), kFailure);
      std::vector<std::string> expected(steps.begin(), steps.begin() + test.steps_done);
      expected.push_back(std::string("log ERROR: OpenMessageModal(): ") + test.log);
      expected.emplace_back(kFailureCode);
      if (test.has_values) {
        expected.emplace_back(kFree);
      }
      EXPECT_EQ(trace_, Lines(expected));
    }
  }
}

TEST_F(MessageForm, NeedsAMessage) {
  IMAPISession* const session = mapi_->OpenSession();
  EXPECT_EQ(OpenMessageModal(session, nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Trace(), Lines({"log ERROR: OpenMessageModal(): The specified message is NULL.",
                            "log ERROR: Code 0x80070057 --> (CDO) Invalid Parameter."}));
  session->Release();
}

TEST_F(MessageForm, IsToldTheMessagesOwnFacts) {
  mapi_->message_values = {Number(PR_MESSAGE_FLAGS, 0x7F), Text(PR_MESSAGE_CLASS_W, u"IPM.Other"),
                           Number(PR_ACCESS, 1), Bytes(PR_ENTRYID, "\x05\x06"),
                           Number(PR_MSG_STATUS, 3)};
  mapi_->message_status = 0xABCD;
  mapi_->form_token = UINTPTR_MAX;
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMAPIFolder::GetMessageStatus"),
            std::vector<std::string>{"IMAPIFolder::GetMessageStatus(2 bytes 0506, 0x0)"});
  EXPECT_EQ(mapi_->CallsOf("IMAPISession::ShowForm"),
            std::vector<std::string>{
                "IMAPISession::ShowForm(0, store, outbox, null, " +
                std::string(sizeof(std::uintptr_t) == 8 ? "0xffffffffffffffff" : "0xffffffff") +
                ", null, 0x0, 0xabcd, 0x7f, 0x1, \"IPM.Note\")"});
}

TEST_F(MessageForm, ATokenMayHaveNoMoreThan32Bits) {
  mapi_->form_token = 0x89ABCDEF;
  mapi_->has_narrow_token = true;
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMAPISession::ShowForm"),
            std::vector<std::string>{
                "IMAPISession::ShowForm(0, store, outbox, null, 0x89abcdef, null, 0x0, 0x40, 0x9, "
                "0x3f, \"IPM.Note\")"});
}

TEST_F(MessageForm, FactsThatTheMessageDoesNotHaveAreZero) {
  mapi_->message_values = {Number(0x0E07000A, MAPI_E_NOT_FOUND), Number(0x001A000A, 5),
                           Number(0x0FF4000A, MAPI_E_NOT_FOUND),
                           Number(0x0FFF000A, MAPI_E_NOT_FOUND), Number(0x0E17000A, 5)};
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(trace_, Lines({kGetProps, kPrepare, kPrepared,
                           "IMAPIFolder::GetMessageStatus(0 bytes at null, 0x0)", kHasStatus,
                           kShowWithoutFacts, kFree}));

  // The folder does not know a message without an identifier.
  StartOver();
  mapi_->GiveNothing("IMessage::GetProps");
  EXPECT_EQ(Open(), kInvalidEntryId);
  EXPECT_EQ(trace_, Lines({kGetProps, kPrepare, kPrepared,
                           "IMAPIFolder::GetMessageStatus(0 bytes at null, 0x0)",
                           "log ERROR: OpenMessageModal(): Dialog message status retrieval failed.",
                           "log ERROR: Code 0x80040107 --> (CDO) The entryID is invalid."}));
}

TEST_F(MessageForm, WithoutMapiFreeBufferTheValuesStay) {
  StartOver({"MAPIFreeBuffer"});
  EXPECT_EQ(Open(), S_OK);
  SettleAccounts("block 1 of IMessage::GetProps: not freed\n");
}

}  // namespace
}  // namespace zentpost
