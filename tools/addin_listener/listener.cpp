#include "tools/addin_listener/listener.h"

#include <algorithm>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <asio/steady_timer.hpp>
#include <atomic>
#include <map>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/addin_listener/system.h"

namespace zentpost::addin_listener {
namespace {

using asio::ip::tcp;
using asio::ip::udp;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = std::size_t{256} << 10;
// How often a connection that is not read or not accepted is looked at: nothing tells of its end.
constexpr milliseconds kLookInterval{10};

#ifdef SO_EXCLUSIVEADDRUSE
// Without it another program can bind the same port and take the connections.
using PortOption = asio::detail::socket_option::boolean<SOL_SOCKET, SO_EXCLUSIVEADDRUSE>;
#else
// Allows a port whose former connections are still fading away, not one that has a listener.
using PortOption = tcp::acceptor::reuse_address;
#endif

struct Served {
  tcp::socket socket;
  asio::steady_timer timer;
  unsigned number;
  Misbehaviour misbehaviour;
  bool has_bytes = false;  // under kNeverRead: some wait, and none will be read
  milliseconds pause{0};   // not to be served before it has passed
  std::string wire = {};
};

// The peer's next operation fails; what it has sent and what waits for it is thrown away.
ConnectionEnd Reset(Served& served, ConnectionEnd end = ConnectionEnd::kSpoiled) {
  std::error_code ignored;
  served.socket.set_option(tcp::socket::linger(true, 0), ignored);
  served.socket.close(ignored);
  return end;
}

}  // namespace

class Listener::Server {
 public:
  explicit Server(const ListenerOptions& options) : options_(options) {
    const asio::ip::address loopback = asio::ip::address_v4::loopback();
    // Connected to itself, it takes nobody else's datagrams.
    wake_.connect(wake_.local_endpoint());
    wake_.non_blocking(true);
    acceptor_.open(tcp::v4());
    KeepFromChildren(static_cast<std::uintptr_t>(acceptor_.native_handle()));
    acceptor_.set_option(PortOption(true));
    if (options.misbehaviour == Misbehaviour::kNeverRead ||
        options.misbehaviour == Misbehaviour::kSlow) {
      // A sender is to wait for a listener that does not read, not to fill the system's buffers.
      acceptor_.set_option(tcp::acceptor::receive_buffer_size(4096));
    }
    acceptor_.bind({loopback, options.port});
    acceptor_.non_blocking(true);
    // While the last connection that is to find a listener waits to be accepted, no other fits into
    // the queue. Were it accepted, another could slip in before the listening socket is closed.
    acceptor_.listen(options.misbehaviour == Misbehaviour::kStopAfterProbe
                         ? 0
                         : tcp::acceptor::max_listen_connections);
    port_ = acceptor_.local_endpoint().port();
  }

  std::uint16_t port() const { return port_; }

  void Stop() noexcept {
    stopped_ = true;
    std::error_code ignored;
    wake_.send(asio::buffer("", 1), 0, ignored);
  }

  RunEnd Run(const Sink& sink, std::string& error) {
    sink_ = &sink;
    asio::steady_timer timer(io_);
    if (options_.timeout) {
      deadline_ = Clock::now() + *options_.timeout;
      timer.expires_at(*deadline_);
      timer.async_wait([](std::error_code) {});
    }
    wake_.async_wait(udp::socket::wait_read, [](std::error_code) {});
    AwaitConnection();
    std::optional<RunEnd> end;
    while (!(end = Ended())) {
      io_.run_one();
    }
    error = failure_;
    std::error_code ignored;
    acceptor_.close(ignored);
    for (auto& [number, served] : served_) {
      // A peer that is still sending must not take an orderly end for a delivery.
      Reset(served);
      sink({number, ConnectionEnd::kDropped, std::move(served.wire)});
    }
    return *end;
  }

 private:
  std::optional<RunEnd> Ended() const {
    if (!failure_.empty()) {
      return RunEnd::kFailed;
    }
    if (stopped_) {
      return RunEnd::kStopped;
    }
    if ((options_.count != 0 && completed_ >= options_.count) ||
        (!acceptor_.is_open() && served_.empty())) {
      return RunEnd::kCompleted;
    }
    if (deadline_ && Clock::now() >= *deadline_) {
      return RunEnd::kTimedOut;
    }
    return std::nullopt;
  }

  void AwaitConnection() {
    acceptor_.async_wait(tcp::acceptor::wait_read, [this](std::error_code) { TakeConnection(); });
  }

