// The small parts: hashes, identifiers, orders, files.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fake_mapi/codes.h"
#include "tools/sandbox_mapi/config.h"
#include "tools/sandbox_mapi/mailbox.h"
#include "tools/sandbox_mapi/names.h"
#include "tools/sandbox_mapi/sha256.h"
#include "tools/sandbox_mapi/test_folder.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

TEST(Sha256, KnownHashes) {
  EXPECT_EQ(Sha256Of(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Sha256Of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Sha256Of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Sha256Of(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, PiecesAreTheWhole) {
  const std::string bytes(1000, 'x');
  Sha256 hash;
  for (std::size_t i = 0, size = 1; i < bytes.size(); i += size, size = size % 97 + 13) {
    hash.Add(std::string_view(bytes).substr(i, size));
  }
  EXPECT_EQ(hash.Finish(), Sha256Of(bytes));
}

TEST(Names, EntryIdentifiersAreThisToolsOwn) {
  const std::optional<Entry> read = ReadEntryId(EntryId({'F', "Outbox"}));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, 'F');
  EXPECT_EQ(read->name, "Outbox");
  EXPECT_FALSE(ReadEntryId(""));
  EXPECT_FALSE(ReadEntryId(std::string(30, '\0')));
  EXPECT_FALSE(ReadEntryId(EntryId({'F', ""}).substr(0, 20)));
}

TEST(Names, TagsHaveTheirPublishedNames) {
  EXPECT_EQ(TagName(0x0037001F), "PR_SUBJECT_W");
  EXPECT_EQ(TagName(0x3001001E), "PR_DISPLAY_NAME_A");
  EXPECT_EQ(TagName(0x0FFF0102), "PR_ENTRYID");
  EXPECT_EQ(TagName(0x7FFA0003), "PR_ATTACHMENT_LINKID");
  EXPECT_EQ(TagName(0x12340003), "");
  EXPECT_EQ(TypeName(0x0037001F), "PT_UNICODE");
  EXPECT_EQ(TypeName(0x00370040), "0x0040");
}

TEST(Config, NothingSaidMeansAWorkingMailClient) {
  std::string error;
  for (const char* text : {"", " \r\n", "{}", "\xEF\xBB\xBF{}"}) {
    const std::optional<Config> config = ParseConfig(text, error);
    ASSERT_TRUE(config) << error;
    EXPECT_TRUE(config->failures.empty());
    EXPECT_EQ(config->form_answer, 0);
    EXPECT_FALSE(config->garbage);
    EXPECT_TRUE(config->client_shutdown && config->default_profile && config->default_store &&
                config->outbox && config->sent_items);
    EXPECT_EQ(config->profile_name, u"Sandbox");
  }
}

TEST(Config, EverythingThatCanBeOrdered) {
  std::string error;
  const std::optional<Config> config = ParseConfig(
      R"({"Fail": [{"Call": "IMAPISession::OpenMsgStore", "At": 2, "Code": "0x8004011D",
                    "From": true},
                   {"Call": "MAPIInitialize", "Code": 263040}],
          "Garbage": true, "ShowForm": "0x80004005", "ClientShutdown": false, "DefaultProfile": false,
          "DefaultStore": false, "Outbox": false, "SentItems": false, "ProfileName": "J\u00FCrgen"})",
      error);
  ASSERT_TRUE(config) << error;
  ASSERT_EQ(config->failures.size(), 2u);
  EXPECT_EQ(config->failures[0].call, "IMAPISession::OpenMsgStore");
  EXPECT_EQ(config->failures[0].at, 2u);
  EXPECT_EQ(config->failures[0].code, Code(0x8004011D));
  EXPECT_TRUE(config->failures[0].from);
  EXPECT_EQ(config->failures[1].at, 1u);
  EXPECT_EQ(config->failures[1].code, 263040);
  EXPECT_FALSE(config->failures[1].from);
  EXPECT_EQ(config->form_answer, kCallFailed);
  EXPECT_FALSE(config->client_shutdown || config->default_profile || config->default_store ||
               config->outbox || config->sent_items);
  EXPECT_TRUE(config->garbage);
  EXPECT_EQ(config->profile_name, u"J\u00FCrgen");
  EXPECT_EQ(ParseConfig(R"({"ShowForm": "cancelled"})", error)->form_answer, kUserCancel);
}

