// What becomes of the mails that the tool sends: it finds the sandbox on the fake platform, and the
// sandbox's files are real ones.
#include "tools/sandbox_mapi/library.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "fake_mapi/codes.h"
#include "fake_mapi/text.h"
#include "mapi/send_mail.h"
#include "mapiload/entry_points.h"
#include "mapiload/process_state.h"
#include "testing/fake_mapi.h"
#include "testing/fake_platform/fixture.h"
#include "tools/sandbox_mapi/sha256.h"
#include "tools/sandbox_mapi/test_folder.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

constexpr char kClean[] = "findings:\nresult: no leaks, no double frees, no overruns\n";
constexpr char16_t kDocument[] = u"C:\\a.pdf";

struct JsonDeleter {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// The value of a property in a list of them; null when it is not there.
const cJSON* Value(const cJSON* list, const char* tag) {
  const cJSON* property = nullptr;
  cJSON_ArrayForEach(property, list) {
    if (std::string(cJSON_GetObjectItemCaseSensitive(property, "Tag")->valuestring) == tag) {
      return cJSON_GetObjectItemCaseSensitive(property, "Value");
    }
  }
  return nullptr;
}

std::string TextOf(const cJSON* item) {
  return cJSON_IsString(item) ? item->valuestring : "no text";
}

const cJSON* Member(const cJSON* object, const char* name) {
  return cJSON_GetObjectItemCaseSensitive(object, name);
}

struct Mail {
  std::u16string subject = u"Invoice 42";
  std::u16string body = u"Hello";
  std::u16string sender = u"Zo\u00EB";
  std::u16string name = u"Jane";
  std::u16string address = u"030 1";
  std::u16string type = u"FAX";
  std::optional<std::size_t> size = 300;  // of the document
  std::u16string document_name = u"a b.pdf";
  bool is_shown = false;
};

std::string DocumentOf(const Mail& mail) {
  std::string bytes;
  for (std::size_t i = 0; i < *mail.size; ++i) {
    bytes += static_cast<char>(i * 7 + (i >> 8));
  }
  return bytes;
}

class LibraryTest : public platform::fake::MachineTest {
 protected:
  // One process: sends a mail, with the sandbox that has these orders, or more than that.
  HRESULT Send(const Mail& mail, const std::optional<std::string>& orders = "{}") {
    Library library(Folder(), orders);
    PrepareMachine(mail);
    const HRESULT result =
        SendMail(mail.subject, mail.body, mail.is_shown ? 1 : 0, mail.is_shown ? 0 : 1, 0, 0,
                 mail.address, mail.name, kDocument, mail.document_name, mail.sender);
    ForgetMapiLoading();
    return result;
  }

  void PrepareMachine(const Mail& mail) {
    ForgetMapiLoading();
    machine_.Reset();
    machine_.AddModule(u"C:\\Windows\\system32\\mapi32.dll", test::MapiExports());
    if (mail.size) {
      machine_.SetFile(kDocument, DocumentOf(mail));
    }
    // How the tool comes to the address' type.
    const bool is_plain = mail.type == u"SMTP" && mail.address.find(u'@') == mail.address.npos;
    const auto set = [&](const char16_t* value, const char16_t* text) {
      machine_.SetString(platform::Hive::kCurrentUser, u"Software\\Sollvex\\OutlookAddin", value,
                         text);
    };
    set(u"AddrExtFaxEnabled", is_plain ? u"0" : u"1");
    set(u"AddrExtFaxPrefix", mail.type == u"FAX" ? u"[FAX" : u"");
    set(u"AddrExtFaxPostfix", mail.type == u"FAX" ? u"]" : u"");
  }

  static std::string Failing(const char* call) {
    return std::string(R"({"Fail": [{"Call": ")") + call +
           R"(", "Code": "0x80040123", "From": true}]})";
  }

  [[nodiscard]] fs::path Folder() const { return folder_.Path() / "mail"; }
  [[nodiscard]] fs::path Sent(const char* name) const {
    return Folder() / "Store" / "Sent Items" / name;
  }
  [[nodiscard]] fs::path Outbox(const char* name = "") const {
    return Folder() / "Store" / "Outbox" / name;
  }
  [[nodiscard]] std::string Report() const { return ReadBytes(Folder() / "report.txt"); }
  [[nodiscard]] static Json Read(const fs::path& path) {
    return Json(cJSON_Parse(ReadBytes(path).c_str()));
  }

  TestFolder folder_;
};

