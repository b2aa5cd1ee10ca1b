#include <windows.h>

#include <algorithm>

#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/windows/file_handle.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

// What such a function of the system gives.
std::u16string Folder(UINT(WINAPI* ask)(wchar_t*, UINT)) {
  std::u16string folder(ask(nullptr, 0), u'\0');
  folder.resize(std::min<std::size_t>(
      ask(ToSystem(folder.data()), static_cast<UINT>(folder.size())), folder.size()));
  return folder;
}

std::u16string PathVariable() {
  std::u16string path(32768, u'\0');
  path.resize(
      GetEnvironmentVariableW(L"PATH", ToSystem(path.data()), static_cast<DWORD>(path.size())));
  return path;
}

}  // namespace

Status ReadBytesAt(RawFile file, std::uint64_t offset, void* buffer, std::size_t capacity,
                   std::size_t& count) {
  count = 0;
  LARGE_INTEGER start = {};
  start.QuadPart = static_cast<LONGLONG>(offset);
  return SetFilePointerEx(Handle(file), start, nullptr, FILE_BEGIN)
             ? ReadBytes(file, buffer, capacity, count)
             : GetLastError();
}

Status FindLibrary(const std::u16string& name, std::u16string& path) {
  path.clear();
  return UnlessMemoryRunsOut([&] {
    Process process;
    if (const Status status = DescribeProcess(process); status != kSuccess) {
      return status;
    }
    // Where the loader looks for a bare name, without the current folder.
    const std::u16string folders = process.folder + u';' + Folder(GetSystemDirectoryW) + u';' +
                                   Folder(GetSystemWindowsDirectoryW) + u"\\System;" +
                                   Folder(GetSystemWindowsDirectoryW) + u';' + PathVariable();
    const auto search = [&](std::u16string& found) {
      return SearchPathW(ToSystem(folders.c_str()), ToSystem(name.c_str()), L".dll",
                         static_cast<DWORD>(found.size()), ToSystem(found.data()), nullptr);
    };
    std::u16string found;
    found.resize(search(found));
    found.resize(std::min<std::size_t>(search(found), found.size()));
    path = found;
    return kSuccess;
  });
}

}  // namespace platform::reading
