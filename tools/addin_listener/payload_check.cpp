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

struct Member {
  const char* name;
  bool boolean;
};
constexpr Member kMembers[] = {
    {"Receiver", false}, {"RecipientName", false},  {"SenderName", false},
    {"FileName", false}, {"AttachmentName", false}, {"Comment", false},
    {"Subject", false},  {"SendTime", false},       {"ECM", true},
    {"Preview", true},
};

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
    const auto* known =
        std::find_if(std::begin(kMembers), std::end(kMembers),
                     [&](const Member& member) { return EqualsButForCase(name, member.name); });
    if (known == std::end(kMembers)) {
      problems.push_back("unknown member " + quoted);
      continue;
    }
    if (name != known->name) {
      problems.push_back("unknown member " + quoted + ": the name is " + Quoted(known->name));
      continue;
    }
    const auto place = static_cast<std::size_t>(std::distance(std::begin(kMembers), known));
    if (std::exchange(seen[place], true)) {
      problems.push_back("member " + quoted + " stands more than once");
      continue;
    }
    if ((known->boolean ? cJSON_IsBool(item) : cJSON_IsString(item)) == 0) {
      problems.push_back("member " + quoted + " is " + TypeName(item) + ", not " +
                         (known->boolean ? "a boolean" : "a string"));
    }
    if (place < last) {
      problems.push_back("member " + quoted + " stands after " + Quoted(kMembers[last].name) +
                         ", not before it");
    }
    last = std::max(last, place);
  }
  for (std::size_t place = 0; place < std::size(kMembers); ++place) {
    if (!seen[place]) {
      problems.push_back("member " + Quoted(kMembers[place].name) + " is missing");
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

// Undoes the sender's conversion. The sender reads its UTF-8 JSON text as Windows-1252, one
// character a byte, and sends these characters in UTF-8; here each character of `wire` becomes its
// byte again. Nothing where that cannot be done or does not give UTF-8; `problem` then says why and
// where.
std::string UndoConversion(std::string_view wire, std::string& problem) {
  std::string bytes;
  bytes.reserve(wire.size());
  for (std::size_t i = 0; i < wire.size();) {
    const auto character = support::FirstCharacter(wire.substr(i));
    if (!character) {
      problem = OnWire(i) + "ill-formed UTF-8 (" + support::HexBytes(wire.substr(i, 1)) + ")";
      return "";
    }
    const std::optional<char> byte = support::Windows1252Byte(character->code);
    if (!byte) {
      problem = OnWire(i) + "character U+" + support::HexDigits(character->code, 4) +
                " has no byte in Windows-1252" + kPlainUtf8Hint;
      return "";
    }
    bytes += *byte;
    i += character->size;
  }
  for (std::string_view rest = bytes; !rest.empty();) {
    const auto character = support::FirstCharacter(rest);
    if (!character) {
      problem = InText(bytes.size() - rest.size()) + "not UTF-8 once the conversion is undone (" +
                support::HexBytes(rest.substr(0, 1)) + ")" + kPlainUtf8Hint;
      return "";
    }
    rest.remove_prefix(character->size);
  }
  return bytes;
}

}  // namespace

PayloadReport CheckPayload(std::string_view wire) {
  PayloadReport report;
  std::string problem;
  report.json_utf8 = UndoConversion(wire, problem);
  if (problem.empty()) {
    CheckDocument(report);
  } else {
    report.problems.push_back(std::move(problem));
  }
  return report;
}

std::string FormatMembers(const std::vector<PayloadMember>& members) {
  std::vector<std::string> names;
  std::size_t width = 0;
  for (const PayloadMember& member : members) {
    names.push_back("  " + WithoutControls(member.name, false) + ":");
    width = std::max(width, names.back().size() + 1);
  }
  std::string result;
  for (std::size_t i = 0; i < members.size(); ++i) {
    std::string_view rest = members[i].value_utf8;
    std::string lead = names[i];
    for (bool more = true; more;) {
      const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
      result += lead;
      if (end > 0) {  // No blanks at the end of a line that has no text.
        result.append(width - lead.size(), ' ');
        result += WithoutControls(rest.substr(0, end), true);
      }
      result += '\n';
      lead.clear();
      more = end < rest.size();
      if (more) {
        rest.remove_prefix(end + (rest.substr(end).starts_with("\r\n") ? 2 : 1));
      }
    }
  }
  return result;
}

}  // namespace zentpost::addin_listener
