#include "tools/addin_listener/listener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/addin_listener/test_client.h"

namespace zentpost::addin_listener {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// A listener on a free port that runs on a thread of its own.
class RunningListener {
 public:
  explicit RunningListener(const ListenerOptions& options) {
    std::string error;
    EXPECT_TRUE(listener_.Open(options, error)) << error;
    thread_ = std::thread([this] {
      end_ = listener_.Run(
          [this](Connection connection) {
            const std::lock_guard lock(mutex_);
            connections_.push_back(std::move(connection));
            changed_.notify_all();
          },
          error_);
    });
  }
  ~RunningListener() {
    if (thread_.joinable()) {
      listener_.Stop();
      thread_.join();
    }
  }

  std::uint16_t port() const { return listener_.port(); }
  void Stop() { listener_.Stop(); }

  // Waits until Run has returned.
  RunEnd Join() {
    thread_.join();
    EXPECT_EQ(error_, "");
    return end_;
  }

  // Waits until `count` connections have ended.
  bool Await(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kLongEnough, [&] { return connections_.size() >= count; });
  }

  // What has come so far, as "NUMBER END WIRE".
  std::vector<std::string> Log() {
    static const char* const kEnds[] = {"probe",   "delivered",  "broken",
                                        "spoiled", "unaccepted", "dropped"};
    const std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    for (const Connection& connection : connections_) {
      result.push_back(std::to_string(connection.number) + " " +
                       kEnds[static_cast<int>(connection.end)] + " " + connection.wire);
    }
    return result;
  }

 private:
  Listener listener_;
  std::thread thread_;
  RunEnd end_ = RunEnd::kFailed;
  std::string error_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Connection> connections_;
};

using Lines = std::vector<std::string>;

bool CanConnect(std::uint16_t port) {
  return TestClient(port).connected();
}

void Probe(std::uint16_t port) {
  TestClient(port).Close();
}

TEST(Listener, ProbeAndDeliveryAreToldApart) {
  RunningListener listener({});
  Probe(listener.port());
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("pay"));
  EXPECT_TRUE(client.Send("load"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"1 probe ", "2 delivered payload"}));
}

TEST(Listener, NothingListensOnceTheLastDeliveryHasCome) {
  RunningListener listener({});
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("x"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_FALSE(CanConnect(listener.port()));
}

TEST(Listener, DeliveryIsCompleteOnlyWhenItsSenderCloses) {
  RunningListener listener({});
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("first"));
  // A second connection that comes and goes shows that the first has not been taken for complete.
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  EXPECT_EQ(listener.Log(), Lines{"2 probe "});
  EXPECT_TRUE(client.Send(" second"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"2 probe ", "1 delivered first second"}));
}

TEST(Listener, SimultaneousDeliveriesKeepTheirBytesApart) {
  constexpr unsigned kSenders = 8;
  constexpr std::size_t kSize = 1 << 20;
  ListenerOptions options;
  options.count = kSenders;
  RunningListener listener(options);
  std::vector<std::thread> senders;
  for (unsigned i = 0; i < kSenders; ++i) {
    senders.emplace_back([&, i] {
      TestClient client(listener.port());
      EXPECT_TRUE(client.Send(std::string(kSize, static_cast<char>('a' + i))));
      client.Close();
    });
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  std::vector<bool> seen(kSenders, false);
  for (const std::string& line : listener.Log()) {
    const std::size_t sender = static_cast<std::size_t>(line.back() - 'a');
    ASSERT_LT(sender, kSenders);
    EXPECT_FALSE(seen[sender]);
    seen[sender] = true;
    EXPECT_TRUE(line.ends_with(" delivered " + std::string(kSize, line.back())))
        << line.substr(0, 40);
  }
  EXPECT_EQ(seen, std::vector<bool>(kSenders, true));
}

TEST(Listener, AllBytesOfABigDeliveryArriveAsTheyWere) {
  std::string payload;
  for (unsigned i = 0; payload.size() < (16u << 20); ++i) {
    payload += std::to_string(i) + '\0' + '\xFF';
  }
  RunningListener listener({});
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send(payload));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_TRUE(listener.Log() == Lines{"1 delivered " + payload});
}

TEST(Listener, DeliveryThatItsSenderResetsIsBroken) {
  if (WhatAResetLooksLike() != PeerEnd::kReset) {
    GTEST_SKIP() << "this system closes in order before it resets";
  }
  RunningListener listener({});
  TestClient client(listener.port());
  // The bytes may be lost with the connection or not; what came is an honest beginning of them. The
  // probe makes sure that they are there before the reset.
  EXPECT_TRUE(client.Send("half"));
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  client.CloseWithReset();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"2 probe ", "1 broken half"}));
}

