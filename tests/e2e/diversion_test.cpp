// Jobs whose field "O" diverts their payload into a file.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

constexpr char kDivertedJob[] =
    R"({"FilePath": "a.pdf", "SourceFileName": "a", "Cmd": {"Commands": {"O": "OUTPUT"}}})";

class Diversion : public JobTest {
 protected:
  // The job file with `output` as it stands between JSON's quotes.
  void SetJobFile(std::string_view output) {
    SetFile("job.json", Replaced(kDivertedJob, "OUTPUT", output));
  }
  static std::string Result(std::string_view output) {
    return "{\n\t\"FilePath\":\t\"a.pdf\",\n\t\"SourceFileName\":\t\"a\",\n\t\"Cmd\":\t{\n"
           "\t\t\"Commands\":\t{\n\t\t\t\"O\":\t\"" +
           std::string(output) +
           "\"\n\t\t}\n\t},\n\t\"Result\":\t{\n\t\t\"Status\":\t0,\n\t\t\"ErrorCode\":\t0,\n"
           "\t\t\"ErrorText\":\t\"\"\n\t}\n}";
  }
  const std::string payload_ = Payload({.file = "a.pdf", .attachment = "a.pdf"});
  const MapiJob mapi_job_ = {.attachment = "a.pdf", .attachment_name = "a.pdf", .is_sent = false};
};

TEST_F(Diversion, BareNameIsInTheFolderForTemporaryFilesAndNoConnectionBringsThePayload) {
  Addin addin;
  SetAddinPort(addin);
  SwitchLogOn();
  SetJobFile("payload.json");

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_EQ(Ends(addin.Finish()), "probe");
  EXPECT_TRUE(Same(payload_, FileBytes("temporary/payload.json")));
  EXPECT_FALSE(FileExists("payload.json"));
  EXPECT_TRUE(Same(Result("payload.json"), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + AddinLines(payload_), run.log));
  KeepPayload(FileBytes("temporary/payload.json"));
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(Diversion, BareNameWithoutAnAddin) {
  SwitchLogOn();
  SetJobFile("payload.json");

  const ToolRun run = Run({"job.json"});

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(Same(payload_, FileBytes("temporary/payload.json")));
  EXPECT_TRUE(Same(Result("payload.json"), FileBytes("job.json")));
  EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLines(mapi_job_), run.log));
}

TEST_F(Diversion, PathIsUsedAsItStandsWithEitherSeparator) {
  for (const bool has_addin : {false, true}) {
    for (const char* output : {R"(out\\payload.json)", "out/payload.json"}) {
      SCOPED_TRACE(std::string(output) + (has_addin ? " with an add-in" : ""));
      Addin addin;
      SetAddinPort(has_addin ? std::to_string(addin.port()) : "0");
      std::filesystem::create_directory(PathOf("out"));
      SetFile("out/payload.json", std::string(5000, 'x'));  // replaced, not overwritten in part
      SetJobFile(output);

      const ToolRun run = Run({"job.json"});

      EXPECT_EQ(run.exit_code, 0);
      EXPECT_EQ(Ends(addin.Finish()), has_addin ? "probe" : "");
      EXPECT_TRUE(Same(payload_, FileBytes("out/payload.json")));
      EXPECT_TRUE(std::filesystem::is_empty(machine_.TemporaryFolder()));
      EXPECT_TRUE(Same(Result(output), FileBytes("job.json")));
    }
  }
}

TEST_F(Diversion, AbsolutePath) {
  const std::string path = Utf8((machine_.Folder() / "absolute.json").u16string());
  SetJobFile(Replaced(path, "\\", "\\\\"));

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  EXPECT_TRUE(Same(payload_, FileBytes("absolute.json")));
}

TEST_F(Diversion, FaxCommandCanDivert) {
  const ToolRun run = Run({"letter.pdf", "0301;Opayload.json;EErika"});

  const std::string payload =
      Payload({.receiver = "0301", .recipient = "Erika", .file = "letter.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(Same(payload, FileBytes("temporary/payload.json")));
  EXPECT_TRUE(Same(NotAJobFile() + Info("StartZentpost(): letter.pdf 0301;Opayload.json;EErika") +
                       MapiLines({.receiver = "0301",
                                  .recipient = "Erika",
                                  .attachment = "letter.pdf",
                                  .is_sent = false}),
                   run.log));
}

TEST_F(Diversion, DeliberateNamedPipeIsNotWrittenAndStillCountsAsDelivered) {
  const std::string pipe = Replaced(Utf8(machine_.AddPipe().u16string()), "\\", "\\\\");
  for (const bool has_addin : {false, true}) {
    SCOPED_TRACE(has_addin);
    Addin addin;
    SetAddinPort(has_addin ? std::to_string(addin.port()) : "0");
    SetJobFile(pipe);

    EXPECT_EQ(Run({"job.json"}).exit_code, 0);

    EXPECT_EQ(Ends(addin.Finish()), has_addin ? "probe" : "");
    EXPECT_TRUE(std::filesystem::is_empty(machine_.TemporaryFolder()));
    EXPECT_TRUE(Same(Result(pipe), FileBytes("job.json")));
  }
}

TEST_F(Diversion, DeliberateFileThatCannotBeWrittenStillCountsAsDelivered) {
  for (const bool has_addin : {false, true}) {
    SCOPED_TRACE(has_addin);
    Addin addin;
    SetAddinPort(has_addin ? std::to_string(addin.port()) : "0");
    SetJobFile("missing/payload.json");

    EXPECT_EQ(Run({"job.json"}).exit_code, 0);

    EXPECT_EQ(Ends(addin.Finish()), has_addin ? "probe" : "");
    EXPECT_FALSE(FileExists("missing"));
    EXPECT_TRUE(Same(Result("missing/payload.json"), FileBytes("job.json")));
  }
}

}  // namespace
}  // namespace zentpost::e2e
