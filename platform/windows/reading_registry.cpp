#include <windows.h>

#include "platform/reading.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

HKEY Handle(RawKey key) {
  return reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(key));
}

HKEY Root(Hive hive) {
  switch (hive) {
    case Hive::kCurrentUser:
      return HKEY_CURRENT_USER;
    case Hive::kLocalMachine:
      return HKEY_LOCAL_MACHINE;
    case Hive::kClassesRoot:
      return HKEY_CLASSES_ROOT;
  }
  return nullptr;
}

Status Open(HKEY parent, const char16_t* path, std::uint32_t access, RawKey& key) {
  HKEY opened = nullptr;
  const LSTATUS status = RegOpenKeyExW(parent, ToSystem(path), 0, access, &opened);
  key = status == ERROR_SUCCESS ? RawKey{reinterpret_cast<std::uintptr_t>(opened)} : RawKey{};
  return static_cast<Status>(status);
}

}  // namespace

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RawKey& key) {
  return Open(Root(hive), path, access, key);
}

Status OpenSubKey(RawKey parent, const char16_t* path, std::uint32_t access, RawKey& key) {
  return Open(Handle(parent), path, access, key);
}

Status QueryValue(RawKey key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  DWORD found_type = REG_NONE;
  DWORD bytes = size;
  const LSTATUS status = RegQueryValueExW(Handle(key), ToSystem(name), nullptr, &found_type,
                                          static_cast<BYTE*>(data), &bytes);
  size = bytes;
  if (type != nullptr) {
    *type = found_type;
  }
  return static_cast<Status>(status);
}

void LetGo(RawKey key) noexcept {
  RegCloseKey(Handle(key));
}

Status CloseKey(RawKey key) {
  return static_cast<Status>(RegCloseKey(Handle(key)));
}

}  // namespace platform::reading
