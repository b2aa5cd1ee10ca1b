#include "tools/doctor/texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>

namespace zentpost::doctor {
namespace {

constexpr std::size_t kCodes = 35;

bool IsPrintableAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// A sentence or several, on one line.
void ExpectSentences(std::string_view text) {
  EXPECT_TRUE(IsPrintableAscii(text)) << text;
  EXPECT_TRUE(text.size() > 1 && text.ends_with('.')) << text;
  EXPECT_EQ(text.find("  "), std::string_view::npos) << text;
}

TEST(CodeTexts, AreThoseOfAllCodesInOrder) {
  ASSERT_EQ(CodeTexts().size(), kCodes);
  std::set<std::string_view> titles;
  for (std::size_t i = 0; i < kCodes; ++i) {
    const CodeText& text = CodeTexts()[i];
    char code[4] = {};
    std::snprintf(code, sizeof(code), "D%02u", static_cast<unsigned>((i + 1) % 100));
    EXPECT_EQ(text.code, code);
    EXPECT_TRUE(titles.insert(text.title).second) << text.title;
    EXPECT_TRUE(!text.title.empty() && text.title.size() <= 60 && IsPrintableAscii(text.title) &&
                !text.title.ends_with('.'))
        << text.title;
    ExpectSentences(text.meaning);
    ExpectSentences(text.cause);
    ExpectSentences(text.remedy);
  }
}

TEST(CodeTexts, AreFoundInEitherCase) {
  for (const CodeText& text : CodeTexts()) {
    EXPECT_EQ(FindCode(text.code), &text);
    EXPECT_EQ(FindCode("d" + std::string(text.code.substr(1))), &text);
  }
  for (const char* const code :
       {"", "D", "D00", "D36", "D3", "D013", "D13 ", " D13", "E13", "13"}) {
    EXPECT_EQ(FindCode(code), nullptr) << code;
    EXPECT_EQ(Explain(code), "") << code;
  }
}

TEST(Explain, TellsAllOfACodeWithinAConsolesWidth) {
  for (const CodeText& text : CodeTexts()) {
    const std::string explained = Explain(text.code);
    EXPECT_TRUE(explained.starts_with(std::string(text.code) + ": " + std::string(text.title) +
                                      "\n\nMeaning: "))
        << explained;
    std::istringstream lines(explained);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(line.size() <= 80 && !line.ends_with(' ') && IsPrintableAscii(line)) << line;
    }
  }
  EXPECT_EQ(Explain("d20"),
            "D20: A MAPI library lies beside the tool\n"
            "\n"
            "Meaning: Where the tool looks for mapi32.dll or mapistub.dll by its name alone,\n"
            "         it takes this file and not the one of Windows.\n"
            "Cause:   The file lies in the doctor's folder, where the tool is expected too.\n"
            "         It does not belong to the tool.\n"
            "Remedy:  Move the file that the finding names out of this folder, then run the\n"
            "         doctor again.\n");
}

}  // namespace
}  // namespace zentpost::doctor