TEST(Config, OrdersThatCannotBeFollowedAreNamed) {
  struct Case {
    const char* text;
    const char* error;
  };
  const Case cases[] = {
      {"[]", "is no JSON object"},
      {"{} x", "is no JSON object"},
      {R"({"Fial": []})", "unknown member \"Fial\""},
      {R"({"Fail": {}})", "\"Fail\" is no array"},
      {R"({"Fail": [1]})", "\"Fail\" holds something that is no object"},
      {R"({"Fail": [{"Call": "FreeProws", "Code": 1}]})",
       "\"Call\" is not the name of a call that can fail: \"FreeProws\""},
      {R"({"Fail": [{"Call": 1, "Code": 1}]})",
       "\"Call\" is not the name of a call that can fail: \"?\""},
      {R"({"Fail": [{"Call": "MAPIInitialize"}]})",
       "a member of \"Fail\" lacks \"Call\" or \"Code\""},
      {R"({"Fail": [{"Code": 1}]})", "a member of \"Fail\" lacks \"Call\" or \"Code\""},
      {R"({"Fail": [{"At": 0}]})", "\"At\" is no number from 1 on"},
      {R"({"Fail": [{"From": 1}]})", "\"From\" is neither true nor false"},
      {R"({"Fail": [{"Code": "80004005"}]})", "\"Code\" is no code like \"0x80040111\""},
      {R"({"Fail": [{"Code": "0x180004005"}]})", "\"Code\" is no code like \"0x80040111\""},
      {R"({"Fail": [{"Code": -1}]})", "\"Code\" is no code like \"0x80040111\""},
      {R"({"Fail": [{"Kode": 1}]})", "unknown member of \"Fail\": \"Kode\""},
      {R"({"ShowForm": "maybe"})",
       "\"ShowForm\" is neither \"sent\" nor \"cancelled\" nor a code like \"0x80004005\""},
      {R"({"Outbox": "no"})", "\"Outbox\" is neither true nor false"},
      {R"({"Garbage": 1})", "\"Garbage\" is neither true nor false"},
      {R"({"ProfileName": 1})", "\"ProfileName\" is no text"},
  };
  for (const Case& one : cases) {
    std::string error;
    EXPECT_FALSE(ParseConfig(one.text, error)) << one.text;
    EXPECT_EQ(error, one.error);
  }
}

TEST(Mailbox, MessagesAreNumberedOnceAndForAll) {
  const TestFolder folder;
  Mailbox mailbox(folder.Path(), u"Sandbox");
  ASSERT_EQ(mailbox.Start(), kOk);
  Message first;
  ASSERT_TRUE(mailbox.Create(first));
  EXPECT_EQ(first.name, "0001");
  EXPECT_EQ(first.entry_id, EntryId({'M', "0001"}));
  Message second;
  ASSERT_TRUE(mailbox.Create(second));
  EXPECT_EQ(second.name, "0002");
  ASSERT_TRUE(mailbox.Send(second, false));
  mailbox.Discard(first);
  Message third;
  ASSERT_TRUE(mailbox.Create(third));
  EXPECT_EQ(third.name, "0003") << "the number of a message that was sent is gone";
}

TEST(Mailbox, MessagesAtTheSameTimeHaveNumbersOfTheirOwn) {
  const TestFolder folder;
  ASSERT_EQ(Mailbox(folder.Path(), u"Sandbox").Start(), kOk);
  std::vector<std::vector<std::string>> names(4);
  std::vector<std::thread> threads;
  for (std::vector<std::string>& mine : names) {
    threads.emplace_back([&folder, &mine] {
      Mailbox mailbox(folder.Path(), u"Sandbox");
      for (int i = 0; i < 10; ++i) {
        Message message;
        if (mailbox.Create(message) && (i % 2 == 0 || mailbox.Send(message, false))) {
          mine.push_back(message.name);
        }
      }
    });
  }
  std::set<std::string> all;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i].join();
    EXPECT_EQ(names[i].size(), 10u);
    all.insert(names[i].begin(), names[i].end());
  }
  EXPECT_EQ(all.size(), 40u);
}

