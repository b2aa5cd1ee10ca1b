#include "platform/sockets.h"

#include <algorithm>
#include <string_view>

#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::Hex;
using fake::LockedPlatform;

// Published in winsock2.h as WSAENOTSOCK, WSAEISCONN and WSAVERNOTSUPPORTED.
constexpr Status kSocketNotASocket = 10038;
constexpr Status kSocketIsConnected = 10056;
constexpr Status kSocketsVersionNotSupported = 10092;

fake::OpenSocket* Find(LockedPlatform& locked, RawSocket socket) {
  const auto found = locked->open_sockets.find(static_cast<std::uintptr_t>(socket));
  return found == locked->open_sockets.end() ? nullptr : &found->second;
}

// What every use of a socket needs: a started library and an open socket.
Status FindUsable(LockedPlatform& locked, RawSocket socket, fake::OpenSocket*& open) {
  open = Find(locked, socket);
  if (locked->socket_starts == 0) {
    return kSocketsNotStarted;
  }
  return open == nullptr ? kSocketNotASocket : kSuccess;
}

void Take(LockedPlatform& locked, std::size_t connection, const char* bytes, std::size_t count) {
  locked->sent[connection].append(bytes, count);
}

}  // namespace

Status StartSockets(std::uint16_t version) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("StartSockets", Hex{version})) {
    return fault;
  }
  // The low byte is the major version; every one from 1 on gets what there is.
  if ((version & 0xff) == 0) {
    return kSocketsVersionNotSupported;
  }
  ++locked->socket_starts;
  return kSuccess;
}

void EndSockets() {
  LockedPlatform locked;
  locked.Record("EndSockets");
  if (locked->socket_starts > 0) {
    --locked->socket_starts;
  }
}

void SocketTraits::Close(RawSocket socket) noexcept {
  LockedPlatform locked;
  if (const fake::OpenSocket* const open = Find(locked, socket)) {
    if (open->connection) {
      locked->connections[*open->connection].closed = true;
    }
    locked->open_sockets.erase(static_cast<std::uintptr_t>(socket));
    locked->changed.notify_all();
  }
}

Status CSocket::Create() {
  socket_.Reset();
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("Create")) {
    return fault;
  }
  if (locked->socket_starts == 0) {
    return kSocketsNotStarted;
  }
  const std::uintptr_t handle = locked->NewHandle();
  locked->open_sockets.try_emplace(handle);
  socket_.Reset(RawSocket{handle});
  return kSuccess;
}

Status CSocket::Connect(const std::u16string& host, std::uint16_t port) {
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("Connect", host, port)) {
    return fault;
  }
  fake::OpenSocket* open = nullptr;
  if (const Status status = FindUsable(locked, socket_.Get(), open)) {
    return status;
  }
  if (open->connection) {
    return kSocketIsConnected;
  }
  if (host != u"127.0.0.1" && host != u"localhost") {
    return kHostNotFound;
  }
  const auto listener = locked->listeners.find(port);
  if (listener == locked->listeners.end() || listener->second.connections_left == 0) {
    return kSocketRefused;
  }
  if (listener->second.connections_left != fake::FakePlatform::kUnlimited) {
    --listener->second.connections_left;
  }
  open->connection = locked->connections.size();
  locked->connections.push_back({port, listener->second.peer, locked->send_window});
  locked->sent.emplace_back();
  return kSuccess;
}

Status CSocket::Send(const void* bytes, std::size_t size, std::size_t& sent) {
  sent = 0;
  const char* const first = static_cast<const char*>(bytes);
  LockedPlatform locked;
  const Status fault = locked.RecordFallible("Send", size);
  fake::OpenSocket* open = nullptr;
  if (const Status status = FindUsable(locked, socket_.Get(), open)) {
    return fault != kSuccess ? fault : status;
  }
  if (!open->connection) {
    return fault != kSuccess ? fault : kSocketNotConnected;
  }
  const std::size_t index = *open->connection;
  if (fault != kSuccess) {
    sent = std::min(size, locked->bytes_before_fault);
    Take(locked, index, first, sent);
    return fault;
  }

  fake::Connection& connection = locked->connections[index];
  switch (connection.peer) {
    case fake::Peer::kAccept:
      sent = size;
      break;
    case fake::Peer::kNeverRead:
      sent = std::min(size, connection.window_left);
      connection.window_left -= sent;
      break;
    case fake::Peer::kReset:
      sent = size / 2;
      Take(locked, index, first, sent);
      return kSocketReset;
  }
  Take(locked, index, first, sent);
  if (sent == size) {
    return kSuccess;
  }
  locked->changed.wait(locked.Lock(), [&] { return open->cancelled; });
  return kSocketInterrupted;
}

void CSocket::CancelBlockingCall() {
  LockedPlatform locked;
  locked.Record("CancelBlockingCall");
  if (fake::OpenSocket* const open = Find(locked, socket_.Get())) {
    open->cancelled = true;
    locked->changed.notify_all();
  }
}

void CSocket::Close() {
  {
    LockedPlatform locked;
    locked.Record("Close");
  }
  socket_.Reset();
}

}  // namespace platform
