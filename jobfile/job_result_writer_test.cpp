#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "app/job_parameters.h"
#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::fake::FaultMode;
using platform::fake::FaultRun;
using test::AllocationFaults;
using test::LogText;
using Calls = std::vector<std::string>;

constexpr char16_t kPath[] = u"C:\\Jobs\\job.json";

JobParameters JobAt(const std::u16string& path) {
  JobParameters params;
  params.arguments.Add(u"jobname", path);
  return params;
}

class JobResultWriter : public platform::fake::MachineTest {
 protected:
  // Writes an outcome into a job file that holds `bytes` and gives what it holds then.
  std::string Update(const std::string& bytes, std::int32_t status = 0, std::int32_t code = 0,
                     const char16_t* text = u"") {
    machine_.Reset();
    machine_.SetFile(kPath, bytes);
    EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), status, code, text));
    EXPECT_EQ(LogText(), "");
    return JobFile();
  }

  std::string JobFile() const { return machine_.FileBytes(kPath).value_or("(none)"); }
};

TEST_F(JobResultWriter, AResultIsAddedBehindTheLastMember) {
  EXPECT_EQ(Update(R"({"FilePath": "C:\\a.pdf", "SourceFileName": "a"})"),
            "{\n"
            "\t\"FilePath\":\t\"C:\\\\a.pdf\",\n"
            "\t\"SourceFileName\":\t\"a\",\n"
            "\t\"Result\":\t{\n"
            "\t\t\"Status\":\t0,\n"
            "\t\t\"ErrorCode\":\t0,\n"
            "\t\t\"ErrorText\":\t\"\"\n"
            "\t}\n"
            "}");
}

TEST_F(JobResultWriter, AnEmptyObjectIsAJobFile) {
  EXPECT_EQ(Update("{}", 1, 1002, u"x"),
            "{\n"
            "\t\"Result\":\t{\n"
            "\t\t\"Status\":\t1,\n"
            "\t\t\"ErrorCode\":\t1002,\n"
            "\t\t\"ErrorText\":\t\"x\"\n"
            "\t}\n"
            "}");
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
  EXPECT_EQ(Update(R"({"Result": {}})"),
            "{\n"
            "\t\"Result\":\t{\n"
            "\t\t\"Status\":\t0,\n"
            "\t\t\"ErrorCode\":\t0,\n"
            "\t\t\"ErrorText\":\t\"\"\n"
            "\t}\n"
            "}");
}

TEST_F(JobResultWriter, MembersOfAnyTypeGiveWay) {
  EXPECT_EQ(Update(R"({"Result": {"Status": "1", "ErrorCode": {"x": 1}, "ErrorText": null}})", 1, 2,
                   u"t"),
            "{\n"
            "\t\"Result\":\t{\n"
            "\t\t\"Status\":\t1,\n"
            "\t\t\"ErrorCode\":\t2,\n"
            "\t\t\"ErrorText\":\t\"t\"\n"
            "\t}\n"
            "}");
}

TEST_F(JobResultWriter, TheCaseOfNamesIsIgnored) {
  EXPECT_EQ(Update(R"({"RESULT": {"status": 1, "ERRORCODE": 5, "errortext": "old"}})"),
            "{\n"
            "\t\"RESULT\":\t{\n"
            "\t\t\"Status\":\t0,\n"
            "\t\t\"ErrorCode\":\t0,\n"
            "\t\t\"ErrorText\":\t\"\"\n"
            "\t}\n"
            "}");
}

// It could not hold an outcome, and the fax application looks for one there.
TEST_F(JobResultWriter, DeliberateAResultThatIsNoObjectGivesWay) {
  for (const std::string old : {"5", "\"old\"", "true", "null", "[]", "[{\"Status\": 1}]"}) {
    SCOPED_TRACE(old);
    EXPECT_EQ(Update(R"({"a": 1, "Result": )" + old + R"(, "z": 2})"),
              "{\n"
              "\t\"a\":\t1,\n"
              "\t\"Result\":\t{\n"
              "\t\t\"Status\":\t0,\n"
              "\t\t\"ErrorCode\":\t0,\n"
              "\t\t\"ErrorText\":\t\"\"\n"
              "\t},\n"
              "\t\"z\":\t2\n"
              "}");
  }
}

