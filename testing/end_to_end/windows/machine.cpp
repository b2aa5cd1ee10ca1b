#include "testing/end_to_end/machine.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <shlobj.h>

#include <stdexcept>
#include <string>

#include "platform/unique_handle.h"
#include "testing/end_to_end/files.h"
#include "testing/end_to_end/text.h"
#include "testing/end_to_end/windows/wide_text.h"

namespace zentpost::e2e {
namespace {

constexpr wchar_t kMakersKey[] = L"Software\\Sollvex";
constexpr wchar_t kKeyPutAside[] = L"Software\\Sollvex put aside by zentpost's tests";
constexpr wchar_t kFolderPutAside[] = L"VORNA put aside by zentpost's tests";
constexpr Hive kHives[] = {Hive::kCurrentUser, Hive::kLocalMachine};

HKEY Root(Hive hive) {
  return hive == Hive::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

struct KeyTraits {
  using Value = HKEY;
  static constexpr HKEY kNone = nullptr;
  static void Close(HKEY key) noexcept { RegCloseKey(key); }
};
using Key = platform::UniqueHandle<KeyTraits>;

struct FileTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE file) noexcept { CloseHandle(file); }
};

void Demand(LSTATUS status, const char* what) {
  if (status != ERROR_SUCCESS) {
    throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
  }
}

bool KeyExists(HKEY root, const wchar_t* path) {
  Key key;
  return RegOpenKeyExW(root, path, 0, KEY_READ, key.Put()) == ERROR_SUCCESS;
}

void RemoveKey(HKEY root, const wchar_t* path) {
  if (KeyExists(root, path)) {
    Demand(RegDeleteTreeW(root, path), "RegDeleteTreeW");
  }
}

// There is no call that renames a key on every Windows.
void MoveKey(HKEY root, const wchar_t* from, const wchar_t* to) {
  Key source;
  Key target;
  Demand(RegOpenKeyExW(root, from, 0, KEY_READ, source.Put()), "RegOpenKeyExW");
  Demand(RegCreateKeyExW(root, to, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, target.Put(), nullptr),
         "RegCreateKeyExW");
  Demand(RegCopyTreeW(source.Get(), nullptr, target.Get()), "RegCopyTreeW");
  source.Reset();
  RemoveKey(root, from);
}

std::filesystem::path LocalApplicationData() {
  wchar_t folder[MAX_PATH] = {};
  if (SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, nullptr,
                       SHGFP_TYPE_CURRENT, folder) != S_OK) {
    throw std::runtime_error("there is no folder for local application data");
  }
  return folder;
}

// What the tests may remove: nothing else of the user's is below it while they run.
std::filesystem::path VendorFolder() {
  return LocalApplicationData() / "VORNA";
}

void ClearRegistry() {
  for (const Hive hive : kHives) {
    RemoveKey(Root(hive), kMakersKey);
  }
}

Key CreateKey(Hive hive, std::string_view path) {
  Key key;
  Demand(RegCreateKeyExW(Root(hive), Wide(path).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                         key.Put(), nullptr),
         "RegCreateKeyExW");
  return key;
}

void SetValue(Hive hive, std::string_view path, std::string_view name, DWORD type, const void* data,
              std::size_t size) {
  const Key key = CreateKey(hive, path);
  Demand(RegSetValueExW(key.Get(), Wide(name).c_str(), 0, type, static_cast<const BYTE*>(data),
                        static_cast<DWORD>(size)),
         "RegSetValueExW");
}

// On a machine of Wine's nobody's mail is sent.
bool IsWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace

