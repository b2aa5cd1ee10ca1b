// UTF-8 from outside as the tool's own UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace zentpost {

// Converts the UTF-8 `bytes`, behind which a zero stands, and puts them behind `out`, up to the
// first zero. Ill-formed bytes become U+FFFD; a text that the system cannot convert adds nothing.
// Throws std::bad_alloc when memory runs out, and std::length_error beyond what a text can hold.
void AppendUtf8(std::u16string& out, std::string_view bytes);

}  // namespace zentpost
