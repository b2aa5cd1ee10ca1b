#include "app/dispatch.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/job_fixture.h"
#include "testing/log_lines.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::fake::Peer;
using test::AddinLog;
using test::Job;
using test::kJobFile;
using test::kPortKey;
using test::kPortValue;
using test::LogText;
using test::Sent;
using Calls = std::vector<std::string>;

const std::string kPayload = test::JobsPayload().Bytes();
const std::string kMapiLog = test::MapiJobLog({.receiver = "0301234567",
                                               .subject = "A subject",
                                               .attachment = "C:\\docs\\fax.pdf",
                                               .attachment_name = "Letter.pdf"});

class Dispatch : public test::JobTest {
 protected:
  // Expects that the add-in logs this and the other route then fails.
  void ExpectMapiRoute(const std::string& addin_log = {}) {
    EXPECT_FALSE(DispatchJob(Job()));
    EXPECT_EQ(LogText(), addin_log + kMapiLog + test::kNoMapiLog);
    // What the last route has to say stands alone.
    EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
  }
};

TEST_F(Dispatch, AListeningAddinIsProbedAndThenGetsTheJob) {
  StartAddin();
  EXPECT_TRUE(DispatchJob(Job()));
  EXPECT_EQ(fake_.Connections(), (Sent{"", kPayload}));
  EXPECT_EQ(LogText(), AddinLog(kPayload) + test::kAddinSentLog);
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

// What was open when the call behind the probe began.
std::size_t open_behind_probe;

void NoteWhatIsOpen(bool begins) {
  const platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  if (begins && fake.CallsOf("Connect").size() == 1 &&
      fake.Calls().back().starts_with("Connect(")) {
    open_behind_probe = fake.OpenHandles();
  }
}

// An add-in that serves one peer at a time would make the job wait behind its own probe.
TEST_F(Dispatch, TheProbeIsClosedAtOnce) {
  // So that the probe is the last connection in either case.
  for (const unsigned connections : {1U, 0U}) {
    StartAddin(Peer::kAccept, connections);
    fake_.ClearCalls();
    open_behind_probe = 1000;
    fake_.SetCallHook(NoteWhatIsOpen);
    EXPECT_FALSE(DispatchJob(Job()));
    fake_.SetCallHook(nullptr);
    EXPECT_EQ(open_behind_probe, 0u) << connections;
  }
}

TEST_F(Dispatch, WithoutAnAddinTheJobTakesTheOtherRouteAndTheLogTellsNothingOfIt) {
  struct Case {
    const char* name;
    std::function<void()> arrange;
    Calls probe{};
  };
  const Case cases[] = {
      {"no key", [] {}},
      {"no value", [this] { fake_.AddKey(Hive::kCurrentUser, kPortKey); }},
      {"0", [this] { SetPort(u"0"); }},
      {"no digits", [this] { SetPort(u"port"); }},
      {"a number instead of a text",
       [this] { fake_.SetDword(Hive::kCurrentUser, kPortKey, kPortValue, test::kAddinPort); }},
      {"the other hive",
       [this] { fake_.SetString(Hive::kLocalMachine, kPortKey, kPortValue, u"5000"); }},
      {"a port without a listener", [this] { SetPort(u"4999"); }, {"Create()"}},
      {"no socket library",
       [this] {
         SetPort();
         platform::EndSockets();
       },
       {"Create()"}},
      {"no socket",
       [this] {
         SetPort();
         fake_.FailCallOf("Create", 0, platform::kSocketTooMany);
       },
       {"Create()"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    StartOver();
    fake_.Listen(test::kAddinPort);
    c.arrange();
    ExpectMapiRoute();
    EXPECT_EQ(fake_.CallsOf("Create"), c.probe);
    EXPECT_EQ(fake_.Connections(), Sent());
  }
}

TEST_F(Dispatch, AnAddinThatFailsTheJobHandsItOn) {
  struct Case {
    const char* name;
    std::function<void()> arrange;
    test::AddinFailure failure;
    Sent sent;
  };
  const Case cases[] = {
      {"refuses after the probe",
       [this] { StartAddin(Peer::kAccept, 1); },
       test::kNotConnected,
       {""}},
      {"resets",
       [this] { StartAddin(Peer::kReset); },
       test::kNotSent,
       {"", kPayload.substr(0, kPayload.size() / 2)}},
      {"never reads",
       [this] {
         fake_.SetSendWindow(50);
         StartAddin(Peer::kNeverRead);
       },
       test::kNotSent,
       {"", kPayload.substr(0, 50)}},
      {"takes its port away",
       [this] {
         StartAddin();
         // Without the fax client's key only the port is asked of this function.
         fake_.FailCallOf("QueryValue", 1, platform::kFileNotFound);
       },
       test::kNoPort,
       {""}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    StartOver();
    c.arrange();
    ExpectMapiRoute(AddinLog(kPayload) + c.failure.log);
    EXPECT_EQ(fake_.Connections(), c.sent);
  }
}

TEST_F(Dispatch, TheRouteThatRunsLastDecides) {
  StartAddin(Peer::kAccept, 1);
  fake_.SetDword(Hive::kCurrentUser, test::kClientKey, u"SkipExtendedMapi", 1);
  EXPECT_TRUE(DispatchJob(Job()));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(Dispatch, ADivertedJobIsWrittenByEitherRoute) {
  for (const bool has_addin : {false, true}) {
    StartOver();
    if (has_addin) {
      StartAddin();
    }
    EXPECT_TRUE(DispatchJob(test::JobWith(u"O", u"payload.json")));
    EXPECT_EQ(LogText(), has_addin ? AddinLog(kPayload) : kMapiLog);
    EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\payload.json"), kPayload);
    EXPECT_EQ(fake_.Connections(), has_addin ? Sent{""} : Sent());
    EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  }
}

}  // namespace
}  // namespace zentpost
