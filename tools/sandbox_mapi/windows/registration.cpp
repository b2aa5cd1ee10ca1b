#include "tools/sandbox_mapi/registration.h"

#include <windows.h>

#include <stdexcept>
#include <vector>

#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
constexpr wchar_t kClientKey[] = L"Software\\Clients\\Mail\\Sandbox MAPI";
constexpr wchar_t kPreviousClient[] = L"Previous Client";

std::wstring Wide(std::string_view utf8) {
  const std::u16string text = support::Utf16(utf8);
  return std::wstring(text.begin(), text.end());
}

void Demand(LSTATUS status, const char* call) {
  if (status != ERROR_SUCCESS) {
    throw std::runtime_error(RegistryProblem(call, status));
  }
}

// A value as it is stored, whatever its type.
struct StoredValue {
  bool exists = false;
  DWORD type = REG_NONE;
  std::vector<BYTE> data = {};
};

StoredValue Read(const wchar_t* key, const wchar_t* name) {
  StoredValue value;
  DWORD size = 0;
  constexpr DWORD kAny = RRF_RT_ANY | RRF_NOEXPAND;
  LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, key, name, kAny, nullptr, nullptr, &size);
  if (status == ERROR_FILE_NOT_FOUND) {
    return value;
  }
  value.data.resize(size);
  if (status == ERROR_SUCCESS) {
    status =
        RegGetValueW(HKEY_LOCAL_MACHINE, key, name, kAny, &value.type, value.data.data(), &size);
  }
  Demand(status, "RegGetValue");
  value.data.resize(size);
  value.exists = true;
  return value;
}

// A value that does not exist is taken away.
void Write(const wchar_t* key, const wchar_t* name, const StoredValue& value) {
  if (value.exists) {
    Demand(RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, name, value.type, value.data.data(),
                           static_cast<DWORD>(value.data.size())),
           "RegSetKeyValue");
  } else if (const LSTATUS status = RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, name);
             status != ERROR_FILE_NOT_FOUND) {
    Demand(status, "RegDeleteKeyValue");
  }
}

StoredValue Text(std::string_view utf8) {
  const std::wstring text = Wide(utf8);
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
  return {true, REG_SZ, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t))};
}

// Whether this tool's client is the default one. A text that is read has its terminator.
bool IsDefault(const StoredValue& client) {
  return client.exists && client.data == Text(kClientName).data;
}

}  // namespace

void Register(const std::filesystem::path& library, const std::filesystem::path& folder) {
  const StoredValue present = Read(kMailKey, nullptr);
  Write(kClientKey, nullptr, Text(kClientName));
  // Done again, what was there before the first time is still what to put back.
  if (!IsDefault(present)) {
    Write(kClientKey, kPreviousClient, present);
  }
  Write(kClientKey, Wide(kLibraryValue).c_str(), Text(support::PathText(library)));
  Write(kClientKey, L"Folder", Text(support::PathText(folder)));
  // Last: until now the former client was the default one.
  Write(kMailKey, nullptr, Text(kClientName));
}

bool Unregister() {
  if (!Read(kClientKey, nullptr).exists) {
    return false;
  }
  if (IsDefault(Read(kMailKey, nullptr))) {
    Write(kMailKey, nullptr, Read(kClientKey, kPreviousClient));
  }
  Demand(RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClientKey), "RegDeleteTree");
  return true;
}

std::string RegistrationPlace() {
  return "HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail";
}

std::optional<std::string> RegisteredFolder() {
  wchar_t folder[32768];  // no path is longer
  DWORD size = sizeof folder;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, kClientKey, L"Folder", RRF_RT_REG_SZ, nullptr, folder,
                   &size) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  return support::Utf8(support::FromWide(folder));
}

}  // namespace zentpost::fake_mapi::sandbox
