#include "mapi/send_mail.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::Lines;
using test::Number;
using test::ProfileRow;
using test::Row;
using test::StoreRow;
using Steps = std::vector<std::string>;

constexpr char16_t kPath[] = u"C:\\docs\\fax.pdf";
constexpr HRESULT kFailure = MakeResult(0x80040115);
constexpr char kFailureCode[] = "log ERROR: Code 0x80040115 --> (CDO) A network error occured.";
constexpr char kFailText[] =
    "log ERROR: Code 0x80004005 --> A general not more specified error occurred.";
constexpr char kNotFoundCode[] = "log ERROR: Code 0x8004010f --> (CDO) The value was not found.";

void Append(Steps& trace, const Steps& more) {
  trace.insert(trace.end(), more.begin(), more.end());
}

Steps operator+(Steps trace, const Steps& more) {
  Append(trace, more);
  return trace;
}

// --- what happens in a sending, section by section ---

const Steps kStart = {"MAPIInitialize(null)"};

const Steps kProfile = {
    "MAPIAdminProfiles(0x0)",
    "IProfAdmin::GetProfileTable(0x0)",
    "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)",
    "FreeProws(rows of the profile table)",
    "IMAPITable::Release()",
    "IProfAdmin::Release()",
    "log INFO: SendMail(): Profile 'Outlook' will be used.",
};

const Steps kLogon = {
    "log INFO: SendMail(): MAPILogonEx with profile 'Outlook'.",
    "MAPILogonEx(0, \"Outlook\", null, 0x80000029)",
};
const Steps kSecondLogon = {
    "log INFO: SendMail(): MAPILogonEx with profile 'Outlook' and Logon UI.",
    "MAPILogonEx(0, \"Outlook\", null, 0x80000023)",
};
const Steps kLogonWithoutProfile = {
    "log INFO: SendMail(): MAPILogonEx without profile and Logon UI.",
    "MAPILogonEx(0, \"\", null, 0x80000023)",
};

const Steps kStoreTable = {
    "IMAPISession::GetMsgStoresTable(0x0)",
    "HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)",
};
const Steps kStoreSteps =
    kStoreTable + Steps{"IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0x10c)",
                        "FreeProws(rows of the store table)", "IMAPITable::Release()"};
const Steps kStoreValuesSteps = {"IMsgStore::GetProps(null, 0x80000000)"};
const Steps kOutboxSteps = {"IMsgStore::OpenEntry(4 bytes 6f757421, null, 0x10)"};
const Steps kMessageSteps = {"IMAPIFolder::CreateMessage(null, 0x0)"};

// The store's values are the first block.
const std::string kEntry =
    "[5 [0x3001001f \"Smith\", 0x3002001f \"SMTP\", 0x3003001f \"030\", 0x0c150003 1, 0x0fff0102 7 "
    "bytes 6f6e652d6f6666]])";
const Steps kAutomation = {
    "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
    "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
    "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
    "log INFO: ProcessClientAddressAutomation(): The client address automation is turned off.",
    "log INFO: ProcessClientAddressAutomation(): 030 --> 'SMTP:030'",
};
const Steps kRecipient =
    kAutomation + Steps{"IMAPISession::OpenAddressBook(0, null, 0x0)",
                        "MAPIAllocateBuffer(" + std::to_string(sizeof(ADRLIST)) + ")",
                        "MAPIAllocateBuffer(" + std::to_string(20 * sizeof(SPropValue)) + ")",
                        "IAddrBook::CreateOneOff(\"Smith\", \"SMTP\", \"030\", 0x80000000)",
                        "IAddrBook::ResolveName(0, 0x80000000, null, " + kEntry,
                        "IMessage::ModifyRecipients(0x2, " + kEntry,
                        "IMessage::SaveChanges(0x2)",
                        "FreePadrlist(block 2)",
                        "MAPIFreeBuffer(block 4)",
                        "IAddrBook::Release()"};

const Steps kContentsLog = {
    "log DEBUG: SetMessageContents()",
    "log DEBUG:   Sendername    : ",
    "log DEBUG:   Subject       : ",
    "log DEBUG:   Bodytext      : ",
};
const Steps kSetContents = {
    "IMessage::SetProps(5, [0x001a001f \"IPM.Note\", 0x0037001f \"Hello\", 0x1000001f \"A note\", "
    "0x0042001f \"J\xC3\xA4ger\", 0x0e0a0102 4 bytes 73656e74], null)"};
const Steps kSaveContents = {"IMessage::SaveChanges(0x2)"};
const Steps kContents = kContentsLog + kSetContents + kSaveContents;

const std::string kSetAttachment =
    "IAttach::SetProps(9, [0x37050003 1, 0x370b0003 -1, 0x37010102 3 bytes 504446, 0x3703001f "
    "\".pdf\", 0x3704001f \"Letter.pdf\", 0x3707001f \"Letter.pdf\", 0x37140003 0, 0x3001001f "
    "\"Letter.pdf\", 0x7ffa0003 0], null)";

