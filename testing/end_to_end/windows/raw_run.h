// What only Windows has: a command line that is one text and reaches the process untouched, and a
// debugger that is told what the process says.
#pragma once

#include "testing/end_to_end/process.h"

namespace zentpost::e2e {

// Starts `program` with exactly `command_line` behind its path and one blank.
[[nodiscard]] ProcessRun RunRaw(const std::filesystem::path& program,
                                std::u16string_view command_line, const ProcessOptions& options);

// The same without a look into the process: `debug_output` is what the system's debug events bring,
// in the ANSI code page and cut at 32,766 characters.
[[nodiscard]] ProcessRun RunRawWithDebugEvents(const std::filesystem::path& program,
                                               std::u16string_view command_line,
                                               const ProcessOptions& options);

}  // namespace zentpost::e2e
