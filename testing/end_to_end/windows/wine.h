#pragma once

#include <windows.h>

namespace zentpost::e2e {

// On a machine of Wine's nobody's mail is sent.
inline bool IsWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace zentpost::e2e