TEST_F(JobResultWriter, NumbersOfEverySize) {
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();
  struct Case {
    std::int32_t status;
    std::int32_t code;
    const char* status_text;
    const char* code_text;
  };
  const Case cases[] = {
      {0, 0, "0", "0"},
      {1, 1000, "1", "1000"},
      {-1, static_cast<std::int32_t>(0x80004005), "-1", "-2147467259"},
      {2, static_cast<std::int32_t>(0x8004010F), "2", "-2147221233"},
      {kHighest, kLowest, "2147483647", "-2147483648"},
      {kLowest, kHighest, "-2147483648", "2147483647"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Update("{}", c.status, c.code),
              std::string("{\n\t\"Result\":\t{\n\t\t\"Status\":\t") + c.status_text +
                  ",\n\t\t\"ErrorCode\":\t" + c.code_text + ",\n\t\t\"ErrorText\":\t\"\"\n\t}\n}");
  }
}

TEST_F(JobResultWriter, TheErrorTextIsUtf8EscapedOnlyWhereItMustBe) {
  struct Case {
    std::u16string text;
    const char* json;
  };
  const Case cases[] = {
      {u"MAPI Error", "MAPI Error"},
      {u"M\u00FCller \u20AC", "M\xC3\xBCller \xE2\x82\xAC"},
      {u"\U0001F4E0", "\xF0\x9F\x93\xA0"},
      {u"\"\\/", "\\\"\\\\/"},
      {u"\b\f\n\r\t\u0001\u001F\u007F", "\\b\\f\\n\\r\\t\\u0001\\u001f\x7F"},
      {u"100% %s", "100% %s"},
      // Bytes of UTF-8 that somebody widened are not encoded a second time.
      {u"M\u00C3\u00BCller", "M\xC3\xBCller"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(test::Readable(c.text));
    EXPECT_EQ(Update("{}", 1, 1, c.text.c_str()),
              std::string("{\n\t\"Result\":\t{\n\t\t\"Status\":\t1,\n\t\t\"ErrorCode\":\t1,\n"
                          "\t\t\"ErrorText\":\t\"") +
                  c.json + "\"\n\t}\n}");
  }
}

TEST_F(JobResultWriter, AnErrorTextThatCannotBeConvertedIsEmpty) {
  machine_.SetFile(kPath, "{}");
  EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 1, 1002, u"\u4E2D\u6587\u5B57"));
  EXPECT_EQ(JobFile(),
            "{\n\t\"Result\":\t{\n\t\t\"Status\":\t1,\n\t\t\"ErrorCode\":\t1002,\n"
            "\t\t\"ErrorText\":\t\"\"\n\t}\n}");
  EXPECT_EQ(LogText(),
            "ERROR: _utf8(): The utf-8 forward conversion failed.\n"
            "ERROR: Code 0x0000007a --> Unknown Error.\n");
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
      "\t\"\":\t\"\",\n"
      "\t\"Result\":\t{\n"
      "\t\t\"Status\":\t0,\n"
      "\t\t\"ErrorCode\":\t0,\n"
      "\t\t\"ErrorText\":\t\"\"\n"
      "\t}\n"
      "}");
}

constexpr char kOnlyAResult[] =
    "{\n\t\"a\":\t1,\n\t\"Result\":\t{\n\t\t\"Status\":\t0,\n\t\t\"ErrorCode\":\t0,\n"
    "\t\t\"ErrorText\":\t\"\"\n\t}\n}";

TEST_F(JobResultWriter, DeliberateAByteOrderMarkIsNotWrittenBack) {
  EXPECT_EQ(Update("\xEF\xBB\xBF{\"a\": 1}"), kOnlyAResult);
}

TEST_F(JobResultWriter, DeliberateLineEndsBecomeTheLibrarysOwn) {
  EXPECT_EQ(Update("\r\n{\r\n  \"a\": 1\r\n}\r\n"), kOnlyAResult);
}

// A job file stays one whatever stands behind its object, and that is not printed.
TEST_F(JobResultWriter, DeliberateTextBehindAJobIsNotWrittenBack) {
  const std::string job = "{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}";
  const std::string written = Update(job);
  EXPECT_EQ(Update(job + " {\"b\": 2}"), written);
  EXPECT_EQ(Update(job + std::string("\0x", 2)), written);
  EXPECT_EQ(Update("\xEF\xBB\xBF" + job + ","), written);
}

TEST_F(JobResultWriter, AnUnchangedOutcomeLeavesTheSameBytes) {
  const std::string first = Update(R"({"a": 1})", 1, 1004, u"t");
  EXPECT_EQ(Update(first, 1, 1004, u"t"), first);
}

