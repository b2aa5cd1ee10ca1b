#include "testing/outcomes.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <memory>

namespace zentpost::test {
namespace {

constexpr std::string_view kLevels[] = {"INFO: ", "WARNING: ", "ERROR: ", "DEBUG: "};

// What comes behind the line that tells how a sending ended.
constexpr std::string_view kCleanUp[] = {
    "DEBUG: SendMail(): cleanup.", "INFO: DoMAPIFastShutdown(): Function in progress.",
    "DEBUG: DoMAPIFastShutdown(): Fast shutdown failed.",
    "INFO: DoMAPIFastShutdown(): Function end.", "DEBUG: SendMail(): Function end."};

bool Tells(std::string_view line) {
  const std::string_view message = line.substr(line.find(": ") + 2);
  return !message.starts_with("Code 0x") &&
         std::find(std::begin(kCleanUp), std::end(kCleanUp), line) == std::end(kCleanUp);
}

// The first lines of the messages in `log`.
std::vector<std::string_view> Messages(std::string_view log) {
  std::vector<std::string_view> messages;
  while (!log.empty()) {
    const std::string_view line = log.substr(0, log.find('\n'));
    log.remove_prefix(std::min(line.size() + 1, log.size()));
    if (std::any_of(std::begin(kLevels), std::end(kLevels),
                    [&](std::string_view level) { return line.starts_with(level); })) {
      messages.push_back(line.substr(0, line.find('\r')));
    }
  }
  return messages;
}

Route RouteOf(const std::vector<std::string_view>& messages) {
  // Of any line, since one may be missing where there is no memory for it.
  const auto has = [&](std::string_view routine) {
    return std::any_of(messages.begin(), messages.end(), [&](std::string_view message) {
      return message.substr(message.find(": ") + 2).starts_with(routine);
    });
  };
  const bool by_addin = has("ProcessToOutlookClient(): ");
  const bool by_mapi = has("ProcessToExtendedMapi(): ") || has("SendMail(): ");
  return by_addin && by_mapi ? Route::kAddinThenExtendedMapi
         : by_addin          ? Route::kAddin
         : by_mapi           ? Route::kExtendedMapi
                             : Route::kNone;
}

struct DeleteTree {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, DeleteTree>;

// The members that the tool writes; nothing where they do not stand there as it writes them.
std::optional<std::string> ResultIn(const cJSON* tree) {
  const cJSON* const result = cJSON_GetObjectItem(tree, "Result");
  const cJSON* const status = cJSON_GetObjectItem(result, "Status");
  const cJSON* const code = cJSON_GetObjectItem(result, "ErrorCode");
  const cJSON* const text = cJSON_GetObjectItem(result, "ErrorText");
  if (!cJSON_IsNumber(status) || !cJSON_IsNumber(code) || !cJSON_IsString(text)) {
    return std::nullopt;
  }
  return std::to_string(status->valueint) + ", " + std::to_string(code->valueint) + ", \"" +
         text->valuestring + "\"";
}

bool Fits(std::string_view pattern, std::string_view text) {
  constexpr std::string_view kNumber = "NUMBER";
  constexpr std::string_view kText = "TEXT";
  if (pattern.empty()) {
    return text.empty();
  }
  if (pattern.starts_with(kNumber)) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    return digits != 0 && Fits(pattern.substr(kNumber.size()), text.substr(digits));
  }
  if (pattern.starts_with(kText)) {
    // At most one stands in a pattern.
    const std::string_view rest = pattern.substr(kText.size());
    return text.size() >= rest.size() && text.ends_with(rest);
  }
  return !text.empty() && text[0] == pattern[0] && Fits(pattern.substr(1), text.substr(1));
}

bool Fits(const Outcome& outcome, const SeenOutcome& seen) {
  return outcome.route == seen.route && outcome.exit_code == seen.exit_code &&
         Fits(outcome.result, seen.result) &&
         (outcome.last_line == kAnyLine || Fits(outcome.last_line, seen.last_line));
}

}  // namespace

std::string_view NameOf(Route route) {
  switch (route) {
    case Route::kNone:
      return "No route";
    case Route::kAddin:
      return "Add-in";
    case Route::kExtendedMapi:
      return "Extended MAPI";
    case Route::kAddinThenExtendedMapi:
      return "Add-in, then Extended MAPI";
  }
  return "";
}

std::vector<SeenOutcome> ReadOutcome(int exit_code, std::string_view log,
                                     const std::optional<std::string>& job_file_before,
                                     const std::optional<std::string>& job_file) {
  const std::vector<std::string_view> messages = Messages(log);
  const auto last = std::find_if(messages.rbegin(), messages.rend(), Tells);
  SeenOutcome outcome = {
      .route = RouteOf(messages),
      .exit_code = exit_code,
      .result = std::string(kNoResult),
      .last_line = last == messages.rend() ? std::string() : std::string(*last),
  };
  if (!job_file) {
    return {outcome};
  }
  const Tree tree(cJSON_ParseWithOpts(job_file->c_str(), nullptr, 0));
  if (job_file == job_file_before) {
    // Nothing was written, or what had stood there before.
    SeenOutcome told = outcome;
    told.result = ResultIn(tree.get()).value_or("");
    return told.result.empty() ? std::vector{outcome} : std::vector{told, outcome};
  }
  outcome.result = tree == nullptr ? kBroken : ResultIn(tree.get()).value_or("a part of one");
  return {outcome};
}

std::string ToString(const SeenOutcome& outcome) {
  return std::string(NameOf(outcome.route)) + " | exit code " + std::to_string(outcome.exit_code) +
         " | Result " + outcome.result + " | " + outcome.last_line;
}

std::optional<std::size_t> FindOutcome(std::span<const SeenOutcome> readings,
                                       bool has_little_memory) {
  const std::vector<Outcome>& outcomes = Outcomes();
  for (const SeenOutcome& seen : readings) {
    const auto found = std::find_if(outcomes.begin(), outcomes.end(), [&](const Outcome& outcome) {
      return (has_little_memory || outcome.source != Source::kMemory) && Fits(outcome, seen);
    });
    if (found != outcomes.end()) {
      return static_cast<std::size_t>(found - outcomes.begin());
    }
  }
  return std::nullopt;
}

std::optional<Source> SourceOf(std::span<const SeenOutcome> readings) {
  const std::optional<std::size_t> place = FindOutcome(readings);
  return place ? std::optional(Outcomes()[*place].source) : std::nullopt;
}

std::string OutcomeProblem(std::span<const SeenOutcome> readings, bool has_little_memory) {
  if (FindOutcome(readings, has_little_memory)) {
    return "";
  }
  std::string problem = "testing/outcome_table.cpp does not have this outcome:";
  for (const SeenOutcome& seen : readings) {
    problem += "\n  " + ToString(seen);
  }
  return problem;
}

}  // namespace zentpost::test
