// What the output of a test program says, and how it may stand in a report that is sent to others.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentpost::acceptance {

struct TestOutput {
  int passed = 0;
  int failed = 0;
  int skipped = 0;
  // Of each test that failed or was skipped, what it printed, from its name on. What is very long
  // is cut in its middle.
  std::vector<std::string> failures;
  std::vector<std::string> skips;
  // The end of the output, for a program that ended otherwise than with a failed test.
  std::string end;
};

// Takes GoogleTest's output with line ends of either kind.
[[nodiscard]] TestOutput ReadTestOutput(std::string_view output);

// `text` with each name that stands there as a word of its own replaced by what stands behind it
// here, whatever the case of its ASCII letters and with either separator in a path. An empty name
// is passed over; the longest that fits counts.
[[nodiscard]] std::string WithoutNames(
    std::string_view text, const std::vector<std::pair<std::string, std::string>>& names);

}  // namespace zentpost::acceptance
