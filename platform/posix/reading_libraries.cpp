#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/memory_failure.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/file_status.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform::reading {

Status ReadBytesAt(RawFile file, std::uint64_t offset, void* buffer, std::size_t capacity,
                   std::size_t& count) {
  count = 0;
  const int descriptor = DescriptorOf(file);
  return lseek(descriptor, static_cast<off_t>(offset), SEEK_SET) >= 0
             ? ReadBytes(file, buffer, capacity, count)
             : StatusFromErrno(errno);
}

Status FindLibrary(const std::u16string& name, std::u16string& path) {
  return UnlessMemoryRunsOut([&] {
    const std::string native = NativePath(name);
    path = native.find('/') != std::string::npos ? name : std::u16string();
    return path.empty() ? kNotSupported : kSuccess;
  });
}

}  // namespace platform::reading
