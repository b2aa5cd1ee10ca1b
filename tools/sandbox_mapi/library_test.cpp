// The library as a program meets it: a process loads it, plays, and ends; then its files are read.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "testing/end_to_end/process.h"
#include "tools/sandbox_mapi/sha256.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/sandbox_mapi/test_folder.h"
#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
namespace {

namespace fs = std::filesystem;

constexpr char kClean[] = "result: no leaks, no double frees, no overruns\n";
constexpr char kPlay[] =
    R"("Subject": "Invoice 42", "Body": "Hello", "Sender": "Zo\u00EB", "Name": "Jane",
       "Address": "030 1", "AddressType": "FAX", "AttachmentSize": 300,
       "AttachmentName": "a b.pdf")";

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

class Library : public testing::Test {
 protected:
  // Plays once more in the same folder. `config` is the orders' JSON text, or a path.
  e2e::ProcessRun Run(const std::string& play, const std::string& config = "{}") {
    WriteBytes(folder_.Path() / "play.json", '{' + play + '}');
    e2e::ProcessOptions options;
    // The library's folder is the working one: 32-bit programs in Wine find nothing else by name.
    options.folder = fs::current_path();
    options.environment = {{"SANDBOX_MAPI_PLAY", folder_.Path() / "play.json"},
                           {"SANDBOX_MAPI_FOLDER", Mail()},
                           {"SANDBOX_MAPI_CONFIG", sandbox_mapi::Path(config)}};
    if (config.empty()) {
      options.environment.back().second.reset();
    }
    e2e::ProcessRun run =
        e2e::RunProcess(fs::current_path() / SANDBOX_MAPI_PLAYER, {SANDBOX_MAPI_LIBRARY}, options);
    // Where the C run-time writes line ends of two characters.
    std::erase(run.printed, '\r');
    return run;
  }

  [[nodiscard]] fs::path Mail() const { return folder_.Path() / "mail"; }
  [[nodiscard]] fs::path Sent(const char* name) const {
    return Mail() / "Store" / "Sent Items" / name;
  }
  [[nodiscard]] fs::path Outbox(const char* name) const {
    return Mail() / "Store" / "Outbox" / name;
  }
  [[nodiscard]] std::string Report() const { return ReadBytes(Mail() / "report.txt"); }
  [[nodiscard]] static Json Read(const fs::path& path) {
    return Json(cJSON_Parse(ReadBytes(path).c_str()));
  }

  TestFolder folder_;
};

TEST_F(Library, SubmittedMessageIsInSentItemsAndNothingElseIsLeft) {
  const e2e::ProcessRun run = Run(kPlay);
  EXPECT_EQ(run.exit_code, 0) << run.printed;
  EXPECT_TRUE(fs::exists(Sent("0001.eml")));
  EXPECT_TRUE(fs::is_empty(Mail() / "Store" / "Outbox"));
  EXPECT_TRUE(fs::is_empty(Mail() / "Drafts"));
  const std::string report = Report();
  EXPECT_NE(report.find(kClean), std::string::npos) << report;
  EXPECT_NE(report.find("\n  1 MAPIInitialize(init=null) = 0x00000000\n"), std::string::npos);
  // Nothing of the report for a process that is killed is left beside it.
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(Mail())) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  EXPECT_EQ(files, 1u);
}

TEST_F(Library, JsonHasAllThatTheCallerSet) {
  ASSERT_EQ(Run(kPlay).exit_code, 0);
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
  std::string bytes;
  for (unsigned i = 0; i < 300; ++i) {
    bytes += static_cast<char>(i * 7 + (i >> 8));
  }
  EXPECT_EQ(TextOf(Member(Value(data, "0x37010102"), "Sha256")), Sha256Of(bytes));
}

TEST_F(Library, MessageThatIsNotSentStaysInTheOutboxAsItWasSaved) {
  EXPECT_EQ(Run(std::string(kPlay) + R"(, "Do": ["stop before sending"])").exit_code, 0);
  EXPECT_FALSE(fs::exists(Sent("0001.eml")));
  const Json json = Read(Outbox("0001.json"));
  ASSERT_TRUE(json);
  EXPECT_EQ(TextOf(Member(json.get(), "State")), "saved");
  // The document was attached, but the message not saved since.
  EXPECT_EQ(cJSON_GetArraySize(Member(json.get(), "Attachments")), 0);
  EXPECT_NE(Report().find(kClean), std::string::npos) << Report();
}

