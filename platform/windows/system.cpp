#include "platform/system.h"

#include <windows.h>

#include "platform/memory_failure.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

// FILETIME counts 100 ns from 1601-01-01; this layer counts seconds from 1970-01-01.
constexpr std::int64_t kTicksPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;

}  // namespace

Status SystemMessage(std::uint32_t code, std::u16string& text) {
  text.clear();
  wchar_t* message = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, code, 0, reinterpret_cast<wchar_t*>(&message), 0, nullptr);
  if (length == 0) {
    return GetLastError();
  }
  const struct Owner {
    wchar_t* text;
    ~Owner() { LocalFree(text); }
  } owner{message};
  return UnlessMemoryRunsOut([&] {
    text.assign(FromSystem(message), length);
    return kSuccess;
  });
}

std::int64_t SecondsSinceEpoch() {
  FILETIME now = {};
  GetSystemTimeAsFileTime(&now);
  const std::int64_t ticks =
      static_cast<std::int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
  return ticks / kTicksPerSecond - kSecondsFrom1601To1970;
}

Status BreakIntoLocalTime(std::int64_t seconds_since_epoch, LocalTime& local) {
  constexpr std::int64_t kLargest = INT64_MAX / kTicksPerSecond - kSecondsFrom1601To1970;
  if (seconds_since_epoch < -kSecondsFrom1601To1970 || seconds_since_epoch > kLargest) {
    return kInvalidParameter;
  }
  const std::int64_t ticks = (seconds_since_epoch + kSecondsFrom1601To1970) * kTicksPerSecond;
  const FILETIME instant = {static_cast<DWORD>(ticks & 0xFFFFFFFF),
                            static_cast<DWORD>(ticks >> 32)};
  SYSTEMTIME utc = {};
  SYSTEMTIME shown = {};
  if (!FileTimeToSystemTime(&instant, &utc) ||
      !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &shown)) {
    return GetLastError();
  }
  local = {shown.wYear, shown.wMonth, shown.wDay, shown.wHour, shown.wMinute, shown.wSecond};
  return kSuccess;
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

}  // namespace platform
