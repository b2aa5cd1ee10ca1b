// The model of whole jobs gives every outcome of the table that is said to be its own, and no
// other.

#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "testing/job_model.h"
#include "testing/outcomes.h"
#include "testing/text_printers.h"
#include "tests/outcomes/random_situation.h"

namespace zentpost::test {
namespace {

using platform::fake::FaultMode;
using platform::fake::Peer;

std::string LogOf(const JobModel& model) {
  constexpr std::string_view kLog = "log ";
  std::string log;
  for (const std::string& step : model.steps) {
    if (step.starts_with(kLog)) {
      log += step.substr(kLog.size()) + "\n";
    }
  }
  return log;
}

class ModelOutcomes : public testing::Test {
 protected:
  void Run(const Situation& situation, std::optional<FaultMode> mode = std::nullopt,
           std::size_t fault_index = 0) {
    const JobModel model(situation, mode, fault_index);
    std::optional<std::string> job_file;
    std::optional<std::string> before;
    if (!situation.on_command_line) {
      before = JobFileOf(situation);
      // One that is taken for the document may go with the message.
      const auto found = model.files.find(Readable(kJobPath));
      job_file = found == model.files.end() ? std::nullopt : std::optional(found->second);
    }
    // The model's Result is never what stood there before.
    std::vector<SeenOutcome> readings =
        ReadOutcome(model.exit_code, LogOf(model), before, job_file);
    readings.erase(readings.begin(), readings.end() - 1);
    ++runs_;
    const std::optional<std::size_t> found = FindOutcome(readings);
    if (found) {
      ++given_[*found];
      // The job file may have been taken for the document.
      const bool is_there = model.files.contains(Readable(kDocumentPath)) &&
                            job_file.has_value() == before.has_value();
      EXPECT_TRUE(is_there || Outcomes()[*found].document != DocumentFate::kStays)
          << ToString(readings[0]);
      are_gone_[*found] = are_gone_[*found] || !is_there;
    } else {
      unknown_.insert(ToString(readings[0]));
    }
  }

  void ExpectNoUnknown() const {
    for (const std::string& outcome : unknown_) {
      ADD_FAILURE() << "testing/outcome_table.cpp does not have this outcome: " << outcome;
    }
  }

  std::size_t runs_ = 0;
  std::map<std::size_t, std::size_t> given_;  // how often, by their places in the table
  std::map<std::size_t, bool> are_gone_;      // whether the document ever was
  std::set<std::string> unknown_;
};

// The situations that a job can meet, as far as they lead to different outcomes.
std::vector<Situation> AllSituations() {
  std::vector<Situation> situations;
  const auto add_ways = [&](Situation situation) {
    situations.push_back(situation);
    situation.user_skip = 1;
    situations.push_back(situation);
    situation.user_skip = 0;
    situation.has_mail_client = true;
    situations.push_back(situation);
    situation.preview = true;
    situations.push_back(situation);
  };
  const auto add_peers = [&](Situation situation) {
    add_ways(situation);
    situation.connections = 1;
    add_ways(situation);
    situation.connections = platform::fake::FakePlatform::kUnlimited;
    situation.peer = Peer::kReset;
    add_ways(situation);
    situation.has_port = false;
    add_ways(situation);
  };
  add_peers({.name = "a job file"});
  add_peers({.name = "a job file, diverted", .diverted = true});
  add_peers({.name = "on the command line", .on_command_line = true});
  return situations;
}

TEST_F(ModelOutcomes, AreThoseOfTheTableWhicheverCallFails) {
  for (const Situation& situation : AllSituations()) {
    const std::size_t calls = JobModel(situation).fallible_calls;
    Run(situation);
    for (std::size_t index = 0; index < calls; index += EVERY_FAULT) {
      Run(situation, FaultMode::kOnce, index);
      Run(situation, FaultMode::kFromThere, index);
    }
  }
  ExpectNoUnknown();
  std::size_t others = 0;
  for (std::size_t place = 0; place < Outcomes().size(); ++place) {
    const Outcome& outcome = Outcomes()[place];
    const bool is_models = outcome.source == Source::kModel;
    others += is_models ? 0 : 1;
    if (EVERY_FAULT == 1 && is_models) {
      EXPECT_TRUE(are_gone_[place] || outcome.document != DocumentFate::kMayBeGone)
          << outcome.last_line;
    }
    if (EVERY_FAULT == 1 || !is_models) {
      EXPECT_EQ(given_.contains(place), is_models)
          << NameOf(outcome.route) << ", exit code " << outcome.exit_code << ", Result "
          << outcome.result << ", " << outcome.last_line;
    }
  }
  std::cout << "outcomes: " << Outcomes().size() << ", of them " << given_.size()
            << " given by the model in " << runs_ << " jobs, " << others << " by other tests\n";
}

TEST_F(ModelOutcomes, OfRandomJobsAreInTheTable) {
  std::mt19937 random(1);
  for (int job = 0; job < RANDOM_JOBS; ++job) {
    const Situation situation = RandomSituation(random).Make();
    const FaultMode mode = random() % 4 == 0 ? FaultMode::kFromThere : FaultMode::kOnce;
    constexpr std::size_t kMostCalls = 300;  // of most jobs; in the others nothing fails
    Run(situation, mode, random() % kMostCalls);
  }
  ExpectNoUnknown();
  std::cout << "random jobs: " << runs_ << ", outcomes: " << given_.size() << "\n";
}

}  // namespace
}  // namespace zentpost::test
