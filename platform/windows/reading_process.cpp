#include <windows.h>

#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

bool IsElevated() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
    return false;
  }
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  const bool is_known =
      GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size) != 0;
  CloseHandle(token);
  return is_known && elevation.TokenIsElevated != 0;
}

// The folders that the user's programs may write to: the profile, and those for temporary files.
std::vector<std::u16string> UsersFolders() {
  std::u16string folder(32768, u'\0');
  const auto capacity = static_cast<DWORD>(folder.size());
  std::vector<std::u16string> folders;
  const auto add = [&](DWORD length, const char16_t* below) {
    if (length != 0 && length < capacity) {
      folders.push_back(folder.substr(0, length) + below);
    }
  };
  add(GetEnvironmentVariableW(L"USERPROFILE", ToSystem(folder.data()), capacity), u"");
  add(GetTempPathW(capacity, ToSystem(folder.data())), u"");
  add(GetSystemWindowsDirectoryW(ToSystem(folder.data()), capacity), u"\\Temp");
  return folders;
}

}  // namespace

Status DescribeProcess(Process& process) {
  return UnlessMemoryRunsOut([&] {
    constexpr std::size_t kLongestPath =
        32768;  // published for paths with the prefix for long ones
    std::u16string path(kLongestPath, u'\0');
    path.resize(
        GetModuleFileNameW(nullptr, ToSystem(path.data()), static_cast<DWORD>(path.size())));
    process.folder = path.substr(0, path.rfind(u'\\') + 1);  // npos + 1 is 0
    process.is_elevated = IsElevated();
    process.code_page = GetACP();
    CPINFO information = {};
    process.is_multi_byte = GetCPInfo(CP_ACP, &information) && information.MaxCharSize > 1;
    process.users_folders = UsersFolders();
    return kSuccess;
  });
}

}  // namespace platform::reading
