// First arguments that are no good job file: each gives a clear outcome and nothing is lost.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class JobFile : public JobTest {
 protected:
  // Runs the tool on "job.json" with an add-in that is there, as a document: the file is not a job
  // file, keeps its bytes, and the log says where parsing stopped.
  void ExpectDocument(std::string_view error_position) {
    const std::string bytes = FileBytes("job.json");
    Addin addin;
    SetAddinPort(addin);

    const ToolRun run = Run({"job.json"});

    const std::string payload = Payload({.file = "job.json"});
    EXPECT_EQ(run.exit_code, 0);
    ExpectDelivered(addin, payload);
    EXPECT_TRUE(Same(bytes, FileBytes("job.json")));
    EXPECT_TRUE(Same(NotAJobFile(error_position) + Info("StartZentpost(): job.json") +
                         AddinLines(payload) + Info(kSentMessage),
                     run.log));
  }
};

TEST_F(JobFile, TextsThatAreNotJson) {
  const std::string zero(1, '\0');
  const struct {
    const char* name;
    std::string bytes;
    const char* error_position;
  } cases[] = {
      {"empty", "", ""},
      {"blanks alone", "  \r\n", ""},
      {"byte-order mark alone", "\xEF\xBB\xBF", ""},
      {"no value", R"({"FilePath": nonsense, "x": 1})", R"(nonsense, "x": 1})"},
      {"truncated in a text", R"({"FilePath": "c:\\a)", R"(c:\\a)"},
      {"truncated behind a member", R"({"FilePath": "a")", ""},
      {"a zero inside", R"({"FilePath": "a)" + zero + R"(", "SourceFileName": "b"})", "a"},
      {"UTF-16", "\xFF\xFE{" + zero + "}" + zero, "\xEF\xBF\xBD\xEF\xBF\xBD{"},
      {"UTF-16 with the high byte first", "\xFE\xFF" + zero + "{", "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"a text with bytes of Latin-1",
       "Gr\xFC\xDF"
       "e",
       "Gr\xEF\xBF\xBD\xEF\xBF\xBD"
       "e"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    SetFile("job.json", each.bytes);
    ExpectDocument(each.error_position);
  }
}

TEST_F(JobFile, HundredThousandLevels) {
  SwitchLogOn();
  // The JSON library goes down a thousand levels.
  SetFile("job.json", std::string(100000, '[') + std::string(100000, ']'));
  ExpectDocument(std::string(99000, '[') + std::string(100000, ']'));
}

TEST_F(JobFile, HundredThousandObjects) {
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += "{\"a\":";
  }
  SetFile("job.json", text);
  ExpectDocument(text.substr(std::size_t{1000} * 5));
}

TEST_F(JobFile, SixtyFourMebibytesThatAreNotJson) {
  const std::string text(std::size_t{64} << 20, 'x');
  SetFile("job.json", text);
  ExpectDocument(text);
}

