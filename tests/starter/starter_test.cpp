#include "tests/starter/starter_test.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "testing/end_to_end/settings.h"
#include "tools/addin_listener/payload_check.h"

namespace zentpost::e2e {

namespace fs = std::filesystem;

StarterTest::StarterTest() {
  ExpectLogFile(LogFile::kUnchecked);
  SetFile(kDocument, "%PDF-1.4");
}

ProcessRun StarterTest::StartWith(const std::vector<std::string>& words) {
  const fs::path script = Setting("script");
  if (script.empty()) {
    return RunWithoutDebugger(Setting("starter"), words, machine_.Options());
  }
  std::vector<std::string> arguments = {"-B", support::PathText(script)};
  arguments.insert(arguments.end(), words.begin(), words.end());
  return RunWithoutDebugger(Setting("python"), arguments, machine_.Options());
}

ProcessRun StarterTest::Start(const std::vector<std::string>& more_options) {
  std::vector<std::string> words = {"--document", kDocument, "--to", "0301234567"};
  words.insert(words.end(), more_options.begin(), more_options.end());
  return StartWith(words);
}

ProcessRun StarterTest::StartTool(const std::vector<std::string>& more_options) {
  std::vector<std::string> words = {"--tool", support::PathText(Setting("tool"))};
  words.insert(words.end(), more_options.begin(), more_options.end());
  return Start(words);
}

void StarterTest::ExpectRefused(const ProcessRun& run, const std::string& sentence) {
  EXPECT_EQ(run.exit_code, 2);
  EXPECT_TRUE(IsNothingKept());
  const std::string printed = Replaced(run.printed, "\r\n", "\n");
  const std::size_t dots = sentence.find("...");
  const std::string begin = "starter: " + sentence.substr(0, dots);
  EXPECT_TRUE(printed.starts_with(begin)) << printed << begin;
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1) << printed;
  if (dots == std::string::npos) {
    EXPECT_EQ(printed, begin + "\n");
  }
}

fs::path StarterTest::KeptJobFile() const {
  std::vector<fs::path> found;
  for (const fs::directory_entry& entry : fs::directory_iterator(machine_.TemporaryFolder())) {
    if (entry.path().filename().string().starts_with("zentpost-job-")) {
      found.push_back(entry.path() / "job.json");
    }
  }
  EXPECT_EQ(found.size(), 1u);
  return found.empty() ? fs::path() : found.front();
}

bool StarterTest::IsNothingKept() const {
  return fs::is_empty(machine_.TemporaryFolder());
}

std::string StarterTest::DocumentPath() const {
  return support::PathText(PathOf(kDocument).make_preferred());
}

