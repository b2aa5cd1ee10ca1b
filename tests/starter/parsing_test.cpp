// What the starters write and quote, against the tool's own command line and job file reader:
// 10,000 random jobs of each starter. The one in C++ is linked; the one in Python has written its
// own into the file of --cases.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "job.h"
#include "testing/end_to_end/settings.h"
#include "testing/fake_platform/fixture.h"
#include "tests/starter/rebuilt_line.h"
#include "tools/support/text.h"

namespace zentpost {
namespace {

using support::Utf16;
using support::Utf8;

constexpr int kCases = 10000;
constexpr char kTool[] = "C:\\Program Files\\Zentpost\\zentpost.exe";

// The fields' options, and their letters.
constexpr std::pair<const char*, const char16_t*> kFields[] = {
    {"to", u"+FAX"},   {"recipient", u"E"}, {"comment", u"K"},
    {"preview", u"P"}, {"subject", u"S"},   {"sender", u"U"}};

// A job, and what a starter made of it. A refusal is a sentence in place of the rest.
struct Case {
  std::string path;  // of the job file
  starter::Options options;
  std::string refusal = {};
  std::string job_file = {};
  std::string command_line = {};        // as Windows hands it over
  std::vector<std::string> words = {};  // as other systems do
};

class StarterParsing : public platform::fake::FakePlatformTest {
 protected:
  StarterParsing() { fake_.SetRecording(false); }
  ~StarterParsing() override { fake_.SetRecording(true); }

  void ExpectArrives(const Case& each) {
    SCOPED_TRACE(each.command_line);
    const std::string tool = '"' + std::string(kTool) + "\" ";
    ASSERT_TRUE(each.command_line.starts_with(tool));
    ExpectJob(each, each.command_line.substr(tool.size()));
    if (const auto line = test::RebuiltLine(each.words)) {
      ExpectJob(each, *line);
    }
  }

  // A path that a starter refuses is one that the tool does not get.
  static void ExpectDoesNotArrive(const Case& each) {
    const std::vector<std::u16string> tokens = SplitQuoted(Utf16('"' + each.path + '"'), u' ');
    EXPECT_FALSE(tokens.size() == 1 && tokens[0] == Utf16(each.path) && !each.path.empty())
        << each.path << ": " << each.refusal;
  }

 private:
  void ExpectJob(const Case& each, const std::string& line) {
    const std::u16string path = Utf16(each.path);
    fake_.Reset();
    fake_.SetFile(path, each.job_file);
    JobParameters params;
    ParseCommandLine(params, Utf16(line));

    EXPECT_TRUE(params.fromJobFile);
    EXPECT_EQ(Utf8(params.arguments.Value(u"jobname")), each.path);
    EXPECT_EQ(Utf8(params.arguments.Value(u"filename")), each.options.at("document"));
    const std::string name = each.options.at("name");
    EXPECT_EQ(Utf8(params.arguments.Value(u"attdisplayname")),
              name.find(".pdf") == std::string::npos ? name + ".pdf" : name);
    const bool has_fax_command = each.options.contains("fax-command");
    EXPECT_EQ(params.arguments.Entries().size(), has_fax_command ? 4u : 3u);
    std::size_t count = 0;
    for (const auto& [option, letter] : kFields) {
      const auto found = each.options.find(option);
      const std::string value = found == each.options.end() ? "" : found->second;
      EXPECT_EQ(Utf8(params.faxFields.Value(letter)), value) << option;
      count += value.empty() ? 0 : 1;
    }
    EXPECT_EQ(params.faxFields.Entries().size(), count);
  }
};

// Texts that other programs would choke on.
class RandomJobs {
 public:
  Case Next() {
    Case each;
    each.path = "C:\\" + Text(12, IsOneIn(4)) + Pick({"a", "a ", "a.", "a\t", "\xC3\xA4"});
    each.options = {{"document", "C:\\" + Text(12, true)},
                    {"name", Text(8, true) + (IsOneIn(2) ? ".pdf" : "")},
                    {"to", "0" + Text(6, true)}};
    const bool has_fax_command = IsOneIn(3);
    for (const char* const option : {"recipient", "comment", "subject", "sender"}) {
      if (IsOneIn(2)) {
        each.options[option] = Text(30, !has_fax_command || IsOneIn(20));
      }
    }
    if (IsOneIn(2)) {
      each.options["preview"] = "1";
    }
    if (has_fax_command) {
      each.options["to"] = "0" + Text(6, false);
      each.options["fax-command"] = "1";
    }
    return each;
  }

