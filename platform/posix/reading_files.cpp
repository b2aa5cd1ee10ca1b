#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "platform/codec/copy_if_it_fits.h"
#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/file_status.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform {
namespace {

// HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND).
constexpr std::int32_t kFolderUnknown = static_cast<std::int32_t>(0x80070003);

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

// Where the name of a file begins in its path.
std::size_t NameStart(const std::string& path) {
  return path.rfind('/') + 1;  // npos + 1 is 0
}

// Whether files may be made and removed in the folder of `path`.
Status WouldChangeFolder(const std::string& path) {
  const std::string folder = path.substr(0, NameStart(path));
  return faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0
             ? kSuccess
             : StatusFromErrno(errno);
}

// In a folder as /tmp is, only who owns a file or the folder removes it.
bool MayRemoveIn(const std::string& path, const struct stat& file) {
  const std::string folder = path.substr(0, NameStart(path));
  struct stat properties = {};
  const uid_t user = geteuid();
  return stat(folder.empty() ? "." : folder.c_str(), &properties) != 0 ||
         (properties.st_mode & S_ISVTX) == 0 || user == 0 || user == file.st_uid ||
         user == properties.st_uid;
}

Status WouldChangeNative(const std::string& path, reading::Change change) {
  struct stat properties = {};
  if (stat(path.c_str(), &properties) != 0) {
    const Status status = PathStatus(path, errno);
    if (status != kFileNotFound || change == reading::Change::kRemove) {
      return status;
    }
    // A folder of this name would be meant.
    return NameStart(path) == path.size() ? StatusFromErrno(EISDIR) : WouldChangeFolder(path);
  }
  if (S_ISDIR(properties.st_mode) || IsReadOnly(properties)) {
    return kAccessDenied;
  }
  if (change == reading::Change::kRemove) {
    return MayRemoveIn(path, properties) ? WouldChangeFolder(path) : kAccessDenied;
  }
  if (faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    return StatusFromErrno(errno);
  }
  return S_ISREG(properties.st_mode) ? kSuccess : kAccessDenied;
}

}  // namespace

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

namespace reading {

void FileTraits::Close(RawFile file) noexcept {
  close(DescriptorOf(file));
}

Status LookBeforeOpening(const std::u16string& path) {
  return UnlessMemoryRunsOut([&] {
    struct stat properties = {};
    const bool is_quiet = stat(NativePath(path).c_str(), &properties) != 0 ||
                          S_ISREG(properties.st_mode) || S_ISDIR(properties.st_mode);
    return is_quiet ? kSuccess : kAccessDenied;
  });
}

// Who has a file open here never keeps others from anything.
Status OpenFileAt(const std::u16string& path, Sharing /*sharing*/, File& file) {
  file.Reset();
  Descriptor opened;
  const Status status = UnlessMemoryRunsOut([&] { return OpenToRead(NativePath(path), opened); });
  if (status == kSuccess) {
    file.Reset(FileOf(opened.Detach()));
  }
  return status;
}

Status QueryFileSize(RawFile file, std::uint64_t& bytes) {
  struct stat properties = {};
  if (fstat(DescriptorOf(file), &properties) != 0) {
    return StatusFromErrno(errno);
  }
  bytes = static_cast<std::uint64_t>(properties.st_size);
  return kSuccess;
}

Status ReadBytes(RawFile file, void* buffer, std::size_t capacity, std::size_t& count) {
  return ReadFrom(DescriptorOf(file), buffer, capacity, count);
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

Status WouldChange(const std::u16string& path, Change change) {
  return UnlessMemoryRunsOut([&] { return WouldChangeNative(NativePath(path), change); });
}

Status CompletePath(const std::u16string& path, std::u16string& complete) {
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    std::error_code error;
    complete = native.starts_with('/')
                   ? path
                   : FromUtf8((std::filesystem::current_path(error) / native).native());
    return kSuccess;
  });
}

Status PathKey(const std::u16string& path, std::u16string& key) {
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(path);
    std::error_code error;
    // Of the last name only the text counts: a link is removed itself.
    const std::filesystem::path folder = std::filesystem::weakly_canonical(
        std::filesystem::absolute("./" / std::filesystem::path(native.substr(0, NameStart(native))),
                                  error),
        error);
    key = FromUtf8((folder / native.substr(NameStart(native))).native());
    return kSuccess;
  });
}

}  // namespace reading
}  // namespace platform
