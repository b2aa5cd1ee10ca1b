#include "tools/doctor/job_findings.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "addin/payload.h"
#include "addin/text_encoding.h"
#include "app/command_line.h"
#include "diag/error_texts.h"
#include "diag/text_trim.h"
#include "jobfile/commands.h"
#include "mapi/attachment_file.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/rehearsal/rehearsal.h"
#include "tools/doctor/job_file_members.h"
#include "tools/doctor/seen_text.h"

namespace zentpost::doctor {
namespace {

namespace reading = platform::reading;
namespace rehearsal = platform::rehearsal;
using platform::Status;
using platform::rehearsal::Step;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr char16_t kWholePayload[] = u"the whole payload";
constexpr char16_t kJobFilePath[] = u"the job file's path";

std::u16string StatusText(Status status) {
  return GetErrorText(status) + u" (error " + Number(status) + u")";
}

// What the conversions give, unless memory ran out over it.
template <class Text>
Text WithinMemory(std::optional<Text> text) {
  if (!text) {
    throw std::bad_alloc();
  }
  return std::move(*text);
}

// A path as it is told.
std::u16string_view Told(const std::u16string& path) {
  return path.empty() ? std::u16string_view(u"an empty path") : path;
}

void AddAltered(std::vector<Finding>& findings, const std::u16string& field,
                const std::u16string& before, const std::u16string& after) {
  AddFinding(findings, "D30", Severity::kError,
             {field, u"in the job: " + Quoted(before),
              after.empty() ? u"arrives empty" : u"arrives as: " + Quoted(after)});
}

// --- the first file ---

// The line's first file, as the tool's own loader sees it.
struct FirstFile {
  LoadedJson json;
  Status status = platform::kSuccess;  // why it cannot be read
  bool looks_like_job_file = false;
};

bool IsWhiteSpace(char byte) {
  return byte != '\0' && static_cast<unsigned char>(byte) <= ' ';
}

// Whether a file that begins so looks like a job file, in UTF-8 or, with a mark, in UTF-16.
bool BeginsLikeAJobFile(std::string start) {
  if (start.starts_with("\xFF\xFE") || start.starts_with("\xFE\xFF")) {
    start.erase(0, 2);
    std::erase(start, '\0');
  } else if (start.starts_with(kByteOrderMark)) {
    start.erase(0, kByteOrderMark.size());
  }
  const auto brace = std::find_if_not(start.begin(), start.end(), IsWhiteSpace);
  if (brace == start.end() || *brace != '{') {
    return false;
  }
  const auto next = std::find_if_not(brace + 1, start.end(), IsWhiteSpace);
  return next != start.end() && (*next == '"' || *next == '}');
}

std::string ReadStart(const std::u16string& path) {
  platform::File file;
  std::string start(4096, '\0');
  std::size_t count = 0;
  if (platform::OpenFileAt(path, platform::OpenMode::kRead, file) == platform::kSuccess) {
    // What was read before a failure counts.
    static_cast<void>(platform::ReadBytes(file, start.data(), start.size(), count));
  }
  start.resize(count);
  return start;
}

bool EndsInJson(const std::u16string& path) {
  constexpr std::u16string_view kEnd = u".json";
  return path.size() >= kEnd.size() && InLowerCase(path.substr(path.size() - kEnd.size())) == kEnd;
}

// What opening a file, asking for its size and reading its first byte come to.
Status LookAtFile(const std::u16string& path, std::uint64_t& size) {
  platform::File file;
  Status status = platform::OpenFileAt(path, platform::OpenMode::kRead, file);
  if (status == platform::kSuccess) {
    status = platform::QueryFileSize(file, size);
  }
  char byte = '\0';
  std::size_t count = 0;
  if (status == platform::kSuccess) {
    status = platform::ReadBytes(file, &byte, sizeof(byte), count);
  }
  return status;
}

// Why the tool's loader got nothing out of a file.
Status WhyUnreadable(const std::u16string& path) {
  platform::File file;
  std::uint64_t size = 0;
  Status status = platform::OpenFileAt(path, platform::OpenMode::kRead, file);
  if (status == platform::kSuccess) {
    status = platform::QueryFileSize(file, size);
  }
  if (status != platform::kSuccess) {
    return status;
  }
  platform::HeapBlock block;
  if (size >= std::numeric_limits<std::size_t>::max() ||
      platform::AllocateBlock(static_cast<std::size_t>(size) + 1, block) != platform::kSuccess) {
    return platform::kNotEnoughMemory;
  }
  std::size_t count = 0;
  status = platform::ReadBytes(file, platform::BlockData<char>(block),
                               static_cast<std::size_t>(size), count);
  return status != platform::kSuccess ? status : platform::kGeneralFailure;
}

// A document is not read again: it may be large.
FirstFile LoadFirstFile(const std::u16string& path, bool is_json) {
  FirstFile file;
  file.looks_like_job_file = EndsInJson(path) || BeginsLikeAJobFile(ReadStart(path));
  if (!is_json && !file.looks_like_job_file) {
    std::uint64_t size = 0;
    file.status = LookAtFile(path, size);
    return file;
  }
  file.json = CCommands::LoadJsonFile(path);
  if (file.json.tree == nullptr && !file.json.text) {
    file.status = WhyUnreadable(path);
  }
  return file;
}

// "line 3, column 14" of the place where parsing stopped, in characters; both begin at 1.
std::u16string PlaceOfError(const LoadedJson& json) {
  std::string_view text = platform::BlockData<const char>(json.text);
  text = text.substr(0, static_cast<std::size_t>(json.error_position - text.data()));
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  std::uint64_t line = 1;
  std::uint64_t column = 1;
  for (const char byte : text) {
    if (byte == '\n' || byte == '\r') {
      ++line;
      column = 1;
    } else if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U) {
      ++column;
    }
  }
  return u"line " + Number(line) + u", column " + Number(column);
}

// D27, of a file that is JSON.
void AddNoDocument(const std::u16string& path, const cJSON* tree, std::vector<Finding>& findings) {
  ParameterList ignored;
  if (CCommands::GetDocumentFromJson(ignored, tree)) {
    return;
  }
  std::vector<std::u16string> seen = {path};
  if (cJSON_IsObject(tree) == 0) {
    seen.emplace_back(u"the file is JSON, but no object");
  }
  for (const char* const name : {kFilePathMember, kSourceFileNameMember}) {
    std::u16string value;
    if (cJSON_IsObject(tree) != 0 &&
        GetJsonString(tree, Widened(name), value, u"") != Lookup::kFound) {
      seen.push_back(u"there is no text for " + Widened(name));
    }
  }
  findings.push_back({"D27", Severity::kError, std::move(seen)});
}

// D25 to D28, and D30 of texts that are no UTF-8.
void AddFirstFileFindings(const std::u16string& path, const JobRehearsal& job,
                          std::vector<Finding>& findings) try {
  const FirstFile file = LoadFirstFile(path, job.parameters.fromJobFile);
  if (file.status != platform::kSuccess) {
    // A document that is too large is one for all that, and D29 tells.
    if (file.status != platform::kNotEnoughMemory || file.looks_like_job_file) {
      AddFinding(findings, "D25", Severity::kError, {Told(path), StatusText(file.status)});
    }
  } else if (file.json.tree != nullptr) {
    AddNoDocument(path, file.json.tree.get(), findings);
    AddMemberFindings(file.json.tree.get(), job.parameters, findings);
  } else if (file.looks_like_job_file) {
    AddFinding(findings, "D26", Severity::kError, {Told(path), PlaceOfError(file.json)});
  }
} catch (const std::bad_alloc&) {
  // The bytes fit into memory, and what they describe does not.
  AddFinding(findings, "D25", Severity::kError,
             {Told(path), StatusText(platform::kNotEnoughMemory)});
}

// --- the document ---

// D29.
void AddDocumentFindings(const JobParameters& params, bool is_taken_by_addin,
                         std::vector<Finding>& findings) {
  if (!params.arguments.Contains(argument::kDocument)) {
    return;
  }
  const std::u16string& path = params.arguments.Value(argument::kDocument);
  const auto add = [&](Severity severity, std::u16string_view text) {
    AddFinding(findings, "D29", severity, {Told(path), text});
  };
  std::u16string complete;
  if (!path.empty() &&
      platform::ThrowWithoutMemory(reading::CompletePath(path, complete)) == platform::kSuccess &&
      complete != path) {
    add(Severity::kWarning, u"the path is relative: here it is " + Quoted(complete) +
                                u", elsewhere another file or none");
  }
  std::uint64_t size = 0;
  if (const Status status = LookAtFile(path, size); status != platform::kSuccess) {
    // D25 tells of the line's own.
    if (params.fromJobFile) {
      add(Severity::kError, StatusText(status));
    }
    return;
  }
  const Severity severity = is_taken_by_addin ? Severity::kWarning : Severity::kError;
  platform::HeapBlock block;
  if (size > kLargestAttachment) {
    add(severity, u"it has " + Number(size) + u" bytes: one of 4 GiB or more cannot be attached");
  } else if (platform::AllocateBlock(static_cast<std::size_t>(size), block) != platform::kSuccess) {
    add(severity,
        u"it has " + Number(size) + u" bytes, which do not fit into this program's memory");
  }
  if (size == 0) {
    add(Severity::kWarning, u"it is empty");
  }
  if (const Status status =
          platform::ThrowWithoutMemory(reading::WouldChange(path, reading::Change::kRemove));
      status != platform::kSuccess) {
    add(Severity::kWarning, u"it cannot be deleted and stays: " + StatusText(status));
  }
}

// --- the texts ---

// D30 of the payload.
void AddPayloadFindings(const JobParameters& params, Route route, std::vector<Finding>& findings) {
  for (const PayloadMember& member : kPayloadTexts) {
    const std::u16string& text = (params.*member.list).Value(member.entry);
    const std::u16string arrived =
        WithinMemory(FromUtf8(WithinMemory(_utf8(text.c_str())).c_str()));
    if (arrived != text) {
      AddAltered(findings, Widened(member.name), text, arrived);
    }
  }
  if (route != Route::kAddin) {
    return;
  }
  const std::string payload = CCommands::json(params);
  std::string bytes;
  if (WideToUtf8(WithinMemory(WidenThroughAnsi(payload)), bytes).outcome ==
      Utf8Result::Outcome::kNotConverted) {
    AddAltered(findings, kWholePayload, WithinMemory(FromUtf8(payload.c_str())), {});
  }
}

// D30 of the message.
void AddMessageFindings(const JobParameters& params, const Message& message,
                        std::vector<Finding>& findings) {
  const ParameterList& fields = params.faxFields;
  const auto compare = [&](const char16_t* entry, const std::u16string& before,
                           const std::u16string& after) {
    if (before != after) {
      AddAltered(findings, FieldName(entry), before, after);
    }
  };
  const auto compare_field = [&](const char16_t* entry, const std::u16string& after) {
    compare(entry, fields.Value(entry), after);
  };
  compare_field(u"S", message.subject);
  compare_field(u"K", message.body);
  compare_field(u"U", message.sender);
  if (message.recipient) {
    const std::u16string& number = fields.Value(u"+FAX");
    // Something may stand before and behind it.
    if (message.recipient->address.find(number) == std::u16string::npos) {
      AddAltered(findings, FieldName(u"+FAX"), number, message.recipient->address);
    }
    if (!fields.Value(u"E").empty()) {
      compare_field(u"E", message.recipient->name);
    }
  }
  if (message.attachment) {
    compare(argument::kDocumentName, params.arguments.Value(argument::kDocumentName),
            message.attachment->name);
  }
}

// --- the line ---

// A token as it stands in the line, and as the tool takes it.
struct Token {
  std::u16string_view raw;
  std::u16string text;
};

// The token without the pair of quotes that encloses it.
std::u16string_view Meant(const Token& token) {
  const std::u16string_view raw = token.raw;
  const bool is_enclosed =
      raw.size() > 1 && raw.front() == raw.back() && (raw.front() == u'"' || raw.front() == u'\'');
  return is_enclosed ? raw.substr(1, raw.size() - 2) : raw;
}

class LineFindings {
 public:
  LineFindings(std::u16string_view line, const JobParameters& params,
               std::vector<Finding>& findings)
      : params_(params), findings_(findings) {
    const std::vector<std::u16string> texts = SplitQuoted(line, u' ');
    for (const std::u16string& text : texts) {
      const RawToken raw = TakeToken(line, u' ');
      tokens_.push_back({raw.text, text});
      is_open_ = raw.is_open;
    }
  }