// `block` is the number of the attachment's block of values.
Steps Attachment(int block) {
  return {
      "log INFO: AddAttachment(): 'C:\\docs\\fax.pdf'",
      "MAPIAllocateBuffer(" + std::to_string(12 * sizeof(SPropValue)) + ")",
      "OpenFileAt(C:\\docs\\fax.pdf, kRead)",
      "QueryFileSize(C:\\docs\\fax.pdf)",
      "ReadBytes(C:\\docs\\fax.pdf, 3)",
      "ReadBytes(C:\\docs\\fax.pdf, 1)",
      "IMessage::CreateAttach(null, 0x8)",
      kSetAttachment,
      "log INFO: AddAttachment(): Attachment properties are set.",
      "IAttach::SaveChanges(0x0)",
      "log INFO: AddAttachment(): Attachment added successfully,",
      "RemoveFile(C:\\docs\\fax.pdf)",
      "log INFO: AddAttachment(): The attachment file was deleted successfully.",
      "IAttach::Release()",
      "MAPIFreeBuffer(block " + std::to_string(block) + ")",
  };
}

const Steps kSubmit = {"IMessage::SubmitMessage(0x0)"};
const Steps kSubmitted = {"log INFO: SendMail(): Message sent successfully."};
const Steps kFormManagerSteps = {"MAPIOpenFormMgr(session)"};
const Steps kMessageFacts = {
    "IMessage::GetProps([0x0e070003, 0x001a001f, 0x0ff40003, 0x0fff0102, 0x0e170003], 0x80000000)"};
const Steps kPrepareForm = {"IMAPISession::PrepareForm(null, message)"};
const Steps kMessageStatus = {"log INFO: OpenMessageModal(): Dialog prepared.",
                              "IMAPIFolder::GetMessageStatus(4 bytes 6d736721, 0x0)"};
const Steps kShowForm = {
    "log INFO: OpenMessageModal(): Message status retrieval succeeded.",
    "IMAPISession::ShowForm(0, store, outbox, null, 0x1234, null, 0x0, 0x40, 0x9, 0x3f, "
    "\"IPM.Note\")"};
const Steps kFreeFacts = {"MAPIFreeBuffer(block 6)"};
const Steps kShown = {"log INFO: SendMail(): Mail will be opened as modal window."};

// --- the clean-up, from what was held last ---

const Steps kFunctionEnd = {"log DEBUG: SendMail(): Function end."};
const Steps kShutdown = {
    "log INFO: DoMAPIFastShutdown(): Function in progress.",
    "IMAPISession::QueryInterface(IMAPIClientShutdown)",
    "IMAPIClientShutdown::QueryFastShutdown()",
    "IMAPIClientShutdown::DoFastShutdown()",
    "IMAPIClientShutdown::Release()",
    "log INFO: DoMAPIFastShutdown(): Function end.",
};
const Steps kLogoff = {"IMAPISession::Logoff(0, 0x0, 0)", "IMAPISession::Release()"};

enum class Held { kNothing, kSession, kStore, kStoreValues, kOutbox, kMessage, kFormManager };

Steps CleanUp(Held held) {
  Steps trace = {"log DEBUG: SendMail(): cleanup."};
  if (held >= Held::kMessage) {
    Append(trace, {"IMessage::Release()"});
  }
  if (held >= Held::kFormManager) {
    Append(trace, {"IMAPIFormMgr::Release()"});
  }
  if (held >= Held::kOutbox) {
    Append(trace, {"IMAPIFolder::Release()"});
  }
  if (held >= Held::kStoreValues) {
    Append(trace, {"MAPIFreeBuffer(block 1)"});
  }
  if (held >= Held::kStore) {
    Append(trace, {"IMsgStore::Release()"});
  }
  if (held >= Held::kSession) {
    Append(trace, kShutdown + kLogoff);
  }
  return trace + kFunctionEnd;
}

const Steps kToMessage =
    kStart + kProfile + kLogon + kStoreSteps + kStoreValuesSteps + kOutboxSteps + kMessageSteps;

// --- the tests ---

struct Mail {
  std::u16string subject = u"Hello";
  std::u16string body = u"A note";
  std::uint32_t show_modal = 0;
  std::uint32_t submit = 1;
  std::u16string recipient = u"030";
  std::u16string recipient_name = u"Smith";
  std::u16string path = kPath;
  std::u16string name = u"Letter.pdf";
  std::u16string sender = u"J\u00E4ger";
};

class SendMailTest : public test::MapiTest {
 protected:
  SendMailTest() { Furnish(); }

  void Furnish(const std::vector<std::string>& without = {}) {
    StartOver(without);
    mapi_->needs_recipients = false;
    machine_.SetFile(kPath, "PDF");
  }

  static HRESULT Send(const Mail& mail = {}) {
    return SendMail(mail.subject, mail.body, mail.show_modal, mail.submit, 0, 0, mail.recipient,
                    mail.recipient_name, mail.path, mail.name, mail.sender);
  }

  bool DocumentIsThere() const {
    const auto bytes = machine_.FileBytes(kPath);
    EXPECT_EQ(bytes.value_or("PDF"), "PDF");
    return bytes.has_value();
  }
};

