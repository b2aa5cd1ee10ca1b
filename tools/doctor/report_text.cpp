#include <new>
#include <utility>

#include "tools/doctor/report.h"
#include "tools/doctor/report_parts.h"
#include "tools/support/text.h"
#include "tools/support/wrap.h"

namespace zentpost::doctor {
namespace {

// A value as it is shown: each blank of it counts.
template <class Text>
std::string Value(const Text& text) {
  const std::string shown = Shown(text);
  std::string value;
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const bool is_at_end = i == 0 || i + 1 == shown.size();
    if (shown[i] == ' ' && (is_at_end || shown[i - 1] == ' ')) {
      value += "<blank>";
    } else {
      value += shown[i];
    }
  }
  return value;
}

// Where it matters that the value is there.
std::string ValueOrEmpty(const std::u16string& text) {
  return text.empty() ? "(empty)" : Value(text);
}

std::string Bits(int bitness) {
  return std::to_string(bitness) + "-bit";
}

// The parts that are not empty.
std::string Joined(const std::vector<std::string>& parts) {
  std::string joined;
  for (const std::string& part : parts) {
    joined += (joined.empty() || part.empty() ? "" : ", ") + part;
  }
  return joined;
}

// Where a text goes on in a further line: further in than any line begins, so that it looks like
// none.
constexpr std::size_t kFurtherLines = 6;

// Lines in groups with an empty line between them.
class Page {
 public:
  void BeginGroup() {
    if (!lines_.empty()) {
      lines_ += '\n';
    }
  }
  void BeginGroup(std::string_view heading) {
    BeginGroup();
    lines_ += support::Wrap(heading);
  }
  // `depth` is in steps of two columns, `further_lines` in columns.
  void Add(std::size_t depth, std::string_view text, std::size_t further_lines = kFurtherLines) {
    lines_ += support::Wrap(text, std::string(2 * depth, ' '), std::string(further_lines, ' '));
  }
  // Nothing where there is no text.
  void AddNamed(std::size_t depth, std::string_view name, std::string_view text) {
    if (!text.empty()) {
      Add(depth, std::string(name).append(": ").append(text));
    }
  }
  void AddList(const std::vector<std::u16string>& texts) {
    for (const std::u16string& text : texts) {
      Add(1, "- " + Shown(text), 4);
    }
  }
  std::string TakeLines() { return std::move(lines_); }