TEST(Listener, ConnectionThatIsResetBeforeItsFirstByteIsAProbe) {
  RunningListener listener({});
  TestClient(listener.port()).CloseWithReset();
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("x"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  const Lines log = listener.Log();
  // Some systems forget a connection that is reset before it is accepted.
  EXPECT_TRUE(log == (Lines{"1 probe ", "2 delivered x"}) || log == Lines{"1 delivered x"})
      << ::testing::PrintToString(log);
}

TEST(Listener, StopEndsAListenerThatWaits) {
  ListenerOptions options;
  options.count = 0;
  RunningListener listener(options);
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  listener.Stop();
  EXPECT_EQ(listener.Join(), RunEnd::kStopped);
  EXPECT_FALSE(CanConnect(listener.port()));
}

TEST(Listener, StopBeforeRunCounts) {
  Listener listener;
  std::string error;
  ASSERT_TRUE(listener.Open({}, error)) << error;
  listener.Stop();
  EXPECT_EQ(listener.Run([](const Connection&) { FAIL(); }, error), RunEnd::kStopped);
}

TEST(Listener, StopFromTheSinkEndsTheRun) {
  ListenerOptions options;
  options.count = 0;
  Listener listener;
  std::string error;
  ASSERT_TRUE(listener.Open(options, error)) << error;
  Probe(listener.port());
  EXPECT_EQ(listener.Run([&](const Connection&) { listener.Stop(); }, error), RunEnd::kStopped);
}

TEST(Listener, ConnectionsThatAreOpenAtTheEndAreDroppedWithAReset) {
  RunningListener listener({});
  TestClient open(listener.port());
  EXPECT_TRUE(open.Send("begun"));
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  TestClient whole(listener.port());
  EXPECT_TRUE(whole.Send("whole"));
  whole.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"2 probe ", "3 delivered whole", "1 dropped begun"}));
  EXPECT_EQ(open.AwaitEnd(), WhatAResetLooksLike());
}

TEST(Listener, TimeoutEndsTheRun) {
  ListenerOptions options;
  options.timeout = milliseconds(50);
  const Clock::time_point begin = Clock::now();
  RunningListener listener(options);
  TestClient silent(listener.port());
  EXPECT_EQ(listener.Join(), RunEnd::kTimedOut);
  EXPECT_GE(Clock::now() - begin, milliseconds(50));
  EXPECT_EQ(listener.Log(), Lines{"1 dropped "});
}

TEST(Listener, PortOfAnotherListenerIsNotShared) {
  Listener first;
  std::string error;
  ASSERT_TRUE(first.Open({}, error)) << error;
  ListenerOptions options;
  options.port = first.port();
  Listener second;
  EXPECT_FALSE(second.Open(options, error));
  EXPECT_TRUE(error.starts_with("bind: ")) << error;
}

TEST(Listener, PortIsFreeAgainAfterDeliveries) {
  std::uint16_t port = 0;
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    ListenerOptions options;
    options.port = port;
    RunningListener listener(options);
    port = listener.port();
    Probe(port);
    TestClient client(port);
    EXPECT_TRUE(client.Send("x"));
    client.Close();
    EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  }
}

TEST(Listener, NeverReadLeavesTheSenderWaiting) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kNeverRead;
  RunningListener listener(options);
  Probe(listener.port());
  TestClient client(listener.port());
  constexpr std::size_t kMost = std::size_t{64} << 20;
  EXPECT_LT(client.SendUntilStuck(kMost), kMost);
  EXPECT_EQ(listener.Log(), Lines{"1 probe "});
  client.CloseWithReset();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"1 probe ", "2 spoiled "}));
}

TEST(Listener, NeverReadEndsWhenAPayloadThatTheSystemHoldsIsClosed) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kNeverRead;
  options.connection = 2;
  RunningListener listener(options);
  Probe(listener.port());
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("small"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"1 probe ", "2 spoiled "}));
}

TEST(Listener, NeverReadEndsWhenASenderThatIsStuckGivesUp) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kNeverRead;
  RunningListener listener(options);
  TestClient client(listener.port());
  constexpr std::size_t kMost = std::size_t{64} << 20;
  EXPECT_LT(client.SendUntilStuck(kMost), kMost);
  // The end of the connection cannot be sent as long as the bytes before it are not taken.
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), Lines{"1 spoiled "});
}