 private:
  std::size_t Below(std::size_t end) { return engine_() % end; }
  bool IsOneIn(std::size_t count) { return Below(count) == 0; }
  std::string Pick(const std::vector<std::string>& texts) { return texts[Below(texts.size())]; }

  // With or without the characters that have a meaning on a command line.
  std::string Text(std::size_t longest, bool with_marks) {
    static const std::vector<std::string> kPlain = {"a",
                                                    "B",
                                                    "7",
                                                    " ",
                                                    " ",
                                                    "-",
                                                    "/",
                                                    "\\",
                                                    ".",
                                                    "pdf",
                                                    ".pdf",
                                                    "%s",
                                                    "^",
                                                    "&",
                                                    "{",
                                                    "}",
                                                    "[",
                                                    ",",
                                                    ":",
                                                    "*",
                                                    "\xC3\xA4",  // ä
                                                    "\xC3\x83",
                                                    "\xC2\xA4",  // together like UTF-8 bytes
                                                    "\xC2\xA0",
                                                    "\xE2\x82\xAC",
                                                    "\xE4\xB8\xAD",
                                                    "\xF0\x9F\x93\xA0",
                                                    "\xEF\xBB\xBF"};
    static const std::vector<std::string> kMarks = {"\"",   "'",        ";",    "\t",   "\r\n",
                                                    "\n",   "\v",       "\f",   "\x1A", "\x01",
                                                    "\x7F", "\xC2\x85", "\\\"", "' ",   "\" "};
    std::string text;
    for (std::size_t left = Below(longest); left > 0; --left) {
      text += Pick(with_marks && IsOneIn(5) ? kMarks : kPlain);
    }
    return text;
  }