  void TakeConnection() {
    if (options_.misbehaviour == Misbehaviour::kStopAfterProbe &&
        came_ + 1 == std::max(options_.connection, 1u)) {
      if (ClientIsConnected(port_, 0).value_or(false)) {
        look_.expires_after(kLookInterval);
        look_.async_wait([this](std::error_code) { TakeConnection(); });
      } else {
        std::error_code ignored;
        acceptor_.close(ignored);
        (*sink_)({++came_, ConnectionEnd::kUnaccepted, {}});
      }
      return;
    }
    std::error_code error;
    tcp::socket socket = acceptor_.accept(error);
    if (!error) {
      KeepFromChildren(static_cast<std::uintptr_t>(socket.native_handle()));
      socket.non_blocking(true, error);
      const unsigned number = ++came_;
      const bool is_chosen = options_.connection == 0 || options_.connection == number;
      Served served{std::move(socket), asio::steady_timer(io_), number,
                    is_chosen ? options_.misbehaviour : Misbehaviour::kNone};
      Served& added = served_.emplace(number, std::move(served)).first->second;
      if (added.misbehaviour == Misbehaviour::kReset && options_.connection != 0) {
        Finish(added, Reset(added));
      } else {
        // Even where bytes are there already: what came on earlier connections goes first.
        Await(added);
      }
    } else if (error != asio::error::would_block && error != asio::error::connection_reset) {
      // Else the connection has gone in the meantime.
      failure_ = CallError(std::system_error(error, "accept"));
    }
    AwaitConnection();
  }

  // One of the two at a time, so that nothing is under way for a connection that has ended.
  void Await(Served& served) {
    const auto go_on = [this, &served](std::error_code) {
      if (const std::optional<ConnectionEnd> end = Step(served)) {
        Finish(served, *end);
      } else {
        Await(served);
      }
    };
    if (served.pause != milliseconds(0)) {
      served.timer.expires_after(std::exchange(served.pause, milliseconds(0)));
      served.timer.async_wait(go_on);
    } else {
      served.socket.async_wait(tcp::socket::wait_read, go_on);
    }
  }

  void Finish(Served& served, ConnectionEnd end) {
    std::error_code ignored;
    served.socket.close(ignored);
    completed_ += end == ConnectionEnd::kProbe ? 0 : 1;
    Connection connection{served.number, end, std::move(served.wire)};
    served_.erase(served.number);
    (*sink_)(std::move(connection));
  }

  // Does what is due on a connection that is ready; nothing while it goes on.
  std::optional<ConnectionEnd> Step(Served& served) {
    const bool never_read = served.misbehaviour == Misbehaviour::kNeverRead;
    const bool reset = served.misbehaviour == Misbehaviour::kReset;
    const bool slow = served.misbehaviour == Misbehaviour::kSlow;
    std::error_code error;
    if (served.has_bytes) {
      const std::uint16_t client_port = served.socket.remote_endpoint(error).port();
      // A connection that was reset has no peer.
      if (error || !ClientIsConnected(port_, client_port).value_or(true)) {
        return ConnectionEnd::kSpoiled;
      }
      served.pause = kLookInterval;
      return std::nullopt;
    }
    const std::size_t received = served.socket.receive(
        asio::buffer(buffer_, slow ? 1 : buffer_.size()),
        never_read || reset ? tcp::socket::message_peek : tcp::socket::message_flags(0), error);
    if (error == asio::error::would_block) {
      return std::nullopt;
    }
    if (error) {
      const ConnectionEnd end =
          error == asio::error::eof ? ConnectionEnd::kDelivered : ConnectionEnd::kBroken;
      return served.wire.empty() ? ConnectionEnd::kProbe : end;
    }
    if (reset) {
      return Reset(served);
    }
    if (never_read) {
      served.has_bytes = true;
      served.pause = kLookInterval;
      return std::nullopt;
    }
    served.wire.append(buffer_.data(), received);
    if (slow) {
      served.pause = options_.slow_interval;
    }
    if (served.wire.size() > kMaxPayload) {
      return Reset(served, ConnectionEnd::kBroken);
    }
    return std::nullopt;
  }

  const ListenerOptions options_;
  asio::io_context io_{1};
  udp::socket wake_{io_, {asio::ip::address_v4::loopback(), 0}};
  tcp::acceptor acceptor_{io_};
  asio::steady_timer look_{io_};
  std::atomic<bool> stopped_ = false;
  std::string failure_;
  std::optional<Clock::time_point> deadline_;
  std::uint16_t port_ = 0;
  unsigned came_ = 0;
  unsigned completed_ = 0;
  std::map<unsigned, Served> served_;
  const Sink* sink_ = nullptr;
  std::vector<char> buffer_ = std::vector<char>(kReadSize);
};

Listener::Listener() = default;
Listener::~Listener() = default;

bool Listener::Open(const ListenerOptions& options, std::string& error) {
  try {
    server_ = std::make_unique<Server>(options);
    port_ = server_->port();
    return true;
  } catch (const std::system_error& failure) {
    error = CallError(failure);
    return false;
  }
}

RunEnd Listener::Run(const Sink& sink, std::string& error) {
  return server_->Run(sink, error);
}

void Listener::Stop() noexcept {
  server_->Stop();
}

}  // namespace zentpost::addin_listener
