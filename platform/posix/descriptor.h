// The owner of a file descriptor, and reading from one.
#pragma once

#include <unistd.h>

#include <cstddef>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

struct DescriptorTraits {
  using Value = int;
  static constexpr int kNone = -1;
  static void Close(int descriptor) noexcept { close(descriptor); }
};
using Descriptor = UniqueHandle<DescriptorTraits>;

// Reads on until `capacity` bytes are there or the file ends; `count` is how many there are, also
// when it fails.
[[nodiscard]] Status ReadFrom(int descriptor, void* buffer, std::size_t capacity,
                              std::size_t& count);

}  // namespace platform
