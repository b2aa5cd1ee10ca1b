#include "diag/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "testing/text_printers.h"

// That a format which does not fit its arguments does not compile is shown in tests/compile_fail.

namespace zentpost {
namespace {

using test::Readable;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

TEST(Format, TextsStandAsTheyAre) {
  const std::u16string zero(u"one\0two", 7);
  const std::u16string long_text(100000, u'\u20AC');
  const char16_t* const none = nullptr;
  const std::pair<std::u16string, std::u16string> cases[] = {
      {Format(u""), u""},
      {Format(u"JSON error"), u"JSON error"},
      {Format(u"\u00E4\u20AC\U0001F4E0\n"), u"\u00E4\u20AC\U0001F4E0\n"},
      {Format(u"'%s'", u"a b"), u"'a b'"},
      {Format(u"%s%s", u"", std::u16string(u"x")), u"x"},
      {Format(u"%s|%ws", std::u16string_view(u"\u4E2D\U0001F4E0"), u"\u00E4"),
       u"\u4E2D\U0001F4E0|\u00E4"},
      {Format(u"<%s>", long_text), u"<" + long_text + u">"},
      // Conversions inside an inserted text are not read.
      {Format(u"%s", u"100 % of %s and %d and %"), u"100 % of %s and %d and %"},
      // Texts end at their first zero unit.
      {Format(u"%s.", zero), u"one."},
      {Format(u"%s.", std::u16string_view(zero)), u"one."},
      {Format(u"%s.", zero.c_str()), u"one."},
      {Format(u"[%s]", none), u"[(null)]"},
      {Format(u"%%"), u"%"},
      {Format(u"100%% %s%%", u"x"), u"100% x%"},
      {Format(u"%%s"), u"%s"},
      {Format(u"%s %d %x %s", u"a", 1, 255U, u"b"), u"a 1 ff b"},
  };
  for (const auto& [actual, expected] : cases) {
    EXPECT_EQ(actual, expected);
  }
}

TEST(Format, NumbersHaveTheirSignDigitsAndWidth) {
  const std::uint16_t port = 65535;
  const std::pair<std::u16string, std::u16string> cases[] = {
      {Format(u"%d", 0), u"0"},
      {Format(u"%d", 7), u"7"},
      {Format(u"%d", -7), u"-7"},
      {Format(u"%d", kHighest), u"2147483647"},
      {Format(u"%d", kLowest), u"-2147483648"},
      {Format(u"%d", port), u"65535"},
      {Format(u"%u", 0U), u"0"},
      {Format(u"%u", 4294967295U), u"4294967295"},
      {Format(u"%u", -1), u"4294967295"},
      {Format(u"%x", 0x8004010FU), u"8004010f"},
      {Format(u"%x", -1), u"ffffffff"},
      {Format(u"%x", kLowest), u"80000000"},
      {Format(u"%x", 0), u"0"},
      {Format(u"%X", 0xABCDEFU), u"ABCDEF"},
      // The precision is the least number of digits.
      {Format(u"%.4d", 2026), u"2026"},
      {Format(u"%.4d", 0), u"0000"},
      {Format(u"%.2d", 7), u"07"},
      {Format(u"%.2d", 123), u"123"},
      {Format(u"%.2d", -1), u"-01"},
      {Format(u"%.3u", 9U), u"009"},
      {Format(u"%.8x", 5U), u"00000005"},
      {Format(u"0x%.8x", 0x80004005U), u"0x80004005"},
      {Format(u"%.8x", -1), u"ffffffff"},
      {Format(u"%.12x", 0xABCU), u"000000000abc"},
      {Format(u"%.8X", 0xABCU), u"00000ABC"},
      // The width is filled with blanks or zeros.
      {Format(u"%5d", 42), u"   42"},
      {Format(u"%5d", -42), u"  -42"},
      {Format(u"%1d", 42), u"42"},
      {Format(u"%05d", 42), u"00042"},
      {Format(u"%05d", -42), u"-0042"},
      {Format(u"%02x", 0x5U), u"05"},
      {Format(u"%08X", 0xBEEFU), u"0000BEEF"},
      {Format(u"%0d", 42), u"42"},
      {Format(u"%6.3d", 7), u"   007"},
      {Format(u"%6.3d", -7), u"  -007"},
      {Format(u"%10u|%3u", 1U, 12345U), u"         1|12345"},
      // The precision switches the zero flag off, as in C.
      {Format(u"%08.3d", 7), u"     007"},
      {Format(u"%08.3x", 0xAU), u"     00a"},
      // What the log's time stamp is made of.
      {Format(u"%.4d/%.2d/%.2d %.2d:%.2d:%.2d", 2026, 1, 9, 3, 4, 5), u"2026/01/09 03:04:05"},
      {Format(u"%.4d/%.2d/%.2d %.2d:%.2d:%.2d", 0, 0, 0, -1, -1, -1), u"0000/00/00 -01:-01:-01"},
  };
  for (const auto& [actual, expected] : cases) {
    EXPECT_EQ(actual, expected);
  }
}

TEST(Format, PointersHaveAllTheirDigitsInUpperCase) {
  constexpr std::size_t kDigits = 2 * sizeof(void*);
  const auto pointer = [](std::uintptr_t address) {
    return reinterpret_cast<const void*>(address);
  };
  EXPECT_EQ(Format(u"%p", pointer(0)), std::u16string(kDigits, u'0'));
  EXPECT_EQ(Format(u"%p", pointer(0xABCDEF)), std::u16string(kDigits - 6, u'0') + u"ABCDEF");
  EXPECT_EQ(Format(u"%p", pointer(std::numeric_limits<std::uintptr_t>::max())),
            std::u16string(kDigits, u'F'));
  const int number = 0;
  EXPECT_EQ(Format(u"%p", &number), Format(u"%p", static_cast<const void*>(&number)));
}

// A format is held against its arguments when it is compiled, so this cannot come from Format.
TEST(Format, FormatsThatDoNotFitAreHarmlessAtRunTime) {
  struct Case {
    const char16_t* format;
    std::vector<FormatArgument> arguments;
    const char16_t* expected;
  };
  const Case cases[] = {
      {u"%s and %s", {u"a"}, u"a and "},
      {u"%d", {}, u""},
      {u"a%", {}, u"a"},
      {u"a%5", {1}, u"a"},
      {u"a%.", {1}, u"a"},
      {u"%q%s", {u"a"}, u"a"},
      {u"%s", {u"a", u"b"}, u"a"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.format));
    std::u16string out = u"> ";
    AppendFormatted(out, c.format, c.arguments);
    EXPECT_EQ(out, u"> " + std::u16string(c.expected));
  }
}

// The reader that both the compile-time check and the formatter use.
TEST(Format, ConversionsAreReadToTheirEnd) {
  using format_internal::Conversion;
  using format_internal::ReadConversion;
  const auto members = [](const Conversion& c) {
    return std::tuple(c.valid, c.length, c.zero_padded, c.width, c.precision, c.type);
  };
  // Whether it is one, its length, whether it is filled with zeros, width, precision, type.
  EXPECT_EQ(members(ReadConversion(u"%ws rest")), members({true, 3, false, 0, 0, u's'}));
  EXPECT_EQ(members(ReadConversion(u"%08X")), members({true, 4, true, 8, 0, u'X'}));
  EXPECT_EQ(members(ReadConversion(u"%19.34u")), members({true, 7, false, 19, 34, u'u'}));
  EXPECT_EQ(members(ReadConversion(u"%012.34u")), members({true, 8, false, 12, 34, u'u'}));
  // What is none, and how much of it is left out; of what has no end, all.
  const std::pair<std::u16string_view, std::size_t> cases[] = {
      {u"%", 0},   {u"%0", 0},   {u"%5", 0},  {u"%.", 0},   {u"%c", 2},
      {u"%ld", 2}, {u"%-5d", 2}, {u"%wd", 2}, {u"%hs", 2},  {u"%S", 2},
      {u"%5s", 3}, {u"%.3s", 4}, {u"%0s", 3}, {u"%5ws", 4}, {u"%5%", 3}};
  for (const auto& [text, length] : cases) {
    EXPECT_FALSE(ReadConversion(text).valid) << Readable(text);
    EXPECT_EQ(ReadConversion(text).length, length) << Readable(text);
  }
}

}  // namespace
}  // namespace zentpost
