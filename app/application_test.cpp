#include "app/application.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/steps.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::LogText;
using test::PayloadText;
using Sent = std::vector<std::string>;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kPortKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr std::uint16_t kPort = 5000;

const std::string kJobFile =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

class Application : public platform::fake::MachineTest {
 protected:
  // A whole process on this machine; gives its exit code.
  int Run(const char16_t* command_line) {
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = command_line;
    EXPECT_FALSE(application.InitInstance());
    return application.ExitInstance();
  }

  void Listen() {
    machine_.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"5000");
    machine_.Listen(kPort);
  }
};

// The log of a job that says nothing but its document, on the Extended MAPI route without MAPI.
std::string MapiLog(const std::string& attachment) {
  return "INFO: ProcessToExtendedMapi(): Processing single job to extended MAPI.\n"
         "INFO: ProcessToExtendedMapi(): Parameters :\n"
         "INFO: ProcessToExtendedMapi(): Receiver   : \n"
         "INFO: ProcessToExtendedMapi(): Recipient  : \n"
         "INFO: ProcessToExtendedMapi(): Sendername : \n"
         "INFO: ProcessToExtendedMapi(): Comment    : \n"
         "INFO: ProcessToExtendedMapi(): Subject    : \n"
         "INFO: ProcessToExtendedMapi(): SendTime   : \n"
         "INFO: ProcessToExtendedMapi(): Attachment : " +
         attachment +
         "\n"
         "INFO: ProcessToExtendedMapi(): Attach Name: \n"
         "INFO: ProcessToExtendedMapi(): ECM        : True\n"
         "INFO: ProcessToExtendedMapi(): Preview    : False\n" +
         test::kNoMapiLog;
}

TEST_F(Application, AJobThatWasNeverStartedWasNotDelivered) {
  CAmbroluxPrintSendApp application;
  EXPECT_EQ(application.ExitInstance(), 1);
}

