// The few socket operations of this program: TCP and UDP on 127.0.0.1 alone, never blocking but in
// Wait. No policy and no output; the two systems differ below this header only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/unique_handle.h"

namespace zentpost::addin_listener {

enum class RawSocket : std::uintptr_t {};
struct SocketTraits {
  using Value = RawSocket;
  static constexpr RawSocket kNone{UINTPTR_MAX};
  static void Close(RawSocket socket) noexcept;
};
// No child process inherits one: a port stays open for as long as anybody holds its socket.
using Socket = platform::UniqueHandle<SocketTraits>;

// The process's use of the socket library, for as long as the object lives. Nests.
class SocketLibrary {
 public:
  SocketLibrary();
  // On one system the library is ended, on the other there is nothing to do.
  ~SocketLibrary();  // NOLINT(performance-trivially-destructible)
  SocketLibrary(const SocketLibrary&) = delete;
  SocketLibrary& operator=(const SocketLibrary&) = delete;
};

struct ListenSettings {
  std::uint16_t port = 0;             // 0: the system chooses a free one
  bool one_at_a_time = false;         // the smallest queue of connections that wait to be accepted
  bool small_receive_buffer = false;  // for the accepted connections: a sender waits early
};

// Listens as `settings` say. Never shares the port with another listener. Failure: false, `error`
// names the call and the system's reason in UTF-8.
[[nodiscard]] bool ListenOnLoopback(const ListenSettings& settings, Socket& listener,
                                    std::uint16_t& port, std::string& error);

enum class AcceptResult { kAccepted, kNoneWaits, kFailed };
// Takes the connection that has waited longest. kNoneWaits also when it has gone in the meantime.
[[nodiscard]] AcceptResult Accept(const Socket& listener, Socket& connection, std::string& error);

enum class ReceiveResult { kBytes, kNothingYet, kEnd, kBroken };
// Reads up to `size` bytes (not 0) into `buffer`; `received` is their number with kBytes. kEnd: the
// peer has closed after its last byte. kBroken: the connection was reset or has failed.
[[nodiscard]] ReceiveResult Receive(const Socket& connection, void* buffer, std::size_t size,
                                    std::size_t& received);
// Receive's answer for one byte, which stays unread.
[[nodiscard]] ReceiveResult Peek(const Socket& connection);

// Closes so that the peer's next operation fails with "connection reset"; what it has sent and what
// waits for it is thrown away.
void Reset(Socket connection);

struct WaitEntry {
  RawSocket socket{};
  bool ready = false;  // out: a connection, a byte or the end is there; may be spurious
};
// Waits until an entry is ready, `at_most` has passed (nothing: no limit) or a signal arrives; the
// entries say which. False: the wait failed, `error` says why.
[[nodiscard]] bool Wait(std::vector<WaitEntry>& entries,
                        std::optional<std::chrono::milliseconds> at_most, std::string& error);

// Whether a client of this machine holds a connection to `port` on 127.0.0.1 that it has neither
// closed nor lost; `connection`, where given, is the listener's side of the one that is meant. Asks
// the system's table of connections, which knows the clients' ends: it tells of connections that
// were not accepted yet, and of an end that stands behind bytes that were not read or sent. Nothing
// when the table cannot be had.
[[nodiscard]] std::optional<bool> ClientIsConnected(std::uint16_t port,
                                                    const Socket* connection = nullptr);

// A socket that becomes ready in a Wait once Wake was called.
[[nodiscard]] bool OpenWakeSocket(Socket& socket, std::string& error);
// May be called from another thread and from a signal handler.
void Wake(const Socket& socket) noexcept;

// The client's side, for tests.
[[nodiscard]] bool ConnectToLoopback(std::uint16_t port, Socket& connection, std::string& error);
enum class SendResult { kSent, kWouldWait, kBroken };
// Hands over as many of the `size` bytes as the system takes now; `sent` is their number with
// kSent.
[[nodiscard]] SendResult SendSome(const Socket& connection, const void* bytes, std::size_t size,
                                  std::size_t& sent);
// Waits until SendSome would not wait (kSent), the connection is lost (kBroken) or `at_most` has
// passed (kWouldWait).
[[nodiscard]] SendResult WaitToSend(const Socket& connection, std::chrono::milliseconds at_most);

}  // namespace zentpost::addin_listener
