#include "tests/e2e_mapiload/machine.h"

#include <windows.h>

#include <string>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/windows/wide_text.h"
#include "tests/e2e_mapiload/windows/registry.h"

namespace zentpost::e2e_mapiload {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
constexpr wchar_t kMailKeyPutAside[] = L"Software\\Clients\\Mail put aside by zentpost's tests";

// Wine takes its own library for one that a program brings, or for one that is not there at all,
// unless the registry says otherwise for that program. Other systems do not read this key.
constexpr wchar_t kWinesKey[] = L"Software\\Wine\\AppDefaults\\mapi_search.exe";

void SetWinesPreference(const wchar_t* preference) {
  for (const wchar_t* const stub : {L"mapi32", L"mapistub"}) {
    SetRegistryText(HKEY_CURRENT_USER, std::wstring(kWinesKey) + L"\\DllOverrides", stub, REG_SZ,
                    preference);
  }
}

bool IsWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

void SetMailText(std::string_view client, std::string_view name, DWORD type,
                 std::string_view text) {
  const std::wstring key =
      client.empty() ? kMailKey : std::wstring(kMailKey) + L"\\" + e2e::Wide(client);
  SetRegistryText(HKEY_LOCAL_MACHINE, key, e2e::Wide(name), type, e2e::Wide(text));
}

}  // namespace

bool TakeMachineOver() {
  return PutKeyAside(HKEY_LOCAL_MACHINE, kMailKey, kMailKeyPutAside);
}

void GiveMachineBack() {
  PutKeyBack(HKEY_LOCAL_MACHINE, kMailKey, kMailKeyPutAside);
}

struct Machine::System {};

Machine::Machine() : folder_(e2e::MakeTestFolder()), program_(ThePrograms().search) {}

Machine::~Machine() {
  RemoveKey(HKEY_LOCAL_MACHINE, kMailKey);
  RemoveKey(HKEY_CURRENT_USER, kWinesKey);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Machine::SetDefaultClient(std::string_view client) {
  SetMailText("", "", REG_SZ, client);
}

void Machine::SetText(std::string_view client, std::string_view name, std::string_view text) {
  SetMailText(client, name, REG_SZ, text);
}

void Machine::SetExpandableText(std::string_view client, std::string_view name,
                                std::string_view text) {
  SetMailText(client, name, REG_EXPAND_SZ, text);
}

std::string Machine::SystemLibrary() const {
  wchar_t directory[MAX_PATH] = {};
  GetSystemDirectoryW(directory, MAX_PATH);
  const std::filesystem::path path = std::filesystem::path(directory) / "mapi32.dll";
  return exists(path) ? path.string() : "";
}

bool Machine::HideSystemLibraries() {
  if (!IsWine()) {
    return false;
  }
  SetWinesPreference(L"");
  return true;
}

bool Machine::GivesReferences() const {
  return true;
}

// A program's own folder comes first.
void Machine::PreferOwnLibraries() {
  program_ = folder_ / ThePrograms().search.filename();
  std::filesystem::copy_file(ThePrograms().search, program_);
  if (IsWine()) {
    SetWinesPreference(L"native,builtin");
  }
}

}  // namespace zentpost::e2e_mapiload
