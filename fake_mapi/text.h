// Text as the mail client and who judges it need it: UTF-16 from the callers, UTF-8 in files and
// reports, and Windows-1252 for 8-bit texts, whatever code page the machine has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zentpost::fake_mapi {

// A lone surrogate becomes U+FFFD.
[[nodiscard]] std::string Utf8(std::u16string_view text);

// What is ill-formed becomes U+FFFD, one for each byte.
[[nodiscard]] std::u16string Utf16(std::string_view utf8);

// A character that Windows-1252 does not have becomes '?'.
[[nodiscard]] std::string Windows1252(std::u16string_view text);
[[nodiscard]] std::u16string FromWindows1252(std::string_view bytes);

// "0x0037001F", "0x37001f": at least `digits` digits.
[[nodiscard]] std::string Hex(std::uint64_t number, int digits = 8);
[[nodiscard]] std::string LowerHex(std::uint64_t number, int digits = 1);

// "00FF": two digits for each byte.
[[nodiscard]] std::string HexBytes(std::string_view bytes);

[[nodiscard]] std::filesystem::path Path(std::string_view utf8);
[[nodiscard]] std::string PathText(const std::filesystem::path& path);

// A file's bytes; nothing when it cannot be read.
[[nodiscard]] std::optional<std::string> ReadFileBytes(const std::filesystem::path& path);

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

}  // namespace zentpost::fake_mapi
