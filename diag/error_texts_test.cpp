#include "diag/error_texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"

namespace zentpost {
namespace {

using ErrorTexts = platform::fake::FakePlatformTest;

// Written down from the published list of texts, not copied from the table under test.
const std::map<std::uint32_t, std::u16string> kTexts = {
    {0x80004002, u"(CDO) The interface is not supported."},
    {0x80004005, u"A general not more specified error occurred."},
    {0x80040102, u"(CDO) No support."},
    {0x80040103, u"(CDO) Bad charwidth."},
    {0x80040105, u"(CDO) The string is too long."},
    {0x80040106, u"(CDO) Unknown flags."},
    {0x80040107, u"(CDO) The entryID is invalid."},
    {0x80040108, u"(CDO) The object is invalid."},
    {0x80040109, u"(CDO) The object was changed."},
    {0x8004010A, u"(CDO) The object was deleted."},
    {0x8004010B, u"(CDO) CDO is busy."},
    {0x8004010D, u"(CDO) There is not enough disk space available."},
    {0x8004010E, u"(CDO) There are not enough resources available."},
    {0x8004010F, u"(CDO) The value was not found."},
    {0x80040110, u"(CDO) Version failed."},
    {0x80040111, u"(CDO) Logon failed."},
    {0x80040112, u"(CDO) Session failed due to a session limit."},
    {0x80040113, u"(CDO) The user canceled the operation."},
    {0x80040114, u"(CDO) The system is unable to abort the routine."},
    {0x80040115, u"(CDO) A network error occured."},
    {0x80040116, u"(CDO) A disk error occured."},
    {0x80040117, u"(CDO) The call was too complex."},
    {0x80040118, u"(CDO) Bad column."},
    {0x80040119, u"(CDO) Extended Error."},
    {0x8004011A, u"(CDO) CDO call computed."},
    {0x8004011B, u"(CDO) There were corrupt data sent."},
    {0x8004011C, u"(CDO) CDO failed due to unconfigured data."},
    {0x8004011D, u"(CDO) The provider failed to connect."},
    {0x8004011E, u"(CDO) The CPID is unknown."},
    {0x8004011F, u"(CDO) The LCID is unknown."},
    {0x80040120, u"(CDO) A password change is required."},
    {0x80040121, u"(CDO) Password expired."},
    {0x80040122, u"(CDO) Invalid workstation account."},
    {0x80040123, u"(CDO) Invalid access time."},
    {0x80040124, u"(CDO) The account is disabled."},
    {0x80040200, u"(CDO) Session end."},
    {0x80040201, u"(CDO) The entryID is unknown."},
    {0x80040202, u"(CDO) Missing required column."},
    {0x80040301, u"(CDO) Bad value."},
    {0x80040302, u"(CDO) Invalid Type."},
    {0x80040303, u"(CDO) The type is not supported."},
    {0x80040304, u"(CDO) Unexpected type."},
    {0x80040305, u"(CDO) Data too big."},
    {0x80040306, u"(CDO) Decline copy."},
    {0x80040307, u"(CDO) Unexpected ID."},
    {0x80040400, u"(CDO) Unable to complete."},
    {0x80040401, u"(CDO) Timeout."},
    {0x80040402, u"(CDO) The table is empty."},
    {0x80040403, u"(CDO) Table is too big."},
    {0x80040405, u"(CDO) Invalid bookmark."},
    {0x80040500, u"(CDO) Wait."},
    {0x80040501, u"(CDO) Cancel."},
    {0x80040600, u"(CDO) Corrupt Store."},
    {0x80040601, u"(CDO) Object was not in queue."},
    {0x80040602, u"(CDO) No suppress."},
    {0x80040604, u"(CDO) Collision occured.."},
    {0x80040605, u"(CDO) Initialization (No initialize) Error."},
    {0x80040606, u"(CDO) Non standard."},
    {0x80040607, u"(CDO) No recipients."},
    {0x80040608, u"(CDO) Submitted."},
    {0x80040609, u"(CDO) Object has folders."},
    {0x8004060A, u"(CDO) Object has messages."},
    {0x80070005, u"(CDO) Access denied."},
    {0x8007000E, u"(CDO) Not enough memory available."},
    {0x80070057, u"(CDO) Invalid Parameter."},
};

TEST_F(ErrorTexts, EveryRowOfTheTable) {
  ASSERT_EQ(kTexts.size(), 65u);
  for (const auto& [code, text] : kTexts) {
    // The table comes before the system.
    fake_.SetSystemMessage(code, u"the system's own text");
    EXPECT_EQ(GetErrorText(code), text) << code;
  }
  EXPECT_EQ(fake_.CallsOf("SystemMessage").size(), 0u);
}

TEST_F(ErrorTexts, EveryOtherCodeIsTheSystems) {
  std::set<std::uint32_t> others = {0x80040104, 0x8004010C, 0x80040603, 0, 1, 0xFFFFFFFF};
  // The neighbourhood of every row, and the codes that differ from one in a single bit.
  for (const auto& [code, text] : kTexts) {
    for (std::uint32_t distance = 1; distance <= 16; ++distance) {
      others.insert({code - distance, code + distance});
    }
    for (unsigned bit = 0; bit < 32; ++bit) {
      others.insert(code ^ (std::uint32_t{1} << bit));
    }
  }
  for (const std::uint32_t code : others) {
    if (!kTexts.contains(code)) {
      fake_.Reset();
      EXPECT_EQ(GetErrorText(code), u"Unknown Error.") << code;
      EXPECT_EQ(fake_.CallsOf("SystemMessage").size(), 1u) << code;
      fake_.SetSystemMessage(code, u"the system's own text");
      EXPECT_EQ(GetErrorText(code), u"the system's own text") << code;
    }
  }
}

TEST_F(ErrorTexts, TheSystemIsAskedForTheWholeCode) {
  static_cast<void>(GetErrorText(0x80070002));
  EXPECT_EQ(fake_.Calls(), std::vector<std::string>{"SystemMessage(0x80070002)"});
}

TEST_F(ErrorTexts, TheSystemsTextIsPutOnOneLine) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"The system cannot find the file specified.\r\n",
       u"The system cannot find the file specified."},
      {u"Das System kann die angegebene Datei nicht finden: \u00E4\u20AC\r\n",
       u"Das System kann die angegebene Datei nicht finden: \u00E4\u20AC"},
      {u" \t\v\f\r\n both ends \t\v\f\r\n ", u"both ends"},
      {u"first\r\nsecond\r\n", u"firstsecond"},
      {u"one\ttab", u"onetab"},
      // Only what is at the ends is trimmed: the blanks around a line end stay.
      {u"first \r\n second", u"first  second"},
      {u"%1 is not a valid Win32 application.\r\n", u"%1 is not a valid Win32 application."},
      {std::u16string(70000, u'x') + u"\r\n", std::u16string(70000, u'x')},
      // The text for a code is never empty, even when the system's is.
      {u"", u"Unknown Error."},
      {u" ", u"Unknown Error."},
      {u" \t\r\n ", u"Unknown Error."},
  };
  for (const auto& [message, text] : cases) {
    fake_.SetSystemMessage(193, message);
    EXPECT_EQ(GetErrorText(193), text);
  }
}

