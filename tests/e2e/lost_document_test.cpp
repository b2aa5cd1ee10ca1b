// What would cost a user a document: a text that begins like JSON, and a field "O" that leads to
// the job's own files.
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"

namespace zentpost::e2e {
namespace {

constexpr char kDocument[] = "%PDF-1.4\nsomebody's only copy\n";

class LostDocument : public JobTest {
 protected:
  // A job of the document `file` whose payload is diverted to `output`, on the given route. Gives
  // the job file as it is afterwards.
  std::string Divert(const std::string& file, const std::string& output, bool has_addin) {
    SCOPED_TRACE(output + (has_addin ? ", with an add-in" : ", without an add-in"));
    Addin addin;
    SetAddinPort(addin, has_addin);
    SetFile("job.json", Job{.document = file, .output = output}.File());
    const ToolRun run = Run({"job.json"});
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(Ends(addin.Finish()), has_addin ? "probe" : "");
    return FileBytes("job.json");
  }
};

TEST_F(LostDocument, ATextThatBeginsLikeJsonIsADocument) {
  SwitchLogOn();
  SkipSending();
  const struct {
    std::string text;
    std::string error;
  } cases[] = {
      {"2026-11-21 Dear Sir,\n", "-11-21 Dear Sir,\n"},
      {"1,2,3\r\n4,5,6\r\n", ",2,3\n4,5,6\n"},
      {"\"To be\" he said", "he said"},
      {"null and void", "and void"},
      {"[1] Introduction", "Introduction"},
      {"true story", "story"},
      {"-5 degrees", "degrees"},
      {"{\"a\":1}\n{\"b\":2}\n", "{\"b\":2}\n"},
      {"\xEF\xBB\xBF"
       "42 is the answer",
       "is the answer"},
      {std::string("{}\0 and more", 11), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    SetFile("letter.txt", c.text);

    const ToolRun run = Run({"letter.txt", "0301"});

    EXPECT_EQ(run.exit_code, 0);
    EXPECT_TRUE(Same(c.text, FileBytes("letter.txt")));
    ExpectLog(run, NotAJobFile(c.error) + Started("letter.txt 0301") +
                       test::MapiJobLog({.receiver = "0301", .attachment = "letter.txt"}));
  }
}

// Whatever a fax application leaves behind its object.
TEST_F(LostDocument, AJobFileStaysOneWhateverStandsBehindIt) {
  SkipSending();
  const std::string job = R"({"FilePath": "a.pdf", "SourceFileName": "a"})";
  SetFile("job.json", job);
  EXPECT_EQ(Run({"job.json"}).exit_code, 0);
  const std::string written = FileBytes("job.json");
  for (const std::string& rest :
       {std::string(" trailing"), std::string("}"), job, std::string("\0\xFF", 2)}) {
    SetFile("job.json", job + rest);
    EXPECT_EQ(Run({"job.json"}).exit_code, 0);
    ExpectJobFile(written);
  }
}

TEST_F(LostDocument, JsonThatIsNoObjectIsNeverRewritten) {
  for (const bool is_delivered : {false, true}) {
    if (is_delivered) {
      SkipSending();
    }
    for (const char* json : {"42", "[1]", "[1, 2]", "\"text\"", " null\r\n"}) {
      SCOPED_TRACE(json);
      SetFile("list.json", json);
      EXPECT_EQ(Run({"list.json"}).exit_code, is_delivered ? 0 : 1);
      EXPECT_TRUE(Same(json, FileBytes("list.json")));
    }
  }
}

TEST_F(LostDocument, TheFieldOIsNeverWrittenOverTheDocument) {
  SetFile("a long name of a document.pdf", kDocument);
  SetFile("temporary/doc.pdf", kDocument);
  std::filesystem::create_hard_link(PathOf("a long name of a document.pdf"), PathOf("link.pdf"));
  const std::string name = "a long name of a document.pdf";
  std::vector<std::pair<std::string, std::string>> cases = {
      {name, ".\\" + name},
      {name, "./" + name},
      {name, "temporary\\..\\" + name},
      {name, Utf8(PathOf(name).u16string())},
      {name, ".\\link.pdf"},
      {"link.pdf", ".\\" + name},
      {"temporary\\doc.pdf", "doc.pdf"},
      {Utf8((machine_.TemporaryFolder() / "doc.pdf").u16string()), "doc.pdf"},
  };
  for (const std::filesystem::path& path : OtherWaysTo(PathOf(name))) {
    cases.emplace_back(name, Utf8(path.u16string()));
  }
  for (const auto& [file, output] : cases) {
    for (const bool has_addin : {false, true}) {
      EXPECT_NE(Divert(file, output, has_addin).find("\"Status\":\t0"), std::string::npos);
      EXPECT_TRUE(Same(kDocument, FileBytes(name))) << output;
      EXPECT_TRUE(Same(kDocument, FileBytes("temporary/doc.pdf"))) << output;
    }
  }
  // Given on the command line, without a job file.
  SetAddinPort("0");
  SetFile("doc.pdf", kDocument);
  EXPECT_EQ(Run({"doc.pdf", "030;O.\\doc.pdf"}).exit_code, 0);
  EXPECT_TRUE(Same(kDocument, FileBytes("doc.pdf")));
}

TEST_F(LostDocument, TheFieldOIsNeverWrittenOverTheJobFile) {
  SetFile("a.pdf", kDocument);
  for (const std::string output : {".\\job.json", "./job.json", "temporary\\..\\job.json"}) {
    for (const bool has_addin : {false, true}) {
      const std::string job = Divert("a.pdf", output, has_addin);
      EXPECT_NE(job.find("\"SourceFileName\":\t\"a\""), std::string::npos) << job;
      EXPECT_NE(job.find("\"Status\":\t0"), std::string::npos) << job;
    }
  }
}

// What only looks like the document is somebody else's.
TEST_F(LostDocument, AnotherFileIsWrittenTo) {
  SetFile("a.pdf", kDocument);
  std::filesystem::create_directory(PathOf("b"));
  for (const bool has_addin : {false, true}) {
    SetFile("b/a.pdf", "before");
    Divert("a.pdf", "b\\a.pdf", has_addin);
    EXPECT_NE(FileBytes("b/a.pdf"), "before");
    EXPECT_TRUE(Same(kDocument, FileBytes("a.pdf")));
  }
}

}  // namespace
}  // namespace zentpost::e2e
