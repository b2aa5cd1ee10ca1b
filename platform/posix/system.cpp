#include "platform/system.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/utf8.h"

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

Status SystemMessage(std::uint32_t, std::u16string& text) {
  text.clear();
  return kMessageNotFound;
}

std::int64_t SecondsSinceEpoch() {
  return std::time(nullptr);
}

Status BreakIntoLocalTime(std::int64_t seconds_since_epoch, LocalTime& local) {
  // The range that Windows can show.
  constexpr int kFirstYear = 1601;
  constexpr int kLastYear = 30827;
  const std::time_t instant = seconds_since_epoch;
  std::tm shown = {};
  if (localtime_r(&instant, &shown) == nullptr) {
    return StatusFromErrno(errno);
  }
  if (shown.tm_year < kFirstYear - 1900 || shown.tm_year > kLastYear - 1900) {
    return kInvalidParameter;
  }
  local = {shown.tm_year + 1900, shown.tm_mon + 1, shown.tm_mday,
           shown.tm_hour,        shown.tm_min,     shown.tm_sec};
  return kSuccess;
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  std::timespec left = {static_cast<std::time_t>(milliseconds / 1000),
                        static_cast<long>(milliseconds % 1000) * 1'000'000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace platform
