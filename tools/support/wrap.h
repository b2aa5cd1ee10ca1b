// Text in lines of a console's width.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zentpost::support {

inline constexpr std::size_t kConsoleColumns = 80;

// How many a character takes: two for one of East Asia.
[[nodiscard]] std::size_t Columns(char32_t character);

// The words of `text` (UTF-8; blanks, tabs and line ends stand between them) in lines of at most
// `columns` columns, each with a line feed behind it. Characters of East Asia take two. The first
// line begins with `first`, each further one with `next`, which leave two columns at least, and no
// line ends with a blank. A word that is longer than a line is cut. A text without words gives
// `first` alone, and nothing where that is blank. Throws std::bad_alloc when memory runs out.
[[nodiscard]] std::string Wrap(std::string_view text, std::string_view first = "",
                               std::string_view next = "", std::size_t columns = kConsoleColumns);

}  // namespace zentpost::support
