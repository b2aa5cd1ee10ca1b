// Text for the tools and for what judges the product: none of it is the product's own, and all of
// it is the same on every system, whatever code page that has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zentpost::support {

struct Character {
  char32_t code;
  std::size_t size;  // in UTF-8
};
// The character at the start of `utf8`, which is not empty; nothing where that is ill-formed
// (overlong forms, surrogates and numbers above 10FFFF included).
[[nodiscard]] std::optional<Character> FirstCharacter(std::string_view utf8);

// What is ill-formed becomes U+FFFD: a lone surrogate, and each byte of ill-formed UTF-8.
[[nodiscard]] std::string Utf8(std::u16string_view text);
[[nodiscard]] std::u16string Utf16(std::string_view utf8);

// The byte of a character in Windows-1252; nothing when it has none. The five bytes that stand for
// nothing are the control characters of their numbers.
[[nodiscard]] std::optional<char> Windows1252Byte(char32_t character);
// With '?' for what has no byte.
[[nodiscard]] std::string Windows1252(std::u16string_view text);
[[nodiscard]] std::u16string FromWindows1252(std::string_view bytes);

// "001F": at least `digits` digits. "0x0037001F", "0x37001f": the same with the usual beginning.
[[nodiscard]] std::string HexDigits(std::uint64_t number, int digits);
[[nodiscard]] std::string Hex(std::uint64_t number, int digits = 8);
[[nodiscard]] std::string LowerHex(std::uint64_t number, int digits = 1);
// "00FF": two digits for each byte.
[[nodiscard]] std::string HexBytes(std::string_view bytes);

// In quotation marks, with a backslash before each of these and before each backslash.
[[nodiscard]] std::string Quoted(std::string_view text);

// A zero-terminated text of 16-bit units, whatever the headers call their type; null is empty.
template <class Unit>
[[nodiscard]] std::u16string FromWide(const Unit* text) {
  static_assert(sizeof(Unit) == sizeof(char16_t));
  std::u16string result;
  for (; text != nullptr && *text != 0; ++text) {
    result += static_cast<char16_t>(*text);
  }
  return result;
}

}  // namespace zentpost::support
