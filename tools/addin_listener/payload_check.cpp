#include "tools/addin_listener/payload_check.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "tools/support/text.h"
#include "tools/support/wrap.h"

namespace zentpost::addin_listener {
namespace {

using Problems = std::vector<std::string>;

constexpr char kPlainUtf8Hint[] = "; was the text sent as plain UTF-8, without the conversion?";

std::string OnWire(std::size_t offset) {
  return "byte " + std::to_string(offset) + " on the wire: ";
}

std::string InText(std::size_t offset) {
  return "byte " + std::to_string(offset) + " of the text: ";
}

constexpr std::string_view kMembers[] = {
    "Receiver", "RecipientName", "SenderName", "FileName", "AttachmentName",
    "Comment",  "Subject",       "SendTime",   "ECM",      "Preview"};
constexpr std::size_t kFirstBoolean = 8;

std::string TypeName(const cJSON* item) {
  static const std::map<int, const char*> names = {
      {cJSON_String, "a string"}, {cJSON_True, "a boolean"}, {cJSON_False, "a boolean"},
      {cJSON_Number, "a number"}, {cJSON_Array, "an array"}, {cJSON_Object, "an object"}};
  const auto found = names.find(item->type & 0xFF);
  return found == names.end() ? "null" : found->second;
}

bool EqualsButForCase(std::string_view left, std::string_view right) {
  // Names in ASCII: one bit makes the difference for letters, and nothing else is at stake here.
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return (a | 0x20) == (b | 0x20); });
}

// `text` with every control character made visible, so that it fits on one line and cannot command
// the terminal. Tabs stay where `keep_tabs`.
std::string WithoutControls(std::string_view text, bool keep_tabs) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const auto [code, size] =
        support::FirstCharacter(text.substr(i)).value_or(support::Character{'?', 1});
    if ((code < 0x20 || (code >= 0x7F && code <= 0x9F)) && !(keep_tabs && code == '\t')) {
      result += "<U+" + support::HexDigits(code, 4) + ">";
    } else {
      result += text.substr(i, size);
    }
    i += size;
  }
  return result;
}

std::string Quoted(std::string_view name) {
  return '"' + WithoutControls(name, false) + '"';
}

// What the JSON library lets pass although a stricter reader would not, or would read differently.
void CheckText(std::string_view json, Problems& problems) {
  if (json.starts_with("\xEF\xBB\xBF")) {
    problems.push_back("the text begins with a byte order mark");
  }
  bool in_string = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (c == '"') {
      in_string = !in_string;
    } else if (in_string && c == '\\') {
      if (json.substr(i).starts_with("\\u0000")) {
        problems.push_back(InText(i) + "the escape \\u0000 cuts its text short");
      }
      ++i;  // The escaped character, which may be a quotation mark.
    } else if (static_cast<unsigned char>(c) < 0x20 &&
               (in_string || (c != '\t' && c != '\n' && c != '\r'))) {
      problems.push_back(InText(i) + "control character " + support::HexBytes(json.substr(i, 1)) +
                         " where JSON allows none");
    }
  }
}

std::string ValueText(const cJSON* item) {
  if (cJSON_IsString(item)) {
    return item->valuestring;
  }
  const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(item), cJSON_free);
  return text ? text.get() : "";
}

void CheckMembers(const cJSON* parameters, PayloadReport& report) {
  Problems& problems = report.problems;
  std::array<bool, std::size(kMembers)> seen{};
  std::size_t last = 0;  // The known member with the highest place so far.
  for (const cJSON* item = parameters->child; item != nullptr; item = item->next) {
    const std::string name = item->string;
    const std::string quoted = Quoted(name);
    report.members.push_back({name, ValueText(item)});
    const auto* const known =
        std::find_if(std::begin(kMembers), std::end(kMembers),
                     [&](std::string_view member) { return EqualsButForCase(name, member); });
    const auto place = static_cast<std::size_t>(std::distance(std::begin(kMembers), known));
    if (known == std::end(kMembers) || name != *known) {
      problems.push_back("unknown member " + quoted +
                         (known == std::end(kMembers) ? "" : ": the name is " + Quoted(*known)));
      continue;
    }
    if (std::exchange(seen[place], true)) {
      problems.push_back("member " + quoted + " stands more than once");
      continue;
    }
    const bool is_boolean = place >= kFirstBoolean;
    if ((is_boolean ? cJSON_IsBool(item) : cJSON_IsString(item)) == 0) {
      problems.push_back("member " + quoted + " is " + TypeName(item) + ", not " +
                         (is_boolean ? "a boolean" : "a string"));
    }
    if (place < last) {
      problems.push_back("member " + quoted + " stands after " + Quoted(kMembers[last]) +
                         ", not before it");
    }
    last = std::max(last, place);
  }
  for (std::size_t place = 0; place < std::size(kMembers); ++place) {
    if (!seen[place]) {
      problems.push_back("member " + Quoted(kMembers[place]) + " is missing");
    }
  }
}

