// Starts the end-to-end tests of the search for the MAPI library: they are told where the programs
// are, and the machine's mail clients are theirs for as long as they run.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "testing/end_to_end/settings.h"
#include "tests/e2e_mapiload/machine.h"

namespace zentpost {
namespace {

e2e::Settings g_settings;
e2e_mapiload::Programs g_programs;

class MachineEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    is_ours_ = e2e_mapiload::TakeMachineOver();
    if (!is_ours_) {
      GTEST_SKIP() << "this user may not register mail clients";
    }
  }
  void TearDown() override {
    if (is_ours_) {
      e2e_mapiload::GiveMachineBack();
    }
  }

 private:
  bool is_ours_ = false;
};

bool ReadArguments(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: mapiload_e2e MAPI_SEARCH FOLDER_OF_STAND_INS\n");
    return false;
  }
  g_programs.search = std::filesystem::absolute(argv[1]).lexically_normal().make_preferred();
  g_programs.stand_ins = std::filesystem::absolute(argv[2]).lexically_normal().make_preferred();
  return true;
}

// The registry's texts are only read up to 129 characters: a short place for what they name.
void MakeWorkFolder() {
  for (int number = 0; g_settings.work_folder.empty(); ++number) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("zentpost-mapi-" + std::to_string(number));
    if (std::filesystem::create_directory(folder)) {
      g_settings.work_folder = folder;
    }
  }
}

}  // namespace

const e2e::Settings& e2e::TheSettings() {
  return g_settings;
}

const e2e_mapiload::Programs& e2e_mapiload::ThePrograms() {
  return g_programs;
}

}  // namespace zentpost

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!zentpost::ReadArguments(argc, argv)) {
    return 2;
  }
  zentpost::MakeWorkFolder();
  testing::AddGlobalTestEnvironment(new zentpost::MachineEnvironment);
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(zentpost::e2e::TheSettings().work_folder, ignored);
  return result;
}
