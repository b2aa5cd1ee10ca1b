#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/job_parameters.h"
#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::fake::FaultRun;
using test::FailureLog;
using test::LogText;
using test::NoJsonLog;
using test::ResultMember;
using Calls = std::vector<std::string>;
using Paths = std::vector<std::u16string>;

constexpr char16_t kPath[] = u"C:\\Jobs\\job.json";

// A short job, as it is written back, and with the outcome "delivered".
const std::string kShortJob = "{\"a\": 1}";
const std::string kWritten = test::WithSuccess("{\n\t\"a\":\t1\n}");

// What stands in a job file that holds nothing but an outcome.
std::string ResultAlone(std::int32_t status, std::int32_t code, const std::string& text) {
  return "{\n" + ResultMember(status, code, text) + "\n}";
}

class JobResultWriter : public platform::fake::FakePlatformTest {
 protected:
  // Writes an outcome into the job file that is there.
  bool Write(std::int32_t status = 0, std::int32_t code = 0, const char16_t* text = u"") {
    JobParameters params;
    params.arguments.Add(u"jobname", kPath);
    return CCommands::UpdateJobFile(params, status, code, text);
  }

  // Writes an outcome into a job file that holds `bytes` and gives what it holds then.
  std::string Update(const std::string& bytes, std::int32_t status = 0, std::int32_t code = 0,
                     const char16_t* text = u"") {
    fake_.Reset();
    fake_.SetFile(kPath, bytes);
    EXPECT_TRUE(Write(status, code, text));
    EXPECT_EQ(LogText(), "");
    return JobFile();
  }

  // Expects that a file of these bytes is not written, with this log.
  void ExpectLeft(const std::string& bytes, const std::string& log) {
    SCOPED_TRACE(bytes);
    fake_.Reset();
    fake_.SetFile(kPath, bytes);
    EXPECT_FALSE(Write(1, 2, u"t"));
    EXPECT_EQ(JobFile(), bytes);
    EXPECT_EQ(fake_.CallsOf("OpenFileAt"), Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)"});
    EXPECT_EQ(LogText(), log);
  }

  std::string JobFile() const { return fake_.FileBytes(kPath).value_or("(none)"); }
};

TEST_F(JobResultWriter, AResultIsAddedBehindTheLastMember) {
  EXPECT_EQ(
      Update(R"({"FilePath": "C:\\a.pdf", "SourceFileName": "a"})"),
      test::WithSuccess("{\n\t\"FilePath\":\t\"C:\\\\a.pdf\",\n\t\"SourceFileName\":\t\"a\"\n}"));
}

TEST_F(JobResultWriter, AnEarlierResultIsUpdatedInItsPlace) {
  EXPECT_EQ(
      Update(R"({"a": 1, "Result": {"ErrorText": "old", "Extra": [1, {"x": null}], "Status": 1,
                       "ErrorCode": 1004}, "z": 2})"),
      "{\n"
      "\t\"a\":\t1,\n"
      "\t\"Result\":\t{\n"
      "\t\t\"ErrorText\":\t\"\",\n"
      "\t\t\"Extra\":\t[1, {\n"
      "\t\t\t\t\"x\":\tnull\n"
      "\t\t\t}],\n"
      "\t\t\"Status\":\t0,\n"
      "\t\t\"ErrorCode\":\t0\n"
      "\t},\n"
      "\t\"z\":\t2\n"
      "}");
}

TEST_F(JobResultWriter, MissingMembersOfAResultAreAddedInTheirOrder) {
  EXPECT_EQ(Update(R"({"Result": {"ErrorCode": 7, "Extra": true}})", 1, 1003, u"t"),
            "{\n"
            "\t\"Result\":\t{\n"
            "\t\t\"ErrorCode\":\t1003,\n"
            "\t\t\"Extra\":\ttrue,\n"
            "\t\t\"Status\":\t1,\n"
            "\t\t\"ErrorText\":\t\"t\"\n"
            "\t}\n"
            "}");
  EXPECT_EQ(Update("{}", 1, 2, u"t"), ResultAlone(1, 2, "t"));
  EXPECT_EQ(Update(R"({"Result": {}})"), ResultAlone(0, 0, ""));
}

