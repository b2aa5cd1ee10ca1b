#include "platform/system.h"

#include <cerrno>
#include <ctime>

#include "platform/posix/errno_status.h"

namespace platform {

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
