// The system's own conversions between UTF-16 and bytes, with the limits and error numbers of
// WideCharToMultiByte and MultiByteToWideChar called with flags 0 and no default character.
#pragma once

#include <cstdint>

#include "platform/status.h"

namespace platform {

// The values are the published code page identifiers (winnls.h).
enum class CodePage : std::uint32_t {
  kSystemAnsi = 0,  // CP_ACP: the system's ANSI code page; Windows-1252 on the host
  kThreadAnsi = 3,  // CP_THREAD_ACP: the thread's ANSI code page; Windows-1252 on the host
  kUtf8 = 65001,    // CP_UTF8
};

// Both functions take a length in source units, or -1 for a zero-terminated source (the terminator
// is then converted too), and a capacity in destination units. A capacity of 0 writes nothing and
// gives the space needed. `written` is 0 on failure:
//   kInvalidParameter    no source, a length of 0, or no destination where one is needed
//   kInsufficientBuffer  the destination is too small; its content is then unspecified
// UTF-8: a lone surrogate becomes U+FFFD; ill-formed bytes become one or more U+FFFD, and a
// sequence that the source's end cuts off may take what is left with it, the terminator too: rely
// on `written`, not on finding one. ANSI: a character without a byte becomes its best fit or the
// code page's default character.
[[nodiscard]] Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length,
                                 char* bytes, std::int32_t capacity, std::int32_t& written);
[[nodiscard]] Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length,
                                 char16_t* text, std::int32_t capacity, std::int32_t& written);

}  // namespace platform
