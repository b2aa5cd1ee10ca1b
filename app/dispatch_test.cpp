#include "app/dispatch.h"

#include <gtest/gtest.h>

#include <algorithm>
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
using Sent = std::vector<std::string>;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kPortKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char16_t kPortValue[] = u"TolvanAddinPort";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";
constexpr std::uint16_t kPort = 5000;
constexpr std::uint16_t kWinsockVersion = 0x0202;

const std::string kJobFile =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

class Dispatch : public platform::fake::MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    Furnish();
  }

  void Furnish() {
    ASSERT_EQ(platform::StartSockets(kWinsockVersion), platform::kSuccess);
    machine_.SetFile(kJobName, kJobFile);
    machine_.ClearCalls();
  }

  void SetPort(std::u16string_view text) {
    machine_.SetString(Hive::kCurrentUser, kPortKey, kPortValue, text);
  }

  std::string JobFile() const { return machine_.FileBytes(kJobName).value_or("no job file"); }
};

JobParameters Job() {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  params.arguments.Add(u"jobname", kJobName);
  params.faxFields.Add(u"+FAX", u"030");
  params.fromJobFile = true;
  return params;
}

JobParameters DivertedJob() {
  JobParameters params = Job();
  params.faxFields.Add(u"O", u"payload.json");
  return params;
}