TEST_F(SendMailTest, SubmitsAMessage) {
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kSubmit +
                           kSubmitted + CleanUp(Held::kMessage)));
  EXPECT_FALSE(DocumentIsThere());
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
}

TEST_F(SendMailTest, ShowsAMessage) {
  EXPECT_EQ(Send({.show_modal = 1, .submit = 0}), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kFormManagerSteps +
                           kMessageFacts + kPrepareForm + kMessageStatus + kShowForm + kFreeFacts +
                           kShown + CleanUp(Held::kFormManager)));
  EXPECT_FALSE(DocumentIsThere());
}

TEST_F(SendMailTest, ACancelledFormIsASuccess) {
  mapi_->Answer("IMAPISession::ShowForm", 0, MAPI_E_USER_CANCEL);
  EXPECT_EQ(Send({.show_modal = 1, .submit = 0}), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kFormManagerSteps +
                           kMessageFacts + kPrepareForm + kMessageStatus + kShowForm + kFreeFacts +
                           kShown + CleanUp(Held::kFormManager)));
}

TEST_F(SendMailTest, SubmitsOnlyWhenAskedToAndNotToShow) {
  for (const auto& [show_modal, submit, submits] :
       {std::tuple(0U, 1U, true), std::tuple(0U, 0x80000000U, true), std::tuple(0U, 0U, false),
        std::tuple(1U, 1U, false), std::tuple(1U, 0U, false), std::tuple(0x80000000U, 1U, false)}) {
    SCOPED_TRACE(std::to_string(show_modal) + " " + std::to_string(submit));
    Furnish();
    EXPECT_EQ(Send({.show_modal = show_modal, .submit = submit}), S_OK);
    EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), submits ? 1u : 0u);
    EXPECT_EQ(mapi_->CallsOf("IMAPISession::ShowForm").size(), submits ? 0u : 1u);
  }
}

TEST_F(SendMailTest, TheReservedNumbersAreIgnored) {
  EXPECT_EQ(SendMail(u"", u"", 0, 1, 7, 8, u"", u"", kPath, u"Letter.pdf", u""), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), 1u);
}

TEST_F(SendMailTest, WithoutARecipientNoneIsAdded) {
  EXPECT_EQ(Send({.recipient = u""}), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kContents + Attachment(2) + kSubmit + kSubmitted +
                           CleanUp(Held::kMessage)));
}

TEST_F(SendMailTest, WhatIsEmptyIsLeftOut) {
  const struct {
    Mail mail;
    std::string values;
  } kCases[] = {
      {{.subject = u"", .body = u"", .sender = u""}, "2, [0x001a001f \"IPM.Note\", "},
      {{.body = u"", .sender = u""}, "3, [0x001a001f \"IPM.Note\", 0x0037001f \"Hello\", "},
      {{.subject = u"", .sender = u""}, "3, [0x001a001f \"IPM.Note\", 0x1000001f \"A note\", "},
      {{.subject = u"", .body = u""}, "3, [0x001a001f \"IPM.Note\", 0x0042001f \"J\xC3\xA4ger\", "},
  };
  for (const auto& test : kCases) {
    Furnish();
    EXPECT_EQ(Send(test.mail), S_OK);
    std::string expected = "IMessage::SetProps(";
    expected.append(test.values).append("0x0e0a0102 4 bytes 73656e74], null)");
    EXPECT_EQ(mapi_->CallsOf("IMessage::SetProps"), std::vector<std::string>{expected});
  }
}

TEST_F(SendMailTest, AStoreWithoutAFolderForSentItemsGivesNoLink) {
  mapi_->store_values = {Bytes(PR_IPM_OUTBOX_ENTRYID, "out!")};
  EXPECT_EQ(Send({.subject = u"", .body = u"", .sender = u""}), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMessage::SetProps"),
            std::vector<std::string>{"IMessage::SetProps(1, [0x001a001f \"IPM.Note\"], null)"});
}

TEST_F(SendMailTest, TheFirstValuesOfTheirTagsCount) {
  mapi_->store_values = {Bytes(PR_IPM_SENTMAIL_ENTRYID, "sent"),
                         Number(0x35E2000A, MAPI_E_NOT_FOUND), Bytes(PR_IPM_OUTBOX_ENTRYID, "out!"),
                         Bytes(PR_IPM_SENTMAIL_ENTRYID, "more"),
                         Bytes(PR_IPM_OUTBOX_ENTRYID, "more")};
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kSubmit +
                           kSubmitted + CleanUp(Held::kMessage)));
}

TEST_F(SendMailTest, WithoutItsOutboxAStoreIsOfNoUse) {
  for (const Row& values : {Row{}, Row{Bytes(PR_IPM_SENTMAIL_ENTRYID, "sent")},
                            Row{Number(0x35E2000A, MAPI_E_NOT_FOUND)}}) {
    Furnish();
    mapi_->store_values = values;
    EXPECT_EQ(Send(), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Trace(), Lines(kStart + kProfile + kLogon + kStoreSteps + kStoreValuesSteps +
                             Steps{"log ERROR: SendMail(): The outbox folder cannot be opened.",
                                   kNotFoundCode} +
                             CleanUp(Held::kStoreValues)));
    EXPECT_TRUE(DocumentIsThere());
  }
}

