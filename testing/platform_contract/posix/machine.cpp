#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "testing/platform_contract/machine.h"
#include "testing/platform_contract/native.h"

extern char** environ;

namespace platform::contract {
namespace {

[[noreturn]] void Fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int Descriptor(Connection connection) {
  return static_cast<int>(static_cast<std::uintptr_t>(connection));
}

Connection NewSocket() {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (made < 0) {
    Fail("socket");
  }
  return Connection{static_cast<std::uintptr_t>(made)};
}

sockaddr_in Address(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// The machine's own files: the registry, the debugger's output.
std::filesystem::path machine_folder;
std::u16string registry_text;
std::map<std::string, std::optional<std::string>> saved_variables;

void ReplaceVariable(const std::string& name, const std::filesystem::path& value) {
  const char* const before = std::getenv(name.c_str());
  saved_variables[name] = before != nullptr ? std::optional<std::string>(before) : std::nullopt;
  setenv(name.c_str(), value.c_str(), 1);
}

void RestoreVariables() {
  for (const auto& [name, value] : saved_variables) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  saved_variables.clear();
}

std::u16string_view RootName(Hive hive) {
  switch (hive) {
    case Hive::kCurrentUser:
      return u"HKEY_CURRENT_USER";
    case Hive::kLocalMachine:
      return u"HKEY_LOCAL_MACHINE";
    case Hive::kClassesRoot:
      return u"HKEY_CLASSES_ROOT";
  }
  return {};
}

// As the registry editor writes it: UTF-16LE with a byte order mark.
void WriteRegistry() {
  std::ofstream file(machine_folder / "registry.reg", std::ios::binary | std::ios::trunc);
  for (const char16_t unit : u"\uFEFFWindows Registry Editor Version 5.00\r\n" + registry_text) {
    file.put(static_cast<char>(unit & 0xFF)).put(static_cast<char>(unit >> 8));
  }
}

std::u16string Hex(unsigned number) {
  std::u16string digits;
  do {
    digits.insert(digits.begin(), u"0123456789abcdef"[number % 16]);
    number /= 16;
  } while (number != 0);
  return digits;
}

std::u16string Quoted(const std::u16string& text) {
  std::u16string quoted = u"\"";
  for (const char16_t unit : text) {
    if (unit == u'"' || unit == u'\\') {
      quoted += u'\\';
    }
    quoted += unit;
  }
  return quoted + u'"';
}

// Data as the registry editor writes bytes, wrapped after some of them.
std::u16string HexList(std::uint32_t type, std::string_view bytes) {
  std::u16string list = type == kRegBinary ? u"hex:" : u"hex(" + Hex(type) + u"):";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) {
      list += u',';
    }
    if (i % 20 == 19) {
      list += u"\\\r\n  ";
    }
    list += Hex(static_cast<unsigned char>(bytes[i]));
  }
  return list;
}

}  // namespace

void PrepareMachine() {
  PrepareFilesAndPeers();
  machine_folder = MakeFolder();
  std::filesystem::create_directory(machine_folder / "data");
  ReplaceVariable("ZENTPOST_REGISTRY", machine_folder / "registry.reg");
  ReplaceVariable("ZENTPOST_DEBUG_OUTPUT", machine_folder / "debug.txt");
  ReplaceVariable("XDG_DATA_HOME", machine_folder / "data");
  ReplaceVariable("TMPDIR", machine_folder);
  registry_text.clear();
}

void ClearMachine() {
  RestoreVariables();
  RemoveFolder(machine_folder);
  ClearFilesAndPeers();
}

std::u16string KeyPath(std::u16string_view below) {
  return u"Software\\ZentpostContractTest" + std::u16string(below);
}

bool AddKey(Hive hive, const std::u16string& path) {
  registry_text.append(u"\r\n[").append(RootName(hive)).append(u"\\" + path + u"]\r\n");
  WriteRegistry();
  return true;
}

bool SetValue(Hive hive, const std::u16string& path, const std::u16string& name, std::uint32_t type,
              std::string_view bytes) {
  AddKey(hive, path);
  registry_text += name.empty() ? u"@" : Quoted(name);
  registry_text += u"=" + HexList(type, bytes) + u"\r\n";
  WriteRegistry();
  return true;
}

std::u16string Pipe() {
  const std::filesystem::path path = SystemPath(Folder() + u"/pipe");
  if (mkfifo(path.c_str(), 0600) != 0) {
    Fail("mkfifo");
  }
  return path.u16string();
}

std::optional<std::u16string> ShortName(const std::u16string&) {
  return std::nullopt;
}

