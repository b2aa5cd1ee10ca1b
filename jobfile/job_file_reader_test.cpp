#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "app/job_parameters.h"
#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using namespace std::string_literals;

using platform::fake::FaultReplay;
using test::AllocationFaults;
using test::kNoFilePathLog;
using test::kNoSourceFileNameLog;
using test::LogText;
using test::Readable;
using Calls = std::vector<std::string>;

constexpr char16_t kPath[] = u"C:\\Jobs\\job.json";
constexpr std::size_t k64MiB = std::size_t{64} << 20;

// In the order in which the fields are entered.
struct Field {
  std::string long_name;
  std::string letter;
};
const Field kFields[] = {{"Baudrate", "B"}, {"ECM", "C"},     {"RecipientName", "E"},
                         {"Comment", "K"},  {"NGDX", "N"},    {"", "O"},
                         {"Preview", "P"},  {"Subject", "S"}, {"UserName", "U"},
                         {"SendTime", "Z"}};

// The shortest job with a document, and what is read from it.
const std::string kJob = R"({"FilePath": "d", "SourceFileName": "n"})";
const std::string kDocument = "filename=d\nattdisplayname=n.pdf\n|";

// A text that is no job file; `rest` is what stands there where parsing it stopped.
std::string NoJob(const std::string& rest) {
  return "no job|" + test::NoJsonLog("ReadFromFile", rest);
}

// The entries in their order, one line for each: "filename=C:\a.pdf\n".
std::string EntriesText(const ParameterList& list) {
  std::string text;
  for (const auto& [name, value] : list.Entries()) {
    text += Readable(name) + "=" + Readable(value) + "\n";
  }
  return text;
}

class JobFileReader : public platform::fake::FakePlatformTest {
 protected:
  // Reads the job file that is there and gives the arguments, "|", the fields and the log.
  std::string ReadFile() {
    JobParameters job;
    const JobFileReading reading = CCommands::ReadFromFile(job, kPath);
    EXPECT_NE(reading, JobFileReading::kNoMemory);
    EXPECT_FALSE(job.fromJobFile) << "which is for the command line to say";
    return (reading == JobFileReading::kJobFile ? "" : "no job") + EntriesText(job.arguments) +
           "|" + EntriesText(job.faxFields) + LogText();
  }

  std::string Read(const std::string& bytes) {
    fake_.Reset();
    fake_.SetFile(kPath, bytes);
    return ReadFile();
  }

  // The fields of a job with a document and this "Cmd".
  std::string ReadCommand(const std::string& command) {
    const std::string job =
        Read(R"({"FilePath": "d", "SourceFileName": "n", "Cmd": )" + command + "}");
    EXPECT_TRUE(job.starts_with(kDocument)) << job;
    return job.substr(kDocument.size());
  }
};

TEST_F(JobFileReader, AWholeJob) {
  EXPECT_EQ(Read(R"({
    "FilePath": "C:\\Spool\\0815.tmp",
    "SourceFileName": "Angebot \u20ac Müller",
    "Cmd": {
      "Parameters": {
        "SendTime": "2026-11-21 08:00", "UserName": "Anna", "Subject": "Offer", "Preview": "1",
        "NGDX": "n", "Comment": "first\nsecond \"line\"", "RecipientName": "Müller",
        "ECM": "-", "Baudrate": "9600"
      },
      "Commands": {"O": "out.json", "B": "14400"},
      "Receiver": ["+49 (301) 234", "0302"]
    },
    "Result": {"Status": 1}
  })"),
            "filename=C:\\Spool\\0815.tmp\n"
            "attdisplayname=Angebot \xE2\x82\xAC M\xC3\xBCller.pdf\n"
            "|B=9600\n"
            "C=-\n"
            "E=M\xC3\xBCller\n"
            "K=first\nsecond \"line\"\n"
            "N=n\n"
            "O=out.json\n"
            "P=1\n"
            "S=Offer\n"
            "U=Anna\n"
            "Z=2026-11-21 08:00\n"
            "+FAX=+49 (301) 234\n");
}

