#include "testing/allocation_faults.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>

#include "testing/fake_platform/fake_platform.h"

namespace zentpost::test {
namespace {

// Stands in front of every block and says which run it belongs to; 0: none.
struct alignas(std::max_align_t) BlockHeader {
  std::size_t generation;
};

// The run that is under way on this thread, if any, and the machine's calls that it is in: what
// those allocate is not the code's under test.
thread_local AllocationFaults* current_run = nullptr;
thread_local std::size_t current_generation = 0;
thread_local int machine_depth = 0;

// Only one run's blocks are counted at a time: those of the last generation.
std::atomic<std::size_t> last_generation{0};
std::atomic<std::size_t> live_blocks{0};

void* Allocate(std::size_t size) noexcept {
  const bool is_counted = current_run != nullptr && machine_depth == 0;
  if (is_counted && current_run->NextFails()) {
    return nullptr;
  }
  if (size > PTRDIFF_MAX - sizeof(BlockHeader)) {
    return nullptr;
  }
  auto* header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
  if (header == nullptr) {
    return nullptr;
  }
  header->generation = is_counted ? current_generation : 0;
  if (is_counted) {
    ++live_blocks;
  }
  return header + 1;
}

void Free(void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
  if (header->generation != 0 && header->generation == last_generation) {
    --live_blocks;
  }
  std::free(header);
}

void* AllocateOrThrow(std::size_t size) {
  void* block = Allocate(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

bool BlockFails() {
  return current_run != nullptr && current_run->NextFails();
}

void OnMachineCall(bool begins) {
  machine_depth += begins ? 1 : -1;
}

// While it lives, the machine's own doings and its blocks are known to the allocation functions.
class HooksInPlace {
 public:
  HooksInPlace() {
    platform::fake::TheFakePlatform().SetCallHook(OnMachineCall);
    platform::fake::TheFakePlatform().SetBlockHook(BlockFails);
  }
  HooksInPlace(const HooksInPlace&) = delete;
  HooksInPlace& operator=(const HooksInPlace&) = delete;
  ~HooksInPlace() {
    platform::fake::TheFakePlatform().SetCallHook(nullptr);
    platform::fake::TheFakePlatform().SetBlockHook(nullptr);
  }
};

std::string Describe(AllocationFaultMode mode, std::size_t index) {
  switch (mode) {
    case AllocationFaultMode::kNone:
      return "no allocation fails";
    case AllocationFaultMode::kOnce:
      return "allocation " + std::to_string(index) + " fails";
    case AllocationFaultMode::kFromThere:
      break;
  }
  return "allocation " + std::to_string(index) + " and every later one fails";
}

}  // namespace

bool AllocationFaults::Run(const std::function<void()>& act) {
  generation_ = ++last_generation;
  live_blocks = 0;
  current_generation = generation_;
  current_run = this;
  bool has_ended = true;
  try {
    act();
  } catch (const std::bad_alloc&) {
    has_ended = false;
  }
  current_run = nullptr;
  return has_ended;
}

std::size_t AllocationFaults::Live() const {
  return generation_ == last_generation ? live_blocks.load() : 0;
}

bool AllocationFaults::NextFails() {
  const std::size_t here = count_;
  ++count_;
  const bool fails = (mode_ == AllocationFaultMode::kOnce && here == index_) ||
                     (mode_ == AllocationFaultMode::kFromThere && here >= index_);
  taken_ = taken_ || fails;
  return fails;
}

std::size_t SweepAllocations(const std::string& name,
                             const std::function<void(AllocationFaults&)>& scenario) {
  const HooksInPlace hooks;
  std::size_t runs = 0;
  const auto run = [&](AllocationFaultMode mode, std::size_t index) {
    SCOPED_TRACE(name + ": " + Describe(mode, index));
    AllocationFaults faults(mode, index);
    scenario(faults);
    EXPECT_EQ(faults.Taken(), mode != AllocationFaultMode::kNone) << "allocations differ by run";
    EXPECT_EQ(faults.Live(), 0u) << "blocks left behind";
    return faults.Count();
  };

  const std::size_t allocations = run(AllocationFaultMode::kNone, 0);
  EXPECT_GT(allocations, 0u) << name << " allocates nothing";
  for (std::size_t index = 0; index < allocations; ++index) {
    for (const AllocationFaultMode mode :
         {AllocationFaultMode::kOnce, AllocationFaultMode::kFromThere}) {
      run(mode, index);
      ++runs;
    }
  }
  std::cout << "allocation sweep: " << name << ": " << allocations << " allocations, " << runs
            << " runs with a fault\n";
  return runs;
}

}  // namespace zentpost::test

// The replaced functions. Over-aligned types keep the library's own.
void* operator new(std::size_t size) {
  return zentpost::test::AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return zentpost::test::AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return zentpost::test::Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return zentpost::test::Allocate(size);
}
void operator delete(void* block) noexcept {
  zentpost::test::Free(block);
}
void operator delete[](void* block) noexcept {
  zentpost::test::Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  zentpost::test::Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  zentpost::test::Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  zentpost::test::Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
  zentpost::test::Free(block);
}
