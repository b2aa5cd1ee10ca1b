// What the doctor reports, and how it is written: as JSON, and as text for people.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentpost::doctor {

// All texts of the machine and of the job are UTF-16 as they stand there: uncut, and perhaps
// ill-formed. The writers make each of them well-formed (what is not, and NUL, becomes U+FFFD) and
// cut it at 4,096 code points, with "... (N characters)" behind, where N counts the whole text.

enum class Severity { kError, kWarning, kNote };

struct Finding {
  std::string_view code;  // "D03", of texts.h
  Severity severity = Severity::kNote;
  std::vector<std::u16string> seen;  // what was found, one thing each
};

enum class Route { kAddin, kMapi, kFile, kSkipped, kNone };

struct Verdict {
  Route route = Route::kNone;
  bool delivered = false;
  int exit_code = 1;
  std::u16string text;  // goes on behind "the job": "would be handed to ...", without a full stop
};

struct Setting {
  std::u16string name;
  std::u16string hive;  // "HKCU", "HKLM"
  std::u16string type;  // "REG_SZ", or an unknown type's number
  std::u16string value;
  std::u16string effect;
};

enum class CandidateState { kUsable, kMissing, kOtherBitness, kLacksExports, kNoLibrary, kUnknown };

struct Candidate {
  std::optional<std::u16string> path;  // nothing: not known
  std::string_view source;             // "DllPathEx", and so on
  CandidateState state = CandidateState::kUnknown;
  std::optional<int> bitness;
  std::optional<int> exports;  // how many of the nine functions are there
  std::vector<std::string> missing_exports;
};

struct JobResult {
  std::int32_t status = 0;
  std::int32_t error_code = 0;
  std::u16string error_text;
};

// The message that the mail client would get.
struct Message {
  struct Recipient {
    std::u16string address;
    std::u16string type;
    std::u16string name;
  };
  struct Attachment {
    std::u16string name;
    std::uint64_t size = 0;  // in bytes
  };
  std::u16string subject;
  std::u16string body;
  std::u16string sender;
  std::optional<Recipient> recipient;
  std::optional<Attachment> attachment;
};

// A line of the log, or the beginning of a long one.
struct LogLine {
  std::u16string text;
  std::size_t characters = 0;  // of all of it; no more than those of `text`: that is all
};

enum class DocumentFate { kNone, kKept, kDeleted };

struct Rehearsal {
  using Field = std::pair<std::u16string, std::u16string>;
  std::optional<std::u16string> job_file;
  std::optional<std::u16string> document;
  DocumentFate document_fate = DocumentFate::kNone;
  std::optional<JobResult> result;
  std::vector<Field> fields;  // the first of each name counts
  // JSON in UTF-8, as the add-in understands it. What is no JSON object is reported as a text.
  std::optional<std::string> payload;
  std::optional<Message> message;
  std::vector<LogLine> log;
  std::vector<std::u16string> steps;
};

struct Report {
  std::string version;
  int bitness = 0;
  std::string time;  // "2026-11-21T15:04:05", local
  Verdict verdict;
  std::vector<Finding> findings;  // in their order
  std::vector<Setting> settings;
  std::vector<Candidate> candidates;
  std::optional<Rehearsal> rehearsal;
  std::vector<std::u16string> assumed;
};

// The report as a JSON object, as docs/schema/doctor.schema.json describes it, with a line feed
// behind it. Always valid UTF-8. Throws std::bad_alloc when memory runs out, as does the next one.
[[nodiscard]] std::string ReportAsJson(const Report& report);

// The report for people: UTF-8 in lines of at most 80 columns; the verdict and the first finding in
// front. What a console would obey or hide (line ends, escape sequences, marks of direction) is
// named instead, as in "<LF>" and "<U+202E>", so that no text can look like a line of the report.
// Blanks that would not show, at either end of a value or several in a row, stand as "<blank>". In
// whole sentences and lines of the log several count as one.
[[nodiscard]] std::string ReportAsText(const Report& report);

}  // namespace zentpost::doctor