TEST_F(JobResultWriter, OnlyTheLastOfSeveralOutcomesStays) {
  machine_.SetFile(kPath, R"({"a": 1})");
  EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 1, 1004, u"The connection failed"));
  EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  EXPECT_EQ(JobFile(), kOnlyAResult);
}

// It has no place for a result: somebody's document is not rewritten, and not even opened for it.
TEST_F(JobResultWriter, JsonThatIsNoObjectStaysAsItIs) {
  for (const std::string bytes :
       {"17", "\"text\"", " null ", "true", "-5.5e3", "[1, 2]", "[]",
        "[{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}]\r\n", "\xEF\xBB\xBF[1]"}) {
    SCOPED_TRACE(bytes);
    machine_.Reset();
    machine_.SetFile(kPath, bytes);
    EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(kPath), 1, 2, u"t"));
    EXPECT_EQ(JobFile(), bytes);
    EXPECT_EQ(machine_.CallsOf("OpenFileAt"), Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)"});
    EXPECT_EQ(LogText(), "");
  }
}

TEST_F(JobResultWriter, AJobWithoutAJobFileIsLeftAtOnce) {
  JobParameters document;
  document.arguments.Add(u"filename", kPath);
  machine_.SetFile(kPath, "{}");
  machine_.ClearCalls();
  EXPECT_FALSE(CCommands::UpdateJobFile(document, 0, 0, u""));
  EXPECT_FALSE(CCommands::UpdateJobFile(JobParameters(), 0, 0, u""));
  EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(u""), 1, 2, u"t"));
  EXPECT_EQ(machine_.Calls(), Calls{});
  EXPECT_EQ(JobFile(), "{}");
}

TEST_F(JobResultWriter, TheFirstJobNameCounts) {
  machine_.SetFile(kPath, "{\"a\": 1}");
  machine_.SetFile(u"C:\\Jobs\\other.json", "{}");
  JobParameters params;
  params.arguments.Add(u"JobName", u"C:\\Jobs\\other.json");
  params.arguments.Add(u"jobname", kPath);
  params.arguments.Add(u"jobname", u"C:\\Jobs\\other.json");
  EXPECT_TRUE(CCommands::UpdateJobFile(params, 0, 0, u""));
  EXPECT_EQ(JobFile(), kOnlyAResult);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Jobs\\other.json"), "{}");
}

TEST_F(JobResultWriter, AFileThatIsNoJsonIsLeftAsItIs) {
  struct Case {
    const char* bytes;
    const char* error;
  };
  for (const Case& c : {Case{"", ""},
                        {"x", "x"},
                        {"%PDF-1.4\n", "%PDF-1.4\n"},
                        {"[1, x]", "x]"},
                        {"{\"a\": 1", ""},
                        {"\xFF\xFE{", "\xEF\xBF\xBD\xEF\xBF\xBD{"},
                        {"{\"a\": 1}\n{\"b\": 2}\n", "{\"b\": 2}\n"},
                        {"[1] x", "x"}}) {
    SCOPED_TRACE(c.bytes);
    machine_.Reset();
    machine_.SetFile(kPath, c.bytes);
    EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
    EXPECT_EQ(JobFile(), c.bytes);
    EXPECT_EQ(LogText(), "ERROR: WriteJobFileResult(): Parse JSON failed with error '" +
                             std::string(c.error) + "'\n");
  }
}

TEST_F(JobResultWriter, TheLogTellsWhereParsingStopped) {
  machine_.SetFile(kPath, "\xEF\xBB\xBF[1,\r\n 100% %s]\r\n");
  EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  EXPECT_EQ(LogText(), "ERROR: WriteJobFileResult(): Parse JSON failed with error '% %s]\n'\n");
}

TEST_F(JobResultWriter, AFileThatCannotBeReadIsNotMade) {
  machine_.AddFolder(u"C:\\Jobs\\folder.json");
  for (const char16_t* path :
       {u"C:\\Jobs\\missing.json", u"C:\\Missing\\job.json", u"C:\\Jobs\\folder.json"}) {
    EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(path), 0, 0, u""));
  }
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{});
  EXPECT_EQ(LogText(),
            "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n"
            "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n"
            "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n");
}

TEST_F(JobResultWriter, AReadOnlyFileStaysAsItIsWithoutALine) {
  machine_.SetFile(kPath, "{ }");
  machine_.SetReadOnly(kPath, true);
  EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  EXPECT_EQ(JobFile(), "{ }");
  EXPECT_EQ(LogText(), "");
}

