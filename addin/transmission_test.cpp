#include "addin/transmission.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/sockets.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/steps.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::fake::Peer;
using test::LogText;
using test::PayloadText;

constexpr char16_t kPortKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";
constexpr std::uint16_t kPort = 5000;
constexpr std::uint16_t kWinsockVersion = 0x0202;

const std::string kJobFile =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

// The connections' bytes.
using Sent = std::vector<std::string>;

class Transmission : public platform::fake::MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    Furnish();
  }

  // A machine with a job file and a configured port, on which nothing listens yet.
  void Furnish() {
    ASSERT_EQ(platform::StartSockets(kWinsockVersion), platform::kSuccess);
    machine_.SetFile(kJobName, kJobFile);
    machine_.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"5000");
    machine_.ClearCalls();
  }

  std::string JobFile() const { return machine_.FileBytes(kJobName).value_or("no job file"); }
};

JobParameters Job() {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  params.arguments.Add(u"jobname", kJobName);
  params.faxFields.Add(u"S", u"A subject");
  params.faxFields.Add(u"+FAX", u"0301234567");
  params.fromJobFile = true;
  return params;
}

JobParameters JobWith(const std::u16string& name, const std::u16string& value) {
  JobParameters params = Job();
  params.faxFields.Add(name, value);
  return params;
}

PayloadText JobsPayload() {
  return {.receiver = "0301234567",
          .file_name = "C:\\\\docs\\\\fax.pdf",
          .attachment_name = "Letter.pdf",
          .subject = "A subject"};
}

// The log of every job with a payload up to the point where its ways part. `payload` is what the
// log shows of it.
std::string LogStart(const std::string& payload) {
  return "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n"
         "INFO: ProcessToOutlookClient(): Created JSON:\r\n" +
         payload + "\r\n\n";
}

TEST_F(Transmission, AJobThatIsTakenIsDelivered) {
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.Connections(), Sent{JobsPayload().Bytes()});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()) +
                           "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
}

TEST_F(Transmission, StepsFollowOneAnother) {
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  const std::string payload = JobsPayload().Bytes();
  const std::string size = std::to_string(payload.size());
  const std::string job_size = std::to_string(kJobFile.size());
  const std::string result_size = std::to_string(test::WithSuccess(kJobFile).size());
  EXPECT_EQ(
      test::Steps(),
      (std::vector<std::string>{
          "log INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
          "log INFO: ProcessToOutlookClient(): Created JSON:\r\n" + payload + "\r\n",
          "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
          "QueryValue(TolvanAddinPort, 40)", "Create()", "Connect(127.0.0.1, 5000)",
          "StartWorker()", "Send(" + size + ")", "WaitForWorker()",
          "log INFO: ProcessToOutlookClient(): The JSON payload successfully sent.",
          "OpenFileAt(C:\\jobs\\a.json, kRead)", "QueryFileSize(C:\\jobs\\a.json)",
          "ReadBytes(C:\\jobs\\a.json, " + job_size + ")", "OpenFileAt(C:\\jobs\\a.json, kRewrite)",
          "WriteBytes(C:\\jobs\\a.json, " + result_size + ")"}));
}

struct FailureCase {
  const char* name;
  void (*arrange)(platform::fake::Machine& machine);
  bool has_payload;
  const char* log;
  std::int32_t code;
  const char* text;
  Sent sent;
};

