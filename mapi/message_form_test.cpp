#include "mapi/message_form.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::Lines;
using test::Number;
using test::Row;
using test::Text;

constexpr char kGetProps[] =
    "IMessage::GetProps([0x0e070003, 0x001a001f, 0x0ff40003, 0x0fff0102, 0x0e170003], 0x80000000)";
constexpr char kPrepare[] = "IMAPISession::PrepareForm(null, message)";
constexpr char kPrepared[] = "log INFO: OpenMessageModal(): Dialog prepared.";
constexpr char kHasStatus[] = "log INFO: OpenMessageModal(): Message status retrieval succeeded.";
constexpr char kFree[] = "MAPIFreeBuffer(block 1)";

std::string GetStatus(const std::string& entry) {
  return "IMAPIFolder::GetMessageStatus(" + entry + ", 0x0)";
}
std::string Show(const std::string& token, const std::string& facts) {
  return "IMAPISession::ShowForm(0, store, outbox, null, " + token + ", null, 0x0, " + facts +
         ", \"IPM.Note\")";
}

class MessageForm : public test::MapiTest {
 protected:
  HRESULT Open() { return OpenMessageModal(Session(), Store(), Outbox(), Message()); }
};

TEST_F(MessageForm, IsShownAlsoWhenTheUserCancelsIt) {
  for (const HRESULT answer : {S_OK, HRESULT{1}, MAPI_E_USER_CANCEL}) {
    StartOver();
    mapi_->Answer("IMAPISession::ShowForm", 0, answer);
    EXPECT_EQ(Open(), S_OK) << answer;
    EXPECT_EQ(Trace(), Lines({kGetProps, kPrepare, kPrepared, GetStatus("4 bytes 6d736721"),
                              kHasStatus, Show("0x1234", "0x40, 0x9, 0x3f"), kFree}));
  }
}

TEST_F(MessageForm, OnlyShowingCanBeCancelled) {
  for (const char* const call :
       {"IMessage::GetProps", "IMAPISession::PrepareForm", "IMAPIFolder::GetMessageStatus"}) {
    StartOver();
    mapi_->Answer(call, 0, MAPI_E_USER_CANCEL);
    EXPECT_EQ(Open(), MAPI_E_USER_CANCEL) << call;
  }
}

TEST_F(MessageForm, NeedsAMessage) {
  EXPECT_EQ(OpenMessageModal(Session(), nullptr, nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(Trace(), Lines({"log ERROR: OpenMessageModal(): The specified message is NULL.",
                            "log ERROR: Code 0x80070057 --> (CDO) Invalid Parameter."}));
}

TEST_F(MessageForm, IsToldTheMessagesOwnFacts) {
  const Row facts = {Number(PR_MESSAGE_FLAGS, 0x7F), Text(PR_MESSAGE_CLASS_W, u"IPM.Other"),
                     Number(PR_ACCESS, 1), Bytes(PR_ENTRYID, "\x05\x06"), Number(PR_MSG_STATUS, 3)};
  const std::string widest = sizeof(void*) == 8 ? "0xffffffffffffffff" : "0xffffffff";
  for (const bool is_narrow : {false, true}) {  // a token may have no more than 32 bits
    StartOver();
    mapi_->message_values = facts;
    mapi_->message_status = 0xABCD;
    mapi_->form_token = is_narrow ? 0x89ABCDEF : UINTPTR_MAX;
    mapi_->has_narrow_token = is_narrow;
    EXPECT_EQ(Open(), S_OK);
    EXPECT_EQ(Trace(),
              Lines({kGetProps, kPrepare, kPrepared, GetStatus("2 bytes 0506"), kHasStatus,
                     Show(is_narrow ? "0x89abcdef" : widest, "0xabcd, 0x7f, 0x1"), kFree}));
  }
}

TEST_F(MessageForm, FactsThatTheMessageDoesNotHaveAreZero) {
  mapi_->message_values = {Number(0x0E07000A, MAPI_E_NOT_FOUND), Number(0x001A000A, 5),
                           Number(0x0FF4000A, MAPI_E_NOT_FOUND),
                           Number(0x0FFF000A, MAPI_E_NOT_FOUND), Number(0x0E17000A, 5)};
  EXPECT_EQ(Open(), S_OK);
  EXPECT_EQ(Trace(), Lines({kGetProps, kPrepare, kPrepared, GetStatus("0 bytes at null"),
                            kHasStatus, Show("0x1234", "0x40, 0x0, 0x0"), kFree}));

  // The folder does not know a message without an identifier.
  StartOver();
  mapi_->GiveNothing("IMessage::GetProps");
  EXPECT_EQ(Open(), MakeResult(0x80040107));
  EXPECT_EQ(Trace(), Lines({kGetProps, kPrepare, kPrepared, GetStatus("0 bytes at null")}) +
                         "log ERROR: OpenMessageModal(): Dialog message status retrieval failed.\n"
                         "log ERROR: Code 0x80040107 --> (CDO) The entryID is invalid.\n");
}

}  // namespace
}  // namespace zentpost
