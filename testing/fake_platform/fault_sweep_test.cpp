#include "testing/fake_platform/fault_sweep.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/registry.h"
#include "platform/worker.h"
#include "testing/fake_platform/fixture.h"

namespace platform {
namespace {

using fake::FaultMode;
using fake::FaultRun;
using fake::SweepFaults;

constexpr char16_t kPath[] = u"C:\\Temp\\a.txt";

class FaultSweep : public fake::FakePlatformTest {};

// Code that is swept: copies the key's number into a file, behind what is there.
bool CopyNumber() {
  RegistryKey key;
  char number[4];
  std::uint32_t size = sizeof(number);
  return OpenKey(Hive::kCurrentUser, u"Software", kKeyRead, key) == kSuccess &&
         QueryValue(key, u"Number", nullptr, number, size) == kSuccess &&
         AppendToFile(kPath, number, size) == kSuccess;
}

void Prepare() {
  fake::TheFakePlatform().SetValue(Hive::kCurrentUser, u"Software", u"Number", kRegDword, "1234");
}

TEST_F(FaultSweep, EveryCallFailsOnceAloneAndOnceWithAllThatFollow) {
  struct Seen {
    std::string name;
    std::string call;
    FaultMode mode;
    bool operator==(const Seen&) const = default;
  };
  std::vector<Seen> seen;
  std::optional<bool> result;
  const std::size_t runs = SweepFaults(
      {[&] {
         Prepare();
         result.reset();
       },
       [&] { result = CopyNumber(); }},
      [&](const FaultRun& run) {
        EXPECT_EQ(result, false);
        EXPECT_EQ(run.status, kDiskFull);
        EXPECT_EQ(run.index, seen.size() / 2);
        EXPECT_EQ(fake_.FileBytes(kPath), std::nullopt);
        seen.push_back({run.name, run.call, run.mode});
      },
      kDiskFull);
  const std::string open = "OpenKey(HKCU, Software, 0x20019)";
  const std::string query = "QueryValue(Number, 4)";
  const std::string append = "AppendToFile(C:\\Temp\\a.txt, 4)";
  EXPECT_EQ(seen, (std::vector<Seen>{{"OpenKey", open, FaultMode::kOnce},
                                     {"OpenKey", open, FaultMode::kFromThere},
                                     {"QueryValue", query, FaultMode::kOnce},
                                     {"QueryValue", query, FaultMode::kFromThere},
                                     {"AppendToFile", append, FaultMode::kOnce},
                                     {"AppendToFile", append, FaultMode::kFromThere}}));
  EXPECT_EQ(runs, 6u);
}

TEST_F(FaultSweep, FromThereOnFailsWhatATryAgainWouldReach) {
  std::vector<std::pair<FaultMode, bool>> results;
  bool result = false;
  SweepFaults({[] {},
               [&] {
                 result = AppendToFile(kPath, "a", 1) == kSuccess ||
                          AppendToFile(kPath, "a", 1) == kSuccess;
               }},
              [&](const FaultRun& run) { results.emplace_back(run.mode, result); });
  EXPECT_EQ(results, (std::vector<std::pair<FaultMode, bool>>{{FaultMode::kOnce, true},
                                                              {FaultMode::kFromThere, false}}));
}

TEST_F(FaultSweep, PreparingIsNotPartOfTheScenario) {
  const auto prepare = [] { ASSERT_EQ(AppendToFile(kPath, "before", 6), kSuccess); };
  const std::size_t runs = SweepFaults(
      {prepare, [] { static_cast<void>(AppendToFile(kPath, "a", 1)); }}, [&](const FaultRun& run) {
        EXPECT_EQ(fake_.Calls(), std::vector<std::string>{run.call});
        EXPECT_EQ(fake_.FileBytes(kPath), "before");
        // The fault is over.
        EXPECT_EQ(AppendToFile(kPath, "b", 1), kSuccess);
      });
  EXPECT_EQ(runs, 2u);
}

TEST_F(FaultSweep, WorkersAreSweptLikeAnythingElse) {
  const auto act = [] {
    Worker worker;
    if (StartWorker([](void*) -> std::uint32_t { return AppendToFile(kPath, "w", 1); }, nullptr,
                    worker) == kSuccess) {
      static_cast<void>(WaitForWorker(worker));
    }
  };
  const std::size_t runs = SweepFaults({[] {}, act}, [&](const FaultRun& run) {
    EXPECT_EQ(fake_.FileBytes(kPath).has_value(), run.name == "WaitForWorker");
  });
  EXPECT_EQ(runs, 4u);
}

TEST_F(FaultSweep, ScenarioWithoutFallibleCallsIsAFailure) {
  EXPECT_NONFATAL_FAILURE(SweepFaults({[] {}, [] {}}, [](const FaultRun&) {}),
                          "nothing in the scenario can fail");
}

TEST_F(FaultSweep, HandleThatAFaultLeavesOpenIsAFailure) {
  RegistryKey leaked;
  const auto query = [&leaked] {
    std::uint32_t size = 0;
    return QueryValue(leaked, u"Number", nullptr, nullptr, size);
  };
  const auto act = [&] {
    leaked.Reset();
    const bool leaks = OpenKey(Hive::kCurrentUser, u"Software", kKeyRead, leaked) == kSuccess &&
                       query() != kSuccess && query() == kSuccess;
    if (!leaks) {
      leaked.Reset();
    }
  };
  EXPECT_NONFATAL_FAILURE(SweepFaults({Prepare, act}, [](const FaultRun&) {}),
                          "fallible call 1, QueryValue(Number, 0), fails once");
  fake_.Reset();
}

TEST_F(FaultSweep, ScenarioThatIsShorterTheSecondTimeIsAFailure) {
  int runs = 0;
  const auto act = [&runs] {
    if (++runs != 2) {
      static_cast<void>(AppendToFile(kPath, "a", 1));
    }
  };
  EXPECT_NONFATAL_FAILURE(SweepFaults({[] {}, act}, [](const FaultRun&) {}),
                          "this run had fewer fallible calls than the first one");
}

}  // namespace
}  // namespace platform