// No temporary file and no renaming: the file keeps its identity and its rights.
TEST_F(JobResultWriter, DeliberateTheFileIsRewrittenInPlace) {
  const std::string written = Update("{\"a\": 1}");
  Calls calls = machine_.Calls();
  std::erase_if(calls, [](const std::string& call) {
    return call.starts_with("WideToBytes") || call.starts_with("AllocateBlock");
  });
  EXPECT_EQ(calls,
            (Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)", "QueryFileSize(C:\\Jobs\\job.json)",
                   "ReadBytes(C:\\Jobs\\job.json, 8)", "OpenFileAt(C:\\Jobs\\job.json, kRewrite)",
                   "WriteBytes(C:\\Jobs\\job.json, " + std::to_string(written.size()) + ")"}));
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{kPath});
}

// Takes `taken` away from the machine when the job file has been read. One test at a time uses it.
class VanishesAfterReading {
 public:
  explicit VanishesAfterReading(std::u16string_view taken) {
    taken_ = taken;
    platform::fake::TheMachine().SetCallHook([](bool begins) {
      platform::fake::Machine& machine = platform::fake::TheMachine();
      if (begins && !machine.CallsOf("ReadBytes").empty()) {
        machine.Remove(taken_);
      }
    });
  }
  VanishesAfterReading(const VanishesAfterReading&) = delete;
  VanishesAfterReading& operator=(const VanishesAfterReading&) = delete;
  ~VanishesAfterReading() { platform::fake::TheMachine().SetCallHook(nullptr); }

 private:
  static inline std::u16string_view taken_;
};

TEST_F(JobResultWriter, AFileThatVanishesMeanwhileIsMadeAnew) {
  machine_.SetFile(kPath, "{\"a\": 1}");
  {
    const VanishesAfterReading vanishes(kPath);
    EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  }
  EXPECT_EQ(LogText(), "");
  // The hook took it away once more when it was closed, so that what was written tells.
  EXPECT_EQ(machine_.CallsOf("WriteBytes"),
            Calls{"WriteBytes(C:\\Jobs\\job.json, " +
                  std::to_string(std::string(kOnlyAResult).size()) + ")"});
}

TEST_F(JobResultWriter, AFolderThatVanishesMeanwhileIsNotMadeAnew) {
  machine_.SetFile(kPath, "{\"a\": 1}");
  {
    const VanishesAfterReading vanishes(u"C:\\Jobs");
    EXPECT_FALSE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  }
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{});
  EXPECT_EQ(LogText(), "");
}

// Opened for writing is written: the fax application finds what there is.
TEST_F(JobResultWriter, DeliberateAWriteThatFailsLeavesWhatItLeaves) {
  const std::string whole = Update("{\"a\": 1}");
  for (const std::size_t written : {std::size_t{0}, std::size_t{1}, whole.size() - 1}) {
    machine_.Reset();
    machine_.SetFile(kPath, "{\"a\": 1}");
    machine_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
    machine_.SetBytesBeforeFault(written);
    EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
    EXPECT_EQ(JobFile(), whole.substr(0, written));
    EXPECT_EQ(LogText(), "");
  }
}

TEST_F(JobResultWriter, AJobOf64MiBIsKept) {
  const std::string start = "{\n\t\"a\":\t\"";
  const std::string text(std::size_t{64} << 20, 'x');
  machine_.SetFile(kPath, start + text + "\"}");
  EXPECT_TRUE(CCommands::UpdateJobFile(JobAt(kPath), 0, 0, u""));
  EXPECT_TRUE(JobFile() ==
              start + text +
                  "\",\n\t\"Result\":\t{\n\t\t\"Status\":\t0,\n\t\t\"ErrorCode\":\t0,\n"
                  "\t\t\"ErrorText\":\t\"\"\n\t}\n}");
}

constexpr char16_t kErrorText[] =
    u"An error text that is longer than what a string object can hold by itself.";
constexpr char kBefore[] =
    "{\"a\": 1, \"Result\": {\"Status\": 0, \"ErrorCode\": 0, "
    "\"ErrorText\": \"an earlier text, also longer than a string object\"}}";
constexpr char kBeforeWithoutResult[] = "{\"a\": 1}";

std::string Rewritten(const std::string& error_text) {
  return "{\n\t\"a\":\t1,\n\t\"Result\":\t{\n\t\t\"Status\":\t1,\n\t\t\"ErrorCode\":\t1004,\n"
         "\t\t\"ErrorText\":\t\"" +
         error_text + "\"\n\t}\n}";
}

