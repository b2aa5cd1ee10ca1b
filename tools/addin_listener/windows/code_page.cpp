#include "tools/addin_listener/code_page.h"

#include <windows.h>

namespace zentpost::addin_listener {

CodePageReader::CodePageReader(unsigned code_page) : code_page_(code_page) {}
CodePageReader::~CodePageReader() = default;

std::optional<char16_t> CodePageReader::Read(std::string_view code) {
  wchar_t text[4];
  const int length = MultiByteToWideChar(code_page_, 0, code.data(), static_cast<int>(code.size()),
                                         text, static_cast<int>(std::size(text)));
  return length == 1 ? std::optional(static_cast<char16_t>(text[0])) : std::nullopt;
}

}  // namespace zentpost::addin_listener
