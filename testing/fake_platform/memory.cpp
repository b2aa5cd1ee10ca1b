#include "platform/memory.h"

#include <algorithm>
#include <cstdlib>

#include "testing/fake_platform/state.h"

namespace platform {
namespace {

// No block is larger, however much memory the real machine has: a request beyond this is to fail
// in the same way everywhere, also under a checking allocator that ends the process instead.
constexpr std::size_t kLargestBlock = std::size_t{1} << 30;

}  // namespace

void HeapBlockTraits::Close(RawBlock block) noexcept {
  const auto address = static_cast<std::uintptr_t>(block);
  {
    fake::LockedPlatform locked;
    locked->blocks.erase(address);
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the number is the address
  std::free(reinterpret_cast<void*>(address));
}

Status AllocateBlock(std::size_t size, HeapBlock& block) {
  block.Reset();
  const fake::FakePlatform::BlockHook fails = fake::TheFakePlatform().State().block_hook;
  const bool is_refused = fails != nullptr && fails();
  fake::LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("AllocateBlock", size)) {
    return fault;
  }
  // From the C library, so that checking allocators see overruns and leaks of a single block.
  void* const memory =
      is_refused || size > kLargestBlock ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
  if (memory == nullptr) {
    return kNotEnoughMemory;
  }
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  locked->blocks.insert(address);
  block.Reset(RawBlock{address});
  return kSuccess;
}

}  // namespace platform