TEST_F(Transmission, EachFailureHasItsLineAndItsResult) {
  using platform::fake::Machine;
  const std::string payload = JobsPayload().Bytes();
  const FailureCase kCases[] = {
      {"the payload cannot be widened",
       [](Machine& machine) {
         machine.Listen(kPort);
         machine.FailCallOf("BytesToWide", 0, platform::kInvalidParameter);
       },
       false,
       "ERROR: ProcessToOutlookClient(): The JSON creation failed.\n",
       1000,
       "Outlook: Data encoding failure.",
       {}},
      {"the port is 0",
       [](Machine& machine) {
         machine.Listen(kPort);
         machine.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"0");
       },
       true,
       "ERROR: ProcessToOutlookClient(): The communication port is not valid.\n",
       1002,
       "OutlookClient: Unknown destination.",
       {}},
      {"the port cannot be read",
       [](Machine& machine) {
         machine.Listen(kPort);
         machine.FailCallOf("QueryValue", 0, platform::kAccessDenied);
       },
       true,
       "ERROR: ProcessToOutlookClient(): The communication port is not valid.\n",
       1002,
       "OutlookClient: Unknown destination.",
       {}},
      {"the socket cannot be created",
       [](Machine& machine) {
         machine.Listen(kPort);
         machine.FailCallOf("Create", 0, platform::kSocketTooMany);
       },
       true,
       "ERROR: ProcessToOutlookClient(): The client connection to 127.0.0.1:5000 cannot be "
       "established.\n",
       1004,
       "OutlookClient: Connection cannot be established.",
       {}},
      {"nothing listens",
       [](Machine&) {},
       true,
       "ERROR: ProcessToOutlookClient(): The client connection to 127.0.0.1:5000 cannot be "
       "established.\n",
       1004,
       "OutlookClient: Connection cannot be established.",
       {}},
      {"nothing listens on the highest port",
       [](Machine& machine) {
         machine.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"-1");
       },
       true,
       "ERROR: ProcessToOutlookClient(): The client connection to 127.0.0.1:65535 cannot be "
       "established.\n",
       1004,
       "OutlookClient: Connection cannot be established.",
       {}},
      {"the peer resets",
       [](Machine& machine) { machine.Listen(kPort, Peer::kReset); },
       true,
       "ERROR: ProcessToOutlookClient(): The sending failed.\n",
       1003,
       "OutlookClient: Transmission failure.",
       {payload.substr(0, payload.size() / 2)}},
      {"the peer never reads",
       [](Machine& machine) {
         machine.SetSendWindow(100);
         machine.Listen(kPort, Peer::kNeverRead);
       },
       true,
       "ERROR: ProcessToOutlookClient(): The sending failed.\n",
       1003,
       "OutlookClient: Transmission failure.",
       {payload.substr(0, 100)}},
      {"the socket fails",
       [](Machine& machine) {
         machine.Listen(kPort);
         machine.FailCallOf("Send", 0, platform::kSocketAborted);
       },
       true,
       "ERROR: ProcessToOutlookClient(): The sending failed.\n",
       1003,
       "OutlookClient: Transmission failure.",
       {""}},
  };
  for (const FailureCase& test : kCases) {
    SCOPED_TRACE(test.name);
    machine_.Reset();
    Furnish();
    // Without the fax client's key the log asks for no value: the port's is the first query.
    test.arrange(machine_);
    EXPECT_FALSE(ProcessToOutlookClient(Job()));
    EXPECT_EQ(
        LogText(),
        (test.has_payload
             ? LogStart(payload)
             : "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n") +
            test.log);
    EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, test.code, test.text));
    EXPECT_EQ(machine_.Connections(), test.sent);
    EXPECT_EQ(machine_.OpenHandles(), 0u);
  }
}

TEST_F(Transmission, APeerThatNeverReadsIsWaitedFor10000Times) {
  machine_.SetSendWindow(100);
  machine_.Listen(kPort, Peer::kNeverRead);
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.SleepCount(), 10000u);
}

TEST_F(Transmission, NothingIsTriedTwice) {
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.CallsOf("Connect"), std::vector<std::string>{"Connect(127.0.0.1, 5000)"});
  machine_.ClearCalls();
  machine_.Listen(kPort, Peer::kReset);
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.CallsOf("Connect").size(), 1u);
  EXPECT_EQ(machine_.CallsOf("Send").size(), 1u);
}

// --- diverted into a file ---

TEST_F(Transmission, ADivertedJobIsWrittenAndNotSent) {
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", u"payload.json")));
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), JobsPayload().Bytes());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()));
  EXPECT_EQ(machine_.Connections(), Sent());
}

