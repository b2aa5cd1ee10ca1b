// An input taken apart into the values that a target works on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zentpost::fuzz {

// Takes values off the front; an input that has ended gives zeros and empty texts.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }

  std::uint8_t Byte() {
    const std::uint8_t byte = rest_.empty() ? 0 : static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(rest_.empty() ? 0 : 1);
    return byte;
  }

  std::uint32_t Number() {
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i) {
      number = number << 8 | Byte();
    }
    return number;
  }

  // At most `size` bytes.
  std::string_view Bytes(std::size_t size) {
    const std::string_view bytes = rest_.substr(0, size);
    rest_.remove_prefix(bytes.size());
    return bytes;
  }

  // All that is left. The first byte says whether each byte is a character of its own, which suits
  // grammars, or each pair of bytes, low byte first, which reaches every character.
  std::u16string Text() {
    const bool pairs = Byte() % 2 == 1;
    std::u16string text;
    while (!AtEnd()) {
      const unsigned low = Byte();
      text.push_back(static_cast<char16_t>(pairs ? low | static_cast<unsigned>(Byte()) << 8 : low));
    }
    return text;
  }

 private:
  std::string_view rest_;
};

}  // namespace zentpost::fuzz
