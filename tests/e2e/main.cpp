// Starts the end-to-end tests: they are told where the programs under test are, and the machine is
// theirs for as long as they run.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "testing/end_to_end/machine.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

Settings g_settings;

class MachineEnvironment : public testing::Environment {
 public:
  void SetUp() override { TakeMachineOver(); }
  void TearDown() override { GiveMachineBack(); }
};

bool ReadArguments(int argc, char** argv) {
  const struct {
    std::string_view name;
    std::filesystem::path& path;
  } options[] = {{"--tool=", g_settings.tool},
                 {"--log-writer=", g_settings.log_writer},
                 {"--sandbox=", g_settings.sandbox},
                 {"--work-folder=", g_settings.work_folder},
                 {"--samples=", g_settings.samples}};
  for (int i = 1; i < argc; ++i) {
    for (const auto& option : options) {
      const std::string_view argument = argv[i];
      if (argument.starts_with(option.name)) {
        option.path = std::filesystem::absolute(argument.substr(option.name.size()))
                          .lexically_normal()
                          .make_preferred();
      }
    }
  }
  for (const auto& option : options) {
    if (option.path.empty()) {
      std::fprintf(stderr,
                   "usage: e2e_tests --tool=PROGRAM --log-writer=PROGRAM --sandbox=PROGRAM "
                   "--work-folder=FOLDER --samples=FOLDER\n");
      return false;
    }
  }
  return true;
}

}  // namespace

const Settings& TheSettings() {
  return g_settings;
}

}  // namespace zentpost::e2e

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!zentpost::e2e::ReadArguments(argc, argv)) {
    return 2;
  }
  std::filesystem::remove_all(zentpost::e2e::TheSettings().samples);
  std::filesystem::create_directories(zentpost::e2e::TheSettings().samples);
  testing::AddGlobalTestEnvironment(new zentpost::e2e::MachineEnvironment);
  return RUN_ALL_TESTS();
}