void CheckDocument(PayloadReport& report) {
  const std::string& json = report.json_utf8;
  Problems& problems = report.problems;
  const char* end = json.c_str();
  const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> root(
      cJSON_ParseWithLengthOpts(json.c_str(), json.size() + 1, &end, 1), cJSON_Delete);
  if (!root) {
    problems.push_back(InText(static_cast<std::size_t>(end - json.c_str())) +
                       "no JSON from here on");
    return;
  }
  CheckText(json, problems);
  if (!cJSON_IsObject(root.get())) {
    problems.push_back("the document is " + TypeName(root.get()) + ", not an object");
    return;
  }
  const std::string quoted = Quoted("Parameters");
  const cJSON* parameters = nullptr;
  for (const cJSON* item = root->child; item != nullptr; item = item->next) {
    if (std::string_view(item->string) != "Parameters") {
      problems.push_back("unknown member " + Quoted(item->string) + " beside " + quoted);
    } else if (parameters != nullptr) {
      problems.push_back("member " + quoted + " stands more than once");
    } else {
      parameters = item;
    }
  }
  if (parameters == nullptr) {
    problems.push_back("member " + quoted + " is missing");
  } else if (!cJSON_IsObject(parameters)) {
    problems.push_back("member " + quoted + " is " + TypeName(parameters) + ", not an object");
  } else {
    CheckMembers(parameters, report);
  }
}

// Undoes the sender's conversion. The sender reads its UTF-8 JSON text in its ANSI code page and
// sends the characters that it gets in UTF-8; here each character of `wire` becomes its bytes
// again. Nothing where that cannot be done with certainty or does not give UTF-8; `problem` then
// says why and where.
std::string UndoConversion(std::string_view wire, const CodePage& code_page, std::string& problem) {
  const std::string hint =
      code_page.HasPairs() ? "; " + code_page.Name() + " cannot carry every text" : kPlainUtf8Hint;
  std::string bytes;
  bytes.reserve(wire.size());
  for (std::size_t i = 0; i < wire.size();) {
    const auto character = support::FirstCharacter(wire.substr(i));
    if (!character) {
      problem = OnWire(i) + "ill-formed UTF-8 (" + support::HexBytes(wire.substr(i, 1)) + ")";
      return "";
    }
    const std::string* const code = code_page.BytesOf(character->code);
    if (code == nullptr || code->empty()) {
      problem = OnWire(i) + "character U+" + support::HexDigits(character->code, 4) + " has " +
                (code == nullptr ? "no byte" : "more than one origin") + " in " + code_page.Name() +
                hint;
      return "";
    }
    bytes += *code;
    i += character->size;
  }
  for (std::size_t i = 0; i < bytes.size();) {
    const auto character = support::FirstCharacter(std::string_view(bytes).substr(i));
    if (!character) {
      problem = InText(i) + "not UTF-8 once the conversion is undone (" +
                support::HexBytes(bytes.substr(i, 1)) + ")" + hint;
      return "";
    }
    i += character->size;
  }
  return bytes;
}

// Appends `line` in lines of a console's width. It is cut before a blank where that can be, and the
// blank stays: the value is what stands behind "> ", put together. A tab is as wide as it can be.
void AppendCut(std::string_view line, std::size_t value_column, std::string& lines) {
  std::string lead;
  while (true) {
    std::size_t columns = lead.size();
    std::size_t fitting = 0;
    std::size_t blank = 0;
    while (fitting < line.size()) {
      const auto [code, size] =
          support::FirstCharacter(line.substr(fitting)).value_or(support::Character{'?', 1});
      columns += code == '\t' ? 8 : support::Columns(code);
      if (columns > support::kConsoleColumns) {
        break;
      }
      if (code == ' ' && lead.size() + fitting > value_column) {
        blank = fitting;
      }
      fitting += size;
    }
    if (fitting < line.size() && line[fitting] == ' ') {
      blank = fitting;
    }
    const std::size_t end = fitting < line.size() && blank != 0 ? blank : fitting;
    lines.append(lead).append(line.substr(0, end)) += '\n';
    line.remove_prefix(end);
    if (line.empty()) {
      return;
    }
    lead = std::string(value_column - 2, ' ') + "> ";
  }
}

}  // namespace

PayloadReport CheckPayload(std::string_view wire, const CodePage& code_page) {
  PayloadReport report;
  std::string problem;
  report.json_utf8 = UndoConversion(wire, code_page, problem);
  report.decodable = problem.empty();
  if (report.decodable) {
    CheckDocument(report);
  } else {
    report.problems.push_back(std::move(problem));
  }
  return report;
}

PayloadReport CheckPayload(std::string_view wire) {
  static const CodePage western(1252);
  return CheckPayload(wire, western);
}

std::string FormatMembers(const std::vector<PayloadMember>& members) {
  const auto lead_of = [](const PayloadMember& member) {
    return "  " + WithoutControls(member.name, false) + ":";
  };
  std::size_t width = 0;
  for (const PayloadMember& member : members) {
    width = std::max(width, lead_of(member).size() + 1);
  }
  width = std::min(width, support::kConsoleColumns / 2);
  std::string result;
  for (const PayloadMember& member : members) {
    std::string lead = lead_of(member);
    std::string_view rest = member.value_utf8;
    for (std::size_t end = 0; end != rest.npos; lead.clear()) {
      end = rest.find_first_of("\r\n");
      const std::string_view line = rest.substr(0, end);
      if (!line.empty()) {  // no blanks at a line's end
        lead.resize(std::max(lead.size() + (lead.empty() ? 0 : 1), width), ' ');
      }
      AppendCut(lead + WithoutControls(line, true), width, result);
      if (end != rest.npos) {
        rest.remove_prefix(end + (rest.substr(end).starts_with("\r\n") ? 2 : 1));
      }
    }
  }
  return result;
}

}  // namespace zentpost::addin_listener
