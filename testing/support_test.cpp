// The tests' own helpers: what they report of, they must not hide.
#include <gtest/gtest.h>

#include <string>

#include "platform/system.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost::test {
namespace {

TEST(TextPrinters, TextsOfAllLengthsOfUtf8) {
  EXPECT_EQ(Readable(u""), "");
  EXPECT_EQ(Readable(u"a\u00E4\u20AC\U0001F4E0\U0010FFFF"),
            "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x93\xA0\xF4\x8F\xBF\xBF");
  EXPECT_EQ(Readable(u"\u007F\u0080\u07FF\u0800\uFFFF"),
            "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF");
}

TEST(TextPrinters, WhatComparisonsCouldOverlookIsSpelledOut) {
  EXPECT_EQ(Readable(std::u16string(u"a\0b", 3)), "a\\u0000b");
  const char16_t lone_surrogates[] = {0xD83D, u'x', 0xDCE0, 0xD83D};
  EXPECT_EQ(Readable(std::u16string(lone_surrogates, 4)), "\\ud83dx\\udce0\\ud83d");
}

using LogLines = platform::fake::FakePlatformTest;

TEST_F(LogLines, WholeLinesAreShownWithTheirLevel) {
  for (const char16_t* line :
       {u"2026/11/20 23:58:07 - INFO   : one", u"0000/00/00 -01:-01:-01 - WARNING: ",
        u"2026/11/20 23:58:08 - ERROR  : %s", u"2026/11/20 23:58:08 - DEBUG  :  x "}) {
    platform::WriteDebugOutput(line);
    platform::WriteDebugOutput(u"\n");
  }
  EXPECT_EQ(LogText(), "INFO: one\nWARNING: \nERROR: %s\nDEBUG:  x \n");
}

TEST_F(LogLines, AnythingElseIsMalformed) {
  struct Case {
    const char16_t* line;
    const char16_t* end;
    const char* shown;
  };
  const Case cases[] = {
      {u"one", u"\n", "MALFORMED: one\n"},
      {u"", u"\n", "MALFORMED: \n"},
      {u"2026/11/20 23:58:07 - INFO  : one", u"\n",
       "MALFORMED: 2026/11/20 23:58:07 - INFO  : one\n"},
      {u"2026-11-20 23:58:07 - INFO   : one", u"\n",
       "MALFORMED: 2026-11-20 23:58:07 - INFO   : one\n"},
      {u"2026/11/2x 23:58:07 - INFO   : one", u"\n",
       "MALFORMED: 2026/11/2x 23:58:07 - INFO   : one\n"},
      {u"2026/11/20 23:58:07 - INFO   : one", u"", "INFO: oneMALFORMED: no line end\n"},
      {u"2026/11/20 23:58:07 - INFO   : one", nullptr, "INFO: oneMALFORMED: no line end\n"},
  };
  for (const Case& c : cases) {
    fake_.Reset();
    platform::WriteDebugOutput(c.line);
    if (c.end != nullptr) {
      platform::WriteDebugOutput(c.end);
    }
    EXPECT_EQ(LogText(), c.shown);
  }
}

}  // namespace
}  // namespace zentpost::test
