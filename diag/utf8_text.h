// UTF-8 from outside as the tool's own UTF-16, and the longest text that the codec takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zentpost {

// Converts the zero-terminated UTF-8 `bytes` and puts them behind `out`, up to the first zero.
// Ill-formed bytes become U+FFFD; a text that the system cannot convert adds nothing. Throws
// std::bad_alloc when memory runs out, and std::length_error beyond what a text can hold.
void AppendUtf8(std::u16string& out, const char* bytes);

// A length in bytes or UTF-16 units as the codec counts it. Throws std::length_error from 2^31 on.
std::int32_t CodecLength(std::size_t units);

}  // namespace zentpost
