#include "tools/addin_listener/code_page.h"

#include <iconv.h>

#include <map>
#include <stdexcept>
#include <utility>

namespace zentpost::addin_listener {
namespace {

// What Windows makes of a byte that the code page leaves undefined: a control character as a rule.
char16_t Undefined(unsigned code_page, unsigned byte) {
  static const std::map<std::pair<unsigned, unsigned>, char16_t> odd = {{{1253, 0xAA}, 0xF8F9},
                                                                        {{1253, 0xD2}, 0xF8FA},
                                                                        {{1253, 0xFF}, 0xF8FB},
                                                                        {{932, 0xA0}, 0xF8F0},
                                                                        {{936, 0x80}, 0x20AC}};
  const auto found = odd.find({code_page, byte});
  return found == odd.end() ? static_cast<char16_t>(byte) : found->second;
}

// What it makes of the pairs that 936 leaves to its users, in three areas; 0 outside of them.
unsigned UserDefined936(unsigned first, unsigned second) {
  if (first >= 0xAA && first <= 0xAF && second >= 0xA1) {
    return 0xE000 + 94 * (first - 0xAA) + second - 0xA1;
  }
  if (first >= 0xF8 && second >= 0xA1) {
    return 0xE234 + 94 * (first - 0xF8) + second - 0xA1;
  }
  if (first >= 0xA1 && first <= 0xA7 && second <= 0xA0) {
    return 0xE4C6 + 96 * (first - 0xA1) + second - 0x40 - (second > 0x7F ? 1 : 0);
  }
  return 0;
}

}  // namespace

CodePageReader::CodePageReader(unsigned code_page)
    : code_page_(code_page),
      converter_(iconv_open("UTF-16LE", ("CP" + std::to_string(code_page)).c_str())),
      spare_(0xE766) {
  if (converter_ == reinterpret_cast<iconv_t>(-1)) {
    throw std::runtime_error("this system's iconv does not know code page " +
                             std::to_string(code_page));
  }
}

CodePageReader::~CodePageReader() {
  iconv_close(converter_);
}

std::optional<char16_t> CodePageReader::Read(std::string_view code) {
  char in[2] = {};
  code.copy(in, sizeof in);
  char out[4] = {};
  char* from = in;
  char* to = out;
  std::size_t left = code.size();
  std::size_t space = sizeof out;
  iconv(converter_, nullptr, nullptr, nullptr, nullptr);
  if (iconv(converter_, &from, &left, &to, &space) != static_cast<std::size_t>(-1)) {
    return space == sizeof out - 2
               ? std::optional(static_cast<char16_t>(static_cast<unsigned char>(out[0]) |
                                                     static_cast<unsigned char>(out[1]) << 8))
               : std::nullopt;
  }
  const auto first = static_cast<unsigned char>(code[0]);
  if (code.size() == 1) {
    return Undefined(code_page_, first);
  }
  if (code_page_ != 936) {
    return std::nullopt;
  }
  const unsigned user_defined = UserDefined936(first, static_cast<unsigned char>(code[1]));
  // The pairs that are left get what follows, in their order.
  return user_defined != 0 ? static_cast<char16_t>(user_defined) : spare_++;
}

}  // namespace zentpost::addin_listener
