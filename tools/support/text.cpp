#include "tools/support/text.h"

#include <algorithm>
#include <bit>
#include <cstdio>

namespace zentpost::support {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Where Windows-1252 differs from Latin-1: the characters of the bytes 0x80 to 0x9F.
constexpr char16_t kWindows1252[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool IsSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit < 0xE000;
}
bool IsPair(std::u16string_view text) {
  return text.size() > 1 && IsSurrogate(text[0]) && text[0] < 0xDC00 && IsSurrogate(text[1]) &&
         text[1] >= 0xDC00;
}

void AppendUtf8(char32_t character, std::string& utf8) {
  if (character < 0x80) {
    utf8 += static_cast<char>(character);
    return;
  }
  const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  utf8 += static_cast<char>((0xFF00u >> (more + 1) & 0xFF) | character >> 6 * more);
  for (int shift = 6 * (more - 1); shift >= 0; shift -= 6) {
    utf8 += static_cast<char>(0x80 | (character >> shift & 0x3F));
  }
}

std::string Formatted(const char* format, std::uint64_t number, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, format, digits, static_cast<unsigned long long>(number));
  return text;
}

}  // namespace

std::optional<Character> FirstCharacter(std::string_view utf8) {
  const auto lead = static_cast<unsigned char>(utf8[0]);
  if (lead < 0x80) {
    return Character{lead, 1};
  }
  const auto size = static_cast<std::size_t>(std::countl_one(lead));
  if (size < 2 || size > 4 || size > utf8.size()) {
    return std::nullopt;
  }
  char32_t code = lead & (0x7Fu >> size);
  for (const char next : utf8.substr(1, size - 1)) {
    if ((next & 0xC0) != 0x80) {
      return std::nullopt;
    }
    code = code << 6 | (static_cast<unsigned char>(next) & 0x3Fu);
  }
  constexpr char32_t kSmallest[] = {0x80, 0x800, 0x10000};
  if (code < kSmallest[size - 2] || code > 0x10FFFF || IsSurrogate(code)) {
    return std::nullopt;
  }
  return Character{code, size};
}

std::string Utf8(std::u16string_view text) {
  std::string utf8;
  utf8.reserve(text.size());
  while (!text.empty()) {
    const bool is_pair = IsPair(text);
    char32_t character = IsSurrogate(text[0]) ? kReplacement : char32_t{text[0]};
    if (is_pair) {
      character = 0x10000 + ((text[0] & 0x3FFu) << 10 | (text[1] & 0x3FFu));
    }
    AppendUtf8(character, utf8);
    text.remove_prefix(is_pair ? 2 : 1);
  }
  return utf8;
}

std::u16string Utf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  while (!utf8.empty()) {
    const auto [code, size] = FirstCharacter(utf8).value_or(Character{kReplacement, 1});
    if (code < 0x10000) {
      text += static_cast<char16_t>(code);
    } else {
      text += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
      text += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
    }
    utf8.remove_prefix(size);
  }
  return text;
}

std::optional<char> Windows1252Byte(char32_t character) {
  if (character < 0x80 || (character >= 0xA0 && character <= 0xFF)) {
    return static_cast<char>(character);
  }
  const auto* const found = std::find(std::begin(kWindows1252), std::end(kWindows1252), character);
  return found == std::end(kWindows1252)
             ? std::nullopt
             : std::optional(static_cast<char>(0x80 + (found - kWindows1252)));
}

std::string Windows1252(std::u16string_view text) {
  std::string bytes;
  for (const char16_t unit : text) {
    bytes += Windows1252Byte(unit).value_or('?');
  }
  return bytes;
}

std::u16string FromWindows1252(std::string_view bytes) {
  std::u16string text;
  for (const char byte : bytes) {
    const auto unit = static_cast<unsigned char>(byte);
    text += unit >= 0x80 && unit < 0xA0 ? kWindows1252[unit - 0x80] : char16_t{unit};
  }
  return text;
}

std::string HexDigits(std::uint64_t number, int digits) {
  return Formatted("%.*llX", number, digits);
}

std::string Hex(std::uint64_t number, int digits) {
  return Formatted("0x%.*llX", number, digits);
}

std::string LowerHex(std::uint64_t number, int digits) {
  return Formatted("0x%.*llx", number, digits);
}

std::string HexBytes(std::string_view bytes) {
  std::string digits;
  for (const char byte : bytes) {
    digits += HexDigits(static_cast<unsigned char>(byte), 2);
  }
  return digits;
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char unit : text) {
    quoted.append(unit == '"' || unit == '\\' ? "\\" : "").push_back(unit);
  }
  return quoted + "\"";
}

}  // namespace zentpost::support
