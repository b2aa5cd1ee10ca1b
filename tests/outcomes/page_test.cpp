// That the table can be read, and tells of lines that the log can have.
#include "tests/outcomes/page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <tuple>

#include "testing/outcomes.h"
#include "tools/doctor/log_texts.h"

namespace zentpost::test {
namespace {

// A line may have a text in place of what differs, or stand for its beginning.
bool IsTextOfTheLog(std::string line) {
  if (const std::size_t place = line.find("TEXT"); place != std::string::npos) {
    line.replace(place, 4, "%s");
  }
  for (const doctor::LogRoutine& routine : doctor::LogRoutines()) {
    for (const doctor::LogText& text : routine.texts) {
      if (text.text.starts_with(line)) {
        return true;
      }
    }
  }
  return false;
}

TEST(OutcomeTable, HasEachOutcomeOnceAndSaysWhatToDo) {
  std::set<std::tuple<Route, int, std::string_view, std::string_view>> seen;
  for (const Outcome& outcome : Outcomes()) {
    SCOPED_TRACE(std::string(NameOf(outcome.route)) + ", " + std::string(outcome.result) + ", " +
                 std::string(outcome.last_line));
    EXPECT_TRUE(
        seen.insert({outcome.route, outcome.exit_code, outcome.result, outcome.last_line}).second);
    EXPECT_TRUE(outcome.cause.ends_with('.'));
    EXPECT_TRUE(outcome.advice.ends_with('.'));
    EXPECT_FALSE(NameOf(outcome.remedy).empty());
    // Whoever has been told that the job was delivered does not send it again.
    EXPECT_FALSE(outcome.exit_code == 0 && outcome.remedy == Remedy::kRetry);
    EXPECT_FALSE(outcome.exit_code == 1 && outcome.remedy == Remedy::kNothing);
  }
}

TEST(OutcomeTable, HasLinesThatTheLogCanHave) {
  for (const Outcome& outcome : Outcomes()) {
    if (outcome.last_line != kAnyLine) {
      const std::string line(outcome.last_line);
      EXPECT_TRUE(IsTextOfTheLog(line.substr(line.find(": ") + 2))) << line;
    }
  }
  for (const LineOfLoss& line : LinesOfLoss()) {
    EXPECT_TRUE(IsTextOfTheLog(std::string(line.text))) << line.text;
  }
  EXPECT_FALSE(IsTextOfTheLog("SendMail(): Nothing of the kind."));
}

// A place for an outcome that comes first in the table is not taken by one that comes later.
TEST(OutcomeTable, IsReadFromItsTop) {
  SeenOutcome seen = {Route::kExtendedMapi, 1, "1, -2147024882, \"MAPI Error\"",
                      "ERROR: SendMail(): The attachment cannot be added."};
  const auto result_of = [](const SeenOutcome& outcome) -> std::string_view {
    const auto found = FindOutcome({&outcome, 1});
    return found ? Outcomes()[*found].result : "nothing";
  };
  EXPECT_EQ(result_of(seen), seen.result);
  seen.result = "1, -2147221233, \"MAPI Error\"";
  EXPECT_EQ(result_of(seen), "1, -NUMBER, \"MAPI Error\"");
  seen.result = "1, -, \"MAPI Error\"";
  EXPECT_EQ(result_of(seen), "nothing");
  seen.result = "1, 4, \"MAPI Error\"";
  EXPECT_EQ(result_of(seen), "nothing");
}

TEST(OutcomeTable, HasWhatOnlyMissingMemoryGivesForThatAlone) {
  const SeenOutcome seen = {Route::kNone, 1, "none", ""};
  EXPECT_FALSE(FindOutcome({&seen, 1}));
  EXPECT_TRUE(FindOutcome({&seen, 1}, true));
  EXPECT_NE(OutcomeProblem({&seen, 1}), "");
  EXPECT_EQ(OutcomeProblem({&seen, 1}, true), "");
}

TEST(ReadOutcome, TellsTheRouteAndTheLastLineThatTells) {
  const std::string log =
      "INFO: StartZentpost(): a.json\n"
      "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n"
      "INFO: ProcessToOutlookClient(): Created JSON:\r\n{\n\t\"ERROR: \"\n}\r\n\n";
  const SeenOutcome seen = ReadOutcome(0, log, "{}", "{}")[0];
  EXPECT_EQ(ToString(seen),
            "Add-in | exit code 0 | Result none | INFO: ProcessToOutlookClient(): Created JSON:");
  EXPECT_EQ(ToString(ReadOutcome(1,
                                 log + "INFO: ProcessToExtendedMapi(): Parameters :\n"
                                       "ERROR: SendMail(): MAPILogonEx failed.\n"
                                       "ERROR: Code 0x80040111 --> (CDO) The logon failed.\n"
                                       "DEBUG: SendMail(): cleanup.\n"
                                       "INFO: DoMAPIFastShutdown(): Function in progress.\n"
                                       "DEBUG: DoMAPIFastShutdown(): Fast shutdown failed.\n"
                                       "DEBUG: Code 0x80040111 --> (CDO) The logon failed.\n"
                                       "INFO: DoMAPIFastShutdown(): Function end.\n"
                                       "DEBUG: SendMail(): Function end.\n",
                                 std::nullopt, std::nullopt)[0]),
            "Add-in, then Extended MAPI | exit code 1 | Result none | "
            "ERROR: SendMail(): MAPILogonEx failed.");
  EXPECT_EQ(ToString(ReadOutcome(1, "", std::nullopt, std::nullopt)[0]),
            "No route | exit code 1 | Result none | ");
}

TEST(ReadOutcome, TellsTheResult) {
  const auto results = [](const std::string& before, const std::string& after) {
    std::string text;
    for (const SeenOutcome& seen : ReadOutcome(0, "", before, after)) {
      text += seen.result + "; ";
    }
    return text;
  };
  const std::string told = R"({"Result": {"Status": 1, "ErrorCode": -5, "ErrorText": "x"}})";
  EXPECT_EQ(results("{}", told), "1, -5, \"x\"; ");
  EXPECT_EQ(results("{}", "{}"), "none; ");
  EXPECT_EQ(results("{}", ""), "broken; ");
  EXPECT_EQ(results("{}", told.substr(0, 20)), "broken; ");
  EXPECT_EQ(results("no JSON", "no JSON"), "none; ");
  EXPECT_EQ(results("{}", R"({"Result": {"Status": 1}})"), "a part of one; ");
  // What stood there before may be this job's as well.
  EXPECT_EQ(results(told, told), "1, -5, \"x\"; none; ");
}

}  // namespace
}  // namespace zentpost::test