TEST_F(SendMailTest, WithoutADefaultStoreThereIsNoSending) {
  const Steps failure = {"log ERROR: SendMail(): The default message store cannot be found.",
                         kNotFoundCode};
  const Steps release = {"FreeProws(rows of the store table)", "IMAPITable::Release()"};
  mapi_->stores = {StoreRow(false, "one!")};
  EXPECT_EQ(Send(), MAPI_E_NOT_FOUND);
  EXPECT_EQ(Trace(), Lines(kStart + kProfile + kLogon + kStoreTable + release + failure +
                           CleanUp(Held::kSession)));

  Furnish();
  mapi_->stores.clear();
  EXPECT_EQ(Send(), MAPI_E_NOT_FOUND);
  EXPECT_EQ(Trace(),
            Lines(kStart + kProfile + kLogon + kStoreTable +
                  Steps{"log ERROR: FindDefaultMsgStore(): There are no message stores found."} +
                  release + failure + CleanUp(Held::kSession)));
}

// --- logging on ---

TEST_F(SendMailTest, LogsOnASecondTimeWithAWindow) {
  mapi_->Answer("MAPILogonEx", 0, kFailure);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(),
            Lines(kStart + kProfile + kLogon + kSecondLogon + kStoreSteps + kStoreValuesSteps +
                  kOutboxSteps + kMessageSteps + kRecipient + kContents + Attachment(5) + kSubmit +
                  kSubmitted + CleanUp(Held::kMessage)));
}

TEST_F(SendMailTest, OfTwoFailedLogonsTheSecondCounts) {
  mapi_->Answer("MAPILogonEx", 0, kFailure);
  mapi_->Answer("MAPILogonEx", 1, MAPI_E_USER_CANCEL);
  EXPECT_EQ(Send(), MAPI_E_USER_CANCEL);
  EXPECT_EQ(Trace(), Lines(kStart + kProfile + kLogon + kSecondLogon +
                           Steps{"log ERROR: SendMail(): MAPILogonEx failed.",
                                 "log ERROR: Code 0x80040113 --> (CDO) The user canceled the "
                                 "operation."} +
                           CleanUp(Held::kNothing)));
  EXPECT_TRUE(DocumentIsThere());
}

TEST_F(SendMailTest, WhatFirstFailuresLeaveBehindIsNotUsed) {
  const auto expect_a_delivery = [this](const char* call) {
    SCOPED_TRACE(call);
    EXPECT_EQ(Send(), S_OK);
    EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>({"PDF"}));
    EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), 1u);
    EXPECT_EQ(mapi_->Accounts(), "");
    EXPECT_FALSE(DocumentIsThere());
  };
  for (const char* const call : {"MAPIAdminProfiles", "IProfAdmin::GetProfileTable",
                                 "HrQueryAllRows", "MAPILogonEx", "IMAPISession::OpenMsgStore"}) {
    Furnish();
    mapi_->failures_leave_garbage = true;
    mapi_->Answer(call, 0, kFailure);
    expect_a_delivery(call);
  }
  Furnish();
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("MAPILogonEx", 0, kFailure);
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  expect_a_delivery("both");
}

TEST_F(SendMailTest, WhatTwoFailedLogonsLeaveBehindIsNotUsed) {
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("MAPILogonEx", 0, kFailure);
  mapi_->Answer("MAPILogonEx", 1, MAPI_E_USER_CANCEL);
  EXPECT_EQ(Send(), MAPI_E_USER_CANCEL);
  EXPECT_EQ(mapi_->CallsOf("IMAPISession::Release"), std::vector<std::string>());
}

TEST_F(SendMailTest, ALogonWithoutASessionFailed) {
  mapi_->GiveNothing("MAPILogonEx", 0);
  mapi_->GiveNothing("MAPILogonEx", 1);
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(Trace(), Lines(kStart + kProfile + kLogon + kSecondLogon +
                           Steps{"log ERROR: SendMail(): MAPILogonEx failed.", kFailText} +
                           CleanUp(Held::kNothing)));
}

TEST_F(SendMailTest, WithoutAProfileLogsOnOnce) {
  const Steps query = {"MAPIAdminProfiles(0x0)", "IProfAdmin::GetProfileTable(0x0)",
                       "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)"};
  const Steps no_name = {"FreeProws(rows of the profile table)", "IMAPITable::Release()",
                         "IProfAdmin::Release()", "log INFO: SendMail(): Profile '' will be used."};
  const Steps rest = kLogonWithoutProfile + kStoreSteps + kStoreValuesSteps + kOutboxSteps +
                     kMessageSteps + kRecipient + kContents + Attachment(5) + kSubmit + kSubmitted +
                     CleanUp(Held::kMessage);
  mapi_->profiles = {ProfileRow(false, "Outlook")};
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kStart + query + no_name + rest));

  Furnish();
  mapi_->profiles = {{Number(PR_DEFAULT_PROFILE, 1), Number(0x3001000A, MAPI_E_NOT_FOUND)}};
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kStart + query + no_name + rest));

  Furnish();
  mapi_->profiles.clear();
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(),
            Lines(kStart + query + Steps{"log ERROR: GetDefaultProfile(): There are no profiles."} +
                  no_name + rest));

  Furnish();
  mapi_->Answer("HrQueryAllRows", 0, kFailure);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kStart + query +
                           Steps{"IMAPITable::Release()", "IProfAdmin::Release()",
                                 "log ERROR: SendMail(): The default profile cannot be obtained.",
                                 kFailureCode} +
                           rest));
}

