// The program from its command line to its exit code.
#pragma once

#include <string_view>

#include "platform/console.h"

namespace zentpost::doctor {

// `command_line` is the raw text behind the program's path. Does not throw.
[[nodiscard]] int RunDoctor(std::u16string_view command_line, platform::Console& console);

}  // namespace zentpost::doctor
