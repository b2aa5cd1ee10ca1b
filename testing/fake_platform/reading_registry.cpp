#include <algorithm>
#include <utility>

#include "platform/reading.h"
#include "testing/fake_platform/state.h"

namespace platform::reading {
namespace {

using fake::Hex;
using fake::LockedPlatform;

std::uintptr_t Number(RawKey key) {
  return static_cast<std::uintptr_t>(key);
}

// The path of an open key; empty for any other one.
std::u16string PathOf(LockedPlatform& locked, RawKey key) {
  const auto found = locked->open_keys.find(Number(key));
  return found == locked->open_keys.end() ? std::u16string() : found->second;
}

// `path` below `parent`; both from the hive's name on. No path means the parent itself.
std::u16string Below(std::u16string_view parent, const char16_t* path) {
  return fake::NormalKeyPath(
      std::u16string(parent).append(u"\\").append(path == nullptr ? u"" : path));
}

// Whether the rights to a key allow the access.
Status MayOpen(LockedPlatform& locked, const std::u16string& path, std::uint32_t access) {
  const bool is_more = (access & ~kKeyRead) != 0;
  return is_more && locked->read_only_keys.contains(path) ? kAccessDenied : kSuccess;
}

Status Open(LockedPlatform& locked, const std::u16string& path, std::uint32_t access, RawKey& key) {
  if (!locked->keys.contains(path)) {
    return kFileNotFound;
  }
  if (const Status status = MayOpen(locked, path, access); status != kSuccess) {
    return status;
  }
  const std::uintptr_t handle = locked->NewHandle();
  locked->open_keys[handle] = path;
  key = RawKey{handle};
  return kSuccess;
}

}  // namespace

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RawKey& key) {
  key = RawKey{};
  LockedPlatform locked;
  const std::u16string_view hive_name = fake::HiveName(hive);
  if (const Status fault = locked.RecordFallible("OpenKey", hive_name, path, Hex{access})) {
    return fault;
  }
  return Open(locked, Below(hive_name, path), access, key);
}

Status OpenSubKey(RawKey parent, const char16_t* path, std::uint32_t access, RawKey& key) {
  key = RawKey{};
  LockedPlatform locked;
  const std::u16string parent_path = PathOf(locked, parent);
  if (const Status fault = locked.RecordFallible("OpenSubKey", parent_path, path, Hex{access})) {
    return fault;
  }
  return parent_path.empty() ? kInvalidHandle : Open(locked, Below(parent_path, path), access, key);
}

Status QueryValue(RawKey key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("QueryValue", name, size)) {
    return fault;
  }
  const std::u16string path = PathOf(locked, key);
  if (path.empty()) {
    return kInvalidHandle;
  }
  const fake::RegistryValues& values = locked->keys.find(path)->second;
  const auto found = values.find(name == nullptr ? std::u16string_view() : name);
  if (found == values.end()) {
    return kFileNotFound;
  }
  const auto& [value_type, bytes] = found->second;
  const std::uint32_t capacity = size;
  size = static_cast<std::uint32_t>(bytes.size());
  if (type != nullptr) {
    *type = value_type;
  }
  if (data == nullptr) {
    return kSuccess;  // only the size is asked for
  }
  if (capacity < size) {
    return kMoreData;
  }
  std::copy(bytes.begin(), bytes.end(), static_cast<char*>(data));
  return kSuccess;
}

void LetGo(RawKey key) noexcept {
  LockedPlatform locked;
  locked->open_keys.erase(Number(key));
}

Status CloseKey(RawKey key) {
  LockedPlatform locked;
  const Status fault = locked.RecordFallible("CloseKey", PathOf(locked, key));
  const bool was_open = locked->open_keys.erase(Number(key)) != 0;
  return was_open || fault != kSuccess ? fault : kInvalidHandle;
}

Status WouldOpenKey(RawKey key, std::uint32_t access) {
  LockedPlatform locked;
  const std::u16string path = PathOf(locked, key);
  return path.empty() ? kInvalidHandle : MayOpen(locked, path, access);
}

}  // namespace platform::reading
