#include "testing/allocation_faults.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "jobfile/json_memory.h"
#include "platform/system.h"
#include "testing/fake_platform/fixture.h"

namespace zentpost::test {
namespace {

// Three allocations: a vector's storage and two numbers in it.
void AllocateThree() {
  std::vector<std::unique_ptr<int>> numbers;
  numbers.reserve(2);
  numbers.push_back(std::make_unique<int>(1));
  numbers.push_back(std::make_unique<int>(2));
}

TEST(AllocationFaults, EveryAllocationFailsOnceAndOnceFromThereOn) {
  std::vector<std::string> runs;
  const std::size_t count = SweepAllocations("three", [&runs](AllocationFaults& faults) {
    const bool has_ended = faults.Run(AllocateThree);
    runs.push_back((has_ended ? "ended after " : "thrown after ") + std::to_string(faults.Count()));
  });
  EXPECT_EQ(count, 6u);
  EXPECT_EQ(runs, (std::vector<std::string>{"ended after 3", "thrown after 1", "thrown after 1",
                                            "thrown after 2", "thrown after 2", "thrown after 3",
                                            "thrown after 3"}));
}

TEST(AllocationFaults, ModesDifferInWhatFollows) {
  for (const auto& [mode, index, failed] : {std::tuple(AllocationFaultMode::kNone, 0u, 0),
                                            std::tuple(AllocationFaultMode::kOnce, 1u, 1),
                                            std::tuple(AllocationFaultMode::kFromThere, 1u, 3),
                                            std::tuple(AllocationFaultMode::kFromThere, 4u, 0)}) {
    AllocationFaults faults(mode, index);
    int failures = 0;
    EXPECT_TRUE(faults.Run([&failures] {
      for (int i = 0; i < 4; ++i) {
        const std::unique_ptr<char[]> block(new (std::nothrow) char[8]);
        failures += block == nullptr ? 1 : 0;
      }
    }));
    EXPECT_EQ(failures, failed);
    EXPECT_EQ(faults.Count(), 4u);
    EXPECT_EQ(faults.Live(), 0u);
  }
}

TEST(AllocationFaults, JsonTreesAreMetToo) {
  std::size_t failed = 0;
  SweepAllocations("a tree", [&failed](AllocationFaults& faults) {
    cJSON* tree = nullptr;
    const JsonMemoryWatch memory;
    EXPECT_TRUE(faults.Run([&tree] { tree = cJSON_Parse("{\"a\": \"b\"}"); }));
    EXPECT_EQ(tree == nullptr, faults.Taken());
    EXPECT_EQ(memory.RanOut(), faults.Taken());
    failed += tree == nullptr ? 1 : 0;
    cJSON_Delete(tree);
  });
  // The object, its member, the member's name and its text.
  EXPECT_EQ(failed, 8u);
}

TEST(AllocationFaults, BlocksThatOutliveTheRunAreSeenUntilTheyAreFreed) {
  AllocationFaults faults(AllocationFaultMode::kFromThere, 1);
  std::unique_ptr<int> number;
  EXPECT_TRUE(faults.Run([&number] { number = std::make_unique<int>(1); }));
  EXPECT_EQ(faults.Live(), 1u);
  EXPECT_NO_THROW(AllocateThree());  // outside the run nothing fails
  number.reset();
  EXPECT_EQ(faults.Live(), 0u);
}

using AllocationFaultsOnTheMachine = platform::fake::FakePlatformTest;

TEST_F(AllocationFaultsOnTheMachine, TheMachinesOwnBookkeepingNeitherCountsNorFails) {
  const std::u16string text(1000, u'x');
  SweepAllocations("one line", [&](AllocationFaults& faults) {
    fake_.Reset();
    const bool has_ended = faults.Run([&text] {
      platform::WriteDebugOutput(text.c_str());
      AllocateThree();
    });
    EXPECT_EQ(has_ended, !faults.Taken());
    EXPECT_EQ(fake_.DebugOutput(), std::vector<std::u16string>{text});
    if (!faults.Taken()) {
      EXPECT_EQ(faults.Count(), 3u);
    }
  });
}

}  // namespace
}  // namespace zentpost::test