  // D31, and D30 of paths.
  void AddAll() {
    if (tokens_.empty()) {
      return;
    }
    if (is_open_) {
      AddFinding(
          findings_, "D31", Severity::kWarning,
          {u"nothing closes the last quotation mark or apostrophe, so that this is one part: " +
           Quoted(tokens_.back().raw)});
    }
    const bool is_job_file = params_.fromJobFile || EndsInJson(tokens_[0].text);
    AddChangedPath(tokens_[0], is_job_file ? argument::kJobFile : argument::kDocument);
    AddEmptyTokens();
    AddOptions();
  }

 private:
  static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

  // `name` is that of the argument which the token gives.
  void AddChangedPath(const Token& token, std::u16string_view name) {
    if (name != argument::kDocumentName && Meant(token) != token.text) {
      AddAltered(findings_,
                 name == argument::kJobFile ? kJobFilePath : FieldName(argument::kDocument),
                 std::u16string(Meant(token)), token.text);
    }
  }

  void AddEmptyTokens() {
    std::vector<std::u16string> seen;
    for (std::size_t i = 1; i < tokens_.size(); ++i) {
      if (tokens_[i].raw.empty()) {
        seen.push_back(u"part " + Number(i + 1) + u" of the line is empty: two blanks behind " +
                       Quoted(tokens_[i - 1].raw));
      }
    }
    if (!seen.empty()) {
      findings_.push_back({"D31", Severity::kWarning, std::move(seen)});
    }
  }

