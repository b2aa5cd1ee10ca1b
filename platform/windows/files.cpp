#include "platform/files.h"

#include <shlobj.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "platform/memory_failure.h"
#include "platform/windows/append_lock.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

// One call moves at most what a DWORD counts; a round number below it keeps the calls few.
constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

// How long AppendToFile waits for its lock.
constexpr DWORD kLockMilliseconds = 2000;

// What Windows 8 and later tell of a file (published in winbase.h as FILE_ID_INFO and FileIdInfo,
// which the headers keep back from programs that run on Windows 7, too).
struct FileIdInformation {
  ULONGLONG volume;
  std::uint8_t file[16];
};
constexpr auto kFileIdInformation = static_cast<FILE_INFO_BY_HANDLE_CLASS>(18);

HANDLE Handle(const File& file) {
  return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(file.Get()));
}

DWORD Piece(std::size_t size) {
  return static_cast<DWORD>(std::min(size, kLargestPiece));
}

// Opens a file on a disk; nothing else, since what stands behind a pipe or a port may keep its user
// waiting for ever.
Status Open(const std::u16string& path, DWORD access, DWORD sharing, DWORD disposition,
            File& file) {
  HANDLE opened = CreateFileW(ToSystem(path.c_str()), access, sharing, nullptr, disposition,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) {
    const Status status = GetLastError();
    file.Reset();
    return status == ERROR_PIPE_BUSY ? kAccessDenied : status;
  }
  file.Reset(RawFile{reinterpret_cast<std::uintptr_t>(opened)});
  if (GetFileType(opened) != FILE_TYPE_DISK) {
    file.Reset();
    return kAccessDenied;
  }
  return kSuccess;
}

// Whether a wait for a lock has timed out in this process: somebody keeps it, so there is no use in
// waiting for the next one.
std::atomic<bool> lock_timed_out = false;

// A lock among the processes that append to one file, held as long as this lives. Whoever cannot
// have it (another program keeps it, or the system refuses) goes on without.
class AppendLock {
 public:
  explicit AppendLock(const std::u16string& path) {
    const AppendLockName name = NameOfAppendLock(path);
    mutex_ = CreateMutexExW(nullptr, ToSystem(name.data()), 0, SYNCHRONIZE | MUTEX_MODIFY_STATE);
    if (mutex_ == nullptr) {
      return;
    }
    switch (WaitForSingleObject(mutex_, lock_timed_out ? 0 : kLockMilliseconds)) {
      case WAIT_OBJECT_0:
      case WAIT_ABANDONED:  // its owner has ended without giving it back
        taken_ = true;
        break;
      case WAIT_TIMEOUT:
        lock_timed_out = true;
        break;
      default:
        break;
    }
  }
  AppendLock(const AppendLock&) = delete;
  AppendLock& operator=(const AppendLock&) = delete;
  ~AppendLock() {
    if (taken_) {
      ReleaseMutex(mutex_);
    }
    if (mutex_ != nullptr) {
      CloseHandle(mutex_);
    }
  }

 private:
  HANDLE mutex_ = nullptr;
  bool taken_ = false;
};

}  // namespace

void FileTraits::Close(RawFile file) noexcept {
  CloseHandle(reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(file)));
}

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  const bool reading = mode == OpenMode::kRead;
  return Open(path, reading ? GENERIC_READ : GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
              reading ? OPEN_EXISTING : CREATE_ALWAYS, file);
}

Status QueryFileSize(const File& file, std::uint64_t& bytes) {
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(Handle(file), &size)) {
    return GetLastError();
  }
  bytes = static_cast<std::uint64_t>(size.QuadPart);
  return kSuccess;
}

Status ReadBytes(const File& file, void* buffer, std::size_t capacity, std::size_t& count) {
  count = 0;
  while (count < capacity) {
    DWORD read = 0;
    if (!ReadFile(Handle(file), static_cast<char*>(buffer) + count, Piece(capacity - count), &read,
                  nullptr)) {
      return GetLastError();
    }
    if (read == 0) {
      break;
    }
    count += read;
  }
  return kSuccess;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    DWORD written = 0;
    if (!WriteFile(Handle(file), static_cast<const char*>(bytes) + done, Piece(size - done),
                   &written, nullptr)) {
      return GetLastError();
    }
    if (written == 0) {
      return kWriteFault;
    }
    done += written;
  }
  return kSuccess;
}

Status AppendToFile(const std::u16string& path, const void* bytes, std::size_t size) {
  if (size > kLargestPiece) {
    return kInvalidParameter;
  }
  // With the right to append alone, the file systems of Windows write at the file's end in one
  // step, and nobody's lock is waited for. Those of other servers and Wine do not: there it takes
  // a lock of our own.
  File file;
  if (const Status status =
          Open(path, FILE_APPEND_DATA | SYNCHRONIZE,
               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_ALWAYS, file);
      status != kSuccess) {
    return status;
  }
  const AppendLock lock(path);
  DWORD written = 0;
  if (!WriteFile(Handle(file), bytes, static_cast<DWORD>(size), &written, nullptr)) {
    return GetLastError();
  }
  return written == size ? kSuccess : kDiskFull;
}

Status RemoveFile(const std::u16string& path) {
  return DeleteFileW(ToSystem(path.c_str())) ? kSuccess : GetLastError();
}

// The number that every system tells, and the larger one where the file's system has it: on a
// volume whose numbers fit into 64 bits the two are the same. The volume's number is always the one
// that every system tells.
Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  File file;
  if (const Status status = Open(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 OPEN_EXISTING, file);
      status != kSuccess) {
    return status;
  }
  BY_HANDLE_FILE_INFORMATION known = {};
  if (!GetFileInformationByHandle(Handle(file), &known)) {
    return GetLastError();
  }
  FileIdentity found = {known.dwVolumeSerialNumber, {}};
  const std::uint64_t index =
      static_cast<std::uint64_t>(known.nFileIndexHigh) << 32 | known.nFileIndexLow;
  for (std::size_t i = 0; i < sizeof(index); ++i) {
    found.file[i] = static_cast<std::uint8_t>(index >> (8 * i));
  }
  FileIdInformation large = {};
  if (GetFileInformationByHandleEx(Handle(file), kFileIdInformation, &large, sizeof(large))) {
    std::copy(std::begin(large.file), std::end(large.file), found.file.begin());
  }
  // Nothing but zeros, or nothing but ones, stands for no number.
  for (const std::uint8_t none : {std::uint8_t{0x00}, std::uint8_t{0xFF}}) {
    if (std::count(found.file.begin(), found.file.end(), none) ==
        static_cast<std::ptrdiff_t>(found.file.size())) {
      return kNotSupported;
    }
  }
  identity = found;
  return kSuccess;
}

Status TemporaryFolder(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = GetTempPathW(capacity, ToSystem(buffer));
  return length != 0 ? kSuccess : GetLastError();
}

std::int32_t LocalApplicationDataFolder(std::u16string& folder) {
  wchar_t path[MAX_PATH] = {};
  const HRESULT result =
      SHGetFolderPathW(nullptr, CSIDL_LOCAL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path);
  folder.clear();
  if (result < 0) {
    return static_cast<std::int32_t>(result);
  }
  return UnlessMemoryRunsOut(kOutOfMemoryResult, [&] {
    folder = FromSystem(path);
    return static_cast<std::int32_t>(result);
  });
}

}  // namespace platform
