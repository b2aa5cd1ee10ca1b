// Whole jobs with every call failing, one after the other: those to the system and those to the
// mail client's library. What is expected of such a run is not recorded but worked out by JobModel.

#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "testing/fake_platform/fault_sweep.h"
#include "testing/job_model.h"
#include "testing/mapi_test.h"
#include "testing/text_printers.h"
#include "tests/outcomes/random_situation.h"
#include "tests/whole_job/whole_job.h"

namespace zentpost {
namespace {

using platform::fake::FaultRun;
using platform::fake::Peer;
using test::JobModel;
using test::Lines;
using test::Situation;

const Situation kWithoutMailClient[] = {
    {.name = "the add-in takes it", .user_log_level = 1},
    {.name = "the add-in takes it, unlogged", .has_result = true},
    {.name = "the add-in refuses after the probe", .connections = 1, .machine_log_level = 1},
    {.name = "the peer resets", .peer = Peer::kReset},
    {.name = "the peer never reads", .peer = Peer::kNeverRead},
    {.name = "diverted", .diverted = true},
    {.name = "diverted without an add-in", .diverted = true, .has_port = false},
    {.name = "no port", .has_port = false, .user_log_level = 1},
    {.name = "no port, a result from before", .has_result = true, .has_port = false},
    {.name = "nothing listens", .peer = std::nullopt},
    {.name = "sending is skipped", .has_port = false, .user_skip = 1},
    {.name = "on the command line", .on_command_line = true, .user_log_level = 1},
    {.name = "on the command line, no port", .on_command_line = true, .has_port = false},
};

class JobFaultSweep : public test::WholeJobTest {
 protected:
  void ExpectOutcome(const JobModel& expected) {
    EXPECT_EQ(exit_code_, expected.exit_code);
    EXPECT_EQ(Lines(test::StepsOfTheJob()), Lines(expected.steps));
    std::string debug_output;
    for (const std::u16string& text : fake_.DebugOutput()) {
      debug_output += test::Readable(text);
    }
    EXPECT_EQ(debug_output, expected.debug_output);
    std::map<std::string, std::string> files;
    for (const std::u16string& path : fake_.FilePaths()) {
      files[test::Readable(path)] = fake_.FileBytes(path).value_or("");
    }
    EXPECT_EQ(files, expected.files);
    EXPECT_EQ(fake_.Connections(), expected.connections);
    EXPECT_EQ(mapi_->SavedAttachments(), expected.attachments);
    EXPECT_EQ(mapi_->Accounts(), expected.accounts);
    if (expected.waits) {
      EXPECT_EQ(fake_.SleepCount(), *expected.waits);
    }
  }

  // Gives the number of runs with a fault.
  std::size_t Sweep(const Situation& situation) {
    SCOPED_TRACE(situation.name);
    const JobModel faultless(situation);
    // Without its watchdog a send to a peer that never reads lasts as long as that peer lives. In
    // the run in which the watchdog alone cannot be started, the peer therefore dies.
    const bool has_silent_peer = situation.peer == Peer::kNeverRead && faultless.watchdog;
    const std::size_t unwatched_run = has_silent_peer ? 1 + 2 * *faultless.watchdog : 0;
    std::size_t run = 0;
    const platform::fake::FaultScenario in_sweep = {
        .prepare =
            [&] {
              SetUpJob(situation);
              if (has_silent_peer && run == unwatched_run) {
                fake_.Listen(5000, Peer::kReset);
              }
              ++run;
            },
        .act =
            [&] {
              RunJob(situation);
              if (run == 1) {
                ExpectOutcome(faultless);
                EXPECT_EQ(fake_.FallibleCalls(), faultless.fallible_calls);
              }
            },
    };
    std::cout << situation.name << ": ";
    return platform::fake::SweepFaults(
        in_sweep,
        [&](const FaultRun& fault) { ExpectOutcome(JobModel(situation, fault.mode, fault.index)); },
        test::kFault);
  }
};

TEST_F(JobFaultSweep, EveryFailureHasItsOutcome) {
  std::size_t runs = 0;
  for (const Situation& situation : kWithoutMailClient) {
    runs += Sweep(situation);
  }
  std::cout << "whole jobs with a fault: " << runs << " runs\n";
}

TEST_F(JobFaultSweep, EveryFailureOnTheWayToTheMailClientHasItsOutcome) {
  for (const bool leaves_garbage : {false, true}) {
    SCOPED_TRACE(leaves_garbage ? "with garbage" : "with null");
    failures_leave_garbage_ = leaves_garbage;
    std::size_t runs = 0;
    for (const Situation& situation : test::kWithMailClient) {
      runs += Sweep(situation);
    }
    std::cout << "whole jobs through MAPI with a fault that leaves "
              << (leaves_garbage ? "garbage" : "null") << " behind: " << runs << " runs\n";
  }
}

// The model holds for more than the situations above.
TEST_F(JobFaultSweep, RandomJobsEndAsTheModelSays) {
  std::mt19937 random(2);
  constexpr int kJobs = 1000;
  int faults = 0;
  for (int job = 0; job < kJobs; ++job) {
    const Situation situation = test::RandomSituation(random).Make();
    const std::size_t index = random() % 300;
    const JobModel faultless(situation);
    // Whether or not it is cancelled, a send to a peer that never reads takes long.
    const bool is_faulty = index < faultless.fallible_calls && situation.peer != Peer::kNeverRead;
    SCOPED_TRACE("job " + std::to_string(job) + ", call " + std::to_string(index));
    StartOver(situation);
    fake_.ClearCalls();
    if (is_faulty) {
      fake_.FailCall(index, test::kFault);
      ++faults;
    }
    RunJob(situation);
    fake_.ClearFault();
    ExpectOutcome(is_faulty ? JobModel(situation, platform::fake::FaultMode::kOnce, index)
                            : faultless);
    if (HasFailure()) {
      break;
    }
  }
  std::cout << "random whole jobs: " << kJobs << ", " << faults << " of them with a fault\n";
}

// A write that stops half way leaves half a job file: it is rewritten in place, and what is lost
// then cannot be had back. Nothing of the old file is mixed into the new one.
TEST_F(JobFaultSweep, AJobFileIsNeverAMixtureOfOldAndNew) {
  const Situation& situation = kWithoutMailClient[0];
  const std::string whole = JobModel(situation).files.at(test::Readable(test::kJobPath));
  for (const std::size_t written : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
    StartOver(situation);
    fake_.SetBytesBeforeFault(written);
    fake_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
    RunJob(situation);
    EXPECT_EQ(exit_code_, 0);
    EXPECT_EQ(fake_.FileBytes(test::kJobPath), whole.substr(0, written));
  }
}

}  // namespace
}  // namespace zentpost