TEST_F(JobFileReader, ADocumentAlone) {
  EXPECT_EQ(Read(kJob), kDocument);
  EXPECT_EQ(Read(R"({"FilePath": "", "SourceFileName": "n"})"),
            "filename=\nattdisplayname=n.pdf\n|");
  // A receiver counts in the command only.
  EXPECT_EQ(Read(R"({"FilePath": "d", "SourceFileName": "n", "Receiver": ["0301"]})"), kDocument);
}

TEST_F(JobFileReader, EveryFieldUnderItsLongNameBeforeItsLetter) {
  std::string commands;
  std::string expected;
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.letter);
    const bool has_long_name = !field.long_name.empty();
    const std::string letter = "\"" + field.letter + "\": ";
    const std::string long_name = "\"" + (has_long_name ? field.long_name : "Output") + "\": ";
    EXPECT_EQ(ReadCommand(R"({"Parameters": {)" + long_name + R"("v"}})"),
              has_long_name ? field.letter + "=v\n" : "");
    EXPECT_EQ(ReadCommand(R"({"Commands": {)" + letter + R"("v"}})"), field.letter + "=v\n");
    EXPECT_EQ(ReadCommand(R"({"Commands": {)" + letter + R"("letter"}, "Parameters": {)" +
                          long_name + R"("long"}})"),
              field.letter + (has_long_name ? "=long\n" : "=letter\n"));
    // Names are looked up in their own object only.
    EXPECT_EQ(ReadCommand(R"({"Parameters": {)" + letter + R"("v"}})"), "");
    EXPECT_EQ(ReadCommand(R"({"Commands": {)" + long_name + R"("v"}})"), "");
    EXPECT_EQ(ReadCommand("{" + letter + R"("v"}, )" + letter + R"("v")"), "");
    // In the file they stand the other way round.
    commands.insert(0, letter + R"("v")" + (commands.empty() ? "" : ", "));
    expected += field.letter + "=v\n";
  }
  EXPECT_EQ(ReadCommand(R"({"Commands": {)" + commands + "}}"), expected);
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"Subject": ""}, "Commands": {"S": "letter"}})"), "S=\n");
}

// The field O has no long name: nothing is looked up under the empty name either.
TEST_F(JobFileReader, DeliberateTheFieldOHasNoLongName) {
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"": "x", "Output": "y"}})"), "");
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"": "x"}, "Commands": {"O": "y"}})"), "O=y\n");
}

// The pairing is the fax application's; E is not for ECM, nor C for the comment.
TEST_F(JobFileReader, DeliberateLettersDoNotFollowTheirLongNames) {
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"ECM": "ecm", "RecipientName": "name",
                                           "Comment": "comment", "UserName": "user"}})"),
            "C=ecm\nE=name\nK=comment\nU=user\n");
}

TEST_F(JobFileReader, AValueThatIsNoTextCountsAsAbsent) {
  for (const std::string value : {"9600", "-1.5", "true", "false", "null", "{}", "[]",
                                  R"({"Baudrate": "9600"})", R"(["9600"])"}) {
    SCOPED_TRACE(value);
    const std::string parameters = R"("Parameters": {"Baudrate": )" + value + "}";
    EXPECT_EQ(ReadCommand("{" + parameters + R"(, "Commands": {"B": )" + value + "}}"), "");
    EXPECT_EQ(ReadCommand("{" + parameters + R"(, "Commands": {"B": "letter"}})"), "B=letter\n");
  }
}

TEST_F(JobFileReader, WhatIsNoObjectHoldsNoFields) {
  for (const std::string other :
       {"5", R"("Subject")", "true", "null", "[]", R"([{"Subject": "s", "Receiver": ["0301"]}])"}) {
    SCOPED_TRACE(other);
    EXPECT_EQ(ReadCommand(other), "");
    EXPECT_EQ(ReadCommand(R"({"Parameters": )" + other + R"(, "Commands": {"S": "s"}})"), "S=s\n");
    EXPECT_EQ(ReadCommand(R"({"Commands": )" + other + R"(, "Parameters": {"Subject": "s"}})"),
              "S=s\n");
  }
}

