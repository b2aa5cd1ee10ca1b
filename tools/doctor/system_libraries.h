// The system's own libraries as the rehearsed tool sees them: with functions that have no effect.
#pragma once

#include <optional>
#include <string>

#include "platform/rehearsal/rehearsal.h"

namespace zentpost::doctor {

// kernel32.dll and msi.dll of the system directory; nothing for any other path. Throws
// std::bad_alloc when memory runs out.
[[nodiscard]] std::optional<platform::rehearsal::Library> SystemLibrary(const std::u16string& path);

// FGetComponentPath of the system's MAPI stub, which would also install and repair. Finds nothing.
[[nodiscard]] platform::Procedure UnknownComponentPath();

// Whose paths were asked for since the last call, are or may be registered with the installer, and
// are not known.
struct UnknownComponents {
  bool is_outlook = false;      // asked for by category
  bool is_mail_client = false;  // asked for through the stub
};
[[nodiscard]] UnknownComponents TakeUnknownComponents();

}  // namespace zentpost::doctor
