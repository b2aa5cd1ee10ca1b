// What both forms of the report are made of: its words, and texts that are cut and well-formed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "jobfile/commands.h"
#include "tools/doctor/report.h"
#include "tools/doctor/texts.h"

namespace zentpost::doctor {

// The words that stand for the values: "addin", "error", "other bitness", "kept". Do not throw.
[[nodiscard]] const char* Name(Route route);
[[nodiscard]] const char* Name(Severity severity);
[[nodiscard]] const char* Name(CandidateState state);
[[nodiscard]] const char* Name(DocumentFate fate);

// The texts of a finding's code; all of them empty but the code itself when there is no such one.
// Does not throw.
[[nodiscard]] CodeText TextsOf(const Finding& finding);

// A character is a code point; what is replaced counts as one.
inline constexpr std::size_t kTextLimit = 4096;

// `text` as well-formed UTF-8 without NUL. A lone surrogate, a byte that is no UTF-8 and NUL, which
// the JSON library would take for the end, become U+FFFD each. Of more than kTextLimit characters
// the first so many are left, with "... (N characters)" behind them, where N counts the whole text.
// Converts no more than is left. Throws std::bad_alloc when memory runs out.
// `characters` counts the whole where `text` is only its beginning, which is longer than what is
// left.
[[nodiscard]] std::string ReportText(std::u16string_view text, std::size_t characters = 0);
[[nodiscard]] std::string ReportText(std::string_view utf8);

// The same, as a console shows it and in one line: what a console would obey or hide (line ends,
// escape sequences, marks of direction) is named, as in "<LF>" and "<U+202E>".
[[nodiscard]] std::string Shown(std::u16string_view text, std::size_t characters = 0);
[[nodiscard]] std::string Shown(std::string_view utf8);

// The first field of each name, in their order. Names that the report writes alike are one: an
// object of JSON has a name once. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::vector<const Rehearsal::Field*> FirstFields(const Rehearsal& rehearsal);

// The tree of a payload in UTF-8, whose texts are neither cut nor well-formed yet, and in which NUL
// has become U+FFFD; null when it is not one JSON object and nothing else (one nested more than
// 1000 deep counts as none). Throws std::bad_alloc when memory runs out.
[[nodiscard]] JsonTree ParsePayload(const std::string& payload);

}  // namespace zentpost::doctor