TEST(Mailbox, FoldersThatCannotBeMadeAreAFailure) {
  const TestFolder folder;
  WriteBytes(folder.Path() / "file", "");
  Mailbox mailbox(folder.Path() / "file", u"Sandbox");
  EXPECT_EQ(mailbox.Start(), kDiskError);
  Message message = {.name = "0001"};
  Property value;
  EXPECT_FALSE(mailbox.Create(message));
  EXPECT_FALSE(mailbox.Save(message));
  EXPECT_FALSE(mailbox.KeepDocument(message, {}, "x", value));
  EXPECT_FALSE(mailbox.Send(message, false));
  EXPECT_FALSE(mailbox.Show(message));
}

TEST(Mailbox, MessageThatCannotBeWrittenStaysInTheOutbox) {
  const TestFolder folder;
  Mailbox mailbox(folder.Path(), u"Sandbox");
  ASSERT_EQ(mailbox.Start(), kOk);
  Message message;
  ASSERT_TRUE(mailbox.Create(message));
  ASSERT_TRUE(mailbox.Save(message));
  // A folder of that name is in the way.
  const std::filesystem::path sent = folder.Path() / "Store" / "Sent Items";
  std::filesystem::create_directories(sent / "0001.json" / "x");
  EXPECT_FALSE(mailbox.Send(message, false));
  EXPECT_TRUE(std::filesystem::exists(folder.Path() / "Store" / "Outbox" / "0001.json"));
  EXPECT_FALSE(std::filesystem::exists(sent / "0001.part"));
  EXPECT_FALSE(std::filesystem::exists(sent / "0001.eml"));
}

TEST(Mailbox, JsonHoldsEachPropertyWithTagNameTypeAndValue) {
  Message message;
  message.flags = {"IMAPIFolder::CreateMessage 0x00000000"};
  message.properties = {Text(0x0037001F, u"\u00FC\""),
                        Bytes(0x0E0A0102, EntryId({'F', kSentItems})), Number(0x3400000B, 1),
                        Number(0x12340003, -1), Bytes(0x3001001E, "\x80")};
  message.recipients = {{Bytes(0x0FFF0102, OneOffEntryId({u"N", u"FAX", u"1"}))}};
  message.attachments.emplace_back().properties = {
      {.tag = 0x37010102, .spool = Spool{"folder/0001/attachment-0.bin", 5, "abc"}}};
  const std::string json = MessageJson(message, "saved", "folder");
  for (const char* part :
       {"\"State\":\t\"saved\"", "\"IMAPIFolder::CreateMessage 0x00000000\"",
        "\"Tag\":\t\"0x0037001F\"", "\"Name\":\t\"PR_SUBJECT_W\"", "\"Type\":\t\"PT_UNICODE\"",
        "\"Value\":\t\"\xC3\xBC\\\"\"", "\"Entry\":\t\"folder Sent Items\"", "\"Value\":\ttrue",
        "\"Tag\":\t\"0x12340003\"", "\"Value\":\t-1", "\"Value\":\t\"\xE2\x82\xAC\"",
        "\"AddressType\":\t\"FAX\"", "\"Size\":\t5", "\"Sha256\":\t\"abc\"", "attachment-0.bin\"",
        "\"Saved\":\tfalse"}) {
    EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
  }
}

TEST(Mailbox, LongBinaryValuesAreToldByTheirHash) {
  Message message;
  message.properties = {Bytes(0x12340102, std::string(2000, 'x'))};
  const std::string json = MessageJson(message, "saved", {});
  EXPECT_NE(json.find(Sha256Of(std::string(2000, 'x'))), std::string::npos) << json;
  EXPECT_EQ(json.find("Hex"), std::string::npos) << json;
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
