#include "platform/memory.h"

#include <algorithm>
#include <cstdlib>

namespace platform {
namespace {

// 1 TiB, the most that AddressSanitizer's allocator lets a program ask for without ending it.
constexpr std::size_t kLargestBlock = std::size_t{1} << 40;

}  // namespace

void HeapBlockTraits::Close(RawBlock block) noexcept {
  std::free(reinterpret_cast<void*>(static_cast<std::uintptr_t>(block)));
}

Status AllocateBlock(std::size_t size, HeapBlock& block) {
  block.Reset();
  if (size > kLargestBlock) {
    return kNotEnoughMemory;
  }
  // malloc may answer 0 bytes with a null pointer.
  void* const memory = std::malloc(std::max(size, std::size_t{1}));
  block.Reset(RawBlock{reinterpret_cast<std::uintptr_t>(memory)});
  return memory != nullptr ? kSuccess : kNotEnoughMemory;
}

}  // namespace platform