TEST_F(Library, MessageThatWasNeverSavedIsGone) {
  EXPECT_EQ(Run(kPlay, R"({"Fail": [{"Call": "IMessage::SaveChanges", "Code": "0x80004005",
                           "From": true}]})")
                .exit_code,
            1);
  EXPECT_TRUE(fs::is_empty(Mail() / "Store" / "Outbox"));
}

TEST_F(Library, ProcessesNumberTheirMessagesOneBehindTheOther) {
  EXPECT_EQ(Run(kPlay).exit_code, 0);
  EXPECT_EQ(Run(kPlay).exit_code, 0);
  EXPECT_TRUE(fs::exists(Sent("0002.eml")));
  const std::string report = Report();
  const std::size_t first = report.find(kClean);
  EXPECT_NE(report.find(kClean, first + 1), std::string::npos) << report;
}

TEST_F(Library, PreviewMakesADraftAndAnswersAsOrdered) {
  struct Case {
    const char* config;
    const char* result;
    bool is_sent;
  };
  const Case cases[] = {{"{}", "ShowForm 0x00000000", true},
                        {R"({"ShowForm": "cancelled"})", "ShowForm 0x80040113", false},
                        {R"({"ShowForm": "0x80004005"})", "ShowForm 0x80004005", false}};
  int number = 0;
  for (const Case& one : cases) {
    SCOPED_TRACE(one.config);
    const e2e::ProcessRun run = Run(std::string(kPlay) + R"(, "Do": ["preview"])", one.config);
    const std::string name = "000" + std::to_string(++number);
    EXPECT_NE(run.printed.find(one.result), std::string::npos) << run.printed;
    const std::string draft = ReadBytes(Mail() / "Drafts" / (name + ".eml"));
    EXPECT_NE(draft.find("\r\nX-Unsent: 1\r\n"), std::string::npos) << draft;
    EXPECT_NE(draft.find("filename=\"a b.pdf\""), std::string::npos) << draft;
    const Json json = Read(Mail() / "Drafts" / (name + ".json"));
    EXPECT_EQ(TextOf(Member(json.get(), "State")), "draft");
    EXPECT_EQ(fs::exists(Sent((name + ".eml").c_str())), one.is_sent);
    EXPECT_EQ(fs::exists(Outbox((name + ".json").c_str())), !one.is_sent);
  }
  EXPECT_NE(Report().find("class=IPM.Note"), std::string::npos) << Report();
  EXPECT_EQ(Report().find("not released"), std::string::npos) << Report();
}

TEST_F(Library, PreviewWithoutARecipientCanBeSentToo) {
  EXPECT_EQ(Run(R"("Subject": "x", "Do": ["preview"])").exit_code, 0);
  EXPECT_NE(ReadBytes(Sent("0001.eml")).find("\r\nTo: undisclosed-recipients:;\r\n"),
            std::string::npos);
}

TEST_F(Library, MessageWithoutARecipientIsNotSubmitted) {
  const e2e::ProcessRun run = Run(R"("Subject": "x")");
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_NE(run.printed.find("SubmitMessage 0x80040607"), std::string::npos) << run.printed;
  EXPECT_TRUE(fs::exists(Outbox("0001.json")));
}

TEST_F(Library, RecipientWithoutAnEntryIdentifierIsNotResolved) {
  const e2e::ProcessRun run = Run(std::string(kPlay) + R"(, "Do": ["leave the entry out"])");
  EXPECT_NE(run.printed.find("ResolveName 0x8004010F"), std::string::npos) << run.printed;
}

TEST_F(Library, WithoutAFolderForSentMessagesTheyStayInTheOutbox) {
  EXPECT_EQ(Run(kPlay, R"({"SentItems": false})").exit_code, 0);
  EXPECT_TRUE(fs::exists(Outbox("0001.eml")));
  EXPECT_FALSE(fs::exists(Sent("0001.eml")));
}