TEST_F(JobFile, SixtyFourMebibytesOfAJob) {
  Addin addin;
  SetAddinPort(addin);
  // In a member that nobody reads, and that is kept all the same.
  const std::string ballast(std::size_t{64} << 20, 'b');
  SetFile("job.json",
          R"({"Ballast": ")" + ballast + R"(", "FilePath": "a", "SourceFileName": "b"})");

  const ToolRun run = Run({"job.json"});

  const std::string payload = Payload({.file = "a", .attachment = "b.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(Same("{\n\t\"Ballast\":\t\"" + ballast +
                       "\",\n\t\"FilePath\":\t\"a\",\n\t\"SourceFileName\":\t\"b\",\n"
                       "\t\"Result\":\t{\n\t\t\"Status\":\t0,\n\t\t\"ErrorCode\":\t0,\n"
                       "\t\t\"ErrorText\":\t\"\"\n\t}\n}",
                   FileBytes("job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(payload) + Info(kSentMessage), run.log));
}

TEST_F(JobFile, ZeroBehindTheJobEndsIt) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json", std::string(kJobFile) + std::string(1, '\0') + "{\"FilePath\": \"other\"}");

  EXPECT_EQ(Run({"job.json"}).exit_code, 0);

  ExpectDelivered(addin, kPayload);
  EXPECT_TRUE(Same(JobFileDelivered(), FileBytes("job.json")));
}

TEST_F(JobFile, BytesOfLatin1AreReplacedInThePayloadAndKeptInTheFile) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("job.json",
          "{\"FilePath\": \"a.pdf\", \"SourceFileName\": \"Gr\xFC\xDF"
          "e\"}");

  const ToolRun run = Run({"job.json"});

  // U+FFFD is EF BF BD, which is read as Windows-1252 and sent in UTF-8.
  const std::string replaced = "\xC3\xAF\xC2\xBF\xC2\xBD";
  const std::string payload =
      Payload({.file = "a.pdf", .attachment = "Gr" + replaced + replaced + "e.pdf"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(
      Same("{\n\t\"FilePath\":\t\"a.pdf\",\n\t\"SourceFileName\":\t\"Gr\xFC\xDF"
           "e\",\n"
           "\t\"Result\":\t{\n\t\t\"Status\":\t0,\n\t\t\"ErrorCode\":\t0,\n"
           "\t\t\"ErrorText\":\t\"\"\n\t}\n}",
           FileBytes("job.json")));
  EXPECT_TRUE(
      Same(Info("StartZentpost(): job.json") + AddinLines(payload) + Info(kSentMessage), run.log));
}

TEST_F(JobFile, JsonThatIsNoObjectIsAJobFileWithoutADocument) {
  for (const char* json : {"[1, 2]", " \"text\" ", "17 ", "null"}) {
    SCOPED_TRACE(json);
    Addin addin;
    SetAddinPort(addin);
    SetFile("job.json", json);

    const ToolRun run = Run({"job.json"});

    EXPECT_EQ(run.exit_code, 0);
    ExpectDelivered(addin, Payload({}));
    // It has no place for a result, and is somebody's document.
    EXPECT_TRUE(Same(json, FileBytes("job.json")));
    EXPECT_TRUE(Same(Error("GetDocumentFromJson(): Filename not found") +
                         Error("ReadFromFile(): Read document failed") +
                         Info("StartZentpost(): job.json") + AddinLines(Payload({})) +
                         Info(kSentMessage),
                     run.log));
  }
}

TEST_F(JobFile, FolderIsADocument) {
  Addin addin;
  SetAddinPort(addin);
  std::filesystem::create_directory(PathOf("folder.json"));

  const ToolRun run = Run({"folder.json"});

  const std::string payload = Payload({.file = "folder.json"});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(std::filesystem::is_empty(PathOf("folder.json")));
  EXPECT_TRUE(Same(NotAJobFile() + Info("StartZentpost(): folder.json") + AddinLines(payload) +
                       Info(kSentMessage),
                   run.log));
}

// Nobody would ever write into it: whoever opened it as a file would wait for ever.
TEST_F(JobFile, NamedPipeIsADocumentAndIsNotWaitedFor) {
  const std::string pipe = Utf8(machine_.AddPipe().u16string());
  const std::string in_json = Replaced(pipe, "\\", "\\\\");
  Addin addin;
  SetAddinPort(addin);

  const ToolRun run = Run({pipe});

  const std::string payload = Payload({.file = in_json});
  EXPECT_EQ(run.exit_code, 0);
  ExpectDelivered(addin, payload);
  EXPECT_TRUE(Same(
      NotAJobFile() + Info("StartZentpost(): " + pipe) + AddinLines(payload) + Info(kSentMessage),
      run.log));
}

TEST_F(JobFile, MissingOneIsADocumentAndIsNotCreated) {
  Addin addin;
  SetAddinPort(addin);

  EXPECT_EQ(Run({"missing.json"}).exit_code, 0);

  ExpectDelivered(addin, Payload({.file = "missing.json"}));
  EXPECT_FALSE(FileExists("missing.json"));
}

TEST_F(JobFile, NoResultIsWrittenForADocument) {
  SetFile("letter.pdf", "%PDF");

  EXPECT_EQ(Run({"letter.pdf", "0301"}).exit_code, 1);

  EXPECT_EQ(FileBytes("letter.pdf"), "%PDF");
}

}  // namespace
}  // namespace zentpost::e2e
