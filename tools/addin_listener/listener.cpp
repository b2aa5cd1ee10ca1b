#include "tools/addin_listener/listener.h"

#include <algorithm>
#include <utility>

namespace zentpost::addin_listener {
namespace {

constexpr std::size_t kReadSize = std::size_t{256} << 10;
// How often a connection that is not read or not accepted is looked at: nothing tells of its end.
constexpr std::chrono::milliseconds kLookInterval{10};

}  // namespace

bool Listener::Open(const ListenerOptions& options, std::string& error) {
  options_ = options;
  ListenSettings settings;
  settings.port = options.port;
  // While the last connection that is to find a listener waits to be accepted, no other fits into
  // the queue. Were it accepted, another could slip in before the listening socket is closed.
  settings.one_at_a_time = options.misbehaviour == Misbehaviour::kStopAfterProbe;
  // A sender is to wait for a listener that does not read, not to fill the system's buffers.
  settings.small_receive_buffer = options.misbehaviour == Misbehaviour::kNeverRead ||
                                  options.misbehaviour == Misbehaviour::kSlow;
  return OpenWakeSocket(wake_, error) && ListenOnLoopback(settings, listener_, port_, error);
}

void Listener::Stop() noexcept {
  stopped_ = true;
  Wake(wake_);
}

RunEnd Listener::Run(const Sink& sink, std::string& error) {
  buffer_.resize(kReadSize);
  if (options_.timeout) {
    deadline_ = Clock::now() + *options_.timeout;
  }
  const RunEnd end = RunUntilEnded(sink, error);
  listener_.Reset();
  for (Served& served : std::exchange(served_, {})) {
    // A peer that is still sending must not take an orderly end for a delivery.
    Reset(std::move(served.socket));
    sink({served.number, ConnectionEnd::kDropped, std::move(served.wire)});
  }
  return end;
}

RunEnd Listener::RunUntilEnded(const Sink& sink, std::string& error) {
  while (true) {
    if (const std::optional<RunEnd> end = Ended()) {
      return *end;
    }
    bool connection_waits = false;
    std::vector<bool> ready;
    if (!WaitForWork(connection_waits, ready, error)) {
      return RunEnd::kFailed;
    }
    if (connection_waits && LeavesNextWaiting()) {
      if (ClientIsConnected(port_).value_or(false)) {
        next_accept_ = Clock::now() + kLookInterval;
      } else {
        listener_.Reset();
        sink({++came_, ConnectionEnd::kUnaccepted, {}});
      }
    } else if (connection_waits && !AcceptAll(error)) {
      return RunEnd::kFailed;
    }
    ready.resize(served_.size(), true);
    for (std::size_t i = 0; i < ready.size(); ++i) {
      Served& served = served_[i];
      const std::optional<ConnectionEnd> end = ready[i] ? Serve(served) : std::nullopt;
      if (!end) {
        continue;
      }
      served.socket.Reset();
      if (*end != ConnectionEnd::kProbe) {
        ++completed_;
      }
      sink({served.number, *end, std::move(served.wire)});
      if (Ended()) {
        break;
      }
    }
    std::erase_if(served_, [](const Served& served) { return !served.socket; });
  }
}

std::optional<RunEnd> Listener::Ended() const {
  if (stopped_) {
    return RunEnd::kStopped;
  }
  if (options_.count != 0 && completed_ >= options_.count) {
    return RunEnd::kCompleted;
  }
  if (!listener_ && std::none_of(served_.begin(), served_.end(),
                                 [](const Served& served) { return bool{served.socket}; })) {
    return RunEnd::kCompleted;
  }
  if (deadline_ && Clock::now() >= *deadline_) {
    return RunEnd::kTimedOut;
  }
  return std::nullopt;
}

// `ready` says for each of served_ whether it wants to be served.
bool Listener::WaitForWork(bool& connection_waits, std::vector<bool>& ready, std::string& error) {
  const Clock::time_point now = Clock::now();
  std::optional<Clock::time_point> wake_at = deadline_;
  std::vector<WaitEntry> entries = {{wake_.Get()}};
  const bool listens = listener_ && next_accept_ <= now;
  if (listens) {
    entries.push_back({listener_.Get()});
  } else if (listener_) {
    wake_at = std::min(wake_at.value_or(next_accept_), next_accept_);
  }
  const std::size_t first_served = entries.size();
  ready.assign(served_.size(), false);
  std::vector<std::size_t> indexes;
  for (std::size_t i = 0; i < served_.size(); ++i) {
    const Served& served = served_[i];
    if (served.next_turn > now) {
      wake_at = std::min(wake_at.value_or(served.next_turn), served.next_turn);
    } else if (served.has_bytes) {
      ready[i] = true;
      wake_at = now;
    } else {
      entries.push_back({served.socket.Get()});
      indexes.push_back(i);
    }
  }
  std::optional<std::chrono::milliseconds> at_most;
  if (wake_at) {
    at_most = std::chrono::ceil<std::chrono::milliseconds>(
        std::max(*wake_at - now, Clock::duration::zero()));
  }
  if (!Wait(entries, at_most, error)) {
    return false;
  }
  connection_waits = listens && entries[1].ready;
  for (std::size_t i = 0; i < indexes.size(); ++i) {
    ready[indexes[i]] = entries[first_served + i].ready;
  }
  return true;
}

bool Listener::LeavesNextWaiting() const {
  return options_.misbehaviour == Misbehaviour::kStopAfterProbe &&
         came_ + 1 == std::max(options_.connection, 1u);
}

bool Listener::AcceptAll(std::string& error) {
  while (!LeavesNextWaiting()) {
    Served served;
    const AcceptResult result = Accept(listener_, served.socket, error);
    if (result != AcceptResult::kAccepted) {
      return result == AcceptResult::kNoneWaits;
    }
    served.number = ++came_;
    if (options_.connection == 0 || options_.connection == served.number) {
      served.misbehaviour = options_.misbehaviour;
    }
    served_.push_back(std::move(served));
  }
  return true;
}

// Does what is due on a connection that is ready; nothing while it goes on.
std::optional<ConnectionEnd> Listener::Serve(Served& served) {
  if (served.has_bytes) {
    if (!ClientIsConnected(port_, &served.socket).value_or(true)) {
      return ConnectionEnd::kSpoiled;
    }
    served.next_turn = Clock::now() + kLookInterval;
    return std::nullopt;
  }
  if (served.misbehaviour == Misbehaviour::kReset && options_.connection != 0) {
    Reset(std::move(served.socket));
    return ConnectionEnd::kSpoiled;
  }
  const bool never_read = served.misbehaviour == Misbehaviour::kNeverRead;
  const bool reset = served.misbehaviour == Misbehaviour::kReset;
  const bool slow = served.misbehaviour == Misbehaviour::kSlow;
  std::size_t received = 0;
  const ReceiveResult result = never_read || reset ? Peek(served.socket)
                                                   : Receive(served.socket, buffer_.data(),
                                                             slow ? 1 : buffer_.size(), received);
  switch (result) {
    case ReceiveResult::kNothingYet:
      return std::nullopt;
    case ReceiveResult::kEnd:
      return served.wire.empty() ? ConnectionEnd::kProbe : ConnectionEnd::kDelivered;
    case ReceiveResult::kBroken:
      return served.wire.empty() ? ConnectionEnd::kProbe : ConnectionEnd::kBroken;
    case ReceiveResult::kBytes:
      break;
  }
  if (reset) {
    Reset(std::move(served.socket));
    return ConnectionEnd::kSpoiled;
  }
  if (never_read) {
    served.has_bytes = true;
    return std::nullopt;
  }
  served.wire.append(buffer_.data(), received);
  if (slow) {
    served.next_turn = Clock::now() + options_.slow_interval;
  }
  if (served.wire.size() > kMaxPayload) {
    Reset(std::move(served.socket));
    return ConnectionEnd::kBroken;
  }
  return std::nullopt;
}

}  // namespace zentpost::addin_listener