// Support staff search the logs for these texts, so that their spelling stays.
TEST_F(ErrorTexts, DeliberateSpellings) {
  EXPECT_EQ(GetErrorText(0x80040604), u"(CDO) Collision occured..");
  EXPECT_EQ(GetErrorText(0x80040115), u"(CDO) A network error occured.");
  EXPECT_EQ(GetErrorText(0x80040116), u"(CDO) A disk error occured.");
  EXPECT_EQ(GetErrorText(0x80040113), u"(CDO) The user canceled the operation.");
  EXPECT_EQ(GetErrorText(0x8004010B), u"(CDO) CDO is busy.");
}

TEST_F(ErrorTexts, DeliberateOneTextHasNoPrefix) {
  for (const auto& [code, text] : kTexts) {
    EXPECT_EQ(GetErrorText(code).starts_with(u"(CDO) "), code != 0x80004005) << code;
  }
}

TEST_F(ErrorTexts, ASystemThatFailsIsAnUnknownError) {
  std::u16string text;
  const std::size_t runs = platform::fake::SweepFaults(
      {[this] { fake_.SetSystemMessage(2, u"The system cannot find the file specified.\r\n"); },
       [&text] { text = GetErrorText(2); }},
      [&text](const platform::fake::FaultRun&) { EXPECT_EQ(text, u"Unknown Error."); });
  EXPECT_EQ(runs, 2u);
}

}  // namespace
}  // namespace zentpost
