#include "platform/worker.h"

#include <atomic>
#include <thread>
#include <utility>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

// A worker that cannot end before it is let go.
struct Held {
  std::atomic<bool> may_go = false;
  std::atomic<bool> has_ended = false;
  std::thread::id thread;

  void Go() {
    may_go = true;
    may_go.notify_all();
  }

  Worker Start() {
    Worker worker;
    Start(worker);
    return worker;
  }
  void Start(Worker& worker) {
    const auto procedure = [](void* parameter) -> std::uint32_t {
      auto* const held = static_cast<Held*>(parameter);
      held->may_go.wait(false);
      held->thread = std::this_thread::get_id();
      held->has_ended = true;
      held->has_ended.notify_all();
      return 7;
    };
    EXPECT_EQ(StartWorker(procedure, this, worker), kSuccess);
    EXPECT_TRUE(worker);
  }
};

class WorkerContract : public ContractTest {};

TEST_F(WorkerContract, RunsBesideItsOwnerAndCanBeAwaited) {
  Held held;
  const Worker worker = held.Start();
  held.Go();
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_TRUE(held.has_ended);
  EXPECT_NE(held.thread, std::this_thread::get_id());
}

TEST_F(WorkerContract, CanBeAwaitedAfterItsEndAndAgain) {
  Held held;
  const Worker worker = held.Start();
  held.Go();
  held.has_ended.wait(false);
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
}

TEST_F(WorkerContract, LettingGoWaitsForTheEnd) {
  Held ended;
  {
    const Worker worker = ended.Start();
    ended.Go();
  }
  EXPECT_TRUE(ended.has_ended);

  Held replaced;
  Held other;
  Worker worker = replaced.Start();
  replaced.Go();
  worker = other.Start();
  EXPECT_TRUE(replaced.has_ended);
  EXPECT_FALSE(other.has_ended);

  Held last;
  other.Go();
  last.Go();
  last.Start(worker);
  EXPECT_TRUE(other.has_ended);
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_TRUE(last.has_ended);
}

TEST_F(WorkerContract, AnEmptyOwnerCannotBeAwaited) {
  EXPECT_EQ(WaitForWorker(Worker()), kInvalidHandle);
}

}  // namespace
}  // namespace platform::contract
