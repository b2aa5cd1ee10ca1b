#include <windows.h>
// In a block of its own, behind windows.h, whose types it uses.
#include <commctrl.h>

#include "platform/system.h"
#include "platform/windows/wide.h"

namespace platform {

bool InitializeCommonControls(std::uint32_t classes) {
  const INITCOMMONCONTROLSEX wanted = {sizeof(INITCOMMONCONTROLSEX), classes};
  return InitCommonControlsEx(&wanted) != FALSE;
}

void WriteDebugOutput(const char16_t* text) {
  OutputDebugStringW(ToSystem(text));
}

}  // namespace platform
