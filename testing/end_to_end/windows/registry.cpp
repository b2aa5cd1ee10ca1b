#include "testing/end_to_end/windows/registry.h"

#include <stdexcept>
#include <vector>

#include "platform/unique_handle.h"

namespace zentpost::e2e {
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
  CopyRegistryKey(root, from, to);
  RemoveRegistryKey(root, from);
}

}  // namespace

void CopyRegistryKey(HKEY root, const std::wstring& from, const std::wstring& to) {
  Key source;
  Key target;
  if (RegOpenKeyExW(root, from.c_str(), 0, KEY_READ, source.Put()) == ERROR_SUCCESS) {
    Demand(CreateKey(root, to, target), "RegCreateKeyExW");
    Demand(RegCopyTreeW(source.Get(), nullptr, target.Get()), "RegCopyTreeW");
  }
}

void SetRegistryText(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type,
                     const std::wstring& text) {
  SetValue(root, key, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void SetRegistryNumber(HKEY root, const std::wstring& key, const std::wstring& name, DWORD number) {
  SetValue(root, key, name, REG_DWORD, &number, sizeof number);
}

void AddRegistryKey(HKEY root, const std::wstring& key) {
  Key added;
  Demand(CreateKey(root, key, added), "RegCreateKeyExW");
}

void RemoveRegistryKey(HKEY root, const std::wstring& key) {
  if (KeyExists(root, key)) {
    Demand(RegDeleteTreeW(root, key.c_str()), "RegDeleteTreeW");
  }
}

bool PutKeyAside(HKEY root, const std::wstring& key, const std::wstring& aside) {
  if (KeyExists(root, aside)) {
    RemoveRegistryKey(root, key);
  } else if (KeyExists(root, key)) {
    Key writable;
    if (RegOpenKeyExW(root, key.c_str(), 0, KEY_ALL_ACCESS, writable.Put()) != ERROR_SUCCESS) {
      return false;
    }
    writable.Reset();
    try {
      MoveKey(root, key, aside);
    } catch (const std::runtime_error&) {
      // Something below it is not this user's to remove, and not all of it is there any more.
      CopyRegistryKey(root, aside, key);
      RemoveRegistryKey(root, aside);
      return false;
    }
  }
  return true;
}

void PutKeyBack(HKEY root, const std::wstring& key, const std::wstring& aside) {
  RemoveRegistryKey(root, key);
  if (KeyExists(root, aside)) {
    MoveKey(root, aside, key);
  }
}

std::wstring RegistryContents(HKEY root, const std::wstring& key) {
  constexpr DWORD kLongestName = 16384;  // published for names of values; those of keys are shorter
  Key opened;
  if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ, opened.Put()) != ERROR_SUCCESS) {
    return {};
  }
  std::wstring text = L"[" + key + L"]\n";
  std::wstring name(kLongestName, L'\0');
  std::vector<BYTE> data(1 << 20);
  for (DWORD i = 0;; ++i) {
    DWORD length = kLongestName;
    DWORD size = static_cast<DWORD>(data.size());
    DWORD type = 0;
    if (RegEnumValueW(opened.Get(), i, name.data(), &length, nullptr, &type, data.data(), &size) !=
        ERROR_SUCCESS) {
      break;
    }
    text.append(name, 0, length).append(L"=").append(std::to_wstring(type)).append(L":");
    text.append(data.begin(), data.begin() + size).append(L"\n");
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = kLongestName;
    if (RegEnumKeyExW(opened.Get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    text += RegistryContents(root, (key.empty() ? key : key + L"\\") + name.substr(0, length));
  }
  return text;
}

}  // namespace zentpost::e2e