TEST(Listener, NeverReadIsEndedByStop) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kNeverRead;
  RunningListener listener(options);
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("some"));
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  listener.Stop();
  EXPECT_EQ(listener.Join(), RunEnd::kStopped);
  EXPECT_EQ(listener.Log(), (Lines{"2 probe ", "1 dropped "}));
  EXPECT_EQ(client.AwaitEnd(), WhatAResetLooksLike());
}

TEST(Listener, SlowTakesOneByteAnInterval) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kSlow;
  options.slow_interval = milliseconds(10);
  RunningListener listener(options);
  const Clock::time_point begin = Clock::now();
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("0123456789"));
  client.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_GE(Clock::now() - begin, 10 * milliseconds(10));
  EXPECT_EQ(listener.Log(), Lines{"1 delivered 0123456789"});
}

TEST(Listener, SlowConnectionDoesNotHoldUpAnother) {
  ListenerOptions options;
  options.count = 0;
  options.misbehaviour = Misbehaviour::kSlow;
  options.slow_interval = std::chrono::hours(1);
  options.connection = 1;
  RunningListener listener(options);
  TestClient slow(listener.port());
  EXPECT_TRUE(slow.Send("two"));
  TestClient other(listener.port());
  EXPECT_TRUE(other.Send("other"));
  other.Close();
  ASSERT_TRUE(listener.Await(1));
  listener.Stop();
  EXPECT_EQ(listener.Join(), RunEnd::kStopped);
  EXPECT_EQ(listener.Log(), (Lines{"2 delivered other", "1 dropped t"}));
}

TEST(Listener, ResetHitsTheFirstConnectionThatBringsBytes) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kReset;
  RunningListener listener(options);
  Probe(listener.port());
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("payload"));
  EXPECT_EQ(client.AwaitEnd(), WhatAResetLooksLike());
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"1 probe ", "2 spoiled "}));
}

TEST(Listener, ResetOfAGivenConnectionWaitsForNoByte) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kReset;
  options.connection = 2;
  options.count = 2;
  RunningListener listener(options);
  TestClient first(listener.port());
  EXPECT_TRUE(first.Send("first"));
  TestClient second(listener.port());
  EXPECT_EQ(second.AwaitEnd(), WhatAResetLooksLike());
  first.Close();
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_EQ(listener.Log(), (Lines{"2 spoiled ", "1 delivered first"}));
}

TEST(Listener, StopAfterProbeRefusesTheConnectionThatFollowsTheProbe) {
  // More than once, for the second connection comes as fast as it can.
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    ListenerOptions options;
    options.misbehaviour = Misbehaviour::kStopAfterProbe;
    RunningListener listener(options);
    Probe(listener.port());
    EXPECT_FALSE(CanConnect(listener.port()));
    EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
    EXPECT_EQ(listener.Log(), Lines{"1 unaccepted "});
  }
}

TEST(Listener, StopAfterProbeListensUntilTheFirstConnectionIsClosed) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kStopAfterProbe;
  options.timeout = milliseconds(100);
  RunningListener listener(options);
  TestClient client(listener.port());
  EXPECT_EQ(listener.Join(), RunEnd::kTimedOut);
  EXPECT_EQ(listener.Log(), Lines{});
}

TEST(Listener, StopAfterProbeCanServeConnectionsBefore) {
  ListenerOptions options;
  options.misbehaviour = Misbehaviour::kStopAfterProbe;
  options.connection = 3;
  options.count = 0;
  RunningListener listener(options);
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("x"));
  client.Close();
  ASSERT_TRUE(listener.Await(2));
  Probe(listener.port());
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  EXPECT_FALSE(CanConnect(listener.port()));
  EXPECT_EQ(listener.Log(), (Lines{"1 probe ", "2 delivered x", "3 unaccepted "}));
}

TEST(Listener, PayloadBeyondTheLimitIsBroken) {
  RunningListener listener({});
  TestClient client(listener.port());
  const std::string block(1 << 20, 'x');
  std::size_t sent = 0;
  while (sent <= 2 * kMaxPayload && client.Send(block)) {
    sent += block.size();
  }
  EXPECT_LT(sent, 2 * kMaxPayload);
  EXPECT_EQ(listener.Join(), RunEnd::kCompleted);
  const Lines log = listener.Log();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_TRUE(log[0].starts_with("1 broken x"));
  EXPECT_GT(log[0].size(), kMaxPayload);
}

}  // namespace
}  // namespace zentpost::addin_listener
