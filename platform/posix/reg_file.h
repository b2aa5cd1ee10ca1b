// A registry as text, in the format that the Windows registry editor exports.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace platform {

// Orders texts whatever the case of their ASCII letters.
struct IgnoringCase {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const;
};

struct RegValue {
  std::uint32_t type;  // REG_...
  std::string data;    // As the registry stores it: texts are UTF-16LE and have their terminator.
};

// By name, in UTF-8; the default value's is empty.
using RegValues = std::map<std::string, RegValue, IgnoringCase>;

// By whole path in UTF-8, from HKEY_... on, without a separator at its end.
using RegKeys = std::map<std::string, RegValues, IgnoringCase>;

// Takes a file's content: UTF-16LE with a byte order mark or UTF-8 with or without one, below the
// header "Windows Registry Editor Version 5.00"; with another header there are no keys. A key's
// parents exist with it. Lines that are neither a key nor a well-formed value are skipped, and the
// last line about a value counts. Throws std::bad_alloc when memory runs out.
[[nodiscard]] RegKeys ParseRegFile(std::string bytes);

}  // namespace platform
