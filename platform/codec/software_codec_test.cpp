// What the contract of all back-ends leaves open. The rest is in
// testing/platform_contract/text_codec_contract_test.cpp.
#include "platform/codec/software_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/codec/best_fit_1252.h"

namespace platform::software {
namespace {

using namespace std::string_literals;

std::u16string Widen(const char* bytes, std::int32_t length) {
  char16_t text[32] = {};
  std::int32_t written = 0;
  EXPECT_EQ(software::BytesToWide(CodePage::kUtf8, bytes, length, text, 32, written), kSuccess);
  return std::u16string(text, static_cast<std::size_t>(written));
}

// Wine's conversion does so, and the host must not hide from the tests what comes of it: a
// conversion of a zero-terminated source can lack its terminator.
TEST(SoftwareCodec, DeliberateASequenceCutOffByTheEndTakesWhatIsLeftWithIt) {
  EXPECT_EQ(Widen("a\xE2"
                  "b",
                  3),
            u"a\uFFFD");
  EXPECT_EQ(Widen("a\xE2"
                  "bc",
                  4),
            u"a\uFFFDbc");
  EXPECT_EQ(Widen("a\xF0"
                  "bc",
                  4),
            u"a\uFFFD");
  EXPECT_EQ(Widen("caf\xE9", -1), u"caf\uFFFD");
  EXPECT_EQ(Widen("caf\xE9s", -1), u"caf\uFFFDs\0"s);
}

TEST(SoftwareCodec, APairOfSurrogatesIsNotWrittenByHalves) {
  constexpr std::string_view kBytes = "\xF0\x9F\x98\x80";
  char16_t text[2] = {u'x', u'x'};
  std::int32_t written = 99;
  EXPECT_EQ(software::BytesToWide(CodePage::kUtf8, kBytes.data(), 4, text, 1, written),
            kInsufficientBuffer);
  EXPECT_EQ(written, 0);
  EXPECT_EQ(text[1], u'x');
}

TEST(SoftwareCodec, ThereAreNoOtherCodePages) {
  char bytes[4] = {};
  char16_t text[4] = {};
  std::int32_t written = 99;
  EXPECT_EQ(software::WideToBytes(static_cast<CodePage>(437), u"a", 1, bytes, 4, written),
            kInvalidParameter);
  EXPECT_EQ(written, 0);
  written = 99;
  EXPECT_EQ(software::BytesToWide(static_cast<CodePage>(437), "a", 1, text, 4, written),
            kInvalidParameter);
  EXPECT_EQ(written, 0);
}

TEST(SoftwareCodec, TheBestFitsStandInOrder) {
  const auto* const overlap =
      std::adjacent_find(std::begin(kBestFits), std::end(kBestFits),
                         [](const BestFitRun& run, const BestFitRun& next) {
                           return run.first + run.stand_ins.size() > next.first;
                         });
  EXPECT_EQ(overlap, std::end(kBestFits));
}

}  // namespace
}  // namespace platform::software
