// What the search needs of the system's own libraries: those of the system directory, and two of
// their functions, bound when they are first needed and kept for the process.
//
// May be used from several threads; none waits for another.
#pragma once

#include <cstdint>
#include <string>

#include "platform/call.h"
#include "platform/modules.h"

namespace zentpost {

// The system directory without a separator at its end, asked for afresh; empty on failure. Throws
// std::bad_alloc when memory runs out.
std::u16string GetSystemDirectory();

// Loads the library `name` from the system directory. The directory is asked for once in a process;
// what that gave is kept, also when it was nothing; of threads that ask at the same time the first
// answer stays. Owns nothing on failure and for an empty name. Throws std::bad_alloc when memory
// runs out.
platform::Module LoadFromSystemDir(const char16_t* name);

// MsiProvideQualifiedComponentW of the Windows Installer: tells the path of the component that is
// registered under `category` and `qualifier`. `path` (null: only the size is asked for) has space
// for `count` characters, terminator included; `count` becomes the path's length without it. The
// install mode that is passed on is always 0 (INSTALLMODE_DEFAULT). Gives the installer's status (0
// is success), or 0x80004005 (E_FAIL) when the function cannot be had. Before the first question
// the installer is told to show nothing (MsiSetInternalUI with INSTALLUILEVEL_NONE and no window),
// where it has that function. Throws as LoadFromSystemDir.
std::uint32_t ProvideQualifiedComponent(const char16_t* category, const char16_t* qualifier,
                                        std::uint32_t install_mode, char16_t* path,
                                        std::uint32_t* count);

// GetModuleHandleExW of the system; null when it cannot be had. Throws as LoadFromSystemDir.
using ModuleHandleExFunction = std::int32_t(PLATFORM_STDCALL*)(std::uint32_t flags,
                                                               const char16_t* name,
                                                               platform::RawModule* module);
ModuleHandleExFunction BindModuleHandleEx();

}  // namespace zentpost