namespace {

std::string Lines(const ProcessRun& run) {
  return Replaced(run.printed, "\r\n", "\n");
}

// A member of the payload that the add-in got.
std::string Member(const std::vector<addin_listener::Connection>& connections,
                   const std::string& name) {
  if (connections.size() != 2) {
    return "no delivery";
  }
  const std::string json = addin_listener::CheckPayload(connections[1].wire).json_utf8;
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(cJSON_Parse(json.c_str()),
                                                             cJSON_Delete);
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(
      cJSON_GetObjectItemCaseSensitive(tree.get(), "Parameters"), name.c_str());
  return cJSON_IsString(member) ? member->valuestring : cJSON_IsTrue(member) ? "true" : "false";
}

using Starter = StarterTest;

constexpr char kRecipient[] = "O'H\xC3\xA4rtl; & Co";

TEST_F(Starter, DeliversToTheAddinAndLeavesNothing) {
  Addin addin;
  SetAddinPort(addin);

  const ProcessRun run = StartTool({"--recipient", kRecipient, "--sender", " 'me' ", "--subject",
                                    "it's 100 %; /x", "--comment", "a\tb", "--preview"});

  EXPECT_EQ(Lines(run), "delivered\n");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(IsNothingKept());
  EXPECT_TRUE(FileExists(kDocument));
  const auto connections = addin.Finish();
  EXPECT_EQ(Member(connections, "Receiver"), "0301234567");
  EXPECT_EQ(Member(connections, "RecipientName"), kRecipient);
  EXPECT_EQ(Member(connections, "SenderName"), " 'me' ");
  EXPECT_EQ(Member(connections, "Subject"), "it's 100 %; /x");
  EXPECT_EQ(Member(connections, "Comment"), "a\tb");
  EXPECT_EQ(Member(connections, "Preview"), "true");
  EXPECT_EQ(Member(connections, "FileName"), DocumentPath());
  EXPECT_EQ(Member(connections, "AttachmentName"), kDocument);
}

TEST_F(Starter, DocumentAndJobFolderMayHaveNamesOfAllKinds) {
  Addin addin;
  SetAddinPort(addin);
  const std::string document = "it's \xE4\xB8\xAD; \xC3\xA4.PDF";
  SetFile(document, "%PDF");
  std::filesystem::create_directory(PathOf("my jobs; \xC3\xBC /x").parent_path());

  const ProcessRun run = StartWith({"--tool", support::PathText(Setting("tool")), "--document",
                                    document, "--to", "1", "--job-folder", "my jobs; \xC3\xBC "});

  EXPECT_EQ(Lines(run), "delivered\n");
  const auto connections = addin.Finish();
  EXPECT_EQ(Member(connections, "AttachmentName"), "it's \xE4\xB8\xAD; \xC3\xA4.pdf");
  EXPECT_TRUE(std::filesystem::is_empty(PathOf("my jobs; \xC3\xBC /x").parent_path()));
}

TEST_F(Starter, FaxCommandCarriesTheFields) {
  Addin addin;
  SetAddinPort(addin);

  const ProcessRun run = StartTool({"--fax-command", "--name", "a b", "--recipient", "Example & Co",
                                    "--subject", "/x \xC3\xA4"});

  EXPECT_EQ(Lines(run), "delivered\n");
  const auto connections = addin.Finish();
  EXPECT_EQ(Member(connections, "Receiver"), "0301234567");
  EXPECT_EQ(Member(connections, "RecipientName"), "Example & Co");
  EXPECT_EQ(Member(connections, "Subject"), "/x \xC3\xA4");
  EXPECT_EQ(Member(connections, "AttachmentName"), "a b.pdf");
  EXPECT_EQ(Member(connections, "Preview"), "false");
}

TEST_F(Starter, DeliversThroughTheMailClient) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not choose the machine's mail client";
  }
  const fs::path mail = PathOf("mail");
  const ProcessRun registered = RunProcess(
      Setting("sandbox"), {"register", "--folder", support::PathText(mail)}, machine_.Options());
  ASSERT_EQ(registered.exit_code, 0) << registered.printed;

  const ProcessRun run = StartTool({"--subject", "Invoice"});

  ASSERT_EQ(RunProcess(Setting("sandbox"), {"unregister"}, machine_.Options()).exit_code, 0);
  EXPECT_EQ(Lines(run), "delivered\n");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(IsNothingKept());
  EXPECT_FALSE(FileExists(kDocument)) << "it is in the message";
  const std::string message = ReadBytes(mail / "Store" / "Sent Items" / "0001.eml").value_or("");
  EXPECT_NE(message.find("Subject: Invoice\r\n"), std::string::npos) << message;
  EXPECT_NE(message.find("filename=\"letter.pdf\""), std::string::npos) << message;
}

TEST_F(Starter, JobFileOfAJobThatWasNotDeliveredIsKept) {
  const ProcessRun run = StartTool({"--subject", "\xC3\xA4"});

  EXPECT_EQ(run.exit_code, 1);
  const fs::path job_file = KeptJobFile();
  EXPECT_EQ(Lines(run),
            "not delivered: MAPI Error (error code -2147467259, 0x80004005)\njob file: " +
                support::PathText(job_file) + "\n");
  const std::string bytes = ReadBytes(job_file).value_or("");
  EXPECT_NE(bytes.find("\"Subject\":\t\"\xC3\xA4\""), std::string::npos) << bytes;
  EXPECT_TRUE(FileExists(kDocument));
}

TEST_F(Starter, EmptyValuesAreAsGoodAsNone) {
  const ProcessRun run = StartTool({"--job-folder", "", "--name", "", "--subject", ""});

  EXPECT_EQ(run.exit_code, 1);
  const std::string bytes = ReadBytes(KeptJobFile()).value_or("");
  EXPECT_NE(bytes.find("\"SourceFileName\":\t\"letter.pdf\""), std::string::npos) << bytes;
  EXPECT_EQ(bytes.find("Subject"), std::string::npos) << bytes;
}