TEST_F(Transmission, ADivertedJobReadsNoPortAndMakesNoConnection) {
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", u"payload.json")));
  const std::string payload = JobsPayload().Bytes();
  EXPECT_EQ(test::Steps(),
            (std::vector<std::string>{
                "log INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
                "log INFO: ProcessToOutlookClient(): Created JSON:\r\n" + payload + "\r\n",
                "TemporaryFolder(260)", "IdentifyFile(C:\\Temp\\payload.json)",
                "OpenFileAt(C:\\Temp\\payload.json, kRewrite)",
                "WriteBytes(C:\\Temp\\payload.json, " + std::to_string(payload.size()) + ")",
                "OpenFileAt(C:\\jobs\\a.json, kRead)", "QueryFileSize(C:\\jobs\\a.json)",
                "ReadBytes(C:\\jobs\\a.json, " + std::to_string(kJobFile.size()) + ")",
                "OpenFileAt(C:\\jobs\\a.json, kRewrite)",
                "WriteBytes(C:\\jobs\\a.json, " +
                    std::to_string(test::WithSuccess(kJobFile).size()) + ")"}));
}

TEST_F(Transmission, ADivertedJobMayNameAPath) {
  machine_.AddFolder(u"C:\\out");
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", u"C:/out/payload.json")));
  EXPECT_EQ(machine_.FileBytes(u"C:\\out\\payload.json"), JobsPayload().Bytes());
}

TEST_F(Transmission, ADivertedJobNeverReplacesItsOwnJobFile) {
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", kJobName)));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

// The payload is built once more for the file; a file without it must not count as delivered.
TEST_F(Transmission, ADivertedJobWithoutMemoryForItsFileHasFailed) {
  // The payload's four values that are not empty and O's come first.
  machine_.FailCallOf("AllocateBlock", 4, platform::kNotEnoughMemory);
  EXPECT_FALSE(ProcessToOutlookClient(JobWith(u"O", u"payload.json")));
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), "");
  EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, 1000, "Outlook: Data encoding failure."));
  EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()) +
                           "ERROR: _utf8(): A memory error occurred.\n"
                           "ERROR: Code 0x00000008 --> Unknown Error.\n"
                           "ERROR: ProcessToOutlookClient(): The JSON creation failed.\n");
}

TEST_F(Transmission, TheFirstOfTwoNamesCounts) {
  JobParameters params = JobWith(u"O", u"first.json");
  params.faxFields.Add(u"O", u"second.json");
  EXPECT_TRUE(ProcessToOutlookClient(params));
  EXPECT_TRUE(machine_.FileBytes(u"C:\\Temp\\first.json").has_value());
  EXPECT_FALSE(machine_.FileBytes(u"C:\\Temp\\second.json").has_value());
}

TEST_F(Transmission, DeliberateADivertedJobCountsAsDeliveredWhateverBecomesOfItsFile) {
  for (const std::u16string path : {u"C:\\missing\\payload.json", u""}) {
    SCOPED_TRACE(testing::PrintToString(path));
    machine_.Reset();
    Furnish();
    EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", path)));
    EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{kJobName});
    EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
    EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()));
  }
}

// --- text beyond ASCII ---

TEST_F(Transmission, WhatGoesOverTheWireIsEncodedTwice) {
  machine_.Listen(kPort);
  PayloadText payload = JobsPayload();
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"E", u"J\u00E4ger")));
  payload.recipient_name = "J\xC3\x83\xC2\xA4ger";
  EXPECT_EQ(machine_.Connections(), Sent{payload.Bytes()});
  // The log shows the payload's UTF-8 as the ANSI code page reads it, which is the same.
  EXPECT_EQ(LogText(), LogStart(payload.Bytes()) +
                           "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
}

TEST_F(Transmission, ADivertedFileIsEncodedOnce) {
  PayloadText payload = JobsPayload();
  JobParameters params = JobWith(u"E", u"J\u00E4ger");
  params.faxFields.Add(u"O", u"payload.json");
  EXPECT_TRUE(ProcessToOutlookClient(params));
  payload.recipient_name = "J\xC3\xA4ger";
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), payload.Bytes());
}