TEST_F(LibraryTest, SubmittedMessageIsInSentItemsAndNothingElseIsLeft) {
  EXPECT_EQ(Send({}), S_OK);
  EXPECT_TRUE(fs::exists(Sent("0001.eml")));
  EXPECT_TRUE(fs::is_empty(Outbox()));
  EXPECT_TRUE(fs::is_empty(Folder() / "Drafts"));
  const std::string report = Report();
  EXPECT_NE(report.find(kClean), std::string::npos) << report;
  EXPECT_NE(report.find("\ncalls:\n  1 MAPIInitialize(null) = 0x00000000\n"), std::string::npos);
  EXPECT_NE(report.find(" #3 IMAPISession::GetMsgStoresTable(0x0) = 0x00000000\n"),
            std::string::npos)
      << report;
  // Nothing of the report for a process that is killed is left beside it.
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(Folder())) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  EXPECT_EQ(files, 1u);
}

TEST_F(LibraryTest, JsonHasAllThatTheCallerSet) {
  ASSERT_EQ(Send({}), S_OK);
  const Json json = Read(Sent("0001.json"));
  ASSERT_TRUE(json);
  EXPECT_EQ(TextOf(Member(json.get(), "State")), "submitted");
  const cJSON* const calls = Member(json.get(), "Calls");
  const std::vector<std::string> expected_calls = {
      "IMAPIFolder::CreateMessage 0x00000000", "IMessage::ModifyRecipients 0x00000002",
      "IMessage::SaveChanges 0x00000002",      "IMessage::SaveChanges 0x00000002",
      "IAttach::SaveChanges 0x00000000",       "IMessage::SubmitMessage 0x00000000"};
  ASSERT_EQ(cJSON_GetArraySize(calls), static_cast<int>(expected_calls.size()));
  for (std::size_t i = 0; i < expected_calls.size(); ++i) {
    EXPECT_EQ(TextOf(cJSON_GetArrayItem(calls, static_cast<int>(i))), expected_calls[i]);
  }
  const cJSON* const properties = Member(json.get(), "Properties");
  EXPECT_EQ(TextOf(Value(properties, "0x001A001F")), "IPM.Note");
  EXPECT_EQ(TextOf(Value(properties, "0x0037001F")), "Invoice 42");
  EXPECT_EQ(TextOf(Value(properties, "0x1000001F")), "Hello");
  EXPECT_EQ(TextOf(Value(properties, "0x0042001F")), "Zo\xC3\xAB");
  EXPECT_EQ(TextOf(Member(Value(properties, "0x0E0A0102"), "Entry")), "folder Sent Items");
  const cJSON* const recipient = cJSON_GetArrayItem(Member(json.get(), "Recipients"), 0);
  EXPECT_EQ(TextOf(Member(recipient, "AddressSpec")), "FAX=030%201@typed.sandbox.invalid");
  EXPECT_EQ(TextOf(Member(Member(recipient, "OneOff"), "Address")), "030 1");
  EXPECT_EQ(TextOf(Member(Member(recipient, "OneOff"), "Name")), "Jane");
  EXPECT_EQ(Value(Member(recipient, "Properties"), "0x0C150003")->valueint, 1);
  const cJSON* const attachment = cJSON_GetArrayItem(Member(json.get(), "Attachments"), 0);
  EXPECT_EQ(TextOf(Member(attachment, "Flags")), "0x00000008");
  EXPECT_TRUE(cJSON_IsTrue(Member(attachment, "Saved")));
  const cJSON* const data = Member(attachment, "Properties");
  EXPECT_EQ(cJSON_GetArraySize(data), 9);
  EXPECT_EQ(Value(data, "0x370B0003")->valueint, -1);
  EXPECT_EQ(TextOf(Value(data, "0x3707001F")), "a b.pdf");
  EXPECT_EQ(Member(Value(data, "0x37010102"), "Size")->valueint, 300);
  EXPECT_EQ(TextOf(Member(Value(data, "0x37010102"), "Sha256")), Sha256Of(DocumentOf({})));
}

TEST_F(LibraryTest, MessageThatIsNotSentStaysInTheOutboxAsItWasSaved) {
  EXPECT_EQ(Send({}, Failing("IMessage::SubmitMessage")), Code(0x80040123));
  EXPECT_FALSE(fs::exists(Sent("0001.eml")));
  const Json json = Read(Outbox("0001.json"));
  ASSERT_TRUE(json);
  EXPECT_EQ(TextOf(Member(json.get(), "State")), "saved");
  // The document was attached, but the message not saved since.
  EXPECT_EQ(cJSON_GetArraySize(Member(json.get(), "Attachments")), 0);
  EXPECT_EQ(ReadBytes(Outbox("0001") / "attachment-0.bin"), DocumentOf({}));
  EXPECT_NE(Report().find(kClean), std::string::npos) << Report();
}

TEST_F(LibraryTest, MessageThatWasNeverSavedIsGone) {
  EXPECT_EQ(Send({}, Failing("IMessage::SaveChanges")), Code(0x80040123));
  EXPECT_TRUE(fs::is_empty(Outbox()));
}

