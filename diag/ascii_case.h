// The two cases of ASCII letters. All other characters are left alone.
#pragma once

namespace zentpost {

[[nodiscard]] constexpr char16_t ToLower(char16_t unit) {
  return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + (u'a' - u'A')) : unit;
}

[[nodiscard]] constexpr char16_t ToUpper(char16_t unit) {
  return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - (u'a' - u'A')) : unit;
}

}  // namespace zentpost
