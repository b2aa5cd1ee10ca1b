// How the add-in's port is found, and what happens where none is.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class AddinPort : public JobTest {
 protected:
  void SetUp() override { SetFile("job.json", kJobFile); }

  void ExpectMailRoute(Addin& addin) {
    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(Ends(addin.Finish()), "");
    EXPECT_TRUE(Same(JobFileNotDelivered(), FileBytes("job.json")));
    EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLinesOfJobFile(), run.log));
  }
};

TEST_F(AddinPort, LowSixteenBitsCountWhateverStandsAboveThem) {
  Addin addin;
  for (const int multiple : {1, 2, -1, 1000}) {
    const std::string text = std::to_string(addin.port() + multiple * 65536);
    SCOPED_TRACE(text);
    SetAddinPort(text);
    EXPECT_EQ(Run({"job.json"}).exit_code, 0);
  }
  EXPECT_EQ(Ends(addin.Finish()),
            "probe, delivered, probe, delivered, probe, delivered, probe, delivered");
}

// These two mean one port each, which something else on this machine may have taken.
TEST_F(AddinPort, SeventyThousandIsPort4464) {
  Addin addin({.port = 4464});
  if (!addin.is_listening()) {
    GTEST_SKIP() << "port 4464 is in use";
  }
  SetAddinPort("70000");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, kPayload);
}

TEST_F(AddinPort, MinusOneIsPort65535) {
  Addin addin({.port = 65535});
  if (!addin.is_listening()) {
    GTEST_SKIP() << "port 65535 is in use";
  }
  SetAddinPort("-1");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, kPayload);
}

TEST_F(AddinPort, NumberMayHaveBlanksAndASignInFrontAndAnythingBehind) {
  Addin addin;
  const std::string port = std::to_string(addin.port());
  for (const std::string& text :
       {" \t+" + port, port + ";5000", port + " ", std::string(19 - port.size(), '0') + port}) {
    SCOPED_TRACE(text);
    SetAddinPort(text);
    EXPECT_EQ(Run({"job.json"}).exit_code, 0);
  }
  EXPECT_EQ(Ends(addin.Finish()),
            "probe, delivered, probe, delivered, probe, delivered, probe, delivered");
}

TEST_F(AddinPort, TextsThatAreNoPort) {
  for (const char* text : {"", "0", "x", "65536", "- 1"}) {
    SCOPED_TRACE(text);
    Addin addin;
    SetFile("job.json", kJobFile);
    SetAddinPort(text);
    ExpectMailRoute(addin);
  }
}

TEST_F(AddinPort, TextOfTwentyCharactersDoesNotFit) {
  Addin addin;
  const std::string port = std::to_string(addin.port());
  SetAddinPort(std::string(20 - port.size(), '0') + port);
  ExpectMailRoute(addin);
}

TEST_F(AddinPort, NumberValueIsNotUnderstood) {
  Addin addin;
  machine_.SetNumber(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, addin.port());
  ExpectMailRoute(addin);
}

TEST_F(AddinPort, MissingValue) {
  Addin addin;
  machine_.AddKey(Hive::kCurrentUser, registry::kAddinKey);
  ExpectMailRoute(addin);
}

TEST_F(AddinPort, MissingKey) {
  Addin addin;
  ExpectMailRoute(addin);
}

TEST_F(AddinPort, MachinesValueIsNotAskedFor) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not write to HKEY_LOCAL_MACHINE";
  }
  Addin addin;
  machine_.SetText(Hive::kLocalMachine, registry::kAddinKey, registry::kAddinPort,
                   std::to_string(addin.port()));
  ExpectMailRoute(addin);
}

TEST_F(AddinPort, PortWithoutListenerLeavesNoTraceInTheLog) {
  SetAddinPort(std::to_string(PortWithoutListener()));

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(Same(JobFileNotDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLinesOfJobFile(), run.log));
  KeepJobFile(FileBytes("job.json"));
}

}  // namespace
}  // namespace zentpost::e2e