TEST_F(Library, StoreAndProfileAreAsOrdered) {
  const e2e::ProcessRun no_outbox = Run(kPlay, R"({"Outbox": false})");
  EXPECT_EQ(no_outbox.exit_code, 1);
  EXPECT_EQ(no_outbox.printed.find("OpenEntry"), std::string::npos) << no_outbox.printed;
  const e2e::ProcessRun no_store = Run(kPlay, R"({"DefaultStore": false})");
  EXPECT_EQ(no_store.exit_code, 1);
  EXPECT_EQ(no_store.printed.find("OpenMsgStore"), std::string::npos) << no_store.printed;
  const e2e::ProcessRun profile = Run(kPlay, R"({"ProfileName": "J\u00FCrgen \u20AC"})");
  EXPECT_EQ(profile.exit_code, 0) << profile.printed;
  EXPECT_NE(profile.printed.find("profile J\xC3\xBCrgen \xE2\x82\xAC\n"), std::string::npos)
      << profile.printed;
  // The player then logs on without a name.
  EXPECT_EQ(Run(kPlay, R"({"DefaultProfile": false})").exit_code, 0);
  EXPECT_NE(Report().find("MAPILogonEx(profile=\"\", flags=0x80000029) = 0x00000000"),
            std::string::npos)
      << Report();
}

TEST_F(Library, ClientShutdownCanBeRefused) {
  const e2e::ProcessRun run = Run(kPlay, R"({"ClientShutdown": false})");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_NE(run.printed.find("QueryInterface 0x80004002"), std::string::npos) << run.printed;
  EXPECT_EQ(run.printed.find("QueryFastShutdown"), std::string::npos) << run.printed;
}

// Each call of the whole sequence, made to fail: the code arrives, the player can leave, and
// nothing that it was not given is missed.
TEST_F(Library, EveryCallCanFail) {
  struct Case {
    const char* call;
    const char* printed;
    const char* more;  // of the play
  };
  const char* const preview = R"(, "Do": ["preview"])";
  const Case cases[] = {
      {"MAPIInitialize", "MAPIInitialize", ""},
      {"MAPIAdminProfiles", "MAPIAdminProfiles", ""},
      {"IProfAdmin::GetProfileTable", "GetProfileTable", ""},
      {"HrQueryAllRows", "HrQueryAllRows", ""},
      {"MAPILogonEx", "MAPILogonEx", ""},
      {"IMAPISession::GetMsgStoresTable", "GetMsgStoresTable", ""},
      {"IMAPISession::OpenMsgStore", "OpenMsgStore", ""},
      {"IMsgStore::GetProps", "IMsgStore::GetProps", ""},
      {"IMsgStore::OpenEntry", "IMsgStore::OpenEntry", ""},
      {"IMAPIFolder::CreateMessage", "CreateMessage", ""},
      {"IMAPISession::OpenAddressBook", "OpenAddressBook", ""},
      {"MAPIAllocateBuffer", "MAPIAllocateBuffer", ""},
      {"IAddrBook::CreateOneOff", "CreateOneOff", ""},
      {"IAddrBook::ResolveName", "ResolveName", ""},
      {"IMessage::ModifyRecipients", "ModifyRecipients", ""},
      {"IMessage::SaveChanges", "IMessage::SaveChanges", ""},
      {"IMessage::SetProps", "IMessage::SetProps", ""},
      {"IMessage::CreateAttach", "CreateAttach", ""},
      {"IAttach::SetProps", "IAttach::SetProps", ""},
      {"IAttach::SaveChanges", "IAttach::SaveChanges", ""},
      {"IMessage::SubmitMessage", "SubmitMessage", ""},
      {"MAPIOpenFormMgr", "MAPIOpenFormMgr", preview},
      {"IMessage::GetProps", "IMessage::GetProps", preview},
      {"IMAPISession::PrepareForm", "PrepareForm", preview},
      {"IMAPIFolder::GetMessageStatus", "GetMessageStatus", preview},
      {"IMAPISession::ShowForm", "ShowForm", preview},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.call);
    const e2e::ProcessRun run =
        Run(std::string(kPlay) + one.more,
            std::string(R"({"Fail": [{"Call": ")") + one.call + R"(", "Code": "0x80040123"}]})");
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_NE(run.printed.find(std::string(one.printed) + " 0x80040123"), std::string::npos)
        << run.printed;
    EXPECT_FALSE(fs::exists(Sent("0001.eml")));
  }
  EXPECT_EQ(Report().find(" leak"), Report().find(" leaks")) << Report();
  EXPECT_EQ(Report().find("not freed"), std::string::npos) << Report();
  EXPECT_EQ(Report().find("not released"), std::string::npos) << Report();
}