 private:
  std::string lines_;
};

void AddVerdict(Page& page, const Verdict& verdict, const std::vector<Finding>& findings) {
  const std::string first = findings.empty() ? "" : " (" + Shown(findings.front().code) + ")";
  page.Add(0,
           std::string("Reported as ") + (verdict.delivered ? "delivered" : "failed") +
               ", exit code " + std::to_string(verdict.exit_code) + first + ": the job " +
               Shown(verdict.text),
           2);
}

void AddFindings(Page& page, const std::vector<Finding>& findings) {
  if (findings.empty()) {
    page.BeginGroup("No findings");
  }
  for (const Finding& finding : findings) {
    const CodeText texts = TextsOf(finding);
    page.BeginGroup(Joined({Shown(texts.code), Name(finding.severity)}) + ": " +
                    std::string(texts.title));
    page.AddList(finding.seen);
    if (!texts.remedy.empty()) {
      page.Add(1, "Remedy: " + std::string(texts.remedy), 4);
    }
  }
}

void AddSettings(Page& page, const std::vector<Setting>& settings) {
  if (settings.empty()) {
    return;
  }
  page.BeginGroup("Settings");
  for (const Setting& setting : settings) {
    page.Add(1, Value(setting.name) + " = " + ValueOrEmpty(setting.value) + " (" +
                    Joined({Value(setting.hive), Value(setting.type)}) + ")");
    page.Add(2, Shown(setting.effect));
  }
}

void AddCandidates(Page& page, const std::vector<Candidate>& candidates) {
  if (candidates.empty()) {
    return;
  }
  page.BeginGroup("MAPI libraries, in the order in which they are tried");
  int number = 0;
  for (const Candidate& candidate : candidates) {
    page.Add(1, std::to_string(++number) + ". " +
                    (candidate.path ? Value(*candidate.path) : "path not known"));
    page.Add(2, Joined({Name(candidate.state), candidate.bitness ? Bits(*candidate.bitness) : "",
                        candidate.exports ? std::to_string(*candidate.exports) + " functions" : "",
                        "from " + Value(candidate.source)}));
    std::vector<std::string> missing;
    for (const std::string& name : candidate.missing_exports) {
      missing.push_back(Value(name));
    }
    page.AddNamed(2, "Without", Joined(missing));
  }
}

// The members of a payload that hold anything, without the objects around them. As deep as the
// library parses.
void AddMembers(Page& page, const cJSON* tree) {
  for (const cJSON* child = tree->child; child != nullptr; child = child->next) {
    if (cJSON_IsObject(child) != 0 || cJSON_IsArray(child) != 0) {
      AddMembers(page, child);
      continue;
    }
    const bool is_text = cJSON_IsString(child) != 0;
    const JsonText text(is_text ? nullptr : cJSON_PrintUnformatted(child));
    if (!is_text && text == nullptr) {
      throw std::bad_alloc();
    }
    page.AddNamed(2, Value(std::string_view(child->string == nullptr ? "-" : child->string)),
                  Value(std::string_view(is_text ? child->valuestring : text.get())));
  }
}

void AddPayload(Page& page, const std::string& payload) {
  page.Add(1, "Payload, " + std::to_string(payload.size()) + " bytes:");
  if (const JsonTree tree = ParsePayload(payload); tree != nullptr) {
    AddMembers(page, tree.get());
  } else {
    page.Add(2, Value(std::string_view(payload)));
  }
}

void AddMessage(Page& page, const Message& message) {
  page.Add(1, "Message:");
  page.AddNamed(2, "Subject", Value(message.subject));
  page.AddNamed(2, "Sender", Value(message.sender));
  if (message.recipient) {
    const std::string type = Value(message.recipient->type);
    page.AddNamed(2, "Recipient",
                  Joined({Value(message.recipient->name),
                          type + (type.empty() ? "" : ":") + Value(message.recipient->address)}));
  }
  if (message.attachment) {
    page.AddNamed(2, "Attachment",
                  Joined({Value(message.attachment->name),
                          std::to_string(message.attachment->size) + " bytes"}));
  }
  page.AddNamed(2, "Text", Value(message.body));
}

std::string Outcome(const JobResult& result) {
  std::string code = "ErrorCode " + std::to_string(result.error_code);
  if (result.error_code < 0) {
    code += " (" + support::LowerHex(static_cast<std::uint32_t>(result.error_code), 8) + ")";
  }
  return Joined({"Status " + std::to_string(result.status), code, Value(result.error_text)});
}

void AddRehearsal(Page& page, const Rehearsal& rehearsal) {
  page.BeginGroup("What the tool would do with this job");
  page.Add(1, "Document: " + (rehearsal.document ? Value(*rehearsal.document) + ", " : "") +
                  Name(rehearsal.document_fate));
  if (rehearsal.job_file) {
    page.AddNamed(1, "Job file", Value(*rehearsal.job_file));
  }
  if (rehearsal.result) {
    page.AddNamed(1, "Result in the job file", Outcome(*rehearsal.result));
  }
  if (!rehearsal.fields.empty()) {
    page.Add(1, "Fields:");
    for (const Rehearsal::Field* field : FirstFields(rehearsal)) {
      page.AddNamed(2, Value(field->first), ValueOrEmpty(field->second));
    }
  }
  if (rehearsal.payload) {
    AddPayload(page, *rehearsal.payload);
  }
  if (rehearsal.message) {
    AddMessage(page, *rehearsal.message);
  }
  if (!rehearsal.steps.empty()) {
    page.BeginGroup("Its steps");
    int number = 0;
    for (const std::u16string& step : rehearsal.steps) {
      page.Add(1, std::to_string(++number) + ". " + Shown(step));
    }
  }
  if (!rehearsal.log.empty()) {
    page.BeginGroup("Its log");
    for (const LogLine& line : rehearsal.log) {
      page.Add(1, Shown(line.text, line.characters));
    }
  }
}

}  // namespace

std::string ReportAsText(const Report& report) {
  Page page;
  AddVerdict(page, report.verdict, report.findings);
  AddFindings(page, report.findings);
  AddSettings(page, report.settings);
  AddCandidates(page, report.candidates);
  if (report.rehearsal) {
    AddRehearsal(page, *report.rehearsal);
  }
  if (!report.assumed.empty()) {
    page.BeginGroup("Assumed");
    page.AddList(report.assumed);
  }
  page.BeginGroup();
  page.Add(0, Joined({"zentpost_doctor " + Value(report.version), Bits(report.bitness),
                      Value(report.time)}));
  return page.TakeLines();
}

}  // namespace zentpost::doctor
