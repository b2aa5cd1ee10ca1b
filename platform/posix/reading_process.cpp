#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/memory_failure.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform::reading {

Status DescribeProcess(Process& process) {
  return UnlessMemoryRunsOut([&] {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    process.folder = FromUtf8(program.parent_path().native()) + u"/";
    process.is_elevated = geteuid() == 0;
    process.code_page = 1252;  // see text_codec.h
    process.is_multi_byte = false;
    process.loads_elf = true;
    process.users_folders.clear();
    for (const char* const name : {"HOME", "TMPDIR"}) {
      const char* const folder = std::getenv(name);
      if (folder != nullptr && *folder == '/' && folder[1] != '\0') {
        process.users_folders.push_back(FromUtf8(folder));
      }
    }
    process.users_folders.emplace_back(u"/tmp");
    return kSuccess;
  });
}

// The host has no such installer.
Status FindComponent(const std::u16string& /*category*/, const std::u16string& /*qualifier*/,
                     std::u16string& path) {
  path.clear();
  return kFileNotFound;
}

}  // namespace platform::reading
