// Between the tests' UTF-8 and the system's wide text.
#pragma once

#include <string>
#include <string_view>

#include "testing/end_to_end/text.h"

namespace zentpost::e2e {

[[nodiscard]] inline std::wstring Wide(std::u16string_view text) {
  return {text.begin(), text.end()};
}
[[nodiscard]] inline std::wstring Wide(std::string_view utf8) {
  return Wide(Utf16(utf8));
}

}  // namespace zentpost::e2e
