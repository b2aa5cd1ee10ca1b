#include <winsock2.h>
// In a block of its own: windows.h alone would declare winsock2.h's predecessor.
#include <windows.h>

#include <process.h>

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/windows/wide.h"
#include "testing/platform_contract/machine.h"
#include "testing/platform_contract/native.h"

namespace platform::contract {
namespace {

constexpr Hive kHives[] = {Hive::kCurrentUser, Hive::kLocalMachine, Hive::kClassesRoot};
// FILETIME counts 100 ns from 1601-01-01.
constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
// What OutputDebugStringW and OutputDebugStringA raise to reach a debugger.
constexpr DWORD kWidePrintException = 0x4001000A;
constexpr DWORD kPrintException = 0x40010006;

[[noreturn]] void Fail(const char* what, unsigned long number) {
  throw std::runtime_error(std::string(what) + ": error " + std::to_string(number));
}

SOCKET Socket(Connection connection) {
  return static_cast<SOCKET>(static_cast<std::uintptr_t>(connection));
}

Connection NewSocket() {
  const SOCKET made = WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, 0);
  if (made == INVALID_SOCKET) {
    Fail("socket", static_cast<unsigned long>(WSAGetLastError()));
  }
  // A copy of this program must not keep it open.
  SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
  return Connection{static_cast<std::uintptr_t>(made)};
}

sockaddr_in Address(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
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

HKEY MakeKey(Hive hive, const std::u16string& path) {
  HKEY key = nullptr;
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
  PrepareFilesAndPeers();
  RemoveKeys();
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
  ClearFilesAndPeers();
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

// The handle is another one than the seam's: to the system that is another program.
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

std::int64_t InstantOf(const LocalTime& local) {
  const SYSTEMTIME shown = {static_cast<WORD>(local.year),
                            static_cast<WORD>(local.month),
                            0,
                            static_cast<WORD>(local.day),
                            static_cast<WORD>(local.hour),
                            static_cast<WORD>(local.minute),
                            static_cast<WORD>(local.second),
                            0};
  SYSTEMTIME utc = {};
  FILETIME instant = {};
  if (!TzSpecificLocalTimeToSystemTime(nullptr, &shown, &utc) ||
      !SystemTimeToFileTime(&utc, &instant)) {
    Fail("TzSpecificLocalTimeToSystemTime", GetLastError());
  }
  const std::int64_t ticks =
      static_cast<std::int64_t>(instant.dwHighDateTime) << 32 | instant.dwLowDateTime;
  return ticks / kTicksPerSecond - kSecondsFrom1601To1970;
}

// Winsock counts its users; the tests of the seam want to see it without any. So the peers use it
// from the first of them on only.
namespace {

bool network_started = false;

void WantNetwork() {
  WSADATA data = {};
  if (!network_started && WSAStartup(MAKEWORD(2, 2), &data) != 0) {
    throw std::runtime_error("WSAStartup failed");
  }
  network_started = true;
}

}  // namespace

void StartNetwork() {}

void EndNetwork() {
  if (network_started) {
    WSACleanup();
    network_started = false;
  }
}

Connection ListenAnywhere(std::uint16_t& port) {
  WantNetwork();
  const Connection listener = NewSocket();
  sockaddr_in address = Address(0);
  int size = sizeof(address);
  if (bind(Socket(listener), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      listen(Socket(listener), SOMAXCONN) != 0 ||
      getsockname(Socket(listener), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    Fail("listen", static_cast<unsigned long>(WSAGetLastError()));
  }
  port = ntohs(address.sin_port);
  return listener;
}

Connection Accept(Connection listener) {
  const SOCKET accepted = accept(Socket(listener), nullptr, nullptr);
  if (accepted == INVALID_SOCKET) {
    Fail("accept", static_cast<unsigned long>(WSAGetLastError()));
  }
  SetHandleInformation(reinterpret_cast<HANDLE>(accepted), HANDLE_FLAG_INHERIT, 0);
  return Connection{static_cast<std::uintptr_t>(accepted)};
}

Connection ConnectTo(std::uint16_t port) {
  WantNetwork();
  const Connection made = NewSocket();
  const sockaddr_in address = Address(port);
  if (connect(Socket(made), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    Fail("connect", static_cast<unsigned long>(WSAGetLastError()));
  }
  return made;
}

std::size_t Receive(Connection connection, char* buffer, std::size_t capacity) {
  const int count = recv(Socket(connection), buffer, static_cast<int>(capacity), 0);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void CloseConnection(Connection connection) {
  closesocket(Socket(connection));
}

void EndSending(Connection connection) {
  shutdown(Socket(connection), SD_SEND);
}

void ResetConnection(Connection connection) {
  const linger at_once = {1, 0};
  setsockopt(Socket(connection), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
             sizeof(at_once));
  closesocket(Socket(connection));
}

void SetVariable(const std::string& name, const std::string& value) {
  _putenv_s(name.c_str(), value.c_str());
}

std::intptr_t StartCopy(const std::string& argument) {
  char program[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, program, std::size(program));
  const char* const arguments[] = {"copy", argument.c_str(), "--gtest_brief=1", nullptr};
  const std::intptr_t process = _spawnv(_P_NOWAIT, program, arguments);
  if (process == -1) {
    Fail("_spawnv", GetLastError());
  }
  return process;
}

int WaitForCopy(std::intptr_t process) {
  int status = -1;
  _cwait(&status, process, 0);
  return status;
}

bool IsWritable(const std::u16string& path) {
  HANDLE file =
      CreateFileW(ToSystem(path.c_str()), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  return file != INVALID_HANDLE_VALUE && CloseHandle(file);
}

std::filesystem::path SystemPath(std::u16string path) {
  return path;
}

}  // namespace platform::contract
