#include "testing/end_to_end/job_test.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <memory>
#include <system_error>
#include <utility>

#include "testing/end_to_end/settings.h"
#include "tools/addin_listener/payload_check.h"

namespace zentpost::e2e {
namespace {

namespace al = addin_listener;

constexpr std::size_t kTimeLength = 19;
// From here on a sample would only take time and space.
constexpr std::size_t kBigSample = std::size_t{1} << 20;

// What stands at `path`, where that may be a job file: no pipe, and no document of many megabytes.
std::optional<std::string> PossibleJobFile(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) &&
                 std::filesystem::file_size(path, error) < kBigSample
             ? ReadBytes(path)
             : std::nullopt;
}

struct JsonDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
  void operator()(char* text) const { cJSON_free(text); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

// The level's tag behind the time that `line` begins with, and as the tests write it; null when it
// does not begin so.
const std::pair<std::string_view, std::string_view>* FindLevel(std::string_view line) {
  constexpr std::string_view kTimePattern = "0000/00/00 00:00:00";
  static constexpr std::pair<std::string_view, std::string_view> kLevels[] = {
      {" - INFO   : ", "INFO: "},
      {" - WARNING: ", "WARNING: "},
      {" - ERROR  : ", "ERROR: "},
      {" - DEBUG  : ", "DEBUG: "}};
  std::string time(line.substr(0, kTimeLength));
  std::replace_if(
      time.begin(), time.end(), [](char unit) { return unit >= '0' && unit <= '9'; }, '0');
  const auto* const level =
      time != kTimePattern
          ? std::end(kLevels)
          : std::find_if(std::begin(kLevels), std::end(kLevels), [&](const auto& each) {
              return line.substr(kTimeLength).starts_with(each.first);
            });
  return level == std::end(kLevels) ? nullptr : level;
}

// A new file in a folder of the samples, named for the test that made it.
void KeepSample(const char* kind, std::string_view bytes) {
  const std::filesystem::path folder = Setting("samples") / kind;
  std::filesystem::create_directories(folder);
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  std::filesystem::path file;
  for (int number = 1; number == 1 || std::filesystem::exists(file); ++number) {
    file = folder / (std::string(test->test_suite_name()) + "." + test->name() + "-" +
                     std::to_string(number) + ".json");
  }
  WriteBytes(file, bytes);
}

}  // namespace

// The clock of the lines is the one behind std::time, which may lag behind the finer ones.
std::string LocalTimeText(std::time_t seconds) {
  char text[kTimeLength + 1] = {};
  std::strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", std::localtime(&seconds));
  return text;
}

std::string WithoutTimes(std::string_view log, const std::string& begin, const std::string& end) {
  std::string result;
  result.reserve(log.size());
  if (!log.empty()) {
    EXPECT_NE(FindLevel(log.substr(0, 64)), nullptr) << log.substr(0, 64);
    EXPECT_EQ(log.back(), '\n');
  }
  while (!log.empty()) {
    const std::size_t length = std::min(log.find('\n'), log.size() - 1) + 1;
    std::string_view line = log.substr(0, length);
    if (const auto* const level = FindLevel(line)) {
      const std::string_view time = line.substr(0, kTimeLength);
      EXPECT_LE(begin, time);
      EXPECT_GE(end, time);
      line.remove_prefix(kTimeLength + level->first.size());
      result += level->second;
    }
    result += line;
    log.remove_prefix(length);
  }
  return result;
}

std::string Info(std::string_view message) {
  return "INFO: " + std::string(message) + "\n";
}

std::string Error(std::string_view message) {
  return "ERROR: " + std::string(message) + "\n";
}

std::string Warning(std::string_view message) {
  return "WARNING: " + std::string(message) + "\n";
}

std::string Debug(std::string_view message) {
  return "DEBUG: " + std::string(message) + "\n";
}

std::string Started(std::string_view command_line) {
  return Info("StartZentpost(): " + std::string(command_line));
}

std::string NotAJobFile(const std::string& error_position) {
  return test::NoJsonLog("ReadFromFile", error_position);
}

std::string NoMapiLines(const test::MapiJobText& job) {
  return test::MapiJobLog(job) + test::kNoMapiLog;
}

std::string SentLines(const std::string& payload_as_logged) {
  return test::AddinLog(payload_as_logged) + test::kAddinSentLog;
}

ToolRun JobTest::Run(const std::vector<std::string>& arguments, const ProcessOptions& options) {
  std::filesystem::path job_file;
  if (!arguments.empty()) {
    job_file = options.folder / std::filesystem::path(Utf16(arguments[0]));
  }
  const std::optional<std::string> job_file_before = PossibleJobFile(job_file);
  const std::time_t begin = std::time(nullptr);
  return Checked(RunProcess(Setting("tool"), arguments, options), begin, job_file_before, job_file);
}

ToolRun JobTest::Checked(ProcessRun run, std::time_t begin,
                         const std::optional<std::string>& job_file_before,
                         const std::filesystem::path& job_file) {
  EXPECT_EQ(run.printed, "");
  ToolRun result;
  result.exit_code = run.exit_code;
  result.duration = run.duration;
  result.log =
      WithoutTimes(run.debug_output, LocalTimeText(begin), LocalTimeText(std::time(nullptr)));
  result.outcome =
      test::ReadOutcome(result.exit_code, result.log, job_file_before, PossibleJobFile(job_file));
  EXPECT_EQ(test::OutcomeProblem(result.outcome), "");
  if (log_file_ == LogFile::kAbsent) {
    EXPECT_FALSE(std::filesystem::exists(machine_.LogFile()));
  } else if (log_file_ == LogFile::kWritten) {
    logged_ += Replaced(std::move(run.debug_output), "\n", "\r\n");
    const std::optional<std::string> file = ReadBytes(machine_.LogFile());
    EXPECT_TRUE(file.has_value());
    EXPECT_TRUE(Same(logged_, file.value_or("")));
  }
  return result;
}

void JobTest::SwitchLogOn() {
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
  machine_.AddLogFolder();
  ExpectLogFile(LogFile::kWritten);
}

void JobTest::SkipSending() {
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);
}

