#include "tools/support/text.h"

#include <gtest/gtest.h>

namespace zentpost::support {
namespace {

TEST(Text, Utf8AndUtf16GiveEachOtherBack) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"", ""},
      {u"a\u007F\u0080\u00FC\u07FF", "a\x7F\xC2\x80\xC3\xBC\xDF\xBF"},
      {u"\u0800\u20AC\uD7FF\uE000\uFFFF",
       "\xE0\xA0\x80\xE2\x82\xAC\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {u"\U00010000\U0001F600\U0010FFFF", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"},
  };
  for (const auto& [text, utf8] : cases) {
    EXPECT_EQ(Utf8(text), utf8);
    EXPECT_EQ(Utf16(utf8), text);
  }
}

TEST(Text, IllFormedTextBecomesReplacementCharacters) {
  const char16_t surrogates[] = {u'a', 0xD83D, u'b', 0xDE00, 0xD83D};
  EXPECT_EQ(Utf8({surrogates, 5}), "a\xEF\xBF\xBD\x62\xEF\xBF\xBD\xEF\xBF\xBD");
  for (const char* const ill_formed :
       {"\x80", "\xBF", "\xC3", "\xC3(", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
        "\xED\xBF\xBF", "\xE2\x82", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
        "\xF8\x88\x80\x80\x80", "\xFF"}) {
    SCOPED_TRACE(HexBytes(ill_formed));
    EXPECT_FALSE(FirstCharacter(ill_formed));
    std::u16string expected;
    for (const char byte : std::string(ill_formed)) {
      expected += byte == '(' ? u'(' : u'\uFFFD';
    }
    EXPECT_EQ(Utf16(std::string("a") + ill_formed), u"a" + expected);
  }
}

TEST(Text, Windows1252IsNotLatin1) {
  const std::u16string special =
      u"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D\u017D"
      u"\u008F\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u009D"
      u"\u017E\u0178";
  for (unsigned byte = 1; byte < 256; ++byte) {
    const std::string bytes(1, static_cast<char>(byte));
    const auto unit =
        byte < 0x80 || byte >= 0xA0 ? static_cast<char16_t>(byte) : special[byte - 0x80];
    EXPECT_EQ(FromWindows1252(bytes), std::u16string(1, unit));
    EXPECT_EQ(Windows1252(std::u16string(1, unit)), bytes);
  }
  EXPECT_EQ(Windows1252(u"\u0080\u4E2D"), "??");
}

TEST(Text, NumbersAndQuotesAreWritten) {
  EXPECT_EQ(Hex(0x37001F), "0x0037001F");
  EXPECT_EQ(Hex(0x1234567890, 1), "0x1234567890");
  EXPECT_EQ(LowerHex(0x37001F), "0x37001f");
  EXPECT_EQ(LowerHex(0), "0x0");
  EXPECT_EQ(HexDigits(0xA, 4), "000A");
  EXPECT_EQ(HexBytes(std::string_view("\x00\xFF\x1A", 3)), "00FF1A");
  EXPECT_EQ(Quoted(R"(a "b" \)"), R"("a \"b\" \\")");
}

}  // namespace
}  // namespace zentpost::support