TEST_F(JobResultWriter, MembersOfAnyTypeAndCaseGiveWay) {
  EXPECT_EQ(Update(R"({"Result": {"Status": "1", "ErrorCode": {"x": 1}, "ErrorText": null}})", 1, 2,
                   u"t"),
            ResultAlone(1, 2, "t"));
  EXPECT_EQ(Update(R"({"RESULT": {"status": 1, "ERRORCODE": 5, "errortext": "old"}})"),
            ResultAlone(0, 0, "").replace(3, 8, "\"RESULT\""));
}

// It could not hold an outcome, and the fax application looks for one there.
TEST_F(JobResultWriter, DeliberateAResultThatIsNoObjectGivesWay) {
  for (const std::string old : {"5", "\"old\"", "true", "null", "[]", "[{\"Status\": 1}]"}) {
    EXPECT_EQ(Update(R"({"a": 1, "Result": )" + old + R"(, "z": 2})"),
              "{\n\t\"a\":\t1,\n" + ResultMember(0, 0, "") + ",\n\t\"z\":\t2\n}")
        << old;
  }
}

TEST_F(JobResultWriter, NumbersOfEverySize) {
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
  for (const std::int32_t number :
       {0, 1, 1000, -1, static_cast<std::int32_t>(0x8004010F), kHighest, kLowest}) {
    EXPECT_EQ(Update("{}", number, 7), ResultAlone(number, 7, ""));
    EXPECT_EQ(Update("{}", 7, number), ResultAlone(7, number, ""));
  }
}

TEST_F(JobResultWriter, TheErrorTextIsUtf8EscapedOnlyWhereItMustBe) {
  // A text, and how it is written.
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"MAPI Error", "MAPI Error"},
      {u"\u00FC \u20AC \U0001F4E0", "\xC3\xBC \xE2\x82\xAC \xF0\x9F\x93\xA0"},
      {u"\"\\/", "\\\"\\\\/"},
      {u"\b\f\n\r\t\u0001\u001F\u007F", "\\b\\f\\n\\r\\t\\u0001\\u001f\x7F"},
      {u"100% %s", "100% %s"},
      // Bytes of UTF-8 that somebody widened are not encoded a second time.
      {u"M\u00C3\u00BCller", "M\xC3\xBCller"},
  };
  for (const auto& [text, json] : cases) {
    EXPECT_EQ(Update("{}", 1, 1, text), ResultAlone(1, 1, json));
  }
}

TEST_F(JobResultWriter, AnErrorTextThatCannotBeConvertedIsEmpty) {
  fake_.SetFile(kPath, "{}");
  EXPECT_TRUE(Write(1, 1002, u"\u4E2D\u6587\u5B57"));
  EXPECT_EQ(JobFile(), ResultAlone(1, 1002, ""));
  EXPECT_EQ(LogText(), FailureLog(test::kUtf8Failed, "0000007a"));
}

