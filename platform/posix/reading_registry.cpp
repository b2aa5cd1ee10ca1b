#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/reg_file.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform::reading {
namespace {

// A key knows its values as they stood when it was opened.
struct OpenedKey {
  std::string path;  // From HKEY_... on, in UTF-8.
  RegValues values;
};

OpenedKey* Get(RawKey key) {
  return reinterpret_cast<OpenedKey*>(static_cast<std::uintptr_t>(key));
}

std::string RootName(Hive hive) {
  constexpr const char* kNames[] = {"HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_CLASSES_ROOT"};
  return kNames[static_cast<std::size_t>(hive)];
}

// The file that stands for the registry; empty when the user has nowhere to put one.
std::string RegistryPath() {
  const auto variable = [](const char* name) {
    const char* const value = std::getenv(name);
    return std::string(value != nullptr ? value : "");
  };
  if (std::string path = variable("ZENTPOST_REGISTRY"); !path.empty()) {
    return path;
  }
  if (const std::string folder = variable("XDG_CONFIG_HOME"); !folder.empty()) {
    return folder + "/zentpost/registry.reg";
  }
  if (const std::string home = variable("HOME"); !home.empty()) {
    return home + "/.config/zentpost/registry.reg";
  }
  return {};
}

// A missing file is an empty one: a registry without keys.
Status ReadRegistry(std::string& bytes) {
  const Descriptor file(open(RegistryPath().c_str(), O_RDONLY | O_CLOEXEC));
  struct stat properties = {};
  if (!file || fstat(file.Get(), &properties) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? kSuccess : StatusFromErrno(errno);
  }
  bytes.resize(static_cast<std::size_t>(properties.st_size));
  std::size_t count = 0;
  const Status status = ReadFrom(file.Get(), bytes.data(), bytes.size(), count);
  bytes.resize(count);
  return status;
}

Status Open(std::string path, const char16_t* below, RawKey& key) {
  const bool is_root = path.find('\\') == std::string::npos;
  bool is_same = true;
  if (below != nullptr && *below != u'\0') {
    path += '\\' + ToUtf8(below);
    is_same = false;
  }
  // Windows does not mind a separator at the end.
  if (path.back() == '\\') {
    path.pop_back();
  }
  std::string bytes;
  if (const Status status = ReadRegistry(bytes); status != kSuccess) {
    return status;
  }
  RegKeys keys = ParseRegFile(std::move(bytes));
  if (is_root && is_same) {
    keys.try_emplace(path);  // The roots are always there.
  }
  const auto found = keys.find(path);
  if (found == keys.end()) {
    return kFileNotFound;
  }
  auto opened = std::make_unique<OpenedKey>(OpenedKey{std::move(path), std::move(found->second)});
  key = RawKey{reinterpret_cast<std::uintptr_t>(opened.release())};
  return kSuccess;
}

}  // namespace

// The file has no rights of its own for a key, so that every access is given.
Status OpenKey(Hive hive, const char16_t* path, std::uint32_t /*access*/, RawKey& key) {
  key = RawKey{};
  return UnlessMemoryRunsOut([&] { return Open(RootName(hive), path, key); });
}

Status OpenSubKey(RawKey parent, const char16_t* path, std::uint32_t /*access*/, RawKey& key) {
  key = RawKey{};
  if (parent == RawKey{}) {
    return kInvalidHandle;
  }
  return UnlessMemoryRunsOut([&] { return Open(Get(parent)->path, path, key); });
}

Status QueryValue(RawKey key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  if (key == RawKey{}) {
    return kInvalidHandle;
  }
  return UnlessMemoryRunsOut([&] {
    const RegValues& values = Get(key)->values;
    const auto found = values.find(name != nullptr ? ToUtf8(name) : std::string());
    if (found == values.end()) {
      return kFileNotFound;
    }
    const RegValue& value = found->second;
    const std::size_t capacity = size;
    size = static_cast<std::uint32_t>(value.data.size());
    if (type != nullptr) {
      *type = value.type;
    }
    if (data == nullptr) {
      return kSuccess;  // Only the size is asked for.
    }
    if (capacity < value.data.size()) {
      return kMoreData;
    }
    std::memcpy(data, value.data.data(), value.data.size());
    return kSuccess;
  });
}

void LetGo(RawKey key) noexcept {
  delete Get(key);
}

Status CloseKey(RawKey key) {
  LetGo(key);
  return key != RawKey{} ? kSuccess : kInvalidHandle;
}

Status WouldOpenKey(RawKey key, std::uint32_t /*access*/) {
  return key != RawKey{} ? kSuccess : kInvalidHandle;
}

}  // namespace platform::reading
