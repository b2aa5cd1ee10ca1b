// The log: every step of a job is one line, sent to the debugger and, when the registry asks for
// it, appended to the user's log file. Logging never fails visibly and never changes a job.
//
// Single-threaded use. Nothing is kept between lines: the registry, the path and the file are
// looked up afresh for each, so that a change takes effect with the next line.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include "diag/format.h"

namespace zentpost {

inline constexpr std::uint32_t kLevelInfo = 0;
inline constexpr std::uint32_t kLevelWarning = 1;
inline constexpr std::uint32_t kLevelError = 2;
inline constexpr std::uint32_t kLevelDebug = 3;

// Writes one line: time stamp, level tag, message, line end. The level decides only the tag, never
// whether the line is written; an unknown level is tagged as INFO. The line always goes to the
// debugger. It goes to the file at GetLogFilePath() as UTF-8 with CR LF line ends when "LogLevel"
// is not 0; when the file cannot be written the line is dropped there. Does not throw; when memory
// runs out the line is dropped. A percent sign in an argument is never read as a conversion.
void WriteLogEntry(std::uint32_t level, std::u16string_view format,
                   std::initializer_list<FormatArgument> arguments) noexcept;

// The log file's path: below the user's local application data or, when that folder cannot be had,
// in the folder for temporary files. Neither is created here: the log folder belongs to the fax
// client's installation. Throws std::bad_alloc when memory runs out, as the next one does.
[[nodiscard]] std::u16string GetLogFilePath();

// "2026/11/20 23:58:07 - INFO   : " for the present local time.
[[nodiscard]] std::u16string FormatLogPrefix(std::uint32_t level);

// As WriteLogEntry, and for a `code` other than 0 a second line "Code 0x%.8x --> %s" with the
// code's text.
void WriteLogEntryWithCode(std::uint32_t level, std::uint32_t code, std::u16string_view format,
                           std::initializer_list<FormatArgument> arguments) noexcept;

template <class... Args>
void LogInfo(std::type_identity_t<CheckedFormat<Args...>> format, const Args&... args) noexcept {
  WriteLogEntry(kLevelInfo, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogWarning(std::type_identity_t<CheckedFormat<Args...>> format, const Args&... args) noexcept {
  WriteLogEntry(kLevelWarning, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogError(std::type_identity_t<CheckedFormat<Args...>> format, const Args&... args) noexcept {
  WriteLogEntry(kLevelError, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogDebug(std::type_identity_t<CheckedFormat<Args...>> format, const Args&... args) noexcept {
  WriteLogEntry(kLevelDebug, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogErrorWithCode(std::uint32_t code, std::type_identity_t<CheckedFormat<Args...>> format,
                      const Args&... args) noexcept {
  WriteLogEntryWithCode(kLevelError, code, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogWarningWithCode(std::uint32_t code, std::type_identity_t<CheckedFormat<Args...>> format,
                        const Args&... args) noexcept {
  WriteLogEntryWithCode(kLevelWarning, code, format.Text(), {FormatArgument(args)...});
}

template <class... Args>
void LogDebugWithCode(std::uint32_t code, std::type_identity_t<CheckedFormat<Args...>> format,
                      const Args&... args) noexcept {
  WriteLogEntryWithCode(kLevelDebug, code, format.Text(), {FormatArgument(args)...});
}

}  // namespace zentpost
