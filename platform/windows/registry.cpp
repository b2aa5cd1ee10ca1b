#include "platform/registry.h"

#include <windows.h>

#include "platform/windows/wide.h"

namespace platform {
namespace {

HKEY Handle(const RegistryKey& key) {
  return reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(key.Get()));
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

Status Open(HKEY parent, const char16_t* path, std::uint32_t access, RegistryKey& key) {
  HKEY opened = nullptr;
  const LSTATUS status = RegOpenKeyExW(parent, ToSystem(path), 0, access, &opened);
  key.Reset(status == ERROR_SUCCESS ? RawKey{reinterpret_cast<std::uintptr_t>(opened)}
                                    : RegistryKeyTraits::kNone);
  return static_cast<Status>(status);
}

}  // namespace

void RegistryKeyTraits::Close(RawKey key) noexcept {
  RegCloseKey(reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(key)));
}

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RegistryKey& key) {
  return Open(Root(hive), path, access, key);
}

Status OpenSubKey(const RegistryKey& parent, const char16_t* path, std::uint32_t access,
                  RegistryKey& key) {
  return Open(Handle(parent), path, access, key);
}

Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type, void* data,
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

Status CloseKey(RegistryKey& key) {
  return static_cast<Status>(
      RegCloseKey(reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(key.Detach()))));
}

}  // namespace platform
