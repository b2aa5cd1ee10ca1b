// A worker thread. Nothing here throws: what needs memory gives kNotEnoughMemory when it runs out.
#pragma once

#include <cstdint>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

using WorkerProcedure = std::uint32_t (*)(void* parameter);

enum class RawWorker : std::uintptr_t {};
struct WorkerTraits {
  using Value = RawWorker;
  static constexpr RawWorker kNone{};
  static void Close(RawWorker worker) noexcept;
};

// Owns a started thread. The thread's handle stays valid until the owner lets go of it, and letting
// go waits for the thread's end: no thread outlives its owner.
using Worker = UniqueHandle<WorkerTraits>;

// Runs `procedure(parameter)` on a new thread of normal priority with the default stack. On failure
// `worker` owns nothing and nothing runs; memory that runs out is kNotEnoughMemory. An exception
// that leaves the procedure ends the process (std::terminate).
[[nodiscard]] Status StartWorker(WorkerProcedure procedure, void* parameter, Worker& worker);

// Waits without limit until the thread has ended.
Status WaitForWorker(const Worker& worker);

}  // namespace platform
