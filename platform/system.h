// What is left of the operating system: common controls, debugger output, message texts, clock.
// Nothing here throws: what needs memory gives kNotEnoughMemory when it runs out, and a text for
// the debugger is then dropped.
#pragma once

#include <cstdint>
#include <string>

#include "platform/status.h"

namespace platform {

// Registers the window classes of the common controls named by `classes` (ICC_... of commctrl.h).
// False when the system refuses.
bool InitializeCommonControls(std::uint32_t classes);

// Hands `text` to an attached debugger, if there is one.
void WriteDebugOutput(const char16_t* text);

// The system's own text for an error code, in the language that the system chooses, as it stands
// (it usually ends with a line end). Inserts are left in place. kMessageNotFound or another number
// when there is none; `text` is then empty.
[[nodiscard]] Status SystemMessage(std::uint32_t code, std::u16string& text);

// Seconds since 1970-01-01 00:00:00 UTC.
std::int64_t SecondsSinceEpoch();

struct LocalTime {
  int year;   // as in 2026
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;   // 0 to 23
  int minute;
  int second;
};

// Breaks a time into the fields of the local time zone. On failure `local` is left as it was.
[[nodiscard]] Status BreakIntoLocalTime(std::int64_t seconds_since_epoch, LocalTime& local);

// Gives up the processor for about that long; the system's timer decides how long it really is.
void SleepMilliseconds(std::uint32_t milliseconds);

}  // namespace platform