TEST_F(JobFileReader, TheFirstReceiverIsTheFaxNumber) {
  const auto read = [this](const std::string& receiver) {
    return ReadCommand(R"({"Receiver": )" + receiver + "}");
  };
  for (const char* receiver : {R"(["0301"])", R"(["0301", "0302"])", R"(["0301", 17])"}) {
    EXPECT_EQ(read(receiver), "+FAX=0301\n");
  }
  EXPECT_EQ(read(R"([" +49 (301) 234 "])"), "+FAX= +49 (301) 234 \n");
  EXPECT_EQ(read(R"([""])"), "+FAX=\n");
  for (const char* none : {"[]", "[17]", R"([17, "0302"])", R"([null, "0302"])", R"([["0301"]])",
                           R"([{"0301": "0301"}])", R"("0301")", "301", "null", R"({"0": "0301"})",
                           "{}", R"(null, "Parameters": {"Receiver": ["0301"]})"}) {
    EXPECT_EQ(read(none), "") << none;
  }
}

TEST_F(JobFileReader, TheCaseOfNamesIsIgnoredAndTheFirstOfTwoCounts) {
  EXPECT_EQ(Read(R"({"filepath": "d", "SOURCEFILENAME": "n", "FilePath": "two",
      "cMD": {"PARAMETERS": {"subject": "s", "Subject": "two"}, "commands": {"b": "b"},
              "receiver": ["0301"]}, "Cmd": {"Commands": {"K": "two"}}})"),
            kDocument + "B=b\nS=s\n+FAX=0301\n");
}

TEST_F(JobFileReader, TheDisplayNameGetsItsExtensionWhenItHasNone) {
  const std::pair<std::string, const char*> cases[] = {
      {"report", "report.pdf"},
      {"report.pdf", "report.pdf"},
      {"report.pdf.txt", "report.pdf.txt"},
      {"report.docx", "report.docx.pdf"},
      {"X.PDF", "X.PDF.pdf"},
      {".pdf", ".pdf"},
      {"reportpdf", "reportpdf.pdf"},
      {"a.pdfx", "a.pdfx"},
      {"", ".pdf"},
      {"\xE4\xB8\xAD", "\xE4\xB8\xAD.pdf"},
  };
  for (const auto& [source_file_name, display_name] : cases) {
    EXPECT_EQ(Read(R"({"FilePath": "d", "SourceFileName": ")" + source_file_name + R"("})"),
              "filename=d\nattdisplayname="s + display_name + "\n|");
  }
}

// A JSON file without a document is a job file all the same: its result has a place to go to.
TEST_F(JobFileReader, DeliberateAJobWithoutADocumentIsAJob) {
  const auto expect_log = [this](const std::string& members, const std::string& log) {
    EXPECT_EQ(Read("{" + members +
                   R"("Cmd": {"FilePath": "d", "SourceFileName": "n", "Commands": {"S": "s"},
                              "Receiver": ["0301"]}})"),
              "|" + log)
        << members;
  };
  expect_log("", kNoFilePathLog);
  for (const std::string path : {"5", "null", R"(["d"])", R"({"FilePath": "d"})"}) {
    expect_log(R"("FilePath": )" + path + R"(, "SourceFileName": "n",)", kNoFilePathLog);
  }
  for (const std::string name :
       {"", R"("SourceFileName": 5,)", R"("SourceFileName": true,)", R"("JobName": "n",)"}) {
    expect_log(R"("FilePath": "d",)" + name, kNoSourceFileNameLog);
  }
}

// A document may be JSON itself.
TEST_F(JobFileReader, DeliberateAnyJsonIsAJob) {
  for (const std::string json : {"{}", "[]", R"([{"FilePath": "d", "SourceFileName": "n"}])", "17",
                                 "\"FilePath\"", "true", "null", " \t\r\n{ }\r\n"}) {
    EXPECT_EQ(Read(json), "|"s + kNoFilePathLog) << json;
  }
}