  void AddOptions() {
    const std::vector<ParameterList::Entry>& entries = params_.arguments.Entries();
    const std::size_t has_command =
        tokens_.size() > 1 && params_.arguments.Contains(argument::kFaxCommand) &&
                params_.arguments.Value(argument::kFaxCommand) == tokens_[1].text
            ? 1
            : 0;
    // Two tokens each, the last one perhaps without a value; their entries are the last ones.
    const std::size_t first = 1 + has_command;
    const std::size_t options = (tokens_.size() - first + 1) / 2;
    if (entries.size() < options) {
      return;  // the line was not understood, for want of memory
    }
    for (std::size_t i = 0; i < options; ++i) {
      const std::size_t at = first + 2 * i;
      const std::size_t entry = entries.size() - options + i;
      if (HasEffect(entry)) {
        if (at + 1 < tokens_.size()) {
          AddChangedPath(tokens_[at + 1], entries[entry].first);
        }
      } else if (!tokens_[at].raw.empty()) {
        AddOption(at, has_command != 0 && i == 0);
      }
    }
  }

  // Of a name the first entry counts.
  [[nodiscard]] bool HasEffect(std::size_t entry) const {
    const std::vector<ParameterList::Entry>& entries = params_.arguments.Entries();
    const std::u16string& name = entries[entry].first;
    return std::find(std::begin(argument::kLookedUp), std::end(argument::kLookedUp), name) !=
               std::end(argument::kLookedUp) &&
           std::none_of(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(entry),
                        [&](const auto& earlier) { return earlier.first == name; });
  }

