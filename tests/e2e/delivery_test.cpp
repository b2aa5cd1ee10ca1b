#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class Delivery : public JobTest {};

TEST_F(Delivery, JobFileReachesTheAddinAndGetsItsResult) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, kPayload);
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(kPayload) + Info(kSentMessage), run.log));
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Delivery, DocumentAloneReachesTheAddin) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();

  const ToolRun run = Run({"letter.pdf"});

  const std::string payload = Payload({.file = "letter.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_FALSE(FileExists("letter.pdf"));
  EXPECT_TRUE(Same(NotAJobFile() + Info("StartZentpost(): letter.pdf") + AddinLines(payload) +
                       Info(kSentMessage),
                   run.log));
}

TEST_F(Delivery, DocumentThatIsThereIsReadAndLeftAsItIs) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  SetFile("letter.pdf", "%PDF-1.4\r\nrest");

  const ToolRun run = Run({"letter.pdf"});

  const std::string payload = Payload({.file = "letter.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_EQ(FileBytes("letter.pdf"), "%PDF-1.4\r\nrest");
  // Text mode makes one line feed of the document's line end, and the log shows it from where the
  // parser stopped.
  EXPECT_TRUE(Same(NotAJobFile("%PDF-1.4\nrest") + Info("StartZentpost(): letter.pdf") +
                       AddinLines(payload) + Info(kSentMessage),
                   run.log));
}

TEST_F(Delivery, FaxCommandGivesADocumentItsFields) {
  Addin addin;
  SetAddinPort(addin);

  const ToolRun run = Run({"letter.pdf",
                           "0301234567;eErika Example;USam Sender;KA comment;SYour order;Z22:30;C-;"
                           "P1;B14400;Nn"});

  const std::string payload = Payload({.receiver = "0301234567",
                                       .recipient = "Erika Example",
                                       .sender = "Sam Sender",
                                       .file = "letter.pdf",
                                       .comment = "A comment",
                                       .subject = "Your order",
                                       .send_time = "22:30",
                                       .ecm = "true",
                                       .preview = "true"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(Same(NotAJobFile() +
                       Info("StartZentpost(): letter.pdf \"0301234567;eErika Example;USam "
                            "Sender;KA comment;SYour order;Z22:30;C-;P1;B14400;Nn\"") +
                       AddinLines(payload) + Info(kSentMessage),
                   run.log));
}

TEST_F(Delivery, FaxCommandReplacesAllFieldsOfTheJobFile) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json", "0309;SAnother subject"});

  const std::string payload = Payload({.receiver = "0309",
                                       .file = "C:\\\\Fax\\\\Letter 7.pdf",
                                       .attachment = "Letter 7.pdf",
                                       .subject = "Another subject"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  // The job file keeps what it said.
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json \"0309;SAnother subject\"") +
                       AddinLines(payload) + Info(kSentMessage),
                   run.log));
}

TEST_F(Delivery, OptionsLeaveTheJobAsItIs) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  const ToolRun run =
      Run({"job.json", "/Subject", "Hello", "/x", "/preview", "/FILENAME", "other.pdf", "/last"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, kPayload);
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json /Subject Hello /x /preview /FILENAME other.pdf "
                        "/last") +
                       AddinLines(kPayload) + Info(kSentMessage),
                   run.log));
}

TEST_F(Delivery, SwitchesOfAFaxCommand) {
  const struct {
    const char* fields;
    const char* ecm;
    const char* preview;
  } cases[] = {
      {"0301", "true", "false"},                                           // neither is there
      {"0301;C-;P-", "true", "false"}, {"0301;C;P", "false", "true"},      // there, and empty
      {"0301;C0;P0", "false", "true"}, {"0301;C -;P -", "false", "true"},  // not exactly the hyphen
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.fields);
    Addin addin;
    SetAddinPort(addin);

    EXPECT_EQ(Run({"letter.pdf", each.fields}).exit_code, 0);

    ExpectDelivered(
        addin,
        Payload(
            {.receiver = "0301", .file = "letter.pdf", .ecm = each.ecm, .preview = each.preview}));
  }
}

TEST_F(Delivery, JobFileWithByteOrderMarkAndWindowsLineEnds) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", "\xEF\xBB\xBF" + Replaced(kJobFile, "\n", "\r\n"));

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, kPayload);
  // Neither is written back.
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
}

TEST_F(Delivery, FormerResultIsUpdatedInItsPlaceAndKeepsItsOtherMembers) {
  Addin addin;
  SetAddinPort(addin);
  SetFile(
      "job.json",
      R"({"Result": {"Extra": [1, 2.5, null], "errortext": "old", "Status": 1}, "FilePath": "a",)"
      R"( "SourceFileName": "b.pdf.txt", "More": {"Empty": {}}})");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, Payload({.file = "a", .attachment = "b.pdf.txt"}));
  // A member's name counts whatever the case of its letters; the new item brings the name's
  // proper spelling.
  EXPECT_TRUE(
      Same("{\n"
           "\t\"Result\":\t{\n"
           "\t\t\"Extra\":\t[1, 2.5, null],\n"
           "\t\t\"ErrorText\":\t\"\",\n"
           "\t\t\"Status\":\t0,\n"
           "\t\t\"ErrorCode\":\t0\n"
           "\t},\n"
           "\t\"FilePath\":\t\"a\",\n"
           "\t\"SourceFileName\":\t\"b.pdf.txt\",\n"
           "\t\"More\":\t{\n"
           "\t\t\"Empty\":\t{\n"
           "\t\t}\n"
           "\t}\n"
           "}",
           FileBytes("job.json")));
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Delivery, JobFileWithoutDocumentIsStillAJobFile) {
  const struct {
    const char* job_file;
    const char* message;
  } cases[] = {
      {R"({"SourceFileName": "a", "Cmd": {"Receiver": ["0301"]}})",
       "GetDocumentFromJson(): Filename not found"},
      {R"({"FilePath": 7, "SourceFileName": "a", "Cmd": {"Receiver": ["0301"]}})",
       "GetDocumentFromJson(): Filename not found"},
      {R"({"FilePath": "a", "Cmd": {"Receiver": ["0301"]}})",
       "GetDocumentFromJson(): JobName not found"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.job_file);
    Addin addin;
    SetAddinPort(addin);
    SetFile("job.json", each.job_file);

    const ToolRun run = Run({"job.json"});

    const std::string payload = Payload({});
    EXPECT_EQ(run.exit_code, 0);
    ExpectDelivered(addin, payload);
    EXPECT_TRUE(Same(Error(each.message) + Error("ReadFromFile(): Read document failed") +
                         Info("StartZentpost(): job.json") + AddinLines(payload) +
                         Info(kSentMessage),
                     run.log));
    EXPECT_NE(FileBytes("job.json").find("\"Status\":\t0"), std::string::npos);
  }
}

TEST_F(Delivery, MemberNamesOfAJobFileIgnoreCaseAndValuesOfOtherTypesAreAbsent) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json",
          R"({"filepath": "a", "SOURCEFILENAME": "X.PDF", "cmd": {"parameters": {"subject": 5,)"
          R"( "comment": "c", "Ecm": true}, "commands": {"s": "by letter", "p": "1"},)"
          R"( "receiver": [17, "0302"]}})");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, Payload({.file = "a",
                                  .attachment = "X.PDF.pdf",
                                  .comment = "c",
                                  .subject = "by letter",
                                  .preview = "true"}));
}

}  // namespace
}  // namespace zentpost::e2e
