// A native back-end reads the machine as it is.
#include "platform/reading.h"

namespace platform {

void FileTraits::Close(RawFile file) noexcept {
  reading::FileTraits::Close(file);
}

Status QueryFileSize(const File& file, std::uint64_t& bytes) {
  return reading::QueryFileSize(file.Get(), bytes);
}

Status ReadBytes(const File& file, void* buffer, std::size_t capacity, std::size_t& count) {
  return reading::ReadBytes(file.Get(), buffer, capacity, count);
}

Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  return reading::IdentifyFile(path, identity);
}

void RegistryKeyTraits::Close(RawKey key) noexcept {
  reading::LetGo(key);
}

Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RegistryKey& key) {
  RawKey opened{};
  const Status status = reading::OpenKey(hive, path, access, opened);
  key.Reset(opened);
  return status;
}

Status OpenSubKey(const RegistryKey& parent, const char16_t* path, std::uint32_t access,
                  RegistryKey& key) {
  // `key` may be `parent`, so that what it holds is closed last.
  RawKey opened{};
  const Status status = reading::OpenSubKey(parent.Get(), path, access, opened);
  key.Reset(opened);
  return status;
}

Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type, void* data,
                  std::uint32_t& size) {
  return reading::QueryValue(key.Get(), name, type, data, size);
}

Status CloseKey(RegistryKey& key) {
  return reading::CloseKey(key.Detach());
}

}  // namespace platform