  void AddOption(std::size_t at, bool follows_command) {
    std::u16string text = Quoted(tokens_[at].raw);
    if (at + 1 < tokens_.size()) {
      text += u" with the value " + Quoted(tokens_[at + 1].raw);
    }
    const bool is_option = tokens_[at].text.starts_with(u'/');
    if (is_option) {
      broken_ = kNone;
      AddFinding(findings_, "D31", Severity::kWarning, {u"the option has no effect: " + text});
    } else if (broken_ != kNone) {
      findings_[broken_].seen.push_back(u"behind it as well: " + text);
    } else if (follows_command) {
      broken_ = findings_.size();
      AddFinding(findings_, "D31", Severity::kWarning,
                 {u"a blank ends the fax command " + Quoted(tokens_[1].raw),
                  u"what stands behind it counts as an option, and has no effect: " + text});
    } else {
      AddFinding(findings_, "D31", Severity::kWarning,
                 {u"this counts as an option, and has no effect: " + text});
    }
  }

  const JobParameters& params_;
  std::vector<Finding>& findings_;
  bool is_open_ = false;
  std::vector<Token> tokens_;
  std::size_t broken_ = kNone;  // the finding of a fax command that a blank breaks
};

// --- what would be written ---

// The step in which the tool opened the file for writing; null when it did not try.
const Step* FindRewrite(const JobRehearsal& job, const std::u16string& path) {
  const auto& steps = job.record.steps;
  const auto step = std::find_if(steps.begin(), steps.end(), [&](const Step& each) {
    return each.kind == Step::Kind::kRewrite && each.what == path;
  });
  return step == steps.end() ? nullptr : &*step;
}

// D32.
void AddNoResult(const JobRehearsal& job, std::vector<Finding>& findings) {
  const std::u16string& path = job.parameters.arguments.Value(argument::kJobFile);
  const Step* const step = FindRewrite(job, path);
  if (!path.empty() && step != nullptr && step->status != platform::kSuccess) {
    AddFinding(findings, "D32", Severity::kWarning, {path, StatusText(step->status)});
  }
}

// D33.
void AddDiversion(const JobRehearsal& job, std::vector<Finding>& findings) {
  if (!job.parameters.faxFields.Contains(u"O")) {
    return;
  }
  const std::u16string path = PayloadFilePath(job.parameters.faxFields.Value(u"O"));
  Finding finding = {"D33", Severity::kWarning, {u"the job goes into " + Quoted(path)}};
  const Step* const step = FindRewrite(job, path);
  if (IsFileOfTheJob(job.parameters, path)) {
    platform::FileIdentity identity;
    const Status status = platform::IdentifyFile(path, identity);
    if (status == platform::kSuccess || status == platform::kNotSupported) {
      finding.severity = Severity::kError;
      finding.seen.emplace_back(u"this is the document or the job file: nothing is written");
    } else {
      finding.seen.push_back(u"it is no file to write to: " + StatusText(status));
    }
  } else if (step != nullptr && step->status != platform::kSuccess) {
    finding.seen.push_back(u"it cannot be written: " + StatusText(step->status));
  }
  findings.push_back(std::move(finding));
}

// Whether it tells of something for want of which nobody gets the job, or not its document.
bool IsFatal(const Finding& finding) {
  constexpr std::array<std::string_view, 6> kCodes = {"D05", "D25", "D26", "D27", "D28", "D29"};
  if (finding.severity != Severity::kError) {
    return false;
  }
  if (finding.code == "D30") {
    const std::u16string& field = finding.seen.front();
    return field == kWholePayload || field == FieldName(u"+FAX") ||
           field == FieldName(argument::kDocument) || field == FieldName(argument::kDocumentName);
  }
  return std::find(kCodes.begin(), kCodes.end(), finding.code) != kCodes.end();
}

}  // namespace

