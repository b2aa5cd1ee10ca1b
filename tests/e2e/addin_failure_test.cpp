// Add-ins that let a job down after the probe.
#include <thread>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

constexpr char kSendingFailed[] = "ProcessToOutlookClient(): The sending failed.";
// More than the systems keep for a peer that does not read.
constexpr std::size_t kMoreThanBuffers = std::size_t{16} << 20;
constexpr std::size_t k32MiB = std::size_t{32} << 20;
constexpr std::size_t k64MiB = std::size_t{64} << 20;

class AddinFailure : public JobTest {
 protected:
  // A job whose comment makes the payload big; the rest of it is fixed.
  void SetBigJobFile(std::size_t size) {
    big_ = size;
    SetFile("job.json", R"({"FilePath": "a.pdf", "SourceFileName": "a", "Cmd": {"Parameters": )"
                        R"({"Comment": ")" +
                            Comment() + R"("}, "Receiver": ["0301"]}})");
  }
  [[nodiscard]] std::string Comment() const { return std::string(big_, 'c'); }
  [[nodiscard]] std::string BigPayload() const {
    return Payload(
        {.receiver = "0301", .file = "a.pdf", .attachment = "a.pdf", .comment = Comment()});
  }
  [[nodiscard]] std::string BigMapiLines() const {
    return MapiLines({.receiver = "0301",
                      .comment = Comment(),
                      .attachment = "a.pdf",
                      .attachment_name = "a.pdf"});
  }
  [[nodiscard]] std::string BigJobFile(std::string_view status, std::string_view code,
                                       std::string_view text) const {
    return "{\n\t\"FilePath\":\t\"a.pdf\",\n\t\"SourceFileName\":\t\"a\",\n\t\"Cmd\":\t{\n"
           "\t\t\"Parameters\":\t{\n\t\t\t\"Comment\":\t\"" +
           Comment() + "\"\n\t\t},\n\t\t\"Receiver\":\t[\"0301\"]\n\t},\n\t\"Result\":\t{\n" +
           "\t\t\"Status\":\t" + std::string(status) + ",\n\t\t\"ErrorCode\":\t" +
           std::string(code) + ",\n\t\t\"ErrorText\":\t\"" + std::string(text) + "\"\n\t}\n}";
  }

  // A job of that size for an add-in that never reads: the send is cancelled, and the mail route
  // takes over.
  void ExpectCancelled(std::size_t size) {
    Addin addin({.misbehaviour = Misbehaviour::kNeverRead, .connection = 2});
    SetAddinPort(addin);
    SetBigJobFile(size);

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 1);
    EXPECT_EQ(Ends(addin.Finish()), "probe, spoiled");
    // Each wait lasts a millisecond at least.
    EXPECT_GE(run.duration, std::chrono::milliseconds(10000));
    EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(BigPayload()) +
                         Error(kSendingFailed) + BigMapiLines(),
                     run.log));
    EXPECT_TRUE(Same(BigJobFile("1", "-2147467259", "MAPI Error"), FileBytes("job.json")));
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

 private:
  std::size_t big_ = 0;
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
  if (DebuggerStopsProcess()) {
    EXPECT_TRUE(
        Same(JobFileWithResult("1", "1004", "OutlookClient: Connection cannot be established."),
             between_the_routes));
    KeepJobFile(between_the_routes);
  }
  EXPECT_TRUE(Same(JobFileNotDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(kPayload) +
                       Error("ProcessToOutlookClient(): The client connection to 127.0.0.1:" +
                             std::to_string(addin.port()) + " cannot be established.") +
                       MapiLinesOfJobFile(),
                   run.log));
}

TEST_F(AddinFailure, RefusesAfterTheProbeAndTheMailRouteIsSkipped) {
  Addin addin({.misbehaviour = Misbehaviour::kStopAfterProbe});
  SetAddinPort(addin);
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);
  SetFile("job.json", kJobFile);

  // The route that runs last decides.
  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
}

TEST_F(AddinFailure, NeverReads64MiBSoThatTheSendIsCancelledAfterTenThousandWaits) {
  ExpectCancelled(k64MiB);
}

TEST_F(AddinFailure, NeverReads32MiBSoThatTheSendIsCancelled) {
  ExpectCancelled(k32MiB);
}

TEST_F(AddinFailure, DeliberateNeverReadPayloadThatTheSystemsBuffersHoldCountsAsReached) {
  Addin addin({.misbehaviour = Misbehaviour::kNeverRead, .connection = 2});
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(Ends(addin.Finish()), "probe, spoiled");
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(kPayload) + Info(kSentMessage), run.log));
}

