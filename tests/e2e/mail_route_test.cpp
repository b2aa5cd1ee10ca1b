// The Extended MAPI route on a machine that has no mail client, and the ways around it.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class MailRoute : public JobTest {};

TEST_F(MailRoute, LogsTheJobAndFails) {
  SwitchLogOn();
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(Same(JobFileNotDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLinesOfJobFile(), run.log));
}

TEST_F(MailRoute, DeliberateEcmLineIsInverted) {
  const struct {
    const char* fields;
    const char* ecm;
    const char* preview;
  } cases[] = {{"0301", "True", "False"},
               {"0301;C-;P-", "True", "False"},
               {"0301;C;P", "False", "True"},
               {"0301;C1;P1", "False", "True"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.fields);

    const ToolRun run = Run({"letter.pdf", each.fields});

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Same(NotAJobFile() +
                         Info("StartZentpost(): letter.pdf " + std::string(each.fields)) +
                         MapiLines({.receiver = "0301",
                                    .attachment = "letter.pdf",
                                    .ecm = each.ecm,
                                    .preview = each.preview}),
                     run.log));
  }
}

TEST_F(MailRoute, SkipExtendedMapiIsAskedOfTheUserAndThenOfTheMachine) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not write to HKEY_LOCAL_MACHINE";
  }
  constexpr int kAbsent = -1;
  const struct {
    int user;
    int machine;
    bool is_skipped;
  } cases[] = {{kAbsent, kAbsent, false}, {0, kAbsent, false}, {kAbsent, 0, false}, {0, 0, false},
               {1, kAbsent, true},        {1, 0, true},        {7, 1, true},        {0, 1, true},
               {kAbsent, 1, true}};
  for (const auto& each : cases) {
    SCOPED_TRACE("user " + std::to_string(each.user) + ", machine " + std::to_string(each.machine));
    Machine machine;  // without the former case's values
    if (each.user != kAbsent) {
      machine.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi,
                        static_cast<std::uint32_t>(each.user));
    }
    if (each.machine != kAbsent) {
      machine.SetNumber(Hive::kLocalMachine, registry::kFaxClientKey, registry::kSkipExtendedMapi,
                        static_cast<std::uint32_t>(each.machine));
    }
    WriteBytes(machine.Folder() / "job.json", kJobFile);

    const ToolRun run = Run({"job.json"}, machine.Options());

    EXPECT_EQ(run.exit_code, each.is_skipped ? 0 : 1);
    EXPECT_TRUE(Same(each.is_skipped ? JobFileDelivered() : JobFileNotDelivered(),
                     ReadBytes(machine.Folder() / "job.json").value_or("")));
    EXPECT_TRUE(
        Same(Info("StartZentpost(): job.json") + MapiLinesOfJobFile(!each.is_skipped), run.log));
  }
}

TEST_F(MailRoute, SkippedJobWithoutAJobFileSucceeds) {
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);

  const ToolRun run = Run({"letter.pdf"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(Same(NotAJobFile() + Info("StartZentpost(): letter.pdf") +
                       MapiLines({.attachment = "letter.pdf", .is_sent = false}),
                   run.log));
}

}  // namespace
}  // namespace zentpost::e2e
