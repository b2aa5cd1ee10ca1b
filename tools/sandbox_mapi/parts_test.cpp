// The small parts: orders, files.
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "fake_mapi/codes.h"
#include "tools/sandbox_mapi/config.h"
#include "tools/sandbox_mapi/mailbox.h"
#include "tools/sandbox_mapi/names.h"
#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

// --- orders ---

// An order in one line, or why there is none.
std::string Parsed(std::string_view text) {
  Config config;
  try {
    config = ParseConfig(text);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  std::string line;
  for (const Behaviour& failure : config.failures) {
    line += failure.call + "@" + std::to_string(failure.at) + (failure.from ? "+ " : " ") +
            std::to_string(failure.code) + "; ";
  }
  line += "form " + std::to_string(config.form_answer);
  for (const bool flag : {config.garbage, config.client_shutdown, config.default_profile,
                          config.default_store, config.outbox, config.sent_items}) {
    line += flag ? " y" : " n";
  }
  return line + " " + std::string(config.profile_name.begin(), config.profile_name.end());
}

TEST(Config, OrdersAreReadOrRefusedWithTheReason) {
  const std::string unknown =
      "unknown member \"Fial\"; there are Fail, Garbage, ShowForm, ClientShutdown, DefaultProfile, "
      "DefaultStore, Outbox, SentItems and ProfileName";
  const std::string no_code = "line 1: \"Code\" is no code like \"0x80040111\"";
  const std::string no_call = "line 1: \"Call\" is not the name of a call that can fail: ";
  const std::string lacks = "line 1: a member of \"Fail\" lacks \"Call\" or \"Code\"";
  const std::pair<std::string, std::string> cases[] = {
      {"", "form 0 n y y y y y Sandbox"},
      {" \r\n", "form 0 n y y y y y Sandbox"},
      {"\xEF\xBB\xBF{}", "form 0 n y y y y y Sandbox"},
      {R"({"Fail": [{"Call": "IMAPISession::OpenMsgStore", "At": 2, "Code": "0x8004011D",
                     "From": true},
                    {"Call": "MAPIInitialize", "Code": 263040}],
           "Garbage": true, "ShowForm": "0x80004005", "ClientShutdown": false,
           "DefaultProfile": false, "DefaultStore": false, "Outbox": false, "SentItems": false,
           "ProfileName": "Hans"})",
       "IMAPISession::OpenMsgStore@2+ -2147221219; MAPIInitialize@1 263040; form -2147467259 "
       "y n n n n n Hans"},
      {R"({"ShowForm": "cancelled"})",
       "form " + std::to_string(kUserCancel) + " n y y y y y Sandbox"},
      {"[]", "is no JSON object"},
      {"{} x", "line 1: is no JSON from here on"},
      {R"({"Fial": []})", "line 1: " + unknown},
      {"{\r\n\"Garbage\": true,\r\n  \"Fial\": []}", "line 3: " + unknown},
      {"{\n\"Fail\": [{\n\"Call\": \"MAPIInitialize\",\n\"Code\": 1},\n{\"Code\": 1,\n\"From\": "
       "1}]}",
       "line 6: \"From\" is neither true nor false"},
      {"{\n\"ProfileName\": \"a\\\":\nb\",\n\n\"Outbox\"\n: 1}",
       "line 5: \"Outbox\" is neither true nor false"},
      {"{\n\"Garbage\": true,\n\"Outbox\": false,,\n}", "line 3: is no JSON from here on"},
      {R"({"Fail": {}})", "line 1: \"Fail\" is no array"},
      {R"({"Fail": [1]})", "line 1: \"Fail\" holds something that is no object"},
      {R"({"Fail": [{"Call": "FreeProws", "Code": 1}]})", no_call + "\"FreeProws\""},
      {R"({"Fail": [{"Call": "MAPILogonEx MAPIOpenFormMgr", "Code": 1}]})",
       no_call + "\"MAPILogonEx MAPIOpenFormMgr\""},
      {R"({"Fail": [{"Call": "", "Code": 1}]})", no_call + "\"\""},
      {R"({"Fail": [{"Call": 1, "Code": 1}]})", no_call + "\"?\""},
      {R"({"Fail": [{"Call": "MAPIInitialize"}]})", lacks},
      {R"({"Fail": [{"Code": 1}]})", lacks},
      {R"({"Fail": [{"At": 0}]})", "line 1: \"At\" is no number from 1 on"},
      {R"({"Fail": [{"From": 1}]})", "line 1: \"From\" is neither true nor false"},
      {R"({"Fail": [{"Code": "80004005"}]})", no_code},
      {R"({"Fail": [{"Code": "0x180004005"}]})", no_code},
      {R"({"Fail": [{"Code": -1}]})", no_code},
      {R"({"Fail": [{"Kode": 1}]})",
       "line 1: unknown member of \"Fail\": \"Kode\"; it knows Call, At, From and Code"},
      {R"({"ShowForm": "maybe"})",
       "line 1: \"ShowForm\" is neither \"sent\" nor \"cancelled\" nor a code like \"0x80004005\""},
      {R"({"Outbox": "no"})", "line 1: \"Outbox\" is neither true nor false"},
      {R"({"ProfileName": 1})", "line 1: \"ProfileName\" is no text"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Parsed(text), expected) << text;
  }
}

