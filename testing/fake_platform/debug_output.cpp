#include "platform/system.h"
#include "testing/fake_platform/state.h"

namespace platform {

using fake::Hex;
using fake::LockedPlatform;

bool InitializeCommonControls(std::uint32_t classes) {
  LockedPlatform locked;
  return locked.RecordFallible("InitializeCommonControls", Hex{classes}) == kSuccess;
}

void WriteDebugOutput(const char16_t* text) {
  LockedPlatform locked;
  locked.Record("WriteDebugOutput", text);
  if (locked->records) {
    locked->debug_output.emplace_back(text);
  }
}

}  // namespace platform
