#include "tools/support/wrap.h"

#include <gtest/gtest.h>

namespace zentpost::support {
namespace {

TEST(Wrap, FillsLinesWithWords) {
  const struct {
    const char* text;
    const char* first;
    const char* next;
    const char* lines;
  } kCases[] = {
      {"one two six", "", "", "one two six\n"},
      {"one two four", "", "", "one two\nfour\n"},
      {" one\ttwo\r\n\nsix  ", "", "", "one two six\n"},
      {"one two three", "- ", "  ", "- one two\n  three\n"},
      // longer than a line, at its start and behind a word
      {"0123456789abc one", "", "", "0123456789a\nbc one\n"},
      {"one 0123456789abc two", "- ", "  ", "- one\n  012345678\n  9abc two\n"},
      {"0123456789a one", "", "", "0123456789a\none\n"},
      {"0123456789abcdefghijklmnop", "", " ", "0123456789a\n bcdefghijk\n lmnop\n"},
      // of two columns each, one of which would be left
      {"\u65E5\u672C\u8A9E\u65E5\u672C\u8A9E", "", "", "\u65E5\u672C\u8A9E\u65E5\u672C\n\u8A9E\n"},
      {"\u65E5\u672C\u8A9E one two", "", "", "\u65E5\u672C\u8A9E one\ntwo\n"},
      {"\U0001F4E0\U0001F4E0\U0001F4E0\U0001F4E0\U0001F4E0\U0001F4E0", "", "",
       "\U0001F4E0\U0001F4E0\U0001F4E0\U0001F4E0\U0001F4E0\n\U0001F4E0\n"},
      // no UTF-8
      {"\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "", "",
       "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\n\xFF\n"},
      // 11 characters in 15 bytes
      {"\xC3\xA4\xC3\xA4\xC3\xA4 \xC3\xA4wo six", "", "",
       "\xC3\xA4\xC3\xA4\xC3\xA4 \xC3\xA4wo six\n"},
      {"", "", "", ""},
      {" \n", "  ", "", ""},
      {"", "Seen: ", "  ", "Seen:\n"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Wrap(test.text, test.first, test.next, 11), test.lines) << test.text;
  }
}

TEST(Wrap, CharactersOfEastAsiaTakeTwoColumns) {
  EXPECT_EQ(Columns(U'a'), 1u);
  EXPECT_EQ(Columns(U'\u00E4'), 1u);
  EXPECT_EQ(Columns(U'\u65E5'), 2u);
  EXPECT_EQ(Columns(U'\U0001F4E0'), 2u);
}

TEST(Wrap, IsAsWideAsAConsole) {
  const std::string line(78, 'x');
  EXPECT_EQ(Wrap(line + " y z"), line + " y\nz\n");
}

}  // namespace
}  // namespace zentpost::support
