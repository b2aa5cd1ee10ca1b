// Command lines that a shell or another program can hand over on every system. Quotes, apostrophes
// and blanks as they stand in the raw text are for Windows: windows/raw_command_line_test.cpp.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class CommandLine : public JobTest {};

TEST_F(CommandLine, EmptyOneEndsInTheMailRouteAndFails) {
  SwitchLogOn();

  const ToolRun run = Run({});

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(Same(Info("StartZentpost(): ") + MapiLines({}), run.log));
}

TEST_F(CommandLine, EmptyOneReachesAnAddinAsAnEmptyPayload) {
  Addin addin;
  SetAddinPort(addin);

  const ToolRun run = Run({});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, Payload({}));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): ") + AddinLines(Payload({})) + Info(kSentMessage), run.log));
}

TEST_F(CommandLine, JobFileWithABlankInItsName) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("my job.json", kJobFile);

  const ToolRun run = Run({"my job.json"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, kPayload);
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("my job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): \"my job.json\"") + AddinLines(kPayload) + Info(kSentMessage),
           run.log));
}

TEST_F(CommandLine, SecondArgumentWithASlashIsNoFaxCommand) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  EXPECT_EQ(Run({"job.json", "/0309;Sshort", "0309;Sother"}).exit_code, 0);

  ExpectDelivered(addin, kPayload);
}

TEST_F(CommandLine, EmptySecondArgumentIsAnEmptyFaxCommand) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json", "", "0309"});

  const std::string payload =
      Payload({.file = "C:\\\\Fax\\\\Letter 7.pdf", .attachment = "Letter 7.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json \"\" 0309") + AddinLines(payload) + Info(kSentMessage),
           run.log));
}

TEST_F(CommandLine, FaxCommandSkipsEmptyFieldsAndKeepsTheFirstOfAName) {
  Addin addin;
  SetAddinPort(addin);

  EXPECT_EQ(Run({"letter.pdf", ";;Sfirst;;ssecond; K  a comment ;"}).exit_code, 0);

  // Each field is trimmed as a whole, and what follows its letter is the value as it stands.
  ExpectDelivered(addin,
                  Payload({.file = "letter.pdf", .comment = "  a comment", .subject = "first"}));
}

TEST_F(CommandLine, ThirtyTwoThousandCharacters) {
  Addin addin;
  SetAddinPort(addin);
  const std::string name(32000, 'a');

  const ToolRun run = Run({name});

  const std::string payload = Payload({.file = name});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(Same(
      NotAJobFile() + Info("StartZentpost(): " + name) + AddinLines(payload) + Info(kSentMessage),
      run.log));
}

TEST_F(CommandLine, ThirtyTwoThousandCharactersOfManyArguments) {
  SetFile("job.json", kJobFile);
  std::vector<std::string> arguments = {"job.json", "0301;Sshort"};
  std::string line = "job.json 0301;Sshort";
  while (line.size() < 31990) {
    arguments.push_back("/o" + std::to_string(arguments.size() % 10));
    line += ' ' + arguments.back();
  }

  const ToolRun run = Run(arguments);

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(
      Same(Info("StartZentpost(): " + line) + MapiLines({.receiver = "0301",
                                                         .subject = "short",
                                                         .attachment = "C:\\Fax\\Letter 7.pdf",
                                                         .attachment_name = "Letter 7.pdf"}),
           run.log));
  EXPECT_TRUE(Same(JobFileNotDelivered(), FileBytes("job.json")));
}

}  // namespace
}  // namespace zentpost::e2e
