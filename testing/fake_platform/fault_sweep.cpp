#include "testing/fake_platform/fault_sweep.h"

#include <gtest/gtest.h>

#include <iostream>

namespace platform::fake {
namespace {

const char* ModeText(FaultMode mode) {
  return mode == FaultMode::kOnce ? "fails once" : "fails, and every call after it";
}

// Gives the number of calls that could have failed.
std::size_t RunWithoutFault(const FaultScenario& scenario) {
  SCOPED_TRACE("the run without a fault");
  FakePlatform& fake = TheFakePlatform();
  fake.Reset();
  scenario.prepare();
  fake.ClearCalls();
  scenario.act();
  EXPECT_EQ(fake.OpenHandles(), 0u) << "handles left open";
  return fake.FallibleCalls();
}

void RunWithFault(const FaultScenario& scenario, const std::function<void(const FaultRun&)>& check,
                  std::size_t index, FaultMode mode, Status status) {
  FakePlatform& fake = TheFakePlatform();
  fake.Reset();
  scenario.prepare();
  fake.ClearCalls();
  fake.FailCall(index, status, mode);
  scenario.act();
  fake.ClearFault();

  const std::string call = fake.FaultedCall();
  SCOPED_TRACE("fallible call " + std::to_string(index) + ", " + call + ", " + ModeText(mode));
  EXPECT_TRUE(fake.FaultTaken()) << "this run had fewer fallible calls than the first one";
  EXPECT_EQ(fake.OpenHandles(), 0u) << "handles left open";
  check({index, call.substr(0, call.find('(')), call, mode, status});
}

}  // namespace

std::size_t SweepFaults(const FaultScenario& scenario,
                        const std::function<void(const FaultRun&)>& check, Status status) {
  const std::size_t calls = RunWithoutFault(scenario);
  EXPECT_GT(calls, 0u) << "nothing in the scenario can fail";
  std::size_t runs = 0;
  for (std::size_t index = 0; index < calls; ++index) {
    for (const FaultMode mode : {FaultMode::kOnce, FaultMode::kFromThere}) {
      RunWithFault(scenario, check, index, mode, status);
      ++runs;
    }
  }
  std::cout << "fault sweep: " << calls << " fallible calls, " << runs << " runs with a fault\n";
  return runs;
}

}  // namespace platform::fake
