#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "platform/codec/copy_if_it_fits.h"
#include "platform/codec/expand_variables.h"
#include "platform/memory_failure.h"
#include "platform/modules.h"
#include "platform/posix/utf8.h"

namespace platform {

Status SystemDirectory(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
  length = 0;
  return UnlessMemoryRunsOut([&] {
    const char* const configured = std::getenv("ZENTPOST_SYSTEM_DIRECTORY");
    const std::u16string directory =
        FromUtf8(configured != nullptr && *configured != '\0' ? configured : "/usr/lib");
    length = software::CopyIfItFits(directory, buffer, capacity);
    return kSuccess;
  });
}

Status ExpandEnvironment(const char16_t* source, char16_t* buffer, std::uint32_t capacity,
                         std::uint32_t& length) {
  length = 0;
  return UnlessMemoryRunsOut([&] {
    const std::u16string expanded = software::ExpandVariables(
        source, [](std::u16string_view name) -> std::optional<std::u16string> {
          const char* const value = std::getenv(ToUtf8(name).c_str());
          return value == nullptr ? std::nullopt : std::optional(FromUtf8(value));
        });
    length = software::CopyIfItFits(expanded, buffer, capacity);
    if (length < capacity) {
      ++length;  // this one counts the terminator in either case
    }
    return kSuccess;
  });
}

}  // namespace platform
