#include <winsock2.h>
// In a block of its own: windows.h alone would declare winsock2.h's predecessor.
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/windows/wide.h"
#include "testing/end_to_end/real_machine.h"
#include "testing/platform_contract/machine.h"
#include "testing/platform_contract/native.h"

namespace platform::contract {
namespace {

constexpr Hive kHives[] = {Hive::kCurrentUser, Hive::kLocalMachine, Hive::kClassesRoot};
// What OutputDebugStringW and OutputDebugStringA raise to reach a debugger.
constexpr DWORD kWidePrintException = 0x4001000A;
constexpr DWORD kPrintException = 0x40010006;

[[noreturn]] void Fail(const char* what, unsigned long number) {
  throw std::runtime_error(std::string(what) + ": error " + std::to_string(number));
}

std::filesystem::path PathOfModule(HMODULE module) {
  wchar_t path[4096] = {};
  const DWORD length = GetModuleFileNameW(module, path, std::size(path));
  return {path, path + length};
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

bool has_keys = false;

HKEY MakeKey(Hive hive, const std::u16string& path) {
  HKEY key = nullptr;
  has_keys = true;
  const LSTATUS status =
      RegCreateKeyExW(Root(hive), ToSystem(path.c_str()), 0, nullptr, REG_OPTION_NON_VOLATILE,
                      KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
  return status == ERROR_SUCCESS ? key : nullptr;
}

bool IsEmptyKey(Hive hive, const std::u16string& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(Root(hive), ToSystem(path.c_str()), 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return false;
  }
  DWORD keys = 1;
  DWORD values = 1;
  RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr,
                   nullptr, nullptr, nullptr);
  RegCloseKey(key);
  return keys == 0 && values == 0;
}

// Takes the tests' key away, and the keys above it that were made for it.
void RemoveKeys() {
  if (!std::exchange(has_keys, false)) {
    return;
  }
  for (const Hive hive : kHives) {
    std::u16string path = KeyPath(u"");
    RegDeleteTreeW(Root(hive), ToSystem(path.c_str()));
    for (std::size_t separator; (separator = path.rfind(u'\\')) != std::u16string::npos;) {
      path.erase(separator);
      if (!IsEmptyKey(hive, path)) {
        break;
      }
      RegDeleteKeyW(Root(hive), ToSystem(path.c_str()));
    }
  }
}

std::mutex debug_mutex;
std::u16string debug_output;
void* debug_handler = nullptr;

HANDLE pipe = INVALID_HANDLE_VALUE;
std::vector<std::u16string> variables;

// Takes what a debugger would get, so that the system passes it on to nobody else.
LONG CALLBACK TakeDebugOutput(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode != kWidePrintException && record.ExceptionCode != kPrintException) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  // The length counts the terminator.
  const auto length = static_cast<std::size_t>(record.ExceptionInformation[0]) - 1;
  const std::lock_guard lock(debug_mutex);
  const auto* text = reinterpret_cast<const void*>(record.ExceptionInformation[1]);
  if (record.ExceptionCode == kWidePrintException) {
    debug_output.append(FromSystem(static_cast<const wchar_t*>(text)), length);
  } else {
    // Older systems have the narrow form only.
    std::u16string wide(length, u'\0');
    MultiByteToWideChar(CP_ACP, 0, static_cast<const char*>(text), static_cast<int>(length),
                        ToSystem(wide.data()), static_cast<int>(length));
    debug_output += wide;
  }
  return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void PrepareMachine() {
  // Gives back what Asio has started before main.
  [[maybe_unused]] static const int ended = WSACleanup();
  PrepareFilesAndPeers();
  debug_output.clear();
  debug_handler = AddVectoredExceptionHandler(1, TakeDebugOutput);
}

void ClearMachine() {
  if (pipe != INVALID_HANDLE_VALUE) {
    CloseHandle(pipe);
    pipe = INVALID_HANDLE_VALUE;
  }
  RemoveVectoredExceptionHandler(debug_handler);
  RemoveKeys();
  for (const std::u16string& name : variables) {
    SetEnvironmentVariableW(ToSystem(name.c_str()), nullptr);
  }
  variables.clear();
  ClearFilesAndPeers();
}

bool MayChangeRegistry() {
  static const bool may = zentpost::e2e::MayChangeMachine("the registry's keys of contract tests");
  return may;
}

std::u16string KeyPath(std::u16string_view below) {
  const std::string process = std::to_string(GetCurrentProcessId());
  return u"Software\\ZentpostContractTest\\" + std::u16string(process.begin(), process.end()) +
         std::u16string(below);
}

bool AddKey(Hive hive, const std::u16string& path) {
  HKEY key = MakeKey(hive, path);
  return key != nullptr && RegCloseKey(key) == ERROR_SUCCESS;
}

bool SetValue(Hive hive, const std::u16string& path, const std::u16string& name, std::uint32_t type,
              std::string_view bytes) {
  HKEY key = MakeKey(hive, path);
  if (key == nullptr) {
    return false;
  }
  // Something else than a terminator behind the data, lest the system take it in.
  const std::string data = std::string(bytes) + "\xFF\xFF\xFF\xFF";
  const LSTATUS status =
      RegSetValueExW(key, ToSystem(name.c_str()), 0, type,
                     reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(bytes.size()));
  RegCloseKey(key);
  return status == ERROR_SUCCESS;
}

std::u16string Pipe() {
  const std::string process = std::to_string(GetCurrentProcessId());
  const std::u16string path =
      u"\\\\.\\pipe\\zentpost-contract-" + std::u16string(process.begin(), process.end());
  if (pipe == INVALID_HANDLE_VALUE) {
    pipe = CreateNamedPipeW(ToSystem(path.c_str()), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_WAIT,
                            1, 512, 512, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) {
      Fail("CreateNamedPipeW", GetLastError());
    }
  }
  return path;
}

std::optional<std::u16string> ShortName(const std::u16string& path) {
  wchar_t name[4096] = {};
  const DWORD length = GetShortPathNameW(ToSystem(path.c_str()), name, std::size(name));
  const std::u16string found(FromSystem(name), length);
  return length == 0 || found == path ? std::nullopt : std::optional(found);
}

// The handle is another one than that of the call under test: to the system that is another
// program.
std::shared_ptr<void> HoldFile(const std::u16string& path, Hold how) {
  const DWORD sharing = how == Hold::kAlone ? 0 : FILE_SHARE_READ | FILE_SHARE_WRITE;
  HANDLE file = CreateFileW(ToSystem(path.c_str()), GENERIC_READ | GENERIC_WRITE, sharing, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    Fail("CreateFileW", GetLastError());
  }
  std::shared_ptr<void> held(file, CloseHandle);
  if (how == Hold::kLocked) {
    constexpr DWORD kHow = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
    OVERLAPPED start = {};
    OVERLAPPED last = {};
    last.Offset = 0xFFFFFFFE;
    last.OffsetHigh = 0x7FFFFFFF;
    if (!LockFileEx(file, kHow, 0, GetFileSize(file, nullptr), 0, &start) ||
        !LockFileEx(file, kHow, 0, 1, 0, &last)) {
      Fail("LockFileEx", GetLastError());
    }
  }
  return held;
}

std::u16string DebugOutput() {
  const std::lock_guard lock(debug_mutex);
  return debug_output;
}

std::u16string StoredMessage(std::uint32_t code) {
  wchar_t text[4096];
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, code, 0, text, std::size(text), nullptr);
  return std::u16string(FromSystem(text), length);
}

std::int64_t Instant(std::tm local) {
  return _mktime64(&local);
}

// Small, and nothing that the test program or its libraries would load.
std::u16string LibraryOfTheSystem() {
  return u"lz32.dll";
}

// Asks for the list of all that the process has loaded: the calls that find one library by its name
// are what the back-end uses.
bool IsLoaded(const std::u16string& path) {
  const std::wstring wanted = std::filesystem::path(path).filename().wstring();
  std::vector<HMODULE> modules(1000);
  DWORD size = 0;
  if (!EnumProcessModules(GetCurrentProcess(), modules.data(),
                          static_cast<DWORD>(modules.size() * sizeof(HMODULE)), &size)) {
    Fail("EnumProcessModules", GetLastError());
  }
  modules.resize(size / sizeof(HMODULE));
  return std::any_of(modules.begin(), modules.end(), [&](HMODULE module) {
    return _wcsicmp(PathOfModule(module).filename().c_str(), wanted.c_str()) == 0;
  });
}

// From the place of a library that lies in it and that every process has.
std::u16string TheSystemDirectory() {
  return PathOfModule(GetModuleHandleW(L"kernel32.dll")).parent_path().u16string();
}

std::filesystem::path ThisProgram() {
  return PathOfModule(nullptr);
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  SetEnvironmentVariableW(ToSystem(name.c_str()), ToSystem(value.c_str()));
  variables.push_back(name);
}

// Winsock counts its users, and the tests want to see it without any.
void StartNetwork() {
  WSADATA data = {};
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
    throw std::runtime_error("WSAStartup failed");
  }
}

void EndNetwork() {
  WSACleanup();
}

bool ReadOnlyBinds(const std::u16string& path) {
  return !std::ofstream(SystemPath(path), std::ios::app);
}

std::filesystem::path SystemPath(std::u16string path) {
  return path;
}

}  // namespace platform::contract
