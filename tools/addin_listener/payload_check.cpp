#include "tools/addin_listener/payload_check.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>

namespace zentpost::addin_listener {
namespace {

// The characters of the bytes 80 to 9F in Windows-1252, as Unicode publishes them. Everywhere else
// the character has the byte's own number. 0 marks the five undefined bytes.
constexpr std::array<char16_t, 32> kWindows1252 = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

constexpr char kPlainUtf8Hint[] = "; was the text sent as plain UTF-8, without the conversion?";

std::string Hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "%0*X", digits, static_cast<unsigned>(value));
  return text;
}

struct Utf8Character {
  char32_t code;
  std::size_t length;
};

// The character that begins at `offset`; nothing for ill-formed UTF-8 (overlong forms, surrogates
// and numbers above 10FFFF included).
std::optional<Utf8Character> DecodeUtf8(std::string_view text, std::size_t offset) {
  const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
  const unsigned char lead = byte(offset);
  if (lead < 0x80) {
    return Utf8Character{lead, 1};
  }
  std::size_t length = 0;
  char32_t code = 0;
  char32_t smallest = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2;
    code = lead & 0x1Fu;
    smallest = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    code = lead & 0x0Fu;
    smallest = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    code = lead & 0x07u;
    smallest = 0x10000;
  } else {
    return std::nullopt;
  }
  if (length > text.size() - offset) {
    return std::nullopt;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(offset + i) & 0xC0) != 0x80) {
      return std::nullopt;
    }
    code = (code << 6) | (byte(offset + i) & 0x3Fu);
  }
  if (code < smallest || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
    return std::nullopt;
  }
  return Utf8Character{code, length};
}

std::optional<char> Windows1252Byte(char32_t code) {
  if (code < 0x80 || (code >= 0xA0 && code <= 0xFF)) {
    return static_cast<char>(code);
  }
  if (code >= 0x80 && code <= 0x9F) {
    // Only an undefined byte is read as the control character of its own number.
    return kWindows1252[code - 0x80] == 0 ? std::optional(static_cast<char>(code)) : std::nullopt;
  }
  const auto* found = std::find(kWindows1252.begin(), kWindows1252.end(), code);
  if (found == kWindows1252.end()) {
    return std::nullopt;
  }
  return static_cast<char>(0x80 + std::distance(kWindows1252.begin(), found));
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
constexpr std::size_t kUnknown = std::size(kMembers);
constexpr char kParameters[] = "Parameters";

struct TreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

struct PrintDeleter {
  void operator()(char* text) const { cJSON_free(text); }
};

const char* TypeName(const cJSON* item) {
  if (cJSON_IsString(item)) {
    return "a string";
  }
  if (cJSON_IsBool(item)) {
    return "a boolean";
  }
  if (cJSON_IsNumber(item)) {
    return "a number";
  }
  if (cJSON_IsArray(item)) {
    return "an array";
  }
  if (cJSON_IsObject(item)) {
    return "an object";
  }
  return "null";
}

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualsButForCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return LowerAscii(a) == LowerAscii(b); });
}

bool IsControl(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code <= 0x9F);
}

// `text` with every control character made visible, so that it fits on one line and cannot command
// the terminal. Tabs stay where `keep_tabs`.
std::string WithoutControls(std::string_view text, bool keep_tabs) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    const std::optional<Utf8Character> character = DecodeUtf8(text, i);
    const std::size_t length = character ? character->length : 1;
    if (character && IsControl(character->code) && !(keep_tabs && character->code == '\t')) {
      result += "<U+" + Hex(character->code, 4) + ">";
    } else {
      result += text.substr(i, length);
    }
    i += length;
  }
  return result;
}

std::string Quoted(std::string_view name) {
  return '"' + WithoutControls(name, false) + '"';
}

// What the JSON library lets pass although a stricter reader would not, or would read differently.
void CheckText(std::string_view json, std::vector<std::string>& problems) {
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
        problems.push_back("byte " + std::to_string(i) +
                           " of the text: the escape \\u0000 cuts its text short");
      }
      ++i;  // The escaped character, which may be a quotation mark.
    } else if (static_cast<unsigned char>(c) < 0x20 &&
               (in_string || (c != '\t' && c != '\n' && c != '\r'))) {
      problems.push_back("byte " + std::to_string(i) + " of the text: control character " +
                         Hex(static_cast<unsigned char>(c), 2) + " where JSON allows none");
    }
  }
}

std::string ValueText(const cJSON* item) {
  if (cJSON_IsString(item)) {
    return item->valuestring;
  }
  const std::unique_ptr<char, PrintDeleter> text(cJSON_PrintUnformatted(item));
  return text ? text.get() : "";
}

