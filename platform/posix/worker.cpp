#include "platform/worker.h"

#include <pthread.h>

#include <memory>
#include <new>

#include "platform/posix/errno_status.h"

namespace platform {
namespace {

struct Thread {
  WorkerProcedure procedure;
  void* parameter;
  pthread_t thread = {};
  bool joined = false;  // Only the owner's thread looks at this one.
};

// An exception ends the process here, not in the system's own frames.
void* Run(void* start) noexcept {
  const auto* const thread = static_cast<const Thread*>(start);
  thread->procedure(thread->parameter);
  return nullptr;
}

Thread* Get(RawWorker worker) {
  return reinterpret_cast<Thread*>(static_cast<std::uintptr_t>(worker));
}

Status Join(Thread& thread) {
  if (thread.joined) {
    return kSuccess;
  }
  const int error = pthread_join(thread.thread, nullptr);
  thread.joined = error == 0;
  return StatusFromErrno(error);
}

}  // namespace

void WorkerTraits::Close(RawWorker worker) noexcept {
  const std::unique_ptr<Thread> owned(Get(worker));
  static_cast<void>(Join(*owned));
}

Status StartWorker(WorkerProcedure procedure, void* parameter, Worker& worker) {
  worker.Reset();
  std::unique_ptr<Thread> thread(new (std::nothrow) Thread{procedure, parameter});
  if (!thread) {
    return kNotEnoughMemory;
  }
  if (const int error = pthread_create(&thread->thread, nullptr, Run, thread.get()); error != 0) {
    return StatusFromErrno(error);
  }
  worker.Reset(RawWorker{reinterpret_cast<std::uintptr_t>(thread.release())});
  return kSuccess;
}

Status WaitForWorker(const Worker& worker) {
  return worker ? Join(*Get(worker.Get())) : kInvalidHandle;
}

}  // namespace platform
