// Jobs whose field "O" diverts their payload into a file.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class Diversion : public JobTest {
 protected:
  // Runs a job that is diverted to `output`, with an add-in or without. It counts as delivered, and
  // no connection brings the payload.
  void Divert(const std::string& output, bool has_addin) {
    SCOPED_TRACE(output + (has_addin ? " with an add-in" : ""));
    const Job job = {.output = output};
    Addin addin;
    SetAddinPort(addin, has_addin);
    SetFile("job.json", job.File());

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(Ends(addin.Finish()), has_addin ? "probe" : "");
    ExpectJobFile(test::WithSuccess(job.File()));
    ExpectLog(run, Started() +
                       (has_addin ? test::AddinLog(job.Payload()) : test::MapiJobLog(job.Mapi())));
  }

  const std::string payload_ = Job().Payload();
};

TEST_F(Diversion, BareNameIsInTheFolderForTemporaryFiles) {
  SwitchLogOn();
  for (const bool has_addin : {true, false}) {
    Divert("payload.json", has_addin);
    EXPECT_TRUE(Same(payload_, FileBytes("temporary/payload.json")));
    EXPECT_FALSE(FileExists("payload.json"));
    KeepPayload(FileBytes("temporary/payload.json"));
    KeepJobFile(FileBytes("job.json"));
    std::filesystem::remove(PathOf("temporary/payload.json"));
  }
}

TEST_F(Diversion, PathIsUsedAsItStandsWithEitherSeparator) {
  std::filesystem::create_directory(PathOf("out"));
  for (const bool has_addin : {false, true}) {
    for (const std::string& output :
         {std::string(R"(out\payload.json)"), std::string("out/payload.json"),
          Utf8((machine_.Folder() / "out" / "payload.json").u16string())}) {
      SetFile("out/payload.json", std::string(5000, 'x'));  // replaced, not overwritten in part
      Divert(output, has_addin);
      EXPECT_TRUE(Same(payload_, FileBytes("out/payload.json")));
      EXPECT_TRUE(std::filesystem::is_empty(machine_.TemporaryFolder()));
    }
  }
}

TEST_F(Diversion, FaxCommandCanDivert) {
  const ToolRun run = Run({"letter.pdf", "0301;Opayload.json;EErika"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(
      Same(Payload({.receiver = "0301", .recipient_name = "Erika", .file_name = "letter.pdf"}),
           FileBytes("temporary/payload.json")));
  ExpectLog(run, NotAJobFile() + Started("letter.pdf 0301;Opayload.json;EErika") +
                     test::MapiJobLog(
                         {.receiver = "0301", .recipient = "Erika", .attachment = "letter.pdf"}));
}

TEST_F(Diversion, DeliberateNamedPipeIsNotWrittenAndStillCountsAsDelivered) {
  const std::string pipe = Utf8(machine_.AddPipe().u16string());
  for (const bool has_addin : {false, true}) {
    Divert(pipe, has_addin);
    EXPECT_TRUE(std::filesystem::is_empty(machine_.TemporaryFolder()));
  }
}

TEST_F(Diversion, DeliberateFileThatCannotBeWrittenStillCountsAsDelivered) {
  for (const bool has_addin : {false, true}) {
    Divert("missing/payload.json", has_addin);
    EXPECT_FALSE(FileExists("missing"));
  }
}

}  // namespace
}  // namespace zentpost::e2e
