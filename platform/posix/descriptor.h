// The owner of a file descriptor.
#pragma once

#include <unistd.h>

#include "platform/unique_handle.h"

namespace platform {

struct DescriptorTraits {
  using Value = int;
  static constexpr int kNone = -1;
  static void Close(int descriptor) noexcept { close(descriptor); }
};
using Descriptor = UniqueHandle<DescriptorTraits>;

}  // namespace platform
