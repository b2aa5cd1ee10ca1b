#include "platform/text_codec.h"

#include <string>
#include <string_view>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

using namespace std::string_literals;

constexpr CodePage kAnsiPages[] = {CodePage::kSystemAnsi, CodePage::kThreadAnsi};
constexpr CodePage kPages[] = {CodePage::kSystemAnsi, CodePage::kThreadAnsi, CodePage::kUtf8};

struct Case {
  const char* name;
  std::u16string text;
  std::string bytes;
};

class TextCodecContract : public ContractTest {
 protected:
  // Converts into more units than needed; all that fails is an empty text.
  static std::string Narrow(CodePage code_page, std::u16string_view text) {
    std::string bytes(text.size() * 3 + 10, '\x55');
    std::int32_t written = 99;
    EXPECT_EQ(WideToBytes(code_page, text.data(), static_cast<std::int32_t>(text.size()),
                          bytes.data(), static_cast<std::int32_t>(bytes.size()), written),
              kSuccess);
    bytes.resize(static_cast<std::size_t>(written));
    return bytes;
  }

  static std::u16string Widen(CodePage code_page, std::string_view bytes) {
    std::u16string text(bytes.size() + 10, u'\x55');
    std::int32_t written = 99;
    EXPECT_EQ(BytesToWide(code_page, bytes.data(), static_cast<std::int32_t>(bytes.size()),
                          text.data(), static_cast<std::int32_t>(text.size()), written),
              kSuccess);
    text.resize(static_cast<std::size_t>(written));
    return text;
  }
};

