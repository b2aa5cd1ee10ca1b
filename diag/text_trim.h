// White space at the ends of texts.
#pragma once

#include <string_view>

namespace zentpost {

// `text` without the white space at both ends: blanks, tabs, line feeds, vertical tabs, form feeds
// and carriage returns.
[[nodiscard]] constexpr std::u16string_view Trimmed(std::u16string_view text) {
  constexpr std::u16string_view kWhiteSpace = u" \t\n\v\f\r";
  const std::size_t first = text.find_first_not_of(kWhiteSpace);
  if (first == std::u16string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

}  // namespace zentpost
