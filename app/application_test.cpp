#include "app/application.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/job_fixture.h"
#include "testing/log_lines.h"
#include "testing/outcomes.h"
#include "testing/steps.h"

namespace zentpost {
namespace {

using test::kJobFile;
using test::kJobName;
using test::LogText;
using test::PayloadText;
using test::Sent;

constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";
const std::string kPayload =
    PayloadText{.file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"}.Bytes();

class Application : public test::JobTest {
 protected:
  Application() {
    fake_.Reset();  // the sockets are the application's to start
    fake_.SetFile(kJobName, kJobFile);
  }

  // A whole process on this machine; gives its exit code.
  int Run(const char16_t* command_line) {
    const std::optional<std::string> job_file_before = fake_.FileBytes(kJobName);
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = command_line;
    EXPECT_FALSE(application.InitInstance());
    const int exit_code = application.ExitInstance();
    EXPECT_EQ(application.ExitInstance(), exit_code) << "the outcome stays";
    outcome_ = test::ReadOutcome(exit_code, LogText(), job_file_before, fake_.FileBytes(kJobName));
    EXPECT_EQ(test::OutcomeProblem(outcome_), "");
    return exit_code;
  }

  std::vector<test::SeenOutcome> outcome_;  // of the latest job
};

// The log of a job that says nothing but its document, on the Extended MAPI route without MAPI.
std::string MapiLog(const std::string& attachment) {
  return test::MapiJobLog({.attachment = attachment}) + test::kNoMapiLog;
}

TEST_F(Application, AJobThatWasNeverStartedWasNotDelivered) {
  CAmbroluxPrintSendApp application;
  EXPECT_EQ(application.ExitInstance(), 1);
}

TEST_F(Application, AFailedJobEndsTheProcessWith1) {
  EXPECT_EQ(Run(kJobName), 1);
  EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
}

TEST_F(Application, ADeliveredJobEndsTheProcessWith0) {
  StartAddin();
  EXPECT_EQ(Run(kJobName), 0);
  EXPECT_EQ(fake_.Connections(), (Sent{"", kPayload}));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), "INFO: StartZentpost(): C:\\jobs\\a.json\n" + test::AddinLog(kPayload) +
                           test::kAddinSentLog);
  std::vector<std::string> steps = {
      "InitializeCommonControls(0xff)",
      "StartSockets(0x202)",
      "OpenFileAt(C:\\jobs\\a.json, kRead)",
      "QueryFileSize(C:\\jobs\\a.json)",
      "ReadBytes(C:\\jobs\\a.json, " + std::to_string(kJobFile.size()) + ")",
      "log INFO: StartZentpost(): C:\\jobs\\a.json",
      "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
      "QueryValue(TolvanAddinPort, 40)",
      "Create()",
      "Connect(127.0.0.1, 5000)"};
  for (const std::string& step : test::AddinSteps(kPayload)) {
    steps.push_back(step);
  }
  steps.emplace_back("EndSockets()");
  EXPECT_EQ(test::Steps(), steps);
}

TEST_F(Application, TheReadersLinesStandBeforeTheStart) {
  fake_.SetFile(kJobName, "{}");
  EXPECT_EQ(Run(kJobName), 1);
  EXPECT_EQ(LogText(),
            test::kNoFilePathLog + ("INFO: StartZentpost(): C:\\jobs\\a.json\n" + MapiLog("")));
}

TEST_F(Application, AnEmptyCommandLineIsAJobThatFails) {
  EXPECT_EQ(Run(u"  \t "), 1);
  EXPECT_EQ(Run(u""), 1);
  EXPECT_EQ(LogText(), "INFO: StartZentpost():   \t \n" + MapiLog("") +
                           "INFO: StartZentpost(): \n" + MapiLog(""));
}

TEST_F(Application, TheCommandLineIsLoggedAsItIs) {
  EXPECT_EQ(Run(u" \"C:\\my docs\\100%s.pdf\"  '030' /x"), 1);
  EXPECT_EQ(LogText(), test::NoJsonLog("ReadFromFile", "") +
                           "INFO: StartZentpost():  \"C:\\my docs\\100%s.pdf\"  '030' /x\n" +
                           MapiLog("C:\\my docs\\100%s.pdf"));
}

TEST_F(Application, ADocumentOnALongCommandLineIsDelivered) {
  StartAddin();
  fake_.SetFile(kDocument, "%PDF-1.4\n");
  const std::u16string start = std::u16string(kDocument) + u" 030;K";
  const std::size_t length = 32000 - start.size();
  EXPECT_EQ(Run((start + std::u16string(length, u'k')).c_str()), 0);
  EXPECT_EQ(fake_.Connections(), (Sent{"", PayloadText{.receiver = "030",
                                                       .file_name = "C:\\\\docs\\\\fax.pdf",
                                                       .comment = std::string(length, 'k')}
                                               .Bytes()}));
  EXPECT_EQ(fake_.FileBytes(kDocument), "%PDF-1.4\n");
}

TEST_F(Application, CommonControlsThatAreRefusedAreNotNeeded) {
  StartAddin();
  fake_.FailCallOf("InitializeCommonControls", 0, platform::kGeneralFailure);
  EXPECT_EQ(Run(u"a.pdf"), 0);
}

TEST_F(Application, WithoutTheSocketLibraryTheJobTakesTheOtherRoute) {
  StartAddin();
  fake_.FailCallOf("StartSockets", 0, platform::kGeneralFailure);
  EXPECT_EQ(Run(u"a.pdf"), 1);
  EXPECT_EQ(fake_.Connections(), Sent());
  EXPECT_EQ(LogText(), test::NoJsonLog("ReadFromFile", "") + "INFO: StartZentpost(): a.pdf\n" +
                           MapiLog("a.pdf"));
  // What did not start is not ended.
  EXPECT_EQ(fake_.CallsOf("EndSockets"), std::vector<std::string>());
}

// The first call behind the first line of the log throws: the one that asks for the add-in's port.
void ThrowBehindTheFirstLine(bool begins) {
  platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  if (begins && !fake.DebugOutput().empty() && fake.DebugOutput().back() == u"\n") {
    fake.SetCallHook(nullptr);
    throw std::runtime_error("nobody has thought of this");
  }
}

TEST_F(Application, WhateverIsThrownTheJobHasFailedAndTheSocketsAreEnded) {
  StartAddin();
  fake_.SetCallHook(ThrowBehindTheFirstLine);
  EXPECT_EQ(Run(kJobName), 1);
  EXPECT_EQ(fake_.CallsOf("EndSockets").size(), 1u);
  EXPECT_EQ(fake_.OpenHandles(), 0u);
  EXPECT_EQ(JobFile(), kJobFile);
  EXPECT_EQ(LogText(), "INFO: StartZentpost(): C:\\jobs\\a.json\n");
  EXPECT_EQ(test::SourceOf(outcome_), test::Source::kException);
}

}  // namespace
}  // namespace zentpost
