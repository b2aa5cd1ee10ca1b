#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/codec/copy_if_it_fits.h"
#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/utf8.h"

namespace platform {
namespace {

// HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND).
constexpr std::int32_t kFolderUnknown = static_cast<std::int32_t>(0x80070003);

// RawFile counts from 1, since 0 owns nothing.
int Number(const File& file) {
  return static_cast<int>(static_cast<std::uintptr_t>(file.Get())) - 1;
}
RawFile Raw(int descriptor) {
  return RawFile{static_cast<std::uintptr_t>(descriptor) + 1};
}

// What errno says about `path`. The host has one number for a missing file and for a missing
// folder.
Status PathStatus(const std::string& path, int error) {
  switch (error) {
    case ENOENT:
      break;
    case ENXIO:
    case ENODEV:
      return kAccessDenied;  // A pipe that nobody reads, a socket, a device that is not there.
    case EAGAIN:
      return kSharingViolation;  // Another process would have to give a lease back first.
    default:
      return StatusFromErrno(error);
  }
  const std::size_t separator = path.rfind('/');
  struct stat folder = {};
  if (path.empty() || (separator != std::string::npos &&
                       stat(path.substr(0, separator + 1).c_str(), &folder) != 0)) {
    return kPathNotFound;
  }
  return kFileNotFound;
}

// A file that nobody may write is what Windows calls read-only, and Windows makes no exception for
// administrators.
bool IsReadOnly(const struct stat& properties) {
  return (properties.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

// What stands behind a pipe or a device may keep its user waiting for ever; so opening does not
// wait, and only files on a disk are used.
constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// Opens for writing without touching what the file holds, and creates it when it is missing.
Status OpenToWrite(const std::string& path, int flags, Descriptor& file, off_t& size) {
  file.Reset(open(path.c_str(), O_WRONLY | O_CREAT | kOpenFlags | flags, 0666));
  if (!file) {
    return PathStatus(path, errno);
  }
  struct stat properties = {};
  if (fstat(file.Get(), &properties) != 0) {
    return StatusFromErrno(errno);
  }
  size = properties.st_size;
  return S_ISREG(properties.st_mode) && !IsReadOnly(properties) ? kSuccess : kAccessDenied;
}

Status OpenToRewrite(const std::string& path, Descriptor& file) {
  off_t size = 0;
  if (const Status status = OpenToWrite(path, 0, file, size); status != kSuccess) {
    return status;
  }
  return size == 0 || ftruncate(file.Get(), 0) == 0 ? kSuccess : StatusFromErrno(errno);
}

Status OpenToRead(const std::string& path, Descriptor& file) {
  file.Reset(open(path.c_str(), O_RDONLY | kOpenFlags));
  if (!file) {
    return PathStatus(path, errno);
  }
  struct stat properties = {};
  if (fstat(file.Get(), &properties) != 0) {
    return StatusFromErrno(errno);
  }
  return S_ISREG(properties.st_mode) ? kSuccess : kAccessDenied;
}

}  // namespace

void FileTraits::Close(RawFile file) noexcept {
  close(static_cast<int>(static_cast<std::uintptr_t>(file)) - 1);
}

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  file.Reset();
  Descriptor opened;
  const Status status = UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    return mode == OpenMode::kRead ? OpenToRead(native, opened) : OpenToRewrite(native, opened);
  });
  if (status == kSuccess) {
    file.Reset(Raw(opened.Detach()));
  }
  return status;
}

Status QueryFileSize(const File& file, std::uint64_t& bytes) {
  struct stat properties = {};
  if (fstat(Number(file), &properties) != 0) {
    return StatusFromErrno(errno);
  }
  bytes = static_cast<std::uint64_t>(properties.st_size);
  return kSuccess;
}

Status ReadFrom(int descriptor, void* buffer, std::size_t capacity, std::size_t& count) {
  count = 0;
  while (count < capacity) {
    const ssize_t piece = read(descriptor, static_cast<char*>(buffer) + count, capacity - count);
    if (piece == 0) {
      break;
    }
    if (piece > 0) {
      count += static_cast<std::size_t>(piece);
    } else if (errno != EINTR) {
      return StatusFromErrno(errno);
    }
  }
  return kSuccess;
}

Status ReadBytes(const File& file, void* buffer, std::size_t capacity, std::size_t& count) {
  return ReadFrom(Number(file), buffer, capacity, count);
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t piece = write(Number(file), static_cast<const char*>(bytes) + done, size - done);
    if (piece == 0) {
      return kWriteFault;
    }
    if (piece > 0) {
      done += static_cast<std::size_t>(piece);
    } else if (errno != EINTR) {
      return StatusFromErrno(errno);
    }
  }
  return kSuccess;
}

Status AppendToFile(const std::u16string& path, const void* bytes, std::size_t size) {
  Descriptor file;
  off_t present = 0;
  if (const Status status = UnlessMemoryRunsOut(
          [&] { return OpenToWrite(NativePath(path), O_APPEND, file, present); });
      status != kSuccess) {
    return status;
  }
  ssize_t written = 0;
  do {
    written = write(file.Get(), bytes, size);
  } while (written < 0 && errno == EINTR);
  if (written < 0) {
    return StatusFromErrno(errno);
  }
  return static_cast<std::size_t>(written) == size ? kSuccess : kDiskFull;
}

Status RemoveFile(const std::u16string& path) {
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    struct stat properties = {};
    if (stat(native.c_str(), &properties) == 0 && IsReadOnly(properties)) {
      return kAccessDenied;
    }
    return unlink(native.c_str()) == 0 ? kSuccess : PathStatus(native, errno);
  });
}

Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    struct stat properties = {};
    if (stat(native.c_str(), &properties) != 0) {
      return PathStatus(native, errno);
    }
    if (!S_ISREG(properties.st_mode)) {
      return kAccessDenied;
    }
    identity = {properties.st_dev, {}};
    static_assert(sizeof(properties.st_ino) <= sizeof(identity.file));
    std::memcpy(identity.file.data(), &properties.st_ino, sizeof(properties.st_ino));
    return kSuccess;
  });
}

Status TemporaryFolder(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = 0;
  return UnlessMemoryRunsOut([&] {
    const char* const configured = std::getenv("TMPDIR");
    std::u16string folder =
        FromUtf8(configured != nullptr && *configured != '\0' ? configured : "/tmp");
    if (folder.back() != u'/') {
      folder.push_back(u'/');
    }
    length = software::CopyIfItFits(folder, buffer, capacity);
    return kSuccess;
  });
}

std::int32_t LocalApplicationDataFolder(std::u16string& folder) {
  folder.clear();
  return UnlessMemoryRunsOut(kOutOfMemoryResult, [&] {
    std::u16string found;
    if (const char* const data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != '\0') {
      found = FromUtf8(data);
    } else if (const char* const home = std::getenv("HOME"); home != nullptr && *home != '\0') {
      found = FromUtf8(home) + u"/.local/share";
    } else {
      return kFolderUnknown;
    }
    while (found.size() > 1 && found.back() == u'/') {
      found.pop_back();
    }
    folder = std::move(found);
    return 0;
  });
}

}  // namespace platform