  std::mt19937 engine_{20261123};  // the same jobs on every system
};

void Prepare(Case& each) {
  try {
    starter::CheckPath(each.path);
    each.words = {each.path};
    if (each.options.count("fax-command") != 0) {
      each.words.push_back(starter::FaxCommand(each.options));
    }
    each.job_file = starter::JobFileText(each.options);
    each.command_line = starter::CommandLine(kTool, each.words);
  } catch (const starter::Refused& refusal) {
    each.refusal = refusal.what();
  }
}

TEST_F(StarterParsing, TenThousandRandomJobsOfTheOneInCppArriveOrAreRefused) {
  RandomJobs jobs;
  int refused_paths = 0;
  int refused_commands = 0;
  int fax_commands = 0;
  for (int i = 0; i < kCases && !HasFailure(); ++i) {
    Case each = jobs.Next();
    Prepare(each);
    if (each.refusal.empty()) {
      ExpectArrives(each);
      fax_commands += each.options.contains("fax-command") ? 1 : 0;
    } else if (each.refusal.starts_with("the job file's path")) {
      ExpectDoesNotArrive(each);
      ++refused_paths;
    } else {
      ++refused_commands;
    }
  }
  // The jobs are such that each way is taken often.
  EXPECT_GT(refused_paths, 500);
  EXPECT_GT(refused_commands, 500);
  EXPECT_GT(fax_commands, 500);
  EXPECT_LT(refused_paths + refused_commands, kCases / 2);
}

std::string TextOf(const cJSON* object, const char* name) {
  const cJSON* const text = cJSON_GetObjectItemCaseSensitive(object, name);
  return cJSON_IsString(text) ? text->valuestring : "";
}

Case FromJson(const std::string& line) {
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> json(cJSON_Parse(line.c_str()),
                                                             cJSON_Delete);
  Case each;
  each.path = TextOf(json.get(), "path");
  each.refusal = TextOf(json.get(), "refusal");
  each.job_file = TextOf(json.get(), "job_file");
  each.command_line = TextOf(json.get(), "command_line");
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, cJSON_GetObjectItemCaseSensitive(json.get(), "options")) {
    each.options[item->string] = item->valuestring;
  }
  cJSON_ArrayForEach(item, cJSON_GetObjectItemCaseSensitive(json.get(), "words")) {
    each.words.emplace_back(item->valuestring);
  }
  return each;
}

TEST_F(StarterParsing, TenThousandRandomJobsOfTheOneInPythonArriveOrAreRefused) {
  if (e2e::Setting("cases").empty()) {
    GTEST_SKIP() << "this machine has no Python";
  }
  std::ifstream file(e2e::Setting("cases"), std::ios::binary);
  int count = 0;
  int refused = 0;
  for (std::string line; std::getline(file, line) && !HasFailure(); ++count) {
    Case each = FromJson(line);
    // Both starters refuse the same.
    Case other = {.path = each.path, .options = each.options};
    Prepare(other);
    ASSERT_EQ(each.refusal, other.refusal);
    if (each.refusal.empty()) {
      ASSERT_EQ(each.command_line, other.command_line);
      ExpectArrives(each);
    } else {
      ++refused;
    }
  }
  EXPECT_EQ(count, kCases);
  EXPECT_GT(refused, 500);
  EXPECT_LT(refused, kCases / 2);
}

std::string RefusedPath(const std::string& path) {
  try {
    starter::CheckPath(path);
  } catch (const starter::Refused& refusal) {
    return refusal.what();
  }
  return "";
}

TEST(StarterRefusal, PathsThatTheCommandLineCannotCarry) {
  const std::string quotes =
      "the job file's path holds a quote or an apostrophe, which the tool takes away: choose "
      "another "
      "folder with --job-folder: ";
  EXPECT_EQ(RefusedPath("C:\\o'brien\\job.json"), quotes + "C:\\o'brien\\job.json");
  EXPECT_EQ(RefusedPath("/a\"b"), quotes + "/a\"b");
  EXPECT_EQ(RefusedPath(""), "the job file's path is empty");
  EXPECT_EQ(RefusedPath(std::string("a\0b", 3)),
            "the job file's path holds a zero character, at which the tool would end it");
  EXPECT_EQ(RefusedPath("C:\\my jobs\\\xC3\xA4; /x\\job.json"), "");
}

std::string RefusedCommand(const std::string& option, const std::string& text) {
  starter::Options options = {{"to", "0301"}};
  options[option] = text;
  try {
    return starter::FaxCommand(options);
  } catch (const starter::Refused& refusal) {
    return refusal.what();
  }
}

TEST(StarterRefusal, FieldsThatNoFaxCommandCanCarry) {
  EXPECT_EQ(RefusedCommand("subject", "a b"), "0301;Sa b");
  EXPECT_EQ(RefusedCommand("comment", "\xC3\xA4\xC2\xA0/x"), "0301;K\xC3\xA4\xC2\xA0/x");
  for (const std::string option : {"to", "recipient", "sender", "subject", "comment"}) {
    const std::string sentence =
        "--" + option +
        " holds a semicolon, a quote, an apostrophe, a control character or a blank at one of its "
        "ends, which no fax command can carry: leave --fax-command out";
    for (const std::string& text :
         {std::string("a;b"), std::string("a\"b"), std::string("a'b"), std::string("a\tb"),
          std::string("a\nb"), std::string("a\x7F"), std::string("\xC2\x85"), std::string(" a"),
          std::string("a "), std::string(" "), std::string("a\0b", 3)}) {
      EXPECT_EQ(RefusedCommand(option, text), sentence) << text;
    }
  }
  EXPECT_EQ(RefusedCommand("to", "/0301"),
            "--to begins with a slash, and would be taken for an option: leave --fax-command out");
}

TEST(StarterRefusal, TextsThatTheJobFileCannotCarry) {
  for (const std::string option :
       {"document", "name", "to", "recipient", "sender", "subject", "comment"}) {
    starter::Options options = {{"document", "a"}, {"name", "a"}, {"to", "0301"}};
    options[option] = std::string("a\0b", 3);
    std::string told;
    try {
      told = starter::JobFileText(options);
    } catch (const starter::Refused& refusal) {
      told = refusal.what();
    }
    EXPECT_EQ(told, "--" + option + " holds a zero character, at which the tool would end it");
  }
}

std::string RefusedOptions(const std::vector<std::string>& words) {
  try {
    static_cast<void>(starter::ReadOptions(words));
    return "";
  } catch (const starter::Refused& refusal) {
    return refusal.what();
  }
}

TEST(StarterRefusal, CommandLinesThatCannotBeUsed) {
  EXPECT_EQ(RefusedOptions({"--document", "a", "--to", "1", "--preview", "--tool", ""}), "");
  EXPECT_EQ(RefusedOptions({}), "--document is missing");
  EXPECT_EQ(RefusedOptions({"--document", "", "--to", "1"}), "--document is missing");
  EXPECT_EQ(RefusedOptions({"--document", "a"}), "--to is missing");
  EXPECT_EQ(RefusedOptions({"--document", "a", "--to"}), "--to needs a value");
  EXPECT_EQ(RefusedOptions({"a.pdf"}), "unknown option a.pdf; --help shows those there are");
  EXPECT_EQ(RefusedOptions({"--To", "1"}), "unknown option --To; --help shows those there are");
}

TEST(StarterName, EndsInSmallLetters) {
  EXPECT_EQ(starter::DisplayName("C:\\my docs\\O'Brien.PDF"), "O'Brien.pdf");
  EXPECT_EQ(starter::DisplayName("/docs/a.Pdf"), "a.pdf");
  EXPECT_EQ(starter::DisplayName("letter.tif"), "letter.tif");
  EXPECT_EQ(starter::DisplayName("pdf"), "pdf");
}

std::string Told(unsigned long exit_code, const std::string& job_file) {
  const starter::Judgement judgement = starter::Judge(exit_code, starter::ReadResult(job_file));
  return std::to_string(judgement.outcome) + " " + judgement.told;
}

TEST(StarterOutcome, OnlyTwoWitnessesThatAgreeSettleIt) {
  const std::string delivered = R"({"Result": {"Status": 0, "ErrorCode": 0, "ErrorText": ""}})";
  const std::string failed =
      R"({"Result": {"Status": 1, "ErrorCode": -2147467259, "ErrorText": "MAPI Error"}})";
  EXPECT_EQ(Told(0, delivered), "0 delivered");
  EXPECT_EQ(Told(1, failed), "1 not delivered: MAPI Error (error code -2147467259, 0x80004005)");
  EXPECT_EQ(Told(0, failed),
            "3 unclear: the tool ended with exit code 0 and left a Result with the status 1");
  EXPECT_EQ(Told(1, delivered),
            "3 unclear: the tool ended with exit code 1 and left a Result with the status 0");
  EXPECT_EQ(
      Told(3221225477, delivered),
      "3 unclear: the tool ended with exit code 3221225477 and left a Result with the status 0");
  for (const std::string job_file :
       {"", "{", "{}", "[]", R"({"Result": 1})", R"({"Result": {}})",
        R"({"Result": {"Status": 0, "ErrorCode": 0}})",
        R"({"Result": {"Status": "0", "ErrorCode": 0, "ErrorText": ""}})",
        R"({"Result": {"Status": 0.5, "ErrorCode": 0, "ErrorText": ""}})",
        R"({"Result": {"Status": 0, "ErrorCode": 0, "ErrorText": ""}} x)"}) {
    EXPECT_EQ(Told(0, job_file), "3 unclear: the tool ended with exit code 0 and left no Result")
        << job_file;
  }
}

}  // namespace
}  // namespace zentpost

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return zentpost::e2e::ReadSettings(argc, argv) ? RUN_ALL_TESTS() : 2;
}
