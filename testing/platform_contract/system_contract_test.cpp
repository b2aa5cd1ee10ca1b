#include "platform/system.h"

#include <limits>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

class SystemContract : public ContractTest {};

TEST_F(SystemContract, TheCommonControlsAreThere) {
  constexpr std::uint32_t kIccWin95Classes = 0xFF;
  EXPECT_TRUE(InitializeCommonControls(kIccWin95Classes));
}

TEST_F(SystemContract, DebugOutputComesAsItIsAndInOrder) {
  WriteDebugOutput(u"one");
  WriteDebugOutput(u"\n");
  // Letters of the ANSI code page: on its way to a debugger, a system may narrow the text.
  WriteDebugOutput(u"Gr\u00FC\u00DFe %s\r\n");
  WriteDebugOutput(u"end");
  EXPECT_EQ(DebugOutput(), u"one\nGr\u00FC\u00DFe %s\r\nend");
}

TEST_F(SystemContract, AnErrorCodeHasTheSystemsTextOrNone) {
  constexpr std::uint32_t kOfNoSystem = 0x2FFFFFFF;
  constexpr std::uint32_t kWithInserts = 34;
  for (const std::uint32_t code : {kAccessDenied, kWithInserts, kSocketRefused, 0U, kOfNoSystem}) {
    SCOPED_TRACE(code);
    const std::u16string stored = StoredMessage(code);
    std::u16string text = u"before";
    EXPECT_EQ(SystemMessage(code, text), stored.empty() ? kMessageNotFound : kSuccess);
    EXPECT_EQ(text, stored);
  }
  EXPECT_EQ(StoredMessage(kOfNoSystem), u"");
}

TEST_F(SystemContract, TheClockShowsThePresent) {
  constexpr std::int64_t kEarly2025 = 1'735'689'600;
  constexpr std::int64_t kEarly2100 = 4'102'444'800;
  const std::int64_t first = SecondsSinceEpoch();
  EXPECT_GT(first, kEarly2025);
  EXPECT_LT(first, kEarly2100);
  EXPECT_GE(SecondsSinceEpoch(), first);
}

TEST_F(SystemContract, AnInstantIsShownInLocalTime) {
  for (const LocalTime& expected :
       {LocalTime{2026, 11, 20, 23, 58, 7}, LocalTime{2026, 7, 1, 0, 0, 0},
        LocalTime{2024, 2, 29, 12, 0, 59}, LocalTime{1999, 12, 31, 23, 59, 59},
        LocalTime{2037, 1, 2, 3, 4, 5}, LocalTime{2045, 6, 15, 6, 30, 0}}) {
    SCOPED_TRACE(expected.year);
    LocalTime shown = {};
    ASSERT_EQ(BreakIntoLocalTime(InstantOf(expected), shown), kSuccess);
    EXPECT_EQ(shown.year, expected.year);
    EXPECT_EQ(shown.month, expected.month);
    EXPECT_EQ(shown.day, expected.day);
    EXPECT_EQ(shown.hour, expected.hour);
    EXPECT_EQ(shown.minute, expected.minute);
    EXPECT_EQ(shown.second, expected.second);
  }
}

TEST_F(SystemContract, ATimeBeyondAnyCalendarLeavesTheFieldsAlone) {
  using Limits = std::numeric_limits<std::int64_t>;
  for (const std::int64_t instant : {Limits::max(), Limits::min()}) {
    LocalTime local = {1, 2, 3, 4, 5, 6};
    EXPECT_NE(BreakIntoLocalTime(instant, local), kSuccess);
    EXPECT_EQ(local.year, 1);
    EXPECT_EQ(local.second, 6);
  }
}

}  // namespace
}  // namespace platform::contract
