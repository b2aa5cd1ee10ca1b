#include "platform/posix/errno_status.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <map>

namespace platform {
namespace {

TEST(ErrnoStatus, FileErrorsHaveTheirWin32Numbers) {
  const std::map<int, Status> expected = {
      {0, 0},          {ENOENT, 2},   {ENOTDIR, 3},  {EMFILE, 4},         {EACCES, 5},
      {EPERM, 5},      {EISDIR, 5},   {EROFS, 5},    {EBADF, 6},          {ENOMEM, 8},
      {EEXIST, 80},    {EINVAL, 87},  {ENOSPC, 112}, {ENAMETOOLONG, 206}, {EIO, 31},
      {EOVERFLOW, 87}, {ETXTBSY, 32}, {ENOSYS, 50},  {12345, 31}};
  for (const auto& [error, status] : expected) {
    EXPECT_EQ(StatusFromErrno(error), status) << error;
  }
}

TEST(ErrnoStatus, SocketErrorsHaveTheirWinsockNumbers) {
  const std::map<int, Status> expected = {{0, 0},
                                          {EINTR, 10004},
                                          {EACCES, 10013},
                                          {EINVAL, 10022},
                                          {EMFILE, 10024},
                                          {ENOTSOCK, 10038},
                                          {ENETUNREACH, 10051},
                                          {ECONNABORTED, 10053},
                                          {ECONNRESET, 10054},
                                          {EPIPE, 10054},
                                          {ENOBUFS, 10055},
                                          {ENOTCONN, 10057},
                                          {ETIMEDOUT, 10060},
                                          {ECONNREFUSED, 10061},
                                          {EHOSTUNREACH, 10065},
                                          {12345, 31}};
  for (const auto& [error, status] : expected) {
    EXPECT_EQ(StatusFromSocketErrno(error), status) << error;
  }
}

TEST(ErrnoStatus, AHostThatIsNotFoundHasItsWinsockNumber) {
  EXPECT_EQ(StatusFromAddressError(0, 0), kSuccess);
  EXPECT_EQ(StatusFromAddressError(EAI_NONAME, 0), kHostNotFound);
  EXPECT_EQ(StatusFromAddressError(EAI_AGAIN, 0), 11002U);
  EXPECT_EQ(StatusFromAddressError(EAI_MEMORY, 0), kNotEnoughMemory);
  EXPECT_EQ(StatusFromAddressError(EAI_SYSTEM, ENETUNREACH), 10051U);
  EXPECT_EQ(StatusFromAddressError(EAI_FAIL, 0), 11003U);
}

}  // namespace
}  // namespace platform