TEST_F(TextCodecContract, WellFormedUtf8IsConvertedBothWays) {
  const Case cases[] = {
      {"zero", u"\0"s, "\0"s},
      {"ASCII", u"Az09~\x7F", "Az09~\x7F"},
      {"zero in the middle", u"a\0b"s, "a\0b"s},
      {"first of two bytes", u"\u0080", "\xC2\x80"},
      {"last of two bytes", u"\u07FF", "\xDF\xBF"},
      {"first of three bytes", u"\u0800", "\xE0\xA0\x80"},
      {"before the surrogates", u"\uD7FF", "\xED\x9F\xBF"},
      {"behind the surrogates", u"\uE000", "\xEE\x80\x80"},
      {"replacement character", u"\uFFFD", "\xEF\xBF\xBD"},
      {"byte order mark", u"\uFEFF", "\xEF\xBB\xBF"},
      {"no character", u"\uFFFE\uFFFF", "\xEF\xBF\xBE\xEF\xBF\xBF"},
      {"first of four bytes", u"\U00010000", "\xF0\x90\x80\x80"},
      {"emoji", u"\U0001F600", "\xF0\x9F\x98\x80"},
      {"last of four bytes", u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
      {"German", u"Gr\u00FC\u00DFig", "Gr\xC3\xBC\xC3\x9Fig"},
      {"Chinese", u"\u4E2D\u6587\u5B57", "\xE4\xB8\xAD\xE6\x96\x87\xE5\xAD\x97"},
      {"combined from two", u"e\u0301", "e\xCC\x81"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(Narrow(CodePage::kUtf8, test.text), test.bytes);
    EXPECT_EQ(Widen(CodePage::kUtf8, test.bytes), test.text);
  }
}

TEST_F(TextCodecContract, ALoneSurrogateBecomesTheReplacementCharacter) {
  const char16_t high = 0xD83D;
  const char16_t low = 0xDE00;
  const Case cases[] = {
      {"high", {high}, "\xEF\xBF\xBD"},
      {"low", {low}, "\xEF\xBF\xBD"},
      {"the first of all", {0xD800}, "\xEF\xBF\xBD"},
      {"the last of all", {0xDFFF}, "\xEF\xBF\xBD"},
      {"high before a letter", {high, u'Z'}, "\xEF\xBF\xBDZ"},
      {"low behind a letter", {u'Z', low}, "Z\xEF\xBF\xBD"},
      {"the wrong way round", {low, high}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"high before a pair", {high, high, low}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
      {"low behind a pair", {high, low, low}, "\xF0\x9F\x98\x80\xEF\xBF\xBD"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(Narrow(CodePage::kUtf8, test.text), test.bytes);
  }
}

TEST_F(TextCodecContract, IllFormedUtf8BecomesReplacementCharacters) {
  const Case cases[] = {
      {"lone continuation", u"\uFFFD", "\x80"},
      {"three continuations", u"\uFFFD\uFFFD\uFFFD", "\x80\xBF\x80"},
      {"too long for one byte", u"\uFFFD\uFFFD", "\xC0\xAF"},
      {"too long for one byte, second form", u"\uFFFD\uFFFD", "\xC1\xBF"},
      {"too long for two bytes", u"\uFFFD\uFFFD", "\xE0\x9F\xBF"},
      {"too long for three bytes", u"\uFFFD\uFFFD\uFFFD", "\xF0\x8F\xBF\xBF"},
      {"high surrogate", u"\uFFFD\uFFFD", "\xED\xA0\x80"},
      {"low surrogate", u"\uFFFD\uFFFD", "\xED\xBF\xBF"},
      {"pair of surrogates", u"\uFFFD\uFFFD\uFFFD\uFFFD", "\xED\xA0\xBD\xED\xB8\x80"},
      {"beyond the last character", u"\uFFFD\uFFFD\uFFFD", "\xF4\x90\x80\x80"},
      {"lead byte far beyond", u"\uFFFD\uFFFD\uFFFD\uFFFD", "\xF5\x80\x80\x80"},
      {"five bytes", u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD", "\xF8\x88\x80\x80\x80"},
      {"bytes that never occur", u"\uFFFD\uFFFD", "\xFE\xFF"},
      {"letter instead of the second byte", u"\uFFFDYZ", "\xC2YZ"},
      {"letter instead of the third byte", u"\uFFFDYZ", "\xE2\x82YZ"},
      {"letter instead of the fourth byte", u"\uFFFDYZ", "\xF0\x9F\x98YZ"},
      {"Latin-1", u"Gr\uFFFD\uFFFDig", "Gr\xFC\xDFig"},
      {"a good one instead of the third byte", u"\uFFFD\u20AC", "\xE2\x82\xE2\x82\xAC"},
      {"a good one instead of the second byte", u"\uFFFD\u00E4", "\xC3\xC3\xA4"},
      {"two of two bytes at the end", u"\uFFFD", "\xC2"},
      {"one of three bytes at the end", u"a\uFFFD", "a\xE2"},
      {"two of three bytes at the end", u"a\uFFFD", "a\xE2\x82"},
      {"three of four bytes at the end", u"a\uFFFD", "a\xF0\x9F\x98"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(Widen(CodePage::kUtf8, test.bytes), test.text);
  }
}

TEST_F(TextCodecContract, EveryByteOfTheAnsiCodePageHasItsCharacter) {
  std::string bytes;
  std::u16string text;
  for (char16_t byte = 0; byte < 256; ++byte) {
    bytes.push_back(static_cast<char>(byte));
    text.push_back(byte);
  }
  const std::u16string upper =
      u"\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D\u017D"
      u"\u008F\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153\u009D"
      u"\u017E\u0178";
  text.replace(0x80, upper.size(), upper);
  for (const CodePage code_page : kAnsiPages) {
    EXPECT_EQ(Widen(code_page, bytes), text);
    EXPECT_EQ(Narrow(code_page, text), bytes);
  }
}

TEST_F(TextCodecContract, ACharacterWithoutAnAnsiByteBecomesItsBestFitOrAQuestionMark) {
  const Case cases[] = {
      {"letters with foreign marks", u"\u0100\u0107\u0142\u017C\u0131", "Aclzi"},
      {"Greek letters that have a fit", u"\u03B1\u03B2\u03A3", "a\xDFS"},
      {"signs", u"\u2212\u221E\u2264\u2032", "-8='"},
      {"combining mark, not combined", u"a\u0308", "a\xA8"},
      {"control characters that are none here", u"\u0080\u009F", "??"},
      {"pair of surrogates, unit by unit", u"\U0001F600 !", "?? !"},
      {"lone surrogate", {0xD800, u'A'}, "?A"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    for (const CodePage code_page : kAnsiPages) {
      EXPECT_EQ(Narrow(code_page, test.text), test.bytes);
    }
  }
}

TEST_F(TextCodecContract, EveryUnitNarrowsToTheSameByteEverywhere) {
  // FNV-1a over the bytes for U+0000 to U+FFFF, as Windows-1252 gives them.
  std::uint64_t hash = 0xCBF29CE484222325;
  for (unsigned unit = 0; unit < 0x10000; ++unit) {
    const auto text = static_cast<char16_t>(unit);
    char byte = 0;
    std::int32_t written = 0;
    ASSERT_EQ(WideToBytes(CodePage::kThreadAnsi, &text, 1, &byte, 1, written), kSuccess) << unit;
    ASSERT_EQ(written, 1) << unit;
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  }
  EXPECT_EQ(hash, std::uint64_t{0x5BBEF6816F8B8F6D});
}

// Calls `convert` with every kind of capacity for a result that is `expected`.
template <class Text, class Convert>
void ExpectConverts(const Text& expected, const Convert& convert) {
  const auto size = static_cast<std::int32_t>(expected.size());
  std::int32_t written = 99;
  EXPECT_EQ(convert(nullptr, 0, written), kSuccess);
  EXPECT_EQ(written, size);
  Text buffer(expected.size() + 1, 'x');
  EXPECT_EQ(convert(buffer.data(), size - 1, written), kInsufficientBuffer);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(buffer.back(), 'x');
  for (const std::int32_t capacity : {size, size + 1}) {
    buffer.back() = 'x';
    EXPECT_EQ(convert(buffer.data(), capacity, written), kSuccess);
    EXPECT_EQ(written, size);
    EXPECT_TRUE(buffer == expected + typename Text::value_type{'x'});
  }
}

TEST_F(TextCodecContract, TheCapacityMustSufficeToTheUnit) {
  struct PagedCase {
    CodePage code_page;
    std::u16string text;
    std::string bytes;
  };
  const PagedCase cases[] = {
      {CodePage::kUtf8, u"abc", "abc"},
      {CodePage::kUtf8, u"a\u00E4", "a\xC3\xA4"},
      {CodePage::kUtf8, u"\u4E2D\u6587", "\xE4\xB8\xAD\xE6\x96\x87"},
      {CodePage::kUtf8, u"\U0001F600z", "\xF0\x9F\x98\x80z"},
      {CodePage::kSystemAnsi, u"a\u20AC", "a\x80"},
      {CodePage::kThreadAnsi, u"a\u20AC", "a\x80"},
  };
  for (const PagedCase& test : cases) {
    SCOPED_TRACE(testing::PrintToString(test.text));
    // With its length first, then up to its terminator, which is then converted, too.
    for (const std::size_t more : {0U, 1U}) {
      SCOPED_TRACE(more);
      const auto length_of = [more](const auto& source) {
        return more != 0 ? -1 : static_cast<std::int32_t>(source.size());
      };
      ExpectConverts(test.bytes + std::string(more, '\0'),
                     [&](char* bytes, std::int32_t capacity, std::int32_t& written) {
                       return WideToBytes(test.code_page, test.text.c_str(), length_of(test.text),
                                          bytes, capacity, written);
                     });
      ExpectConverts(test.text + std::u16string(more, u'\0'),
                     [&](char16_t* text, std::int32_t capacity, std::int32_t& written) {
                       return BytesToWide(test.code_page, test.bytes.c_str(), length_of(test.bytes),
                                          text, capacity, written);
                     });
    }
  }
  std::int32_t written = 99;
  char byte = 'x';
  char16_t unit = u'x';
  for (const CodePage code_page : kPages) {
    EXPECT_EQ(WideToBytes(code_page, u"", -1, &byte, 1, written), kSuccess);
    EXPECT_EQ(written, 1);
    EXPECT_EQ(BytesToWide(code_page, "", -1, &unit, 1, written), kSuccess);
    EXPECT_EQ(written, 1);
  }
}

TEST_F(TextCodecContract, ThereMustBeASourceAndADestination) {
  struct Arguments {
    bool has_source;
    std::int32_t length;
    bool has_destination;
    std::int32_t capacity;
  };
  for (const CodePage code_page : kPages) {
    SCOPED_TRACE(static_cast<int>(code_page));
    for (const auto& [has_source, length, has_destination, capacity] :
         {Arguments{false, 1, true, 4}, Arguments{true, 0, true, 4}, Arguments{true, 0, false, 0},
          Arguments{true, 1, false, 4}, Arguments{true, 1, true, -1}}) {
      char bytes[4] = {};
      char16_t text[4] = {};
      std::int32_t written = 99;
      EXPECT_EQ(WideToBytes(code_page, has_source ? u"a" : nullptr, length,
                            has_destination ? bytes : nullptr, capacity, written),
                kInvalidParameter);
      EXPECT_EQ(written, 0);
      written = 99;
      EXPECT_EQ(BytesToWide(code_page, has_source ? "a" : nullptr, length,
                            has_destination ? text : nullptr, capacity, written),
                kInvalidParameter);
      EXPECT_EQ(written, 0);
    }
  }
}

}  // namespace
}  // namespace platform::contract
