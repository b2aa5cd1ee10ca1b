#include "platform/registry.h"

#include <utility>

#include "platform/reading.h"

namespace platform {
namespace {

// A key that is asked for with more than reading is opened for reading, where its rights would give
// the rest as well.
Status Judged(Status status, RawKey opened, std::uint32_t access, RegistryKey& key) {
  RegistryKey judged(opened);
  if (status == kSuccess && (access & ~kKeyRead) != 0) {
    status = reading::WouldOpenKey(opened, access);
  }
  // `key` may be the one below which this one was opened, so that what it holds is closed last.
  key = status == kSuccess ? std::move(judged) : RegistryKey();
  return status;
}

}  // namespace

void RegistryKeyTraits::Close(RawKey key) noexcept {
  reading::LetGo(key);
}

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RegistryKey& key) {
  RawKey opened{};
  const Status status = reading::OpenKey(hive, path, access & kKeyRead, opened);
  return Judged(status, opened, access, key);
}

Status OpenSubKey(const RegistryKey& parent, const char16_t* path, std::uint32_t access,
                  RegistryKey& key) {
  RawKey opened{};
  const Status status = reading::OpenSubKey(parent.Get(), path, access & kKeyRead, opened);
  return Judged(status, opened, access, key);
}

Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  return reading::QueryValue(key.Get(), name, type, data, size);
}

Status CloseKey(RegistryKey& key) {
  return reading::CloseKey(key.Detach());
}

}  // namespace platform
