// Files of the machine, as bytes, and the folders in which tests work.
#pragma once

#include <filesystem>
#include <string_view>

#include "tools/support/files.h"

namespace zentpost::e2e {

// Creates or replaces the file, or throws.
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

using support::ReadBytes;

// An empty folder for one test, with a short name so that paths in it stay short.
[[nodiscard]] std::filesystem::path MakeTestFolder();

}  // namespace zentpost::e2e
