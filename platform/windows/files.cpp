#include "platform/files.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/windows/append_lock.h"
#include "platform/windows/file_handle.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

// How long AppendToFile waits for its lock.
constexpr DWORD kLockMilliseconds = 2000;

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

Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file) {
  reading::File opened;
  const Status status = mode == OpenMode::kRead
                            ? reading::OpenFileAt(path, reading::Sharing::kAsTheTool, opened)
                            : OpenDiskFile(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                           CREATE_ALWAYS, opened);
  file.Reset(opened.Detach());
  return status;
}

Status WriteBytes(const File& file, const void* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    DWORD written = 0;
    if (!WriteFile(Handle(file.Get()), static_cast<const char*>(bytes) + done, Piece(size - done),
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
  reading::File file;
  if (const Status status =
          OpenDiskFile(path, FILE_APPEND_DATA | SYNCHRONIZE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_ALWAYS, file);
      status != kSuccess) {
    return status;
  }
  const AppendLock lock(path);
  DWORD written = 0;
  if (!WriteFile(Handle(file.Get()), bytes, static_cast<DWORD>(size), &written, nullptr)) {
    return GetLastError();
  }
  return written == size ? kSuccess : kDiskFull;
}

Status RemoveFile(const std::u16string& path) {
  return DeleteFileW(ToSystem(path.c_str())) ? kSuccess : GetLastError();
}

}  // namespace platform
