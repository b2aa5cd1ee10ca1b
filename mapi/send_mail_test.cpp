// What a sending does with what it is given and answered. That it does these steps and no others,
// with which lines in the log, and how it ends when one of them fails is held by tests/whole_job.
#include "mapi/send_mail.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::kFailure;
using test::Lines;
using test::Number;
using test::ProfileRow;
using test::Row;
using test::StoreRow;
using Calls = std::vector<std::string>;

constexpr char16_t kPath[] = u"C:\\docs\\fax.pdf";

struct Mail {
  std::u16string subject = u"Hello";
  std::u16string body = u"A note";
  std::uint32_t show_modal = 0;
  std::uint32_t submit = 1;
  std::u16string path = kPath;
  std::u16string sender = u"J\u00E4ger";
};
const Mail kShown = {.show_modal = 1, .submit = 0};

class SendMailTest : public test::MapiTest {
 protected:
  SendMailTest() { Prepare(); }

  void Prepare() {
    StartOver();
    mapi_->needs_recipients = false;
    fake_.SetFile(kPath, "PDF");
  }

  static HRESULT Send(const Mail& mail = {}) {
    return SendMail(mail.subject, mail.body, mail.show_modal, mail.submit, 7, 8, u"030", u"Smith",
                    mail.path, u"Letter.pdf", mail.sender);
  }

  // Holds what an error line of this text is followed by, up to the clean-up.
  static void ExpectError(const std::string& text, const std::string& code) {
    const std::string log = test::LogText();
    EXPECT_NE(log.find("ERROR: " + text + "\nERROR: Code " + code + "\nDEBUG: SendMail(): cleanup"),
              std::string::npos)
        << log;
  }
};

constexpr char kFailCode[] = "0x80004005 --> A general not more specified error occurred.";
constexpr char kNotFoundCode[] = "0x8004010f --> (CDO) The value was not found.";
constexpr char kCancelCode[] = "0x80040113 --> (CDO) The user canceled the operation.";

TEST_F(SendMailTest, SubmitsAMessage) {
  const std::string entry =
      "[5 [0x3001001f \"Smith\", 0x3002001f \"SMTP\", 0x3003001f \"030\", 0x0c150003 1, "
      "0x0fff0102 7 bytes 6f6e652d6f6666]])";
  const std::string contents =
      "IMessage::SetProps(5, [0x001a001f \"IPM.Note\", 0x0037001f \"Hello\", 0x1000001f \"A "
      "note\", 0x0042001f \"J\xC3\xA4ger\", 0x0e0a0102 4 bytes 73656e74], null)";
  const std::string attachment =
      "IAttach::SetProps(9, [0x37050003 1, 0x370b0003 -1, 0x37010102 3 bytes 504446, 0x3703001f "
      "\".pdf\", 0x3704001f \"Letter.pdf\", 0x3707001f \"Letter.pdf\", 0x37140003 0, 0x3001001f "
      "\"Letter.pdf\", 0x7ffa0003 0], null)";
  const Calls plain = {
      "MAPIInitialize(null)",
      "MAPIAdminProfiles(0x0)",
      "IProfAdmin::GetProfileTable(0x0)",
      "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)",
      "FreeProws(rows of the profile table)",
      "IMAPITable::Release()",
      "IProfAdmin::Release()",
      "MAPILogonEx(0, \"Outlook\", null, 0x80000029)",
      "IMAPISession::GetMsgStoresTable(0x0)",
      "HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)",
      "IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0x10c)",
      "FreeProws(rows of the store table)",
      "IMAPITable::Release()",
      "IMsgStore::GetProps(null, 0x80000000)",
      "IMsgStore::OpenEntry(4 bytes 6f757421, null, 0x10)",
      "IMAPIFolder::CreateMessage(null, 0x0)",
      "IMAPISession::OpenAddressBook(0, null, 0x0)",
      "MAPIAllocateBuffer(" + std::to_string(sizeof(ADRLIST)) + ")",
      "MAPIAllocateBuffer(" + std::to_string(20 * sizeof(SPropValue)) + ")",
      "IAddrBook::CreateOneOff(\"Smith\", \"SMTP\", \"030\", 0x80000000)",
      "IAddrBook::ResolveName(0, 0x80000000, null, " + entry,
      "IMessage::ModifyRecipients(0x2, " + entry,
      "IMessage::SaveChanges(0x2)",
      "FreePadrlist(block 2)",
      "MAPIFreeBuffer(block 4)",
      "IAddrBook::Release()",
      contents,
      "IMessage::SaveChanges(0x2)",
      "MAPIAllocateBuffer(" + std::to_string(12 * sizeof(SPropValue)) + ")",
      "IMessage::CreateAttach(null, 0x8)",
      attachment,
      "IAttach::SaveChanges(0x0)",
      "IAttach::Release()",
      "MAPIFreeBuffer(block 5)",
      "IMessage::SubmitMessage(0x0)",
      "IMessage::Release()",
      "IMAPIFolder::Release()",
      "MAPIFreeBuffer(block 1)",
      "IMsgStore::Release()",
      "IMAPISession::QueryInterface(IMAPIClientShutdown)",
      "IMAPIClientShutdown::QueryFastShutdown()",
      "IMAPIClientShutdown::DoFastShutdown()",
      "IMAPIClientShutdown::Release()",
      "IMAPISession::Logoff(0, 0x0, 0)",
      "IMAPISession::Release()",
  };
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(Lines(mapi_->Calls()), Lines(plain));

  // Of the store's values the first of a tag counts. The last result is given back as it is.
  Prepare();
  mapi_->store_values = {Bytes(PR_IPM_SENTMAIL_ENTRYID, "sent"),
                         Number(0x35E2000A, MAPI_E_NOT_FOUND), Bytes(PR_IPM_OUTBOX_ENTRYID, "out!"),
                         Bytes(PR_IPM_SENTMAIL_ENTRYID, "more"),
                         Bytes(PR_IPM_OUTBOX_ENTRYID, "more")};
  mapi_->Answer("IMessage::SubmitMessage", 0, 5);
  EXPECT_EQ(Send(), 5);
  EXPECT_EQ(Lines(mapi_->Calls()), Lines(plain));
}

