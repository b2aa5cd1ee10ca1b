// Every way in which a job can end, as a caller sees it: the route, the exit code, the Result in
// the job file and the last line of the log. docs/outcomes.md is made of this table, the model of
// whole jobs is held against it, and every job that a test runs has to end in one of its ways.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::test {

// As the log tells it.
enum class Route { kNone, kAddin, kExtendedMapi, kAddinThenExtendedMapi };
inline constexpr Route kRoutes[] = {Route::kNone, Route::kAddin, Route::kExtendedMapi,
                                    Route::kAddinThenExtendedMapi};
[[nodiscard]] std::string_view NameOf(Route route);

// How one job has ended.
struct SeenOutcome {
  Route route;
  int exit_code;
  // "none": there is no Result of this job. "broken": the job file is no JSON any more. Otherwise
  // its members Status, ErrorCode and ErrorText: `1, 1004, "OutlookClient: ..."`. A job file that
  // was as it is now before the job may have two readings, the other one without a Result.
  std::string result;
  // Level and message: "INFO: SendMail(): Message sent successfully." Without the lines behind it
  // that only clean up or tell the code of a failure, and without the further lines of a message
  // that has several. Empty when nothing was logged.
  std::string last_line;
};

inline constexpr std::string_view kNoResult = "none";
inline constexpr std::string_view kBroken = "broken";

// `log` as LogText tells it. The job file's bytes; nothing where there is none. Several readings
// where the job file alone cannot tell.
[[nodiscard]] std::vector<SeenOutcome> ReadOutcome(
    int exit_code, std::string_view log, const std::optional<std::string>& job_file_before,
    const std::optional<std::string>& job_file);

[[nodiscard]] std::string ToString(const SeenOutcome& outcome);

// Which tests give an outcome of the table.
enum class Source {
  kModel,           // the model of whole jobs, and the real ones that are held against it
  kMemory,          // JobMemory: whole jobs whose memory runs out at any allocation
  kException,       // Application.WhateverIsThrownTheJobHasFailedAndTheSocketsAreEnded
  kSpoiledJobFile,  // AddinFailure.AJobFileThatVanishesOrIsSpoiledDuringTheJobStaysSo
};

// What the caller should do about it.
enum class Remedy { kNothing, kLook, kRetry, kJob, kAdministrator };
[[nodiscard]] std::string_view NameOf(Remedy remedy);

// Where the document is, as far as the outcome tells it.
enum class DocumentFate { kUntold, kStays, kMayBeGone };

// A row of the table. In `result` and `last_line` NUMBER stands for any digits and TEXT for any
// text; ANY LINE is whatever line of a job, or none.
struct Outcome {
  Route route;
  int exit_code;
  std::string_view result;
  std::string_view last_line;
  std::string cause;
  DocumentFate document;
  Remedy remedy;
  std::string advice;
  Source source;
};
inline constexpr std::string_view kAnyLine = "ANY LINE";

// Grouped by route and exit code; where two rows fit, the first one counts.
[[nodiscard]] const std::vector<Outcome>& Outcomes();

// The place in Outcomes() of the first reading that fits; nothing where none does. Rows of
// Source::kMemory are for jobs whose memory ran out.
[[nodiscard]] std::optional<std::size_t> FindOutcome(std::span<const SeenOutcome> readings,
                                                     bool has_little_memory = false);

// The source of the row that fits; nothing where none does.
[[nodiscard]] std::optional<Source> SourceOf(std::span<const SeenOutcome> readings);

// Empty when the table has the outcome, and otherwise what a test says of it.
[[nodiscard]] std::string OutcomeProblem(std::span<const SeenOutcome> readings,
                                         bool has_little_memory = false);

}  // namespace zentpost::test
