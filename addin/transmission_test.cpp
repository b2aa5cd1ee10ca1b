#include "addin/transmission.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/job_fixture.h"
#include "testing/log_lines.h"
#include "testing/steps.h"

namespace zentpost {
namespace {

using platform::fake::Peer;
using test::AddinLog;
using test::Job;
using test::JobsPayload;
using test::JobWith;
using test::kAddinSentLog;
using test::kJobFile;
using test::kJobName;
using test::LogText;
using test::PayloadText;
using test::Sent;
using Calls = std::vector<std::string>;

class Transmission : public test::JobTest {
 protected:
  Transmission() { SetPort(); }

  // Expects that a listening add-in takes the job and gets `payload`, and gives the log.
  std::string ExpectSent(const JobParameters& job, const PayloadText& payload) {
    StartAddin();
    EXPECT_TRUE(ProcessToOutlookClient(job));
    EXPECT_EQ(fake_.Connections(), Sent{payload.Bytes()});
    return LogText();
  }

  void ExpectFailed(const test::AddinFailure& failure) {
    EXPECT_FALSE(ProcessToOutlookClient(Job()));
    EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, failure.code, failure.text));
  }
};

TEST_F(Transmission, AJobThatIsTakenIsDelivered) {
  StartAddin();
  EXPECT_TRUE(ProcessToOutlookClient(Job()));
  const std::string payload = JobsPayload().Bytes();
  EXPECT_EQ(test::Steps(), test::AddinSteps(payload));
  EXPECT_EQ(fake_.Connections(), Sent{payload});
  EXPECT_EQ(LogText(), AddinLog(payload) + kAddinSentLog);
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Transmission, EachFailureHasItsLineAndItsResult) {
  const std::string payload = JobsPayload().Bytes();
  struct Case {
    const char* name;
    std::function<void()> arrange;
    test::AddinFailure failure;
    Sent sent;
  };
  const auto fails = [this](const char* call, platform::Status status, std::size_t index = 0) {
    return [=, this] { fake_.FailCallOf(call, index, status); };
  };
  const auto meets = [this](Peer peer) {
    return [=, this] {
      fake_.SetSendWindow(100);
      StartAddin(peer);
    };
  };
  const auto has_port = [this](const char16_t* port) { return [=, this] { SetPort(port); }; };
  const Case cases[] = {
      {"no widening", fails("BytesToWide", platform::kInvalidParameter), test::kNoPayload, {}},
      {"port 0", has_port(u"0"), test::kNoPort, {}},
      // Without the fax client's key the log asks for no value: the port's is the first query.
      {"no port", fails("QueryValue", platform::kAccessDenied), test::kNoPort, {}},
      {"no socket", fails("Create", platform::kSocketTooMany), test::kNotConnected, {}},
      {"no listener", [this] { fake_.StopListening(test::kAddinPort); }, test::kNotConnected, {}},
      {"none on the highest port",
       has_port(u"-1"),
       {"ERROR: ProcessToOutlookClient(): The client connection to 127.0.0.1:65535 cannot be "
        "established.\n",
        test::kNotConnected.code, test::kNotConnected.text},
       {}},
      {"a reset", meets(Peer::kReset), test::kNotSent, {payload.substr(0, payload.size() / 2)}},
      {"no reading", meets(Peer::kNeverRead), test::kNotSent, {payload.substr(0, 100)}},
      {"a socket error", fails("Send", platform::kSocketAborted), test::kNotSent, {""}},
      // Sending nothing succeeds, so nothing must be sent. The payload's four values come first.
      {"no memory for the second encoding",
       fails("AllocateBlock", platform::kNotEnoughMemory, 4),
       test::kNotSent,
       {""}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    StartOver();
    StartAddin();
    c.arrange();
    ExpectFailed(c.failure);
    EXPECT_EQ(LogText(),
              (c.failure.code == test::kNoPayload.code ? test::kAddinStartLog : AddinLog(payload)) +
                  c.failure.log);
    EXPECT_EQ(fake_.Connections(), c.sent);
    EXPECT_LE(fake_.CallsOf("Connect").size(), 1u) << "nothing is tried twice";
    EXPECT_LE(fake_.CallsOf("Send").size(), 1u);
    EXPECT_EQ(fake_.OpenHandles(), 0u);
  }
}

TEST_F(Transmission, APeerThatNeverReadsIsWaitedFor10000Times) {
  fake_.SetSendWindow(100);
  StartAddin(Peer::kNeverRead);
  ExpectFailed(test::kNotSent);
  EXPECT_EQ(fake_.SleepCount(), 10000u);
}

// --- diverted into a file ---

TEST_F(Transmission, ADivertedJobIsWrittenAndNotSent) {
  StartAddin();
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", u"payload.json")));
  const std::string payload = JobsPayload().Bytes();
  EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\payload.json"), payload);
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), AddinLog(payload));
  Calls steps = test::AddinSteps(payload);
  steps.erase(steps.begin() + 2, steps.end() - 5);
  steps.insert(steps.begin() + 2,
               {"TemporaryFolder(260)", "IdentifyFile(C:\\Temp\\payload.json)",
                "OpenFileAt(C:\\Temp\\payload.json, kRewrite)",
                "WriteBytes(C:\\Temp\\payload.json, " + std::to_string(payload.size()) + ")"});
  EXPECT_EQ(test::Steps(), steps);
}

