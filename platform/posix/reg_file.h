// A registry as text, in the format that the Windows registry editor exports. Reads what it is
// asked for in one pass and keeps no tables; writes nothing. Throws std::bad_alloc when memory runs
// out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

struct RegValue {
  std::uint32_t type;  // REG_...
  std::string data;    // As the registry stores it: texts are UTF-16LE and have their terminator.
};

class RegFile {
 public:
  // Takes a file's content: UTF-16LE with a byte order mark or UTF-8 with or without one, below the
  // header "Windows Registry Editor Version 5.00"; or Windows-1252 below the header "REGEDIT4".
  // With another header there are no keys. Lines that are neither a key nor a well-formed value are
  // skipped; what is said later about a key or value overrides what was said before.
  explicit RegFile(std::string bytes);

  // `key` is the whole path in UTF-8, from HKEY_... on, without a separator at its end; case does
  // not matter (in ASCII). A key also exists when one below it is mentioned.
  [[nodiscard]] bool HasKey(std::string_view key) const;

  // The value `name` of `key`, both in UTF-8; an empty name means the default value.
  [[nodiscard]] std::optional<RegValue> FindValue(std::string_view key,
                                                  std::string_view name) const;

 private:
  std::string text_;  // UTF-8, what follows the header's line.
  bool ansi_ = false;
};

}  // namespace platform
