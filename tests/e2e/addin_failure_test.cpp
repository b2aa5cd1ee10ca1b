// Add-ins that let a job down after the probe.
#include <thread>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

// More than the systems keep for a peer that does not read.
constexpr std::size_t kMoreThanBuffers = std::size_t{16} << 20;

class AddinFailure : public JobTest {
 protected:
  void SetBigJob(std::size_t size) {
    big_.comment.assign(size, 'c');
    SetFile("job.json", big_.File());
  }

  // A job of that size for an add-in that never reads: the send is cancelled, and the mail route
  // takes over.
  void ExpectCancelled(std::size_t size) {
    Addin addin({.misbehaviour = Misbehaviour::kNeverRead, .connection = 2});
    SetAddinPort(addin);
    SetBigJob(size);

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(Ends(addin.Finish()), "probe, spoiled");
    // Each wait lasts a millisecond at least.
    EXPECT_GE(run.duration, std::chrono::milliseconds(10000));
    ExpectLog(run, Started() + test::AddinLog(big_.Payload()) + test::kNotSent.log +
                       NoMapiLines(big_.Mapi()));
    ExpectJobFile(test::WithMapiError(big_.File()));
  }

  // Options for a run in which `job_file` becomes what the job file holds when the mail route
  // begins: the add-in route's outcome, which the mail route then writes over.
  ProcessOptions WithLookBetweenTheRoutes(std::string& job_file) {
    ProcessOptions options = machine_.Options();
    options.at_debug_output = [this, &job_file](std::string_view text) {
      if (text.ends_with(" - INFO   : ProcessToExtendedMapi(): Parameters :")) {
        job_file = FileBytes("job.json");
      }
    };
    return options;
  }
  static void ExpectBetweenTheRoutes(const std::string& expected, const std::string& job_file) {
    if (DebuggerStopsProcess()) {
      EXPECT_TRUE(Same(expected, job_file));
      KeepJobFile(job_file);
    }
  }

  Job big_ = {.receiver = "0301"};
};

TEST_F(AddinFailure, RefusesAfterTheProbe) {
  Addin addin({.misbehaviour = Misbehaviour::kStopAfterProbe});
  SetAddinPort(addin);
  SwitchLogOn();
  SetFile("job.json", kJobFile);
  std::string between_the_routes;

  const ToolRun run = Run({"job.json"}, WithLookBetweenTheRoutes(between_the_routes));

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(Ends(addin.Finish()), "unaccepted");
  ExpectBetweenTheRoutes(JobFileWithResult(1, test::kNotConnected.code, test::kNotConnected.text),
                         between_the_routes);
  ExpectJobFile(JobFileNotDelivered());
  ExpectLog(run, Started() + test::AddinLog(SamplePayload()) +
                     Error("ProcessToOutlookClient(): The client connection to 127.0.0.1:" +
                           std::to_string(addin.port()) + " cannot be established.") +
                     NoMapiLines(SampleMapi()));
}

TEST_F(AddinFailure, RefusesAfterTheProbeAndTheMailRouteIsSkipped) {
  Addin addin({.misbehaviour = Misbehaviour::kStopAfterProbe});
  SetAddinPort(addin);
  SkipSending();
  SetFile("job.json", kJobFile);

  // The route that runs last decides.
  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectJobFile(JobFileDelivered());
}

TEST_F(AddinFailure, NeverReads64MiBSoThatTheSendIsCancelledAfterTenThousandWaits) {
  ExpectCancelled(std::size_t{64} << 20);
}

TEST_F(AddinFailure, NeverReads32MiBSoThatTheSendIsCancelled) {
  ExpectCancelled(std::size_t{32} << 20);
}

