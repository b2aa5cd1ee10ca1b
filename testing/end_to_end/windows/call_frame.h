// A function's first argument and its return, at the moment when its first instruction is about to
// run in a process that stands still. Different for each processor.
#pragma once

#include <windows.h>

#include <cstddef>

namespace zentpost::e2e {

// The address that the function was given as its only argument; null when it cannot be read.
[[nodiscard]] const void* FirstArgument(HANDLE process, const CONTEXT& context);

// Changes `context` as if the function, which takes one argument and gives nothing, had returned.
// False when the return address cannot be read.
[[nodiscard]] bool ReturnFromFunction(HANDLE process, CONTEXT& context);

}  // namespace zentpost::e2e
