#include "platform/registry.h"

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

namespace platform {
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

Status Open(std::string path, const char16_t* below, RegistryKey& key) {
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
  key.Reset(RawKey{reinterpret_cast<std::uintptr_t>(opened.release())});
  return kSuccess;
}

}  // namespace

void RegistryKeyTraits::Close(RawKey key) noexcept {
  delete Get(key);
}

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t, RegistryKey& key) {
  key.Reset();
  return UnlessMemoryRunsOut([&] { return Open(RootName(hive), path, key); });
}

Status OpenSubKey(const RegistryKey& parent, const char16_t* path, std::uint32_t,
                  RegistryKey& key) {
  // `key` may be `parent`, so that what it holds is closed last.
  RegistryKey opened;
  const Status status =
      parent ? UnlessMemoryRunsOut([&] { return Open(Get(parent.Get())->path, path, opened); })
             : kInvalidHandle;
  key = std::move(opened);
  return status;
}

Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  if (!key) {
    return kInvalidHandle;
  }
  return UnlessMemoryRunsOut([&] {
    const RegValues& values = Get(key.Get())->values;
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

Status CloseKey(RegistryKey& key) {
  if (!key) {
    return kInvalidHandle;
  }
  key.Reset();
  return kSuccess;
}

}  // namespace platform
