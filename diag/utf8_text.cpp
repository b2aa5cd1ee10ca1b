#include "diag/utf8_text.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "platform/text_codec.h"

namespace zentpost {

void AppendUtf8(std::u16string& out, const char* bytes) {
  // A byte never gives more than one unit. The terminator is converted, too.
  const std::size_t capacity = std::strlen(bytes) + 1;
  if (!std::in_range<std::int32_t>(capacity)) {
    return;
  }
  const std::size_t start = out.size();
  out.resize(start + capacity);
  std::int32_t written = 0;
  if (platform::BytesToWide(platform::CodePage::kUtf8, bytes, -1, out.data() + start,
                            static_cast<std::int32_t>(capacity), written) != platform::kSuccess) {
    written = 0;
  }
  // No further than what was written: some systems take the terminator for a part of a sequence
  // that is cut short, and there is none then.
  const auto begin = out.begin() + static_cast<std::ptrdiff_t>(start);
  out.erase(std::find(begin, begin + written, u'\0'), out.end());
}

std::int32_t CodecLength(std::size_t units) {
  if (!std::in_range<std::int32_t>(units)) {
    throw std::length_error("text");
  }
  return static_cast<std::int32_t>(units);
}

}  // namespace zentpost
