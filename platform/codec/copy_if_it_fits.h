// The system's way of handing out a text, for the back-ends that have to do it themselves. Pure.
#pragma once

#include <cstdint>
#include <string_view>

namespace platform::software {

// Copies `text` and a terminator into the `capacity` units at `buffer`, or nothing when it does not
// fit. Gives its length; when it does not fit, the capacity that it needs.
inline std::uint32_t CopyIfItFits(std::u16string_view text, char16_t* buffer,
                                  std::uint32_t capacity) {
  const auto length = static_cast<std::uint32_t>(text.size());
  if (length >= capacity) {
    return length + 1;
  }
  text.copy(buffer, length);
  buffer[length] = u'\0';
  return length;
}

}  // namespace platform::software
