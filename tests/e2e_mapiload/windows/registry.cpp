#include "tests/e2e_mapiload/windows/registry.h"

#include <stdexcept>

#include "platform/unique_handle.h"

namespace zentpost::e2e_mapiload {
namespace {

struct KeyTraits {
  using Value = HKEY;
  static constexpr HKEY kNone = nullptr;
  static void Close(HKEY key) noexcept { RegCloseKey(key); }
};
using Key = platform::UniqueHandle<KeyTraits>;

void Demand(LSTATUS status, const char* what) {
  if (status != ERROR_SUCCESS) {
    throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
  }
}

bool KeyExists(HKEY root, const std::wstring& path) {
  Key key;
  return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.Put()) == ERROR_SUCCESS;
}

LSTATUS CreateKey(HKEY root, const std::wstring& path, Key& key) {
  return RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.Put(),
                         nullptr);
}

void SetValue(HKEY root, const std::wstring& path, const std::wstring& name, DWORD type,
              const void* data, std::size_t size) {
  Key key;
  Demand(CreateKey(root, path, key), "RegCreateKeyExW");
  Demand(RegSetValueExW(key.Get(), name.c_str(), 0, type, static_cast<const BYTE*>(data),
                        static_cast<DWORD>(size)),
         "RegSetValueExW");
}

// There is no call that renames a key on every Windows.
void MoveKey(HKEY root, const std::wstring& from, const std::wstring& to) {
  Key source;
  Key target;
  Demand(RegOpenKeyExW(root, from.c_str(), 0, KEY_READ, source.Put()), "RegOpenKeyExW");
  Demand(CreateKey(root, to, target), "RegCreateKeyExW");
  Demand(RegCopyTreeW(source.Get(), nullptr, target.Get()), "RegCopyTreeW");
  source.Reset();
  RemoveKey(root, from);
}

}  // namespace

void SetRegistryText(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type,
                     const std::wstring& text) {
  SetValue(root, key, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void SetRegistryNumber(HKEY root, const std::wstring& key, const std::wstring& name, DWORD number) {
  SetValue(root, key, name, REG_DWORD, &number, sizeof number);
}

void RemoveKey(HKEY root, const std::wstring& key) {
  if (KeyExists(root, key)) {
    Demand(RegDeleteTreeW(root, key.c_str()), "RegDeleteTreeW");
  }
}

bool PutKeyAside(HKEY root, const std::wstring& key, const std::wstring& aside) {
  if (KeyExists(root, aside)) {
    RemoveKey(root, key);
    return true;
  }
  const bool was_there = KeyExists(root, key);
  Key made;
  if (CreateKey(root, key, made) != ERROR_SUCCESS) {
    return false;
  }
  made.Reset();
  if (was_there) {
    MoveKey(root, key, aside);
  } else {
    RemoveKey(root, key);
  }
  return true;
}

void PutKeyBack(HKEY root, const std::wstring& key, const std::wstring& aside) {
  RemoveKey(root, key);
  if (KeyExists(root, aside)) {
    MoveKey(root, aside, key);
  }
}

}  // namespace zentpost::e2e_mapiload
