#include "platform/files.h"

#include <algorithm>
#include <utility>

#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/rehearsal/state.h"

namespace platform {
namespace {

using reading::Change;
using rehearsal::ChangedFile;
using rehearsal::Step;
using rehearsal::TheState;
using rehearsal::Took;

struct OpenedFile {
  OpenMode mode = OpenMode::kRead;
  std::u16string key;
  reading::File real;                    // where some of it is read from there
  std::shared_ptr<ChangedFile> changed;  // null while the real one is all there is
  std::uint64_t position = 0;
};

OpenedFile* Get(const File& file) {
  return reinterpret_cast<OpenedFile*>(static_cast<std::uintptr_t>(file.Get()));
}

std::u16string PathKey(const std::u16string& path) {
  std::u16string key;
  return ThrowWithoutMemory(reading::PathKey(path, key)) == kSuccess ? key : path;
}

// A device is no file, and would notice being looked at.
Status Look(const std::u16string& path) {
  return ThrowWithoutMemory(reading::LookBeforeOpening(path));
}

bool IsGone(const std::u16string& path) {
  return TheState().removed.contains(PathKey(path));
}

// By what a file is known: its identity, since it may have many paths, or its path where there is
// none. No path begins as an identity does.
std::u16string FileKey(const std::u16string& path) {
  FileIdentity identity;
  if (IsGone(path) || Look(path) != kSuccess ||
      ThrowWithoutMemory(reading::IdentifyFile(path, identity)) != kSuccess) {
    return PathKey(path);
  }
  std::u16string key = u"\n";
  for (int shift = 0; shift < 64; shift += 16) {
    key.push_back(static_cast<char16_t>(identity.volume >> shift));
  }
  key.append(identity.file.begin(), identity.file.end());
  return key;
}

std::shared_ptr<ChangedFile> FindChanged(const std::u16string& key) {
  const auto found = TheState().changed.find(key);
  return found == TheState().changed.end() ? nullptr : found->second;
}

// What changing the file would give, where the rehearsal may have made or removed it.
Status WouldChange(const std::u16string& path, const std::u16string& key, Change change) {
  const bool was_made = FindChanged(key) != nullptr;
  if (change == Change::kRemove && IsGone(path)) {
    return was_made ? kSuccess : kFileNotFound;
  }
  const Status status = reading::WouldChange(path, change);
  return status == kFileNotFound && was_made ? kSuccess : status;
}

std::uint64_t SizeOfReal(const std::u16string& path) {
  reading::File file;
  std::uint64_t bytes = 0;
  if (ThrowWithoutMemory(reading::OpenFileAt(path, reading::Sharing::kAll, file)) == kSuccess) {
    // A failure leaves it empty.
    static_cast<void>(reading::QueryFileSize(file.Get(), bytes));
  }
  return bytes;
}

Status OpenToRead(const std::u16string& path, OpenedFile& opened) {
  opened.key = FileKey(path);
  opened.changed = FindChanged(opened.key);
  if (opened.changed == nullptr && IsGone(path)) {
    return kFileNotFound;
  }
  if (const Status status = Look(path); status != kSuccess) {
    return status;
  }
  const bool needs_real = opened.changed == nullptr || opened.changed->kept > 0;
  return needs_real ? reading::OpenFileAt(path, reading::Sharing::kAll, opened.real) : kSuccess;
}

Status OpenToRewrite(const std::u16string& path, OpenedFile& opened) {
  opened.key = FileKey(path);
  const Status status = WouldChange(path, opened.key, Change::kRewrite);
  if (status == kSuccess) {
    std::shared_ptr<ChangedFile>& changed = TheState().changed[opened.key];
    if (changed == nullptr) {
      changed = std::make_shared<ChangedFile>();
    }
    *changed = ChangedFile();
    opened.changed = changed;
  }
  return Took(Step::Kind::kRewrite, path, 0, status);
}

// Reads on in the real file, up to what is kept of it.
Status ReadReal(OpenedFile& opened, char* buffer, std::size_t capacity, std::size_t& count) {
  if (opened.changed != nullptr) {
    const std::uint64_t kept = opened.changed->kept;
    const std::uint64_t left = kept - std::min(kept, opened.position);
    capacity = static_cast<std::size_t>(std::min<std::uint64_t>(capacity, left));
  }
  return capacity > 0 ? reading::ReadBytes(opened.real.Get(), buffer, capacity, count) : kSuccess;
}

}  // namespace

void FileTraits::Close(RawFile file) noexcept {
  delete reinterpret_cast<OpenedFile*>(static_cast<std::uintptr_t>(file));
}

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  file.Reset();
  return UnlessMemoryRunsOut([&] {
    auto opened = std::make_unique<OpenedFile>();
    opened->mode = mode;
    const Status status =
        mode == OpenMode::kRead ? OpenToRead(path, *opened) : OpenToRewrite(path, *opened);
    if (status == kSuccess) {
      file.Reset(RawFile{reinterpret_cast<std::uintptr_t>(opened.release())});
    }
    return status;
  });
}