TEST_F(Transmission, EveryByteIsWidenedThroughTheAnsiCodePage) {
  machine_.Listen(kPort);
  PayloadText payload = JobsPayload();
  // The UTF-8 of U+20AC is E2 82 AC: a-circumflex, a low quotation mark, a not sign; that of
  // U+1F4E0 is F0 9F 93 A0: eth, Y-diaeresis, a left quotation mark, a no-break space. 81 of U+00C1
  // is one of the bytes that the code page leaves undefined.
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"K", u"5 \u20AC \U0001F4E0 \u00C1")));
  payload.comment =
      "5 \xC3\xA2\xE2\x80\x9A\xC2\xAC \xC3\xB0\xC5\xB8\xE2\x80\x9C\xC2\xA0 \xC3\x83\xC2\x81";
  EXPECT_EQ(machine_.Connections(), Sent{payload.Bytes()});
}

// The second encoding has room for two bytes a character; here it would take three a character for
// a few hundred of them. Nothing notices, since clearing the error is the send's first step.
TEST_F(Transmission, DeliberateAPayloadThatCannotBeConvertedIsSentAsNothing) {
  machine_.Listen(kPort);
  std::u16string comment;
  PayloadText logged = JobsPayload();
  for (int i = 0; i < 1000; ++i) {
    comment += u"a\u2000";
    logged.comment += "a\xC3\xA2\xE2\x82\xAC\xE2\x82\xAC";
  }
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"K", comment)));
  EXPECT_EQ(machine_.Connections(), Sent{""});
  EXPECT_EQ(machine_.CallsOf("Send"), std::vector<std::string>{"Send(0)"});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), LogStart(logged.Bytes()) +
                           "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
}

// Sending nothing succeeds, so nothing must be sent.
TEST_F(Transmission, AConversionWithoutMemoryIsAFailedSend) {
  machine_.Listen(kPort);
  // The payload's four values that are not empty come first.
  machine_.FailCallOf("AllocateBlock", 4, platform::kNotEnoughMemory);
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.Connections(), Sent{""});
  EXPECT_EQ(machine_.CallsOf("Send"), std::vector<std::string>());
  EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, 1003, "OutlookClient: Transmission failure."));
  EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()) +
                           "ERROR: ProcessToOutlookClient(): The sending failed.\n");
}

TEST_F(Transmission, PercentSignsInThePayloadAreLoggedAsTheyAre) {
  machine_.Listen(kPort);
  PayloadText payload = JobsPayload();
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"K", u"100 %s %d %")));
  payload.comment = "100 %s %d %";
  EXPECT_EQ(machine_.Connections(), Sent{payload.Bytes()});
  EXPECT_EQ(LogText(), LogStart(payload.Bytes()) +
                           "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
}

// --- the job file ---

TEST_F(Transmission, AJobWithoutAJobFileIsDeliveredAllTheSame) {
  machine_.Listen(kPort);
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  EXPECT_TRUE(ProcessToOutlookClient(params));
  EXPECT_EQ(JobFile(), kJobFile);
  EXPECT_EQ(machine_.Connections(),
            Sent{PayloadText{.file_name = "C:\\\\docs\\\\fax.pdf"}.Bytes()});
}

TEST_F(Transmission, AJobFileThatCannotBeRewrittenChangesNoOutcome) {
  machine_.SetReadOnly(kJobName, true);
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(JobFile(), kJobFile);
}

TEST_F(Transmission, AVanishedJobFileIsLoggedAndChangesNoOutcome) {
  machine_.Remove(kJobName);
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>());
  EXPECT_EQ(LogText(), LogStart(JobsPayload().Bytes()) +
                           "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n"
                           "ERROR: WriteJobFileResult(): Parse JSON failed with error ''\n");
}

TEST_F(Transmission, AnEarlierResultIsReplaced) {
  machine_.SetFile(kJobName, test::WithResult(kJobFile, 1, 1004, "from before"));
  machine_.Listen(kPort);
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Transmission, TheCallersJobStaysAsItIs) {
  machine_.Listen(kPort);
  const JobParameters params = Job();
  EXPECT_TRUE(ProcessToOutlookClient(params));
  EXPECT_EQ(params.arguments.Entries(), Job().arguments.Entries());
  EXPECT_EQ(params.faxFields.Entries(), Job().faxFields.Entries());
}

}  // namespace
}  // namespace zentpost
