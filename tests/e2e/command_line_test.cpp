// Command lines that a shell or another program can hand over on every system. Quotes, apostrophes
// and blanks as they stand in the raw text are for Windows: windows/raw_command_line_test.cpp.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class CommandLine : public JobTest {
 protected:
  // What the sample's payload becomes when a fax command takes the place of its fields.
  const test::PayloadText without_fields_ = {.file_name = R"(C:\\Fax\\Letter 7.pdf)",
                                             .attachment_name = "Letter 7.pdf"};
};

TEST_F(CommandLine, EmptyOneEndsInTheMailRouteAndFails) {
  SwitchLogOn();

  const ToolRun run = Run({});

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run, Started("") + NoMapiLines({}));
}

TEST_F(CommandLine, EmptyOneReachesAnAddinAsAnEmptyPayload) {
  ExpectDelivery({}, Payload({}));
}

TEST_F(CommandLine, SecondArgumentWithASlashIsNoFaxCommand) {
  SetFile("job.json", kJobFile);
  ExpectDelivery({"job.json", "/0309;Sshort", "0309;Sother"}, SamplePayload());
}

TEST_F(CommandLine, EmptySecondArgumentIsAnEmptyFaxCommand) {
  SetFile("job.json", kJobFile);
  ExpectDelivery({"job.json", "", "0309"}, Payload(without_fields_));
}

// Each field is trimmed as a whole, and what follows its letter is the value as it stands.
TEST_F(CommandLine, FaxCommandSkipsEmptyFieldsAndKeepsTheFirstOfAName) {
  ExpectDelivery({"letter.pdf", ";;Sfirst;;ssecond; K  a comment ;"},
                 Payload({.file_name = "letter.pdf", .comment = "  a comment", .subject = "first"}),
                 NotAJobFile());
}

TEST_F(CommandLine, ThirtyTwoThousandCharacters) {
  const std::string name(32000, 'a');
  ExpectDelivery({name}, Payload({.file_name = name}), NotAJobFile());
}

TEST_F(CommandLine, ThirtyTwoThousandCharactersOfManyArguments) {
  SetFile("job.json", kJobFile);
  std::vector<std::string> arguments = {"job.json", "0301;Sshort"};
  while (CommandLineOf(arguments).size() < 31990) {
    arguments.push_back("/o" + std::to_string(arguments.size() % 10));
  }

  const ToolRun run = Run(arguments);

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run,
            Started(CommandLineOf(arguments)) + NoMapiLines({.receiver = "0301",
                                                             .subject = "short",
                                                             .attachment = "C:\\Fax\\Letter 7.pdf",
                                                             .attachment_name = "Letter 7.pdf"}));
  ExpectJobFile(JobFileNotDelivered());
}

}  // namespace
}  // namespace zentpost::e2e
