// The fixture of the end-to-end tests: a machine, the tool run on it, and everything that can be
// seen of a run from outside. What holds for every run is checked at every run: nothing is printed,
// each log line has a true time stamp and a known level and comes with its line end, the log file
// holds exactly what the debugger got, or does not exist, and the job has ended in a way that is
// known.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "testing/end_to_end/addin.h"
#include "testing/end_to_end/files.h"
#include "testing/end_to_end/machine.h"
#include "testing/end_to_end/process.h"
#include "testing/end_to_end/text.h"
#include "testing/expected_texts.h"
#include "testing/outcomes.h"

namespace zentpost::e2e {

// Lines of the log as ToolRun::log has them: level and message, without the time. Each ends with a
// line feed.
[[nodiscard]] std::string Info(std::string_view message);
[[nodiscard]] std::string Error(std::string_view message);
[[nodiscard]] std::string Warning(std::string_view message);
[[nodiscard]] std::string Debug(std::string_view message);

// What each run logs of its command line.
[[nodiscard]] std::string Started(std::string_view command_line = "job.json");

// What the job file reader logs when the first argument is no job file; `error_position` is where
// the JSON library stopped, and nothing when the argument cannot be read.
[[nodiscard]] std::string NotAJobFile(const std::string& error_position = "");

// What the Extended MAPI route logs of a job where there is no MAPI.
[[nodiscard]] std::string NoMapiLines(const test::MapiJobText& job);

// What the add-in route logs of a job that was sent.
[[nodiscard]] std::string SentLines(const std::string& payload_as_logged);

// `log` without the times of its lines, each of which has to lie between `begin` and `end` (as
// LocalTimeText has them). A message may have lines of its own; these have no time and no level.
[[nodiscard]] std::string WithoutTimes(std::string_view log, const std::string& begin,
                                       const std::string& end);
[[nodiscard]] std::string LocalTimeText(std::time_t seconds);

struct ToolRun {
  int exit_code = 0;
  std::string log;  // UTF-8
  std::vector<test::SeenOutcome> outcome;
  std::chrono::steady_clock::duration duration{};
};

class JobTest : public testing::Test {
 protected:
  Machine machine_;

  // Runs the tool in the machine's folder.
  ToolRun Run(const std::vector<std::string>& arguments) {
    return Run(arguments, machine_.Options());
  }
  ToolRun Run(const std::vector<std::string>& arguments, const ProcessOptions& options);

  // For runs started in another way: checks what holds for every run. One of a job file names the
  // bytes that it had before.
  ToolRun Checked(ProcessRun run, std::time_t begin,
                  const std::optional<std::string>& job_file_before = std::nullopt,
                  const std::filesystem::path& job_file = {});

  // From now on runs have to write the log file: "LogLevel" is set and the log's folder is there.
  void SwitchLogOn();

  // Whether the log file is looked at after each run, and has to be there.
  enum class LogFile { kAbsent, kWritten, kUnchecked };
  void ExpectLogFile(LogFile expectation) { log_file_ = expectation; }

  // Without an add-in, a port that is none.
  void SetAddinPort(const std::string& text);
  void SetAddinPort(const Addin& addin, bool is_there = true) {
    SetAddinPort(is_there ? std::to_string(addin.port()) : "0");
  }

  // From now on a job that reaches the mail route counts as delivered.
  void SkipSending();

  // Calls `check` on a fresh machine for each way in which the fax client's number `name` can stand
  // in the two hives, and says whether it is on: the user's counts, and the machine's when that is
  // 0 or missing.
  static void ForEachClientNumber(std::u16string_view name,
                                  const std::function<void(Machine& machine, bool is_on)>& check);

  // Files in the machine's folder.
  void SetFile(std::string_view name, std::string_view bytes);
  [[nodiscard]] std::string FileBytes(std::string_view name);  // a missing file is a failed test
  [[nodiscard]] bool FileExists(std::string_view name);
  [[nodiscard]] std::filesystem::path PathOf(std::string_view name) const;

  // The run has delivered: the add-in has got the probe and then exactly `payload`, and nothing
  // else is in the log but what is `logged_before` the command line.
  void ExpectDelivered(const ToolRun& run, Addin& addin, const std::string& payload,
                       const std::string& command_line, const std::string& logged_before = "");
  // Runs the tool with an add-in that is there, and expects that.
  void ExpectDelivery(const std::vector<std::string>& arguments, const std::string& payload,
                      const std::string& logged_before = "");
  void ExpectReceived(Addin& addin, std::string_view wire);
  // What the job file holds, and what the run has logged.
  void ExpectJobFile(std::string_view bytes, std::string_view name = "job.json");
  static void ExpectLog(const ToolRun& run, std::string_view log);
  // The ends of all connections, as "probe, delivered".
  [[nodiscard]] static std::string Ends(const std::vector<addin_listener::Connection>& connections);

  // Keeps what the tool wrote for the check against the published schemas: a job file with its
  // Result, and a payload as its text. What reaches the add-in is kept by ExpectDelivered.
  static void KeepJobFile(const std::string& job_file);
  static void KeepPayload(std::string_view json);

 private:
  LogFile log_file_ = LogFile::kAbsent;
  std::string logged_;  // what the log file has to hold
};

}  // namespace zentpost::e2e
