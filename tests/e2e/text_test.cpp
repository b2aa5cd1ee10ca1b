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

// The log shows the text as it is when it has been widened, which in UTF-8 is what is sent.
TEST_F(Text, JobFileWithTextBeyondAscii) {
  SwitchLogOn();
  const Job job = {
      .document = std::string(R"(C:\Faxe\)") + kName + ".pdf", .name = kName, .recipient = kName};
  SetFile("job.json", job.File());
  ExpectDelivery({"job.json"},
                 Payload({.recipient_name = kNameOnTheWire,
                          .file_name = std::string(R"(C:\\Faxe\\)") + kNameOnTheWire + ".pdf",
                          .attachment_name = std::string(kNameOnTheWire) + ".pdf"}));
  ExpectJobFile(test::WithSuccess(job.File()));
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Text, EscapesInTheJobFileAreTheSameText) {
  SetFile("job.json", R"({"FilePath": "a", "SourceFileName": "Sch\u00e4fer \u20AC50 \u4e2d\u6587 )"
                      R"(\uD83D\uDE00 and sons"})");
  ExpectDelivery({"job.json"}, Payload({.file_name = "a",
                                        .attachment_name = std::string(kNameOnTheWire) + ".pdf"}));
}

TEST_F(Text, CommandLineWithTextBeyondAscii) {
  SwitchLogOn();
  ExpectDelivery({std::string(kName) + ".pdf", std::string("0301;E") + kName},
                 Payload({.receiver = "0301",
                          .recipient_name = kNameOnTheWire,
                          .file_name = std::string(kNameOnTheWire) + ".pdf"}),
                 NotAJobFile());
}

TEST_F(Text, JobFileWhoseNameIsBeyondAscii) {
  const std::string name = std::string(kName) + ".json";
  SetFile(name, kJobFile);
  ExpectDelivery({name}, SamplePayload());
  ExpectJobFile(JobFileDelivered(), name);
}

TEST_F(Text, MailRouteLogsTheTextItself) {
  SwitchLogOn();

  const ToolRun run = Run({"letter.pdf", std::string("0301;S") + kName});

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run,
            NotAJobFile() + Started("letter.pdf \"0301;S" + std::string(kName) + "\"") +
                NoMapiLines({.receiver = "0301", .subject = kName, .attachment = "letter.pdf"}));
}

TEST_F(Text, DivertedPayloadIsPlainUtf8) {
  for (const bool has_addin : {true, false}) {
    SCOPED_TRACE(has_addin);
    Addin addin;
    SetAddinPort(addin, has_addin);
    // The file's own name is beyond ASCII as well.
    const std::string output = std::string(kName) + ".txt";

    EXPECT_EQ(Run({"letter.pdf", std::string("0301;E") + kName + ";O" + output}).exit_code, 0);

    EXPECT_TRUE(
        Same(Payload({.receiver = "0301", .recipient_name = kName, .file_name = "letter.pdf"}),
             FileBytes("temporary/" + output)));
    KeepPayload(FileBytes("temporary/" + output));
  }
}

// U+00C3 U+00A4 are the bytes of an a-umlaut, one character each: they become these bytes again.
TEST_F(Text, DeliberateTextThatLooksLikeWidenedUtf8IsNarrowedBack) {
  ExpectDelivery({"a.pdf", "0301;SK\u00C3\u00A4se"},
                 Payload({.receiver = "0301", .file_name = "a.pdf", .subject = "K\u00C3\u00A4se"}),
                 NotAJobFile());
}

TEST_F(Text, DeliberateTextTooLongInUtf8IsLoggedAndLeftEmpty) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();

  // Nine bytes in UTF-8, and a buffer of eight.
  const ToolRun run = Run({"a.pdf", "0301;S\u4E2D\u6587\u5B57"});

  const std::string payload = Payload({.receiver = "0301", .file_name = "a.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectReceived(addin, payload);
  const std::string begin = NotAJobFile() + Started("a.pdf 0301;S\u4E2D\u6587\u5B57") +
                            test::kAddinStartLog + Error(test::kUtf8Failed) +
                            "ERROR: Code 0x0000007a --> ";
  const std::string lines = SentLines(payload);
  const std::string end = lines.substr(lines.find('\n') + 1);
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
