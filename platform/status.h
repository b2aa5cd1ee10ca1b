// Status codes that cross the platform layer: Win32 error numbers on every back-end.
#pragma once

#include <cstdint>

namespace platform {

// 0 is success; anything else is the number that the failing system call reported. There is no
// ambient last error: whoever needs the number keeps what the call returned.
using Status = std::uint32_t;

// Published in winerror.h and winsock2.h as ERROR_... and WSAE....
inline constexpr Status kSuccess = 0;
inline constexpr Status kFileNotFound = 2;
inline constexpr Status kPathNotFound = 3;
inline constexpr Status kTooManyOpenFiles = 4;
inline constexpr Status kAccessDenied = 5;
inline constexpr Status kInvalidHandle = 6;
inline constexpr Status kNotEnoughMemory = 8;
inline constexpr Status kWriteFault = 29;
inline constexpr Status kReadFault = 30;
inline constexpr Status kGeneralFailure = 31;
inline constexpr Status kSharingViolation = 32;
inline constexpr Status kNotSupported = 50;
inline constexpr Status kFileExists = 80;
inline constexpr Status kInvalidParameter = 87;
inline constexpr Status kDiskFull = 112;
inline constexpr Status kInsufficientBuffer = 122;
inline constexpr Status kInvalidName = 123;
inline constexpr Status kModuleNotFound = 126;
inline constexpr Status kProcedureNotFound = 127;
inline constexpr Status kFilenameTooLong = 206;
inline constexpr Status kMoreData = 234;
inline constexpr Status kMessageNotFound = 317;
inline constexpr Status kSocketInterrupted = 10004;
inline constexpr Status kSocketAccess = 10013;
inline constexpr Status kSocketInvalid = 10022;
inline constexpr Status kSocketTooMany = 10024;
inline constexpr Status kSocketAborted = 10053;
inline constexpr Status kSocketReset = 10054;
inline constexpr Status kSocketNotConnected = 10057;
inline constexpr Status kSocketTimedOut = 10060;
inline constexpr Status kSocketRefused = 10061;
inline constexpr Status kSocketHostUnreachable = 10065;
inline constexpr Status kSocketsNotStarted = 10093;
inline constexpr Status kHostNotFound = 11001;

}  // namespace platform
