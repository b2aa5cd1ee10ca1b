// First arguments that are no good job file: each gives a clear outcome and nothing is lost.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

class JobFile : public JobTest {
 protected:
  // Runs the tool on "job.json" with an add-in that is there, as a document: the file is not a job
  // file, keeps its bytes, and the log says where parsing stopped.
  void ExpectDocument(const std::string& bytes, const std::string& error_position) {
    SetFile("job.json", bytes);
    ExpectDelivery({"job.json"}, Payload({.file_name = "job.json"}), NotAJobFile(error_position));
    ExpectJobFile(bytes);
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
    ExpectDocument(each.bytes, each.error_position);
  }
}

TEST_F(JobFile, HundredThousandLevels) {
  SwitchLogOn();
  // The JSON library goes down a thousand levels.
  const std::string close(100000, ']');
  ExpectDocument(std::string(100000, '[') + close, std::string(99000, '[') + close);
  std::string objects;
  for (int i = 0; i < 100000; ++i) {
    objects += "{\"a\":";
  }
  ExpectDocument(objects, objects.substr(std::size_t{1000} * 5));
}

TEST_F(JobFile, SixtyFourMebibytesThatAreNotJson) {
  const std::string text(std::size_t{64} << 20, 'x');
  ExpectDocument(text, text);
}

// In a member that nobody reads, and that is kept all the same.
TEST_F(JobFile, SixtyFourMebibytesOfAJob) {
  const std::string ballast = '"' + std::string(std::size_t{64} << 20, 'b') + '"';
  SetFile("job.json", R"({"Ballast": )" + ballast + R"(, "FilePath": "a", "SourceFileName": "b"})");
  ExpectDelivery({"job.json"}, Payload({.file_name = "a", .attachment_name = "b.pdf"}));
  ExpectJobFile(test::WithSuccess("{\n\t\"Ballast\":\t" + ballast +
                                  ",\n\t\"FilePath\":\t\"a\",\n\t\"SourceFileName\":\t\"b\"\n}"));
}

TEST_F(JobFile, ZeroBehindTheJobEndsIt) {
  SetFile("job.json", std::string(kJobFile) + std::string(1, '\0') + "{\"FilePath\": \"other\"}");
  ExpectDelivery({"job.json"}, SamplePayload());
  ExpectJobFile(JobFileDelivered());
}

TEST_F(JobFile, BytesOfLatin1AreReplacedInThePayloadAndKeptInTheFile) {
  const Job job = {.name =
                       "Gr\xFC\xDF"
                       "e"};
  SetFile("job.json", job.File());
  // U+FFFD is EF BF BD, which is read as Windows-1252 and sent in UTF-8.
  const std::string replaced = "\xC3\xAF\xC2\xBF\xC2\xBD";
  ExpectDelivery({"job.json"}, Payload({.file_name = "a.pdf",
                                        .attachment_name = "Gr" + replaced + replaced + "e.pdf"}));
  ExpectJobFile(test::WithSuccess(job.File()));
}

// It has no place for a result, and is somebody's document.
TEST_F(JobFile, JsonThatIsNoObjectIsAJobFileWithoutADocument) {
  for (const char* json : {"[1, 2]", " \"text\" ", "17 ", "null"}) {
    SCOPED_TRACE(json);
    SetFile("job.json", json);
    ExpectDelivery({"job.json"}, Payload({}), test::kNoFilePathLog);
    ExpectJobFile(json);
  }
}

TEST_F(JobFile, FolderIsADocument) {
  std::filesystem::create_directory(PathOf("folder.json"));
  ExpectDelivery({"folder.json"}, Payload({.file_name = "folder.json"}), NotAJobFile());
  EXPECT_TRUE(std::filesystem::is_empty(PathOf("folder.json")));
}

// Nobody would ever write into it: whoever opened it as a file would wait for ever.
TEST_F(JobFile, NamedPipeIsADocumentAndIsNotWaitedFor) {
  const std::string pipe = Utf8(machine_.AddPipe().u16string());
  ExpectDelivery({pipe}, Payload({.file_name = Replaced(pipe, "\\", "\\\\")}), NotAJobFile());
}

TEST_F(JobFile, NoResultIsWrittenForADocument) {
  SetFile("letter.pdf", "%PDF");

  EXPECT_EQ(Run({"letter.pdf", "0301"}).exit_code, 1);

  EXPECT_EQ(FileBytes("letter.pdf"), "%PDF");
}

}  // namespace
}  // namespace zentpost::e2e