// What is already put aside comes from a run that was cut short: it is the user's, and what stands
// in its place is that run's.
void TakeMachineOver() {
  if (!IsWine() && KeyExists(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail")) {
    throw std::runtime_error(
        "this machine may have a mail client, and the tests would send mail through it");
  }
  for (const Hive hive : kHives) {
    if (KeyExists(Root(hive), kKeyPutAside)) {
      RemoveKey(Root(hive), kMakersKey);
    } else if (KeyExists(Root(hive), kMakersKey)) {
      MoveKey(Root(hive), kMakersKey, kKeyPutAside);
    }
  }
  const std::filesystem::path aside = LocalApplicationData() / kFolderPutAside;
  if (exists(aside)) {
    remove_all(VendorFolder());
  } else if (exists(VendorFolder())) {
    rename(VendorFolder(), aside);
  }
}

void GiveMachineBack() {
  ClearRegistry();
  for (const Hive hive : kHives) {
    if (KeyExists(Root(hive), kKeyPutAside)) {
      MoveKey(Root(hive), kKeyPutAside, kMakersKey);
    }
  }
  remove_all(VendorFolder());
  const std::filesystem::path aside = LocalApplicationData() / kFolderPutAside;
  if (exists(aside)) {
    rename(aside, VendorFolder());
  }
}

struct ReadOnly::State {
  std::filesystem::path path;
  platform::UniqueHandle<FileTraits> file;
};

ReadOnly::ReadOnly(const std::filesystem::path& path) : state_(new State{path, {}}) {
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
  // Wine lets root write to read-only files, so the file is also held open by somebody who shares
  // it for reading alone.
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    throw std::runtime_error("CreateFileW failed with " + std::to_string(GetLastError()));
  }
  state_->file.Reset(file);
}

ReadOnly::~ReadOnly() {
  state_->file.Reset();
  SetFileAttributesW(state_->path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

// In 32 bits there are not more addresses than that.
bool LittleMemory::IsPossible() {
  return sizeof(void*) == 4;
}
LittleMemory::LittleMemory() = default;
LittleMemory::~LittleMemory() = default;

std::vector<std::filesystem::path> OtherWaysTo(const std::filesystem::path& path) {
  wchar_t short_path[MAX_PATH] = {};
  const DWORD length = GetShortPathNameW(path.c_str(), short_path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    throw std::runtime_error("GetShortPathNameW failed with " + std::to_string(GetLastError()));
  }
  if (path == short_path) {
    throw std::runtime_error("the file has no short name");
  }
  std::wstring upper_case = path.filename().native();
  CharUpperW(upper_case.data());
  return {short_path, path.parent_path() / upper_case, path.native() + L"::$DATA"};
}

struct Machine::Registry {};

Machine::Machine() : folder_(MakeTestFolder()) {
  ClearRegistry();
  remove_all(VendorFolder());
  create_directory(TemporaryFolder());
}

Machine::~Machine() {
  try {
    ClearRegistry();
  } catch (const std::runtime_error&) {
    // The next test, or the end of the run, will say it.
  }
  std::error_code ignored;
  remove_all(VendorFolder(), ignored);
  remove_all(folder_, ignored);
}

void Machine::SetText(Hive hive, std::string_view key, std::string_view name,
                      std::string_view text) {
  const std::wstring data = Wide(text);
  SetValue(hive, key, name, REG_SZ, data.c_str(), (data.size() + 1) * sizeof(wchar_t));
}

void Machine::SetNumber(Hive hive, std::string_view key, std::string_view name,
                        std::uint32_t number) {
  SetValue(hive, key, name, REG_DWORD, &number, sizeof number);
}

void Machine::AddKey(Hive hive, std::string_view key) {
  CreateKey(hive, key);
}

bool Machine::CanWrite(Hive hive) {
  Key key;
  return RegOpenKeyExW(Root(hive), L"Software", 0, KEY_CREATE_SUB_KEY, key.Put()) == ERROR_SUCCESS;
}

std::filesystem::path Machine::LogFolder() const {
  return VendorFolder() / "Client" / "Log";
}

void Machine::AddLogFolder() {
  create_directories(LogFolder());
}

std::filesystem::path Machine::AddPipe() {
  std::filesystem::path path =
      L"\\\\.\\pipe\\zentpost-e2e-" + std::to_wstring(GetCurrentProcessId());
  const HANDLE pipe =
      CreateNamedPipeW(path.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) {
    throw std::runtime_error("CreateNamedPipeW failed with " + std::to_string(GetLastError()));
  }
  pipe_ = {pipe, CloseHandle};
  return path;
}

ProcessOptions Machine::Options() const {
  ProcessOptions options;
  options.folder = folder_;
  options.environment = {{"TMP", TemporaryFolder()}, {"TEMP", TemporaryFolder()}};
  return options;
}

}  // namespace zentpost::e2e