// A job file stays one, whatever a fax application leaves behind its object.
TEST_F(JobFileReader, DeliberateTextBehindAJobIsNotRead) {
  for (const std::string& rest : {" trailing"s, "}"s, kJob, "\0\xFF"s, "\0x"s}) {
    EXPECT_EQ(Read(kJob + rest), kDocument);
  }
  EXPECT_EQ(Read("\xEF\xBB\xBF{\"sourcefilename\": \"n\", \"FILEPATH\": \"d\"} x"), kDocument);
}

// What only begins like JSON is somebody's document.
TEST_F(JobFileReader, ATextBehindTheFirstValueMakesNoJob) {
  const std::pair<std::string, const char*> cases[] = {
      {"2026-11-21 Dear Sir,\n", "-11-21 Dear Sir,\n"},
      {"1,2,3\r\n4,5,6\r\n", ",2,3\n4,5,6\n"},
      {"\"To be\" he said", "he said"},
      {"{\"a\":1}\n{\"b\":2}\n", "{\"b\":2}\n"},
      {"\"\"\"A docstring.\"\"\"\n", "\"A docstring.\"\"\"\n"},
      {"{} {}", "{}"},
      {"{\"FilePath\": \"d\"} x", "x"},
      {"{\"FilePath\": \"d\", \"SourceFileName\": 5} x", "x"},
      {"{\"FilePath\": 5, \"SourceFileName\": \"n\"} x", "x"},
      {"{\"SourceFileName\": \"n\"},", ","},
      {"[{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}] x", "x"},
      {"{\"Cmd\": {\"FilePath\": \"d\", \"SourceFileName\": \"n\"}} x", "x"},
      {"42 \x01\x1F\t\v\f\r\n x", "x"},
      {"42\x7F", "\x7F"},
      {"42\xC2\xA0", "\xC2\xA0"},
      {"\xEF\xBB\xBF[1]\xC3\xBC", "\xC3\xBC"},
      // What stands behind a zero byte is not seen as text, but it is there.
      {"{}\0x"s, ""},
      {"{}\0 "s, ""},
      {"{}\0\0"s, ""},
      {"{}\r\n\0\r\n"s, ""},
      {"[1] x\0y"s, "x"},
  };
  for (const auto& [bytes, rest] : cases) {
    EXPECT_EQ(Read(bytes), NoJob(rest)) << bytes;
  }
}

TEST_F(JobFileReader, WhiteSpaceBehindTheFirstValueIsNothing) {
  // A zero byte that ends the file has nothing behind it, and neither has one that Ctrl-Z follows.
  for (const std::string& rest :
       {" "s, "\r\n"s, "\t\v\f \x01\x1F\n"s, "\x1A anything"s, "\0"s, "\r\n\0"s, "\0\x1Ax"s}) {
    SCOPED_TRACE(rest);
    EXPECT_EQ(Read("{}" + rest), "|"s + kNoFilePathLog);
    EXPECT_EQ(Read("\xEF\xBB\xBF[17]" + rest), "|"s + kNoFilePathLog);
  }
}

TEST_F(JobFileReader, EntriesAreAddedBehindThoseThatAreThere) {
  fake_.SetFile(kPath, R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Commands":
                             {"S": "s"}, "Receiver": ["0301"]}})");
  JobParameters params;
  params.arguments.Add(u"filename", u"old");
  params.faxFields.Add(u"S", u"old");
  params.fromJobFile = true;
  EXPECT_EQ(CCommands::ReadFromFile(params, kPath), JobFileReading::kJobFile);
  EXPECT_EQ(EntriesText(params.arguments), "filename=old\nfilename=d\nattdisplayname=n.pdf\n");
  EXPECT_EQ(EntriesText(params.faxFields), "S=old\nS=s\n+FAX=0301\n");
  EXPECT_TRUE(params.fromJobFile);
}

TEST_F(JobFileReader, BytesAreReadAsUtf8WithOrWithoutAMark) {
  EXPECT_EQ(Read("\xEF\xBB\xBF" + kJob), kDocument);
  // Latin-1 letters are replaced.
  EXPECT_EQ(Read("{\"FilePath\": \"C:\\\\M\xFCller.pdf\", \"SourceFileName\": \"n\"}"),
            "filename=C:\\M\xEF\xBF\xBDller.pdf\nattdisplayname=n.pdf\n|");
}

