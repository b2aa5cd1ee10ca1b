#include "tools/addin_listener/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>

#include "tools/addin_listener/system.h"

namespace zentpost::addin_listener {
namespace {

int Descriptor(RawSocket socket) {
  return static_cast<int>(socket);
}
int Descriptor(const Socket& socket) {
  return Descriptor(socket.Get());
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool Fail(const char* call, std::string& error) {
  error = CallError(call, errno);
  return false;
}

bool Open(int type, Socket& socket) {
  const int descriptor = ::socket(AF_INET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) {
    return false;
  }
  socket.Reset(static_cast<RawSocket>(descriptor));
  return true;
}

bool Bind(const Socket& socket, sockaddr_in& address, std::string& error) {
  socklen_t size = sizeof address;
  if (bind(Descriptor(socket), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    return Fail("bind", error);
  }
  if (getsockname(Descriptor(socket), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return Fail("getsockname", error);
  }
  return true;
}

ReceiveResult ReceiveWith(const Socket& connection, void* buffer, std::size_t size, int flags,
                          std::size_t& received) {
  const ssize_t result = recv(Descriptor(connection), buffer, size, flags);
  received = result > 0 ? static_cast<std::size_t>(result) : 0;
  if (result > 0) {
    return ReceiveResult::kBytes;
  }
  if (result == 0) {
    return ReceiveResult::kEnd;
  }
  const bool again = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  return again ? ReceiveResult::kNothingYet : ReceiveResult::kBroken;
}

struct FileDeleter {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

int PollTime(std::optional<std::chrono::milliseconds> at_most) {
  if (!at_most) {
    return -1;
  }
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(at_most->count(), 0, INT_MAX));
}

}  // namespace

void SocketTraits::Close(RawSocket socket) noexcept {
  close(Descriptor(socket));
}

SocketLibrary::SocketLibrary() = default;
SocketLibrary::~SocketLibrary() = default;

bool ListenOnLoopback(const ListenSettings& settings, Socket& listener, std::uint16_t& port,
                      std::string& error) {
  Socket socket;
  if (!Open(SOCK_STREAM, socket)) {
    return Fail("socket", error);
  }
  // Allows a port whose former connections are still fading away, not one that has a listener.
  const int on = 1;
  if (setsockopt(Descriptor(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
    return Fail("setsockopt", error);
  }
  const int buffer = 4096;
  if (settings.small_receive_buffer &&
      setsockopt(Descriptor(socket), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer) != 0) {
    return Fail("setsockopt", error);
  }
  sockaddr_in address = Loopback(settings.port);
  if (!Bind(socket, address, error)) {
    return false;
  }
  if (listen(Descriptor(socket), settings.one_at_a_time ? 0 : SOMAXCONN) != 0) {
    return Fail("listen", error);
  }
  port = ntohs(address.sin_port);
  listener = std::move(socket);
  return true;
}

AcceptResult Accept(const Socket& listener, Socket& connection, std::string& error) {
  const int descriptor =
      accept4(Descriptor(listener), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (descriptor >= 0) {
    connection.Reset(static_cast<RawSocket>(descriptor));
    return AcceptResult::kAccepted;
  }
  if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR || errno == ECONNABORTED) {
    return AcceptResult::kNoneWaits;
  }
  Fail("accept", error);
  return AcceptResult::kFailed;
}

ReceiveResult Receive(const Socket& connection, void* buffer, std::size_t size,
                      std::size_t& received) {
  return ReceiveWith(connection, buffer, size, 0, received);
}

ReceiveResult Peek(const Socket& connection) {
  char byte;
  std::size_t received = 0;
  return ReceiveWith(connection, &byte, 1, MSG_PEEK, received);
}

void Reset(Socket connection) {
  const linger at_once{.l_onoff = 1, .l_linger = 0};
  setsockopt(Descriptor(connection), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  connection.Reset();
}

bool Wait(std::vector<WaitEntry>& entries, std::optional<std::chrono::milliseconds> at_most,
          std::string& error) {
  std::vector<pollfd> polled;
  polled.reserve(entries.size());
  for (const WaitEntry& entry : entries) {
    polled.push_back({Descriptor(entry.socket), POLLIN, 0});
  }
  const int count = poll(polled.data(), polled.size(), PollTime(at_most));
  if (count < 0 && errno != EINTR) {
    return Fail("poll", error);
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i].ready = count > 0 && polled[i].revents != 0;
  }
  return true;
}

std::optional<bool> ClientIsConnected(std::uint16_t port, const Socket* connection) {
  sockaddr_in client{};
  socklen_t size = sizeof client;
  if (connection != nullptr &&
      getpeername(Descriptor(*connection), reinterpret_cast<sockaddr*>(&client), &size) != 0) {
    return false;  // A connection that was reset has no peer.
  }
  const std::unique_ptr<std::FILE, FileDeleter> table(std::fopen("/proc/net/tcp", "re"));
  if (!table) {
    return std::nullopt;
  }
  // "number: own-address:port peer-address:port state ...", in hexadecimal.
  const unsigned kEstablished = 1;
  char line[512];
  while (std::fgets(line, sizeof line, table.get()) != nullptr) {
    unsigned own_port = 0;
    unsigned peer_address = 0;
    unsigned peer_port = 0;
    unsigned state = 0;
    if (std::sscanf(line, " %*u: %*8x:%4x %8x:%4x %2x", &own_port, &peer_address, &peer_port,
                    &state) == 4 &&
        peer_address == htonl(INADDR_LOOPBACK) && peer_port == port && state == kEstablished &&
        (connection == nullptr || own_port == ntohs(client.sin_port))) {
      return true;
    }
  }
  return false;
}

bool OpenWakeSocket(Socket& socket, std::string& error) {
  Socket opened;
  if (!Open(SOCK_DGRAM, opened)) {
    return Fail("socket", error);
  }
  sockaddr_in address = Loopback(0);
  if (!Bind(opened, address, error)) {
    return false;
  }
  // Connected to itself, it takes nobody else's datagrams.
  if (connect(Descriptor(opened), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    return Fail("connect", error);
  }
  socket = std::move(opened);
  return true;
}

void Wake(const Socket& socket) noexcept {
  const int saved = errno;
  const char byte = 0;
  [[maybe_unused]] const ssize_t ignored = send(Descriptor(socket), &byte, 1, MSG_NOSIGNAL);
  errno = saved;
}

bool ConnectToLoopback(std::uint16_t port, Socket& connection, std::string& error) {
  Socket socket;
  if (!Open(SOCK_STREAM, socket)) {
    return Fail("socket", error);
  }
  const sockaddr_in address = Loopback(port);
  if (connect(Descriptor(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    if (errno != EINPROGRESS) {
      return Fail("connect", error);
    }
    pollfd polled{Descriptor(socket), POLLOUT, 0};
    while (poll(&polled, 1, -1) < 0 && errno == EINTR) {
    }
    int code = 0;
    socklen_t size = sizeof code;
    getsockopt(Descriptor(socket), SOL_SOCKET, SO_ERROR, &code, &size);
    if (code != 0) {
      error = CallError("connect", code);
      return false;
    }
  }
  connection = std::move(socket);
  return true;
}

SendResult SendSome(const Socket& connection, const void* bytes, std::size_t size,
                    std::size_t& sent) {
  const ssize_t result = send(Descriptor(connection), bytes, size, MSG_NOSIGNAL);
  sent = result > 0 ? static_cast<std::size_t>(result) : 0;
  if (result >= 0) {
    return SendResult::kSent;
  }
  const bool again = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  return again ? SendResult::kWouldWait : SendResult::kBroken;
}

SendResult WaitToSend(const Socket& connection, std::chrono::milliseconds at_most) {
  pollfd polled{Descriptor(connection), POLLOUT, 0};
  const int count = poll(&polled, 1, PollTime(at_most));
  if (count <= 0) {
    return SendResult::kWouldWait;
  }
  return (polled.revents & (POLLERR | POLLHUP)) != 0 ? SendResult::kBroken : SendResult::kSent;
}

}  // namespace zentpost::addin_listener
