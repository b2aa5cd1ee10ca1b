#include "platform/sockets.h"

#include "platform/memory_failure.h"
#include "platform/rehearsal/state.h"

namespace platform {
namespace {

using rehearsal::Record;
using rehearsal::Step;
using rehearsal::TheState;
using rehearsal::Took;

// Published in winsock2.h as WSAENOTSOCK and WSAVERNOTSUPPORTED.
constexpr Status kNotASocket = 10038;
constexpr Status kVersionNotSupported = 10092;

struct Endpoint {
  std::optional<std::size_t> connection;  // its index
};

Endpoint* Get(const UniqueHandle<SocketTraits>& socket) {
  return reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket.Get()));
}

}  // namespace

Status StartSockets(std::uint16_t version) {
  // The low byte is the major version; every one from 1 on gets what there is.
  if ((version & 0xFF) == 0) {
    return kVersionNotSupported;
  }
  ++TheState().socket_starts;
  return kSuccess;
}

void EndSockets() {
  if (TheState().socket_starts > 0) {
    --TheState().socket_starts;
  }
}

void SocketTraits::Close(RawSocket socket) noexcept {
  delete reinterpret_cast<Endpoint*>(static_cast<std::uintptr_t>(socket));
}

Status CSocket::Create() {
  socket_.Reset();
  if (TheState().socket_starts == 0) {
    return kSocketsNotStarted;
  }
  return UnlessMemoryRunsOut([&] {
    socket_.Reset(RawSocket{reinterpret_cast<std::uintptr_t>(new Endpoint)});
    return kSuccess;
  });
}

Status CSocket::Connect(const std::u16string& host, std::uint16_t port) {
  Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return kNotASocket;
  }
  return UnlessMemoryRunsOut([&] {
    Status status = kSocketRefused;
    if (host != u"127.0.0.1") {
      status = kHostNotFound;  // no host is asked for by its name here
    } else if (TheState().answers.connect) {
      status = TheState().answers.connect(port);
    }
    if (status == kSuccess) {
      Record& record = TheState().record;
      endpoint->connection = record.connections.size();
      record.connections.emplace_back();
    }
    return Took(Step::Kind::kConnect, host, port, status);
  });
}

Status CSocket::Send(const void* bytes, std::size_t size, std::size_t& sent) {
  sent = 0;
  const Endpoint* const endpoint = Get(socket_);
  if (endpoint == nullptr) {
    return kNotASocket;
  }
  if (!endpoint->connection) {
    return kSocketNotConnected;
  }
  return UnlessMemoryRunsOut([&] {
    TheState().record.connections[*endpoint->connection].append(static_cast<const char*>(bytes),
                                                                size);
    sent = size;
    return Took(Step::Kind::kSend, {}, size, kSuccess);
  });
}

// Nothing here waits.
void CSocket::CancelBlockingCall() {}

void CSocket::Close() {
  socket_.Reset();
}

}  // namespace platform
