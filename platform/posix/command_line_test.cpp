#include "platform/posix/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace platform {
namespace {

struct Case {
  const char* name;
  std::vector<std::string_view> arguments;
  std::u16string line;
  std::vector<std::u16string> tokens;  // as the tool takes the line apart
};

const Case kCases[] = {
    {"none", {}, u"", {}},
    {"one", {"a.json"}, u"a.json", {u"a.json"}},
    {"several", {"a.json", "/preview", "1"}, u"a.json /preview 1", {u"a.json", u"/preview", u"1"}},
    {"with a blank", {"my job.json", "x"}, u"\"my job.json\" x", {u"my job.json", u"x"}},
    {"with other white space", {"a\tb", "c\n"}, u"\"a\tb\" \"c\n\"", {u"a\tb", u"c\n"}},
    {"with blanks at the ends", {" a "}, u"\" a \"", {u" a "}},
    {"empty", {""}, u"\"\"", {u""}},
    {"empty in between", {"a", "", "b"}, u"a \"\" b", {u"a", u"", u"b"}},
    {"empty at the end", {"a", ""}, u"a \"\"", {u"a", u""}},
    {"apostrophe", {"o'neil.json", "x"}, u"\"o'neil.json\" x", {u"oneil.json", u"x"}},
    {"double quote", {"a\"b", "x"}, u"\"a\"b\" x", {u"ab", u"x"}},
    {"only a mark", {"'", "x"}, u"\"'\" x", {u"", u"x"}},
    {"mark at the end", {"a'", "x"}, u"\"a'\" x", {u"a", u"x"}},
    {"mark at the beginning", {"'a", "x"}, u"\"'a\" x", {u"a", u"x"}},
    {"mark before a blank", {"a' b", "x"}, u"\"a b\" x", {u"a b", u"x"}},
    {"marks before a blank", {"a'\"' b 'c' d"}, u"\"a b 'c d\"", {u"a b c d"}},
    {"quoted once more", {"\"a b\""}, u"\"\"a b\"\"", {u"a b"}},
    {"beyond ASCII",
     {"Gr\xC3\xBC\xC3\x9F"
      "e.json",
      "\xF0\x9F\x98\x80"},
     u"Gr\u00FC\u00DFe.json \U0001F600",
     {u"Gr\u00FC\u00DFe.json", u"\U0001F600"}},
    {"not UTF-8",
     {"a\xE4"
      "bc.json"},
     u"a\uFFFDbc.json",
     {u"a\uFFFDbc.json"}},
    {"backslashes", {"C:\\a\\", "\\\\x"}, u"C:\\a\\ \\\\x", {u"C:\\a\\", u"\\\\x"}},
};

// Takes a line apart as the tool does: the rule that the rebuilt line is written for.
std::vector<std::u16string> Split(const std::u16string& line) {
  std::vector<std::u16string> tokens;
  if (line.empty()) {
    return tokens;
  }
  tokens.emplace_back();
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == u'"' || line[i] == u'\'') {
      quoted = !quoted || (i + 1 < line.size() && line[i + 1] != u' ');
    } else if (line[i] == u' ' && !quoted) {
      tokens.emplace_back();
    } else {
      tokens.back() += line[i];
    }
  }
  return tokens;
}

TEST(CommandLine, EveryArgumentIsOneTokenAgain) {
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    const std::u16string line = RebuildCommandLine(test.arguments);
    EXPECT_EQ(line, test.line);
    EXPECT_EQ(Split(line), test.tokens);
  }
}

TEST(CommandLine, AnyMixtureOfBlanksAndMarksStaysOneToken) {
  constexpr std::string_view kSigns = "a '\"\t";  // 3125 arguments of five of them
  for (std::size_t number = 0; number < 3125; ++number) {
    std::string argument;
    for (std::size_t left = number, i = 0; i < 5; ++i, left /= 5) {
      argument.push_back(kSigns[left % 5]);
    }
    SCOPED_TRACE(argument);
    std::u16string expected;
    for (const char sign : argument) {
      if (sign != '\'' && sign != '"') {
        expected.push_back(static_cast<char16_t>(sign));
      }
    }
    EXPECT_EQ(Split(RebuildCommandLine({argument, "x"})),
              std::vector<std::u16string>({expected, u"x"}));
  }
}

}  // namespace
}  // namespace platform
