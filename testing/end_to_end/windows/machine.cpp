#include "testing/end_to_end/machine.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <shlobj.h>

#include <iterator>
#include <stdexcept>
#include <string>

#include "platform/unique_handle.h"
#include "testing/end_to_end/files.h"
#include "testing/end_to_end/real_machine.h"
#include "testing/end_to_end/windows/registry.h"
#include "testing/end_to_end/windows/wide_text.h"

namespace zentpost::e2e {
namespace {

// The keys that belong to the tests while they run, and where what is there is kept meanwhile.
constexpr wchar_t kMakersKey[] = L"Software\\Sollvex";
constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
const struct {
  HKEY root;
  std::wstring key;
} kKeys[] = {{HKEY_CURRENT_USER, kMakersKey},
             {HKEY_LOCAL_MACHINE, kMakersKey},
             {HKEY_LOCAL_MACHINE, kMailKey}};

std::wstring Aside(const std::wstring& key) {
  return key + L" put aside by zentpost's tests";
}

constexpr wchar_t kFolderPutAside[] = L"VORNA put aside by zentpost's tests";

HKEY Root(Hive hive) {
  return hive == Hive::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

struct FileTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE file) noexcept { CloseHandle(file); }
};

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

// The first `count` of them.
void PutKeysBack(std::size_t count) {
  for (std::size_t number = 0; number < count; ++number) {
    const auto& [root, key] = kKeys[number];
    PutKeyBack(root, key, Aside(key));
  }
}

// The library that the search then finds first has none of MAPI's functions, so that every job
// fails as it does where there is no MAPI, and no real mail client is found behind it.
void RegisterClientWithoutMapi() {
  constexpr wchar_t kClient[] = L"Zentpost's tests";
  wchar_t folder[MAX_PATH] = {};
  GetSystemDirectoryW(folder, MAX_PATH);
  SetRegistryText(HKEY_LOCAL_MACHINE, kMailKey, L"", REG_SZ, kClient);
  SetRegistryText(HKEY_LOCAL_MACHINE, kMailKey + (L"\\" + std::wstring(kClient)), L"DllPathEx",
                  REG_SZ, folder + std::wstring(L"\\lz32.dll"));
}

void ClearRegistry() {
  RemoveRegistryKey(HKEY_CURRENT_USER, kMakersKey);
  RemoveRegistryKey(HKEY_LOCAL_MACHINE, kMakersKey);
}

}  // namespace

// What is already put aside comes from a run that was cut short: it is the user's, and what stands
// in its place is that run's.
std::string TakeMachineOver() {
  if (!MayChangeMachine(
          "the registry's Software\\Sollvex and Software\\Clients\\Mail, and the folder " +
          VendorFolder().string())) {
    return "this machine is no test's";
  }
  constexpr char kRefusal[] = "this user may not change the registry for a while";
  for (std::size_t taken = 0; taken < std::size(kKeys); ++taken) {
    const auto& [root, key] = kKeys[taken];
    if (!PutKeyAside(root, key, Aside(key))) {
      PutKeysBack(taken);
      return kRefusal;
    }
  }
  if (!IsRealMachine()) {
    // Wine's own mail client sends nothing, and is what the tool has to find where there is no
    // other.
    CopyRegistryKey(HKEY_LOCAL_MACHINE, Aside(kMailKey), kMailKey);
  } else if (!Machine::CanWrite(Hive::kLocalMachine)) {
    PutKeysBack(std::size(kKeys));
    return kRefusal;
  } else {
    RegisterClientWithoutMapi();
  }
  const std::filesystem::path aside = LocalApplicationData() / kFolderPutAside;
  if (exists(aside)) {
    remove_all(VendorFolder());
  } else if (exists(VendorFolder())) {
    rename(VendorFolder(), aside);
  }
  return "";
}

void GiveMachineBack() {
  PutKeysBack(std::size(kKeys));
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

void Machine::SetText(Hive hive, std::u16string_view key, std::u16string_view name,
                      std::string_view text, TextKind kind) {
  SetRegistryText(Root(hive), Wide(key), Wide(name),
                  kind == TextKind::kExpandable ? REG_EXPAND_SZ : REG_SZ, Wide(text));
}

void Machine::SetNumber(Hive hive, std::u16string_view key, std::u16string_view name,
                        std::uint32_t number) {
  SetRegistryNumber(Root(hive), Wide(key), Wide(name), number);
}

void Machine::AddKey(Hive hive, std::u16string_view key) {
  AddRegistryKey(Root(hive), Wide(key));
}

bool Machine::CanWrite(Hive hive) {
  HKEY key = nullptr;
  const bool can =
      RegOpenKeyExW(Root(hive), L"Software", 0, KEY_CREATE_SUB_KEY, &key) == ERROR_SUCCESS;
  RegCloseKey(key);
  return can;
}

std::string Machine::RegistryContents() const {
  std::wstring text = e2e::RegistryContents(HKEY_CURRENT_USER, L"");
  for (const wchar_t* const key : {L"Software\\Clients", L"Software\\Sollvex",
                                   L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer"}) {
    text += e2e::RegistryContents(HKEY_LOCAL_MACHINE, key);
  }
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
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
  options.environment = variables_;
  options.environment.emplace_back("TMP", TemporaryFolder());
  options.environment.emplace_back("TEMP", TemporaryFolder());
  return options;
}

}  // namespace zentpost::e2e
