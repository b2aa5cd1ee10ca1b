#include "diag/client_settings.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"

namespace zentpost {
namespace {

using platform::Hive;
using ClientSettings = platform::fake::FakePlatformTest;
using Calls = std::vector<std::string>;

constexpr char16_t kKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kName[] = u"LogLevel";

TEST_F(ClientSettings, TheUsersNumberCountsUnlessItIsZeroOrAbsent) {
  struct Case {
    std::optional<std::uint32_t> user;
    std::optional<std::uint32_t> machine;
    std::uint32_t expected;
  };
  const Case cases[] = {
      {{}, {}, 0},
      {{}, 0, 0},
      {{}, 3, 3},
      {0, {}, 0},
      {0, 0, 0},
      {0, 3, 3},
      {5, {}, 5},
      {5, 0, 5},
      {5, 3, 5},
      {0xFFFFFFFF, 3, 0xFFFFFFFF},
      {0x80000000, {}, 0x80000000},
  };
  // Nothing is remembered of the case before.
  for (const Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    fake_.Reset();
    // A key without the value says nothing, as one that is missing.
    fake_.SetDword(Hive::kCurrentUser, kKey, u"Other", 1);
    if (c.user) {
      fake_.SetDword(Hive::kCurrentUser, kKey, kName, *c.user);
    }
    if (c.machine) {
      fake_.SetDword(Hive::kLocalMachine, kKey, kName, *c.machine);
    }
    EXPECT_EQ(ReadClientNumber(kName), c.expected);
  }
}

TEST_F(ClientSettings, TheMachinesKeyIsReadWhenTheUsersDoesNotCountEachOpenOnlyForReading) {
  const Calls user = {"OpenKey(HKCU, Software\\Sollvex\\FaxClient, 0x20019)",
                      "QueryValue(LogLevel, 4)"};
  const Calls machine = {"OpenKey(HKLM, Software\\Sollvex\\FaxClient, 0x20019)",
                         "QueryValue(LogLevel, 4)"};
  fake_.SetDword(Hive::kLocalMachine, kKey, kName, 2);
  EXPECT_EQ(ReadClientNumber(kName), 2u);
  // A key that is not there needs no closing before the machine's is asked.
  EXPECT_EQ(fake_.Calls(), (Calls{user[0], machine[0], machine[1]}));
  fake_.ClearCalls();
  fake_.SetDword(Hive::kCurrentUser, kKey, kName, 0);
  EXPECT_EQ(ReadClientNumber(kName), 2u);
  EXPECT_EQ(fake_.Calls(), (Calls{user[0], user[1], "CloseKey(HKCU\\Software\\Sollvex\\FaxClient)",
                                  machine[0], machine[1]}));
  fake_.ClearCalls();
  fake_.SetDword(Hive::kCurrentUser, kKey, kName, 1);
  EXPECT_EQ(ReadClientNumber(kName), 1u);
  EXPECT_EQ(fake_.Calls(), user);
}

TEST_F(ClientSettings, DeliberateDataOfAnyTypeIsReadAsUpToFourBytes) {
  struct Case {
    const char* name;
    std::uint32_t type;
    std::string bytes;
    std::uint32_t expected;
  };
  const Case cases[] = {
      {"text of one character", platform::kRegSz, std::string("1\0\0\0", 4), 0x31},
      {"one byte", platform::kRegBinary, std::string("\x02", 1), 2},
      {"four bytes", platform::kRegBinary, "\x01\x02\x03\x04", 0x04030201},
      {"no bytes", platform::kRegBinary, "", 0},
      {"empty text", platform::kRegSz, std::string(2, '\0'), 0},
      {"text of two characters", platform::kRegSz, std::string("1\0002\0\0\0", 6), 0},
      {"eight bytes", platform::kRegBinary, std::string(8, '\1'), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fake_.Reset();
    fake_.SetValue(Hive::kCurrentUser, kKey, kName, c.type, c.bytes);
    EXPECT_EQ(ReadClientNumber(kName), c.expected);
    // Whatever counts as absent for the user is looked up for the machine.
    fake_.SetDword(Hive::kLocalMachine, kKey, kName, 77);
    EXPECT_EQ(ReadClientNumber(kName), c.expected == 0 ? 77 : c.expected);
  }
}

TEST_F(ClientSettings, EveryCallOfARead) {
  std::uint32_t number = 0;
  const platform::fake::FaultScenario scenario = {
      [this] {
        fake_.SetDword(Hive::kCurrentUser, kKey, kName, 0);
        fake_.SetDword(Hive::kLocalMachine, kKey, kName, 9);
      },
      [&number] { number = ReadClientNumber(kName); }};
  const std::size_t runs =
      platform::fake::SweepFaults(scenario, [&number](const platform::fake::FaultRun& run) {
        const bool user_failed =
            run.call == "OpenKey(HKCU, Software\\Sollvex\\FaxClient, 0x20019)" || run.index == 1;
        // The user's part failing is like a user without the value; all that comes later decides.
        const bool is_found = user_failed && run.mode == platform::fake::FaultMode::kOnce;
        EXPECT_EQ(number, is_found ? 9u : 0u);
      });
  EXPECT_EQ(runs, 10u);
}

// The machine's value is asked for only once the user's key is properly closed.
TEST_F(ClientSettings, DeliberateAUserKeyThatDoesNotCloseEndsTheSearch) {
  fake_.SetDword(Hive::kCurrentUser, kKey, kName, 0);
  fake_.SetDword(Hive::kLocalMachine, kKey, kName, 9);
  fake_.FailCallOf("CloseKey", 0, platform::kInvalidHandle);
  EXPECT_EQ(ReadClientNumber(kName), 0u);
  EXPECT_TRUE(fake_.FaultTaken());
  EXPECT_EQ(fake_.CallsOf("OpenKey").size(), 1u);
}

}  // namespace
}  // namespace zentpost