TEST_F(JobResultWriter, EverythingElseIsKeptInItsOrder) {
  EXPECT_EQ(
      Update("{\"z\": \"\xC3\xBC\xF0\x9F\x93\xA0\", \"e\\u0000\": 0, \"esc\": \"\\u20AC\\/\\n\", "
             "\"Latin-1\": \"\xFC\", \"n\": [0, -1, 1.5, 1e3, 123456789012], \"t\": [true, false, "
             "null],"
             "\"o\": {}, \"l\": [], \"z\": {\"y\": {\"x\": \"w\"}}, \"\": \"\"}"),
      "{\n"
      "\t\"z\":\t\"\xC3\xBC\xF0\x9F\x93\xA0\",\n"
      "\t\"e\":\t0,\n"
      "\t\"esc\":\t\"\xE2\x82\xAC/\\n\",\n"
      "\t\"Latin-1\":\t\"\xFC\",\n"
      "\t\"n\":\t[0, -1, 1.5, 1000, 123456789012],\n"
      "\t\"t\":\t[true, false, null],\n"
      "\t\"o\":\t{\n\t},\n"
      "\t\"l\":\t[],\n"
      "\t\"z\":\t{\n"
      "\t\t\"y\":\t{\n"
      "\t\t\t\"x\":\t\"w\"\n"
      "\t\t}\n"
      "\t},\n"
      "\t\"\":\t\"\",\n" +
          ResultMember(0, 0, "") + "\n}");
}

TEST_F(JobResultWriter, DeliberateAMarkAndLineEndsAreNotWrittenBack) {
  EXPECT_EQ(Update("\xEF\xBB\xBF{\"a\": 1}"), kWritten);
  EXPECT_EQ(Update("\r\n{\r\n  \"a\": 1\r\n}\r\n"), kWritten);
}

// A job file stays one whatever stands behind its object, and that is not printed.
TEST_F(JobResultWriter, DeliberateTextBehindAJobIsNotWrittenBack) {
  const std::string job = "{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}";
  const std::string written = Update(job);
  EXPECT_EQ(Update(job + " {\"b\": 2}"), written);
  EXPECT_EQ(Update(job + std::string("\0x", 2)), written);
  EXPECT_EQ(Update("\xEF\xBB\xBF" + job + ","), written);
}

TEST_F(JobResultWriter, OnlyTheLastOfSeveralOutcomesStays) {
  EXPECT_EQ(Update(Update(kShortJob, 1, 1004, u"The connection failed")), kWritten);
  EXPECT_EQ(Update(kWritten), kWritten);
}

// It has no place for a result: somebody's document is not rewritten, and not even opened for it.
TEST_F(JobResultWriter, JsonThatIsNoObjectStaysAsItIs) {
  for (const std::string bytes :
       {"17", "\"text\"", " null ", "true", "-5.5e3", "[1, 2]", "[]",
        "[{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}]\r\n", "\xEF\xBB\xBF[1]"}) {
    ExpectLeft(bytes, "");
  }
}

TEST_F(JobResultWriter, AFileThatIsNoJsonIsLeftAsItIs) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"x", "x"},
      {"%PDF-1.4\n", "%PDF-1.4\n"},
      {"[1, x]", "x]"},
      {"{\"a\": 1", ""},
      {"\xFF\xFE{", "\xEF\xBF\xBD\xEF\xBF\xBD{"},
      {"{\"a\": 1}\n{\"b\": 2}\n", "{\"b\": 2}\n"},
      {"[1] x", "x"},
      {"\xEF\xBB\xBF[1,\r\n 100% %s]\r\n", "% %s]\n"},
  };
  for (const auto& [bytes, rest] : cases) {
    ExpectLeft(bytes, NoJsonLog("WriteJobFileResult", rest));
  }
}

TEST_F(JobResultWriter, TheFirstJobNameCountsAndWithoutOneNothingIsDone) {
  fake_.SetFile(kPath, kShortJob);
  JobParameters params;
  params.arguments.Add(u"filename", kPath);
  params.arguments.Add(u"JobName", kPath);
  EXPECT_FALSE(CCommands::UpdateJobFile(params, 0, 0, u""));
  params.arguments.Add(u"jobname", u"");
  EXPECT_FALSE(CCommands::UpdateJobFile(params, 0, 0, u""));
  EXPECT_EQ(fake_.Calls(), Calls{});
  EXPECT_EQ(JobFile(), kShortJob);
  fake_.SetFile(u"C:\\Jobs\\other.json", "{}");
  params.arguments.Clear();
  params.arguments.Add(u"jobname", kPath);
  params.arguments.Add(u"jobname", u"C:\\Jobs\\other.json");
  EXPECT_TRUE(CCommands::UpdateJobFile(params, 0, 0, u""));
  EXPECT_EQ(JobFile(), kWritten);
  EXPECT_EQ(fake_.FileBytes(u"C:\\Jobs\\other.json"), "{}");
}

