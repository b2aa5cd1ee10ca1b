// What the doctor's codes mean, for the person on the telephone with a user.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zentpost::doctor {

// All of it ASCII on one line, with a full stop behind each sentence; the title has at most 60
// characters and no full stop.
struct CodeText {
  std::string_view code;  // "D01"
  std::string_view title;
  std::string_view meaning;
  std::string_view cause;
  std::string_view remedy;
};

// D01 to D35, in their order. Does not throw.
[[nodiscard]] std::span<const CodeText> CodeTexts();

// The row of a code, whose letter may be small ("d13"); null when there is no such code. Does not
// throw.
[[nodiscard]] const CodeText* FindCode(std::string_view code);

// Title, meaning, cause and remedy in lines of at most 80 columns, as a console prints them; empty
// when there is no such code. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string Explain(std::string_view code);

}  // namespace zentpost::doctor
