// The sender's ANSI code page, from its characters back to bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace zentpost::addin_listener {

// The character of a byte, or of a pair of bytes, in a code page of Windows; nothing where it has
// none. Pairs are asked for in ascending order.
class CodePageReader {
 public:
  explicit CodePageReader(unsigned code_page);
  ~CodePageReader();
  CodePageReader(const CodePageReader&) = delete;
  CodePageReader& operator=(const CodePageReader&) = delete;

  [[nodiscard]] std::optional<char16_t> Read(std::string_view code);

 private:
  unsigned code_page_;
  void* converter_ = nullptr;
  char16_t spare_ = 0;
};

class CodePage {
 public:
  // One of kSupported.
  explicit CodePage(unsigned number);

  static constexpr unsigned kSupported[] = {1250, 1251, 1252, 1253, 1254, 932, 936};

  // "Windows-1252", "code page 932".
  [[nodiscard]] std::string Name() const;

  // Some characters have two bytes: not every text can be sent.
  [[nodiscard]] bool HasPairs() const { return number_ < 1000; }

  // Null when no byte becomes `character`. Empty when more than one does: which one it was is not
  // known.
  [[nodiscard]] const std::string* BytesOf(char32_t character) const;

 private:
  unsigned number_;
  std::unordered_map<char32_t, std::string> bytes_;
};

}  // namespace zentpost::addin_listener