TEST_F(AddinFailure, ResetsTheConnectionInMidPayload) {
  Addin addin({.misbehaviour = Misbehaviour::kReset, .connection = 2});
  SetAddinPort(addin);
  SetBigJobFile(kMoreThanBuffers);
  std::string between_the_routes;

  const ToolRun run = Run({"job.json"}, WithLookBetweenTheRoutes(between_the_routes));

  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(Ends(addin.Finish()), "probe, spoiled");
  if (DebuggerStopsProcess()) {
    EXPECT_TRUE(
        Same(BigJobFile("1", "1003", "OutlookClient: Transmission failure."), between_the_routes));
    KeepJobFile(between_the_routes);
  }
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(BigPayload()) +
                       Error(kSendingFailed) + BigMapiLines(),
                   run.log));
  EXPECT_TRUE(Same(BigJobFile("1", "-2147467259", "MAPI Error"), FileBytes("job.json")));
}

TEST_F(AddinFailure, DeliberateSlowReaderOfASmallPayloadCountsAsReached) {
  Addin addin({.misbehaviour = Misbehaviour::kSlow, .connection = 2});
  SetAddinPort(addin);
  SetFile("job.json", kJobFile);

  const ToolRun run = Run({"job.json"});

  // The system holds the bytes for the add-in; nobody waits until it has read them.
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(Ends(addin.Finish()), "probe, dropped");
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(kPayload) + Info(kSentMessage), run.log));
}

TEST_F(AddinFailure, BigPayloadArrivesWhole) {
  Addin addin;
  SetAddinPort(addin);
  SetBigJobFile(kMoreThanBuffers);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, BigPayload());
  EXPECT_TRUE(Same(BigJobFile("0", "0", ""), FileBytes("job.json")));
  EXPECT_TRUE(Same(
      Info("StartZentpost(): job.json") + AddinLines(BigPayload()) + Info(kSentMessage), run.log));
}

TEST_F(AddinFailure, BigPayloadArrivesWholeWhenTheAddinReadsLate) {
  constexpr std::chrono::seconds kLate{3};
  Addin addin({.at_probe = [&] { std::this_thread::sleep_for(kLate); }});
  SetAddinPort(addin);
  SetBigJobFile(k32MiB);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_GE(run.duration, kLate);
  ExpectDelivered(addin, BigPayload());
  EXPECT_TRUE(Same(BigJobFile("0", "0", ""), FileBytes("job.json")));
}

TEST_F(AddinFailure, JobFileThatVanishesDuringTheJobChangesNothingElse) {
  // The payload does not fit into the system's buffers, so the job cannot end before the add-in
  // reads on, and it does not do so before the job file is gone.
  Addin addin({.at_probe = [this] { std::filesystem::remove(PathOf("job.json")); }});
  SetAddinPort(addin);
  SetBigJobFile(kMoreThanBuffers);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, BigPayload());
  EXPECT_FALSE(FileExists("job.json"));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(BigPayload()) +
                       Info(kSentMessage) +
                       Error("WriteJobFileResult(): Parse JSON failed with error ''"),
                   run.log));
}

TEST_F(AddinFailure, JobFileThatIsSpoiledDuringTheJobIsLeftAsItIs) {
  Addin addin({.at_probe = [this] { SetFile("job.json", "{\"FilePath\": spoiled}"); }});
  SetAddinPort(addin);
  SetBigJobFile(kMoreThanBuffers);

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, BigPayload());
  EXPECT_EQ(FileBytes("job.json"), "{\"FilePath\": spoiled}");
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(BigPayload()) +
                       Info(kSentMessage) +
                       Error("WriteJobFileResult(): Parse JSON failed with error 'spoiled}'"),
                   run.log));
}

TEST_F(AddinFailure, ReadOnlyJobFileKeepsItsContentAndTheJobItsOutcome) {
  for (const bool has_addin : {true, false}) {
    SCOPED_TRACE(has_addin);
    Addin addin;
    SetAddinPort(has_addin ? std::to_string(addin.port()) : "0");
    SetFile("job.json", kJobFile);
    const ReadOnly read_only(PathOf("job.json"));

    const ToolRun run = Run({"job.json"});

    EXPECT_TRUE(Same(kJobFile, FileBytes("job.json")));
    // That the result could not be written is not logged.
    if (has_addin) {
      EXPECT_EQ(run.exit_code, 0);
      ExpectDelivered(addin, kPayload);
      EXPECT_TRUE(Same(
          Info("StartZentpost(): job.json") + AddinLines(kPayload) + Info(kSentMessage), run.log));
    } else {
      EXPECT_EQ(run.exit_code, 1);
      EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLinesOfJobFile(), run.log));
    }
  }
}

}  // namespace
}  // namespace zentpost::e2e