// --- files ---

class MailboxTest : public testing::Test {
 protected:
  MailboxTest() { EXPECT_EQ(mailbox_.Start(), kOk); }

  support::TemporaryFolder folder_;
  const fs::path store_ = folder_.Path() / "Store";
  Mailbox mailbox_{folder_.Path(), u"Sandbox"};
};

TEST_F(MailboxTest, MessagesAreNumberedOnceAndForAll) {
  Message messages[3];
  ASSERT_TRUE(mailbox_.Create(messages[0]));
  EXPECT_EQ(messages[0].entry_id, EntryId({'M', "0001"}));
  ASSERT_TRUE(mailbox_.Create(messages[1]));
  ASSERT_TRUE(mailbox_.Send(messages[1], false));
  mailbox_.Discard(messages[0]);
  ASSERT_TRUE(mailbox_.Create(messages[2]));
  EXPECT_EQ(messages[0].name + "," + messages[1].name + "," + messages[2].name, "0001,0002,0003")
      << "the number of a message that was sent is gone";
}

TEST_F(MailboxTest, MessagesAtTheSameTimeHaveNumbersOfTheirOwn) {
  std::vector<std::vector<std::string>> names(4);
  std::vector<std::thread> threads;
  for (std::vector<std::string>& mine : names) {
    threads.emplace_back([this, &mine] {
      Mailbox mailbox(folder_.Path(), u"Sandbox");
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
    all.insert(names[i].begin(), names[i].end());
  }
  EXPECT_EQ(all.size(), 40u);
}

TEST_F(MailboxTest, WhatCannotBeWrittenIsAFailure) {
  support::WriteBytes(folder_.Path() / "file", "");
  Mailbox mailbox(folder_.Path() / "file", u"Sandbox");
  EXPECT_EQ(mailbox.Start(), kDiskError);
  Message message = {.name = "0001"};
  Property value;
  EXPECT_FALSE(mailbox.Create(message));
  EXPECT_FALSE(mailbox.Save(message));
  EXPECT_FALSE(mailbox.KeepDocument(message, {}, "x", value));
  EXPECT_FALSE(mailbox.Send(message, false));
  EXPECT_FALSE(mailbox.Show(message));
}

TEST_F(MailboxTest, MessageThatCannotBeWrittenStaysInTheOutbox) {
  Message message;
  ASSERT_TRUE(mailbox_.Create(message));
  ASSERT_TRUE(mailbox_.Save(message));
  // A folder of that name is in the way.
  fs::create_directories(store_ / "Sent Items" / "0001.json" / "x");
  EXPECT_FALSE(mailbox_.Send(message, false));
  EXPECT_TRUE(fs::exists(store_ / "Outbox" / "0001.json"));
  EXPECT_FALSE(fs::exists(store_ / "Sent Items" / "0001.part"));
  EXPECT_FALSE(fs::exists(store_ / "Sent Items" / "0001.eml"));
}

TEST(MessageJson, HoldsEachPropertyWithTagNameTypeAndValue) {
  Message message;
  message.flags = {"IMAPIFolder::CreateMessage 0x00000000"};
  message.properties = {
      Text(0x0037001F, u"\u00FC\""), Bytes(0x0E0A0102, EntryId({'F', kSentItems})),
      Number(0x3400000B, 1),         Number(0x12340003, -1),
      Bytes(0x3001001E, "\x80"),     Bytes(0x12350102, std::string(30, '\0'))};
  message.recipients = {{Bytes(0x0FFF0102, OneOffEntryId({u"N", u"FAX", u"1"}))}};
  message.attachments.emplace_back().properties = {
      {.tag = 0x37010102, .spool = Spool{"folder/0001/attachment-0.bin", 5}}};
  const std::string json = MessageJson(message, "saved", "folder");
  for (const std::string& part : std::vector<std::string>{
           "\"State\":\t\"saved\"", "\"IMAPIFolder::CreateMessage 0x00000000\"",
           "\"Tag\":\t\"0x0037001F\"", "\"Name\":\t\"PR_SUBJECT_W\"", "\"Type\":\t\"PT_UNICODE\"",
           "\"Name\":\t\"PR_DISPLAY_NAME_A\"", "\"Value\":\t\"\xC3\xBC\\\"\"",
           "\"Entry\":\t\"folder Sent Items\"", "\"Value\":\ttrue", "\"Tag\":\t\"0x12340003\"",
           "\"Value\":\t-1", "\"Value\":\t\"\xE2\x82\xAC\"", "\"AddressType\":\t\"FAX\"",
           "\"Size\":\t5", "\"File\":\t\"0001", "attachment-0.bin\"", "\"Saved\":\tfalse",
           "\"Hex\":\t\"" + std::string(60, '0') + "\"\n"}) {
    EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