TEST_F(LibraryTest, ProcessesNumberTheirMessagesOneBehindTheOther) {
  EXPECT_EQ(Send({}), S_OK);
  EXPECT_EQ(Send({}), S_OK);
  EXPECT_TRUE(fs::exists(Sent("0002.eml")));
  const std::string report = Report();
  EXPECT_NE(report.find(kClean, report.find(kClean) + 1), std::string::npos) << report;
}

TEST_F(LibraryTest, PreviewMakesADraftAndAnswersAsOrdered) {
  const struct {
    const char* orders;
    HRESULT result;
    bool is_sent;
  } cases[] = {{"{}", S_OK, true},
               {R"({"ShowForm": "cancelled"})", S_OK, false},
               {R"({"ShowForm": "0x80004005"})", E_FAIL, false}};
  int number = 0;
  for (const auto& one : cases) {
    SCOPED_TRACE(one.orders);
    EXPECT_EQ(Send({.is_shown = true}, one.orders), one.result);
    const std::string name = "000" + std::to_string(++number);
    const std::string draft = ReadBytes(Folder() / "Drafts" / (name + ".eml"));
    EXPECT_NE(draft.find("\r\nX-Unsent: 1\r\n"), std::string::npos) << draft;
    EXPECT_NE(draft.find("filename=\"a b.pdf\""), std::string::npos) << draft;
    const Json json = Read(Folder() / "Drafts" / (name + ".json"));
    EXPECT_EQ(TextOf(Member(json.get(), "State")), "draft");
    EXPECT_EQ(fs::exists(Sent((name + ".eml").c_str())), one.is_sent);
    EXPECT_EQ(fs::exists(Outbox((name + ".json").c_str())), !one.is_sent);
  }
  EXPECT_EQ(Send({.address = u"", .is_shown = true}), S_OK);
  EXPECT_NE(ReadBytes(Sent("0004.eml")).find("\r\nTo: undisclosed-recipients:;\r\n"),
            std::string::npos);
  EXPECT_EQ(Report().find("findings:\n  "), std::string::npos) << Report();
}

TEST_F(LibraryTest, ClientIsAsOrdered) {
  EXPECT_EQ(Send({}, R"({"SentItems": false})"), S_OK);
  EXPECT_TRUE(fs::exists(Outbox("0001.eml"))) << "without a folder for sent messages";
  const std::u16string profile = u"J\u00FCrgen \u20AC";
  const struct {
    std::string orders;
    HRESULT result;
    std::string call;  // as the report has it
    bool is_there;
  } cases[] = {
      {R"({"Outbox": false})", MAPI_E_NOT_FOUND, "IMsgStore::OpenEntry(", false},
      {R"({"DefaultStore": false})", MAPI_E_NOT_FOUND, "IMAPISession::OpenMsgStore(", false},
      {R"({"ProfileName": "J\u00FCrgen \u20AC"})", S_OK,
       "MAPILogonEx(0, \"J\xC3\xBCrgen \xE2\x82\xAC\", null, 0x80000029) = 0x00000000", true},
      {R"({"DefaultProfile": false})", S_OK, "MAPILogonEx(0, \"\", null, 0x80000023) = 0x00000000",
       true},
      {R"({"ClientShutdown": false})", S_OK,
       "IMAPISession::QueryInterface(IMAPIClientShutdown) = 0x80004002", true},
      {R"({"Garbage": true, "Fail": [{"Call": "HrQueryAllRows", "At": 2, "Code": "0x80040123"}]})",
       Code(0x80040123), "= 0x80040123", true},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.orders);
    fs::remove(Folder() / "report.txt");
    EXPECT_EQ(Send({}, one.orders), one.result);
    EXPECT_EQ(Report().find(one.call) != std::string::npos, one.is_there) << Report();
    EXPECT_NE(Report().find(kClean), std::string::npos) << Report();
  }
  EXPECT_TRUE(fs::exists(Folder() / "Profiles" / profile));
}

TEST_F(LibraryTest, OrdersComeFromAFileInTheFolderOrFromOneThatIsNamed) {
  fs::create_directories(Folder());
  WriteBytes(Folder() / "sandbox.json", Failing("MAPILogonEx"));
  EXPECT_EQ(Send({}, std::nullopt), Code(0x80040123));
  WriteBytes(folder_.Path() / "other.json", "{}");
  EXPECT_EQ(Send({}, PathText(folder_.Path() / "other.json")), S_OK);
}

