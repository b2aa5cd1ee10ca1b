#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace zentpost::addin_listener {

inline std::string Utf8(std::wstring_view text) {
  std::string result(3 * text.size(), '\0');
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(),
                          static_cast<int>(result.size()), nullptr, nullptr);
  result.resize(static_cast<std::size_t>(size));
  return result;
}

}  // namespace zentpost::addin_listener
