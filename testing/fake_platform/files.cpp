#include "platform/files.h"

#include <algorithm>

#include "platform/reading.h"
#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::LockedPlatform;

// The same for writing: makes the file when it is missing.
Status FindForWriting(LockedPlatform& locked, const std::u16string& path,
                      std::shared_ptr<fake::StoredFile>& file) {
  const Status status = fake::FindStored(locked, path, file);
  if (status != kFileNotFound) {
    return status == kSuccess && file->read_only ? kAccessDenied : status;
  }
  file = std::make_shared<fake::StoredFile>();
  locked->files[fake::NormalPath(path)] = file;
  return kSuccess;
}

// Writes on in an open file.
void Write(fake::OpenFile& open, const void* data, std::size_t size) {
  std::string& bytes = open.file->bytes;
  bytes.resize(std::max(bytes.size(), open.position + size));
  std::copy_n(static_cast<const char*>(data), size, bytes.data() + open.position);
  open.position += size;
}

}  // namespace

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  file.Reset();
  if (mode == OpenMode::kRead) {
    reading::File opened;
    const Status status = reading::OpenFileAt(path, reading::Sharing::kAsTheTool, opened);
    file.Reset(opened.Detach());
    return status;
  }
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("OpenFileAt", path, u"kRewrite")) {
    return fault;
  }
  std::shared_ptr<fake::StoredFile> stored;
  const Status status = FindForWriting(locked, path, stored);
  if (status == kSuccess) {
    stored->bytes.clear();
    file.Reset(fake::Opened(locked, stored, path, mode));
  }
  return status;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  LockedPlatform locked;
  fake::OpenFile* const open = fake::FindOpen(locked, file.Get());
  const Status fault = locked.RecordFallible("WriteBytes", fake::PathOf(open), size);
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
  if (const Status status = fake::FindStored(locked, path, stored)) {
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

}  // namespace platform