TEST_F(Application, ADeliveredJobEndsTheProcessWith0) {
  Listen();
  machine_.SetFile(u"a.json", kJobFile);
  EXPECT_EQ(Run(u"a.json"), 0);
  const std::string payload =
      PayloadText{.file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"}.Bytes();
  EXPECT_EQ(machine_.Connections(), (Sent{"", payload}));
  EXPECT_EQ(machine_.FileBytes(u"a.json"), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(),
            "INFO: StartZentpost(): a.json\n"
            "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n"
            "INFO: ProcessToOutlookClient(): Created JSON:\r\n" +
                payload +
                "\r\n\n"
                "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
}

TEST_F(Application, AFailedJobEndsTheProcessWith1) {
  machine_.SetFile(u"a.json", kJobFile);
  EXPECT_EQ(Run(u"a.json"), 1);
  EXPECT_EQ(machine_.FileBytes(u"a.json"), test::WithMapiError(kJobFile));
}

TEST_F(Application, StepsFollowOneAnother) {
  Listen();
  const std::string size = std::to_string(kJobFile.size());
  const std::string payload =
      PayloadText{.file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"}.Bytes();
  machine_.SetFile(u"a.json", kJobFile);
  EXPECT_EQ(Run(u"a.json"), 0);
  EXPECT_EQ(test::Steps(),
            (std::vector<std::string>{
                "InitializeCommonControls(0xff)",
                "StartSockets(0x202)",
                "OpenFileAt(a.json, kRead)",
                "QueryFileSize(a.json)",
                "ReadBytes(a.json, " + size + ")",
                "log INFO: StartZentpost(): a.json",
                "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                "QueryValue(TolvanAddinPort, 40)",
                "Create()",
                "Connect(127.0.0.1, 5000)",
                "log INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
                "log INFO: ProcessToOutlookClient(): Created JSON:\r\n" + payload + "\r\n",
                "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                "QueryValue(TolvanAddinPort, 40)",
                "Create()",
                "Connect(127.0.0.1, 5000)",
                "StartWorker()",
                "Send(" + std::to_string(payload.size()) + ")",
                "WaitForWorker()",
                "log INFO: ProcessToOutlookClient(): The JSON payload successfully sent.",
                "OpenFileAt(a.json, kRead)",
                "QueryFileSize(a.json)",
                "ReadBytes(a.json, " + size + ")",
                "OpenFileAt(a.json, kRewrite)",
                "WriteBytes(a.json, " + std::to_string(test::WithSuccess(kJobFile).size()) + ")",
                "EndSockets()"}));
}

TEST_F(Application, TheReadersLinesStandBeforeTheStart) {
  machine_.SetFile(u"a.json", "{}");
  EXPECT_EQ(Run(u"a.json"), 1);
  EXPECT_EQ(LogText(),
            "ERROR: GetDocumentFromJson(): Filename not found\n"
            "ERROR: ReadFromFile(): Read document failed\n"
            "INFO: StartZentpost(): a.json\n" +
                MapiLog(""));
}

TEST_F(Application, AnEmptyCommandLineIsAJobThatFails) {
  for (const char16_t* line : {u"", u"  \t "}) {
    machine_.Reset();
    EXPECT_EQ(Run(line), 1);
    EXPECT_EQ(LogText(), std::string("INFO: StartZentpost(): ") + (*line == 0 ? "" : "  \t ") +
                             "\n" + MapiLog(""));
  }
}

TEST_F(Application, TheCommandLineIsLoggedAsItIs) {
  EXPECT_EQ(Run(u" \"C:\\my docs\\100%s.pdf\"  '030' /x"), 1);
  EXPECT_EQ(LogText(),
            "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"
            "INFO: StartZentpost():  \"C:\\my docs\\100%s.pdf\"  '030' /x\n" +
                MapiLog("C:\\my docs\\100%s.pdf"));
}

TEST_F(Application, ADocumentOnTheCommandLineIsDelivered) {
  Listen();
  machine_.SetFile(u"C:\\docs\\fax.pdf", "%PDF-1.4\n");
  EXPECT_EQ(Run(u"C:\\docs\\fax.pdf 030;SHello"), 0);
  EXPECT_EQ(
      machine_.Connections(),
      (Sent{"",
            PayloadText{.receiver = "030", .file_name = "C:\\\\docs\\\\fax.pdf", .subject = "Hello"}
                .Bytes()}));
  EXPECT_EQ(machine_.FileBytes(u"C:\\docs\\fax.pdf"), "%PDF-1.4\n");
}

TEST_F(Application, ALongCommandLineIsDelivered) {
  Listen();
  const std::u16string comment(32000 - 11, u'k');
  EXPECT_EQ(Run((u"a.pdf 030;K" + comment).c_str()), 0);
  EXPECT_EQ(machine_.Connections(),
            (Sent{"", PayloadText{.receiver = "030",
                                  .file_name = "a.pdf",
                                  .comment = std::string(comment.size(), 'k')}
                          .Bytes()}));
}

TEST_F(Application, CommonControlsThatAreRefusedAreNotNeeded) {
  Listen();
  machine_.FailCallOf("InitializeCommonControls", 0, platform::kGeneralFailure);
  EXPECT_EQ(Run(u"a.pdf"), 0);
}

TEST_F(Application, WithoutTheSocketLibraryTheJobTakesTheOtherRoute) {
  Listen();
  machine_.FailCallOf("StartSockets", 0, platform::kGeneralFailure);
  EXPECT_EQ(Run(u"a.pdf"), 1);
  EXPECT_EQ(machine_.Connections(), Sent());
  EXPECT_EQ(LogText(),
            "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"
            "INFO: StartZentpost(): a.pdf\n" +
                MapiLog("a.pdf"));
  // What did not start is not ended.
  EXPECT_EQ(machine_.CallsOf("EndSockets"), std::vector<std::string>());
}

TEST_F(Application, TheExitCodeFollowsTheRouteThatRunsLast) {
  machine_.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"5000");
  machine_.Listen(kPort, platform::fake::Peer::kAccept, 1);
  EXPECT_EQ(Run(u"a.pdf"), 1);
  machine_.SetDword(Hive::kCurrentUser, kClientKey, u"SkipExtendedMapi", 1);
  machine_.Listen(kPort, platform::fake::Peer::kAccept, 1);
  EXPECT_EQ(Run(u"a.pdf"), 0);
}

TEST_F(Application, TheOutcomeStaysUntilTheEnd) {
  Listen();
  CAmbroluxPrintSendApp application;
  application.m_lpCmdLine = u"a.pdf";
  EXPECT_FALSE(application.InitInstance());
  EXPECT_EQ(application.ExitInstance(), 0);
  EXPECT_EQ(application.ExitInstance(), 0);
}

// The first call behind the first line of the log throws: the one that asks for the add-in's port.
void ThrowBehindTheFirstLine(bool begins) {
  platform::fake::Machine& machine = platform::fake::TheMachine();
  if (begins && !machine.DebugOutput().empty() && machine.DebugOutput().back() == u"\n") {
    machine.SetCallHook(nullptr);
    throw std::runtime_error("nobody has thought of this");
  }
}

TEST_F(Application, WhateverIsThrownTheJobHasFailedAndTheSocketsAreEnded) {
  Listen();
  machine_.SetFile(u"a.json", kJobFile);
  machine_.SetCallHook(ThrowBehindTheFirstLine);
  EXPECT_EQ(Run(u"a.json"), 1);
  EXPECT_EQ(machine_.CallsOf("EndSockets").size(), 1u);
  EXPECT_EQ(machine_.OpenHandles(), 0u);
  EXPECT_EQ(machine_.FileBytes(u"a.json"), kJobFile);
  EXPECT_EQ(LogText(), "INFO: StartZentpost(): a.json\n");
}

}  // namespace
}  // namespace zentpost
