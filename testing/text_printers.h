// UTF-16 texts as UTF-8, for messages and comparisons that people read.
#pragma once

#include <string>
#include <string_view>

namespace zentpost::test {

// `text` in UTF-8. A zero unit and a lone surrogate, which must not hide in a comparison, stand as
// "\u" and four hexadecimal digits.
std::string Readable(std::u16string_view text);

}  // namespace zentpost::test
