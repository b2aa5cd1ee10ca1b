#include "platform/sockets.h"

#include <algorithm>
#include <string_view>

#include "testing/fake_platform/state.h"

namespace platform {
namespace {

using fake::Hex;
using fake::LockedMachine;

// Published in winsock2.h as WSAENOTSOCK, WSAEISCONN and WSAVERNOTSUPPORTED.
constexpr Status kSocketNotASocket = 10038;
constexpr Status kSocketIsConnected = 10056;
constexpr Status kSocketsVersionNotSupported = 10092;

fake::OpenSocket* Find(LockedMachine& machine, RawSocket socket) {
  const auto found = machine->open_sockets.find(static_cast<std::uintptr_t>(socket));
  return found == machine->open_sockets.end() ? nullptr : &found->second;
}

// What every use of a socket needs: a started library and an open socket.
Status FindUsable(LockedMachine& machine, RawSocket socket, fake::OpenSocket*& open) {
  open = Find(machine, socket);
  if (machine->socket_starts == 0) {
    return kSocketsNotStarted;
  }
  return open == nullptr ? kSocketNotASocket : kSuccess;
}

void Take(LockedMachine& machine, std::size_t connection, const char* bytes, std::size_t count) {
  machine->sent[connection].append(bytes, count);
}

}  // namespace

Status StartSockets(std::uint16_t version) {
  LockedMachine machine;
  if (const Status fault = machine.RecordFallible("StartSockets", Hex{version})) {
    return fault;
  }
  // The low byte is the major version; every one from 1 on gets what there is.
  if ((version & 0xff) == 0) {
    return kSocketsVersionNotSupported;
  }
  ++machine->socket_starts;
  return kSuccess;
}

void EndSockets() {
  LockedMachine machine;
  machine.Record("EndSockets");
  if (machine->socket_starts > 0) {
    --machine->socket_starts;
  }
}

void SocketTraits::Close(RawSocket socket) noexcept {
  LockedMachine machine;
  if (const fake::OpenSocket* const open = Find(machine, socket)) {
    if (open->connection) {
      machine->connections[*open->connection].closed = true;
    }
    machine->open_sockets.erase(static_cast<std::uintptr_t>(socket));
    machine->changed.notify_all();
  }
}

Status CSocket::Create() {
  socket_.Reset();
  LockedMachine machine;
  if (const Status fault = machine.RecordFallible("Create")) {
    return fault;
  }
  if (machine->socket_starts == 0) {
    return kSocketsNotStarted;
  }
  const std::uintptr_t handle = machine->NewHandle();
  machine->open_sockets.try_emplace(handle);
  socket_.Reset(RawSocket{handle});
  return kSuccess;
}

Status CSocket::Connect(const std::u16string& host, std::uint16_t port) {
  LockedMachine machine;
  if (const Status fault = machine.RecordFallible("Connect", host, port)) {
    return fault;
  }
  fake::OpenSocket* open = nullptr;
  if (const Status status = FindUsable(machine, socket_.Get(), open)) {
    return status;
  }
  if (open->connection) {
    return kSocketIsConnected;
  }
  if (host != u"127.0.0.1" && host != u"localhost") {
    return kHostNotFound;
  }
  const auto listener = machine->listeners.find(port);
  if (listener == machine->listeners.end() || listener->second.connections_left == 0) {
    return kSocketRefused;
  }
  if (listener->second.connections_left != fake::Machine::kUnlimited) {
    --listener->second.connections_left;
  }
  open->connection = machine->connections.size();
  machine->connections.push_back({port, listener->second.peer, machine->send_window});
  machine->sent.emplace_back();
  return kSuccess;
}

Status CSocket::Send(const void* bytes, std::size_t size, std::size_t& sent) {
  sent = 0;
  const char* const first = static_cast<const char*>(bytes);
  LockedMachine machine;
  const Status fault = machine.RecordFallible("Send", size);
  fake::OpenSocket* open = nullptr;
  if (const Status status = FindUsable(machine, socket_.Get(), open)) {
    return fault != kSuccess ? fault : status;
  }
  if (!open->connection) {
    return fault != kSuccess ? fault : kSocketNotConnected;
  }
  const std::size_t index = *open->connection;
  if (fault != kSuccess) {
    sent = std::min(size, machine->bytes_before_fault);
    Take(machine, index, first, sent);
    return fault;
  }

  fake::Connection& connection = machine->connections[index];
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
      Take(machine, index, first, sent);
      return kSocketReset;
  }
  Take(machine, index, first, sent);
  if (sent == size) {
    return kSuccess;
  }
  machine->changed.wait(machine.Lock(), [&] { return open->cancelled; });
  return kSocketInterrupted;
}

void CSocket::CancelBlockingCall() {
  LockedMachine machine;
  machine.Record("CancelBlockingCall");
  if (fake::OpenSocket* const open = Find(machine, socket_.Get())) {
    open->cancelled = true;
    machine->changed.notify_all();
  }
}

void CSocket::Close() {
  {
    LockedMachine machine;
    machine.Record("Close");
  }
  socket_.Reset();
}

}  // namespace platform
