// What the end-to-end tests would not notice: they need of the listener that it takes deliveries
// and misbehaves, and believe what it says of their ends.
#include "tools/addin_listener/listener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include "tools/addin_listener/test_client.h"

namespace zentpost::addin_listener {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Lines = std::vector<std::string>;

// A listener on a free port that runs on a thread of its own, and its clients.
class RunningListener {
 public:
  explicit RunningListener(const ListenerOptions& options = {}) {
    std::string error;
    EXPECT_TRUE(listener_.Open(options, error)) << error;
    end_ = std::async(std::launch::async, [this] {
      return listener_.Run(
          [this](Connection connection) {
            const std::lock_guard lock(mutex_);
            connections_.push_back(std::move(connection));
            changed_.notify_all();
          },
          error_);
    });
  }
  ~RunningListener() { listener_.Stop(); }

  std::uint16_t port() const { return listener_.port(); }
  void Stop() { listener_.Stop(); }
  bool Listens() const { return TestClient(port()).connected(); }
  void Probe() const { TestClient(port()).Close(); }
  TestClient Send(std::string_view bytes) const {
    TestClient client(port());
    EXPECT_TRUE(client.Send(bytes));
    return client;
  }

  // Waits until Run has returned, as expected, and gives the log.
  Lines Join(RunEnd expected = RunEnd::kCompleted) {
    EXPECT_EQ(end_.get(), expected);
    EXPECT_EQ(error_, "");
    return Log();
  }

  // Waits until `count` connections have ended.
  void Await(std::size_t count) {
    std::unique_lock lock(mutex_);
    ASSERT_TRUE(changed_.wait_for(lock, kLongEnough, [&] { return connections_.size() >= count; }));
  }

  // What has come so far, as "NUMBER END WIRE".
  Lines Log() {
    static const char* const kEnds[] = {"probe",   "delivered",  "broken",
                                        "spoiled", "unaccepted", "dropped"};
    const std::lock_guard lock(mutex_);
    Lines result;
    for (const Connection& connection : connections_) {
      result.push_back(std::to_string(connection.number) + " " +
                       kEnds[static_cast<int>(connection.end)] + " " + connection.wire);
    }
    return result;
  }

