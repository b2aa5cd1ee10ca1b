// The fixture of the tests of a program's start and end.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/process.h"

namespace zentpost::entry_point {

class EntryPoint : public testing::Test {
 protected:
  EntryPoint() : folder_(e2e::MakeTestFolder()) { options_.folder = folder_; }
  ~EntryPoint() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] e2e::ProcessRun Run(const std::string& step) const {
    return e2e::RunProcess(std::filesystem::absolute(ENTRY_POINT_PROBE), {step}, options_);
  }

  // At once: a box, or a report of a crash, would wait for somebody.
  void ExpectEndsWith1(const std::string& step) const {
    const e2e::ProcessRun run = Run(step);
    EXPECT_EQ(run.exit_code, 1) << step;
    EXPECT_EQ(run.printed, "") << step;
    EXPECT_LT(run.duration, std::chrono::seconds(30)) << step;
  }

  std::filesystem::path folder_;
  e2e::ProcessOptions options_;
};

}  // namespace zentpost::entry_point
