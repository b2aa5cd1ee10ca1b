// A listener on 127.0.0.1 that stands in for the mail client's add-in: takes deliveries from any
// number of connections at a time, each complete when its sender closes, or misbehaves on purpose.
// Looks at no byte of what it takes and prints nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zentpost::addin_listener {

enum class Misbehaviour {
  kNone,
  kNeverRead,       // accepts and leaves every byte unread until the peer has closed
  kSlow,            // reads one byte a `slow_interval`
  kReset,           // resets the connection
  kStopAfterProbe,  // listens no more once a connection has come and was closed by its client
};

struct ListenerOptions {
  std::uint16_t port = 0;  // 0: the system chooses a free one
  unsigned count = 1;      // deliveries until Run returns; 0: no limit
  std::optional<std::chrono::milliseconds> timeout = {};  // of the whole Run
  Misbehaviour misbehaviour = Misbehaviour::kNone;
  // 0: each connection is treated badly from its first byte on, so that a probe, which brings none,
  // meets a good listener; kStopAfterProbe stops after the first connection. Else the connection of
  // this number alone, counted from 1 in the order in which they came, probes included: kReset then
  // does not wait for a byte, and kStopAfterProbe stops after this connection.
  unsigned connection = 0;
  std::chrono::milliseconds slow_interval{1000};
};

enum class ConnectionEnd {
  kProbe,       // closed or reset by the peer before it sent a byte
  kDelivered,   // closed by the peer; all bytes are there
  kBroken,      // reset by the peer, or longer than kMaxPayload; the bytes up to then are there
  kSpoiled,     // reset under kReset, or closed by the peer under kNeverRead; no bytes
  kUnaccepted,  // closed by the peer while kStopAfterProbe let it wait; what it sent is lost
  kDropped,     // still open when Run ended; the bytes up to then are there
};

struct Connection {
  unsigned number;  // from 1, in the order in which they came
  ConnectionEnd end;
  std::string wire;  // the bytes as they came
};

// One connection's bytes are kept in memory up to this size: twice what a payload of 64 MiB can
// become on the wire, and still small enough for a 32-bit process.
inline constexpr std::size_t kMaxPayload = std::size_t{256} << 20;

enum class RunEnd {
  kCompleted,  // `count` connections were delivered, broken or spoiled; or the listening was given
               // up on purpose and no connection is open
  kStopped,
  kTimedOut,
  kFailed,
};

class Listener {
 public:
  using Sink = std::function<void(Connection connection)>;

  Listener();
  ~Listener();

  // Begins to listen; from now on connections are held until Run takes them. The port is never
  // shared with another listener. False: `error` names the call and the system's reason in UTF-8.
  // To be called once.
  [[nodiscard]] bool Open(const ListenerOptions& options, std::string& error);

  // The port that Open has taken.
  std::uint16_t port() const { return port_; }

  // Serves until it ends in one of RunEnd's ways, and gives each connection to `sink` on the
  // calling thread when that connection has ended. At the return nothing listens, and every
  // connection is closed. kFailed: `error` says why. To be called once, after Open.
  [[nodiscard]] RunEnd Run(const Sink& sink, std::string& error);

  // Makes Run return kStopped, at once or as soon as it is called. From any thread, from within
  // `sink` or from a signal handler, between Open's success and the end of the object.
  void Stop() noexcept;

 private:
  class Server;
  std::unique_ptr<Server> server_;
  std::uint16_t port_ = 0;
};

}  // namespace zentpost::addin_listener
