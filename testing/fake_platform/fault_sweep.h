// The fault sweep: proves for every platform call of a scenario that the code under test stands its
// failure. It decides nothing about what the right reaction is; the caller's check does.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "platform/status.h"
#include "testing/fake_platform/fake_platform.h"

namespace platform::fake {

// One run with a fault.
struct FaultRun {
  std::size_t index;  // which of the scenario's fallible calls fails, from 0
  std::string name;   // that call's function: "OpenKey"
  std::string call;   // the whole call, as FakePlatform::Calls tells it
  FaultMode mode;
  Status status;  // what it fails with
};

// Plays a run through once more, for a check that works out what has to come of it.
class FaultReplay {
 public:
  explicit FaultReplay(const FaultRun& run) : run_(run) {}

  // Whether the next fallible call, which has to be one of `name`, failed.
  bool Fails(std::string_view name) {
    const std::size_t here = calls_++;
    if (here == run_.index) {
      EXPECT_EQ(run_.name, name);
    }
    return here == run_.index || (run_.mode == FaultMode::kFromThere && here > run_.index);
  }

 private:
  FaultRun run_;
  std::size_t calls_ = 0;
};

// What is run. `prepare` starts from a fresh machine, prepares it and sets back whatever `act`
// leaves behind in the test; its own platform calls do not fail. `act` runs the code under test and
// has let go of every handle when it returns. Each is called once per run.
struct FaultScenario {
  std::function<void()> prepare;
  std::function<void()> act;
};

// Runs the scenario once without a fault and counts its fallible calls, N. Then runs it twice for
// each of them: with that call failing alone, and with that call and every later one failing; each
// time the fault is over when `check` is called, which sees the machine as `act` left it and
// expects what has to hold. The sweep itself expects that each fault was met and that no handle is
// open. Every failure is reported with the call that was made to fail.
//
// Prints and gives the number of runs with a fault, 2 * N. 0 is a failure: such a scenario proves
// nothing. The machine is as the last run left it.
std::size_t SweepFaults(const FaultScenario& scenario,
                        const std::function<void(const FaultRun&)>& check,
                        Status status = kGeneralFailure);

}  // namespace platform::fake
