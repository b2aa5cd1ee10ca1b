#include "platform/system.h"

#include <chrono>
#include <thread>

#include "testing/fake_platform/state.h"

namespace platform {

namespace {

using fake::Hex;
using fake::LockedPlatform;

// The years 1601 to 30827: what the system's file times can tell.
constexpr std::int64_t kFirstSecond = -11644473600;
constexpr std::int64_t kLastSecond = 910670515199;

}  // namespace

Status SystemMessage(std::uint32_t code, std::u16string& text) {
  text.clear();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("SystemMessage", Hex{code})) {
    return fault;
  }
  const auto message = locked->messages.find(code);
  if (message == locked->messages.end()) {
    return kMessageNotFound;
  }
  text = message->second;
  return kSuccess;
}

std::int64_t SecondsSinceEpoch() {
  LockedPlatform locked;
  locked.Record("SecondsSinceEpoch");
  return locked->seconds_since_epoch;
}

Status BreakIntoLocalTime(std::int64_t seconds_since_epoch, LocalTime& local) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("BreakIntoLocalTime", seconds_since_epoch)) {
    return fault;
  }
  if (seconds_since_epoch < kFirstSecond || seconds_since_epoch > kLastSecond) {
    return kInvalidParameter;
  }
  const std::chrono::sys_seconds instant{std::chrono::seconds(seconds_since_epoch)};
  const auto midnight = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(instant - midnight);
  local = {static_cast<int>(date.year()),
           static_cast<int>(static_cast<unsigned>(date.month())),
           static_cast<int>(static_cast<unsigned>(date.day())),
           static_cast<int>(time.hours().count()),
           static_cast<int>(time.minutes().count()),
           static_cast<int>(time.seconds().count())};
  return kSuccess;
}

void SleepMilliseconds(std::uint32_t milliseconds) {
  // Another thread gets its turn now and then, and not each time: on a busy computer every turn
  // takes the scheduler milliseconds, and some tests sleep millions of times.
  constexpr std::uint64_t kSleepsPerTurn = 1024;
  std::uint64_t sleeps = 0;
  {
    LockedPlatform locked;
    locked.Record("SleepMilliseconds", milliseconds);
    sleeps = ++locked->sleeps;
  }
  if (sleeps % kSleepsPerTurn == 0) {
    std::this_thread::yield();
  }
}

}  // namespace platform
