// Makes the library the machine's default mail client, and undoes it. Where a mail client is looked
// for: HKEY_LOCAL_MACHINE\Software\Clients\Mail names the default one, and a key of that name below
// it tells where its library is.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace zentpost::fake_mapi::sandbox {

inline constexpr char kClientName[] = "Sandbox MAPI";

// A path is read into 260 bytes: so many characters of 16 bits, and the terminator.
inline constexpr std::size_t kLongestLibraryPath = 129;

// The value that holds the library's path. A 64-bit and a 32-bit library can be registered side by
// side: who cannot load the one goes on to the other.
inline constexpr std::string_view kLibraryValue = sizeof(void*) == 8 ? "DllPathEx" : "DllPath";

// Registers the library at `library` with `folder` as its folder, both absolute. What was the
// default client before is kept for Unregister, also when this is done again. False: `error` says
// why.
[[nodiscard]] bool Register(const std::filesystem::path& library,
                            const std::filesystem::path& folder, std::string& error);

// Puts back what was the default client, unless another one has become it since, and takes away all
// that Register has written. `was_registered` is false when there was nothing to undo.
[[nodiscard]] bool Unregister(bool& was_registered, std::string& error);

// Whether the library can be registered at all; `error` says why not.
[[nodiscard]] bool CanBeRegistered(const std::filesystem::path& library, std::string& error);

}  // namespace zentpost::fake_mapi::sandbox
