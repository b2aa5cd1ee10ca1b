#include "platform/worker.h"

#include <windows.h>

#include <memory>
#include <new>

namespace platform {
namespace {

struct Start {
  WorkerProcedure procedure;
  void* parameter;
};

// The system's calling convention for threads differs from ours on x86. An exception would go on
// into the system's own frames, where it is not known what becomes of it.
DWORD WINAPI Run(void* start) noexcept {
  const std::unique_ptr<Start> owned(static_cast<Start*>(start));
  return owned->procedure(owned->parameter);
}

HANDLE Handle(RawWorker worker) {
  return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(worker));
}

}  // namespace

void WorkerTraits::Close(RawWorker worker) noexcept {
  WaitForSingleObject(Handle(worker), INFINITE);
  CloseHandle(Handle(worker));
}

Status StartWorker(WorkerProcedure procedure, void* parameter, Worker& worker) {
  worker.Reset();
  std::unique_ptr<Start> start(new (std::nothrow) Start{procedure, parameter});
  if (!start) {
    return kNotEnoughMemory;
  }
  HANDLE thread = CreateThread(nullptr, 0, Run, start.get(), 0, nullptr);
  if (thread == nullptr) {
    return GetLastError();
  }
  static_cast<void>(start.release());  // The thread owns it.
  worker.Reset(RawWorker{reinterpret_cast<std::uintptr_t>(thread)});
  return kSuccess;
}

Status WaitForWorker(const Worker& worker) {
  return WaitForSingleObject(Handle(worker.Get()), INFINITE) == WAIT_OBJECT_0 ? kSuccess
                                                                              : GetLastError();
}

}  // namespace platform