// The file is read as a C library's text mode does it on Windows.
TEST_F(JobFileReader, LineEndsAreFolded) {
  EXPECT_EQ(ReadCommand("{\r\n\"Commands\": {\"K\": \"a\r\nb\rc\nd\r\r\ne\r\"}\r\n}"),
            "K=a\nb\rc\nd\r\ne\r\n");
}

TEST_F(JobFileReader, DeliberateControlZEndsTheFile) {
  EXPECT_EQ(Read(kJob + "\x1A\r\n\xFF"), kDocument);
  EXPECT_EQ(Read("x\x1A{}"), NoJob("x"));
  EXPECT_EQ(Read("\x1A{}"), NoJob(""));
}

TEST_F(JobFileReader, TheLogTellsWhereParsingStopped) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"x", "x"},
      {" \n x", "x"},
      {"%PDF-1.4\n%\xE2\xE3\xCF\xD3\n",
       "%PDF-1.4\n%\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\n"},
      {"{\"FilePath\": }", "}"},
      {"{\"FilePath\" \"d\"}", "\"d\"}"},
      {"[1, 2, x]", "x]"},
      {"[\"100% %s\", %d]", "%d]"},
      {"[\"\xC3\xBC\", \xC3\xBC\xE2\x82\xAC]", "\xC3\xBC\xE2\x82\xAC]"},
      {"[\r\n x\r\n]\r\n", "x\n]\n"},
      {"x\r", "x\r"},
      // Behind a byte-order mark, of which two bytes are none.
      {"\xEF\xBB\xBF[x]", "x]"},
      {"\xEF\xBB\xBF", ""},
      {"\xEF\xBB{}", "\xEF\xBF\xBD{}"},
      // A zero byte ends the text, and with it all that is UTF-16 or UTF-32.
      {"x\0{}"s, "x"},
      {"\0{}"s, ""},
      {"[1, x\0y]"s, "x"},
      {"\xFF\xFE{\0\"\0"s, "\xEF\xBF\xBD\xEF\xBF\xBD{"},
      {"\xFE\xFF\0{\0\""s, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\0{\0\""s, ""},
      {"{\0\"\0"s, ""},
      {"\xFF\xFE\0\0{\0\0\0"s, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {std::string(1000000, 'x'), std::string(1000000, 'x')},
      {std::string(k64MiB - 1, ' ') + "x", "x"},
  };
  for (const auto& [bytes, rest] : cases) {
    EXPECT_EQ(Read(bytes), NoJob(rest)) << bytes.substr(0, 40);
  }
}

// Where exactly that is, the library decides: it may be a character behind the one that is wrong.
TEST_F(JobFileReader, TheErrorPositionIsTheLibrarysOwn) {
  for (const std::string bytes :
       {"{x}", "{'FilePath': 'd'}", "{\"FilePath\": \"d\",}", "{\"a", "{\"a\": \"b", "[1,",
        "[\"\\q\"]", "[tru", "-", "[[]", "\"a comment of an editor's script\nset nocompatible\n"}) {
    ASSERT_EQ(JsonTree(cJSON_Parse(bytes.c_str())), nullptr);
    EXPECT_EQ(Read(bytes), NoJob(cJSON_GetErrorPtr())) << bytes;
  }
}

TEST_F(JobFileReader, ATruncatedJobIsNone) {
  const std::string whole =
      R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Receiver": ["0301"], "x": [1, null]}})";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::string part = whole.substr(0, length);
    const std::string job = Read(part);
    const std::string start = NoJob("").substr(0, NoJob("").size() - 2);
    ASSERT_TRUE(job.starts_with(start) && job.ends_with("'\n")) << job;
    EXPECT_TRUE(part.ends_with(job.substr(start.size(), job.size() - start.size() - 2))) << job;
  }
}