TEST_F(Library, CallsOnTheWayOutCanFailToo) {
  for (const char* call : {"IMAPISession::QueryInterface", "IMAPIClientShutdown::QueryFastShutdown",
                           "IMAPIClientShutdown::DoFastShutdown", "IMAPISession::Logoff"}) {
    SCOPED_TRACE(call);
    const e2e::ProcessRun run =
        Run(kPlay, std::string(R"({"Fail": [{"Call": ")") + call + R"(", "Code": "0x80040123"}]})");
    EXPECT_EQ(run.exit_code, 0);
    const std::string method = std::string(call).substr(std::string(call).find("::") + 2);
    EXPECT_NE(run.printed.find(method + " 0x80040123"), std::string::npos) << run.printed;
  }
}

TEST_F(Library, FailureComesAtTheCallThatWasOrdered) {
  const e2e::ProcessRun second =
      Run(kPlay, R"({"Fail": [{"Call": "HrQueryAllRows", "At": 2, "Code": "0x80040123"}]})");
  EXPECT_NE(second.printed.find("HrQueryAllRows 0x00000000"), std::string::npos);
  EXPECT_NE(second.printed.find("HrQueryAllRows 0x80040123"), std::string::npos);
  // From the second on: the message is saved once, and then no more.
  const e2e::ProcessRun from = Run(kPlay, R"({"Fail": [{"Call": "IMessage::SaveChanges", "At": 2,
                                              "From": true, "Code": "0x80040123"}]})");
  EXPECT_NE(from.printed.find("IMessage::SaveChanges 0x00000000"), std::string::npos);
  EXPECT_NE(from.printed.find("IMessage::SaveChanges 0x80040123"), std::string::npos);
  EXPECT_EQ(Run(kPlay, R"({"Fail": [{"Call": "HrQueryAllRows", "At": 3, "From": true,
                           "Code": "0x80040123"}]})")
                .exit_code,
            0);
}

// Each call that hands something out, when it fails: how many results it leaves in their places.
constexpr struct {
  const char* call;
  const char* printed;
  int at;  // which call of that name the player asks about
  int results;
} kHandOut[] = {
    {"MAPIAdminProfiles", "MAPIAdminProfiles", 3, 1},
    {"IProfAdmin::GetProfileTable", "GetProfileTable", 2, 1},
    {"MAPILogonEx", "MAPILogonEx", 2, 1},
    {"MAPIOpenFormMgr", "MAPIOpenFormMgr", 1, 1},
    {"MAPIAllocateBuffer", "MAPIAllocateBuffer", 3, 1},
    {"HrQueryAllRows", "HrQueryAllRows", 3, 1},
    {"IMAPISession::GetMsgStoresTable", "GetMsgStoresTable", 2, 1},
    {"IMAPISession::OpenMsgStore", "OpenMsgStore", 2, 1},
    {"IMAPISession::OpenAddressBook", "OpenAddressBook", 3, 1},
    {"IAddrBook::CreateOneOff", "CreateOneOff", 2, 2},
    {"IMAPISession::QueryInterface", "QueryInterface", 1, 1},
    {"IMAPISession::PrepareForm", "PrepareForm", 1, 1},
    {"IMsgStore::GetProps", "GetProps", 2, 2},
    {"IMsgStore::OpenEntry", "OpenEntry", 2, 2},
    {"IMAPIFolder::CreateMessage", "CreateMessage", 2, 1},
    {"IMAPIFolder::GetMessageStatus", "GetMessageStatus", 1, 1},
    {"IMessage::CreateAttach", "CreateAttach", 2, 2},
};