TEST_F(LibraryTest, OrdersThatCannotBeReadEndEverythingAtTheFirstCall) {
  for (const std::string& orders :
       {std::string(" {\"Fial\": 1}"), PathText(folder_.Path() / "missing.json"),
        PathText(folder_.Path())}) {
    EXPECT_EQ(Send({}, orders), E_FAIL);
  }
  const std::string report = Report();
  EXPECT_NE(report.find("  1 MAPIInitialize(null) = 0x8004011c\nfindings:\n  SANDBOX_MAPI_CONFIG: "
                        "unknown member \"Fial\" (call 0)\n"),
            std::string::npos)
      << report;
  EXPECT_NE(report.find("missing.json: cannot be read"), std::string::npos) << report;
}

TEST_F(LibraryTest, CallsOfAProcessThatBreaksOffAreKept) {
  const Library library(Folder(), "{}");
  PrepareMachine({});
  EXPECT_EQ(MAPIInitialize(nullptr), S_OK);
  ForgetMapiLoading();
  std::string text;
  for (const auto& entry : fs::directory_iterator(Folder())) {
    text += entry.is_regular_file() ? ReadBytes(entry.path()) : "";
  }
  EXPECT_EQ(text, "1 MAPIInitialize(null) = 0x00000000\n");
}

TEST_F(LibraryTest, WhatIsNotGivenBackIsInTheReport) {
  {
    const Library library(Folder(), "{}");
    PrepareMachine({});
    void* buffer = nullptr;
    EXPECT_EQ(MAPIAllocateBuffer(24, &buffer), S_OK);
    EXPECT_EQ(MAPIAllocateBuffer(25, &buffer), S_OK);
    EXPECT_EQ(MAPIFreeBuffer(buffer), 0u);
    EXPECT_NE(MAPIFreeBuffer(buffer), 0u);
    ForgetMapiLoading();
  }
  EXPECT_NE(Report().find("  4 MAPIFreeBuffer(block 2) = 0x80004005\nfindings:\n"
                          "  MAPIFreeBuffer of block 2, which is freed already (call 4)\n"
                          "  block 1 of MAPIAllocateBuffer: not freed (call 1)\n"
                          "result: 1 leak, 1 double free, no overruns\n"),
            std::string::npos)
      << Report();
}

// Kept for a script with a mail parser of its own, which CTest runs behind this program.
TEST_F(LibraryTest, SamplesForTheMailParser) {
  const fs::path samples = fs::current_path() / "samples";
  fs::remove_all(samples);
  const Mail mails[] = {
      {},
      {.subject = u"Gr\u00FC\u00DFe \u4E2D\u6587 und noch mehr, damit es mehrere Zeilen werden "
                  u"\U0001F600",
       .body = u"Zeile 1 = gut\r\n.Punkt\nFrom hier\t \n\nlang lang lang lang lang lang lang lang "
               u"lang lang lang lang lang lang lang lang \u20AC\n",
       .sender = u"Zo\u00EB \"Q\" \\",
       .name = u"M\u00FCller, J\u00FCrgen",
       .address = u"+49 (30) 1",
       .size = 100000,
       .document_name = u"Gr\u00F6\u00DFe \u4E2D\u6587 mit einem Namen, der mehr als eine Zeile "
                        u"braucht.PDF"},
      {.subject = u"an address",
       .body = u"",
       .name = u"x",
       .address = u"fax.4930@gateway.example",
       .type = u"SMTP",
       .size = 0,
       .document_name = u"empty.bin"},
      {.subject = u"no type",
       .name = u"[FAX:1]",
       .address = u"[FAX:1]",
       .type = u"",
       .size = 58,
       .document_name = u"a\"b.tif"},
      {.subject = u"without a document",
       .body = u"ends in a line end\r\n",
       .name = u"n n",
       .address = u"0301",
       .type = u"SMTP",
       .size = std::nullopt},
      {.subject = u"a name that is none", .size = 57, .document_name = u""},
  };
  int number = 0;
  for (const Mail& mail : mails) {
    EXPECT_GE(Send(mail), 0);
    const std::string name = "000" + std::to_string(++number);
    const fs::path sample = samples / name;
    fs::create_directories(sample);
    ASSERT_TRUE(fs::copy_file(Sent((name + ".eml").c_str()), sample / "message.eml"));
    const Json play(cJSON_CreateObject());
    for (const auto& [member, text] : {std::pair("Subject", mail.subject),
                                       {"Body", mail.body},
                                       {"Sender", mail.sender},
                                       {"Name", mail.name},
                                       {"Address", mail.address},
                                       {"AddressType", mail.type},
                                       {"AttachmentName", mail.document_name}}) {
      cJSON_AddStringToObject(play.get(), member, Utf8(text).c_str());
    }
    if (mail.size) {
      cJSON_AddNumberToObject(play.get(), "AttachmentSize", static_cast<double>(*mail.size));
    }
    char* const text = cJSON_PrintUnformatted(play.get());
    WriteBytes(sample / "play.json", text);
    cJSON_free(text);
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