TEST_F(JobFileReader, AFileThatCannotBeReadIsNoJob) {
  fake_.AddFolder(u"C:\\Jobs\\folder.json");
  std::string log;
  for (const char16_t* path :
       {u"C:\\Jobs\\missing.json", u"C:\\Missing\\job.json", u"C:\\Jobs\\folder.json", u""}) {
    JobParameters params;
    EXPECT_EQ(CCommands::ReadFromFile(params, path), JobFileReading::kNoJobFile);
    EXPECT_EQ(params.arguments.Entries().size(), 0u);
    log += test::NoJsonLog("ReadFromFile", "");
    EXPECT_EQ(LogText(), log);
  }
}

TEST_F(JobFileReader, TheFileIsReadOnceIntoOneByteMoreThanItsSizeAndNothingLogged) {
  fake_.SetFile(kPath, R"({"FilePath": "d"})");
  LoadedJson loaded = CCommands::LoadJsonFile(kPath);
  EXPECT_NE(loaded.tree, nullptr);
  EXPECT_STREQ(loaded.error_position, "");
  EXPECT_EQ(fake_.Calls(),
            (Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)", "QueryFileSize(C:\\Jobs\\job.json)",
                   "AllocateBlock(18)", "ReadBytes(C:\\Jobs\\job.json, 17)"}));
  EXPECT_EQ(fake_.OpenHandles(), 0u) << "the tree needs neither the file nor its text";
  fake_.SetFile(kPath, "[x");
  loaded = CCommands::LoadJsonFile(kPath);
  EXPECT_EQ(loaded.tree, nullptr);
  EXPECT_STREQ(loaded.error_position, "x");
  EXPECT_EQ(LogText(), "");
}

TEST_F(JobFileReader, AFileThatChangesItsSizeMeanwhile) {
  const std::pair<std::uint64_t, std::string> cases[] = {
      {4000, kDocument},                    // shorter by then
      {3, NoJob("F")},                      // longer by then
      {0, NoJob("")},                       // empty before
      {std::uint64_t{1} << 62, NoJob("")},  // larger than any memory
      {std::numeric_limits<std::uint64_t>::max(), NoJob("")},
  };
  for (const auto& [reported, job] : cases) {
    fake_.Reset();
    fake_.SetFile(kPath, kJob);
    fake_.SetReportedSize(kPath, reported);
    EXPECT_EQ(ReadFile(), job) << reported;
  }
}

TEST_F(JobFileReader, AJobOf64MiB) {
  const std::string start =
      R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Commands": {"K": ")";
  const std::string end = R"("}, "Receiver": ["0301"]}})";
  const std::size_t length = k64MiB - start.size() - end.size();
  fake_.SetFile(kPath, start + std::string(length, 'x') + end);
  JobParameters params;
  EXPECT_EQ(CCommands::ReadFromFile(params, kPath), JobFileReading::kJobFile);
  EXPECT_TRUE(params.faxFields.Entries() ==
              (std::vector<ParameterList::Entry>{{u"K", std::u16string(length, u'x')},
                                                 {u"+FAX", u"0301"}}));
  EXPECT_EQ(LogText(), "");
}

TEST_F(JobFileReader, AHundredThousandLevels) {
  constexpr std::size_t kLevels = 100000;
  std::string objects;
  for (std::size_t i = 0; i < kLevels; ++i) {
    objects += "{\"a\":";
  }
  const std::string arrays(kLevels, '[');
  for (const std::string& text : {objects, arrays, arrays + std::string(kLevels, ']')}) {
    const std::string job = Read(text);
    EXPECT_TRUE(job.starts_with(NoJob(text.substr(0, 5)).substr(0, NoJob("").size())));
    EXPECT_LT(job.size(), NoJob("").size() + text.size()) << "some levels are read";
  }
}

TEST_F(JobFileReader, HundredsOfLevelsAreRead) {
  EXPECT_EQ(ReadCommand(R"({"Commands": {"S": "s"}, "x": )" + std::string(900, '[') +
                        std::string(900, ']') + "}"),
            "S=s\n");
}

