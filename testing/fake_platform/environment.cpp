#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/codec/copy_if_it_fits.h"
#include "platform/codec/expand_variables.h"
#include "platform/modules.h"
#include "testing/fake_platform/state.h"

namespace platform {

using fake::LockedPlatform;

Status SystemDirectory(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = 0;
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("SystemDirectory", capacity)) {
    return fault;
  }
  length = software::CopyIfItFits(locked->system_directory, buffer, capacity);
  return kSuccess;
}

Status ExpandEnvironment(const char16_t* source, char16_t* buffer, std::uint32_t capacity,
                         std::uint32_t& length) {
  length = 0;
  LockedPlatform locked;
  if (const Status fault = locked.RecordFallible("ExpandEnvironment", source, capacity)) {
    return fault;
  }
  const auto value_of = [&](std::u16string_view name) -> std::optional<std::u16string> {
    const auto variable = locked->environment.find(name);
    return variable == locked->environment.end() ? std::nullopt : std::optional(variable->second);
  };
  length = software::CopyIfItFits(software::ExpandVariables(source, value_of), buffer, capacity);
  if (length < capacity) {
    ++length;  // this one counts the terminator in either case
    // Nobody promises what stands behind it, so it is never as it was.
    std::fill(buffer + length, buffer + capacity, u'?');
  }
  return kSuccess;
}

}  // namespace platform
