#include "testing/text_printers.h"

#include "tools/support/text.h"

namespace zentpost::test {

std::string Readable(std::u16string_view text) {
  std::string readable;
  while (!text.empty()) {
    const bool is_pair =
        (text[0] & 0xFC00) == 0xD800 && text.size() > 1 && (text[1] & 0xFC00) == 0xDC00;
    const std::u16string_view character = text.substr(0, is_pair ? 2 : 1);
    const bool is_lone = !is_pair && (text[0] & 0xF800) == 0xD800;
    readable += is_lone || text[0] == 0 ? "\\u" + support::LowerHex(text[0], 4).substr(2)
                                        : support::Utf8(character);
    text.remove_prefix(character.size());
  }
  return readable;
}

}  // namespace zentpost::test