TEST_F(SendMailTest, SubmitsOnlyWhenAskedToAndNotToShow) {
  for (const auto& [show_modal, submit, submits] :
       {std::tuple(0U, 1U, true), std::tuple(0U, 0x80000000U, true), std::tuple(0U, 0U, false),
        std::tuple(1U, 1U, false), std::tuple(1U, 0U, false), std::tuple(0x80000000U, 1U, false)}) {
    SCOPED_TRACE(std::to_string(show_modal) + " " + std::to_string(submit));
    Prepare();
    EXPECT_EQ(Send({.show_modal = show_modal, .submit = submit}), S_OK);
    EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), submits ? 1u : 0u);
    EXPECT_EQ(mapi_->CallsOf("MAPIOpenFormMgr"),
              submits ? Calls{} : Calls{"MAPIOpenFormMgr(session)"});
    EXPECT_EQ(mapi_->CallsOf("IMAPISession::ShowForm"),
              submits ? Calls{}
                      : Calls{"IMAPISession::ShowForm(0, store, outbox, null, 0x1234, null, 0x0, "
                              "0x40, 0x9, 0x3f, \"IPM.Note\")"});
  }
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
    Prepare();
    EXPECT_EQ(Send(test.mail), S_OK);
    EXPECT_EQ(CallOf("IMessage::SetProps"),
              "IMessage::SetProps(" + test.values + "0x0e0a0102 4 bytes 73656e74], null)");
  }
  // As is the link of a store without a folder for sent items.
  Prepare();
  mapi_->store_values = {Bytes(PR_IPM_OUTBOX_ENTRYID, "out!")};
  EXPECT_EQ(Send({.subject = u"", .body = u"", .sender = u""}), S_OK);
  EXPECT_EQ(CallOf("IMessage::SetProps"), "IMessage::SetProps(1, [0x001a001f \"IPM.Note\"], null)");
}

TEST_F(SendMailTest, NeedsADefaultStoreWithAnOutbox) {
  for (const Row& values : {Row{}, Row{Bytes(PR_IPM_SENTMAIL_ENTRYID, "sent")},
                            Row{Number(0x35E2000A, MAPI_E_NOT_FOUND)}}) {
    Prepare();
    mapi_->store_values = values;
    EXPECT_EQ(Send(), MAPI_E_NOT_FOUND);
    ExpectError("SendMail(): The outbox folder cannot be opened.", kNotFoundCode);
    EXPECT_EQ(mapi_->CallsOf("IMsgStore::OpenEntry"), Calls{});
    EXPECT_EQ(fake_.FileBytes(kPath), "PDF");
  }
  for (const std::vector<Row>& stores : {std::vector<Row>{StoreRow(false, "one!")}, {}}) {
    Prepare();
    mapi_->stores = stores;
    EXPECT_EQ(Send(), MAPI_E_NOT_FOUND);
    ExpectError("SendMail(): The default message store cannot be found.", kNotFoundCode);
  }
}