void JobTest::SetAddinPort(const std::string& text) {
  machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, text);
}

void JobTest::ForEachClientNumber(std::u16string_view name,
                                  const std::function<void(Machine& machine, bool is_on)>& check) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not write to HKEY_LOCAL_MACHINE";
  }
  constexpr int kAbsent = -1;
  const struct {
    int user;
    int machine;
    bool is_on;
  } cases[] = {{kAbsent, kAbsent, false},
               {0, kAbsent, false},
               {kAbsent, 0, false},
               {0, 0, false},
               {1, kAbsent, true},
               {1, 0, true},
               {7, 1, true},
               {0, 1, true},
               {kAbsent, 1, true},
               {kAbsent, 0x10000, true}};
  for (const auto& each : cases) {
    SCOPED_TRACE("user " + std::to_string(each.user) + ", machine " + std::to_string(each.machine));
    Machine machine;  // without the former case's values
    for (const auto& [hive, number] :
         {std::pair(Hive::kCurrentUser, each.user), std::pair(Hive::kLocalMachine, each.machine)}) {
      if (number != kAbsent) {
        machine.SetNumber(hive, registry::kFaxClientKey, name, static_cast<std::uint32_t>(number));
      }
    }
    check(machine, each.is_on);
  }
}

void JobTest::SetFile(std::string_view name, std::string_view bytes) {
  WriteBytes(PathOf(name), bytes);
}

std::string JobTest::FileBytes(std::string_view name) {
  std::optional<std::string> bytes = ReadBytes(PathOf(name));
  EXPECT_TRUE(bytes.has_value()) << name << " is missing";
  return std::move(bytes).value_or("");
}

bool JobTest::FileExists(std::string_view name) {
  return std::filesystem::exists(PathOf(name));
}

std::filesystem::path JobTest::PathOf(std::string_view name) const {
  return machine_.Folder() / std::filesystem::path(Utf16(name));
}

void JobTest::ExpectDelivered(const ToolRun& run, Addin& addin, const std::string& payload,
                              const std::string& command_line, const std::string& logged_before) {
  EXPECT_EQ(run.exit_code, 0);
  ExpectReceived(addin, payload);
  ExpectLog(run, logged_before + Started(command_line) + SentLines(payload));
}

void JobTest::ExpectDelivery(const std::vector<std::string>& arguments, const std::string& payload,
                             const std::string& logged_before) {
  Addin addin;
  SetAddinPort(addin);
  ExpectDelivered(Run(arguments), addin, payload, CommandLineOf(arguments), logged_before);
}

void JobTest::ExpectReceived(Addin& addin, std::string_view wire) {
  const std::vector<al::Connection> connections = addin.Finish();
  ASSERT_EQ(Ends(connections), "probe, delivered");
  EXPECT_TRUE(Same(wire, connections[1].wire));
  const al::PayloadReport report = al::CheckPayload(connections[1].wire);
  EXPECT_TRUE(report.valid()) << report.problems.front();
  if (report.json_utf8.size() < kBigSample) {
    KeepPayload(report.json_utf8);
  }
}

void JobTest::ExpectJobFile(std::string_view bytes, std::string_view name) {
  EXPECT_TRUE(Same(bytes, FileBytes(name)));
}

void JobTest::ExpectLog(const ToolRun& run, std::string_view log) {
  EXPECT_TRUE(Same(log, run.log));
}

std::string JobTest::Ends(const std::vector<al::Connection>& connections) {
  static constexpr std::pair<ConnectionEnd, const char*> kNames[] = {
      {ConnectionEnd::kProbe, "probe"},           {ConnectionEnd::kDelivered, "delivered"},
      {ConnectionEnd::kBroken, "broken"},         {ConnectionEnd::kSpoiled, "spoiled"},
      {ConnectionEnd::kUnaccepted, "unaccepted"}, {ConnectionEnd::kDropped, "dropped"}};
  std::string result;
  for (const al::Connection& connection : connections) {
    for (const auto& [end, name] : kNames) {
      if (end == connection.end) {
        result.append(result.empty() ? "" : ", ").append(name);
      }
    }
  }
  return result;
}

void JobTest::KeepJobFile(const std::string& job_file) {
  const JsonTree tree(cJSON_Parse(job_file.c_str()));
  ASSERT_NE(tree, nullptr);
  const JsonText outcome(cJSON_Print(cJSON_GetObjectItem(tree.get(), "Result")));
  ASSERT_NE(outcome, nullptr);
  if (job_file.size() < kBigSample) {
    KeepSample("job-file", job_file);
  }
  KeepSample("result", outcome.get());
}

void JobTest::KeepPayload(std::string_view json) {
  KeepSample("payload", json);
}

}  // namespace zentpost::e2e
