#include "tools/addin_listener/code_page.h"

#include <algorithm>

namespace zentpost::addin_listener {
namespace {

bool IsInUtf8(char byte) {
  const auto number = static_cast<unsigned char>(byte);
  return number != 0xC0 && number != 0xC1 && number < 0xF5;
}

bool IsLead(unsigned code_page, unsigned byte) {
  return code_page == 932   ? (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC)
         : code_page == 936 ? byte >= 0x81 && byte <= 0xFE
                            : false;
}

}  // namespace

CodePage::CodePage(unsigned number) : number_(number) {
  CodePageReader reader(number);
  const auto add = [&](const std::string& code) {
    const std::optional<char16_t> character = reader.Read(code);
    // The sender began with UTF-8: what cannot stand in it is nobody's second origin.
    if (character && (!HasPairs() || std::all_of(code.begin(), code.end(), IsInUtf8))) {
      const auto [known, is_new] = bytes_.emplace(*character, code);
      if (!is_new) {
        known->second.clear();
      }
    }
  };
  for (unsigned first = 0; first < 0x100; ++first) {
    const std::string code(1, static_cast<char>(first));
    if (!IsLead(number, first)) {
      add(code);
      continue;
    }
    for (unsigned second = 0x40; second < 0xFF; ++second) {
      if (second != 0x7F) {
        add(code + static_cast<char>(second));
      }
    }
  }
  if (number == 932) {
    bytes_[0x30FB].clear();  // also what a pair without a character becomes
  }
}

std::string CodePage::Name() const {
  return (HasPairs() ? "code page " : "Windows-") + std::to_string(number_);
}

const std::string* CodePage::BytesOf(char32_t character) const {
  const auto found = bytes_.find(character);
  return found == bytes_.end() ? nullptr : &found->second;
}

}  // namespace zentpost::addin_listener
