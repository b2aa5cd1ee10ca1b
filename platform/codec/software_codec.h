// UTF-8 and Windows-1252 conversions in software, for the back-ends without a system that does
// them. They give the results, limits and error numbers of platform/text_codec.h. Pure: no system
// call, no state, no allocation.
#pragma once

#include <cstdint>

#include "platform/status.h"
#include "platform/text_codec.h"

namespace platform::software {

// The same contracts as platform::WideToBytes and platform::BytesToWide. Both ANSI code
// pages are Windows-1252; one that is not listed gives kInvalidParameter.
[[nodiscard]] Status WideToBytes(CodePage code_page, const char16_t* text, std::int32_t length,
                                 char* bytes, std::int32_t capacity, std::int32_t& written);
[[nodiscard]] Status BytesToWide(CodePage code_page, const char* bytes, std::int32_t length,
                                 char16_t* text, std::int32_t capacity, std::int32_t& written);

}  // namespace platform::software
