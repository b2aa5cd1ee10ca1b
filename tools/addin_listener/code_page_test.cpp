#include "tools/addin_listener/code_page.h"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tools/support/text.h"

namespace zentpost::addin_listener {
namespace {

using Strings = std::vector<std::string>;

// Each of `characters` with its bytes, "-" for none, "?" for more than one origin.
Strings BytesOf(unsigned number, std::u16string_view characters) {
  const CodePage code_page(number);
  Strings result;
  for (const char16_t character : characters) {
    const std::string* const bytes = code_page.BytesOf(character);
    result.push_back(bytes == nullptr ? "-" : bytes->empty() ? "?" : support::HexBytes(*bytes));
  }
  return result;
}

TEST(CodePage, EveryByteHasACharacterOfItsOwn) {
  for (const unsigned number : {1250u, 1251u, 1252u, 1253u, 1254u}) {
    const CodePage code_page(number);
    std::map<std::string, int> seen;
    for (char32_t character = 0; character < 0x10000; ++character) {
      const std::string* const bytes = code_page.BytesOf(character);
      if (bytes != nullptr) {
        EXPECT_EQ(bytes->size(), 1u);
        ++seen[*bytes];
      }
    }
    EXPECT_EQ(seen.size(), 256u) << number;
    for (const auto& [bytes, count] : seen) {
      EXPECT_EQ(count, 1) << number << " " << support::HexBytes(bytes);
    }
  }
}

TEST(CodePage, HasTheCharactersOfWindows) {
  EXPECT_EQ(BytesOf(1252, u"\u20AC\u0081\u00E4\u0080\u4E2D"),
            (Strings{"80", "81", "E4", "-", "-"}));
  const CodePage western(1252);
  for (char32_t character = 0; character < 0x10000; ++character) {
    const auto byte = support::Windows1252Byte(character);
    const std::string* const bytes = western.BytesOf(character);
    EXPECT_EQ(bytes == nullptr ? "" : *bytes, byte ? std::string(1, *byte) : "")
        << static_cast<unsigned>(character);
  }
  EXPECT_EQ(BytesOf(1250, u"\u0105\u0083\u20AC"), (Strings{"B9", "83", "80"}));
  EXPECT_EQ(BytesOf(1251, u"\u0436\u0098\u20AC"), (Strings{"E6", "98", "88"}));
  EXPECT_EQ(BytesOf(1253, u"\u03B1\u009F\uF8F9\uF8FA\uF8FB\u00AA"),
            (Strings{"E1", "9F", "AA", "D2", "FF", "-"}));
  EXPECT_EQ(BytesOf(1254, u"\u011F\u008E"), (Strings{"F0", "8E"}));
}

TEST(CodePage, PairsLeadBackOnlyWhereTheyAreCertain) {
  // Two origins, the stand-in for pairs without a character, and one whose other origin is no
  // UTF-8.
  EXPECT_EQ(BytesOf(932, u"\u3042\uFF84\uF8F0\u0080\u222A\u30FB\u7E8A\uE000\uFFFD"),
            (Strings{"82A0", "C4", "A0", "80", "?", "?", "ED40", "F040", "-"}));
  // Of the users' three areas, and the first and last of the spare pairs.
  EXPECT_EQ(BytesOf(936, u"\u4E2D\u20AC\uE000\uE233\uE4C6\uE765\uE766\uE864\uFFFD"),
            (Strings{"D6D0", "80", "AAA1", "-", "A140", "A7A0", "A2AB", "-", "-"}));
}

TEST(CodePage, TellsItsName) {
  EXPECT_EQ(CodePage(1253).Name(), "Windows-1253");
  EXPECT_EQ(CodePage(936).Name(), "code page 936");
}

}  // namespace
}  // namespace zentpost::addin_listener
