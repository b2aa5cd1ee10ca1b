#include "platform/memory.h"

#include <windows.h>

namespace platform {

void HeapBlockTraits::Close(RawBlock block) noexcept {
  HeapFree(GetProcessHeap(), 0, reinterpret_cast<void*>(static_cast<std::uintptr_t>(block)));
}

Status AllocateBlock(std::size_t size, HeapBlock& block) {
  // HeapAlloc sets no last error.
  void* const memory = HeapAlloc(GetProcessHeap(), 0, size);
  block.Reset(RawBlock{reinterpret_cast<std::uintptr_t>(memory)});
  return memory != nullptr ? kSuccess : kNotEnoughMemory;
}

}  // namespace platform
