#include "testing/end_to_end/job_test.h"

#include <cjson/cJSON.h>

#include <array>
#include <ctime>
#include <memory>

#include "testing/end_to_end/settings.h"
#include "tools/addin_listener/payload_check.h"

namespace zentpost::e2e {
namespace {

namespace al = addin_listener;

constexpr std::size_t kTimeLength = 19;
// From here on a sample would only take time and room.
constexpr std::size_t kBigSample = std::size_t{1} << 20;

struct JsonDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
  void operator()(char* text) const { cJSON_free(text); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;
using JsonText = std::unique_ptr<char, JsonDeleter>;

bool HasLogPrefix(std::string_view line) {
  constexpr std::string_view kTimePattern = "0000/00/00 00:00:00";
  constexpr std::array<std::string_view, 4> kTags = {
      " - INFO   : ", " - WARNING: ", " - ERROR  : ", " - DEBUG  : "};
  if (line.size() < kTimeLength) {
    return false;
  }
  for (std::size_t i = 0; i < kTimeLength; ++i) {
    const bool is_digit = line[i] >= '0' && line[i] <= '9';
    if (kTimePattern[i] == '0' ? !is_digit : line[i] != kTimePattern[i]) {
      return false;
    }
  }
  for (const std::string_view tag : kTags) {
    if (line.substr(kTimeLength).starts_with(tag)) {
      return true;
    }
  }
  return false;
}

std::string Line(std::string_view tag, std::string_view message) {
  return std::string(tag).append(message).append("\n");
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
    EXPECT_TRUE(HasLogPrefix(log.substr(0, 64))) << log.substr(0, 64);
    EXPECT_EQ(log.back(), '\n');
  }
  while (!log.empty()) {
    const std::size_t length = std::min(log.find('\n'), log.size() - 1) + 1;
    std::string_view line = log.substr(0, length);
    if (HasLogPrefix(line)) {
      const std::string_view time = line.substr(0, kTimeLength);
      EXPECT_LE(begin, time);
      EXPECT_GE(end, time);
      line.remove_prefix(kTimeLength);
    }
    result += line;
    log.remove_prefix(length);
  }
  return result;
}

std::string Info(std::string_view message) {
  return Line(" - INFO   : ", message);
}

std::string Error(std::string_view message) {
  return Line(" - ERROR  : ", message);
}

std::string Warning(std::string_view message) {
  return Line(" - WARNING: ", message);
}

std::string Debug(std::string_view message) {
  return Line(" - DEBUG  : ", message);
}

std::string NotAJobFile(std::string_view error_position) {
  return Error("ReadFromFile(): Parse JSON failed with error '" + std::string(error_position) +
               "'");
}

std::string MapiLines(const MapiJob& job) {
  const std::string name = "ProcessToExtendedMapi(): ";
  return Info(name + "Processing single job to extended MAPI.") + Info(name + "Parameters :") +
         Info(name + "Receiver   : " + job.receiver) +
         Info(name + "Recipient  : " + job.recipient) + Info(name + "Sendername : " + job.sender) +
         Info(name + "Comment    : " + job.comment) + Info(name + "Subject    : " + job.subject) +
         Info(name + "SendTime   : " + job.send_time) +
         Info(name + "Attachment : " + job.attachment) +
         Info(name + "Attach Name: " + job.attachment_name) +
         Info(name + "ECM        : " + job.ecm) + Info(name + "Preview    : " + job.preview) +
         (job.is_sent
              ? Error("SendMail(): MAPIInititialize failed.") +
                    Error("Code 0x80004005 --> A general not more specified error occurred.")
              : "");
}

std::string AddinLines(std::string_view payload_as_logged) {
  return Info("ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.") +
         Info("ProcessToOutlookClient(): Created JSON:\r\n" + std::string(payload_as_logged) +
              "\r\n");
}

ToolRun JobTest::Run(const std::vector<std::string>& arguments, const ProcessOptions& options) {
  const std::time_t begin = std::time(nullptr);
  return Checked(RunProcess(Setting("tool"), arguments, options), begin);
}

ToolRun JobTest::Checked(ProcessRun run, std::time_t begin) {
  EXPECT_EQ(run.printed, "");
  ToolRun result;
  result.exit_code = run.exit_code;
  result.duration = run.duration;
  result.log =
      WithoutTimes(run.debug_output, LocalTimeText(begin), LocalTimeText(std::time(nullptr)));
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

void JobTest::SetAddinPort(const std::string& text) {
  machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, text);
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

void JobTest::ExpectDelivered(Addin& addin, std::string_view wire) {
  const std::vector<al::Connection> connections = addin.Finish();
  ASSERT_EQ(Ends(connections), "probe, delivered");
  EXPECT_TRUE(Same(wire, connections[1].wire));
  const al::PayloadReport report = al::CheckPayload(connections[1].wire);
  EXPECT_TRUE(report.valid()) << report.problems.front();
  if (report.json_utf8.size() < kBigSample) {
    KeepPayload(report.json_utf8);
  }
}

std::string JobTest::Ends(const std::vector<al::Connection>& connections) {
  std::string result;
  for (const al::Connection& connection : connections) {
    if (!result.empty()) {
      result += ", ";
    }
    switch (connection.end) {
      case ConnectionEnd::kProbe:
        result += "probe";
        break;
      case ConnectionEnd::kDelivered:
        result += "delivered";
        break;
      case ConnectionEnd::kBroken:
        result += "broken";
        break;
      case ConnectionEnd::kSpoiled:
        result += "spoiled";
        break;
      case ConnectionEnd::kUnaccepted:
        result += "unaccepted";
        break;
      case ConnectionEnd::kDropped:
        result += "dropped";
        break;
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
