// Blocks of the process heap whose absence is an ordinary failure, with a number, rather than an
// exception.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

enum class RawBlock : std::uintptr_t {};
struct HeapBlockTraits {
  using Value = RawBlock;
  static constexpr RawBlock kNone{};
  static void Close(RawBlock block) noexcept;
};
using HeapBlock = UniqueHandle<HeapBlockTraits>;

// Takes a block of `size` bytes (0 is allowed and gives a block), aligned for any type, content
// unspecified. On failure `block` owns nothing and the result is kNotEnoughMemory.
[[nodiscard]] Status AllocateBlock(std::size_t size, HeapBlock& block);

// The block's first byte, as whatever type it holds.
template <class T>
T* BlockData(const HeapBlock& block) {
  return reinterpret_cast<T*>(static_cast<std::uintptr_t>(block.Get()));
}

}  // namespace platform
