#include "platform/posix/errno_status.h"

#include <netdb.h>

#include <cerrno>

namespace platform {
namespace {

// Winsock numbers that the seam has no name for (winsock2.h, WSAE...).
constexpr Status kWsaFault = 10014;
constexpr Status kWsaNotSocket = 10038;
constexpr Status kWsaMessageSize = 10040;
constexpr Status kWsaAddressFamily = 10047;
constexpr Status kWsaAddressInUse = 10048;
constexpr Status kWsaAddressNotAvailable = 10049;
constexpr Status kWsaNetworkDown = 10050;
constexpr Status kWsaNetworkUnreachable = 10051;
constexpr Status kWsaNoBuffers = 10055;
constexpr Status kWsaIsConnected = 10056;
constexpr Status kWsaTryAgain = 11002;
constexpr Status kWsaNoRecovery = 11003;

}  // namespace

Status StatusFromErrno(int error) {
  switch (error) {
    case 0:
      return kSuccess;
    case ENOENT:
      return kFileNotFound;
    case ENOTDIR:
    case ELOOP:
      return kPathNotFound;
    case EMFILE:
    case ENFILE:
      return kTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return kAccessDenied;
    case EBADF:
      return kInvalidHandle;
    case ENOMEM:
    case EAGAIN:  // From pthread_create; files have a number of their own for it.
      return kNotEnoughMemory;
    case EIO:
      return kGeneralFailure;
    case EBUSY:
    case ETXTBSY:
      return kSharingViolation;
    case EEXIST:
      return kFileExists;
    case EINVAL:
    case EFAULT:
    case EOVERFLOW:
      return kInvalidParameter;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return kDiskFull;
    case ENAMETOOLONG:
      return kFilenameTooLong;
    case ENOSYS:
    case EOPNOTSUPP:
      return kNotSupported;
    default:
      return kGeneralFailure;
  }
}

Status StatusFromSocketErrno(int error) {
  switch (error) {
    case EINTR:
      return kSocketInterrupted;
    case EACCES:
    case EPERM:
      return kSocketAccess;
    case EFAULT:
      return kWsaFault;
    case EINVAL:
      return kSocketInvalid;
    case EMFILE:
    case ENFILE:
      return kSocketTooMany;
    case EBADF:
    case ENOTSOCK:
      return kWsaNotSocket;
    case EMSGSIZE:
      return kWsaMessageSize;
    case EAFNOSUPPORT:
      return kWsaAddressFamily;
    case EADDRINUSE:
      return kWsaAddressInUse;
    case EADDRNOTAVAIL:
      return kWsaAddressNotAvailable;
    case ENETDOWN:
      return kWsaNetworkDown;
    case ENETUNREACH:
      return kWsaNetworkUnreachable;
    case ECONNABORTED:
      return kSocketAborted;
    case ECONNRESET:
    case EPIPE:
      return kSocketReset;
    case ENOMEM:
    case ENOBUFS:
      return kWsaNoBuffers;
    case EISCONN:
      return kWsaIsConnected;
    case ENOTCONN:
      return kSocketNotConnected;
    case ETIMEDOUT:
      return kSocketTimedOut;
    case ECONNREFUSED:
      return kSocketRefused;
    case EHOSTUNREACH:
      return kSocketHostUnreachable;
    default:
      return StatusFromErrno(error);
  }
}

Status StatusFromAddressError(int result, int error) {
  switch (result) {
    case 0:
      return kSuccess;
    case EAI_NONAME:
      return kHostNotFound;
    case EAI_AGAIN:
      return kWsaTryAgain;
    case EAI_MEMORY:
      return kNotEnoughMemory;
    case EAI_SYSTEM:
      return StatusFromSocketErrno(error);
    default:
      return kWsaNoRecovery;
  }
}

}  // namespace platform