TEST_F(SendMailTest, AProfileMayHaveANameOfOneCharacter) {
  mapi_->profiles = {ProfileRow(true, "X")};
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("MAPILogonEx"), Steps{"MAPILogonEx(0, \"X\", null, 0x80000029)"});
}

TEST_F(SendMailTest, WithoutAProfileAFailedLogonIsFinal) {
  mapi_->profiles.clear();
  mapi_->Answer("MAPILogonEx", 0, kFailure);
  EXPECT_EQ(Send(), kFailure);
  EXPECT_EQ(mapi_->CallsOf("MAPILogonEx").size(), 1u);
}

// --- failures ---

TEST_F(SendMailTest, WhatEverStartingGivesItsFailureIsAGeneralOne) {
  mapi_->Answer("MAPIInitialize", 0, kFailure);
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(Trace(),
            Lines(kStart + Steps{"log ERROR: SendMail(): MAPIInititialize failed.", kFailureCode}));
  EXPECT_TRUE(DocumentIsThere());
}

struct FailingCall {
  const char* call;
  std::size_t index;
  Steps before;  // up to the failing call
  Steps after;   // up to the clean-up
  Held held;
  bool document_is_there = true;
};

const Steps kStoreFailed = {"log ERROR: SendMail(): The default message store cannot be found.",
                            kFailureCode};
const Steps kContentsFailed = {"log ERROR: SendMail(): Message content cannot be set."};
const Steps kRecipientFailed = {"log ERROR: SendMail(): The recipient '030' cannot be added."};
const Steps kAttachmentFailed = {"log ERROR: SendMail(): The attachment cannot be added."};
const Steps kFormFailed = {"log ERROR: SendMail(): Message cannot be opened modally.",
                           kFailureCode};

// The first `count` steps of `trace`.
Steps First(const Steps& trace, std::size_t count) {
  return {trace.begin(), trace.begin() + static_cast<std::ptrdiff_t>(count)};
}

// A line in the log and the failure's code.
Steps Logged(const std::string& message) {
  return {"log ERROR: " + message, kFailureCode};
}

class SendMailFailure : public SendMailTest {
 protected:
  void Expect(const FailingCall& test, const Mail& mail) {
    for (const bool leaves_garbage : {false, true}) {
      SCOPED_TRACE(std::string(test.call) + " " + std::to_string(test.index) +
                   (leaves_garbage ? " with garbage" : ""));
      Furnish();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->Answer(test.call, test.index, kFailure);
      EXPECT_EQ(Send(mail), kFailure);
      EXPECT_EQ(Trace(), Lines(test.before + test.after + CleanUp(test.held)));
      EXPECT_EQ(DocumentIsThere(), test.document_is_there);
    }
  }
};