TEST_F(SendMailTest, LogsOnWithTheDefaultProfile) {
  const Row nameless = {Number(PR_DEFAULT_PROFILE, 1), Number(0x3001000A, MAPI_E_NOT_FOUND)};
  const struct {
    const char* name;
    std::vector<Row> profiles;
    std::vector<HRESULT> answers;
    HRESULT result;
    Calls logons;
  } kCases[] = {
      {"of one character", {ProfileRow(true, "X")}, {}, S_OK, {"0, \"X\", null, 0x80000029"}},
      {"a second time with a window",
       {ProfileRow(true, "X")},
       {kFailure},
       S_OK,
       {"0, \"X\", null, 0x80000029", "0, \"X\", null, 0x80000023"}},
      {"of two failures the second counts",
       {ProfileRow(true, "X")},
       {kFailure, MAPI_E_USER_CANCEL},
       MAPI_E_USER_CANCEL,
       {"0, \"X\", null, 0x80000029", "0, \"X\", null, 0x80000023"}},
      {"without one", {ProfileRow(false, "X")}, {}, S_OK, {"0, \"\", null, 0x80000023"}},
      {"without its name", {nameless}, {}, S_OK, {"0, \"\", null, 0x80000023"}},
      {"without any", {}, {}, S_OK, {"0, \"\", null, 0x80000023"}},
      {"without any a failure is final",
       {},
       {MAPI_E_USER_CANCEL},
       MAPI_E_USER_CANCEL,
       {"0, \"\", null, 0x80000023"}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    Prepare();
    mapi_->profiles = test.profiles;
    for (std::size_t i = 0; i < test.answers.size(); ++i) {
      mapi_->Answer("MAPILogonEx", i, test.answers[i]);
    }
    EXPECT_EQ(Send(), test.result);
    Calls logons;
    for (const std::string& arguments : test.logons) {
      logons.push_back("MAPILogonEx(" + arguments + ")");
    }
    EXPECT_EQ(mapi_->CallsOf("MAPILogonEx"), logons);
    if (test.result != S_OK) {
      ExpectError("SendMail(): MAPILogonEx failed.", kCancelCode);
      EXPECT_EQ(fake_.FileBytes(kPath), "PDF");
    }
  }
}

// --- failures ---

TEST_F(SendMailTest, FailsAlsoAtASuccessThatHandsOutNothing) {
  const struct {
    const char* call;
    HRESULT result;
    const char* code;
    const char* log;
  } kCases[] = {
      {"MAPILogonEx", E_FAIL, kFailCode, "MAPILogonEx failed."},
      {"IMAPISession::OpenMsgStore", MAPI_E_NOT_FOUND, kNotFoundCode,
       "The default message store cannot be found."},
      {"IMsgStore::GetProps", MAPI_E_NOT_FOUND, kNotFoundCode,
       "The outbox folder cannot be opened."},
      {"IMsgStore::OpenEntry", E_FAIL, kFailCode, "The outbox folder cannot be opened."},
      {"IMAPIFolder::CreateMessage", E_FAIL, kFailCode, "A new message cannot be created."},
      {"MAPIOpenFormMgr", E_FAIL, kFailCode, "Form manager cannot be opened."},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.call);
    Prepare();
    mapi_->GiveNothing(test.call, 0);
    mapi_->GiveNothing(test.call, 1);
    EXPECT_EQ(Send(kShown), test.result);
    ExpectError(std::string("SendMail(): ") + test.log, test.code);
  }
}

TEST_F(SendMailTest, DeliberateAMissingRecipientForLackOfMemoryIsNone) {
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients"), Calls{});
  EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), 1u);
  EXPECT_EQ(test::LogText().find("SendMail(): The recipient"), std::string::npos);
}

// The code of a document that cannot be opened is the system's own, which is positive.
TEST_F(SendMailTest, DeliberateAMissingDocumentIsNone) {
  fake_.Remove(kPath);
  EXPECT_EQ(Send(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), 1u);
  EXPECT_EQ(mapi_->SavedAttachments(), Calls{});
}

TEST_F(SendMailTest, ACancelledFormIsASuccess) {
  mapi_->Answer("IMAPISession::ShowForm", 0, MAPI_E_USER_CANCEL);
  EXPECT_EQ(Send(kShown), S_OK);
  EXPECT_EQ(test::LogText().find("ERROR"), std::string::npos);
}

TEST_F(SendMailTest, AnEmptyPathIsTheAttachmentsFailure) {
  EXPECT_EQ(Send({.path = u""}), E_INVALIDARG);
  EXPECT_NE(test::LogText().find(
                "ERROR: SendMail(): The attachment cannot be added.\nDEBUG: SendMail(): cleanup."),
            std::string::npos);
}

// The library is foreign code: what it must not do does not keep the session open.
TEST_F(SendMailTest, ThatTheLibraryThrowsIsALackOfMemoryAndCleanedUpAfter) {
  mapi_->throwing = "IMessage::SubmitMessage";
  EXPECT_EQ(Send(), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(mapi_->Calls().back(), "IMAPISession::Release()");
}

}  // namespace
}  // namespace zentpost