std::string Payload() {
  return PayloadText{
      .receiver = "030", .file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"}
      .Bytes();
}

std::string AddinLog() {
  return "INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.\n"
         "INFO: ProcessToOutlookClient(): Created JSON:\r\n" +
         Payload() + "\r\n\n";
}

constexpr char kMapiLog[] =
    "INFO: ProcessToExtendedMapi(): Processing single job to extended MAPI.\n"
    "INFO: ProcessToExtendedMapi(): Parameters :\n"
    "INFO: ProcessToExtendedMapi(): Receiver   : 030\n"
    "INFO: ProcessToExtendedMapi(): Recipient  : \n"
    "INFO: ProcessToExtendedMapi(): Sendername : \n"
    "INFO: ProcessToExtendedMapi(): Comment    : \n"
    "INFO: ProcessToExtendedMapi(): Subject    : \n"
    "INFO: ProcessToExtendedMapi(): SendTime   : \n"
    "INFO: ProcessToExtendedMapi(): Attachment : C:\\docs\\fax.pdf\n"
    "INFO: ProcessToExtendedMapi(): Attach Name: Letter.pdf\n"
    "INFO: ProcessToExtendedMapi(): ECM        : True\n"
    "INFO: ProcessToExtendedMapi(): Preview    : False\n";

TEST_F(Dispatch, AListeningAddinIsProbedAndThenGetsTheJob) {
  SetPort(u"5000");
  machine_.Listen(kPort);
  EXPECT_TRUE(DispatchJob(Job()));
  EXPECT_EQ(machine_.Connections(), (Sent{"", Payload()}));
  EXPECT_EQ(LogText(),
            AddinLog() + "INFO: ProcessToOutlookClient(): The JSON payload successfully sent.\n");
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Dispatch, TheProbeComesBeforeTheRouteAndThePortIsReadForBoth) {
  SetPort(u"5000");
  machine_.Listen(kPort);
  EXPECT_TRUE(DispatchJob(Job()));
  std::vector<std::string> steps = test::Steps();
  ASSERT_GT(steps.size(), 10u);
  steps.resize(10);
  EXPECT_EQ(steps,
            (std::vector<std::string>{
                "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                "QueryValue(TolvanAddinPort, 40)", "Create()", "Connect(127.0.0.1, 5000)",
                "log INFO: ProcessToOutlookClient(): Processing job to Ambrolux.OutlookClient.",
                "log INFO: ProcessToOutlookClient(): Created JSON:\r\n" + Payload() + "\r\n",
                "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x20019)",
                "QueryValue(TolvanAddinPort, 40)", "Create()", "Connect(127.0.0.1, 5000)"}));
}

// What the machine looked like when a call began: how many calls there had been, and what was open.
struct Beginning {
  std::size_t calls;
  std::size_t open_handles;
};
std::vector<Beginning> beginnings;

void RecordBeginning(bool begins) {
  const platform::fake::Machine& machine = platform::fake::TheMachine();
  if (begins) {
    beginnings.push_back({machine.Calls().size(), machine.OpenHandles()});
  }
}

// An add-in that serves one peer at a time would make the job wait behind its own probe.
TEST_F(Dispatch, TheProbeIsClosedAtOnce) {
  SetPort(u"5000");
  // So that the probe is the last connection in either case.
  for (const unsigned connections : {1U, 0U}) {
    SCOPED_TRACE(connections);
    machine_.Listen(kPort, Peer::kAccept, connections);
    machine_.ClearCalls();
    beginnings.clear();
    machine_.SetCallHook(RecordBeginning);
    EXPECT_FALSE(DispatchJob(Job()));
    machine_.SetCallHook(nullptr);
    const std::vector<std::string> calls = machine_.Calls();
    const auto probe = std::find(calls.begin(), calls.end(), "Connect(127.0.0.1, 5000)");
    ASSERT_NE(probe, calls.end());
    const auto calls_with_probe = static_cast<std::size_t>(probe - calls.begin()) + 1;
    // The socket's end is no call of its own: it begins with this number, too, and before the next.
    const auto next = std::find_if(
        beginnings.rbegin(), beginnings.rend(),
        [&](const Beginning& beginning) { return beginning.calls == calls_with_probe; });
    ASSERT_NE(next, beginnings.rend());
    EXPECT_EQ(next->open_handles, 0u);
  }
}

TEST_F(Dispatch, WithoutAPortThereIsNoProbe) {
  struct Case {
    const char* name;
    void (*arrange)(platform::fake::Machine& machine);
  };
  using platform::fake::Machine;
  const Case kCases[] = {
      {"no key", [](Machine&) {}},
      {"no value", [](Machine& machine) { machine.AddKey(Hive::kCurrentUser, kPortKey); }},
      {"0",
       [](Machine& machine) { machine.SetString(Hive::kCurrentUser, kPortKey, kPortValue, u"0"); }},
      {"no digits",
       [](Machine& machine) {
         machine.SetString(Hive::kCurrentUser, kPortKey, kPortValue, u"port");
       }},
      {"a number instead of a text",
       [](Machine& machine) { machine.SetDword(Hive::kCurrentUser, kPortKey, kPortValue, kPort); }},
      {"the other hive",
       [](Machine& machine) {
         machine.SetString(Hive::kLocalMachine, kPortKey, kPortValue, u"5000");
       }},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    machine_.Reset();
    Furnish();
    machine_.Listen(kPort);
    test.arrange(machine_);
    EXPECT_FALSE(DispatchJob(Job()));
    EXPECT_EQ(machine_.CallsOf("Create"), std::vector<std::string>());
    EXPECT_EQ(machine_.Connections(), Sent());
    EXPECT_EQ(LogText(), std::string(kMapiLog) + test::kNoMapiLog);
    EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
  }
}

TEST_F(Dispatch, APortWithoutAListenerLeavesNoTraceInTheLog) {
  SetPort(u"5000");
  EXPECT_FALSE(DispatchJob(Job()));
  EXPECT_EQ(machine_.CallsOf("Connect"), std::vector<std::string>{"Connect(127.0.0.1, 5000)"});
  EXPECT_EQ(LogText(), std::string(kMapiLog) + test::kNoMapiLog);
  EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
}

TEST_F(Dispatch, WithoutTheSocketLibraryTheProbeFails) {
  SetPort(u"5000");
  machine_.Listen(kPort);
  platform::EndSockets();
  EXPECT_FALSE(DispatchJob(Job()));
  EXPECT_EQ(machine_.CallsOf("Create"), std::vector<std::string>{"Create()"});
  EXPECT_EQ(machine_.Connections(), Sent());
  EXPECT_EQ(LogText(), std::string(kMapiLog) + test::kNoMapiLog);
}

TEST_F(Dispatch, AProbeWithoutASocketFails) {
  SetPort(u"5000");
  machine_.Listen(kPort);
  machine_.FailCallOf("Create", 0, platform::kSocketTooMany);
  EXPECT_FALSE(DispatchJob(Job()));
  EXPECT_EQ(machine_.Connections(), Sent());
  EXPECT_EQ(LogText(), std::string(kMapiLog) + test::kNoMapiLog);
}

TEST_F(Dispatch, AnAddinThatFailsTheJobHandsItOn) {
  struct Case {
    const char* name;
    void (*arrange)(platform::fake::Machine& machine);
    const char* line;
    Sent sent;
  };
  using platform::fake::Machine;
  const std::string half = Payload().substr(0, Payload().size() / 2);
  const Case kCases[] = {
      {"refuses after the probe",
       [](Machine& machine) { machine.Listen(kPort, Peer::kAccept, 1); },
       "The client connection to 127.0.0.1:5000 cannot be established.",
       {""}},
      {"resets",
       [](Machine& machine) { machine.Listen(kPort, Peer::kReset); },
       "The sending failed.",
       {"", half}},
      {"never reads",
       [](Machine& machine) {
         machine.SetSendWindow(50);
         machine.Listen(kPort, Peer::kNeverRead);
       },
       "The sending failed.",
       {"", Payload().substr(0, 50)}},
      {"takes its port away",
       [](Machine& machine) {
         machine.Listen(kPort);
         // Without the fax client's key only the port is asked of this function.
         machine.FailCallOf("QueryValue", 1, platform::kFileNotFound);
       },
       "The communication port is not valid.",
       {""}},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    machine_.Reset();
    Furnish();
    SetPort(u"5000");
    test.arrange(machine_);
    EXPECT_FALSE(DispatchJob(Job()));
    EXPECT_EQ(machine_.Connections(), test.sent);
    EXPECT_EQ(LogText(), AddinLog() + "ERROR: ProcessToOutlookClient(): " + test.line + "\n" +
                             kMapiLog + test::kNoMapiLog);
    // What the last route has to say stands alone.
    EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
  }
}

TEST_F(Dispatch, TheRouteThatRunsLastDecides) {
  SetPort(u"5000");
  machine_.Listen(kPort, Peer::kAccept, 1);
  machine_.SetDword(Hive::kCurrentUser, kClientKey, u"SkipExtendedMapi", 1);
  EXPECT_TRUE(DispatchJob(Job()));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Dispatch, ADivertedJobIsWrittenByEitherRoute) {
  EXPECT_TRUE(DispatchJob(DivertedJob()));
  EXPECT_EQ(LogText(), kMapiLog);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), Payload());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));

  machine_.Reset();
  Furnish();
  SetPort(u"5000");
  machine_.Listen(kPort);
  EXPECT_TRUE(DispatchJob(DivertedJob()));
  EXPECT_EQ(LogText(), AddinLog());
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), Payload());
  EXPECT_EQ(machine_.Connections(), Sent{""});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Dispatch, BothRoutesGetTheWholeJob) {
  SetPort(u"5000");
  machine_.Listen(kPort, Peer::kAccept, 1);
  const JobParameters params = Job();
  EXPECT_FALSE(DispatchJob(params));
  EXPECT_EQ(LogText().find(AddinLog()), 0u);
  EXPECT_NE(LogText().find(kMapiLog), std::string::npos);
  EXPECT_EQ(params.arguments.Entries(), Job().arguments.Entries());
  EXPECT_EQ(params.faxFields.Entries(), Job().faxFields.Entries());
}

}  // namespace
}  // namespace zentpost
