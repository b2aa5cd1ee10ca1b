// Where this run finds the programs under test and puts its files, as the command line says.
#pragma once

#include <filesystem>

namespace zentpost::e2e {

struct Settings {
  std::filesystem::path tool;         // the executable under test
  std::filesystem::path log_writer;   // the program that only logs, of log_writer.cpp
  std::filesystem::path sandbox;      // tools/sandbox_mapi, with its library beside it
  std::filesystem::path work_folder;  // each test has a folder of its own in here
  std::filesystem::path samples;      // what the tool wrote, kept for the checks that follow
};

// Absolute paths; the same for the whole run.
[[nodiscard]] const Settings& TheSettings();

}  // namespace zentpost::e2e