// The system holds the bytes for the add-in; nobody waits until it has read them.
TEST_F(AddinFailure, DeliberateASmallPayloadThatIsReadLateOrNeverCountsAsReached) {
  for (const auto& [misbehaviour, ends] : {std::pair(Misbehaviour::kNeverRead, "probe, spoiled"),
                                           std::pair(Misbehaviour::kSlow, "probe, dropped")}) {
    SCOPED_TRACE(ends);
    Addin addin({.misbehaviour = misbehaviour, .connection = 2});
    SetAddinPort(addin);
    SetFile("job.json", kJobFile);

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(Ends(addin.Finish()), ends);
    ExpectJobFile(JobFileDelivered());
    ExpectLog(run, Started() + SentLines(SamplePayload()));
  }
}

TEST_F(AddinFailure, ResetsTheConnectionInMidPayload) {
  Addin addin({.misbehaviour = Misbehaviour::kReset, .connection = 2});
  SetAddinPort(addin);
  SetBigJob(kMoreThanBuffers);
  std::string between_the_routes;

  const ToolRun run = Run({"job.json"}, WithLookBetweenTheRoutes(between_the_routes));

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(Ends(addin.Finish()), "probe, spoiled");
  ExpectBetweenTheRoutes(test::WithResult(big_.File(), 1, test::kNotSent.code, test::kNotSent.text),
                         between_the_routes);
  ExpectLog(run, Started() + test::AddinLog(big_.Payload()) + test::kNotSent.log +
                     NoMapiLines(big_.Mapi()));
  ExpectJobFile(test::WithMapiError(big_.File()));
}

TEST_F(AddinFailure, BigPayloadArrivesWhole) {
  SetBigJob(kMoreThanBuffers);
  ExpectDelivery({"job.json"}, big_.Payload());
  ExpectJobFile(test::WithSuccess(big_.File()));
}

TEST_F(AddinFailure, BigPayloadArrivesWholeWhenTheAddinReadsLate) {
  constexpr std::chrono::seconds kLate{3};
  Addin addin({.at_probe = [&] { std::this_thread::sleep_for(kLate); }});
  SetAddinPort(addin);
  SetBigJob(std::size_t{32} << 20);

  const ToolRun run = Run({"job.json"});

  EXPECT_GE(run.duration, kLate);
  ExpectDelivered(run, addin, big_.Payload(), "job.json");
  ExpectJobFile(test::WithSuccess(big_.File()));
}

// The payload does not fit into the system's buffers, so the job cannot end before the add-in reads
// on, and it does not do so before the job file is another.
TEST_F(AddinFailure, AJobFileThatVanishesOrIsSpoiledDuringTheJobStaysSo) {
  const std::string spoiled = "{\"FilePath\": spoiled}";
  for (const bool vanishes : {true, false}) {
    SCOPED_TRACE(vanishes);
    Addin addin({.at_probe = [&] {
      if (vanishes) {
        std::filesystem::remove(PathOf("job.json"));
      } else {
        SetFile("job.json", spoiled);
      }
    }});
    SetAddinPort(addin);
    SetBigJob(kMoreThanBuffers);

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(test::SourceOf(run.outcome),
              vanishes ? test::Source::kModel : test::Source::kSpoiledJobFile);
    ExpectReceived(addin, big_.Payload());
    EXPECT_EQ(ReadBytes(PathOf("job.json")), vanishes ? std::nullopt : std::optional(spoiled));
    ExpectLog(run, Started() + SentLines(big_.Payload()) +
                       test::NoJsonLog("WriteJobFileResult", vanishes ? "" : "spoiled}"));
  }
}

// That the result could not be written is not logged.
TEST_F(AddinFailure, ReadOnlyJobFileKeepsItsContentAndTheJobItsOutcome) {
  SetFile("job.json", kJobFile);
  const ReadOnly read_only(PathOf("job.json"));

  ExpectDelivery({"job.json"}, SamplePayload());
  ExpectJobFile(kJobFile);

  SetAddinPort("0");
  const ToolRun run = Run({"job.json"});
  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run, Started() + NoMapiLines(SampleMapi()));
  ExpectJobFile(kJobFile);
}

}  // namespace
}  // namespace zentpost::e2e
