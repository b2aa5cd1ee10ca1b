// What the probe of the start-up and its test agree on.
#pragma once

#include <string>

namespace zentpost::entry_point {

// Where nothing was thrown.
inline constexpr int kExitCode = 42;

inline constexpr char kSettingsFile[] = "settings.txt";

// What the start-up has set for the whole process, as text; nothing where the system has no such
// settings. Before the start-up the probe has set something else.
[[nodiscard]] std::string ProcessSettings();

}  // namespace zentpost::entry_point
