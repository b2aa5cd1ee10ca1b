#include "platform/registry.h"

#include <algorithm>
#include <utility>

#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::Hex;
using fake::LockedMachine;

std::uintptr_t Number(RawKey key) {
  return static_cast<std::uintptr_t>(key);
}

// The path of an open key; empty for any other one.
std::u16string PathOf(LockedMachine& machine, RawKey key) {
  const auto found = machine->open_keys.find(Number(key));
  return found == machine->open_keys.end() ? std::u16string() : found->second;
}

// `path` below `parent`; both from the hive's name on. No path means the parent itself.
std::u16string Below(std::u16string_view parent, const char16_t* path) {
  return fake::NormalKeyPath(
      std::u16string(parent).append(u"\\").append(path == nullptr ? u"" : path));
}

Status Open(LockedMachine& machine, const std::u16string& path, RegistryKey& key) {
  if (!machine->keys.contains(path)) {
    return kFileNotFound;
  }
  const std::uintptr_t handle = machine->NewHandle();
  machine->open_keys[handle] = path;
  key.Reset(RawKey{handle});
  return kSuccess;
}

}  // namespace

void RegistryKeyTraits::Close(RawKey key) noexcept {
  LockedMachine machine;
  machine->open_keys.erase(Number(key));
}

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RegistryKey& key) {
  key.Reset();
  LockedMachine machine;
  const std::u16string_view hive_name = fake::HiveName(hive);
  if (const Status fault = machine.RecordFallible("OpenKey", hive_name, path, Hex{access})) {
    return fault;
  }
  return Open(machine, Below(hive_name, path), key);
}

Status OpenSubKey(const RegistryKey& parent, const char16_t* path, std::uint32_t access,
                  RegistryKey& key) {
  // `key` may be `parent`, so that what it holds is closed last.
  RegistryKey opened;
  Status status = kSuccess;
  {
    LockedMachine machine;
    const std::u16string parent_path = PathOf(machine, parent.Get());
    status = machine.RecordFallible("OpenSubKey", parent_path, path, Hex{access});
    if (status == kSuccess) {
      status =
          parent_path.empty() ? kInvalidHandle : Open(machine, Below(parent_path, path), opened);
    }
  }
  key = std::move(opened);
  return status;
}

Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  LockedMachine machine;
  if (const Status fault = machine.RecordFallible("QueryValue", name, size)) {
    return fault;
  }
  const std::u16string path = PathOf(machine, key.Get());
  if (path.empty()) {
    return kInvalidHandle;
  }
  const fake::RegistryValues& values = machine->keys.find(path)->second;
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

Status CloseKey(RegistryKey& key) {
  const RawKey raw = key.Detach();
  LockedMachine machine;
  const Status fault = machine.RecordFallible("CloseKey", PathOf(machine, raw));
  const bool was_open = machine->open_keys.erase(Number(raw)) != 0;
  return was_open || fault != kSuccess ? fault : kInvalidHandle;
}

}  // namespace platform
