#include "packaging/acceptance/test_output.h"

#include <gtest/gtest.h>

namespace zentpost::acceptance {
namespace {

constexpr char kOutput[] =
    "[==========] Running 4 tests from 1 test suite.\r\n"
    "[ RUN      ] Files.AreWritten\r\n"
    "[       OK ] Files.AreWritten (1 ms)\r\n"
    "[ RUN      ] Files.AreRead\r\n"
    "files.cpp(12): error: Expected equality\r\n"
    "  2\r\n"
    "[  FAILED  ] Files.AreRead (3 ms)\r\n"
    "[ RUN      ] Files.AreShort\r\n"
    "files.cpp(20): Skipped\r\n"
    "no short names\r\n"
    "unfinished[  SKIPPED ] Files.AreShort (0 ms)\r\n"
    "[  PASSED  ] 1 test.\r\n"
    "[  FAILED  ] 1 test, listed below:\r\n"
    "[  FAILED  ] Files.AreRead\r\n";

TEST(TestOutput, TellsEachVerdictWithWhatWasPrinted) {
  const TestOutput output = ReadTestOutput(kOutput);

  EXPECT_EQ(output.passed, 1);
  EXPECT_EQ(output.failed, 1);
  EXPECT_EQ(output.skipped, 1);
  EXPECT_EQ(output.failures, std::vector<std::string>{"Files.AreRead\nfiles.cpp(12): error: "
                                                      "Expected equality\n  2\n"});
  EXPECT_EQ(output.skips,
            std::vector<std::string>{"Files.AreShort\nfiles.cpp(20): Skipped\nno short names\n"});
}

TEST(TestOutput, ATestThatDoesNotEndHasFailed) {
  const TestOutput output = ReadTestOutput("[ RUN      ] Files.AreWritten\nterminate called");

  EXPECT_EQ(output.failed, 1);
  EXPECT_EQ(output.failures, std::vector<std::string>{"Files.AreWritten\nterminate called"});
  EXPECT_EQ(output.end, "[ RUN      ] Files.AreWritten\nterminate called");
}

TEST(TestOutput, NothingIsNothing) {
  const TestOutput output = ReadTestOutput("");
  EXPECT_EQ(output.passed + output.failed + output.skipped, 0);
  EXPECT_EQ(output.end, "");
}

TEST(TestOutput, AVeryLongTestIsCutInItsMiddle) {
  const std::string line = std::string(99, 'x') + "\n";
  std::string text = "[ RUN      ] Files.AreLong\nfirst\n";
  for (int i = 0; i < 1000; ++i) {
    text += line;
  }
  const TestOutput output = ReadTestOutput(text + "last\n[  FAILED  ] Files.AreLong (1 ms)\n");

  ASSERT_EQ(output.failures.size(), 1U);
  EXPECT_TRUE(output.failures[0].starts_with("Files.AreLong\nfirst\n"));
  EXPECT_TRUE(output.failures[0].ends_with("last\n"));
  EXPECT_NE(output.failures[0].find("\n...\n"), std::string::npos);
  EXPECT_LT(output.failures[0].size(), 21000U);
}

TEST(Names, AreReplacedWhateverTheirCaseAndSeparators) {
  const std::vector<std::pair<std::string, std::string>> names = {
      {"C:\\Users\\Müller", "<profile>"}, {"Müller", "<user>"}, {"", "<nobody>"}};
  EXPECT_EQ(WithoutNames("c:/users/Müller\\a.txt of mÜLLER, Müller", names),
            "<profile>\\a.txt of mÜLLER, <user>");
  EXPECT_EQ(WithoutNames("", names), "");
}

TEST(Names, ArePartsOfNoOtherWord) {
  const std::vector<std::pair<std::string, std::string>> names = {{"test", "<computer>"}};
  EXPECT_EQ(WithoutNames("tests, contest, Test\n\\\\test\\share test2 t\u00E4test test", names),
            "tests, contest, <computer>\n\\\\<computer>\\share test2 t\u00E4test <computer>");
}

TEST(Names, TheLongestThatFitsCounts) {
  const std::vector<std::pair<std::string, std::string>> names = {
      {"Maria", "<user>"},
      {"MARIAM~1", "<user>"},
      {"C:\\Users\\MARIAM~1", "<profile>"},
      {"C:\\Users\\MARIAM~1\\AppData\\Local\\Temp", "<temp>"},
      {"C:\\Users\\Maria M\u00FCller", "<profile>"},
      {"c:\\users\\mariam~1", "<never, since it is the same name>"}};
  EXPECT_EQ(WithoutNames("C:\\Users\\MARIAM~1\\AppData\\Local\\Temp\\a.txt\n"
                         "c:/users/mariam~1/AppData/Local/Temporary\n"
                         "\"C:\\\\Users\\\\MariaM~1\\\\b.txt\"\n"
                         "C:\\Users\\Maria M\u00FCller, Maria, MARIAM~10",
                         names),
            "<temp>\\a.txt\n"
            "<profile>/AppData/Local/Temporary\n"
            "\"C:\\\\Users\\\\<user>\\\\b.txt\"\n"
            "<profile>, <user>, MARIAM~10");
}

}  // namespace
}  // namespace zentpost::acceptance