TEST_F(Starter, WhatCannotWorkIsRefusedAndNothingIsStarted) {
  Addin addin;
  SetAddinPort(addin);
  std::filesystem::create_directory(PathOf("o'hara"));
  const std::string tool = support::PathText(Setting("tool"));
  ExpectRefused(StartTool({"--job-folder", "o'hara"}),
                "the job file's path holds a quote or an apostrophe, which the tool takes away: "
                "choose another folder with --job-folder: ...");
  EXPECT_TRUE(std::filesystem::is_empty(PathOf("o'hara")));
  for (const char* const folder : {"none", " "}) {
    ExpectRefused(StartTool({"--job-folder", folder}), "no folder can be made for the job: ...");
  }
  ExpectRefused(Start({"--tool", "no-tool"}), "the tool cannot be started: no-tool: ...");
  ExpectRefused(
      StartWith({"--tool", tool, "--document", "none.pdf", "--to", "1"}),
      "the document cannot be read: " + support::PathText(PathOf("none.pdf").make_preferred()));
  ExpectRefused(StartWith({"--tool", tool, "--document", ".", "--to", "1"}),
                "the document cannot be read: ...");
  ExpectRefused(
      StartTool({"--fax-command", "--subject", "a;b"}),
      "--subject holds a semicolon, a quote, an apostrophe, a control character or a blank "
      "at one of its ends, which no fax command can carry: leave --fax-command out");
  ExpectRefused(
      StartTool({"--to", "/1", "--fax-command"}),
      "--to begins with a slash, and would be taken for an option: leave --fax-command out");
  ExpectRefused(StartTool({"letter.pdf"}),
                "unknown option letter.pdf; --help shows those there are");
  ExpectRefused(StartTool({"--subject"}), "--subject needs a value");
  ExpectRefused(StartWith({}), "--document is missing");
  EXPECT_EQ(Ends(addin.Finish()), "");
}

TEST_F(Starter, HelpFitsALineOf80Characters) {
  for (const char* const word : {"--help", "-h"}) {
    const ProcessRun run = StartWith({word});
    EXPECT_EQ(run.exit_code, 0);
    const std::string help = Lines(run);
    EXPECT_TRUE(help.starts_with("usage: starter ")) << help;
    for (std::size_t at = 0; at < help.size();) {
      const std::size_t end = help.find('\n', at);
      ASSERT_NE(end, std::string::npos);
      EXPECT_LE(end - at, 80u) << help.substr(at, end - at);
      at = end + 1;
    }
  }
}

// A tool that plays what the real one does when it is ended from outside.
class PlayedTool : public Starter {
 protected:
  void ExpectUnclear(const std::string& part, const std::string& told) {
    SCOPED_TRACE(part);
    fs::remove_all(machine_.TemporaryFolder());
    fs::create_directory(machine_.TemporaryFolder());
    machine_.SetVariable("STARTER_TEST_PART", part);
    const ProcessRun run = Start({"--tool", support::PathText(Setting("played-tool"))});
    EXPECT_EQ(run.exit_code, 3);
    EXPECT_EQ(Lines(run), told + "\njob file: " + support::PathText(KeptJobFile()) + "\n");
  }
};

TEST_F(PlayedTool, ThatIsEndedOrWritesNoResultLeavesTheOutcomeUnclear) {
  const std::string ended = "unclear: the tool ended with exit code ";
  ExpectUnclear("ended", ended + "1 and left no Result");
  ExpectUnclear("says nothing", ended + "0 and left no Result");
  ExpectUnclear("tears", ended + "0 and left no Result");
  ExpectUnclear("ended late", ended + "1 and left a Result with the status 0");
  ExpectUnclear("ended between", ended + "7 and left a Result with the status 1");
}

TEST_F(PlayedTool, ThatTakesTheJobFileAwayLeavesTheOutcomeUnclear) {
  machine_.SetVariable("STARTER_TEST_PART", "deletes");
  const ProcessRun run = Start({"--tool", support::PathText(Setting("played-tool"))});
  EXPECT_EQ(run.exit_code, 3);
  EXPECT_TRUE(
      Lines(run).starts_with("unclear: the tool ended with exit code 0 and left no Result\n"));
}

TEST_F(PlayedTool, ThatCrashesLeavesTheOutcomeUnclear) {
  machine_.SetVariable("STARTER_TEST_PART", "crashes");
  const ProcessRun run = Start({"--tool", support::PathText(Setting("played-tool"))});
  EXPECT_EQ(run.exit_code, 3);
  EXPECT_NE(Lines(run).find(" and left no Result\njob file: "), std::string::npos) << run.printed;
}

}  // namespace
}  // namespace zentpost::e2e