// No temporary file and no renaming: the file keeps its identity and its rights.
TEST_F(JobResultWriter, DeliberateTheFileIsRewrittenInPlace) {
  Update(kShortJob);
  Calls calls = fake_.Calls();
  std::erase_if(calls, [](const std::string& call) {
    return call.starts_with("WideToBytes") || call.starts_with("AllocateBlock");
  });
  EXPECT_EQ(calls,
            (Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)", "QueryFileSize(C:\\Jobs\\job.json)",
                   "ReadBytes(C:\\Jobs\\job.json, 8)", "OpenFileAt(C:\\Jobs\\job.json, kRewrite)",
                   "WriteBytes(C:\\Jobs\\job.json, " + std::to_string(kWritten.size()) + ")"}));
  EXPECT_EQ(fake_.FilePaths(), Paths{kPath});
}

// What vanishes when the job file has been read, until the hook is taken back.
std::u16string_view vanishing;

void Vanish(bool begins) {
  platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  if (begins && !fake.CallsOf("ReadBytes").empty()) {
    fake.Remove(vanishing);
  }
}

TEST_F(JobResultWriter, AFileThatVanishesMeanwhileIsMadeAnewButNoFolder) {
  for (const std::u16string_view path : {kPath, u"C:\\Jobs"}) {
    fake_.Reset();
    fake_.SetFile(kPath, kShortJob);
    vanishing = path;
    fake_.SetCallHook(Vanish);
    EXPECT_EQ(Write(), path == kPath);
    fake_.SetCallHook(nullptr);
    // The hook took a file away once more when it was closed, so that what was written tells.
    const Calls written = {"WriteBytes(C:\\Jobs\\job.json, " + std::to_string(kWritten.size()) +
                           ")"};
    EXPECT_EQ(fake_.CallsOf("WriteBytes"), path == kPath ? written : Calls());
    EXPECT_EQ(fake_.FilePaths(), Paths{});
    EXPECT_EQ(LogText(), "");
  }
}

// Opened for writing is written: the fax application finds what there is.
TEST_F(JobResultWriter, DeliberateAWriteThatFailsLeavesWhatItLeaves) {
  for (const std::size_t written : {std::size_t{0}, std::size_t{1}, kWritten.size() - 1}) {
    fake_.Reset();
    fake_.SetFile(kPath, kShortJob);
    fake_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
    fake_.SetBytesBeforeFault(written);
    EXPECT_TRUE(Write());
    EXPECT_EQ(JobFile(), kWritten.substr(0, written));
    EXPECT_EQ(LogText(), "");
  }
}

TEST_F(JobResultWriter, AJobOf64MiBIsKept) {
  const std::string job = "{\n\t\"a\":\t\"" + std::string(std::size_t{64} << 20, 'x') + "\"\n}";
  EXPECT_TRUE(Update(job) == test::WithSuccess(job));
}

constexpr char16_t kErrorText[] =
    u"An error text that is longer than what a string object can hold by itself.";
constexpr char kBefore[] =
    "{\"a\": 1, \"Result\": {\"Status\": 0, \"ErrorCode\": 0, "
    "\"ErrorText\": \"an earlier text, also longer than a string object\"}}";

std::string Rewritten(const std::string& error_text = test::Readable(kErrorText)) {
  return test::WithResult("{\n\t\"a\":\t1\n}", 1, 1004, error_text);
}

// What a job file and a caller find after an update with a fault in it.
struct Outcome {
  bool result;
  std::string job_file;
  std::string log;
};

