// A fax job as Zentpost wants it, and as it tells what became of it. All text is UTF-8, and nothing
// here needs Windows.
#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace starter {

// Nothing is started. Says why, in one sentence.
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The options of the program by name, without their hyphens; those without a value are "1".
using Options = std::map<std::string, std::string>;

extern const char kHelp[];

// Throws Refused.
Options ReadOptions(const std::vector<std::string>& words);

// Throws Refused where the path of a job file does not survive the tool's command line, which takes
// all quotes away.
void CheckPath(const std::string& path);

// The name under which the document is attached, when nobody wants another one.
std::string DisplayName(const std::string& document);

// The job file: JSON, in which every value is a text. Throws Refused for a text that would not
// arrive as it is.
std::string JobFileText(const Options& options);

// The number, and fields of a letter and a text: "0301234567;EExample Ltd;SInvoice". Throws Refused
// for what no fax command can carry.
std::string FaxCommand(const Options& options);

// What CreateProcess hands to the tool, which takes its words apart by rules of its own, and knows
// no backslash before a quote.
std::string CommandLine(const std::string& tool, const std::vector<std::string>& words);

struct Result {
  int status;
  int error_code;
  std::string error_text;
};

// The tool's Result; nothing where it wrote none.
std::optional<Result> ReadResult(const std::string& job_file);

// The program's exit codes.
enum Outcome { kDelivered = 0, kNotDelivered = 1, kNothingStarted = 2, kUnclear = 3 };

struct Judgement {
  Outcome outcome;
  std::string told;
};

// Only two witnesses that agree settle the outcome.
Judgement Judge(unsigned long exit_code, const std::optional<Result>& result);

}  // namespace starter
