#include "addin/addin_port.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fixture.h"

namespace zentpost {
namespace {

using platform::Hive;

constexpr char16_t kKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char16_t kValue[] = u"TolvanAddinPort";

class AddinPort : public platform::fake::MachineTest {
 protected:
  void SetPort(std::u16string_view text) {
    machine_.SetString(Hive::kCurrentUser, kKey, kValue, text);
  }
  void SetRaw(std::uint32_t type, std::string_view bytes) {
    machine_.SetValue(Hive::kCurrentUser, kKey, kValue, type, bytes);
  }
};

TEST_F(AddinPort, WithoutTheKeyThereIsNone) {
  EXPECT_EQ(ReadAddinPort(), 0);
  EXPECT_EQ(machine_.Calls(),
            (std::vector<std::string>{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)"}));
}

TEST_F(AddinPort, WithoutTheValueThereIsNone) {
  machine_.AddKey(Hive::kCurrentUser, kKey);
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, TheValueIsReadIntoTwentyCharacters) {
  SetPort(u"5000");
  EXPECT_EQ(ReadAddinPort(), 5000);
  EXPECT_EQ(machine_.Calls(),
            (std::vector<std::string>{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                                      "QueryValue(TolvanAddinPort, 40)"}));
}

TEST_F(AddinPort, OnlyTheCurrentUsersValueCounts) {
  machine_.SetString(Hive::kLocalMachine, kKey, kValue, u"5000");
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, IsReadAfreshEachTime) {
  SetPort(u"5000");
  EXPECT_EQ(ReadAddinPort(), 5000);
  SetPort(u"5001");
  EXPECT_EQ(ReadAddinPort(), 5001);
}

TEST_F(AddinPort, TextIsReadAsADecimalNumber) {
  struct Case {
    const char16_t* text;
    std::uint16_t port;
  };
  const Case kCases[] = {
      {u"5000", 5000},
      {u"1", 1},
      {u"65535", 65535},
      {u"0", 0},
      {u"-0", 0},
      {u"", 0},
      {u"abc", 0},
      {u"   ", 0},
      {u"  5000", 5000},
      {u"\t\n\v\f\r 5000", 5000},
      {u"5000  ", 5000},
      {u"+5000", 5000},
      {u"  +5000", 5000},
      {u"00005000", 5000},
      {u"12abc", 12},
      {u"5 000", 5},
      {u"5,000", 5},
      {u"5000.9", 5000},
      {u"0x10", 0},
      {u"abc5000", 0},
      {u"+", 0},
      {u"-", 0},
      {u"- 5", 0},
      {u"+ 5", 0},
      {u"--5", 0},
      {u"+-5", 0},
      {u"0000000000000005000", 5000},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::u16string(test.text)));
    SetPort(test.text);
    EXPECT_EQ(ReadAddinPort(), test.port);
  }
}

// Installations have such numbers, and their add-ins listen on what is left of them.
TEST_F(AddinPort, DeliberateOnlyTheLow16BitsOfTheNumberCount) {
  struct Case {
    const char16_t* text;
    std::uint16_t port;
  };
  const Case kCases[] = {
      {u"70000", 4464},
      {u"-1", 65535},
      {u"-65535", 1},
      {u"-5000", 60536},
      {u"65536", 0},
      {u"65537", 1},
      {u"2147483647", 65535},
      // Beyond 32 bits a number stops at the nearest that fits.
      {u"2147483648", 65535},
      {u"4294972296", 65535},
      {u"9999999999999999999", 65535},
      {u"-2147483647", 1},
      {u"-2147483648", 0},
      {u"-2147483649", 0},
      {u"-999999999999999999", 0},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::u16string(test.text)));
    SetPort(test.text);
    EXPECT_EQ(ReadAddinPort(), test.port);
  }
}

TEST_F(AddinPort, TheTextHoldsNineteenCharacters) {
  SetPort(u"0000000000000005001");  // 19 and the terminator: 40 bytes
  EXPECT_EQ(ReadAddinPort(), 5001);
  SetPort(u"00000000000000005001");  // 42 bytes do not fit
  EXPECT_EQ(ReadAddinPort(), 0);
  // 20 without a terminator fit, but the last one is not looked at.
  std::string bytes;
  for (const char digit : std::string("00000000000000050012")) {
    bytes.append({digit, '\0'});
  }
  ASSERT_EQ(bytes.size(), 40u);
  SetRaw(platform::kRegSz, bytes);
  EXPECT_EQ(ReadAddinPort(), 5001);
}

TEST_F(AddinPort, DataNeedNotBeWellFormed) {
  using namespace std::string_view_literals;
  struct Case {
    const char* name;
    std::uint32_t type;
    std::string_view bytes;
    std::uint16_t port;
  };
  const Case kCases[] = {
      {"no terminator", platform::kRegSz, "5\0000\0000\0001\0"sv, 5001},
      {"half a terminator", platform::kRegSz, "5\0001\0\0"sv, 51},
      {"half a character", platform::kRegSz, "5\0001"sv, 51},
      {"no data, REG_SZ", platform::kRegSz, ""sv, 0},
      {"no data, REG_EXPAND_SZ", platform::kRegExpandSz, ""sv, 0},
      {"no data, REG_BINARY", platform::kRegBinary, ""sv, 0},
      {"a terminator alone", platform::kRegSz, "\0\0"sv, 0},
      {"more behind the terminator", platform::kRegSz, "5\0\0\0001\0\0\0"sv, 5},
      {"narrow text", platform::kRegSz, "5001"sv, 0},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    SetRaw(test.type, test.bytes);
    EXPECT_EQ(ReadAddinPort(), test.port);
  }
}

TEST_F(AddinPort, NothingIsExpanded) {
  machine_.SetString(Hive::kCurrentUser, kKey, kValue, u"5000", platform::kRegExpandSz);
  EXPECT_EQ(ReadAddinPort(), 5000);
  machine_.SetString(Hive::kCurrentUser, kKey, kValue, u"%PORT%", platform::kRegExpandSz);
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, ANumberValueIsNoPort) {
  machine_.SetDword(Hive::kCurrentUser, kKey, kValue, 5000);
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, DeliberateOtherTypesAreReadAsTextToo) {
  using namespace std::string_view_literals;
  SetRaw(platform::kRegBinary, "5\0000\0000\0001\0\0\0"sv);
  EXPECT_EQ(ReadAddinPort(), 5001);
  machine_.SetDword(Hive::kCurrentUser, kKey, kValue, 0x00380037);  // the bytes of "78"
  EXPECT_EQ(ReadAddinPort(), 78);
}

TEST_F(AddinPort, AFailingRegistryMeansNone) {
  SetPort(u"5000");
  for (const char* call : {"OpenKey", "QueryValue"}) {
    SCOPED_TRACE(call);
    machine_.FailCallOf(call, 0, platform::kAccessDenied);
    EXPECT_EQ(ReadAddinPort(), 0);
    EXPECT_TRUE(machine_.FaultTaken());
  }
  EXPECT_EQ(ReadAddinPort(), 5000);
}

}  // namespace
}  // namespace zentpost
