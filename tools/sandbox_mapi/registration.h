// Makes the library the machine's default mail client, and undoes it. Where a mail client is looked
// for: HKEY_LOCAL_MACHINE\Software\Clients\Mail names the default one, and a key of that name below
// it tells where its library is.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
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
// default client before is kept for Unregister, also when this is done again. Throws
// std::runtime_error.
void Register(const std::filesystem::path& library, const std::filesystem::path& folder);

// Puts back what was the default client, unless another one has become it since, and takes away all
// that Register has written. False: there was nothing to undo. Throws std::runtime_error.
bool Unregister();

// Where it is written: a key of the registry, or the file that stands for it. Throws
// std::runtime_error where there is none.
[[nodiscard]] std::string RegistrationPlace();

// What to tell of a call to the registry that has failed with this code of the system.
[[nodiscard]] std::string RegistryProblem(const std::string& call, long code);

// The folder that was registered; nothing when there is none.
[[nodiscard]] std::optional<std::string> RegisteredFolder();

}  // namespace zentpost::fake_mapi::sandbox
