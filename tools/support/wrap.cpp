#include "tools/support/wrap.h"

#include <algorithm>
#include <iterator>

#include "tools/support/text.h"

namespace zentpost::support {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// The blocks that have characters of two columns (published in Unicode's EastAsianWidth.txt as W
// and F).
constexpr struct {
  char32_t first;
  char32_t last;
} kWide[] = {{0x1100, 0x115F},  {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
             {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
             {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
             {0x20000, 0x3FFFD}};

}  // namespace

std::size_t Columns(char32_t character) {
  const bool is_wide = std::any_of(std::begin(kWide), std::end(kWide), [&](const auto& block) {
    return character >= block.first && character <= block.last;
  });
  return is_wide ? 2 : 1;
}

namespace {

// How much of `utf8` stands in so many columns, in bytes, and in how many of them.
struct Extent {
  std::size_t bytes = 0;
  std::size_t columns = 0;
};
Extent Measure(std::string_view utf8, std::size_t most_columns) {
  Extent extent;
  while (extent.bytes < utf8.size()) {
    const Character character =
        FirstCharacter(utf8.substr(extent.bytes)).value_or(Character{0xFFFD, 1});
    const std::size_t columns = Columns(character.code);
    if (extent.columns + columns > most_columns) {
      break;
    }
    extent.bytes += character.size;
    extent.columns += columns;
  }
  return extent;
}

std::size_t Columns(std::string_view utf8) {
  return Measure(utf8, 2 * utf8.size()).columns;
}

// The text's first word, which is taken off it; empty when there is none left.
std::string_view TakeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

void AppendLine(std::string& lines, const std::string& line) {
  lines.append(line, 0, line.find_last_not_of(' ') + 1) += '\n';
}

}  // namespace

std::string Wrap(std::string_view text, std::string_view first, std::string_view next,
                 std::size_t columns) {
  std::string lines;
  std::string line(first);
  bool has_word = false;
  for (std::string_view word = TakeWord(text); !word.empty(); word = TakeWord(text)) {
    if (has_word && Columns(line) + 1 + Columns(word) > columns) {
      AppendLine(lines, line);
      line = next;
      has_word = false;
    }
    if (has_word) {
      line += ' ';
    }
    while (Columns(line) + Columns(word) > columns) {
      const std::size_t fitting = Measure(word, columns - Columns(line)).bytes;
      AppendLine(lines, line.append(word.substr(0, fitting)));
      word.remove_prefix(fitting);
      line = next;
    }
    line += word;
    has_word = true;
  }
  if (line.find_first_not_of(' ') != std::string::npos) {
    AppendLine(lines, line);
  }
  return lines;
}

}  // namespace zentpost::support