// There are only locks, of two kinds, and a program's own are none to itself: another process takes
// them.
std::shared_ptr<void> HoldFile(const std::u16string& path, Hold) {
  const std::filesystem::path native = SystemPath(path);
  int ready[2] = {};
  if (pipe(ready) != 0) {
    Fail("pipe");
  }
  const pid_t holder = fork();
  if (holder == 0) {
    const int file = open(native.c_str(), O_RDWR);
    struct flock everything = {};
    everything.l_type = F_WRLCK;
    everything.l_whence = SEEK_SET;
    const bool taken =
        file >= 0 && flock(file, LOCK_EX) == 0 && fcntl(file, F_SETLK, &everything) == 0;
    const char answer = taken ? 'y' : 'n';
    if (write(ready[1], &answer, 1) == 1) {
      pause();
    }
    _exit(1);
  }
  close(ready[1]);
  char answer = 'n';
  const bool answered = holder > 0 && read(ready[0], &answer, 1) == 1;
  close(ready[0]);
  std::shared_ptr<void> held(nullptr, [holder](void*) {
    if (holder > 0) {
      kill(holder, SIGKILL);
      waitpid(holder, nullptr, 0);
    }
  });
  if (!answered || answer != 'y') {
    throw std::runtime_error("a file of the test could not be locked");
  }
  return held;
}

std::u16string DebugOutput() {
  std::ifstream file(machine_folder / "debug.txt", std::ios::binary);
  return std::filesystem::path(std::string(std::istreambuf_iterator<char>(file), {})).u16string();
}

std::u16string StoredMessage(std::uint32_t) {
  return {};
}

std::int64_t InstantOf(const LocalTime& local) {
  std::tm fields = {};
  fields.tm_year = local.year - 1900;
  fields.tm_mon = local.month - 1;
  fields.tm_mday = local.day;
  fields.tm_hour = local.hour;
  fields.tm_min = local.minute;
  fields.tm_sec = local.second;
  fields.tm_isdst = -1;
  return std::mktime(&fields);
}

void StartNetwork() {}
void EndNetwork() {}

Connection ListenAnywhere(std::uint16_t& port) {
  const Connection listener = NewSocket();
  sockaddr_in address = Address(0);
  socklen_t size = sizeof(address);
  if (bind(Descriptor(listener), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      listen(Descriptor(listener), SOMAXCONN) != 0 ||
      getsockname(Descriptor(listener), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    Fail("listen");
  }
  port = ntohs(address.sin_port);
  return listener;
}

Connection Accept(Connection listener) {
  const int accepted = accept4(Descriptor(listener), nullptr, nullptr, SOCK_CLOEXEC);
  if (accepted < 0) {
    Fail("accept");
  }
  return Connection{static_cast<std::uintptr_t>(accepted)};
}

Connection ConnectTo(std::uint16_t port) {
  const Connection made = NewSocket();
  const sockaddr_in address = Address(port);
  if (connect(Descriptor(made), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
      0) {
    Fail("connect");
  }
  return made;
}

std::size_t Receive(Connection connection, char* buffer, std::size_t capacity) {
  const ssize_t count = recv(Descriptor(connection), buffer, capacity, 0);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void CloseConnection(Connection connection) {
  close(Descriptor(connection));
}

void EndSending(Connection connection) {
  shutdown(Descriptor(connection), SHUT_WR);
}

void ResetConnection(Connection connection) {
  const linger at_once = {1, 0};
  setsockopt(Descriptor(connection), SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
  close(Descriptor(connection));
}

void SetVariable(const std::string& name, const std::string& value) {
  setenv(name.c_str(), value.c_str(), 1);
}

std::intptr_t StartCopy(const std::string& argument) {
  std::string name = "copy";
  std::string only = argument;
  std::string brief = "--gtest_brief=1";
  char* const arguments[] = {name.data(), only.data(), brief.data(), nullptr};
  pid_t process = 0;
  errno = posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, arguments, environ);
  if (errno != 0) {
    Fail("posix_spawn");
  }
  return process;
}

int WaitForCopy(std::intptr_t process) {
  int status = 0;
  if (waitpid(static_cast<pid_t>(process), &status, 0) < 0) {
    Fail("waitpid");
  }
  return status;
}

// The superuser too is held to a file's permissions.
bool IsWritable(const std::u16string& path) {
  using std::filesystem::perms;
  const perms writable = perms::owner_write | perms::group_write | perms::others_write;
  return (std::filesystem::status(SystemPath(path)).permissions() & writable) != perms::none;
}

std::filesystem::path SystemPath(std::u16string path) {
  std::replace(path.begin(), path.end(), u'\\', u'/');
  return path;
}

}  // namespace platform::contract