TEST_F(SendMailFailure, IsLoggedCleanedUpAfterAndGivenBack) {
  const Steps to_store = kStart + kProfile + kLogon;
  const Steps to_recipient = kToMessage;
  const Steps to_contents = kToMessage + kRecipient;
  const Steps to_attachment = to_contents + kContents;
  const Steps attachment = Attachment(5);
  const Steps to_submission = to_attachment + attachment;
  const Steps free_list = {"FreePadrlist(block 2)"};
  const Steps free_one_off = {"MAPIFreeBuffer(block 4)"};
  const Steps release_book = {"IAddrBook::Release()"};
  const Steps release_attachment = {"IAttach::Release()", "MAPIFreeBuffer(block 5)"};
  const std::string add_recipient = "AddRecipientAddress(): ";
  const std::string add_attachment = "AddAttachment(): ";
  const FailingCall kCases[] = {
      {"IMAPISession::GetMsgStoresTable", 0, to_store + First(kStoreTable, 1),
       Logged("FindDefaultMsgStore(): There are no message stores found.") + kStoreFailed,
       Held::kSession},
      {"HrQueryAllRows", 1, to_store + kStoreTable, Steps{"IMAPITable::Release()"} + kStoreFailed,
       Held::kSession},
      {"IMsgStore::GetProps", 0, to_store + kStoreSteps + kStoreValuesSteps,
       Logged("SendMail(): The store properties cannot be obtained."), Held::kStore},
      {"IMsgStore::OpenEntry", 0, to_store + kStoreSteps + kStoreValuesSteps + kOutboxSteps,
       Logged("SendMail(): The outbox folder cannot be opened."), Held::kStoreValues},
      {"IMAPIFolder::CreateMessage", 0, kToMessage,
       Logged("SendMail(): A new message cannot be created."), Held::kOutbox},
      {"IMAPISession::OpenAddressBook", 0, to_recipient + First(kRecipient, 6),
       Logged(add_recipient + "The address book cannot be opened.") + kRecipientFailed,
       Held::kMessage},
      {"MAPIAllocateBuffer", 1, to_recipient + First(kRecipient, 8),
       free_list + release_book + kRecipientFailed, Held::kMessage},
      {"IAddrBook::CreateOneOff", 0, to_recipient + First(kRecipient, 9),
       Logged(add_recipient + "The ONE OFF address creation failed.") + free_list + release_book +
           kRecipientFailed,
       Held::kMessage},
      {"IAddrBook::ResolveName", 0, to_recipient + First(kRecipient, 10),
       Logged(add_recipient + "The address list resolution failed.") + free_list + free_one_off +
           release_book + kRecipientFailed,
       Held::kMessage},
      {"IMessage::ModifyRecipients", 0, to_recipient + First(kRecipient, 11),
       Logged(add_recipient + "The recipient cannot be added.") + free_list + free_one_off +
           release_book + kRecipientFailed,
       Held::kMessage},
      {"IMessage::SaveChanges", 0, to_recipient + First(kRecipient, 12),
       Logged(add_recipient + "The message cannot be saved.") + free_list + free_one_off +
           release_book + kRecipientFailed,
       Held::kMessage},
      {"IMessage::SetProps", 0, to_contents + kContentsLog + kSetContents,
       Logged("SetMessageContents(): Setting properties failed.") + kContentsFailed,
       Held::kMessage},
      {"IMessage::SaveChanges", 1, to_contents + kContents,
       Logged("SetMessageContents(): Saving properties failed.") + kContentsFailed, Held::kMessage},
      {"MAPIAllocateBuffer", 2, to_attachment + First(attachment, 2),
       Logged(add_attachment + "The attachment property tag memory is not available.") +
           kAttachmentFailed,
       Held::kMessage},
      {"IMessage::CreateAttach", 0, to_attachment + First(attachment, 7),
       Logged(add_attachment + "An attachment could not been created.") +
           Steps{"MAPIFreeBuffer(block 5)"} + kAttachmentFailed,
       Held::kMessage},
      {"IAttach::SetProps", 0, to_attachment + First(attachment, 8),
       Logged(add_attachment + "The properties of the attachment could not been set.") +
           release_attachment + kAttachmentFailed,
       Held::kMessage},
      {"IAttach::SaveChanges", 0, to_attachment + First(attachment, 10),
       Logged(add_attachment + "The attachment cannot be saved. The attachment is corrupt.") +
           release_attachment + kAttachmentFailed,
       Held::kMessage},
      {"IMessage::SubmitMessage", 0, to_submission + kSubmit,
       Logged("SendMail(): Submit message failed."), Held::kMessage, false},
  };
  for (const FailingCall& test : kCases) {
    Expect(test, {});
  }

  const Steps to_facts = to_submission + kFormManagerSteps + kMessageFacts;
  const Steps to_status = to_facts + kPrepareForm + kMessageStatus;
  const FailingCall kModalCases[] = {
      {"MAPIOpenFormMgr", 0, to_submission + kFormManagerSteps,
       Logged("SendMail(): Form manager cannot be opened."), Held::kMessage, false},
      {"IMessage::GetProps", 0, to_facts,
       Logged("OpenMessageModal(): Getting properties failed.") + kFormFailed, Held::kFormManager,
       false},
      {"IMAPISession::PrepareForm", 0, to_facts + kPrepareForm,
       Logged("OpenMessageModal(): Dialog preparation failed.") + kFreeFacts + kFormFailed,
       Held::kFormManager, false},
      {"IMAPIFolder::GetMessageStatus", 0, to_status,
       Logged("OpenMessageModal(): Dialog message status retrieval failed.") + kFreeFacts +
           kFormFailed,
       Held::kFormManager, false},
      {"IMAPISession::ShowForm", 0, to_status + kShowForm,
       Logged("OpenMessageModal(): The form cannot be shown.") + kFreeFacts + kFormFailed,
       Held::kFormManager, false},
  };
  for (const FailingCall& test : kModalCases) {
    Expect(test, {.show_modal = 1, .submit = 0});
  }
}

TEST_F(SendMailFailure, OfAStoreIsTheSecondOpenings) {
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, MAPI_E_NOT_FOUND);
  mapi_->Answer("IMAPISession::OpenMsgStore", 1, kFailure);
  EXPECT_EQ(Send(), kFailure);
  EXPECT_EQ(
      Trace(),
      Lines(kStart + kProfile + kLogon + First(kStoreSteps, 3) +
            Steps{"log ERROR: FindDefaultMsgStore(): The message store canot be opened as online "
                  "mode.",
                  kNotFoundCode, "IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0xc)"} +
            Logged("FindDefaultMsgStore(): The message store canot be opened.") +
            Steps{"IMAPITable::Release()"} + kStoreFailed + CleanUp(Held::kSession)));
  SettleAccounts("rows of the store table of HrQueryAllRows: not freed\n");
}