TEST_F(Transmission, ADivertedJobMayNameAPathAndTheFirstOfTwoCounts) {
  fake_.AddFolder(u"C:\\out");
  JobParameters job = JobWith(u"O", u"C:/out/payload.json");
  job.faxFields.Add(u"O", u"second.json");
  EXPECT_TRUE(ProcessToOutlookClient(job));
  EXPECT_EQ(fake_.FilePaths(), (std::vector<std::u16string>{kJobName, u"C:\\out\\payload.json"}));
}

// The payload is built once more for the file; a file without it must not count as delivered.
TEST_F(Transmission, ADivertedJobWithoutMemoryForItsFileHasFailed) {
  // The payload's four values that are not empty and O's come first.
  fake_.FailCallOf("AllocateBlock", 4, platform::kNotEnoughMemory);
  EXPECT_FALSE(ProcessToOutlookClient(JobWith(u"O", u"payload.json")));
  EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\payload.json"), "");
  EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, test::kNoPayload.code, test::kNoPayload.text));
  EXPECT_EQ(LogText(), AddinLog(JobsPayload().Bytes()) +
                           test::FailureLog(test::kUtf8NoMemory, "00000008") +
                           test::kNoPayload.log);
}

// Its own job file among them, which is not written over.
TEST_F(Transmission, DeliberateADivertedJobCountsAsDeliveredWhateverBecomesOfItsFile) {
  for (const std::u16string path : {u"C:\\missing\\payload.json", u"", kJobName}) {
    SCOPED_TRACE(testing::PrintToString(path));
    StartOver();
    EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"O", path)));
    EXPECT_EQ(fake_.FilePaths(), std::vector<std::u16string>{kJobName});
    EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
    EXPECT_EQ(LogText(), AddinLog(JobsPayload().Bytes()));
  }
}

TEST_F(Transmission, ADivertedFileIsEncodedOnce) {
  JobParameters job = JobWith(u"E", u"J\u00E4ger");
  job.faxFields.Add(u"O", u"payload.json");
  EXPECT_TRUE(ProcessToOutlookClient(job));
  PayloadText payload = JobsPayload();
  payload.recipient_name = "J\xC3\xA4ger";
  EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\payload.json"), payload.Bytes());
}

// --- text beyond ASCII ---

// The UTF-8 of U+20AC is E2 82 AC: a-circumflex, a low quotation mark, a not sign; that of U+1F4E0
// is F0 9F 93 A0: eth, Y-diaeresis, a left quotation mark, a no-break space. 81 of U+00C1 is one of
// the bytes that the code page leaves undefined.
TEST_F(Transmission, EveryByteIsWidenedThroughTheAnsiCodePageAndEncodedAgain) {
  PayloadText payload = JobsPayload();
  payload.comment =
      "5 \xC3\xA2\xE2\x80\x9A\xC2\xAC \xC3\xB0\xC5\xB8\xE2\x80\x9C\xC2\xA0 \xC3\x83\xC2\x81 %s %";
  // The log shows the same, percent signs included.
  EXPECT_EQ(ExpectSent(JobWith(u"K", u"5 \u20AC \U0001F4E0 \u00C1 %s %"), payload),
            AddinLog(payload.Bytes()) + kAddinSentLog);
}

// The second encoding has space for two bytes a character; here it would take three a character for
// a few hundred of them. Nothing notices, since clearing the error is the send's first step.
TEST_F(Transmission, DeliberateAPayloadThatCannotBeConvertedIsSentAsNothing) {
  StartAddin();
  std::u16string comment;
  PayloadText logged = JobsPayload();
  for (int i = 0; i < 1000; ++i) {
    comment += u"a\u2000";
    logged.comment += "a\xC3\xA2\xE2\x82\xAC\xE2\x82\xAC";
  }
  EXPECT_TRUE(ProcessToOutlookClient(JobWith(u"K", comment)));
  EXPECT_EQ(fake_.Connections(), Sent{""});
  EXPECT_EQ(fake_.CallsOf("Send"), Calls{"Send(0)"});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), AddinLog(logged.Bytes()) + kAddinSentLog);
}

// --- the job file ---

TEST_F(Transmission, AJobWithoutAJobFileIsDeliveredAllTheSame) {
  JobParameters job;
  job.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  ExpectSent(job, {.file_name = "C:\\\\docs\\\\fax.pdf"});
  EXPECT_EQ(JobFile(), kJobFile);
}

TEST_F(Transmission, AJobFileThatCannotBeRewrittenChangesNoOutcome) {
  fake_.SetReadOnly(kJobName, true);
  EXPECT_FALSE(ProcessToOutlookClient(Job()));
  ExpectSent(Job(), JobsPayload());
  EXPECT_EQ(JobFile(), kJobFile);
}

}  // namespace
}  // namespace zentpost
