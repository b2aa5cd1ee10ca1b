#include "testing/end_to_end/machine.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/text.h"

namespace zentpost::e2e {
namespace {

// Text in quotes, as the registry editor writes it.
std::string InQuotes(std::string_view text) {
  return '"' + Replaced(Replaced(std::string(text), "\\", "\\\\"), "\"", "\\\"") + '"';
}

// The same with its variables to be expanded: UTF-16LE with a terminator, byte by byte.
std::string Expandable(std::string_view text) {
  std::string bytes = "hex(2):";
  for (const char16_t unit : Utf16(text) + u'\0') {
    char two[8];
    std::snprintf(two, sizeof two, "%02x,%02x,", unit & 0xFFu, unsigned{unit} >> 8);
    bytes += two;
  }
  bytes.pop_back();
  return bytes;
}

}  // namespace

std::string TakeMachineOver() {
  return "";
}
void GiveMachineBack() {}

struct ReadOnly::State {
  std::filesystem::path path;
};

ReadOnly::ReadOnly(const std::filesystem::path& path) : state_(new State{path}) {
  chmod(path.c_str(), S_IRUSR | S_IRGRP | S_IROTH);
}

ReadOnly::~ReadOnly() {
  chmod(state_->path.c_str(), S_IRUSR | S_IWUSR);
}

// The registry is a file in the format of the registry editor's exports, written anew after every
// change.
struct Machine::Registry {
  std::filesystem::path file;
  // Per key its values, each as the line that stands for it.
  std::map<std::string, std::map<std::string, std::string>> keys;

  std::map<std::string, std::string>& Key(Hive hive, std::u16string_view key) {
    return keys[(hive == Hive::kCurrentUser ? "HKEY_CURRENT_USER\\" : "HKEY_LOCAL_MACHINE\\") +
                Utf8(key)];
  }

  void Set(Hive hive, std::u16string_view key, std::u16string_view name, const std::string& data) {
    Key(hive, key)[name.empty() ? "@" : InQuotes(Utf8(name))] = data;
    Write();
  }

  void Write() const {
    std::string text = "Windows Registry Editor Version 5.00\r\n";
    for (const auto& [key, values] : keys) {
      text += "\r\n[" + key + "]\r\n";
      for (const auto& [name, data] : values) {
        text.append(name).append("=").append(data).append("\r\n");
      }
    }
    WriteBytes(file, text);
  }
};

namespace {

constexpr rlim_t kLittleMemory = rlim_t{1} << 30;

void LimitMemory(rlim_t bytes) {
  rlimit limit = {};
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = bytes;
  setrlimit(RLIMIT_AS, &limit);
}

}  // namespace

// A process under a sanitizer has taken more addresses than that from the beginning.
bool LittleMemory::IsPossible() {
  std::ifstream sizes("/proc/self/statm");
  rlim_t pages = 0;
  sizes >> pages;
  return sizes && pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) < kLittleMemory;
}
LittleMemory::LittleMemory() {
  LimitMemory(kLittleMemory);
}
LittleMemory::~LittleMemory() {
  LimitMemory(RLIM_INFINITY);
}

std::vector<std::filesystem::path> OtherWaysTo(const std::filesystem::path& path) {
  const std::filesystem::path link = path.parent_path() / "symbolic link";
  if (!std::filesystem::exists(link)) {
    std::filesystem::create_symlink(path, link);
  }
  return {link};
}

Machine::Machine() : folder_(MakeTestFolder()), registry_(new Registry) {
  std::filesystem::create_directory(TemporaryFolder());
  registry_->file = folder_ / "registry.reg";
  registry_->Write();
}

Machine::~Machine() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void Machine::SetText(Hive hive, std::u16string_view key, std::u16string_view name,
                      std::string_view text, TextKind kind) {
  registry_->Set(hive, key, name,
                 kind == TextKind::kExpandable ? Expandable(text) : InQuotes(text));
}

void Machine::SetNumber(Hive hive, std::u16string_view key, std::u16string_view name,
                        std::uint32_t number) {
  char data[] = "dword:00000000";
  std::snprintf(data, sizeof data, "dword:%08x", unsigned{number});
  registry_->Set(hive, key, name, data);
}

void Machine::AddKey(Hive hive, std::u16string_view key) {
  registry_->Key(hive, key);
  registry_->Write();
}

bool Machine::CanWrite(Hive) {
  return true;
}

std::string Machine::RegistryContents() const {
  return ReadBytes(registry_->file).value_or("");
}

std::filesystem::path Machine::LogFolder() const {
  return folder_ / "local" / "VORNA" / "Client" / "Log";
}

void Machine::AddLogFolder() {
  std::filesystem::create_directories(LogFolder());
}

std::filesystem::path Machine::AddPipe() {
  std::filesystem::path path = folder_ / "pipe";
  if (mkfifo(path.c_str(), S_IRUSR | S_IWUSR) != 0) {
    throw std::runtime_error("mkfifo failed");
  }
  return path;
}

ProcessOptions Machine::Options() const {
  ProcessOptions options;
  options.folder = folder_;
  options.environment = variables_;
  options.environment.emplace_back("ZENTPOST_REGISTRY", registry_->file);
  options.environment.emplace_back("XDG_DATA_HOME", folder_ / "local");
  options.environment.emplace_back("TMPDIR", TemporaryFolder());
  return options;
}

}  // namespace zentpost::e2e
