// Jobs that reach the add-in: what of the job file and of the command line comes to stand where.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class Delivery : public JobTest {};

TEST_F(Delivery, JobFileReachesTheAddinAndGetsItsResult) {
  SwitchLogOn();
  SetFile("job.json", kJobFile);
  ExpectDelivery({"job.json"}, SamplePayload());
  ExpectJobFile(JobFileDelivered());
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Delivery, DocumentAloneReachesTheAddin) {
  SwitchLogOn();
  ExpectDelivery({"letter.pdf"}, Payload({.file_name = "letter.pdf"}), NotAJobFile());
  EXPECT_FALSE(FileExists("letter.pdf"));
}

// Text mode makes one line feed of the document's line end, and the log shows it from where the
// parser stopped.
TEST_F(Delivery, DocumentThatIsThereIsReadAndLeftAsItIs) {
  SwitchLogOn();
  SetFile("letter.pdf", "%PDF-1.4\r\nrest");
  ExpectDelivery({"letter.pdf"}, Payload({.file_name = "letter.pdf"}),
                 NotAJobFile("%PDF-1.4\nrest"));
  EXPECT_EQ(FileBytes("letter.pdf"), "%PDF-1.4\r\nrest");
}

TEST_F(Delivery, FaxCommandGivesADocumentItsFields) {
  ExpectDelivery({"letter.pdf",
                  "0301234567;eErika Example;USam Sender;KA comment;SYour order;Z22:30;C-;"
                  "P1;B14400;Nn"},
                 Payload({.receiver = "0301234567",
                          .recipient_name = "Erika Example",
                          .sender_name = "Sam Sender",
                          .file_name = "letter.pdf",
                          .comment = "A comment",
                          .subject = "Your order",
                          .send_time = "22:30",
                          .ecm = true,
                          .preview = true}),
                 NotAJobFile());
}

TEST_F(Delivery, FaxCommandReplacesAllFieldsOfTheJobFile) {
  SetFile("job.json", kJobFile);
  ExpectDelivery({"job.json", "0309;SAnother subject"},
                 Payload({.receiver = "0309",
                          .file_name = "C:\\\\Fax\\\\Letter 7.pdf",
                          .attachment_name = "Letter 7.pdf",
                          .subject = "Another subject"}));
  // The job file keeps what it said.
  ExpectJobFile(JobFileDelivered());
}

TEST_F(Delivery, OptionsLeaveTheJobAsItIs) {
  SetFile("job.json", kJobFile);
  ExpectDelivery(
      {"job.json", "/Subject", "Hello", "/x", "/preview", "/FILENAME", "other.pdf", "/last"},
      SamplePayload());
}

TEST_F(Delivery, SwitchesOfAFaxCommand) {
  const struct {
    const char* fields;
    bool ecm;
    bool preview;
  } cases[] = {
      {"0301", true, false},                                       // neither is there
      {"0301;C-;P-", true, false}, {"0301;C;P", false, true},      // there, and empty
      {"0301;C0;P0", false, true}, {"0301;C -;P -", false, true},  // not exactly the hyphen
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.fields);
    ExpectDelivery({"letter.pdf", each.fields},
                   Payload({.receiver = "0301",
                            .file_name = "letter.pdf",
                            .ecm = each.ecm,
                            .preview = each.preview}),
                   NotAJobFile());
  }
}

// Neither is written back.
TEST_F(Delivery, JobFileWithByteOrderMarkAndWindowsLineEnds) {
  SetFile("job.json", "\xEF\xBB\xBF" + Replaced(kJobFile, "\n", "\r\n"));
  ExpectDelivery({"job.json"}, SamplePayload());
  ExpectJobFile(JobFileDelivered());
}

// A member's name counts whatever the case of its letters; the new item brings the name's proper
// spelling.
TEST_F(Delivery, FormerResultIsUpdatedInItsPlaceAndKeepsItsOtherMembers) {
  SetFile(
      "job.json",
      R"({"Result": {"Extra": [1, 2.5, null], "errortext": "old", "Status": 1}, "FilePath": "a",)"
      R"( "SourceFileName": "b.pdf.txt", "More": {"Empty": {}}})");
  ExpectDelivery({"job.json"}, Payload({.file_name = "a", .attachment_name = "b.pdf.txt"}));
  ExpectJobFile(R"({
	"Result":	{
		"Extra":	[1, 2.5, null],
		"ErrorText":	"",
		"Status":	0,
		"ErrorCode":	0
	},
	"FilePath":	"a",
	"SourceFileName":	"b.pdf.txt",
	"More":	{
		"Empty":	{
		}
	}
})");
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Delivery, JobFileWithoutDocumentIsStillAJobFile) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"SourceFileName": "a", "Cmd": {"Receiver": ["0301"]}})", test::kNoFilePathLog},
      {R"({"FilePath": 7, "SourceFileName": "a", "Cmd": {"Receiver": ["0301"]}})",
       test::kNoFilePathLog},
      {R"({"FilePath": "a", "Cmd": {"Receiver": ["0301"]}})", test::kNoSourceFileNameLog},
  };
  for (const auto& [job_file, log] : cases) {
    SCOPED_TRACE(job_file);
    SetFile("job.json", job_file);
    ExpectDelivery({"job.json"}, Payload({}), log);
    EXPECT_NE(FileBytes("job.json").find("\"Status\":\t0"), std::string::npos);
  }
}

TEST_F(Delivery, MemberNamesOfAJobFileIgnoreCaseAndValuesOfOtherTypesAreAbsent) {
  SetFile("job.json",
          R"({"filepath": "a", "SOURCEFILENAME": "X.PDF", "cmd": {"parameters": {"subject": 5,)"
          R"( "comment": "c", "Ecm": true}, "commands": {"s": "by letter", "p": "1"},)"
          R"( "receiver": [17, "0302"]}})");
  ExpectDelivery({"job.json"}, Payload({.file_name = "a",
                                        .attachment_name = "X.PDF.pdf",
                                        .comment = "c",
                                        .subject = "by letter",
                                        .preview = true}));
}

}  // namespace
}  // namespace zentpost::e2e
