#include "platform/memory_failure.h"
#include "platform/rehearsal/state.h"
#include "platform/system.h"

namespace platform {

bool InitializeCommonControls(std::uint32_t /*classes*/) {
  return true;
}

void WriteDebugOutput(const char16_t* text) {
  // A text for which there is no memory is dropped.
  static_cast<void>(UnlessMemoryRunsOut([&] {
    if (const auto& take = rehearsal::TheState().answers.debug_output) {
      take(text);
    }
    return kSuccess;
  }));
}

}  // namespace platform
