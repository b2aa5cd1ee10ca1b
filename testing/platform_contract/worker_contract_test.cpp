#include "platform/worker.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

// Something that one thread waits for and another one lets happen. Waiting for an atomic hangs now
// and then in 32-bit MinGW builds.
class Event {
 public:
  void Happen() {
    const std::lock_guard lock(mutex_);
    happened_ = true;
    changed_.notify_all();
  }
  void Await() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return happened_; });
  }
  bool HasHappened() {
    const std::lock_guard lock(mutex_);
    return happened_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool happened_ = false;
};

// A worker that cannot end before it is let go.
struct Held {
  Event go;
  Event end;
  std::thread::id thread;

  Worker Start() {
    Worker worker;
    Start(worker);
    return worker;
  }
  void Start(Worker& worker) {
    const auto procedure = [](void* parameter) -> std::uint32_t {
      auto* const held = static_cast<Held*>(parameter);
      held->go.Await();
      held->thread = std::this_thread::get_id();
      held->end.Happen();
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
  held.go.Happen();
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_TRUE(held.end.HasHappened());
  EXPECT_NE(held.thread, std::this_thread::get_id());
}

TEST_F(WorkerContract, CanBeAwaitedAfterItsEndAndAgain) {
  Held held;
  const Worker worker = held.Start();
  held.go.Happen();
  held.end.Await();
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
}

TEST_F(WorkerContract, LettingGoWaitsForTheEnd) {
  Held ended;
  {
    const Worker worker = ended.Start();
    ended.go.Happen();
  }
  EXPECT_TRUE(ended.end.HasHappened());

  Held replaced;
  Held other;
  Worker worker = replaced.Start();
  replaced.go.Happen();
  worker = other.Start();
  EXPECT_TRUE(replaced.end.HasHappened());
  EXPECT_FALSE(other.end.HasHappened());

  Held last;
  other.go.Happen();
  last.go.Happen();
  last.Start(worker);
  EXPECT_TRUE(other.end.HasHappened());
  EXPECT_EQ(WaitForWorker(worker), kSuccess);
  EXPECT_TRUE(last.end.HasHappened());
}

TEST_F(WorkerContract, AnEmptyOwnerCannotBeAwaited) {
  EXPECT_EQ(WaitForWorker(Worker()), kInvalidHandle);
}

}  // namespace
}  // namespace platform::contract