Outcome ExpectedOutcome(const FaultRun& run, const std::string& before, std::size_t names) {
  platform::fake::FaultReplay replay(run);
  for (const char* call : {"OpenFileAt", "QueryFileSize", "AllocateBlock", "ReadBytes"}) {
    if (replay.Fails(call)) {
      return {false, before, NoJsonLog("WriteJobFileResult", "")};
    }
  }
  if (replay.Fails("AllocateBlock")) {
    // An outcome without its text would not be the job's.
    return {false, before, FailureLog(test::kUtf8NoMemory, "0000001f")};
  }
  if (replay.Fails("WideToBytes")) {
    const std::string log = FailureLog(test::kUtf8Failed, "0000001f");
    // What follows fails, too, unless this was the one call to fail.
    return run.mode == platform::fake::FaultMode::kFromThere ? Outcome{false, before, log}
                                                             : Outcome{true, Rewritten(""), log};
  }
  // Without one of its names the outcome is not whole.
  bool has_names = true;
  for (std::size_t i = 0; i < names; ++i) {
    has_names = !(replay.Fails("WideToBytes") || replay.Fails("WideToBytes")) && has_names;
  }
  if (!has_names || replay.Fails("OpenFileAt")) {
    return {false, before, ""};
  }
  return {true, replay.Fails("WriteBytes") ? "" : Rewritten(), ""};
}

TEST_F(JobResultWriter, EveryCallOfAnUpdate) {
  for (const std::string& before : {std::string(kBefore), kShortJob}) {
    SCOPED_TRACE(before);
    const std::size_t names = before == kBefore ? 3 : 4;  // of the members that are set
    bool result = false;
    const std::size_t runs = platform::fake::SweepFaults(
        {[&] { fake_.SetFile(kPath, before); }, [&] { result = Write(1, 1004, kErrorText); }},
        [&](const FaultRun& run) {
          const Outcome expected = ExpectedOutcome(run, before, names);
          EXPECT_EQ(result, expected.result);
          EXPECT_EQ(JobFile(), expected.job_file);
          EXPECT_EQ(LogText(), expected.log);
          EXPECT_EQ(fake_.FilePaths(), Paths{kPath});
        });
    EXPECT_EQ(runs, 2 * (4 + 2 + 2 * names + 2));
  }
}

// A member whose memory was not to be had once left the earlier outcome's in the file, beside the
// new outcome's others: a job was failed and delivered at the same time.
TEST_F(JobResultWriter, EveryAllocationOfAnUpdate) {
  JobParameters params;
  params.arguments.Add(u"jobname", kPath);
  for (const std::string& before : {std::string(kBefore), kShortJob}) {
    SCOPED_TRACE(before);
    std::size_t intact = 0;
    std::size_t emptied = 0;
    const std::size_t runs =
        test::SweepAllocations("UpdateJobFile", [&](test::AllocationFaults& faults) {
          fake_.Reset();
          fake_.SetFile(kPath, before);
          bool result = false;
          EXPECT_TRUE(
              faults.Run([&] { result = CCommands::UpdateJobFile(params, 1, 1004, kErrorText); }));
          const std::string job_file = JobFile();
          const std::string log = LogText();
          if (!faults.Taken()) {
            EXPECT_TRUE(result);
            EXPECT_EQ(job_file, Rewritten());
            EXPECT_EQ(log, "");
          } else if (!result) {
            ++intact;
            EXPECT_EQ(job_file, before);
            EXPECT_TRUE(log.empty() || log == FailureLog(test::kUtf8NoMemory, "00000008") ||
                        log == NoJsonLog("WriteJobFileResult", ""))
                << log;
          } else {
            ++emptied;
            EXPECT_EQ(job_file, "");
            EXPECT_EQ(log, "");
          }
        });
    EXPECT_GT(intact, 0u);
    EXPECT_GT(emptied, 0u);
    EXPECT_EQ(runs, intact + emptied);
  }
}

}  // namespace
}  // namespace zentpost
