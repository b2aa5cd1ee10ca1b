#include "tools/addin_listener/sockets.h"

#include <winsock2.h>
#include <ws2tcpip.h>
// After winsock2.h, whose types it uses.
#include <iphlpapi.h>

#include <algorithm>
#include <climits>

#include "tools/addin_listener/system.h"

namespace zentpost::addin_listener {
namespace {

SOCKET Native(RawSocket socket) {
  return static_cast<SOCKET>(socket);
}
SOCKET Native(const Socket& socket) {
  return Native(socket.Get());
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool Fail(const char* call, std::string& error) {
  error = CallError(call, WSAGetLastError());
  return false;
}

bool MakeNonBlocking(const Socket& socket) {
  u_long on = 1;
  return ioctlsocket(Native(socket), static_cast<long>(FIONBIO), &on) == 0;
}

bool Open(int type, Socket& socket) {
  const SOCKET native =
      WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (native == INVALID_SOCKET) {
    return false;
  }
  socket.Reset(static_cast<RawSocket>(native));
  return MakeNonBlocking(socket);
}

bool SetOption(const Socket& socket, int option, int value) {
  return setsockopt(Native(socket), SOL_SOCKET, option, reinterpret_cast<const char*>(&value),
                    sizeof value) == 0;
}

bool Bind(const Socket& socket, sockaddr_in& address, std::string& error) {
  int size = sizeof address;
  if (bind(Native(socket), reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    return Fail("bind", error);
  }
  if (getsockname(Native(socket), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return Fail("getsockname", error);
  }
  return true;
}

ReceiveResult ReceiveWith(const Socket& connection, void* buffer, std::size_t size, int flags,
                          std::size_t& received) {
  const int length = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
  const int result = recv(Native(connection), static_cast<char*>(buffer), length, flags);
  received = result > 0 ? static_cast<std::size_t>(result) : 0;
  if (result > 0) {
    return ReceiveResult::kBytes;
  }
  if (result == 0) {
    return ReceiveResult::kEnd;
  }
  return WSAGetLastError() == WSAEWOULDBLOCK ? ReceiveResult::kNothingYet : ReceiveResult::kBroken;
}

int PollTime(std::optional<std::chrono::milliseconds> at_most) {
  if (!at_most) {
    return -1;
  }
  return static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(at_most->count(), 0, INT_MAX));
}

}  // namespace

void SocketTraits::Close(RawSocket socket) noexcept {
  closesocket(Native(socket));
}

SocketLibrary::SocketLibrary() {
  WSADATA data;
  // Without the library every call below fails with WSANOTINITIALISED, which then is reported.
  [[maybe_unused]] const int status = WSAStartup(MAKEWORD(2, 2), &data);
}
SocketLibrary::~SocketLibrary() {
  WSACleanup();
}

bool ListenOnLoopback(const ListenSettings& settings, Socket& listener, std::uint16_t& port,
                      std::string& error) {
  Socket socket;
  if (!Open(SOCK_STREAM, socket)) {
    return Fail("socket", error);
  }
  // Without it another program can bind the same port and take the connections.
  if (!SetOption(socket, SO_EXCLUSIVEADDRUSE, 1) ||
      (settings.small_receive_buffer && !SetOption(socket, SO_RCVBUF, 4096))) {
    return Fail("setsockopt", error);
  }
  sockaddr_in address = Loopback(settings.port);
  if (!Bind(socket, address, error)) {
    return false;
  }
  if (listen(Native(socket), settings.one_at_a_time ? 0 : SOMAXCONN) != 0) {
    return Fail("listen", error);
  }
  port = ntohs(address.sin_port);
  listener = std::move(socket);
  return true;
}

AcceptResult Accept(const Socket& listener, Socket& connection, std::string& error) {
  const SOCKET native = accept(Native(listener), nullptr, nullptr);
  if (native == INVALID_SOCKET) {
    const int code = WSAGetLastError();
    if (code == WSAEWOULDBLOCK || code == WSAECONNRESET || code == WSAECONNABORTED) {
      return AcceptResult::kNoneWaits;
    }
    error = CallError("accept", code);
    return AcceptResult::kFailed;
  }
  connection.Reset(static_cast<RawSocket>(native));
  SetHandleInformation(reinterpret_cast<HANDLE>(native), HANDLE_FLAG_INHERIT, 0);
  if (!MakeNonBlocking(connection)) {
    Fail("ioctlsocket", error);
    connection.Reset();
    return AcceptResult::kFailed;
  }
  return AcceptResult::kAccepted;
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
  setsockopt(Native(connection), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
             sizeof at_once);
  connection.Reset();
}

bool Wait(std::vector<WaitEntry>& entries, std::optional<std::chrono::milliseconds> at_most,
          std::string& error) {
  std::vector<WSAPOLLFD> polled;
  polled.reserve(entries.size());
  for (const WaitEntry& entry : entries) {
    polled.push_back({Native(entry.socket), POLLRDNORM, 0});
  }
  const int count = WSAPoll(polled.data(), static_cast<ULONG>(polled.size()), PollTime(at_most));
  if (count < 0) {
    return Fail("WSAPoll", error);
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i].ready = count > 0 && polled[i].revents != 0;
  }
  return true;
}

std::optional<bool> ClientIsConnected(std::uint16_t port, const Socket* connection) {
  sockaddr_in client{};
  int size = sizeof client;
  if (connection != nullptr &&
      getpeername(Native(*connection), reinterpret_cast<sockaddr*>(&client), &size) != 0) {
    return false;  // A connection that was reset has no peer.
  }
  std::vector<std::byte> buffer;
  ULONG length = 0;
  ULONG status = ERROR_INSUFFICIENT_BUFFER;
  // The table may grow between two calls.
  for (int attempt = 0; status == ERROR_INSUFFICIENT_BUFFER && attempt < 5; ++attempt) {
    buffer.resize(length);
    status = GetTcpTable(reinterpret_cast<MIB_TCPTABLE*>(buffer.data()), &length, FALSE);
  }
  if (status != NO_ERROR) {
    return std::nullopt;
  }
  const auto* table = reinterpret_cast<const MIB_TCPTABLE*>(buffer.data());
  return std::any_of(table->table, table->table + table->dwNumEntries, [&](const MIB_TCPROW& row) {
    // Ports stand in the lower half, in network order; the upper half may hold anything.
    return row.dwRemoteAddr == htonl(INADDR_LOOPBACK) &&
           static_cast<u_short>(row.dwRemotePort) == htons(port) &&
           row.dwState == MIB_TCP_STATE_ESTAB &&
           (connection == nullptr || static_cast<u_short>(row.dwLocalPort) == client.sin_port);
  });
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
  if (connect(Native(opened), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return Fail("connect", error);
  }
  socket = std::move(opened);
  return true;
}

void Wake(const Socket& socket) noexcept {
  const char byte = 0;
  send(Native(socket), &byte, 1, 0);
}

bool ConnectToLoopback(std::uint16_t port, Socket& connection, std::string& error) {
  Socket socket;
  if (!Open(SOCK_STREAM, socket)) {
    return Fail("socket", error);
  }
  const sockaddr_in address = Loopback(port);
  if (connect(Native(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (WSAGetLastError() != WSAEWOULDBLOCK) {
      return Fail("connect", error);
    }
    // Not WSAPoll, which does not report a refused connection before Windows 10 2004.
    fd_set connected;
    fd_set refused;
    FD_ZERO(&connected);
    FD_ZERO(&refused);
    FD_SET(Native(socket), &connected);
    FD_SET(Native(socket), &refused);
    if (select(0, nullptr, &connected, &refused, nullptr) < 0) {
      return Fail("select", error);
    }
    int code = 0;
    int size = sizeof code;
    getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&code), &size);
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
  const int length = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
  const int result = send(Native(connection), static_cast<const char*>(bytes), length, 0);
  sent = result > 0 ? static_cast<std::size_t>(result) : 0;
  if (result >= 0) {
    return SendResult::kSent;
  }
  return WSAGetLastError() == WSAEWOULDBLOCK ? SendResult::kWouldWait : SendResult::kBroken;
}

SendResult WaitToSend(const Socket& connection, std::chrono::milliseconds at_most) {
  WSAPOLLFD polled{Native(connection), POLLWRNORM, 0};
  const int count = WSAPoll(&polled, 1, PollTime(at_most));
  if (count <= 0) {
    return SendResult::kWouldWait;
  }
  return (polled.revents & (POLLERR | POLLHUP)) != 0 ? SendResult::kBroken : SendResult::kSent;
}

}  // namespace zentpost::addin_listener
