#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/file_status.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform {
namespace {

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

}  // namespace

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  file.Reset();
  if (mode == OpenMode::kRead) {
    reading::File opened;
    const Status status = reading::OpenFileAt(path, reading::Sharing::kAsTheTool, opened);
    file.Reset(opened.Detach());
    return status;
  }
  Descriptor opened;
  const Status status =
      UnlessMemoryRunsOut([&] { return OpenToRewrite(NativePath(path), opened); });
  if (status == kSuccess) {
    file.Reset(FileOf(opened.Detach()));
  }
  return status;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t piece =
        write(DescriptorOf(file.Get()), static_cast<const char*>(bytes) + done, size - done);
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

}  // namespace platform
