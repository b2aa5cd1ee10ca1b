// Files of the machine, as bytes, and the folders in which tests work.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zentpost::e2e {

// Creates or replaces the file.
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

// Absent: no such file, or one that cannot be read.
[[nodiscard]] std::optional<std::string> ReadBytes(const std::filesystem::path& path);

// An empty folder for one test, with a short name so that paths in it stay short.
[[nodiscard]] std::filesystem::path MakeTestFolder();

}  // namespace zentpost::e2e