TEST_F(Library, FailingCallsLeaveNullOrGarbageAsOrdered) {
  std::string failures;
  for (const auto& one : kHandOut) {
    failures += (failures.empty() ? "" : ", ") + std::string(R"({"Call": ")") + one.call +
                R"(", "At": )" + std::to_string(one.at) + R"(, "Code": "0x80040123"})";
  }
  for (const bool leaves_garbage : {false, true}) {
    SCOPED_TRACE(leaves_garbage ? "garbage" : "null");
    const e2e::ProcessRun run =
        Run(std::string(kPlay) + R"(, "Do": ["say what failures leave"])",
            R"({"Garbage": )" + std::string(leaves_garbage ? "true" : "false") + R"(, "Fail": [)" +
                failures + "]}");
    EXPECT_EQ(run.exit_code, 0) << run.printed;
    const std::string left = leaves_garbage ? " 0xDEAD" : " 0x0";
    for (const auto& one : kHandOut) {
      EXPECT_NE(run.printed.find(std::string(one.printed) + " 0x80040123\nleft" + left +
                                 (one.results == 2 ? left : "") + "\n"),
                std::string::npos)
          << one.call << "\n"
          << run.printed;
    }
    EXPECT_TRUE(fs::exists(Sent("0001.eml")));
  }
  EXPECT_EQ(Report().find("findings:\n  "), std::string::npos) << Report();
}

TEST_F(Library, ARefusalLeavesGarbageToo) {
  // An interface that the session does not have and a store that there is not: nobody ordered these
  // calls to fail.
  const e2e::ProcessRun run = Run(std::string(kPlay) + R"(, "Do": ["say what failures leave"])",
                                  R"({"Garbage": true, "ClientShutdown": false})");
  EXPECT_NE(run.printed.find("QueryInterface 0x80004002\nleft 0xDEAD\n"), std::string::npos)
      << run.printed;
  EXPECT_NE(run.printed.find("OpenMsgStore 0x80040107\nleft 0xDEAD\n"), std::string::npos)
      << run.printed;
}

TEST_F(Library, FreeingGarbageIsInTheReport) {
  const std::string play = std::string(kPlay) + R"(, "Do": ["free what failures leave"])";
  const std::string failures =
      R"("Fail": [{"Call": "MAPIAllocateBuffer", "At": 3, "Code": "0x80040123"},
                  {"Call": "HrQueryAllRows", "At": 3, "Code": "0x80040123"}])";
  EXPECT_EQ(Run(play, "{" + failures + "}").exit_code, 0);
  EXPECT_NE(Report().find(kClean), std::string::npos) << Report();
  EXPECT_EQ(Run(play, R"({"Garbage": true, )" + failures + "}").exit_code, 0);
  EXPECT_NE(Report().find("2 wrong frees\n"), std::string::npos) << Report();
}

TEST_F(Library, OrdersComeFromAFileInTheFolderOrFromOneThatIsNamed) {
  fs::create_directories(Mail());
  WriteBytes(Mail() / "sandbox.json", R"({"Fail": [{"Call": "MAPILogonEx", "Code": 1}]})");
  EXPECT_NE(Run(kPlay, "").printed.find("MAPILogonEx 0x00000001"), std::string::npos);
  WriteBytes(folder_.Path() / "other.json", R"({"Fail": [{"Call": "MAPILogonEx", "Code": 2}]})");
  EXPECT_NE(
      Run(kPlay, PathText(folder_.Path() / "other.json")).printed.find("MAPILogonEx 0x00000002"),
      std::string::npos);
}

TEST_F(Library, OrdersThatCannotBeReadEndEverythingAtTheFirstCall) {
  for (const std::string& config :
       {std::string("{\"Fial\": 1}"), PathText(folder_.Path() / "missing.json"),
        PathText(folder_.Path())}) {
    const e2e::ProcessRun run = Run(kPlay, config);
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(run.printed, "MAPIInitialize 0x8004011C\n");
  }
  EXPECT_NE(Report().find("SANDBOX_MAPI_CONFIG: unknown member \"Fial\""), std::string::npos);
  EXPECT_NE(Report().find("missing.json: cannot be read"), std::string::npos);
}

