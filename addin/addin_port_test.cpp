#include "addin/addin_port.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
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

class AddinPort : public platform::fake::FakePlatformTest {
 protected:
  void SetPort(std::u16string_view text) {
    fake_.SetString(Hive::kCurrentUser, kKey, kValue, text);
  }
  void SetRaw(std::uint32_t type, std::string_view bytes) {
    fake_.SetValue(Hive::kCurrentUser, kKey, kValue, type, bytes);
  }

  void ExpectPort(std::uint16_t port, std::initializer_list<const char16_t*> texts) {
    for (const char16_t* text : texts) {
      SetPort(text);
      EXPECT_EQ(ReadAddinPort(), port) << test::Readable(text);
    }
  }
};

TEST_F(AddinPort, WithoutTheUsersKeyOrValueThereIsNone) {
  fake_.SetString(Hive::kLocalMachine, kKey, kValue, u"5000");
  EXPECT_EQ(ReadAddinPort(), 0);
  EXPECT_EQ(fake_.Calls(), Calls{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)"});
  fake_.AddKey(Hive::kCurrentUser, kKey);
  EXPECT_EQ(ReadAddinPort(), 0);
}

TEST_F(AddinPort, TheValueIsReadIntoTwentyCharactersEachTime) {
  SetPort(u"5000");
  EXPECT_EQ(ReadAddinPort(), 5000);
  EXPECT_EQ(fake_.Calls(), (Calls{"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                                  "QueryValue(TolvanAddinPort, 40)"}));
  SetPort(u"5001");
  EXPECT_EQ(ReadAddinPort(), 5001);
}

TEST_F(AddinPort, TextIsReadAsADecimalNumber) {
  ExpectPort(5000, {u"5000", u"  5000", u"\t\n\v\f\r 5000", u"5000  ", u"+5000", u"  +5000",
                    u"00005000", u"5000.9"});
  ExpectPort(0, {u"0", u"-0", u"", u"abc", u"   ", u"0x10", u"abc5000", u"+", u"-", u"- 5", u"+ 5",
                 u"--5", u"+-5"});
  ExpectPort(1, {u"1"});
  ExpectPort(5, {u"5 000", u"5,000"});
  ExpectPort(12, {u"12abc"});
  ExpectPort(65535, {u"65535"});
}

// Installations have such numbers, and their add-ins listen on what is left of them. Beyond 32 bits
// a number stops at the nearest that fits.
TEST_F(AddinPort, DeliberateOnlyTheLow16BitsOfTheNumberCount) {
  ExpectPort(0, {u"65536", u"-2147483648", u"-2147483649", u"-999999999999999999"});
  ExpectPort(1, {u"65537", u"-65535", u"-2147483647"});
  ExpectPort(4464, {u"70000"});
  ExpectPort(60536, {u"-5000"});
  ExpectPort(65535, {u"-1", u"2147483647", u"2147483648", u"4294972296", u"9999999999999999999"});
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
      {"REG_EXPAND_SZ", platform::kRegExpandSz, "5\0000\0000\0001\0\0\0"sv, 5001},
      {"text as REG_BINARY", platform::kRegBinary, "5\0000\0000\0001\0\0\0"sv, 5001},
      {"the number 5000", platform::kRegDword, "\x88\x13\0\0"sv, 0},
      {"a number with the bytes of 78", platform::kRegDword, "7\0008\0"sv, 78},
  };
  for (const Data& data : cases) {
    SetRaw(data.type, data.bytes);
    EXPECT_EQ(ReadAddinPort(), data.port) << data.name;
  }
}

TEST_F(AddinPort, AFailingRegistryMeansNone) {
  SetPort(u"5000");
  for (const char* call : {"OpenKey", "QueryValue"}) {
    SCOPED_TRACE(call);
    fake_.FailCallOf(call, 0, platform::kAccessDenied);
    EXPECT_EQ(ReadAddinPort(), 0);
    EXPECT_TRUE(fake_.FaultTaken());
  }
  EXPECT_EQ(ReadAddinPort(), 5000);
}

}  // namespace
}  // namespace zentpost
