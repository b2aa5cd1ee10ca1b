// That the tables list what there is: log_texts_check.py and mapi_results_check.py.
#include "tools/doctor/page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tools/doctor/log_texts.h"
#include "tools/doctor/mapi_results.h"
#include "tools/doctor/texts.h"

namespace zentpost::doctor {
namespace {

TEST(LogTexts, AreExplainedWithCodesThatThereAre) {
  std::set<std::string_view> routines;
  for (const LogRoutine& routine : LogRoutines()) {
    EXPECT_TRUE(routines.insert(routine.name).second) << routine.name;
    EXPECT_TRUE(routine.task.ends_with('.')) << routine.name;
    EXPECT_FALSE(routine.texts.empty()) << routine.name;
    for (const LogText& text : routine.texts) {
      const std::size_t end = text.text.find("()");
      EXPECT_TRUE(end == std::string_view::npos || text.text.substr(0, end) == routine.name)
          << text.text;
      EXPECT_TRUE(text.meaning.size() > 1 && text.meaning.ends_with('.')) << text.text;
      std::istringstream codes{std::string(text.codes)};
      std::string before;
      for (std::string code; std::getline(codes, code, ' '); before = code) {
        EXPECT_TRUE(FindCode(code) != nullptr && before < code) << text.text << ": " << code;
      }
    }
  }
}

TEST(MapiResults, AreFailuresAndThenSuccessesByTheirNumbers) {
  const auto results = MapiResults();
  const auto key = [](const MapiResult& result) {
    return result.number ^ 0x80000000U;  // failures first
  };
  EXPECT_EQ(std::adjacent_find(results.begin(), results.end(),
                               [&](const MapiResult& left, const MapiResult& right) {
                                 return key(left) >= key(right);
                               }),
            results.end());
  for (const MapiResult& result : results) {
    EXPECT_FALSE(result.meaning.empty()) << result.symbol;
  }
}

TEST(Page, IsAscii) {
  const std::string page = Page();
  EXPECT_TRUE(std::all_of(page.begin(), page.end(),
                          [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }));
}

// Each code has a heading, and with it an anchor, to which the lines of the log lead.
TEST(Page, LeadsFromALineOfTheLogToItsCodes) {
  const std::string page = Page();
  for (const CodeText& text : CodeTexts()) {
    EXPECT_NE(page.find("\n### " + std::string(text.code) + "\n"), std::string::npos) << text.code;
  }
  EXPECT_NE(page.find("\n### _utf8\n"), std::string::npos);
  EXPECT_NE(page.find("| `ProcessToOutlookClient(): The communication port is not valid.` | The "
                      "add-in's port has vanished from the registry since the job began. | "
                      "[D01](#d01), [D02](#d02) |\n"),
            std::string::npos);
  EXPECT_NE(page.find("| `ProcessToOutlookClient(): Created JSON:\\r\\n%s\\r\\n` | "),
            std::string::npos);
  // Two backslashes would be one if they were not marked.
  EXPECT_NE(page.find("\"C:\\\\\\Fax\\\\\\a.pdf\""), std::string::npos);
  EXPECT_NE(page.find("| `MAPI_E_NOT_FOUND` | `0x8004010f` | -2147221233 | "), std::string::npos);
}

}  // namespace
}  // namespace zentpost::doctor
