// The host's error numbers as the numbers that Win32 and Winsock have for the same thing. Nothing
// else in this back-end translates.
#pragma once

#include "platform/status.h"

namespace platform {

// `error` is an errno of a file, memory or thread call; one without a counterpart gives
// kGeneralFailure. 0 gives kSuccess.
[[nodiscard]] Status StatusFromErrno(int error);

// The same for a socket call, whose numbers are Winsock's.
[[nodiscard]] Status StatusFromSocketErrno(int error);

// The same for getaddrinfo's result; `error` is errno, for EAI_SYSTEM.
[[nodiscard]] Status StatusFromAddressError(int result, int error);

}  // namespace platform