TEST_F(JobFileReader, GetDocumentFromJsonAddsBothOrNone) {
  ParameterList arguments;
  arguments.Add(u"x", u"y");
  EXPECT_FALSE(CCommands::GetDocumentFromJson(arguments, nullptr));
  EXPECT_FALSE(CCommands::GetDocumentFromJson(arguments,
                                              JsonTree(cJSON_Parse(R"({"FilePath": "d"})")).get()));
  EXPECT_EQ(EntriesText(arguments), "x=y\n");
  EXPECT_TRUE(CCommands::GetDocumentFromJson(arguments, JsonTree(cJSON_Parse(kJob.c_str())).get()));
  EXPECT_EQ(EntriesText(arguments), "x=y\nfilename=d\nattdisplayname=n.pdf\n");
  EXPECT_EQ(LogText(),
            "ERROR: GetDocumentFromJson(): JSON error\n"
            "ERROR: GetDocumentFromJson(): JobName not found\n");
}

TEST_F(JobFileReader, ReadCommandValueTellsWhetherItFoundOne) {
  const JsonTree tree(cJSON_Parse(
      R"({"Cmd": {"Parameters": {"Subject": "long", "": "p"}, "Commands": {"S": "letter", "": "c"}}})"));
  const auto finds = [](JobParameters& job, const JsonTree& in, const char16_t* letter,
                        const char16_t* long_name) {
    return CCommands::ReadCommandValue(job, in.get(), letter, long_name);
  };
  JobParameters job;
  EXPECT_TRUE(finds(job, tree, u"X", u"Subject"));
  EXPECT_TRUE(finds(job, tree, u"S", u"Missing"));
  EXPECT_TRUE(finds(job, tree, u"S", u""));
  EXPECT_TRUE(finds(job, tree, u"", u"Subject"));
  EXPECT_FALSE(finds(job, tree, u"X", u"Missing"));
  EXPECT_FALSE(finds(job, tree, u"", u""));
  EXPECT_FALSE(finds(job, nullptr, u"S", u"Subject"));
  EXPECT_EQ(EntriesText(job.faxFields), "X=long\nS=letter\nS=letter\n=long\n");
  EXPECT_EQ(LogText(), "");
}

// The members in a job file for the fault sweeps, values too long to live inside a string object.
const std::string kLongPath(40, 'd');
const std::string kLongName(40, 'n');
const std::string kLongRate(40, '9');
const std::string kLongOutput(40, 'o');
const std::string kLongNumber(40, '3');
const std::string kSweptJob = R"({"FilePath": ")" + kLongPath + R"(", "SourceFileName": ")" +
                              kLongName + R"(", "Cmd": {"Parameters": {"Baudrate": ")" + kLongRate +
                              R"("}, "Commands": {"O": ")" + kLongOutput + R"("}, "Receiver": [")" +
                              kLongNumber + R"("]}})";

// Plays the reading of kSweptJob through and tells what has to come of it.
std::string ExpectedJob(FaultReplay replay) {
  for (const char* call : {"OpenFileAt", "QueryFileSize", "AllocateBlock", "ReadBytes"}) {
    if (replay.Fails(call)) {
      return NoJob("");
    }
  }
  const auto converted = [&](const std::string& value) {
    return replay.Fails("BytesToWide") ? "" : value;
  };
  // One lookup: the name is narrowed, then the value, if there is one, is widened.
  const auto finds = [&](const std::string* member, std::string& value) {
    if (replay.Fails("WideToBytes") || replay.Fails("WideToBytes") || member == nullptr) {
      return false;
    }
    value = converted(*member);
    return true;
  };
  std::string path;
  if (!finds(&kLongPath, path)) {
    return "|"s + kNoFilePathLog;
  }
  std::string name;
  if (!finds(&kLongName, name)) {
    return "|"s + kNoSourceFileNameLog;
  }
  std::string job = "filename=" + path + "\nattdisplayname=" + name + ".pdf\n|";
  for (const Field& field : kFields) {
    std::string value;
    if ((!field.long_name.empty() && finds(field.letter == "B" ? &kLongRate : nullptr, value)) ||
        finds(field.letter == "O" ? &kLongOutput : nullptr, value)) {
      job += field.letter + "=" + value + "\n";
    }
  }
  return job + "+FAX=" + converted(kLongNumber) + "\n";
}

