#include "tools/doctor/report_parts.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <set>
#include <utility>

#include "jobfile/json_memory.h"
#include "tools/support/text.h"

namespace zentpost::doctor {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// How many units the character at the start of `text` takes, which is not empty.
std::size_t CharacterSize(std::u16string_view text) {
  const bool is_pair =
      text.size() > 1 && (text[0] & 0xFC00) == 0xD800 && (text[1] & 0xFC00) == 0xDC00;
  return is_pair ? 2 : 1;
}

std::size_t CharacterSize(std::string_view utf8) {
  return support::FirstCharacter(utf8).value_or(support::Character{0, 1}).size;
}

void AppendCharacter(std::u16string_view character, std::string& utf8) {
  utf8 += character[0] == 0 ? kReplacement : support::Utf8(character);
}

void AppendCharacter(std::string_view character, std::string& utf8) {
  const auto decoded = support::FirstCharacter(character);
  utf8 += decoded && decoded->code != 0 ? character : kReplacement;
}

template <class Text>
std::string CutText(Text text, std::size_t all = 0) {
  std::string utf8;
  std::size_t characters = 0;
  for (; !text.empty(); ++characters) {
    const std::size_t size = CharacterSize(text);
    if (characters < kTextLimit) {
      AppendCharacter(text.substr(0, size), utf8);
    }
    text.remove_prefix(size);
  }
  characters = std::max(characters, all);
  if (characters > kTextLimit) {
    utf8 += "... (" + std::to_string(characters) + " characters)";
  }
  return utf8;
}

// The JSON library reads the escape of NUL as the text's end, and loses what stands behind it.
std::string WithoutEscapedNul(std::string json) {
  for (std::size_t at = json.find('\\'); at < json.size(); at = json.find('\\', at + 2)) {
    if (json.compare(at, 6, "\\u0000") == 0) {
      json.replace(at, 6, "\\uFFFD");
    }
  }
  return json;
}

// Controls, what has no width, and marks of direction.
constexpr struct {
  char32_t first;
  char32_t last;
} kUnprintable[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},      {0x61C, 0x61C},
                    {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},  {0x2060, 0x206F},
                    {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};

void AppendVisibly(char32_t code, std::string_view character, std::string& visible) {
  const bool is_unprintable =
      std::any_of(std::begin(kUnprintable), std::end(kUnprintable),
                  [code](const auto& range) { return code >= range.first && code <= range.last; });
  if (!is_unprintable) {
    visible += character;
  } else if (code == U'\t') {
    visible += "<TAB>";
  } else if (code == U'\n') {
    visible += "<LF>";
  } else if (code == U'\r') {
    visible += "<CR>";
  } else {
    visible += "<U+" + support::HexDigits(code, 4) + ">";
  }
}

std::string Visible(const std::string& utf8) {
  std::string shown;
  for (std::string_view left = utf8; !left.empty();) {
    const auto [code, size] = *support::FirstCharacter(left);
    AppendVisibly(code, left.substr(0, size), shown);
    left.remove_prefix(size);
  }
  return shown;
}

}  // namespace

const char* Name(Route route) {
  switch (route) {
    case Route::kAddin:
      return "addin";
    case Route::kMapi:
      return "mapi";
    case Route::kFile:
      return "file";
    case Route::kSkipped:
      return "skipped";
    case Route::kNone:
      break;
  }
  return "none";
}

const char* Name(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return "error";
    case Severity::kWarning:
      return "warning";
    case Severity::kNote:
      break;
  }
  return "note";
}

const char* Name(CandidateState state) {
  switch (state) {
    case CandidateState::kUsable:
      return "usable";
    case CandidateState::kMissing:
      return "missing";
    case CandidateState::kOtherBitness:
      return "other bitness";
    case CandidateState::kLacksExports:
      return "lacks exports";
    case CandidateState::kNoLibrary:
      return "no library";
    case CandidateState::kUnknown:
      break;
  }
  return "unknown";
}

const char* Name(DocumentFate fate) {
  switch (fate) {
    case DocumentFate::kKept:
      return "kept";
    case DocumentFate::kDeleted:
      return "deleted";
    case DocumentFate::kNone:
      break;
  }
  return "none";
}

CodeText TextsOf(const Finding& finding) {
  const CodeText* const texts = FindCode(finding.code);
  return texts == nullptr ? CodeText{finding.code, {}, {}, {}, {}} : *texts;
}

std::string ReportText(std::u16string_view text, std::size_t characters) {
  return CutText(text, characters);
}

std::string ReportText(std::string_view utf8) {
  return CutText(utf8);
}

std::string Shown(std::u16string_view text, std::size_t characters) {
  return Visible(ReportText(text, characters));
}

std::string Shown(std::string_view utf8) {
  return Visible(ReportText(utf8));
}

std::vector<const Rehearsal::Field*> FirstFields(const Rehearsal& rehearsal) {
  std::vector<const Rehearsal::Field*> fields;
  std::set<std::string> names;
  for (const Rehearsal::Field& field : rehearsal.fields) {
    if (names.insert(ReportText(field.first)).second) {
      fields.push_back(&field);
    }
  }
  return fields;
}

JsonTree ParsePayload(const std::string& payload) {
  if (payload.find('\0') != std::string::npos) {
    return nullptr;
  }
  const bool has_nul = payload.find("\\u0000") != std::string::npos;
  const std::string replaced = has_nul ? WithoutEscapedNul(payload) : std::string();
  const JsonMemoryWatch memory;
  JsonTree tree(cJSON_ParseWithOpts((has_nul ? replaced : payload).c_str(), nullptr, 1));
  if (memory.RanOut()) {
    throw std::bad_alloc();
  }
  return cJSON_IsObject(tree.get()) != 0 ? std::move(tree) : nullptr;
}

}  // namespace zentpost::doctor
