#include "platform/sockets.h"

#include <winsock2.h>
// In a block of its own: windows.h alone would declare winsock2.h's predecessor.
#include <windows.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "platform/windows/wide.h"

namespace platform {
namespace {

// While nothing waits in a socket's buffer the system takes a call's bytes at once, however many
// they are, so that a peer that does not read would go unnoticed. Pieces as large as its buffers
// make it say when they are full.
constexpr std::size_t kLargestPiece = std::size_t{64} << 10;

struct Endpoint {
  SOCKET socket = INVALID_SOCKET;
  HANDLE network = nullptr;  // Signalled when there is space to send and when the peer has closed.
  HANDLE cancel = nullptr;
  bool has_sent = false;  // The last Send has succeeded.

  ~Endpoint() {
    if (socket != INVALID_SOCKET) {
      if (has_sent) {
        // The peer sees the end behind the last byte, even when it has sent something itself, for
        // which closing alone may break the connection off. A failure leaves the closing.
        static_cast<void>(shutdown(socket, SD_SEND));
      }
      closesocket(socket);
    }
    for (HANDLE event : {network, cancel}) {
      if (event != nullptr) {
        CloseHandle(event);
      }
    }
  }
};

Endpoint* Get(const UniqueHandle<SocketTraits>& socket) {
  return reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket.Get()));
}

Status LastSocketError() {
  return static_cast<Status>(WSAGetLastError());
}

Status FindAddress(const std::u16string& host, IN_ADDR& address) {
  if (InetPtonW(AF_INET, ToSystem(host.c_str()), &address) == 1) {
    return kSuccess;
  }
  ADDRINFOW wanted = {};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  ADDRINFOW* found = nullptr;
  if (const int error = GetAddrInfoW(ToSystem(host.c_str()), nullptr, &wanted, &found);
      error != 0) {
    return static_cast<Status>(error);
  }
  address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
  FreeAddrInfoW(found);
  return kSuccess;
}

// Waits until another try to send makes sense, or the call is cancelled.
Status WaitUntilWritable(const Endpoint& endpoint) {
  // The first signalled handle counts: a cancelled call does not go on because there is space
  // again.
  const HANDLE handles[] = {endpoint.cancel, endpoint.network};
  switch (WaitForMultipleObjects(std::size(handles), handles, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
      return kSocketInterrupted;
    case WAIT_OBJECT_0 + 1: {
      // Makes ready for the next wait. What has happened shows in the next try.
      WSANETWORKEVENTS events = {};
      return WSAEnumNetworkEvents(endpoint.socket, endpoint.network, &events) == SOCKET_ERROR
                 ? LastSocketError()
                 : kSuccess;
    }
    default:
      return GetLastError();
  }
}

}  // namespace

Status StartSockets(std::uint16_t version) {
  WSADATA data = {};
  return static_cast<Status>(WSAStartup(version, &data));
}

void EndSockets() {
  WSACleanup();
}

void SocketTraits::Close(RawSocket socket) noexcept {
  delete reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket));
}

Status CSocket::Create() {
  socket_.Reset();
  auto* const endpoint = new (std::nothrow) Endpoint;
  if (endpoint == nullptr) {
    return kNotEnoughMemory;
  }
  UniqueHandle<SocketTraits> created(RawSocket{reinterpret_cast<std::uintptr_t>(endpoint)});
  endpoint->socket = WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED);
  if (endpoint->socket == INVALID_SOCKET) {
    return LastSocketError();
  }
  // Manual reset: a cancel is remembered, and WSAEnumNetworkEvents resets the other one itself.
  endpoint->cancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (endpoint->cancel == nullptr) {
    return GetLastError();
  }
  endpoint->network = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (endpoint->network == nullptr) {
    return GetLastError();
  }
  socket_ = std::move(created);
  return kSuccess;
}

Status CSocket::Connect(const std::u16string& host, std::uint16_t port) {
  Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return WSAENOTSOCK;
  }
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (const Status status = FindAddress(host, address.sin_addr); status != kSuccess) {
    return status;
  }
  if (connect(endpoint->socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
      SOCKET_ERROR) {
    return LastSocketError();
  }
  // From here on the socket does not block: Send does, in a wait that can be cancelled.
  if (WSAEventSelect(endpoint->socket, endpoint->network, FD_WRITE | FD_CLOSE) == SOCKET_ERROR) {
    return LastSocketError();
  }
  return kSuccess;
}

Status CSocket::Send(const void* bytes, std::size_t size, std::size_t& sent) {
  sent = 0;
  Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return WSAENOTSOCK;
  }
  endpoint->has_sent = false;
  // At least one call, also for no bytes: it tells whether there is a connection.
  do {
    const int piece = static_cast<int>(std::min(size - sent, kLargestPiece));
    const int taken = send(endpoint->socket, static_cast<const char*>(bytes) + sent, piece, 0);
    if (taken != SOCKET_ERROR) {
      sent += static_cast<std::size_t>(taken);
      continue;
    }
    if (const Status status = LastSocketError(); status != WSAEWOULDBLOCK) {
      return status;
    }
    if (const Status status = WaitUntilWritable(*endpoint); status != kSuccess) {
      return status;
    }
  } while (sent < size);
  endpoint->has_sent = true;
  return kSuccess;
}

void CSocket::CancelBlockingCall() {
  if (Endpoint* const endpoint = Get(socket_); endpoint != nullptr) {
    SetEvent(endpoint->cancel);
  }
}

void CSocket::Close() {
  socket_.Reset();
}

}  // namespace platform