// What a job file and a caller find after an update on a machine whose fallible calls fail as a
// sweep says.
struct Outcome {
  bool result;
  std::string job_file;
  std::string log;
};

Outcome ExpectedOutcome(const FaultRun& run, const std::string& before, std::size_t names) {
  std::size_t calls = 0;
  const auto fails = [&run, &calls](std::string_view name) {
    const std::size_t here = calls;
    ++calls;
    if (here == run.index) {
      EXPECT_EQ(run.name, name);
    }
    return here == run.index || (run.mode == FaultMode::kFromThere && here > run.index);
  };

  for (const char* call : {"OpenFileAt", "QueryFileSize", "AllocateBlock", "ReadBytes"}) {
    if (fails(call)) {
      return {false, before, "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n"};
    }
  }
  constexpr char kCode[] = "ERROR: Code 0x0000001f --> Unknown Error.\n";
  if (fails("AllocateBlock")) {
    // An outcome without its text would not be the job's.
    return {false, before, std::string("ERROR: _utf8(): A memory error occurred.\n") + kCode};
  }
  if (fails("WideToBytes")) {
    const std::string log =
        std::string("ERROR: _utf8(): The utf-8 forward conversion failed.\n") + kCode;
    // What follows fails, too, unless this was the one call to fail.
    return run.mode == FaultMode::kFromThere ? Outcome{false, before, log}
                                             : Outcome{true, Rewritten(""), log};
  }
  // Without one of its names the outcome is not whole.
  bool has_names = true;
  for (std::size_t i = 0; i < names; ++i) {
    has_names = !(fails("WideToBytes") || fails("WideToBytes")) && has_names;
  }
  if (!has_names || fails("OpenFileAt")) {
    return {false, before, ""};
  }
  return {true, fails("WriteBytes") ? "" : Rewritten(test::Readable(kErrorText)), ""};
}

TEST_F(JobResultWriter, EveryCallOfAnUpdate) {
  struct Case {
    const char* before;
    std::size_t names;  // of the members that are set
  };
  for (const Case& c : {Case{kBefore, 3}, Case{kBeforeWithoutResult, 4}}) {
    SCOPED_TRACE(c.before);
    bool result = false;
    const platform::fake::FaultScenario scenario = {
        [this, &c] { machine_.SetFile(kPath, c.before); },
        [&result] { result = CCommands::UpdateJobFile(JobAt(kPath), 1, 1004, kErrorText); }};
    const std::size_t runs = platform::fake::SweepFaults(scenario, [&](const FaultRun& run) {
      const Outcome expected = ExpectedOutcome(run, c.before, c.names);
      EXPECT_EQ(result, expected.result);
      EXPECT_EQ(JobFile(), expected.job_file);
      EXPECT_EQ(LogText(), expected.log);
      EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{kPath});
    });
    EXPECT_EQ(runs, 2 * (4 + 2 + 2 * c.names + 2));
  }
}

// A member whose memory was not to be had once left the earlier outcome's in the file, beside the
// new outcome's others: a job was failed and delivered at the same time.
TEST_F(JobResultWriter, EveryAllocationOfAnUpdate) {
  for (const char* before : {kBefore, kBeforeWithoutResult}) {
    SCOPED_TRACE(before);
    std::size_t intact = 0;
    std::size_t emptied = 0;
    const std::size_t runs = test::SweepAllocations("UpdateJobFile", [&](AllocationFaults& faults) {
      machine_.Reset();
      machine_.SetFile(kPath, before);
      const JobParameters params = JobAt(kPath);
      bool result = false;
      EXPECT_TRUE(
          faults.Run([&] { result = CCommands::UpdateJobFile(params, 1, 1004, kErrorText); }));
      const std::string job_file = JobFile();
      const std::string log = LogText();
      if (!faults.Taken()) {
        EXPECT_TRUE(result);
        EXPECT_EQ(job_file, Rewritten(test::Readable(kErrorText)));
        EXPECT_EQ(log, "");
      } else if (!result) {
        ++intact;
        EXPECT_EQ(job_file, before);
        EXPECT_TRUE(log.empty() ||
                    log ==
                        "ERROR: _utf8(): A memory error occurred.\n"
                        "ERROR: Code 0x00000008 --> Unknown Error.\n" ||
                    log == "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n")
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
