// Whether, where and how the log file is written. What it holds is compared with the debugger
// output at every run.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

class LogFiles : public JobTest {};

TEST_F(LogFiles, LogLevelIsAskedOfTheUserAndThenOfTheMachine) {
  ForEachClientNumber(registry::kLogLevel, [](Machine& machine, bool is_written) {
    machine.AddLogFolder();

    const ProcessRun run = RunProcess(Setting("tool"), {}, machine.Options());

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_NE(run.debug_output, "");
    EXPECT_TRUE(Same(is_written ? Replaced(run.debug_output, "\n", "\r\n") : "no file",
                     ReadBytes(machine.LogFile()).value_or("no file")));
  });
}

TEST_F(LogFiles, UsersKeyWithoutTheValueLeavesItToTheMachine) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not write to HKEY_LOCAL_MACHINE";
  }
  machine_.AddKey(Hive::kCurrentUser, registry::kFaxClientKey);
  machine_.SetNumber(Hive::kLocalMachine, registry::kFaxClientKey, registry::kLogLevel, 1);
  machine_.AddLogFolder();
  ExpectLogFile(LogFile::kWritten);

  EXPECT_EQ(Run({}).exit_code, 1);
}

TEST_F(LogFiles, MissingFolderIsNotMadeAndTheJobGoesOn) {
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
  SetFile("job.json", kJobFile);

  ExpectDelivery({"job.json"}, SamplePayload());

  EXPECT_FALSE(std::filesystem::exists(machine_.LogFolder()));
  // VORNA\Client\Log: not even the first of them.
  EXPECT_FALSE(std::filesystem::exists(machine_.LogFolder().parent_path().parent_path()));
  // Nor is there a file in the place for machines without a folder for application data.
  EXPECT_TRUE(std::filesystem::is_empty(machine_.TemporaryFolder()));
}

TEST_F(LogFiles, FileThatCannotBeWrittenDropsItsLines) {
  SwitchLogOn();
  WriteBytes(machine_.LogFile(), "former lines\r\n");
  ExpectLogFile(LogFile::kUnchecked);
  {
    const ReadOnly read_only(machine_.LogFile());
    ExpectLog(Run({}), Started("") + NoMapiLines({}));
  }
  EXPECT_EQ(ReadBytes(machine_.LogFile()), "former lines\r\n");
}

TEST_F(LogFiles, LinesAreAppendedToThoseOfFormerRuns) {
  SwitchLogOn();
  // Each run compares the whole file.
  EXPECT_EQ(Run({}).exit_code, 1);
  EXPECT_EQ(Run({"letter.pdf"}).exit_code, 1);
  EXPECT_EQ(Run({"letter.pdf", "0301"}).exit_code, 1);
}

TEST_F(LogFiles, DeliberatePercentSignsStandAsTheyAre) {
  SwitchLogOn();
  ExpectDelivery({"100%.pdf", "0301;S%s%d%n%%", "/x", "%1$s"},
                 Payload({.receiver = "0301", .file_name = "100%.pdf", .subject = "%s%d%n%%"}),
                 NotAJobFile());
}

// What the writers of log_writer.cpp write, without the time.
std::string WriterLine(int writer, int line) {
  std::string text =
      " - DEBUG  : writer " + std::to_string(writer) + " line " + std::to_string(line);
  text += ' ';
  for (int i = 0; i < (writer * 37 + line * 101) % 700; ++i) {
    text += "\xC3\xA4";
  }
  return text + ".";
}

TEST_F(LogFiles, SixteenProcessesAtATimeWriteWholeLines) {
  constexpr int kWriters = 16;
  constexpr int kLines = 200;
  constexpr std::size_t kTimeLength = 19;
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
  machine_.AddLogFolder();
  std::vector<std::vector<std::string>> arguments;
  for (int writer = 0; writer < kWriters; ++writer) {
    arguments.push_back({std::to_string(writer)});
  }

  const std::vector<int> exit_codes =
      RunTogether(Setting("log-writer"), arguments, machine_.Options());

  EXPECT_EQ(exit_codes, std::vector<int>(kWriters, 0));
  std::string log = ReadBytes(machine_.LogFile()).value_or("");
  int next_line[kWriters] = {};
  int count = 0;
  int changes = 0;
  int last_writer = -1;
  for (std::size_t at = 0; at < log.size(); ++count) {
    const std::size_t end = log.find("\r\n", at);
    ASSERT_NE(end, std::string::npos) << "a line without an end";
    const std::string_view line = std::string_view(log).substr(at, end - at);
    at = end + 2;
    // The writer's number stands in a fixed place; everything else must then be as it wrote it.
    constexpr std::string_view kBegin = " - DEBUG  : writer ";
    ASSERT_GT(line.size(), kTimeLength + kBegin.size());
    const int writer = std::atoi(line.data() + kTimeLength + kBegin.size());
    ASSERT_TRUE(writer >= 0 && writer < kWriters);
    ASSERT_TRUE(Same(WriterLine(writer, next_line[writer]), line.substr(kTimeLength)));
    ++next_line[writer];
    changes += writer != last_writer ? 1 : 0;
    last_writer = writer;
  }
  EXPECT_EQ(count, kWriters * kLines);
  for (const int lines : next_line) {
    EXPECT_EQ(lines, kLines);
  }
  std::printf("%d whole lines; the writer changed %d times\n", count, changes);
  // Had they written one after the other, nothing would have been shown.
  EXPECT_GT(changes, kWriters);
}

}  // namespace
}  // namespace zentpost::e2e
