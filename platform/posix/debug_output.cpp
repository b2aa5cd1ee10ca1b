#include <fcntl.h>

#include <cstdlib>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/utf8.h"
#include "platform/system.h"

namespace platform {

bool InitializeCommonControls(std::uint32_t) {
  return true;
}

// There is no debugger to hand it to; whoever wants to see it names a file.
void WriteDebugOutput(const char16_t* text) {
  const char* const path = std::getenv("ZENTPOST_DEBUG_OUTPUT");
  if (path == nullptr || *path == '\0') {
    return;
  }
  // What fails here is as lost as it is with nobody listening.
  static_cast<void>(UnlessMemoryRunsOut([&] {
    const Descriptor file(open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    const std::string bytes = ToUtf8(text);
    return file && write(file.Get(), bytes.data(), bytes.size()) >= 0 ? kSuccess : kWriteFault;
  }));
}

}  // namespace platform
