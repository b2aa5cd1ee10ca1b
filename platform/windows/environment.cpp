#include <windows.h>

#include "platform/modules.h"
#include "platform/windows/wide.h"

namespace platform {

Status SystemDirectory(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = GetSystemDirectoryW(ToSystem(buffer), capacity);
  return length != 0 ? kSuccess : GetLastError();
}

Status ExpandEnvironment(const char16_t* source, char16_t* buffer, std::uint32_t capacity,
                         std::uint32_t& length) {
  length = ExpandEnvironmentStringsW(ToSystem(source), ToSystem(buffer), capacity);
  return length != 0 ? kSuccess : GetLastError();
}

}  // namespace platform
