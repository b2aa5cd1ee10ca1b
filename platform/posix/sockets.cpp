#include "platform/sockets.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <iterator>
#include <new>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/utf8.h"

namespace platform {
namespace {

// Winsock's answers that the host has no occasion for (winsock2.h).
constexpr Status kWsaNotSocket = 10038;
constexpr Status kWsaVersionNotSupported = 10092;

// How many EndSockets are wanted. Sockets here need no start; only the rule that they do is kept.
std::atomic<int> starts = 0;

struct Endpoint {
  Descriptor socket;
  Descriptor cancel;  // An event that stays readable once it has been signalled.
  bool connected = false;
};

Endpoint* Get(const UniqueHandle<SocketTraits>& socket) {
  return reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket.Get()));
}

Status FindAddress(const std::string& host, in_addr& address) {
  if (inet_pton(AF_INET, host.c_str(), &address) == 1) {
    return kSuccess;
  }
  addrinfo wanted = {};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int result = getaddrinfo(host.c_str(), nullptr, &wanted, &found); result != 0) {
    return StatusFromAddressError(result, errno);
  }
  address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
  freeaddrinfo(found);
  return kSuccess;
}

// Waits for a connection that a signal has interrupted: it goes on without the call.
Status FinishConnecting(int socket) {
  pollfd wanted = {socket, POLLOUT, 0};
  while (poll(&wanted, 1, -1) < 0) {
    if (errno != EINTR) {
      return StatusFromSocketErrno(errno);
    }
  }
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    error = errno;
  }
  return StatusFromSocketErrno(error);
}

// Waits until another try to send makes sense, or the call is cancelled.
Status WaitUntilWritable(const Endpoint& endpoint) {
  pollfd wanted[] = {{endpoint.cancel.Get(), POLLIN, 0}, {endpoint.socket.Get(), POLLOUT, 0}};
  while (poll(wanted, std::size(wanted), -1) < 0) {
    if (errno != EINTR) {
      return StatusFromSocketErrno(errno);
    }
  }
  // A cancelled call does not go on because there is space again.
  return wanted[0].revents != 0 ? kSocketInterrupted : kSuccess;
}

}  // namespace

Status StartSockets(std::uint16_t version) {
  // The low byte is the major version; every one from 1 on gets what there is.
  if ((version & 0xFF) == 0) {
    return kWsaVersionNotSupported;
  }
  ++starts;
  return kSuccess;
}

void EndSockets() {
  int count = starts;
  while (count > 0 && !starts.compare_exchange_weak(count, count - 1)) {
  }
}

void SocketTraits::Close(RawSocket socket) noexcept {
  delete reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket));
}

Status CSocket::Create() {
  socket_.Reset();
  if (starts == 0) {
    return kSocketsNotStarted;
  }
  auto* const endpoint = new (std::nothrow) Endpoint;
  if (endpoint == nullptr) {
    return kNotEnoughMemory;
  }
  UniqueHandle<SocketTraits> created(RawSocket{reinterpret_cast<std::uintptr_t>(endpoint)});
  endpoint->socket.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
  if (!endpoint->socket) {
    return StatusFromSocketErrno(errno);
  }
  endpoint->cancel.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!endpoint->cancel) {
    return StatusFromSocketErrno(errno);
  }
  socket_ = std::move(created);
  return kSuccess;
}

Status CSocket::Connect(const std::u16string& host, std::uint16_t port) {
  Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return kWsaNotSocket;
  }
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (const Status status =
          UnlessMemoryRunsOut([&] { return FindAddress(ToUtf8(host), address.sin_addr); });
      status != kSuccess) {
    return status;
  }
  Status status = kSuccess;
  if (connect(endpoint->socket.Get(), reinterpret_cast<const sockaddr*>(&address),
              sizeof(address)) != 0) {
    status =
        errno == EINTR ? FinishConnecting(endpoint->socket.Get()) : StatusFromSocketErrno(errno);
  }
  endpoint->connected = status == kSuccess;
  return status;
}

Status CSocket::Send(const void* bytes, std::size_t size, std::size_t& sent) {
  sent = 0;
  Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return kWsaNotSocket;
  }
  if (!endpoint->connected) {
    return kSocketNotConnected;  // The host would say what it says of a connection that has ended.
  }
  // At least one call, also for no bytes: it tells whether there is still a connection. The socket
  // blocks in a wait that can be cancelled, never in the call itself.
  do {
    const ssize_t taken = send(endpoint->socket.Get(), static_cast<const char*>(bytes) + sent,
                               size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (taken >= 0) {
      sent += static_cast<std::size_t>(taken);
    } else if (errno == EAGAIN) {
      if (const Status status = WaitUntilWritable(*endpoint); status != kSuccess) {
        return status;
      }
    } else if (errno != EINTR) {
      return StatusFromSocketErrno(errno);
    }
  } while (sent < size);
  return kSuccess;
}

void CSocket::CancelBlockingCall() {
  if (Endpoint* const endpoint = Get(socket_); endpoint != nullptr) {
    // Fails only when the event has been signalled more often than it can count.
    static_cast<void>(eventfd_write(endpoint->cancel.Get(), 1));
  }
}

void CSocket::Close() {
  socket_.Reset();
}

}  // namespace platform
