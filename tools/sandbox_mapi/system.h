// What this tool needs of the operating system. All text is UTF-8.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace zentpost::fake_mapi::sandbox {

// A variable of the environment; nothing when it is missing or empty.
[[nodiscard]] std::optional<std::string> EnvironmentVariable(const char* name);

[[nodiscard]] std::uint64_t ProcessId();

// The file that holds this code: the library, or the program that it is linked into.
[[nodiscard]] std::filesystem::path ModulePath();

// The program that runs in this process.
[[nodiscard]] std::filesystem::path ProgramPath();

}  // namespace zentpost::fake_mapi::sandbox
