#include "packaging/acceptance/saved_machine.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <shlobj.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "packaging/acceptance/child.h"
#include "testing/end_to_end/windows/registry.h"
#include "tools/support/files.h"

namespace zentpost::acceptance {
namespace {

namespace fs = std::filesystem;

// The keys that the tests use, and those into which they put aside what was there. A 64-bit program
// sees those of the 32-bit ones under WOW6432Node; the mail clients are the same for both.
struct Key {
  HKEY root;
  const wchar_t* path;
};
const Key kKeys[] = {
    {HKEY_CURRENT_USER, L"Software\\Sollvex"},
    {HKEY_LOCAL_MACHINE, L"Software\\Sollvex"},
    {HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\Sollvex"},
    {HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail"},
    {HKEY_CURRENT_USER, L"Software\\Sollvex put aside by zentpost's tests"},
    {HKEY_LOCAL_MACHINE, L"Software\\Sollvex put aside by zentpost's tests"},
    {HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\Sollvex put aside by zentpost's tests"},
    {HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail put aside by zentpost's tests"},
    {HKEY_CURRENT_USER, L"Software\\ZentpostContractTest"},
    {HKEY_CURRENT_USER, L"Software\\Classes\\Software"},
    {HKEY_LOCAL_MACHINE, L"Software\\ZentpostContractTest"},
    {HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\ZentpostContractTest"},
    {HKEY_LOCAL_MACHINE, L"Software\\Classes\\Software"},
};

constexpr wchar_t kLogFolder[] = L"VORNA";
constexpr wchar_t kLogFolderAside[] = L"VORNA put aside by zentpost's tests";
// Stands in the folder from the moment when all is saved.
constexpr char kComplete[] = "complete.txt";
constexpr char kHadLogFolder[] = "log-folder.txt";
// A key as it is now, and what reg.exe printed.
constexpr wchar_t kNow[] = L"now.reg";
constexpr char kPrinted[] = "reg.txt";

std::wstring FullName(const Key& key) {
  return (key.root == HKEY_CURRENT_USER ? L"HKEY_CURRENT_USER\\" : L"HKEY_LOCAL_MACHINE\\") +
         std::wstring(key.path);
}

bool Exists(const Key& key) {
  HKEY opened = nullptr;
  const bool exists = RegOpenKeyExW(key.root, key.path, 0, KEY_READ, &opened) == ERROR_SUCCESS;
  RegCloseKey(opened);
  return exists;
}

fs::path SystemProgram(const wchar_t* name) {
  wchar_t folder[MAX_PATH] = {};
  GetSystemDirectoryW(folder, MAX_PATH);
  return fs::path(folder) / name;
}

// reg.exe's files can be imported by hand, too.
bool Reg(const fs::path& folder, const std::vector<std::wstring>& arguments) {
  const ChildEnd end = RunChild(SystemProgram(L"reg.exe"), arguments, folder, folder / kPrinted,
                                std::chrono::minutes(1), Interrupts::kWait);
  return end.how == ChildEnd::How::kEnded && end.code == 0;
}

// False when it is there and cannot be saved.
bool Export(const fs::path& folder, const Key& key, const std::wstring& file) {
  std::error_code ignored;
  fs::remove(folder / file, ignored);
  return !Exists(key) ||
         (Reg(folder, {L"export", FullName(key), file, L"/y"}) && fs::exists(folder / file));
}

std::wstring SavedName(std::size_t number) {
  return L"key-" + std::to_wstring(number) + L".reg";
}

// All that may be written into the folder. The first says that there is something.
std::vector<fs::path> OwnNames() {
  std::vector<fs::path> names = {kComplete, kHadLogFolder, kNow, kPrinted};
  for (std::size_t number = 0; number < std::size(kKeys); ++number) {
    names.emplace_back(SavedName(number));
  }
  return names;
}

bool IsAsSaved(const fs::path& folder, std::size_t number) {
  return Export(folder, kKeys[number], kNow) &&
         support::ReadBytes(folder / kNow) == support::ReadBytes(folder / SavedName(number));
}

// Only what has to change is touched.
bool PutKeyBack(const fs::path& folder, std::size_t number) {
  const Key& key = kKeys[number];
  try {
    e2e::RemoveRegistryKey(key.root, key.path);
  } catch (const std::runtime_error&) {
    // What cannot be removed may still be set.
  }
  if (fs::exists(folder / SavedName(number))) {
    static_cast<void>(Reg(folder, {L"import", SavedName(number)}));
  }
  return IsAsSaved(folder, number);
}

fs::path LocalApplicationData() {
  wchar_t folder[MAX_PATH] = {};
  SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder);
  return folder;
}

// Nothing when it is as it was; else whether that was put right.
std::optional<bool> PutLogFolderBack(const fs::path& folder) {
  const fs::path data = LocalApplicationData();
  const fs::path aside = data / kLogFolderAside;
  std::error_code error;
  if (fs::exists(aside)) {
    fs::remove_all(data / kLogFolder, error);
    fs::rename(aside, data / kLogFolder, error);
    return !error;
  }
  if (!fs::exists(folder / kHadLogFolder) && fs::exists(data / kLogFolder)) {
    fs::remove_all(data / kLogFolder, error);
    return !error;
  }
  return std::nullopt;
}

void RemoveSaved(const fs::path& folder) {
  for (const fs::path& name : OwnNames()) {
    DeleteFileW((folder / name).c_str());
  }
  RemoveEmptyFolder(folder);
}

}  // namespace

std::vector<std::string> ThingsThatAreChanged() {
  return {
      "HKEY_CURRENT_USER\\Software\\Sollvex: the settings of Zentpost and the add-in",
      "HKEY_LOCAL_MACHINE\\Software\\Sollvex, and the same under WOW6432Node",
      "HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail: this machine's mail clients",
      "a key ZentpostContractTest below Software, in each hive",
      "the folder VORNA in the user's local application data, with Zentpost's log",
      "files in a folder of the tests' own, in the folder for temporary files",
  };
}

bool IsSaved(const fs::path& folder) {
  return fs::exists(folder / kComplete);
}

bool HoldsOnlySaved(const fs::path& folder) {
  const std::vector<fs::path> names = OwnNames();
  std::error_code error;
  for (fs::directory_iterator each(folder, error), end; !error && each != end;
       each.increment(error)) {
    if (!each->is_regular_file(error) ||
        std::find(names.begin(), names.end(), each->path().filename()) == names.end()) {
      return false;
    }
  }
  return !error;
}

void RemoveEmptyFolder(const fs::path& folder) {
  RemoveDirectoryW(folder.c_str());
}

bool SaveMachine(const fs::path& folder) {
  RemoveSaved(folder);
  std::error_code error;
  fs::create_directories(folder, error);
  bool is_saved = !error;
  for (std::size_t number = 0; is_saved && number < std::size(kKeys); ++number) {
    is_saved = Export(folder, kKeys[number], SavedName(number));
  }
  const fs::path data = LocalApplicationData();
  if (is_saved && (fs::exists(data / kLogFolder) || fs::exists(data / kLogFolderAside))) {
    is_saved = support::WriteBytes(folder / kHadLogFolder, "");
  }
  is_saved = is_saved && support::WriteBytes(folder / kComplete, "");
  if (!is_saved) {
    RemoveSaved(folder);
  }
  return is_saved;
}

PutBack PutMachineBack(const fs::path& folder) {
  PutBack result;
  const auto note = [&](bool is_right, const std::string& what) {
    (is_right ? result.restored : result.failed).push_back(what);
  };
  for (std::size_t number = 0; number < std::size(kKeys); ++number) {
    if (!IsAsSaved(folder, number)) {
      note(PutKeyBack(folder, number), support::PathText(FullName(kKeys[number])));
    }
  }
  if (const std::optional<bool> is_right = PutLogFolderBack(folder)) {
    note(*is_right, support::PathText(LocalApplicationData() / kLogFolder));
  }
  if (result.failed.empty()) {
    RemoveSaved(folder);
  }
  return result;
}

}  // namespace zentpost::acceptance
