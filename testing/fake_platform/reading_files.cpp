#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/codec/copy_if_it_fits.h"
#include "platform/reading.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace fake {

OpenFile* FindOpen(LockedPlatform& locked, RawFile file) {
  const auto found = locked->open_files.find(static_cast<std::uintptr_t>(file));
  return found == locked->open_files.end() ? nullptr : &found->second;
}

std::u16string_view PathOf(const OpenFile* open) {
  return open == nullptr ? std::u16string_view() : open->path;
}

RawFile Opened(LockedPlatform& locked, std::shared_ptr<StoredFile> file, const std::u16string& path,
               OpenMode mode) {
  const std::uintptr_t handle = locked->NewHandle();
  locked->open_files[handle] = {std::move(file), path, mode};
  return RawFile{handle};
}

Status FindStored(LockedPlatform& locked, const std::u16string& path,
                  std::shared_ptr<StoredFile>& file) {
  const std::u16string normal = NormalPath(path);
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

}  // namespace fake

using fake::LockedPlatform;

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

namespace reading {
namespace {

// Reads on in an open file; gives the number of bytes.
std::size_t Read(fake::OpenFile& open, void* buffer, std::size_t capacity) {
  const std::string& bytes = open.file->bytes;
  const std::size_t start = std::min(open.position, bytes.size());
  const std::size_t count = std::min(capacity, bytes.size() - start);
  std::copy_n(bytes.data() + start, count, static_cast<char*>(buffer));
  open.position = start + count;
  return count;
}

}  // namespace

void FileTraits::Close(RawFile file) noexcept {
  LockedPlatform locked;
  locked->open_files.erase(static_cast<std::uintptr_t>(file));
}

Status LookBeforeOpening(const std::u16string& path) {
  LockedPlatform locked;
  const auto found = locked->files.find(fake::NormalPath(path));
  return found != locked->files.end() && found->second->is_pipe ? kAccessDenied : kSuccess;
}

Status OpenFileAt(const std::u16string& path, Sharing /*sharing*/, File& file) {
  file.Reset();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("OpenFileAt", path, u"kRead")) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  const Status status = FindStored(locked, path, stored);
  if (status == kSuccess) {
    file.Reset(Opened(locked, stored, path, OpenMode::kRead));
  }
  return status;
}

Status QueryFileSize(RawFile file, std::uint64_t& bytes) {
  LockedPlatform locked;
  const fake::OpenFile* const open = FindOpen(locked, file);
  if (const Status fault = locked.RecordFallible("QueryFileSize", PathOf(open))) {
    return fault;
  }
  if (open == nullptr) {
    return kInvalidHandle;
  }
  bytes = open->file->reported_size.value_or(open->file->bytes.size());
  return kSuccess;
}

Status ReadBytes(RawFile file, void* buffer, std::size_t capacity, std::size_t& count) {
  count = 0;
  LockedPlatform locked;
  fake::OpenFile* const open = FindOpen(locked, file);
  const Status fault = locked.RecordFallible("ReadBytes", PathOf(open), capacity);
  if (open == nullptr || open->mode != OpenMode::kRead) {
    return fault != kSuccess ? fault : open == nullptr ? kInvalidHandle : kAccessDenied;
  }
  count = Read(*open, buffer,
               fault == kSuccess ? capacity : std::min(capacity, locked->bytes_before_fault));
  return fault;
}

Status ReadBytesAt(RawFile file, std::uint64_t offset, void* buffer, std::size_t capacity,
                   std::size_t& count) {
  count = 0;
  LockedPlatform locked;
  fake::OpenFile* const open = FindOpen(locked, file);
  if (open == nullptr) {
    return kInvalidHandle;
  }
  open->position = static_cast<std::size_t>(offset);
  count = Read(*open, buffer, capacity);
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

Status WouldChange(const std::u16string& path, Change change) {
  LockedPlatform locked;
  std::shared_ptr<fake::StoredFile> stored;
  const Status status = FindStored(locked, path, stored);
  if (status == kFileNotFound && change != Change::kRemove) {
    return kSuccess;
  }
  return status == kSuccess && stored->read_only ? kAccessDenied : status;
}

Status FindLibrary(const std::u16string& name, std::u16string& path) {
  LockedPlatform locked;
  const bool is_bare = name.find_first_of(u"\\/") == std::u16string::npos;
  path.clear();
  if (is_bare && locked->process.loads_elf) {
    return kNotSupported;
  }
  path = is_bare ? locked->system_directory + u"\\" + name : name;
  return kSuccess;
}

// The current folder has no path of its own here.
Status CompletePath(const std::u16string& path, std::u16string& complete) {
  const bool has_root = path.find(u':') == 1 || path.starts_with(u"\\\\");
  complete = has_root ? path : u"C:\\Current\\" + path;
  return kSuccess;
}

Status PathKey(const std::u16string& path, std::u16string& key) {
  key = fake::NormalPath(path);
  return kSuccess;
}

}  // namespace reading
}  // namespace platform
