// The page docs/outcomes.md, made of the table in testing/outcomes.h.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zentpost::test {

// A line of the log of a job that counts as delivered, and what somebody then did not get.
struct LineOfLoss {
  std::string_view text;  // of the log, or its beginning
  std::string_view loss;
};
[[nodiscard]] std::span<const LineOfLoss> LinesOfLoss();

[[nodiscard]] std::string OutcomesPage();

}  // namespace zentpost::test
