// How the add-in's port is found, and what happens where none is.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class AddinPort : public JobTest {
 protected:
  void SetUp() override { SetFile("job.json", kJobFile); }

  // The add-in is not asked.
  void ExpectMailRoute() {
    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(Ends(addin_.Finish()), "");
    ExpectJobFile(JobFileNotDelivered());
    ExpectLog(run, Started() + NoMapiLines(SampleMapi()));
  }

  // These mean one port each, which something else on this machine may have taken.
  void ExpectPort(std::uint16_t port, const char* text) {
    Addin addin({.port = port});
    if (!addin.is_listening()) {
      GTEST_SKIP() << "port " << port << " is in use";
    }
    SetAddinPort(text);
    EXPECT_EQ(Run({"job.json"}).exit_code, 0);
    ExpectReceived(addin, SamplePayload());
  }

  Addin addin_;
  const std::string port_ = std::to_string(addin_.port());
};

TEST_F(AddinPort, TextsThatAreThePort) {
  std::vector<std::string> texts = {" \t+" + port_, port_ + ";5000", port_ + " ",
                                    std::string(19 - port_.size(), '0') + port_};
  // The low 16 bits count, whatever stands above them.
  for (const int multiple : {1, 2, -1, 1000}) {
    texts.push_back(std::to_string(addin_.port() + multiple * 65536));
  }
  std::string ends;
  for (const std::string& text : texts) {
    SCOPED_TRACE(text);
    SetAddinPort(text);
    EXPECT_EQ(Run({"job.json"}).exit_code, 0);
    ends += ends.empty() ? "probe, delivered" : ", probe, delivered";
  }
  EXPECT_EQ(Ends(addin_.Finish()), ends);
}

TEST_F(AddinPort, SeventyThousandIsPort4464) {
  ExpectPort(4464, "70000");
}

TEST_F(AddinPort, MinusOneIsPort65535) {
  ExpectPort(65535, "-1");
}

TEST_F(AddinPort, TextsThatAreNoPort) {
  // The last does not fit.
  for (const std::string& text :
       {std::string(), std::string("0"), std::string("x"), std::string("65536"), std::string("- 1"),
        std::string(20 - port_.size(), '0') + port_}) {
    SCOPED_TRACE(text);
    SetFile("job.json", kJobFile);
    SetAddinPort(text);
    ExpectMailRoute();
  }
}

TEST_F(AddinPort, NumberValueIsNotUnderstood) {
  machine_.SetNumber(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, addin_.port());
  ExpectMailRoute();
}

TEST_F(AddinPort, MissingValue) {
  machine_.AddKey(Hive::kCurrentUser, registry::kAddinKey);
  ExpectMailRoute();
}

TEST_F(AddinPort, MachinesValueIsNotAskedFor) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not write to HKEY_LOCAL_MACHINE";
  }
  machine_.SetText(Hive::kLocalMachine, registry::kAddinKey, registry::kAddinPort, port_);
  ExpectMailRoute();
}

TEST_F(AddinPort, PortWithoutListenerLeavesNoTraceInTheLog) {
  SetAddinPort(std::to_string(PortWithoutListener()));
  ExpectMailRoute();
  KeepJobFile(FileBytes("job.json"));
}

}  // namespace
}  // namespace zentpost::e2e
