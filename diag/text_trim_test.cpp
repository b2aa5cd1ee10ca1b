#include "diag/text_trim.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

#include "testing/text_printers.h"

namespace zentpost {
namespace {

TEST(TextTrim, WhiteSpaceGoesFromBothEndsOnly) {
  using namespace std::string_view_literals;
  const std::pair<std::u16string_view, std::u16string_view> cases[] = {
      {u"", u""},
      {u"a", u"a"},
      {u" a ", u"a"},
      {u"  a b  ", u"a b"},
      {u"\t\n\v\f\r a\t\n\v\f\r b \t\n\v\f\r", u"a\t\n\v\f\r b"},
      {u" ", u""},
      {u" \t\n\v\f\r", u""},
      {u"a\r\n", u"a"},
      {u"\r\na", u"a"},
      // Other characters stay.
      {u"\u00A0a\u00A0", u"\u00A0a\u00A0"},
      {u"\u3000a\u3000", u"\u3000a\u3000"},
      {u"\0a\0"sv, u"\0a\0"sv},
      {u"\u0085a\u200B", u"\u0085a\u200B"},
  };
  for (const auto& [text, trimmed] : cases) {
    EXPECT_EQ(test::Readable(Trimmed(text)), test::Readable(trimmed));
  }
}

TEST(TextTrim, ThePieceLiesInTheText) {
  constexpr std::u16string_view kText = u"  ab ";
  EXPECT_EQ(Trimmed(kText).data(), kText.data() + 2);
  static_assert(Trimmed(u" x ") == u"x", "usable when compiling");
}

}  // namespace
}  // namespace zentpost
