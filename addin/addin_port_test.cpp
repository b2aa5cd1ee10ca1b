#include "addin/addin_port.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fixture.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using Calls = std::vector<std::string>;

constexpr char16_t kKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char16_t kValue[] = u"TolvanAddinPort";

class AddinPort : public platform::fake::MachineTest {
 protected:
  void SetPort(std::u16string_view text, std::uint32_t type = platform::kRegSz) {
    machine_.SetString(Hive::kCurrentUser, kKey, kValue, text, type);
  }
  void SetRaw(std::uint32_t type, std::string_view bytes) {
    machine_.SetValue(Hive::kCurrentUser, kKey, kValue, type, bytes);
  }

  struct Case {
    const char16_t* text;
    std::uint16_t port;
  };
  void ExpectPorts(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SetPort(c.text);
      EXPECT_EQ(ReadAddinPort(), c.port) << test::Readable(c.text);
    }
  }
};

TEST_F(AddinPort, WithoutTheUsersKeyOrValueThereIsNone) {
  machine_.SetString(Hive::kLocalMachine, kKey, kValue, u"5000");
  EXPECT_EQ(ReadAddinPort(), 0);
  EXPECT_EQ(machine_.Calls(), Calls{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)"});
  machine_.AddKey(Hive::kCurrentUser, kKey);
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, TheValueIsReadIntoTwentyCharactersEachTime) {
  SetPort(u"5000");
  EXPECT_EQ(ReadAddinPort(), 5000);
  EXPECT_EQ(machine_.Calls(), (Calls{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                                     "QueryValue(TolvanAddinPort, 40)"}));
  SetPort(u"5001");
  EXPECT_EQ(ReadAddinPort(), 5001);
}

TEST_F(AddinPort, TextIsReadAsADecimalNumber) {
  ExpectPorts({
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
  });
}

// Installations have such numbers, and their add-ins listen on what is left of them. Beyond 32 bits
// a number stops at the nearest that fits.
TEST_F(AddinPort, DeliberateOnlyTheLow16BitsOfTheNumberCount) {
  ExpectPorts({
      {u"70000", 4464},
      {u"-1", 65535},
      {u"-65535", 1},
      {u"-5000", 60536},
      {u"65536", 0},
      {u"65537", 1},
      {u"2147483647", 65535},
      {u"2147483648", 65535},
      {u"4294972296", 65535},
      {u"9999999999999999999", 65535},
      {u"-2147483647", 1},
      {u"-2147483648", 0},
      {u"-2147483649", 0},
      {u"-999999999999999999", 0},
  });
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

TEST_F(AddinPort, DeliberateDataOfAnyTypeIsReadAsText) {
  using namespace std::string_view_literals;
  struct Data {
    const char* name;
    std::uint32_t type;
    std::string_view bytes;
    std::uint16_t port;
  };
  const Data cases[] = {
      {"no terminator", platform::kRegSz, "5\0000\0000\0001\0"sv, 5001},
      {"half a terminator", platform::kRegSz, "5\0001\0\0"sv, 51},
      {"half a character", platform::kRegSz, "5\0001"sv, 51},
      {"no data, REG_SZ", platform::kRegSz, ""sv, 0},
      {"no data, REG_EXPAND_SZ", platform::kRegExpandSz, ""sv, 0},
      {"no data, REG_BINARY", platform::kRegBinary, ""sv, 0},
      {"a terminator alone", platform::kRegSz, "\0\0"sv, 0},
      {"more behind the terminator", platform::kRegSz, "5\0\0\0001\0\0\0"sv, 5},
      {"narrow text", platform::kRegSz, "5001"sv, 0},
      {"text as REG_BINARY", platform::kRegBinary, "5\0000\0000\0001\0\0\0"sv, 5001},
      {"the number 5000", platform::kRegDword, "\x88\x13\0\0"sv, 0},
      {"a number with the bytes of 78", platform::kRegDword, "7\0008\0"sv, 78},
  };
  for (const Data& data : cases) {
    SetRaw(data.type, data.bytes);
    EXPECT_EQ(ReadAddinPort(), data.port) << data.name;
  }
}

TEST_F(AddinPort, NothingIsExpanded) {
  SetPort(u"5000", platform::kRegExpandSz);
  EXPECT_EQ(ReadAddinPort(), 5000);
  SetPort(u"%PORT%", platform::kRegExpandSz);
  EXPECT_EQ(ReadAddinPort(), 0);
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
