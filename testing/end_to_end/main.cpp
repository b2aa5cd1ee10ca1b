// Starts tests that drive programs: they are told where these are, and the machine is theirs for as
// long as they run.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "testing/end_to_end/machine.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

class MachineEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    const std::string refusal = TakeMachineOver();
    is_ours_ = refusal.empty();
    if (!is_ours_) {
      GTEST_SKIP() << refusal;
    }
  }
  void TearDown() override {
    if (is_ours_) {
      GiveMachineBack();
    }
  }

 private:
  bool is_ours_ = false;
};

}  // namespace
}  // namespace zentpost::e2e

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!zentpost::e2e::ReadSettings(argc, argv)) {
    return 2;
  }
  if (const std::filesystem::path samples = zentpost::e2e::Setting("samples"); !samples.empty()) {
    std::filesystem::remove_all(samples);
    std::filesystem::create_directories(samples);
  }
  testing::AddGlobalTestEnvironment(new zentpost::e2e::MachineEnvironment);
  return RUN_ALL_TESTS();
}
