// A blocking TCP client socket, and the socket library's start and end. Nothing here throws: what
// needs memory gives kNotEnoughMemory when it runs out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

// Starts the process's use of sockets; `version` is Winsock's (0x0202). Until it has succeeded
// every socket fails with kSocketsNotStarted. Each success wants one EndSockets.
Status StartSockets(std::uint16_t version);
void EndSockets();

enum class RawSocket : std::uintptr_t {};
struct SocketTraits {
  using Value = RawSocket;
  static constexpr RawSocket kNone{};
  static void Close(RawSocket socket) noexcept;
};

// Used by one thread, but for CancelBlockingCall, which another thread may call at any time between
// Create and the end of that thread's use of the socket.
class CSocket {
 public:
  CSocket() = default;
  CSocket(const CSocket&) = delete;
  CSocket& operator=(const CSocket&) = delete;

  // Makes a TCP socket on any free local port. An open socket is closed first.
  [[nodiscard]] Status Create();

  // Connects to `host` (an IPv4 address or a name) and waits as long as the system does. The socket
  // stays open when that fails.
  [[nodiscard]] Status Connect(const std::u16string& host, std::uint16_t port);

  // Blocks until the system has taken all `size` bytes, the connection fails or the call is
  // cancelled (kSocketInterrupted). `sent` is the number of bytes taken, also on failure.
  [[nodiscard]] Status Send(const void* bytes, std::size_t size, std::size_t& sent);

  // Ends a Send that waits for the peer, and every later one that would have to wait.
  void CancelBlockingCall();

  // Closes the socket; bytes that the system has taken are still delivered. Does nothing when it is
  // closed already.
  void Close();

 private:
  UniqueHandle<SocketTraits> socket_;
};

}  // namespace platform
