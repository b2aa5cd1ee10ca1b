// Makes single allocations of the code under test fail: its own, the JSON library's and the
// platform layer's blocks. Linking allocation_faults.cpp replaces the executable's operator new and
// delete, from which the JSON library's memory comes, too. Nothing fails outside
// AllocationFaults::Run, on other threads, or in what the fake platform does for itself.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace zentpost::test {

enum class AllocationFaultMode {
  kNone,       // none fails: the run that counts them
  kOnce,       // one fails, later ones work
  kFromThere,  // one fails, and every later one
};

// One run of a sweep: a plan of what fails, and what became of it.
class AllocationFaults {
 public:
  // The allocation at `index`, from 0, fails as `mode` says.
  AllocationFaults(AllocationFaultMode mode, std::size_t index) : mode_(mode), index_(index) {}

  // Calls `act` with its allocations counted and failing as planned. False when a std::bad_alloc
  // came out of it. At most once for each object.
  bool Run(const std::function<void()>& act);

  [[nodiscard]] AllocationFaultMode Mode() const { return mode_; }
  // Which allocation the plan is about.
  [[nodiscard]] std::size_t Index() const { return index_; }
  // The number of allocations of the run, those that failed included.
  [[nodiscard]] std::size_t Count() const { return count_; }
  // Whether an allocation was made to fail.
  [[nodiscard]] bool Taken() const { return taken_; }
  // How many of the blocks that were allocated in the run have not been freed until now.
  [[nodiscard]] std::size_t Live() const;

  // For the allocation functions: decides on one more allocation.
  bool NextFails();

 private:
  AllocationFaultMode mode_;
  std::size_t index_;
  std::size_t count_ = 0;
  bool taken_ = false;
  std::size_t generation_ = 0;
};

// Calls `scenario` once to count the allocations in its run, then twice for each of them: with that
// one failing alone, and with it and every later one failing. The scenario prepares everything
// afresh, calls Run once and checks what has to hold; what it owns is gone when it returns. The
// sweep expects that each fault was met and that no block of the run is left.
//
// Prints and gives the number of runs with a fault. A scenario that allocates nothing is a failure.
std::size_t SweepAllocations(const std::string& name,
                             const std::function<void(AllocationFaults&)>& scenario);

}  // namespace zentpost::test