void CheckMembers(const cJSON* parameters, PayloadReport& report) {
  std::array<bool, std::size(kMembers)> seen{};
  std::size_t last = kUnknown;  // The known member with the highest place so far.
  for (const cJSON* item = parameters->child; item != nullptr; item = item->next) {
    const std::string name = item->string;
    report.members.push_back({name, ValueText(item)});

    std::size_t place = 0;
    while (place < kUnknown && name != kMembers[place].name) {
      ++place;
    }
    if (place == kUnknown) {
      const auto* similar =
          std::find_if(std::begin(kMembers), std::end(kMembers),
                       [&](const Member& member) { return EqualsButForCase(name, member.name); });
      report.problems.push_back(similar == std::end(kMembers)
                                    ? "unknown member " + Quoted(name)
                                    : "unknown member " + Quoted(name) + ": the name is " +
                                          Quoted(similar->name));
      continue;
    }
    if (seen[place]) {
      report.problems.push_back("member " + Quoted(name) + " stands more than once");
      continue;
    }
    seen[place] = true;
    const bool right_type =
        kMembers[place].boolean ? cJSON_IsBool(item) != 0 : cJSON_IsString(item) != 0;
    if (!right_type) {
      report.problems.push_back("member " + Quoted(name) + " is " + TypeName(item) + ", not " +
                                (kMembers[place].boolean ? "a boolean" : "a string"));
    }
    if (last != kUnknown && place < last) {
      report.problems.push_back("member " + Quoted(name) + " stands after " +
                                Quoted(kMembers[last].name) + ", not before it");
    } else {
      last = place;
    }
  }
  for (std::size_t place = 0; place < std::size(kMembers); ++place) {
    if (!seen[place]) {
      report.problems.push_back("member " + Quoted(kMembers[place].name) + " is missing");
    }
  }
}

void CheckDocument(PayloadReport& report) {
  const std::string& json = report.json_utf8;
  const char* end = nullptr;
  const Tree root(cJSON_ParseWithLengthOpts(json.c_str(), json.size() + 1, &end, 1));
  const auto offset = end == nullptr ? 0 : static_cast<std::size_t>(end - json.c_str());
  if (!root) {
    report.problems.push_back("byte " + std::to_string(offset) +
                              " of the text: no JSON from here on");
    return;
  }
  CheckText(json, report.problems);
  if (!cJSON_IsObject(root.get())) {
    report.problems.push_back(std::string("the document is ") + TypeName(root.get()) +
                              ", not an object");
    return;
  }
  const cJSON* parameters = nullptr;
  for (const cJSON* item = root->child; item != nullptr; item = item->next) {
    if (std::string_view(item->string) != kParameters) {
      report.problems.push_back("unknown member " + Quoted(item->string) + " beside " +
                                Quoted(kParameters));
    } else if (parameters != nullptr) {
      report.problems.push_back("member " + Quoted(kParameters) + " stands more than once");
    } else {
      parameters = item;
    }
  }
  if (parameters == nullptr) {
    report.problems.push_back("member " + Quoted(kParameters) + " is missing");
  } else if (!cJSON_IsObject(parameters)) {
    report.problems.push_back("member " + Quoted(kParameters) + " is " + TypeName(parameters) +
                              ", not an object");
  } else {
    CheckMembers(parameters, report);
  }
}

}  // namespace

bool UndoWireConversion(std::string_view wire, std::string& json_utf8, std::string& problem) {
  json_utf8.clear();
  problem.clear();
  std::string bytes;
  bytes.reserve(wire.size());
  for (std::size_t i = 0; i < wire.size();) {
    const std::optional<Utf8Character> character = DecodeUtf8(wire, i);
    if (!character) {
      problem = "byte " + std::to_string(i) + " on the wire: ill-formed UTF-8 (" +
                Hex(static_cast<unsigned char>(wire[i]), 2) + ")";
      return false;
    }
    const std::optional<char> byte = Windows1252Byte(character->code);
    if (!byte) {
      problem = "byte " + std::to_string(i) + " on the wire: character U+" +
                Hex(character->code, 4) + " has no byte in Windows-1252" + kPlainUtf8Hint;
      return false;
    }
    bytes += *byte;
    i += character->length;
  }
  for (std::size_t i = 0; i < bytes.size();) {
    const std::optional<Utf8Character> character = DecodeUtf8(bytes, i);
    if (!character) {
      problem = "byte " + std::to_string(i) +
                " of the text: not UTF-8 once the conversion is undone (" +
                Hex(static_cast<unsigned char>(bytes[i]), 2) + ")" + kPlainUtf8Hint;
      return false;
    }
    i += character->length;
  }
  json_utf8 = std::move(bytes);
  return true;
}

PayloadReport CheckPayload(std::string_view wire) {
  PayloadReport report;
  std::string problem;
  if (UndoWireConversion(wire, report.json_utf8, problem)) {
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