TEST_F(JobFileReader, EveryCallOfAReading) {
  std::string job;
  const std::size_t runs = platform::fake::SweepFaults(
      {[this] { fake_.SetFile(kPath, kSweptJob); }, [&] { job = ReadFile(); }},
      [&](const platform::fake::FaultRun& run) {
        EXPECT_EQ(job, ExpectedJob(FaultReplay(run)));
        EXPECT_EQ(fake_.FileBytes(kPath), kSweptJob);
      });
  // Four to read the file; the names of two members, of eight fields under both names, of one under
  // the long one and of one under the letter; five values.
  constexpr std::size_t kCalls = 4 + 2 * (2 + 8 * 2 + 1 + 1) + 5;
  EXPECT_EQ(runs, 2 * kCalls);
}

// A job of which memory has left something out must not be delivered, and a document that is one
// must not be taken for another: there are a whole job, none for its bytes, and the end.
TEST_F(JobFileReader, EveryAllocationOfAReading) {
  const std::u16string path = kPath;
  std::size_t ended = 0;
  std::size_t refused = 0;
  const std::size_t runs = test::SweepAllocations("ReadFromFile", [&](AllocationFaults& faults) {
    fake_.Reset();
    fake_.SetFile(kPath, kSweptJob);
    JobParameters params;
    JobFileReading reading{};
    EXPECT_TRUE(faults.Run([&] { reading = CCommands::ReadFromFile(params, path); }));
    EXPECT_EQ(fake_.FileBytes(kPath), kSweptJob);
    const std::string log = LogText();
    switch (reading) {
      case JobFileReading::kJobFile:
        EXPECT_FALSE(faults.Taken());
        EXPECT_EQ(log, "");
        break;
      case JobFileReading::kNoJobFile:
        ++refused;
        EXPECT_EQ(faults.Index(), 0u) << "the file's bytes come first";
        EXPECT_EQ(EntriesText(params.arguments) + EntriesText(params.faxFields), "");
        // With no memory left the line is lost as well.
        EXPECT_EQ(log, faults.Mode() == test::AllocationFaultMode::kOnce
                           ? test::NoJsonLog("ReadFromFile", "")
                           : "");
        break;
      case JobFileReading::kNoMemory:
        ++ended;
        EXPECT_EQ(log, "");
        break;
    }
  });
  EXPECT_EQ(refused, 2u);
  EXPECT_EQ(runs, ended + refused);
}

// Only the buffer's own failure makes a job file unreadable.
TEST_F(JobFileReader, ASystemWithoutMemoryEndsTheJob) {
  for (const char* call : {"OpenFileAt", "QueryFileSize", "ReadBytes"}) {
    SCOPED_TRACE(call);
    fake_.Reset();
    fake_.SetFile(kPath, kSweptJob);
    fake_.FailCallOf(call, 0, platform::kNotEnoughMemory);
    JobParameters params;
    EXPECT_EQ(CCommands::ReadFromFile(params, kPath), JobFileReading::kNoMemory);
    EXPECT_EQ(LogText(), "");
  }
}

// The line of a text that is no JSON is all that is lost.
TEST_F(JobFileReader, MemoryForTheLineAloneDecidesNothing) {
  const std::u16string path = kPath;
  std::size_t ended = 0;
  test::SweepAllocations("ReadFromFile, a document", [&](AllocationFaults& faults) {
    fake_.Reset();
    fake_.SetFile(kPath, "%PDF-1.4");
    JobParameters params;
    JobFileReading reading{};
    EXPECT_TRUE(faults.Run([&] { reading = CCommands::ReadFromFile(params, path); }));
    if (reading == JobFileReading::kNoMemory) {
      ++ended;
      EXPECT_EQ(LogText(), "");
    } else {
      EXPECT_EQ(reading, JobFileReading::kNoJobFile);
    }
  });
  EXPECT_EQ(ended, 2u) << "the parser's one allocation, failing in two ways";
}

}  // namespace
}  // namespace zentpost