Status QueryFileSize(const File& file, std::uint64_t& bytes) {
  if (!file) {
    return kInvalidHandle;
  }
  const OpenedFile& opened = *Get(file);
  if (opened.changed == nullptr) {
    return reading::QueryFileSize(opened.real.Get(), bytes);
  }
  bytes = opened.changed->kept + opened.changed->bytes.size();
  return kSuccess;
}

Status ReadBytes(const File& file, void* buffer, std::size_t capacity, std::size_t& count) {
  count = 0;
  if (!file) {
    return kInvalidHandle;
  }
  OpenedFile& opened = *Get(file);
  if (opened.mode != OpenMode::kRead) {
    return kAccessDenied;
  }
  if (opened.changed == nullptr) {
    opened.changed = FindChanged(opened.key);  // it may have been changed since
  }
  char* const bytes = static_cast<char*>(buffer);
  const Status status = ReadReal(opened, bytes, capacity, count);
  opened.position += count;
  if (status == kSuccess && opened.changed != nullptr && opened.position >= opened.changed->kept) {
    const std::string& rest = opened.changed->bytes;
    const std::uint64_t start = opened.position - opened.changed->kept;
    const std::size_t copied = start < rest.size() ? rest.copy(bytes + count, capacity - count,
                                                               static_cast<std::size_t>(start))
                                                   : 0;
    opened.position += copied;
    count += copied;
  }
  return status;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  if (!file) {
    return kInvalidHandle;
  }
  const OpenedFile& opened = *Get(file);
  if (opened.mode != OpenMode::kRewrite) {
    return kAccessDenied;
  }
  return UnlessMemoryRunsOut([&] {
    opened.changed->bytes.append(static_cast<const char*>(bytes), size);
    return kSuccess;
  });
}

Status AppendToFile(const std::u16string& path, const void* bytes, std::size_t size) {
  return UnlessMemoryRunsOut([&] {
    const std::u16string key = FileKey(path);
    const Status status = WouldChange(path, key, Change::kAppend);
    if (status == kSuccess) {
      std::shared_ptr<ChangedFile>& changed = TheState().changed[key];
      if (changed == nullptr) {
        changed = std::make_shared<ChangedFile>();
        changed->kept = IsGone(path) ? 0 : SizeOfReal(path);
      }
      changed->bytes.append(static_cast<const char*>(bytes), size);
    }
    return Took(Step::Kind::kAppend, path, size, status);
  });
}

Status RemoveFile(const std::u16string& path) {
  return UnlessMemoryRunsOut([&] {
    const std::u16string key = FileKey(path);
    const Status status = WouldChange(path, key, Change::kRemove);
    if (status == kSuccess) {
      // What is known by its identity may have another path.
      TheState().changed.erase(PathKey(path));
      TheState().removed.insert(PathKey(path));
    }
    return Took(Step::Kind::kRemove, path, 0, status);
  });
}

Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  return UnlessMemoryRunsOut([&] {
    const std::shared_ptr<ChangedFile> made = FindChanged(PathKey(path));
    if (made == nullptr) {
      const Status status = IsGone(path) ? kFileNotFound : Look(path);
      return status == kSuccess ? reading::IdentifyFile(path, identity) : status;
    }
    identity = {~std::uint64_t{0}, {}};  // no volume has this number
    const auto number = reinterpret_cast<std::uintptr_t>(made.get());
    for (std::size_t i = 0; i < sizeof(number); ++i) {
      identity.file[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
    return kSuccess;
  });
}

namespace rehearsal {

std::optional<std::string> ChangedBytes(const std::u16string& path) {
  File file;
  std::uint64_t size = 0;
  if (FindChanged(FileKey(path)) == nullptr ||
      ThrowWithoutMemory(OpenFileAt(path, OpenMode::kRead, file)) != kSuccess ||
      QueryFileSize(file, size) != kSuccess) {
    return std::nullopt;
  }
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::size_t count = 0;
  if (ReadBytes(file, bytes.data(), bytes.size(), count) != kSuccess) {
    return std::nullopt;
  }
  bytes.resize(count);
  return bytes;
}

}  // namespace rehearsal
}  // namespace platform
