// A machine with the starter under test: the one in C++ on Windows, the one in Python elsewhere.
#pragma once

#include <string>
#include <vector>

#include "testing/end_to_end/job_test.h"

namespace zentpost::e2e {

class StarterTest : public JobTest {
 protected:
  StarterTest();

  // Runs the starter in the machine's folder, with the document "letter.pdf" and a number.
  ProcessRun Start(const std::vector<std::string>& more_options);
  // The same, with the tool.
  ProcessRun StartTool(const std::vector<std::string>& more_options = {});
  // The starter with these words alone.
  ProcessRun StartWith(const std::vector<std::string>& words);

  // Nothing was started, and nothing is left; `sentence` is what the starter says, and "..." in it
  // the system's own words.
  void ExpectRefused(const ProcessRun& run, const std::string& sentence);

  // The only job file that the starter has kept.
  [[nodiscard]] std::filesystem::path KeptJobFile() const;
  [[nodiscard]] bool IsNothingKept() const;

  [[nodiscard]] std::string DocumentPath() const;

  static constexpr char kDocument[] = "letter.pdf";
};

}  // namespace zentpost::e2e
