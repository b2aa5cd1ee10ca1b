#include "tests/mapi_search/machine.h"

#include <windows.h>

#include <string>

#include "testing/end_to_end/settings.h"
#include "testing/end_to_end/windows/registry.h"
#include "testing/end_to_end/windows/wine.h"

namespace zentpost::mapi_search {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";

// Wine takes its own library for one that a program brings unless the registry says otherwise for
// that program. Other systems do not read this key.
constexpr wchar_t kWinesKey[] = L"Software\\Wine\\AppDefaults\\mapi_search.exe";

}  // namespace

Machine::Machine() : program_(e2e::Setting("mapi-search")) {
  e2e::RemoveRegistryKey(HKEY_LOCAL_MACHINE, kMailKey);
}

Machine::~Machine() {
  e2e::RemoveRegistryKey(HKEY_LOCAL_MACHINE, kMailKey);
  e2e::RemoveRegistryKey(HKEY_CURRENT_USER, kWinesKey);
}

std::string Machine::SystemLibrary() const {
  wchar_t directory[MAX_PATH] = {};
  GetSystemDirectoryW(directory, MAX_PATH);
  const std::filesystem::path path = std::filesystem::path(directory) / "mapi32.dll";
  return exists(path) ? path.string() : "";
}

bool Machine::GivesReferences() const {
  return true;
}

// A program's own folder comes first.
void Machine::PreferOwnLibraries() {
  program_ = Folder() / e2e::Setting("mapi-search").filename();
  std::filesystem::copy_file(e2e::Setting("mapi-search"), program_);
  if (e2e::IsWine()) {
    for (const wchar_t* const stub : {L"mapi32", L"mapistub"}) {
      e2e::SetRegistryText(HKEY_CURRENT_USER, std::wstring(kWinesKey) + L"\\DllOverrides", stub,
                           REG_SZ, L"native,builtin");
    }
  }
}

}  // namespace zentpost::mapi_search
