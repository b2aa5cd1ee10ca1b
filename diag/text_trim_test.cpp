#include "diag/text_trim.h"

#include <gtest/gtest.h>

#include "testing/text_printers.h"

namespace zentpost {
namespace {

TEST(TextTrim, WhiteSpaceGoesFromBothEndsOnly) {
  struct Case {
    std::u16string_view text;
    std::u16string_view expected;
  };
  const Case cases[] = {
      {u"", u""},
      {u"a", u"a"},
      {u" a ", u"a"},
      {u"  a b  ", u"a b"},
      {u"\t\n\v\f\r a\t\n\v\f\r b \t\n\v\f\r", u"a\t\n\v\f\r b"},
      {u" ", u""},
      {u" \t\n\v\f\r", u""},
      {u"a\r\n", u"a"},
      {u"\r\na", u"a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(test::Readable(c.text));
    EXPECT_EQ(test::Readable(Trimmed(c.text)), test::Readable(c.expected));
  }
}

TEST(TextTrim, OtherCharactersStay) {
  for (const std::u16string_view text :
       {std::u16string_view(u"\u00A0a\u00A0"), std::u16string_view(u"\u3000a\u3000"),
        std::u16string_view(u"\0a\0", 3), std::u16string_view(u"\u0085a\u200B")}) {
    SCOPED_TRACE(test::Readable(text));
    EXPECT_EQ(Trimmed(text), text);
  }
}

TEST(TextTrim, ThePieceLiesInTheText) {
  constexpr std::u16string_view kText = u"  ab ";
  EXPECT_EQ(Trimmed(kText).data(), kText.data() + 2);
  static_assert(Trimmed(u" x ") == u"x", "usable when compiling");
}

}  // namespace
}  // namespace zentpost