TEST_F(Library, CallsOfAProcessThatBreaksOffAreKept) {
  EXPECT_EQ(Run(std::string(kPlay) + R"(, "Do": ["end at once"])").exit_code, 3);
  // Where libraries are told of such an end, the report is whole; elsewhere it is unfinished.
  std::string text;
  for (const auto& entry : fs::directory_iterator(Mail())) {
    if (entry.is_regular_file()) {
      text += ReadBytes(entry.path());
    }
  }
  EXPECT_NE(text.find("1 MAPIInitialize(init=null) = 0x00000000\n"), std::string::npos) << text;
  EXPECT_NE(text.find("IAttach::SaveChanges(flags=0x0) = 0x00000000\n"), std::string::npos) << text;
}

TEST_F(Library, MisbehaviourIsInTheReport) {
  const std::map<std::string, std::vector<std::string>> findings = {
      {"leak a buffer", {"not freed: buffer of 24 bytes", "result: 1 leak, no double"}},
      {"free twice", {"freed again: buffer of 25 bytes", "1 double free,"}},
      {"write beyond", {"written beyond the buffer of 26 bytes", "1 overrun\n"}},
      {"write after the free", {"written after it was freed: buffer of 27", "1 overrun\n"}},
      {"free a foreign pointer", {"freed what this library did not allocate", "1 wrong free\n"}},
      {"release once too often",
       {"released once too often: IProfAdmin", "1 use of a released interface\n"}},
      {"call after the release",
       {"IProfAdmin::GetProfileTable was called on, or got, the released IProfAdmin",
        "1 use of a released interface\n"}},
      {"leak an interface", {"not released: IProfAdmin", "2 references", "result: 1 leak,"}},
      {"leak the rows", {"not freed: values of a row", "result: 1 leak,"}},
  };
  for (const auto& [what, lines] : findings) {
    SCOPED_TRACE(what);
    std::error_code ignored;
    fs::remove(Mail() / "report.txt", ignored);
    EXPECT_EQ(Run(std::string(kPlay) + R"(, "Do": [")" + what + "\"]").exit_code, 0);
    for (const std::string& line : lines) {
      EXPECT_NE(Report().find(line), std::string::npos) << line << "\n" << Report();
    }
  }
}

// Kept for a script with a mail parser of its own, which CTest runs behind this program.
TEST_F(Library, SamplesForTheMailParser) {
  const fs::path samples = fs::current_path() / "samples";
  fs::remove_all(samples);
  const char* const plays[] = {
      kPlay,
      R"("Subject": "Gr\u00FC\u00DFe \u4E2D\u6587 und noch mehr, damit es mehrere Zeilen werden \uD83D\uDE00",
         "Body": "Zeile 1 = gut\r\n.Punkt\nFrom hier\t \n\nlang lang lang lang lang lang lang lang lang lang lang lang lang lang lang lang \u20AC\n",
         "Sender": "Zo\u00EB \"Q\" \\", "Name": "M\u00FCller, J\u00FCrgen", "Address": "+49 (30) 1",
         "AddressType": "FAX", "AttachmentSize": 100000,
         "AttachmentName": "Gr\u00F6\u00DFe \u4E2D\u6587 mit einem Namen, der mehr als eine Zeile braucht.PDF")",
      R"("Subject": "an address", "Body": "", "Name": "x", "Address": "fax.4930@gateway.example",
         "AddressType": "SMTP", "AttachmentSize": 0, "AttachmentName": "empty.bin")",
      R"("Subject": "no type", "Body": "b", "Name": "[FAX:1]", "Address": "[FAX:1]",
         "AttachmentSize": 58, "AttachmentName": "a\"b\\c.tif")",
      R"("Subject": "without a document", "Body": "ends in a line end\r\n", "Name": "n n",
         "Address": "0301", "AddressType": "SMTP")",
      R"("Subject": "a name that is none", "Body": "x", "Name": "n", "Address": "1",
         "AddressType": "FAX", "AttachmentSize": 57, "AttachmentName": "")",
  };
  int number = 0;
  for (const char* play : plays) {
    EXPECT_EQ(Run(play).exit_code, 0);
    const std::string name = "000" + std::to_string(++number);
    const fs::path sample = samples / name;
    fs::create_directories(sample);
    fs::copy_file(folder_.Path() / "play.json", sample / "play.json");
    ASSERT_TRUE(fs::copy_file(Sent((name + ".eml").c_str()), sample / "message.eml"));
  }
}

}  // namespace
}  // namespace zentpost::sandbox_mapi
