#include "platform/files.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/codec/copy_if_it_fits.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::LockedPlatform;

// The open file, or null.
fake::OpenFile* Find(LockedPlatform& locked, const File& file) {
  const auto found = locked->open_files.find(static_cast<std::uintptr_t>(file.Get()));
  return found == locked->open_files.end() ? nullptr : &found->second;
}

std::u16string_view PathOf(const fake::OpenFile* open) {
  return open == nullptr ? std::u16string_view() : open->path;
}

// Finds the file at `path`. Gives kFileNotFound when only the file itself is missing, kAccessDenied
// when something else is there.
Status FindStored(LockedPlatform& locked, const std::u16string& path,
                  std::shared_ptr<fake::StoredFile>& file) {
  const std::u16string normal = fake::NormalPath(path);
  if (path.empty() || !locked->HasParent(normal)) {
    return kPathNotFound;
  }
  if (locked->IsFolder(normal)) {
    return kAccessDenied;
  }
  if (path.back() == u'\\' || path.back() == u'/') {
    return kPathNotFound;  // a folder is meant
  }
  const auto found = locked->files.find(normal);
  if (found == locked->files.end()) {
    return kFileNotFound;
  }
  if (found->second->is_pipe) {
    return kAccessDenied;
  }
  file = found->second;
  return kSuccess;
}

// The same for writing: makes the file when it is missing.
Status FindForWriting(LockedPlatform& locked, const std::u16string& path,
                      std::shared_ptr<fake::StoredFile>& file) {
  const Status status = FindStored(locked, path, file);
  if (status != kFileNotFound) {
    return status == kSuccess && file->read_only ? kAccessDenied : status;
  }
  file = std::make_shared<fake::StoredFile>();
  locked->files[fake::NormalPath(path)] = file;
  return kSuccess;
}

// Reads on in an open file; gives the number of bytes.
std::size_t Read(fake::OpenFile& open, void* buffer, std::size_t capacity) {
  const std::string& bytes = open.file->bytes;
  const std::size_t start = std::min(open.position, bytes.size());
  const std::size_t count = std::min(capacity, bytes.size() - start);
  std::copy_n(bytes.data() + start, count, static_cast<char*>(buffer));
  open.position = start + count;
  return count;
}

// Writes on in an open file.
void Write(fake::OpenFile& open, const void* data, std::size_t size) {
  std::string& bytes = open.file->bytes;
  bytes.resize(std::max(bytes.size(), open.position + size));
  std::copy_n(static_cast<const char*>(data), size, bytes.data() + open.position);
  open.position += size;
}

}  // namespace

void FileTraits::Close(RawFile file) noexcept {
  LockedPlatform locked;
  locked->open_files.erase(static_cast<std::uintptr_t>(file));
}

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  file.Reset();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible(
          "OpenFileAt", path, mode == OpenMode::kRead ? u"kRead" : u"kRewrite")) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  const Status status = mode == OpenMode::kRead ? FindStored(locked, path, stored)
                                                : FindForWriting(locked, path, stored);
  if (status != kSuccess) {
    return status;
  }
  if (mode == OpenMode::kRewrite) {
    stored->bytes.clear();
  }
  const std::uintptr_t handle = locked->NewHandle();
  locked->open_files[handle] = {stored, path, mode};
  file.Reset(RawFile{handle});
  return kSuccess;
}

Status QueryFileSize(const File& file, std::uint64_t& bytes) {
  LockedPlatform locked;
  const fake::OpenFile* const open = Find(locked, file);
  if (const Status fault = locked.RecordFallible("QueryFileSize", PathOf(open))) {
    return fault;
  }
  if (open == nullptr) {
    return kInvalidHandle;
  }
  bytes = open->file->reported_size.value_or(open->file->bytes.size());
  return kSuccess;
}

Status ReadBytes(const File& file, void* buffer, std::size_t capacity, std::size_t& count) {
  count = 0;
  LockedPlatform locked;
  fake::OpenFile* const open = Find(locked, file);
  const Status fault = locked.RecordFallible("ReadBytes", PathOf(open), capacity);
  if (open == nullptr || open->mode != OpenMode::kRead) {
    return fault != kSuccess ? fault : open == nullptr ? kInvalidHandle : kAccessDenied;
  }
  count = Read(*open, buffer,
               fault == kSuccess ? capacity : std::min(capacity, locked->bytes_before_fault));
  return fault;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  LockedPlatform locked;
  fake::OpenFile* const open = Find(locked, file);
  const Status fault = locked.RecordFallible("WriteBytes", PathOf(open), size);
  if (open == nullptr || open->mode != OpenMode::kRewrite) {
    return fault != kSuccess ? fault : open == nullptr ? kInvalidHandle : kAccessDenied;
  }
  Write(*open, bytes, fault == kSuccess ? size : std::min(size, locked->bytes_before_fault));
  return fault;
}

Status AppendToFile(const std::u16string& path, const void* bytes, std::size_t size) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("AppendToFile", path, size)) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  const Status status = FindForWriting(locked, path, stored);
  if (status == kSuccess) {
    stored->bytes.append(static_cast<const char*>(bytes), size);
  }
  return status;
}

Status RemoveFile(const std::u16string& path) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("RemoveFile", path)) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  if (const Status status = FindStored(locked, path, stored)) {
    return status;
  }
  if (stored->read_only) {
    return kAccessDenied;
  }
  const bool is_open = std::any_of(locked->open_files.begin(), locked->open_files.end(),
                                   [&](const auto& open) { return open.second.file == stored; });
  if (is_open) {
    return kSharingViolation;
  }
  locked->files.erase(fake::NormalPath(path));
  return kSuccess;
}

Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("IdentifyFile", path)) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  if (const Status status = FindStored(locked, path, stored)) {
    return status;
  }
  identity = {1, {}};
  const auto number = reinterpret_cast<std::uintptr_t>(stored.get());
  std::memcpy(identity.file.data(), &number, sizeof(number));
  return kSuccess;
}

Status TemporaryFolder(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = 0;
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("TemporaryFolder", capacity)) {
    return fault;
  }
  length = software::CopyIfItFits(locked->temporary_folder, buffer, capacity);
  return kSuccess;
}

std::int32_t LocalApplicationDataFolder(std::u16string& folder) {
  folder.clear();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("LocalApplicationDataFolder")) {
    constexpr std::uint32_t kFailureBit = 0x80000000;
    constexpr std::uint32_t kFromWin32 = 0x80070000;
    const bool is_hresult = (fault & kFailureBit) != 0;
    return static_cast<std::int32_t>(is_hresult ? fault : kFromWin32 | (fault & 0xffff));
  }
  if (locked->local_application_data_result >= 0) {
    folder = locked->local_application_data;
  }
  return locked->local_application_data_result;
}

}  // namespace platform
