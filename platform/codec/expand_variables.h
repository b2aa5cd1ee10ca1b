// The system's way with %NAME% in a text, for the back-ends that have to do it themselves. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::software {

// Replaces each %NAME% by what `value_of(NAME)` gives (a std::optional<std::u16string>). A name
// without a value stays as it is, with both marks, and so does a last mark without a second one.
// What a value contains is not expanded again.
template <class ValueOf>
std::u16string ExpandVariables(std::u16string_view source, const ValueOf& value_of) {
  std::u16string result;
  std::size_t position = 0;
  while (position < source.size()) {
    const std::size_t first = source.find(u'%', position);
    const std::size_t second = first == source.npos ? source.npos : source.find(u'%', first + 1);
    if (second == source.npos) {
      break;
    }
    result += source.substr(position, first - position);
    const std::optional<std::u16string> value =
        value_of(source.substr(first + 1, second - first - 1));
    result += value ? std::u16string_view(*value) : source.substr(first, second - first + 1);
    position = second + 1;
  }
  return result.append(source.substr(position));
}

}  // namespace platform::software
