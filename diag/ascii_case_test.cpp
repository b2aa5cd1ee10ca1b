#include "diag/ascii_case.h"

#include <gtest/gtest.h>

#include <string_view>

namespace zentpost {
namespace {

TEST(AsciiCase, OnlyTheLettersFromAToZHaveTwo) {
  constexpr std::u16string_view kUpper = u"ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  constexpr std::u16string_view kLower = u"abcdefghijklmnopqrstuvwxyz";
  for (unsigned number = 0; number <= 0xFFFF; ++number) {
    const auto unit = static_cast<char16_t>(number);
    const std::size_t upper = kUpper.find(unit);
    const std::size_t lower = kLower.find(unit);
    ASSERT_EQ(ToLower(unit), upper < kLower.size() ? kLower[upper] : unit);
    ASSERT_EQ(ToUpper(unit), lower < kUpper.size() ? kUpper[lower] : unit);
  }
}

}  // namespace
}  // namespace zentpost