TEST_F(SendMailFailure, IsAlsoASuccessThatHandsOutNothing) {
  const struct {
    const char* call;
    HRESULT result;
    const char* log;
  } kCases[] = {
      {"IMAPISession::OpenMsgStore", MAPI_E_NOT_FOUND,
       "SendMail(): The default message store cannot be found."},
      {"IMsgStore::GetProps", MAPI_E_NOT_FOUND, "SendMail(): The outbox folder cannot be opened."},
      {"IMsgStore::OpenEntry", E_FAIL, "SendMail(): The outbox folder cannot be opened."},
      {"IMAPIFolder::CreateMessage", E_FAIL, "SendMail(): A new message cannot be created."},
      {"MAPIOpenFormMgr", E_FAIL, "SendMail(): Form manager cannot be opened."},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.call);
    Furnish();
    mapi_->GiveNothing(test.call);
    EXPECT_EQ(Send({.show_modal = 1, .submit = 0}), test.result);
    EXPECT_NE(test::LogText().find(std::string("ERROR: ") + test.log + "\nERROR: Code "),
              std::string::npos)
        << test::LogText();
  }
}

TEST_F(SendMailFailure, TheRecipientIsNamedAsTheJobNamesIt) {
  machine_.SetString(platform::Hive::kCurrentUser, u"Software\\Sollvex\\OutlookAddin",
                     u"AddrExtFaxEnabled", u"1");
  machine_.SetString(platform::Hive::kCurrentUser, u"Software\\Sollvex\\OutlookAddin",
                     u"AddrExtFaxPrefix", u"[FAX:");
  mapi_->Answer("IMessage::ModifyRecipients", 0, kFailure);
  EXPECT_EQ(Send({.recipient = u"030 %s"}), kFailure);
  EXPECT_NE(test::LogText().find("ERROR: SendMail(): The recipient '030 %s' cannot be added.\n"),
            std::string::npos);
}

TEST_F(SendMailFailure, DeliberateAMissingRecipientForLackOfMemoryIsNone) {
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients"), std::vector<std::string>());
  EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), 1u);
  EXPECT_EQ(test::LogText().find("SendMail(): The recipient"), std::string::npos);
}

TEST_F(SendMailFailure, OfAnEmptyPathIsTheAttachments) {
  EXPECT_EQ(Send({.path = u""}), E_INVALIDARG);
  EXPECT_NE(test::LogText().find(
                "ERROR: SendMail(): The attachment cannot be added.\nDEBUG: SendMail(): cleanup."),
            std::string::npos);
}

// The library is foreign code: what it must not do does not keep the session open.
TEST_F(SendMailFailure, ThatTheLibraryThrowsIsALackOfMemoryAndCleanedUpAfter) {
  mapi_->throwing = "IMessage::SubmitMessage";
  EXPECT_EQ(Send(), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kSubmit +
                           CleanUp(Held::kMessage)));
}

// The code of a document that cannot be opened is the system's own, which is positive.
TEST_F(SendMailFailure, DeliberateAMissingDocumentIsNone) {
  machine_.Remove(kPath);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_NE(test::LogText().find("ERROR: AddAttachment(): The attachment path cannot be read.\n"
                                 "ERROR: Code 0x00000002 --> Unknown Error.\n"
                                 "INFO: SendMail(): Message sent successfully.\n"),
            std::string::npos)
      << test::LogText();
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>());
}

// --- the fast shutdown ---

TEST_F(SendMailTest, AClientWithoutFastShutdownIsLoggedOffAllTheSame) {
  const struct {
    bool has_shutdown;
    const char* failing;
    Steps shutdown;
  } kCases[] = {
      {false, nullptr, First(kShutdown, 2)},
      {true, "IMAPISession::QueryInterface", First(kShutdown, 2)},
      {true, "IMAPIClientShutdown::QueryFastShutdown",
       First(kShutdown, 3) + Steps{"IMAPIClientShutdown::Release()"}},
      {true, "IMAPIClientShutdown::DoFastShutdown",
       First(kShutdown, 4) + Steps{"log DEBUG: DoMAPIFastShutdown(): Fast shutdown failed.",
                                   "log DEBUG: Code 0x80040115 --> (CDO) A network error occured.",
                                   "IMAPIClientShutdown::Release()"}},
  };
  for (const bool leaves_garbage : {false, true}) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(test.failing == nullptr ? "no interface" : test.failing);
      Furnish();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->has_shutdown = test.has_shutdown;
      if (test.failing != nullptr) {
        mapi_->Answer(test.failing, 0, kFailure);
      }
      EXPECT_EQ(Send({.recipient = u""}), S_OK);
      EXPECT_EQ(
          Trace(),
          Lines(kToMessage + kContents + Attachment(2) + kSubmit + kSubmitted +
                Steps{"log DEBUG: SendMail(): cleanup.", "IMessage::Release()",
                      "IMAPIFolder::Release()", "MAPIFreeBuffer(block 1)", "IMsgStore::Release()"} +
                test.shutdown + Steps{"log INFO: DoMAPIFastShutdown(): Function end."} + kLogoff +
                kFunctionEnd));
    }
  }
}

TEST_F(SendMailTest, AnInterfaceThatIsNotHandedOutIsNone) {
  mapi_->GiveNothing("IMAPISession::QueryInterface");
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMAPIClientShutdown::QueryFastShutdown"), std::vector<std::string>());
}

