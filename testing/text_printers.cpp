#include "testing/text_printers.h"

#include <cstddef>
#include <cstdint>

namespace zentpost::test {
namespace {

bool IsBetween(std::uint32_t code, std::uint32_t first, std::uint32_t last) {
  return code >= first && code <= last;
}

void AppendByte(std::string& bytes, std::uint32_t byte) {
  bytes.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
}

// The last `count` bytes of a sequence, six bits each.
void AppendTail(std::string& bytes, std::uint32_t code, unsigned count) {
  while (count > 0) {
    --count;
    AppendByte(bytes, 0x80U | ((code >> (6 * count)) & 0x3FU));
  }
}

void AppendEscaped(std::string& bytes, char16_t unit) {
  constexpr char kDigits[] = "0123456789abcdef";
  bytes += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) {
    bytes.push_back(kDigits[(unit >> shift) & 0xF]);
  }
}

}  // namespace

std::string Readable(std::u16string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t code = text[i];
    if (IsBetween(code, 0xD800, 0xDBFF) && i + 1 < text.size() &&
        IsBetween(text[i + 1], 0xDC00, 0xDFFF)) {
      ++i;
      code = 0x10000U + ((code - 0xD800U) << 10U) + (text[i] - 0xDC00U);
      AppendByte(bytes, 0xF0U | (code >> 18U));
      AppendTail(bytes, code, 3);
    } else if (code == 0 || IsBetween(code, 0xD800, 0xDFFF)) {
      AppendEscaped(bytes, text[i]);
    } else if (code < 0x80) {
      AppendByte(bytes, code);
    } else if (code < 0x800) {
      AppendByte(bytes, 0xC0U | (code >> 6U));
      AppendTail(bytes, code, 1);
    } else {
      AppendByte(bytes, 0xE0U | (code >> 12U));
      AppendTail(bytes, code, 2);
    }
  }
  return bytes;
}

}  // namespace zentpost::test
