#include <shlobj.h>
#include <windows.h>

#include <algorithm>
#include <iterator>

#include "platform/memory_failure.h"
#include "platform/windows/file_handle.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

// What Windows 8 and later tell of a file (published in winbase.h as FILE_ID_INFO and FileIdInfo,
// which the headers keep back from programs that run on Windows 7, too).
struct FileIdInformation {
  ULONGLONG volume;
  std::uint8_t file[16];
};
constexpr auto kFileIdInformation = static_cast<FILE_INFO_BY_HANDLE_CLASS>(18);

}  // namespace

Status OpenDiskFile(const std::u16string& path, DWORD access, DWORD sharing, DWORD disposition,
                    reading::File& file) {
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

namespace reading {

void FileTraits::Close(RawFile file) noexcept {
  CloseHandle(Handle(file));
}

Status OpenFileAt(const std::u16string& path, Sharing sharing, File& file) {
  const DWORD removal = sharing == Sharing::kAll ? FILE_SHARE_DELETE : 0;
  return OpenDiskFile(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | removal,
                      OPEN_EXISTING, file);
}

Status QueryFileSize(RawFile file, std::uint64_t& bytes) {
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(Handle(file), &size)) {
    return GetLastError();
  }
  bytes = static_cast<std::uint64_t>(size.QuadPart);
  return kSuccess;
}

Status ReadBytes(RawFile file, void* buffer, std::size_t capacity, std::size_t& count) {
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

// The number that every system tells, and the larger one where the file's system has it: on a
// volume whose numbers fit into 64 bits the two are the same. The volume's number is always the one
// that every system tells.
Status IdentifyFile(const std::u16string& path, FileIdentity& identity) {
  File file;
  if (const Status status = OpenDiskFile(
          path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING, file);
      status != kSuccess) {
    return status;
  }
  BY_HANDLE_FILE_INFORMATION known = {};
  if (!GetFileInformationByHandle(Handle(file.Get()), &known)) {
    return GetLastError();
  }
  FileIdentity found = {known.dwVolumeSerialNumber, {}};
  const std::uint64_t index =
      static_cast<std::uint64_t>(known.nFileIndexHigh) << 32 | known.nFileIndexLow;
  for (std::size_t i = 0; i < sizeof(index); ++i) {
    found.file[i] = static_cast<std::uint8_t>(index >> (8 * i));
  }
  FileIdInformation large = {};
  if (GetFileInformationByHandleEx(Handle(file.Get()), kFileIdInformation, &large, sizeof(large))) {
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

}  // namespace reading
}  // namespace platform
