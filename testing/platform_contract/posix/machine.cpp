#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/text.h"
#include "testing/platform_contract/machine.h"
#include "testing/platform_contract/native.h"

namespace platform::contract {

namespace e2e = zentpost::e2e;

namespace {

constexpr char kSystemDirectory[] = "/opt/contract system";

std::string registry_text;
std::map<std::string, std::optional<std::string>> saved_variables;

void ReplaceVariable(const std::string& name, const std::filesystem::path& value) {
  const char* const before = std::getenv(name.c_str());
  saved_variables.try_emplace(
      name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
  setenv(name.c_str(), value.c_str(), 1);
}

std::string RootName(Hive hive) {
  constexpr const char* kNames[] = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_CLASSES_ROOT"};
  return kNames[static_cast<std::size_t>(hive)];
}

// As the registry editor writes it: UTF-16LE with a byte order mark.
void WriteRegistry() {
  std::string bytes;
  for (const char16_t unit :
       u"\uFEFFWindows Registry Editor Version 5.00\r\n" + e2e::Utf16(registry_text)) {
    bytes.append({static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)});
  }
  e2e::WriteBytes(TestFolder() / "registry.reg", bytes);
}

std::string Hex(unsigned number) {
  char digits[16];
  std::snprintf(digits, sizeof(digits), "%x", number);
  return digits;
}

// Data as the registry editor writes bytes, wrapped after some of them.
std::string HexList(std::uint32_t type, std::string_view bytes) {
  std::string list = type == kRegBinary ? "hex:" : "hex(" + Hex(type) + "):";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    list += i == 0 ? "" : i % 20 == 19 ? ",\\\r\n  " : ",";
    list += Hex(static_cast<unsigned char>(bytes[i]));
  }
  return list;
}

}  // namespace

void PrepareMachine() {
  PrepareFilesAndPeers();
  std::filesystem::create_directory(TestFolder() / "data");
  ReplaceVariable("ZENTPOST_REGISTRY", TestFolder() / "registry.reg");
  ReplaceVariable("ZENTPOST_DEBUG_OUTPUT", TestFolder() / "debug.txt");
  ReplaceVariable("ZENTPOST_SYSTEM_DIRECTORY", kSystemDirectory);
  ReplaceVariable("XDG_DATA_HOME", TestFolder() / "data");
  ReplaceVariable("TMPDIR", TestFolder());
  registry_text.clear();
}

void ClearMachine() {
  for (const auto& [name, value] : saved_variables) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  saved_variables.clear();
  ClearFilesAndPeers();
}

bool MayChangeRegistry() {
  return true;
}

std::u16string KeyPath(std::u16string_view below) {
  return u"Software\\ZentpostContractTest" + std::u16string(below);
}

bool AddKey(Hive hive, const std::u16string& path) {
  registry_text += "\r\n[" + RootName(hive) + "\\" + e2e::Utf8(path) + "]\r\n";
  WriteRegistry();
  return true;
}

bool SetValue(Hive hive, const std::u16string& path, const std::u16string& name, std::uint32_t type,
              std::string_view bytes) {
  AddKey(hive, path);
  const std::string quoted =
      e2e::Replaced(e2e::Replaced(e2e::Utf8(name), "\\", "\\\\"), "\"", "\\\"");
  registry_text += (name.empty() ? "@" : '"' + quoted + '"') + "=" + HexList(type, bytes) + "\r\n";
  WriteRegistry();
  return true;
}

std::u16string Pipe() {
  const std::filesystem::path path = SystemPath(Folder() + u"/pipe");
  if (mkfifo(path.c_str(), 0600) != 0) {
    throw std::runtime_error("mkfifo failed");
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
    throw std::runtime_error("pipe failed");
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

std::u16string LibraryOfTheSystem() {
  // An old part of the C library that nothing needs any more.
  return u"libBrokenLocale.so.1";
}

// Looks through all that is mapped: the calls that find one library are what the back-end uses.
bool IsLoaded(const std::u16string& path) {
  std::ifstream maps("/proc/self/maps");
  const std::string wanted = "/" + SystemPath(path).filename().string();
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with(wanted)) {
      return true;
    }
  }
  return false;
}

std::u16string TheSystemDirectory() {
  return e2e::Utf16(kSystemDirectory);
}

void SetVariable(const std::u16string& name, const std::u16string& value) {
  ReplaceVariable(e2e::Utf8(name), value);
}

std::u16string DebugOutput() {
  return e2e::Utf16(e2e::ReadBytes(TestFolder() / "debug.txt").value_or(""));
}

std::u16string StoredMessage(std::uint32_t) {
  return {};
}

std::int64_t Instant(std::tm local) {
  return std::mktime(&local);
}

void StartNetwork() {}
void EndNetwork() {}

std::filesystem::path ThisProgram() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

// The back-end holds the superuser to them, too.
bool ReadOnlyBinds(const std::u16string& /*path*/) {
  return true;
}

std::filesystem::path SystemPath(std::u16string path) {
  std::replace(path.begin(), path.end(), u'\\', u'/');
  return path;
}

}  // namespace platform::contract
