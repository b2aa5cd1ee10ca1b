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

  // Waits until Run has returned, as expected, and gives the log.
  std::vector<std::string> Join(RunEnd expected = RunEnd::kCompleted) {
    thread_.join();
    EXPECT_EQ(error_, "");
    EXPECT_EQ(end_, expected);
    return Log();
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

void Deliver(std::uint16_t port, std::string_view bytes) {
  TestClient client(port);
  EXPECT_TRUE(client.Send(bytes));
  client.Close();
}

TEST(Listener, ProbeAndDeliveryAreToldApartAndNothingListensAfterThem) {
  RunningListener listener({});
  Probe(listener.port());
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("pay"));
  EXPECT_TRUE(client.Send("load"));
  client.Close();
  EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 delivered payload"}));
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
  EXPECT_EQ(listener.Join(), (Lines{"2 probe ", "1 delivered first second"}));
}

TEST(Listener, ConnectionThatIsResetBeforeItsFirstByteIsAProbe) {
  RunningListener listener({});
  TestClient(listener.port()).CloseWithReset();
  Deliver(listener.port(), "x");
  const Lines log = listener.Join();
  // Some systems forget a connection that is reset before it is accepted.
  EXPECT_TRUE(log == (Lines{"1 probe ", "2 delivered x"}) || log == Lines{"1 delivered x"})
      << ::testing::PrintToString(log);
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
  Deliver(listener.port(), "whole");
  EXPECT_EQ(listener.Join(), (Lines{"2 probe ", "3 delivered whole", "1 dropped begun"}));
  EXPECT_TRUE(open.AwaitReset());
}

TEST(Listener, TimeoutEndsTheRun) {
  ListenerOptions options;
  options.timeout = milliseconds(50);
  const Clock::time_point begin = Clock::now();
  RunningListener listener(options);
  TestClient silent(listener.port());
  EXPECT_EQ(listener.Join(RunEnd::kTimedOut), Lines{"1 dropped "});
  EXPECT_GE(Clock::now() - begin, milliseconds(50));
}

TEST(Listener, PortIsFreeAgainAfterDeliveries) {
  std::uint16_t port = 0;
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    RunningListener listener({.port = port});
    port = listener.port();
    Probe(port);
    Deliver(port, "x");
    listener.Join();
  }
}

TEST(Listener, NeverReadLeavesTheSenderWaitingUntilItGivesUp) {
  // Where it closes in order, the end of the connection cannot be sent as long as the bytes before
  // it are not taken.
  for (void (TestClient::*const give_up)() : {&TestClient::Close, &TestClient::CloseWithReset}) {
    RunningListener listener({.misbehaviour = Misbehaviour::kNeverRead});
    Probe(listener.port());
    TestClient client(listener.port());
    constexpr std::size_t kMost = std::size_t{64} << 20;
    EXPECT_LT(client.SendUntilStuck(kMost), kMost);
    EXPECT_EQ(listener.Log(), Lines{"1 probe "});
    (client.*give_up)();
    EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 spoiled "}));
  }
}

TEST(Listener, NeverReadIsEndedByStop) {
  RunningListener listener({.misbehaviour = Misbehaviour::kNeverRead});
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("some"));
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  listener.Stop();
  EXPECT_EQ(listener.Join(RunEnd::kStopped), (Lines{"2 probe ", "1 dropped "}));
  EXPECT_TRUE(client.AwaitReset());
}

TEST(Listener, SlowTakesOneByteAnInterval) {
  RunningListener listener(
      {.misbehaviour = Misbehaviour::kSlow, .slow_interval = milliseconds(10)});
  const Clock::time_point begin = Clock::now();
  Deliver(listener.port(), "0123456789");
  EXPECT_EQ(listener.Join(), Lines{"1 delivered 0123456789"});
  EXPECT_GE(Clock::now() - begin, 10 * milliseconds(10));
}

TEST(Listener, SlowConnectionDoesNotHoldUpAnother) {
  RunningListener listener({.count = 0,
                            .misbehaviour = Misbehaviour::kSlow,
                            .connection = 1,
                            .slow_interval = std::chrono::hours(1)});
  TestClient slow(listener.port());
  EXPECT_TRUE(slow.Send("two"));
  Deliver(listener.port(), "other");
  ASSERT_TRUE(listener.Await(1));
  listener.Stop();
  EXPECT_EQ(listener.Join(RunEnd::kStopped), (Lines{"2 delivered other", "1 dropped t"}));
}

TEST(Listener, ResetHitsTheFirstConnectionThatBringsBytes) {
  RunningListener listener({.misbehaviour = Misbehaviour::kReset});
  Probe(listener.port());
  TestClient client(listener.port());
  EXPECT_TRUE(client.Send("payload"));
  EXPECT_TRUE(client.AwaitReset());
  EXPECT_EQ(listener.Join(), (Lines{"1 probe ", "2 spoiled "}));
}

TEST(Listener, ResetOfAGivenConnectionWaitsForNoByte) {
  RunningListener listener({.count = 2, .misbehaviour = Misbehaviour::kReset, .connection = 2});
  TestClient first(listener.port());
  EXPECT_TRUE(first.Send("first"));
  TestClient second(listener.port());
  EXPECT_TRUE(second.AwaitReset());
  first.Close();
  EXPECT_EQ(listener.Join(), (Lines{"2 spoiled ", "1 delivered first"}));
}

TEST(Listener, StopAfterProbeRefusesTheConnectionThatFollowsTheProbe) {
  // More than once, for the second connection comes as fast as it can.
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    RunningListener listener({.misbehaviour = Misbehaviour::kStopAfterProbe});
    Probe(listener.port());
    EXPECT_FALSE(CanConnect(listener.port()));
    EXPECT_EQ(listener.Join(), Lines{"1 unaccepted "});
  }
}

TEST(Listener, StopAfterProbeListensUntilTheFirstConnectionIsClosed) {
  RunningListener listener(
      {.timeout = milliseconds(100), .misbehaviour = Misbehaviour::kStopAfterProbe});
  TestClient client(listener.port());
  EXPECT_EQ(listener.Join(RunEnd::kTimedOut), Lines{});
}

TEST(Listener, StopAfterProbeCanServeConnectionsBefore) {
  RunningListener listener(
      {.count = 0, .misbehaviour = Misbehaviour::kStopAfterProbe, .connection = 3});
  Probe(listener.port());
  ASSERT_TRUE(listener.Await(1));
  Deliver(listener.port(), "x");
  ASSERT_TRUE(listener.Await(2));
  Probe(listener.port());
  listener.Join();
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
  const Lines log = listener.Join();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_TRUE(log[0].starts_with("1 broken x"));
  EXPECT_GT(log[0].size(), kMaxPayload);
}

}  // namespace
}  // namespace zentpost::addin_listener
