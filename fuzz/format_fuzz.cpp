#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "diag/format.h"
#include "fuzz/input.h"
#include "fuzz/targets.h"

namespace zentpost::fuzz {
namespace {

std::u16string Widened(std::string_view ascii) {
  return {ascii.begin(), ascii.end()};
}

// What the C library makes of one conversion of a number.
std::u16string Printed(const std::string& conversion, std::uint32_t number) {
  std::array<char, 128> buffer{};
  const int length = std::snprintf(buffer.data(), buffer.size(), conversion.c_str(), number);
  Require(length > 0 && static_cast<std::size_t>(length) < buffer.size());
  return Widened({buffer.data(), static_cast<std::size_t>(length)});
}

}  // namespace

// The input says what the format consists of, piece by piece.
void FuzzFormat(std::string_view input) {
  constexpr std::size_t kMostPieces = 16;
  Input pieces(input);
  std::u16string format;
  std::u16string expected;
  std::vector<std::u16string> texts;
  std::vector<FormatArgument> arguments;
  // The arguments refer to the texts, which must not move.
  texts.reserve(kMostPieces);

  for (std::size_t i = 0; i < kMostPieces && !pieces.AtEnd(); ++i) {
    const std::uint8_t kind = pieces.Byte();
    switch (kind % 8) {
      case 0: {  // literal text
        for (const char byte : pieces.Bytes(pieces.Byte() % 32)) {
          const auto unit = static_cast<char16_t>(static_cast<unsigned char>(byte) * 0x101U);
          if (unit != u'%') {
            format.push_back(unit);
            expected.push_back(unit);
          }
        }
        break;
      }
      case 1:
        format += u"%%";
        expected += u"%";
        break;
      case 2: {  // a text, of which all up to its first zero shows
        std::u16string text;
        for (const char byte : pieces.Bytes(pieces.Byte() % 32)) {
          text.push_back(static_cast<unsigned char>(byte));
        }
        format += kind % 16 < 8 ? u"%s" : u"%ws";
        expected += text.substr(0, text.find(u'\0'));
        texts.push_back(std::move(text));
        arguments.emplace_back(texts.back());
        break;
      }
      default: {  // a number
        const char type = "duxXd"[kind % 8 - 3];
        const unsigned width = pieces.Byte() % 40;
        const unsigned precision = pieces.Byte() % 20;
        std::string conversion = "%";
        // A zero flag together with a precision is not used anywhere, nor is a precision of 0.
        if (precision == 0 && width != 0 && kind >= 128) {
          conversion += '0';
        }
        if (width != 0) {
          conversion += std::to_string(width);
        }
        if (precision != 0) {
          conversion += "." + std::to_string(precision);
        }
        conversion += type;
        const std::uint32_t number = pieces.Number();
        format += Widened(conversion);
        expected += Printed(conversion, number);
        if (type == 'd') {
          arguments.emplace_back(static_cast<std::int32_t>(number));
        } else {
          arguments.emplace_back(number);
        }
        break;
      }
    }
  }
  std::u16string formatted;
  AppendFormatted(formatted, format, arguments);
  Require(formatted == expected);
}

}  // namespace zentpost::fuzz
