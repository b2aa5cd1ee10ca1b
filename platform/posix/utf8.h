// The host speaks UTF-8, the layer UTF-16. All of this throws std::bad_alloc when memory runs out.
#pragma once

#include <string>
#include <string_view>

namespace platform {

// A lone surrogate becomes U+FFFD.
[[nodiscard]] std::string ToUtf8(std::u16string_view text);

// `bytes` is UTF-8; what is ill-formed becomes one or more U+FFFD.
[[nodiscard]] std::u16string FromUtf8(std::string_view bytes);

// A path of the layer as the host writes it: UTF-8, with each backslash as a slash.
[[nodiscard]] std::string NativePath(std::u16string_view path);

}  // namespace platform
