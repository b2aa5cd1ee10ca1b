// Text beyond ASCII on its way through the tool: job file and command line, log, wire, diverted
// file.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

// An a-umlaut, the Euro sign, two ideographs and a face from beyond the Basic Multilingual Plane,
// among enough ASCII to fit into the conversion's buffer of two bytes a unit.
constexpr char kName[] = "Sch\u00E4fer \u20AC50 \u4E2D\u6587 \U0001F600 and sons";
// The same as UTF-8 bytes, each read as a character of Windows-1252 and then put in UTF-8:
// C3 A4; E2 82 AC; E4 B8 AD, E6 96 87; F0 9F 98 80.
constexpr char kNameOnTheWire[] =
    "Sch\u00C3\u00A4fer \u00E2\u201A\u00AC50 \u00E4\u00B8\u00AD\u00E6\u2013\u2021 "
    "\u00F0\u0178\u02DC\u20AC and sons";

class Text : public JobTest {};

TEST_F(Text, JobFileWithTextBeyondAscii) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  SetFile("job.json", std::string(R"({"FilePath": "C:\\Faxe\\)") + kName +
                          R"(.pdf", "SourceFileName": ")" + kName +
                          R"(", "Cmd": {"Parameters": {"RecipientName": ")" + kName + R"("}}})");

  const ToolRun run = Run({"job.json"});

  const std::string wire = Payload({.recipient = kNameOnTheWire,
                                    .file = std::string(R"(C:\\Faxe\\)") + kNameOnTheWire + ".pdf",
                                    .attachment = std::string(kNameOnTheWire) + ".pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, wire);
  // The log shows the text as it is when it has been widened, which in UTF-8 is what is sent.
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(wire) + Info(kSentMessage), run.log));
  EXPECT_TRUE(Same(std::string("{\n\t\"FilePath\":\t\"C:\\\\Faxe\\\\") + kName +
                       ".pdf\",\n\t\"SourceFileName\":\t\"" + kName +
                       "\",\n\t\"Cmd\":\t{\n\t\t\"Parameters\":\t{\n\t\t\t\"RecipientName\":\t\"" +
                       kName +
                       "\"\n\t\t}\n\t},\n\t\"Result\":\t{\n\t\t\"Status\":\t0,\n"
                       "\t\t\"ErrorCode\":\t0,\n\t\t\"ErrorText\":\t\"\"\n\t}\n}",
                   FileBytes("job.json")));
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Text, EscapesInTheJobFileAreTheSameText) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", R"({"FilePath": "a", "SourceFileName": "Sch\u00e4fer \u20AC50 \u4e2d\u6587 )"
                      R"(\uD83D\uDE00 and sons"})");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin,
                  Payload({.file = "a", .attachment = std::string(kNameOnTheWire) + ".pdf"}));
}

TEST_F(Text, CommandLineWithTextBeyondAscii) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  const std::string document = std::string(kName) + ".pdf";
  const std::string fax_command = std::string("0301;E") + kName;

  const ToolRun run = Run({document, fax_command});

  const std::string wire = Payload({.receiver = "0301",
                                    .recipient = kNameOnTheWire,
                                    .file = std::string(kNameOnTheWire) + ".pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, wire);
  EXPECT_TRUE(Same(NotAJobFile() +
                       Info("StartZentpost(): \"" + document + "\" \"" + fax_command + "\"") +
                       AddinLines(wire) + Info(kSentMessage),
                   run.log));
}

TEST_F(Text, JobFileWhoseNameIsBeyondAscii) {
  Addin addin;
  SetAddinPort(addin);
  const std::string name = std::string(kName) + ".json";
  SetFile(name, kJobFile);

  const ToolRun run = Run({name});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, kPayload);
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes(name)));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): \"" + name + "\"") + AddinLines(kPayload) + Info(kSentMessage),
           run.log));
}

TEST_F(Text, MailRouteLogsTheTextItself) {
  SwitchLogOn();

  const ToolRun run = Run({"letter.pdf", std::string("0301;S") + kName});

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(Same(
      NotAJobFile() + Info(std::string("StartZentpost(): letter.pdf \"0301;S") + kName + "\"") +
          MapiLines({.receiver = "0301", .subject = kName, .attachment = "letter.pdf"}),
      run.log));
}

TEST_F(Text, DivertedPayloadIsPlainUtf8) {
  for (const bool has_addin : {true, false}) {
    SCOPED_TRACE(has_addin);
    Addin addin;
    SetAddinPort(has_addin ? std::to_string(addin.port()) : "0");
    // The file's own name is beyond ASCII as well.
    const std::string output = std::string(kName) + ".txt";

    EXPECT_EQ(Run({"letter.pdf", std::string("0301;E") + kName + ";O" + output}).exit_code, 0);

    const std::string payload =
        Payload({.receiver = "0301", .recipient = kName, .file = "letter.pdf"});
    EXPECT_TRUE(Same(payload, FileBytes("temporary/" + output)));
    KeepPayload(FileBytes("temporary/" + output));
  }
}

TEST_F(Text, DeliberateTextThatLooksLikeWidenedUtf8IsNarrowedBack) {
  Addin addin;
  SetAddinPort(addin);

  // U+00C3 U+00A4 are the bytes of an a-umlaut, one character each: they become these bytes again.
  EXPECT_EQ(Run({"a.pdf", "0301;SK\u00C3\u00A4se"}).exit_code, 0);

  ExpectDelivered(addin,
                  Payload({.receiver = "0301", .file = "a.pdf", .subject = "K\u00C3\u00A4se"}));
}

TEST_F(Text, DeliberateTextTooLongInUtf8IsLoggedAndLeftEmpty) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();

  // Nine bytes in UTF-8, and a buffer of eight.
  const ToolRun run = Run({"a.pdf", "0301;S\u4E2D\u6587\u5B57"});

  const std::string payload = Payload({.receiver = "0301", .file = "a.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  const std::string begin =
      NotAJobFile() + Info("StartZentpost(): a.pdf 0301;S\u4E2D\u6587\u5B57") +
      Info("ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.") +
      Error("_utf8(): The utf-8 forward conversion failed.") + " - ERROR  : Code 0x0000007a --> ";
  const std::string end =
      Info("ProcessToOutlookClient(): Created JSON:\r\n" + payload + "\r\n") + Info(kSentMessage);
  // The text for 122 (insufficient buffer) is the system's, in its language.
  ASSERT_GT(run.log.size(), begin.size() + end.size());
  EXPECT_TRUE(Same(begin, run.log.substr(0, begin.size())));
  EXPECT_TRUE(Same(end, run.log.substr(run.log.size() - end.size())));
  const std::string code_text =
      run.log.substr(begin.size(), run.log.size() - begin.size() - end.size());
  EXPECT_EQ(code_text.find('\n'), code_text.size() - 1);
  EXPECT_GT(code_text.size(), 1U);
}

}  // namespace
}  // namespace zentpost::e2e