TEST_F(SendMailTest, AFailedLogoffChangesNothing) {
  mapi_->Answer("IMAPISession::Logoff", 0, kFailure);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kToMessage + kRecipient + kContents + Attachment(5) + kSubmit +
                           kSubmitted + CleanUp(Held::kMessage)));
}

TEST_F(SendMailTest, TheLastResultIsGivenBack) {
  mapi_->Answer("IMessage::SubmitMessage", 0, 5);
  EXPECT_EQ(Send(), 5);
}

// --- without the library, or one of its functions ---

TEST_F(SendMailTest, WithoutALibraryMapiCannotBeStarted) {
  StartOverWithoutLibrary();
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(test::LogText(),
            "ERROR: SendMail(): MAPIInititialize failed.\n"
            "ERROR: Code 0x80004005 --> A general not more specified error occurred.\n");
}

TEST_F(SendMailTest, AMissingFunctionShowsInItsOwnWay) {
  const Steps to_attachment = kToMessage + kContents;
  const Steps end = kSubmit + kSubmitted + CleanUp(Held::kMessage);

  Furnish({"MAPIInitialize"});
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(Trace(), Lines({"log ERROR: SendMail(): MAPIInititialize failed.", kFailText}));

  Furnish({"MAPIAdminProfiles"});
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Trace(), Lines(kStart +
                           Steps{"log ERROR: SendMail(): The default profile cannot be obtained.",
                                 kFailText} +
                           kLogonWithoutProfile + kStoreSteps + kStoreValuesSteps + kOutboxSteps +
                           kMessageSteps + kRecipient + kContents + Attachment(5) + end));

  Furnish({"MAPILogonEx"});
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(Trace(), Lines(kStart + kProfile + First(kLogon, 1) + First(kSecondLogon, 1) +
                           Steps{"log ERROR: SendMail(): MAPILogonEx failed.", kFailText} +
                           CleanUp(Held::kNothing)));

  Furnish({"HrQueryAllRows"});
  EXPECT_EQ(Send(), E_FAIL);
  EXPECT_EQ(Trace(), Lines(kStart + First(kProfile, 2) +
                           Steps{"IMAPITable::Release()", "IProfAdmin::Release()",
                                 "log ERROR: SendMail(): The default profile cannot be obtained.",
                                 kFailText} +
                           kLogonWithoutProfile + First(kStoreTable, 1) +
                           Steps{"IMAPITable::Release()",
                                 "log ERROR: SendMail(): The default message store cannot be "
                                 "found.",
                                 kFailText} +
                           CleanUp(Held::kSession)));

  Furnish({"MAPIOpenFormMgr"});
  EXPECT_EQ(Send({.show_modal = 1, .submit = 0, .recipient = u""}), E_FAIL);
  EXPECT_EQ(Trace(),
            Lines(to_attachment + Attachment(2) +
                  Steps{"log ERROR: SendMail(): Form manager cannot be opened.", kFailText} +
                  CleanUp(Held::kMessage)));

  Furnish({"MAPIAllocateBuffer"});
  EXPECT_EQ(Send({.recipient = u""}), E_FAIL);
  EXPECT_EQ(Trace(),
            Lines(to_attachment + First(Attachment(2), 1) +
                  Steps{"log ERROR: AddAttachment(): The attachment property tag memory "
                        "is not available.",
                        kFailText, "log ERROR: SendMail(): The attachment cannot be added."} +
                  CleanUp(Held::kMessage)));
  EXPECT_TRUE(DocumentIsThere());

  Furnish({"FreeProws"});
  EXPECT_EQ(Send({.recipient = u""}), S_OK);
  SettleAccounts(
      "rows of the profile table of HrQueryAllRows: not freed\n"
      "rows of the store table of HrQueryAllRows: not freed\n");

  Furnish({"FreePadrlist"});
  EXPECT_EQ(Send(), S_OK);
  SettleAccounts(
      "block 2 of MAPIAllocateBuffer: not freed\nblock 3 of MAPIAllocateBuffer: not freed\n");

  Furnish({"MAPIFreeBuffer"});
  EXPECT_EQ(Send(), S_OK);
  SettleAccounts(
      "block 1 of IMsgStore::GetProps: not freed\n"
      "block 4 of IAddrBook::CreateOneOff: not freed\n"
      "block 5 of MAPIAllocateBuffer: not freed\n");
}

TEST_F(SendMailTest, MapiIsNeverUninitialized) {
  EXPECT_EQ(Send(), S_OK);
  std::vector<std::string> functions;
  for (const std::string& call : machine_.CallsOf("FindProcedure")) {
    functions.push_back(call.substr(call.rfind(' ') + 1));
  }
  EXPECT_EQ(functions,
            (std::vector<std::string>{"MAPIInitialize)", "MAPIAdminProfiles)", "HrQueryAllRows)",
                                      "FreeProws)", "MAPILogonEx)", "MAPIAllocateBuffer)",
                                      "FreePadrlist)", "MAPIFreeBuffer)"}));
}

}  // namespace
}  // namespace zentpost
