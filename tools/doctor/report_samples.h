// Reports that a test program has made, kept for the check against their schema.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tools/support/files.h"

namespace zentpost::doctor {

// Keeps it where ZENTPOST_SAMPLES names a folder, from which a former run's are taken first.
inline void KeepReport(const std::string& json) {
  static const std::filesystem::path folder = [] {
    const char* const named = std::getenv("ZENTPOST_SAMPLES");
    std::filesystem::path samples;
    if (named != nullptr) {
      samples = std::filesystem::absolute(named) / "doctor";
      std::filesystem::remove_all(samples);
      std::filesystem::create_directories(samples);
    }
    return samples;
  }();
  static int number = 0;
  if (!folder.empty()) {
    support::WriteBytes(folder / (std::to_string(++number) + ".json"), json);
  }
}

}  // namespace zentpost::doctor
