// Texts in buffers of fixed size, as the steps of the send flow hand them to one another.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace zentpost {

// The space, in UTF-16 units with the terminator, for an address, an address type, a display name
// or a MIME type.
inline constexpr std::size_t kTextBufferSize = 1024;

// Copies `text` into `buffer` and ends it with a zero unit. What does not fit into `capacity`
// units, terminator included, is cut off.
inline void CopyText(std::u16string_view text, char16_t* buffer, std::size_t capacity) {
  const std::size_t length = std::min(text.size(), capacity - 1);
  std::copy_n(text.data(), length, buffer);
  buffer[length] = u'\0';
}

}  // namespace zentpost
