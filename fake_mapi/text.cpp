#include "fake_mapi/text.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace zentpost::fake_mapi {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Where Windows-1252 differs from Latin-1: the characters of the bytes 0x80 to 0x9F. The five bytes
// that stand for nothing are themselves, as Windows has it.
constexpr std::array<char16_t, 32> kWindows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool IsHigh(char32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLow(char32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

void AppendUtf8(std::string& result, char32_t character) {
  const auto append = [&result](char32_t byte) { result += static_cast<char>(byte); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0 | (character >> 6));
    append(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    append(0xE0 | (character >> 12));
    append(0x80 | ((character >> 6) & 0x3F));
    append(0x80 | (character & 0x3F));
  } else {
    append(0xF0 | (character >> 18));
    append(0x80 | ((character >> 12) & 0x3F));
    append(0x80 | ((character >> 6) & 0x3F));
    append(0x80 | (character & 0x3F));
  }
}

// The character at the start of `utf8` and how many bytes it has; one byte for what is ill-formed.
char32_t FirstCharacter(std::string_view utf8, std::size_t& length) {
  const auto byte = [utf8](std::size_t i) {
    return static_cast<char32_t>(static_cast<unsigned char>(utf8[i]));
  };
  const char32_t first = byte(0);
  length = 1;
  if (first < 0x80) {
    return first;
  }
  const std::size_t wanted = first >= 0xF0 && first < 0xF8   ? 4
                             : first >= 0xE0 && first < 0xF0 ? 3
                             : first >= 0xC0 && first < 0xE0 ? 2
                                                             : 1;
  if (wanted == 1 || utf8.size() < wanted) {
    return kReplacement;
  }
  char32_t character = first & (0x7Fu >> wanted);
  for (std::size_t i = 1; i < wanted; ++i) {
    if ((byte(i) & 0xC0) != 0x80) {
      return kReplacement;
    }
    character = (character << 6) | (byte(i) & 0x3F);
  }
  constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
  if (character < kSmallest[wanted] || character > 0x10FFFF || IsHigh(character) ||
      IsLow(character)) {
    return kReplacement;
  }
  length = wanted;
  return character;
}

std::string Digits(std::uint64_t number, int count, const char* digits) {
  std::string result;
  while (number != 0 || static_cast<int>(result.size()) < count) {
    result.insert(result.begin(), digits[number % 16]);
    number /= 16;
  }
  return result;
}

}  // namespace

std::string Utf8(std::u16string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t character = text[i];
    if (IsHigh(character) && i + 1 < text.size() && IsLow(text[i + 1])) {
      character = 0x10000 + ((character - 0xD800) << 10) + (char32_t{text[i + 1]} - 0xDC00);
      ++i;
    } else if (IsHigh(character) || IsLow(character)) {
      character = kReplacement;
    }
    AppendUtf8(result, character);
  }
  return result;
}

std::u16string Utf16(std::string_view utf8) {
  std::u16string result;
  result.reserve(utf8.size());
  while (!utf8.empty()) {
    std::size_t length = 1;
    const char32_t character = FirstCharacter(utf8, length);
    utf8.remove_prefix(length);
    if (character < 0x10000) {
      result += static_cast<char16_t>(character);
    } else {
      result += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
      result += static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF));
    }
  }
  return result;
}

std::string Windows1252(std::u16string_view text) {
  std::string result;
  for (const char16_t unit : text) {
    const auto special = std::find(kWindows1252.begin(), kWindows1252.end(), unit);
    if (special != kWindows1252.end()) {
      result += static_cast<char>(0x80 + (special - kWindows1252.begin()));
    } else if (unit < 0x80 || (unit >= 0xA0 && unit < 0x100)) {
      result += static_cast<char>(unit);
    } else {
      result += '?';
    }
  }
  return result;
}

std::u16string FromWindows1252(std::string_view bytes) {
  std::u16string result;
  for (const char byte : bytes) {
    const auto unit = static_cast<unsigned char>(byte);
    result += unit >= 0x80 && unit < 0xA0 ? kWindows1252[unit - 0x80u] : char16_t{unit};
  }
  return result;
}

std::string Hex(std::uint64_t number, int digits) {
  return "0x" + Digits(number, digits, "0123456789ABCDEF");
}

std::string LowerHex(std::uint64_t number, int digits) {
  return "0x" + Digits(number, digits, "0123456789abcdef");
}

std::string HexBytes(std::string_view bytes) {
  std::string result;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    result += "0123456789ABCDEF"[value / 16];
    result += "0123456789ABCDEF"[value % 16];
  }
  return result;
}

std::filesystem::path Path(std::string_view utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string PathText(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::optional<std::string> ReadFileBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  std::string bytes;
  std::array<char, 65536> piece;
  do {
    // Unlike the iterators of the stream's buffer this throws nothing, whatever `path` is.
    file.read(piece.data(), piece.size());
    bytes.append(piece.data(), static_cast<std::size_t>(file.gcount()));
  } while (file);
  return file.bad() ? std::nullopt : std::optional(bytes);
}

}  // namespace zentpost::fake_mapi