void AddJobFindings(const std::u16string& line, const JobRehearsal& job, Route route,
                    bool is_taken_by_addin, std::vector<Finding>& findings) {
  rehearsal::Begin({});
  const std::u16string_view trimmed = Trimmed(line);
  if (const std::vector<std::u16string> tokens = SplitQuoted(trimmed, u' '); !tokens.empty()) {
    AddFirstFileFindings(tokens[0], job, findings);
  }
  AddDocumentFindings(job.parameters, is_taken_by_addin, findings);
  if (route == Route::kAddin || route == Route::kFile) {
    AddPayloadFindings(job.parameters, route, findings);
  } else if (job.message) {
    AddMessageFindings(job.parameters, *job.message, findings);
  }
  LineFindings(trimmed, job.parameters, findings).AddAll();
  AddNoResult(job, findings);
  AddDiversion(job, findings);
}

void AddFalselyDelivered(const JobRehearsal& job, const Verdict& verdict,
                         std::vector<Finding>& findings) {
  if (!verdict.delivered) {
    return;
  }
  std::vector<std::u16string> reasons;
  for (const Finding& finding : findings) {
    if (IsFatal(finding)) {
      reasons.push_back(Widened(finding.code) +
                        (finding.seen.empty() ? std::u16string() : u": " + finding.seen.front()));
    }
  }
  const JobParameters& params = job.parameters;
  if (params.arguments.Value(argument::kDocument).empty() && params.faxFields.Entries().empty()) {
    reasons.emplace_back(u"the job has neither document nor fields");
  }
  if (!reasons.empty()) {
    findings.push_back({"D34", Severity::kError, std::move(reasons)});
  }
}

}  // namespace zentpost::doctor
