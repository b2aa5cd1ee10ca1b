#include "tools/sandbox_mapi/registration.h"

#include <windows.h>

#include <cwchar>
#include <string>
#include <string_view>
#include <vector>

#include "platform/unique_handle.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
constexpr wchar_t kPreviousClient[] = L"Previous Client";

struct KeyTraits {
  using Value = HKEY;
  static constexpr HKEY kNone = nullptr;
  static void Close(HKEY key) noexcept { RegCloseKey(key); }
};
using Key = platform::UniqueHandle<KeyTraits>;

std::wstring Wide(std::string_view utf8) {
  const std::u16string text = support::Utf16(utf8);
  return std::wstring(text.begin(), text.end());
}

bool Succeeded(LSTATUS status, const char* call, std::string& error) {
  if (status == ERROR_SUCCESS) {
    return true;
  }
  error = std::string(call) + " failed with " + std::to_string(status);
  if (status == ERROR_ACCESS_DENIED) {
    error += ": only an administrator may change the machine's mail client";
  }
  return false;
}

// A value as it is stored, whatever its type.
struct StoredValue {
  bool exists = false;
  DWORD type = REG_NONE;
  std::vector<BYTE> data;
};

bool Read(const Key& key, const wchar_t* name, StoredValue& value, std::string& error) {
  DWORD size = 0;
  LSTATUS status = RegQueryValueExW(key.Get(), name, nullptr, &value.type, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND) {
    value = StoredValue{};
    return true;
  }
  value.data.resize(size);
  if (status == ERROR_SUCCESS) {
    status = RegQueryValueExW(key.Get(), name, nullptr, &value.type, value.data.data(), &size);
  }
  value.exists = status == ERROR_SUCCESS;
  return Succeeded(status, "RegQueryValueEx", error);
}

// A value that does not exist is taken away.
bool Write(const Key& key, const wchar_t* name, const StoredValue& value, std::string& error) {
  if (value.exists) {
    return Succeeded(RegSetValueExW(key.Get(), name, 0, value.type, value.data.data(),
                                    static_cast<DWORD>(value.data.size())),
                     "RegSetValueEx", error);
  }
  const LSTATUS status = RegDeleteValueW(key.Get(), name);
  return status == ERROR_FILE_NOT_FOUND || Succeeded(status, "RegDeleteValue", error);
}

StoredValue Text(std::string_view utf8) {
  const std::wstring text = Wide(utf8);
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
  return {true, REG_SZ, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t))};
}

// Whether the value names this tool's client, with a terminator or without.
bool IsOurs(const StoredValue& value) {
  StoredValue ours = Text(kClientName);
  std::vector<BYTE> unterminated = ours.data;
  unterminated.resize(unterminated.size() - sizeof(wchar_t));
  return value.exists && (value.data == ours.data || value.data == unterminated);
}

}  // namespace

bool Register(const std::filesystem::path& library, const std::filesystem::path& folder,
              std::string& error) {
  if (!CanBeRegistered(library, error)) {
    return false;
  }
  Key mail;
  Key client;
  StoredValue present;
  if (!Succeeded(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                 nullptr, mail.Put(), nullptr),
                 "RegCreateKeyEx", error) ||
      !Succeeded(RegCreateKeyExW(mail.Get(), Wide(kClientName).c_str(), 0, nullptr, 0,
                                 KEY_READ | KEY_WRITE, nullptr, client.Put(), nullptr),
                 "RegCreateKeyEx", error) ||
      !Read(mail, nullptr, present, error)) {
    return false;
  }
  // Done again, what was there before the first time is still what to put back.
  if (!IsOurs(present) && !Write(client, kPreviousClient, present, error)) {
    return false;
  }
  return Write(client, nullptr, Text(kClientName), error) &&
         Write(client, Wide(kLibraryValue).c_str(), Text(support::PathText(library)), error) &&
         Write(client, L"Folder", Text(support::PathText(folder)), error) &&
         // Last: until now the former client was the default one.
         Write(mail, nullptr, Text(kClientName), error);
}

bool Unregister(bool& was_registered, std::string& error) {
  was_registered = false;
  Key mail;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, KEY_READ | KEY_WRITE, mail.Put());
  if (status == ERROR_FILE_NOT_FOUND) {
    return true;
  }
  if (!Succeeded(status, "RegOpenKeyEx", error)) {
    return false;
  }
  Key client;
  status = RegOpenKeyExW(mail.Get(), Wide(kClientName).c_str(), 0, KEY_READ, client.Put());
  if (status == ERROR_FILE_NOT_FOUND) {
    return true;
  }
  if (!Succeeded(status, "RegOpenKeyEx", error)) {
    return false;
  }
  was_registered = true;
  StoredValue present;
  StoredValue previous;
  if (!Read(mail, nullptr, present, error) || !Read(client, kPreviousClient, previous, error)) {
    return false;
  }
  if (IsOurs(present) && !Write(mail, nullptr, previous, error)) {
    return false;
  }
  client.Reset();
  return Succeeded(RegDeleteTreeW(mail.Get(), Wide(kClientName).c_str()), "RegDeleteTree", error);
}

}  // namespace zentpost::fake_mapi::sandbox
