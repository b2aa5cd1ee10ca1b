// The Extended MAPI route on a machine that has no mail client, and the ways around it.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

class MailRoute : public JobTest {};

TEST_F(MailRoute, LogsTheJobAndFails) {
  SwitchLogOn();
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 1);
  ExpectJobFile(JobFileNotDelivered());
  ExpectLog(run, Started() + NoMapiLines(SampleMapi()));
}

TEST_F(MailRoute, DeliberateEcmLineIsInverted) {
  const struct {
    const char* fields;
    bool ecm;
    bool preview;
  } cases[] = {{"0301", true, false},
               {"0301;C-;P-", true, false},
               {"0301;C;P", false, true},
               {"0301;C1;P1", false, true}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.fields);

    const ToolRun run = Run({"letter.pdf", each.fields});

    EXPECT_EQ(run.exit_code, 1);
    ExpectLog(run, NotAJobFile() + Started("letter.pdf " + std::string(each.fields)) +
                       NoMapiLines({.receiver = "0301",
                                    .attachment = "letter.pdf",
                                    .ecm = each.ecm,
                                    .preview = each.preview}));
  }
}

TEST_F(MailRoute, SkipExtendedMapiIsAskedOfTheUserAndThenOfTheMachine) {
  ForEachClientNumber(registry::kSkipExtendedMapi, [](Machine& machine, bool is_skipped) {
    WriteBytes(machine.Folder() / "job.json", kJobFile);

    const ProcessRun run = RunProcess(Setting("tool"), {"job.json"}, machine.Options());

    EXPECT_EQ(run.exit_code, is_skipped ? 0 : 1);
    EXPECT_TRUE(Same(is_skipped ? JobFileDelivered() : JobFileNotDelivered(),
                     ReadBytes(machine.Folder() / "job.json").value_or("")));
    EXPECT_EQ(run.debug_output.find("SendMail(") == std::string::npos, is_skipped);
  });
}

}  // namespace
}  // namespace zentpost::e2e