 private:
  Listener listener_;
  std::string error_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Connection> connections_;
  std::future<RunEnd> end_;  // the last: what it waits for uses the others
};

TEST(Listener, DeliveryIsCompleteOnlyWhenItsSenderCloses) {
  RunningListener listener;
  TestClient client = listener.Send("first");
  // A second connection that comes and goes shows that the first has not been taken for complete.
  listener.Probe();
  listener.Await(1);
  EXPECT_EQ(listener.Log(), Lines{"2 probe "});
  EXPECT_TRUE(client.Send(" second"));
  client.Close();
  EXPECT_EQ(listener.Join(), (Lines{"2 probe ", "1 delivered first second"}));
  EXPECT_FALSE(listener.Listens());
}

TEST(Listener, ConnectionThatIsResetBeforeItsFirstByteIsAProbe) {
  RunningListener listener;
  TestClient(listener.port()).CloseWithReset();
  listener.Send("x").Close();
  const Lines log = listener.Join();
  // Some systems forget a connection that is reset before it is accepted.
  EXPECT_TRUE(log == (Lines{"1 probe ", "2 delivered x"}) || log == Lines{"1 delivered x"})
      << ::testing::PrintToString(log);
}

TEST(Listener, StopCountsBeforeTheRunAndWithinTheSink) {
  for (const bool at_once : {true, false}) {
    Listener listener;
    std::string error;
    ASSERT_TRUE(listener.Open({.count = 0}, error)) << error;
    TestClient(listener.port()).Close();
    if (at_once) {
      listener.Stop();
    }
    const auto sink = [&](const Connection&) {
      EXPECT_FALSE(at_once);
      listener.Stop();
    };
    EXPECT_EQ(listener.Run(sink, error), RunEnd::kStopped);
  }
}

TEST(Listener, ConnectionsThatAreOpenAtTheEndAreDroppedWithAReset) {
  RunningListener listener;
  TestClient open = listener.Send("begun");
  listener.Probe();
  listener.Await(1);
  listener.Send("whole").Close();
  EXPECT_EQ(listener.Join(), (Lines{"2 probe ", "3 delivered whole", "1 dropped begun"}));
  EXPECT_TRUE(open.AwaitReset());
}

TEST(Listener, PortIsFreeAgainAfterDeliveries) {
  std::uint16_t port = 0;
  for (int round = 0; round < 3; ++round) {
    RunningListener listener({.port = port});
    port = listener.port();
    listener.Send("x").Close();
    listener.Join();
  }
}

TEST(Listener, NeverReadLeavesTheSenderWaitingUntilItGivesUpOrTheListenerIsStopped) {
  // Where the sender closes in order, the end of the connection cannot be sent as long as the bytes
  // before it are not taken.
  for (void (TestClient::*const give_up)() : {&TestClient::Close, &TestClient::CloseWithReset}) {
    RunningListener listener({.misbehaviour = Misbehaviour::kNeverRead});
    listener.Probe();
    TestClient client(listener.port());
    constexpr std::size_t kMost = std::size_t{64} << 20;
    EXPECT_LT(client.SendUntilStuck(kMost), kMost);
    EXPECT_EQ(listener.Log(), Lines{"1 probe "});
    (client.*give_up)();
    EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 spoiled "}));
  }
  RunningListener listener({.misbehaviour = Misbehaviour::kNeverRead});
  TestClient client = listener.Send("some");
  listener.Probe();
  listener.Await(1);
  listener.Stop();
  EXPECT_EQ(listener.Join(RunEnd::kStopped), (Lines{"2 probe ", "1 dropped "}));
  EXPECT_TRUE(client.AwaitReset());
}

TEST(Listener, SlowTakesOneByteAnInterval) {
  RunningListener listener(
      {.misbehaviour = Misbehaviour::kSlow, .slow_interval = milliseconds(10)});
  const Clock::time_point begin = Clock::now();
  listener.Send("0123456789").Close();
  EXPECT_EQ(listener.Join(), Lines{"1 delivered 0123456789"});
  EXPECT_GE(Clock::now() - begin, 10 * milliseconds(10));
}

TEST(Listener, SlowConnectionDoesNotHoldUpAnother) {
  RunningListener listener({.count = 0,
                            .misbehaviour = Misbehaviour::kSlow,
                            .connection = 1,
                            .slow_interval = std::chrono::hours(1)});
  const TestClient slow = listener.Send("two");
  listener.Send("other").Close();
  listener.Await(1);
  listener.Stop();
  EXPECT_EQ(listener.Join(RunEnd::kStopped), (Lines{"2 delivered other", "1 dropped t"}));
}

TEST(Listener, ResetHitsTheFirstConnectionThatBringsBytes) {
  RunningListener listener({.misbehaviour = Misbehaviour::kReset});
  listener.Probe();
  EXPECT_TRUE(listener.Send("payload").AwaitReset());
  EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 spoiled "}));
}

TEST(Listener, ResetOfAGivenConnectionWaitsForNoByte) {
  RunningListener listener({.count = 2, .misbehaviour = Misbehaviour::kReset, .connection = 2});
  TestClient first = listener.Send("first");
  EXPECT_TRUE(TestClient(listener.port()).AwaitReset());
  first.Close();
  EXPECT_EQ(listener.Join(), (Lines{"2 spoiled ", "1 delivered first"}));
}

TEST(Listener, StopAfterProbeRefusesWhatFollowsTheProbe) {
  // More than once, for the second connection comes as fast as it can.
  for (int round = 0; round < 3; ++round) {
    RunningListener listener({.misbehaviour = Misbehaviour::kStopAfterProbe});
    listener.Probe();
    EXPECT_FALSE(listener.Listens());
    EXPECT_EQ(listener.Join(), Lines{"1 unaccepted "});
  }
  RunningListener open(
      {.timeout = milliseconds(100), .misbehaviour = Misbehaviour::kStopAfterProbe});
  const TestClient client(open.port());
  EXPECT_EQ(open.Join(RunEnd::kTimedOut), Lines{}) << "it listens until the first one is closed";
}

TEST(Listener, StopAfterProbeCanServeConnectionsBefore) {
  RunningListener listener(
      {.count = 0, .misbehaviour = Misbehaviour::kStopAfterProbe, .connection = 3});
  listener.Probe();
  listener.Await(1);
  listener.Send("x").Close();
  listener.Await(2);
  listener.Probe();
  EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 delivered x", "3 unaccepted "}));
  EXPECT_FALSE(listener.Listens());
}

TEST(Listener, PayloadBeyondTheLimitIsBroken) {
  RunningListener listener;
  TestClient client(listener.port());
  const std::string block(1 << 20, 'x');
  std::size_t sent = 0;
  while (sent <= 2 * kMaxPayload && client.Send(block)) {
    sent += block.size();
  }
  EXPECT_LT(sent, 2 * kMaxPayload);
  const Lines log = listener.Join();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_TRUE(log[0].starts_with("1 broken x"));
  EXPECT_GT(log[0].size(), kMaxPayload);
}

}  // namespace
}  // namespace zentpost::addin_listener
