#include "platform/posix/errno_status.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace platform {
namespace {

struct Translation {
  int error;
  Status status;
};

constexpr Translation kFileErrors[] = {
    {0, kSuccess},
    {ENOENT, kFileNotFound},
    {ENOTDIR, kPathNotFound},
    {ELOOP, kPathNotFound},
    {EMFILE, kTooManyOpenFiles},
    {ENFILE, kTooManyOpenFiles},
    {EACCES, kAccessDenied},
    {EPERM, kAccessDenied},
    {EROFS, kAccessDenied},
    {EISDIR, kAccessDenied},
    {EBADF, kInvalidHandle},
    {ENOMEM, kNotEnoughMemory},
    {EAGAIN, kNotEnoughMemory},  // From pthread_create; files have a number of their own for it.
    {EBUSY, kSharingViolation},
    {ETXTBSY, kSharingViolation},
    {EEXIST, kFileExists},
    {EINVAL, kInvalidParameter},
    {EFAULT, kInvalidParameter},
    {EOVERFLOW, kInvalidParameter},
    {ENOSPC, kDiskFull},
    {EDQUOT, kDiskFull},
    {EFBIG, kDiskFull},
    {ENAMETOOLONG, kFilenameTooLong},
    {ENOSYS, kNotSupported},
    {EOPNOTSUPP, kNotSupported},
};

// Where status.h has no name for it, Winsock's number stands (winsock2.h, WSAE...).
constexpr Translation kSocketErrors[] = {
    {EINTR, kSocketInterrupted},
    {EACCES, kSocketAccess},
    {EPERM, kSocketAccess},
    {EFAULT, 10014},
    {EINVAL, kSocketInvalid},
    {EMFILE, kSocketTooMany},
    {ENFILE, kSocketTooMany},
    {EBADF, 10038},
    {ENOTSOCK, 10038},
    {EMSGSIZE, 10040},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ECONNABORTED, kSocketAborted},
    {ECONNRESET, kSocketReset},
    {EPIPE, kSocketReset},
    {ENOMEM, 10055},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, kSocketNotConnected},
    {ETIMEDOUT, kSocketTimedOut},
    {ECONNREFUSED, kSocketRefused},
    {EHOSTUNREACH, kSocketHostUnreachable},
};

template <std::size_t kCount>
const Translation* Find(const Translation (&translations)[kCount], int error) {
  const auto* const found =
      std::find_if(std::begin(translations), std::end(translations),
                   [error](const Translation& each) { return each.error == error; });
  return found == std::end(translations) ? nullptr : found;
}

}  // namespace

Status StatusFromErrno(int error) {
  const Translation* const found = Find(kFileErrors, error);
  return found == nullptr ? kGeneralFailure : found->status;
}

Status StatusFromSocketErrno(int error) {
  const Translation* const found = Find(kSocketErrors, error);
  return found == nullptr ? StatusFromErrno(error) : found->status;
}

Status StatusFromAddressError(int result, int error) {
  switch (result) {
    case 0:
      return kSuccess;
    case EAI_NONAME:
      return kHostNotFound;
    case EAI_AGAIN:
      return 11002;  // WSATRY_AGAIN
    case EAI_MEMORY:
      return kNotEnoughMemory;
    case EAI_SYSTEM:
      return StatusFromSocketErrno(error);
    default:
      return 11003;  // WSANO_RECOVERY
  }
}

}  // namespace platform
