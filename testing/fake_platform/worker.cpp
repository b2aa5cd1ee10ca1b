#include "platform/worker.h"

#include <system_error>
#include <utility>

#include "testing/fake_platform/state.h"

namespace platform {
namespace {

void JoinIfRunning(std::thread worker) {
  if (worker.joinable()) {
    worker.join();
  }
}

}  // namespace

void WorkerTraits::Close(RawWorker worker) noexcept {
  std::thread thread;
  {
    fake::LockedPlatform locked;
    auto node = locked->workers.extract(static_cast<std::uintptr_t>(worker));
    if (!node.empty()) {
      thread = std::move(node.mapped());
    }
  }
  // Outside the lock: the worker's own calls want it.
  JoinIfRunning(std::move(thread));
}

Status StartWorker(WorkerProcedure procedure, void* parameter, Worker& worker) {
  worker.Reset();
  fake::LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("StartWorker")) {
    return fault;
  }
  std::thread thread;
  try {
    thread = std::thread([procedure, parameter]() noexcept { procedure(parameter); });
  } catch (const std::system_error&) {
    return kNotEnoughMemory;
  }
  const std::uintptr_t handle = locked->NewHandle();
  locked->workers[handle] = std::move(thread);
  worker.Reset(RawWorker{handle});
  return kSuccess;
}

Status WaitForWorker(const Worker& worker) {
  std::thread thread;
  Status status = kSuccess;
  {
    fake::LockedPlatform locked;
    status = locked.RecordFallible("WaitForWorker");
    const auto found = locked->workers.find(static_cast<std::uintptr_t>(worker.Get()));
    if (found != locked->workers.end()) {
      // The owner keeps its number; later waits find a thread that has ended.
      thread = std::move(found->second);
    } else if (status == kSuccess) {
      status = kInvalidHandle;
    }
  }
  JoinIfRunning(std::move(thread));
  return status;
}

}  // namespace platform
