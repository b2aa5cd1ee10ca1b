#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/job_parameters.h"
#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/job_texts.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::fake::FaultMode;
using platform::fake::FaultRun;
using test::AllocationFaults;
using test::EntriesText;
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

// What a read gives, as texts that are compared whole.
struct ReadJob {
  bool result = false;
  std::string arguments;
  std::string fields;
  std::string log;
};

class JobFileReader : public platform::fake::MachineTest {
 protected:
  // Reads `bytes` as a job file.
  ReadJob Read(std::string bytes) {
    machine_.Reset();
    machine_.SetFile(kPath, std::move(bytes));
    JobParameters params;
    ReadJob job;
    job.result = CCommands::ReadFromFile(params, kPath) == JobFileReading::kJobFile;
    job.arguments = EntriesText(params.arguments);
    job.fields = EntriesText(params.faxFields);
    job.log = LogText();
    EXPECT_FALSE(params.fromJobFile) << "which is for the command line to say";
    return job;
  }

  // A job file with a document and `rest`, further members with a comma in front.
  ReadJob ReadDocumentAnd(const std::string& rest) {
    ReadJob job = Read(R"({"FilePath": "d", "SourceFileName": "n")" + rest + "}");
    EXPECT_TRUE(job.result);
    EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
    EXPECT_EQ(job.log, "");
    return job;
  }

  // The same with "Cmd".
  ReadJob ReadCommand(const std::string& command) {
    return ReadDocumentAnd(R"(, "Cmd": )" + command);
  }

  // Expects that `bytes` are no job file and that `error` is where parsing them stopped.
  void ExpectNoJob(std::string bytes, const std::string& error) {
    const ReadJob job = Read(std::move(bytes));
    EXPECT_FALSE(job.result);
    EXPECT_EQ(job.arguments, "");
    EXPECT_EQ(job.fields, "");
    EXPECT_EQ(job.log, "ERROR: ReadFromFile(): Parse JSON failed with error '" + error + "'\n");
  }
};

constexpr char kFilenameNotFound[] =
    "ERROR: GetDocumentFromJson(): Filename not found\n"
    "ERROR: ReadFromFile(): Read document failed\n";
constexpr char kJobNameNotFound[] =
    "ERROR: GetDocumentFromJson(): JobName not found\n"
    "ERROR: ReadFromFile(): Read document failed\n";

TEST_F(JobFileReader, AWholeJob) {
  const ReadJob job = Read(R"({
    "FilePath": "C:\\Spool\\0815.tmp",
    "SourceFileName": "Angebot \u20ac M)"
                           "\xC3\xBC"
                           R"(ller",
    "Cmd": {
      "Parameters": {
        "SendTime": "2026-11-21 08:00", "UserName": "Anna", "Subject": "Offer", "Preview": "1",
        "NGDX": "n", "Comment": "first\nsecond \"line\"", "RecipientName": "M)"
                           "\xC3\xBC"
                           R"(ller",
        "ECM": "-", "Baudrate": "9600"
      },
      "Commands": {"O": "out.json", "B": "14400"},
      "Receiver": ["+49 (301) 234", "0302"]
    },
    "Result": {"Status": 1}
  })");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments,
            "filename=C:\\Spool\\0815.tmp\n"
            "attdisplayname=Angebot \xE2\x82\xAC M\xC3\xBCller.pdf\n");
  EXPECT_EQ(job.fields,
            "B=9600\n"
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
  EXPECT_EQ(job.log, "");
}

TEST_F(JobFileReader, ADocumentAlone) {
  EXPECT_EQ(ReadDocumentAnd("").fields, "");
}

TEST_F(JobFileReader, EveryFieldUnderItsLongName) {
  for (const Field& field : kFields) {
    if (field.long_name.empty()) {
      continue;
    }
    SCOPED_TRACE(field.long_name);
    const ReadJob job = ReadCommand(R"({"Parameters": {")" + field.long_name + R"(": "v"}})");
    EXPECT_EQ(job.fields, field.letter + "=v\n");
  }
}

TEST_F(JobFileReader, EveryFieldUnderItsLetter) {
  std::string commands;
  std::string expected;
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.letter);
    const std::string member = R"(")" + field.letter + R"(": "v")";
    EXPECT_EQ(ReadCommand(R"({"Commands": {)" + member + "}}").fields, field.letter + "=v\n");
    // In the file they stand the other way round.
    commands.insert(0, commands.empty() ? member : member + ", ");
    expected += field.letter + "=v\n";
  }
  EXPECT_EQ(ReadCommand(R"({"Commands": {)" + commands + "}}").fields, expected);
}

TEST_F(JobFileReader, TheLongNameComesBeforeTheLetter) {
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.letter);
    const bool has_long_name = !field.long_name.empty();
    const std::string long_name = has_long_name ? field.long_name : "Output";
    EXPECT_EQ(ReadCommand(R"({"Commands": {")" + field.letter +
                          R"(": "letter"}, "Parameters": {")" + long_name + R"(": "long"}})")
                  .fields,
              field.letter + (has_long_name ? "=long\n" : "=letter\n"));
  }
}

TEST_F(JobFileReader, AnEmptyLongNameIsFoundNevertheless) {
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"Subject": ""}, "Commands": {"S": "letter"}})").fields,
            "S=\n");
}

TEST_F(JobFileReader, NamesAreLookedUpInTheirOwnObjectOnly) {
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.letter);
    EXPECT_EQ(ReadCommand(R"({"Parameters": {")" + field.letter + R"(": "v"}})").fields, "");
    if (!field.long_name.empty()) {
      EXPECT_EQ(ReadCommand(R"({"Commands": {")" + field.long_name + R"(": "v"}})").fields, "");
    }
    EXPECT_EQ(
        ReadCommand(R"({")" + field.letter + R"(": "v"}, ")" + field.letter + R"(": "v")").fields,
        "");
  }
}

// The field O has no long name: nothing is looked up under the empty name either.
TEST_F(JobFileReader, DeliberateTheFieldOHasNoLongName) {
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"": "x", "Output": "y"}})").fields, "");
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"": "x"}, "Commands": {"O": "y"}})").fields, "O=y\n");
}

// The pairing is the fax application's; E is not for ECM, nor C for the comment.
TEST_F(JobFileReader, DeliberateLettersDoNotFollowTheirLongNames) {
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"ECM": "ecm", "RecipientName": "name",
                                           "Comment": "comment", "UserName": "user"}})")
                .fields,
            "C=ecm\nE=name\nK=comment\nU=user\n");
}

TEST_F(JobFileReader, AValueThatIsNoTextCountsAsAbsent) {
  for (const std::string value : {"9600", "-1.5", "true", "false", "null", "{}", "[]",
                                  R"({"Baudrate": "9600"})", R"(["9600"])"}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(ReadCommand(R"({"Parameters": {"Baudrate": )" + value + "}}").fields, "");
    EXPECT_EQ(ReadCommand(R"({"Commands": {"B": )" + value + "}}").fields, "");
    EXPECT_EQ(ReadCommand(R"({"Parameters": {"Baudrate": )" + value +
                          R"(}, "Commands": {"B": "letter"}})")
                  .fields,
              "B=letter\n");
  }
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"Baudrate": "9600"}})").fields, "B=9600\n");
}

TEST_F(JobFileReader, WhatIsNoObjectHoldsNoFields) {
  for (const std::string other :
       {"5", R"("Subject")", "true", "null", "[]", R"([{"Subject": "s"}])"}) {
    SCOPED_TRACE(other);
    EXPECT_EQ(ReadCommand(other).fields, "");
    EXPECT_EQ(ReadCommand(R"({"Parameters": )" + other + R"(, "Commands": {"S": "s"}})").fields,
              "S=s\n");
    EXPECT_EQ(
        ReadCommand(R"({"Commands": )" + other + R"(, "Parameters": {"Subject": "s"}})").fields,
        "S=s\n");
  }
}

TEST_F(JobFileReader, TheFirstReceiverIsTheFaxNumber) {
  struct Case {
    const char* receiver;
    const char* fields;
  };
  const Case cases[] = {
      {R"(["0301"])", "+FAX=0301\n"},
      {R"(["0301", "0302"])", "+FAX=0301\n"},
      {R"(["0301", 17])", "+FAX=0301\n"},
      {R"([" +49 (301) 234 "])", "+FAX= +49 (301) 234 \n"},
      {R"([""])", "+FAX=\n"},
      {"[]", ""},
      {"[17]", ""},
      {R"([17, "0302"])", ""},
      {R"([null, "0302"])", ""},
      {R"([["0301"]])", ""},
      {R"([{"0301": "0301"}])", ""},
      {R"("0301")", ""},
      {"301", ""},
      {"null", ""},
      {R"({"0": "0301"})", ""},
      {"{}", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.receiver);
    EXPECT_EQ(ReadCommand(std::string(R"({"Receiver": )") + c.receiver + "}").fields, c.fields);
  }
}

TEST_F(JobFileReader, TheReceiverStandsInTheCommandOnly) {
  EXPECT_EQ(ReadDocumentAnd(R"(, "Receiver": ["0301"])").fields, "");
  EXPECT_EQ(ReadCommand(R"([{"Receiver": ["0301"]}])").fields, "");
  EXPECT_EQ(ReadCommand(R"({"Parameters": {"Receiver": ["0301"]}})").fields, "");
}

TEST_F(JobFileReader, TheCaseOfNamesIsIgnored) {
  const ReadJob job = Read(R"({"filepath": "d", "SOURCEFILENAME": "n",
      "cMD": {"PARAMETERS": {"subject": "s"}, "commands": {"b": "b"}, "receiver": ["0301"]}})");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
  EXPECT_EQ(job.fields, "B=b\nS=s\n+FAX=0301\n");
}

TEST_F(JobFileReader, TheFirstOfTwoMembersOfANameCounts) {
  const ReadJob job =
      Read(R"({"FilePath": "one", "filepath": "two", "SourceFileName": "n", "Cmd": {"Commands":
              {"s": "one", "S": "two"}}, "Cmd": {"Commands": {"B": "b"}}})");
  EXPECT_EQ(job.arguments, "filename=one\nattdisplayname=n.pdf\n");
  EXPECT_EQ(job.fields, "S=one\n");
}

TEST_F(JobFileReader, TheDisplayNameGetsItsExtensionWhenItHasNone) {
  struct Case {
    const char* source_file_name;
    const char* display_name;
  };
  const Case cases[] = {
      {"report", "report.pdf"},
      {"report.pdf", "report.pdf"},
      {"report.pdf.txt", "report.pdf.txt"},
      {"report.docx", "report.docx.pdf"},
      {"X.PDF", "X.PDF.pdf"},
      {"X.Pdf", "X.Pdf.pdf"},
      {".pdf", ".pdf"},
      {"reportpdf", "reportpdf.pdf"},
      {"a.pdfx", "a.pdfx"},
      {"", ".pdf"},
      {"report.pd", "report.pd.pdf"},
      {"\xE4\xB8\xAD", "\xE4\xB8\xAD.pdf"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.source_file_name);
    const ReadJob job = Read(std::string(R"({"FilePath": "d", "SourceFileName": ")") +
                             c.source_file_name + R"("})");
    EXPECT_TRUE(job.result);
    EXPECT_EQ(job.arguments, std::string("filename=d\nattdisplayname=") + c.display_name + "\n");
  }
}

// A JSON file without a document is a job file all the same: its result has a place to go to.
TEST_F(JobFileReader, DeliberateAJobWithoutADocumentIsAJob) {
  struct Case {
    const char* members;
    const char* log;
  };
  const Case cases[] = {
      {"", kFilenameNotFound},
      {R"("SourceFileName": "n")", kFilenameNotFound},
      {R"("FilePath": 5, "SourceFileName": "n")", kFilenameNotFound},
      {R"("FilePath": null, "SourceFileName": "n")", kFilenameNotFound},
      {R"("FilePath": ["d"], "SourceFileName": "n")", kFilenameNotFound},
      {R"("FilePath": {"FilePath": "d"}, "SourceFileName": "n")", kFilenameNotFound},
      {R"("FilePath": "d")", kJobNameNotFound},
      {R"("FilePath": "d", "SourceFileName": 5)", kJobNameNotFound},
      {R"("FilePath": "d", "SourceFileName": true)", kJobNameNotFound},
      {R"("FilePath": "d", "JobName": "n")", kJobNameNotFound},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.members);
    const std::string members = c.members;
    const ReadJob job =
        Read("{" + members + (members.empty() ? "" : ", ") +
             R"("Cmd": {"FilePath": "d", "SourceFileName": "n", "Commands": {"S": "s"},
                        "Receiver": ["0301"]}})");
    EXPECT_TRUE(job.result);
    EXPECT_EQ(job.arguments, "");
    EXPECT_EQ(job.fields, "");
    EXPECT_EQ(job.log, c.log);
  }
}

TEST_F(JobFileReader, AnEmptyPathIsADocument) {
  const ReadJob job = Read(R"({"FilePath": "", "SourceFileName": "n"})");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=\nattdisplayname=n.pdf\n");
  EXPECT_EQ(job.log, "");
}

// A document may be JSON itself.
TEST_F(JobFileReader, DeliberateAnyJsonIsAJob) {
  for (const char* json : {"{}", "[]", R"([{"FilePath": "d", "SourceFileName": "n"}])", "17",
                           "\"FilePath\"", "true", "null", " \t\r\n{ }\r\n"}) {
    SCOPED_TRACE(json);
    const ReadJob job = Read(json);
    EXPECT_TRUE(job.result);
    EXPECT_EQ(job.arguments, "");
    EXPECT_EQ(job.log, kFilenameNotFound);
  }
}

// A job file stays one, whatever a fax application leaves behind its object.
TEST_F(JobFileReader, DeliberateTextBehindAJobIsNotRead) {
  const std::string json = R"({"FilePath": "d", "SourceFileName": "n"})";
  for (const std::string& rest :
       {std::string(" trailing"), std::string("}"), json, std::string("\0\xFF", 2)}) {
    const ReadJob job = Read(json + rest);
    EXPECT_TRUE(job.result);
    EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
    EXPECT_EQ(job.log, "");
  }
  EXPECT_TRUE(Read("\xEF\xBB\xBF{\"sourcefilename\": \"\", \"FILEPATH\": \"\"} x").result);
}

// What only begins like JSON is somebody's document.
TEST_F(JobFileReader, ATextBehindTheFirstValueMakesNoJob) {
  struct Case {
    const char* bytes;
    const char* error;
  };
  const Case cases[] = {
      {"2026-11-21 Dear Sir,\n", "-11-21 Dear Sir,\n"},
      {"1,2,3\r\n4,5,6\r\n", ",2,3\n4,5,6\n"},
      {"\"To be\" he said", "he said"},
      {"null and void", "and void"},
      {"[1] Introduction", "Introduction"},
      {"true story", "story"},
      {"-5 degrees", "degrees"},
      {"{\"a\":1}\n{\"b\":2}\n", "{\"b\":2}\n"},
      {"\"\"\"A docstring.\"\"\"\n", "\"A docstring.\"\"\"\n"},
      {"\"a comment of an editor's script\nset nocompatible\n", nullptr},
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
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    // What the library cannot parse at all is told by its own position.
    const JsonTree tree(cJSON_Parse(c.bytes));
    ASSERT_EQ(tree == nullptr, c.error == nullptr);
    ExpectNoJob(c.bytes, c.error != nullptr ? c.error : cJSON_GetErrorPtr());
  }
}

TEST_F(JobFileReader, WhiteSpaceBehindTheFirstValueIsNothing) {
  for (const std::string rest : {" ", "\r\n", "\t\v\f \x01\x1F\n", "\x1A anything"}) {
    SCOPED_TRACE(rest);
    EXPECT_TRUE(Read("{}" + rest).result);
    EXPECT_TRUE(Read("\xEF\xBB\xBF[17]" + rest).result);
  }
}

// What stands behind a zero byte is not seen as text, but it is there.
TEST_F(JobFileReader, AFileThatGoesOnBehindAZeroByteIsNoJob) {
  const std::string zero(1, '\0');
  ExpectNoJob("{}" + zero + "x", "");
  ExpectNoJob("{}" + zero + " ", "");
  ExpectNoJob("{}" + zero + zero, "");
  ExpectNoJob("{}\r\n" + zero + "\r\n", "");
  ExpectNoJob("[1] x" + zero + "y", "x");
  // One that ends the file has nothing behind it, and neither has one that Ctrl-Z follows.
  EXPECT_TRUE(Read("{}" + zero).result);
  EXPECT_TRUE(Read("{}\r\n" + zero).result);
  EXPECT_TRUE(Read("{}" + zero + "\x1Ax").result);
}

TEST_F(JobFileReader, EntriesAreAddedBehindThoseThatAreThere) {
  machine_.SetFile(kPath, R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Commands":
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

TEST_F(JobFileReader, AByteOrderMarkIsSkipped) {
  const ReadJob job = Read("\xEF\xBB\xBF{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
  // The position of an error does not have it either.
  ExpectNoJob("\xEF\xBB\xBF[x]", "x]");
  ExpectNoJob("\xEF\xBB\xBF", "");
  // Two of its bytes are none.
  ExpectNoJob("\xEF\xBB{}", "\xEF\xBF\xBD{}");
}

TEST_F(JobFileReader, OtherEncodingsAreNotRecognised) {
  const std::u16string text = u"{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}";
  std::string little;
  std::string big;
  for (const char16_t unit : text) {
    little.push_back(static_cast<char>(unit & 0xFF));
    little.push_back(static_cast<char>(unit >> 8));
    big.push_back(static_cast<char>(unit >> 8));
    big.push_back(static_cast<char>(unit & 0xFF));
  }
  // The text ends at its first zero byte.
  ExpectNoJob("\xFF\xFE" + little, "\xEF\xBF\xBD\xEF\xBF\xBD{");
  ExpectNoJob("\xFE\xFF" + big, "\xEF\xBF\xBD\xEF\xBF\xBD");
  ExpectNoJob(big, "");
  ExpectNoJob(std::string("\xFF\xFE\0\0{\0\0\0", 8), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(JobFileReader, Utf16WithoutAMarkEndsAtItsFirstZero) {
  // What is left, "{", is an object that has not ended.
  ExpectNoJob(std::string("{\0\"\0", 4), "");
}

TEST_F(JobFileReader, Latin1LettersAreReplaced) {
  const ReadJob job = Read("{\"FilePath\": \"C:\\\\M\xFCller.pdf\", \"SourceFileName\": \"n\"}");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=C:\\M\xEF\xBF\xBDller.pdf\nattdisplayname=n.pdf\n");
  EXPECT_EQ(job.log, "");
}

// The file is read as a C library's text mode does it on Windows.
TEST_F(JobFileReader, LineEndsAreFolded) {
  const ReadJob job = ReadCommand("{\r\n\"Commands\": {\"K\": \"a\r\nb\rc\nd\r\r\ne\r\"}\r\n}");
  EXPECT_EQ(job.fields, "K=a\nb\rc\nd\r\ne\r\n");
  ExpectNoJob("[\r\n x\r\n]\r\n", "x\n]\n");
  ExpectNoJob("x\r", "x\r");
}

TEST_F(JobFileReader, DeliberateControlZEndsTheFile) {
  const ReadJob job = Read("{\"FilePath\": \"d\", \"SourceFileName\": \"n\"}\x1A\r\n\xFF");
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
  ExpectNoJob("x\x1A{}", "x");
  ExpectNoJob("\x1A{}", "");
}

TEST_F(JobFileReader, AZeroByteEndsTheText) {
  ExpectNoJob(std::string("x\0{}", 4), "x");
  ExpectNoJob(std::string("\0{}", 3), "");
  ExpectNoJob(std::string("[1, x\0y]", 8), "x");
  const ReadJob job = Read(R"({"FilePath": "d", "SourceFileName": "n"})" + std::string("\0x", 2));
  EXPECT_TRUE(job.result);
  EXPECT_EQ(job.arguments, "filename=d\nattdisplayname=n.pdf\n");
}

TEST_F(JobFileReader, TheLogTellsWhereParsingStopped) {
  struct Case {
    const char* bytes;
    const char* error;
  };
  const Case cases[] = {
      {"", ""},
      {"x", "x"},
      {" \n x", "x"},
      {"%PDF-1.4\n%\xE2\xE3\xCF\xD3\n",
       "%PDF-1.4\n%\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\n"},
      {"{\"FilePath\": }", "}"},
      {"{\"FilePath\": nil}", "nil}"},
      {"{\"FilePath\" \"d\"}", "\"d\"}"},
      {"{\"FilePath\": \"d\" \"x\"}", "\"x\"}"},
      {"[1, 2, x]", "x]"},
      {"[1 2]", "2]"},
      {"[\"100% %s\", %d]", "%d]"},
      {"[\"\xC3\xBC\", \xC3\xBC\xE2\x82\xAC]", "\xC3\xBC\xE2\x82\xAC]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    ExpectNoJob(c.bytes, c.error);
  }
}

// Where exactly that is, the library decides: it may be a character behind the one that is wrong.
TEST_F(JobFileReader, TheErrorPositionIsTheLibrarysOwn) {
  for (const std::string bytes : {"{x}", "{'FilePath': 'd'}", "{\"FilePath\": \"d\",}", "{\"a",
                                  "{\"a\": \"b", "[1,", "[\"\\q\"]", "[tru", "-", "[[]"}) {
    SCOPED_TRACE(bytes);
    ASSERT_EQ(JsonTree(cJSON_Parse(bytes.c_str())), nullptr);
    ExpectNoJob(bytes, cJSON_GetErrorPtr());
  }
}

TEST_F(JobFileReader, ATruncatedJobIsNone) {
  const std::string whole =
      R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Receiver": ["0301"], "x": [1, null]}})";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    SCOPED_TRACE(length);
    const ReadJob job = Read(whole.substr(0, length));
    EXPECT_FALSE(job.result);
    EXPECT_EQ(job.arguments, "");
    EXPECT_EQ(job.fields, "");
    const std::string start = "ERROR: ReadFromFile(): Parse JSON failed with error '";
    ASSERT_TRUE(job.log.starts_with(start) && job.log.ends_with("'\n")) << job.log;
    const std::string error = job.log.substr(start.size(), job.log.size() - start.size() - 2);
    EXPECT_TRUE(whole.substr(0, length).ends_with(error)) << error;
  }
}

TEST_F(JobFileReader, AFileThatCannotBeReadIsNoJob) {
  constexpr char kNothingRead[] = "ERROR: ReadFromFile(): Parse JSON failed with error ''\n";
  machine_.AddFolder(u"C:\\Jobs\\folder.json");
  for (const char16_t* path :
       {u"C:\\Jobs\\missing.json", u"C:\\Missing\\job.json", u"C:\\Jobs\\folder.json", u""}) {
    SCOPED_TRACE(Readable(path));
    const std::size_t lines_before = machine_.DebugOutput().size();
    JobParameters params;
    EXPECT_EQ(CCommands::ReadFromFile(params, path), JobFileReading::kNoJobFile);
    EXPECT_EQ(params.arguments.Entries().size(), 0u);
    EXPECT_EQ(machine_.DebugOutput().size(), lines_before + 2);
  }
  std::string log;
  for (int i = 0; i < 4; ++i) {
    log += kNothingRead;
  }
  EXPECT_EQ(LogText(), log);
}

TEST_F(JobFileReader, AReadOnlyJobIsReadLikeAnyOther) {
  machine_.SetFile(kPath, R"({"FilePath": "d", "SourceFileName": "n"})");
  machine_.SetReadOnly(kPath, true);
  JobParameters params;
  EXPECT_EQ(CCommands::ReadFromFile(params, kPath), JobFileReading::kJobFile);
  EXPECT_EQ(EntriesText(params.arguments), "filename=d\nattdisplayname=n.pdf\n");
}

TEST_F(JobFileReader, TheFileIsReadOnceIntoOneByteMoreThanItsSize) {
  const std::string json = R"({"FilePath": "d"})";
  machine_.SetFile(kPath, json);
  const LoadedJson loaded = CCommands::LoadJsonFile(kPath);
  EXPECT_NE(loaded.tree, nullptr);
  EXPECT_STREQ(loaded.error_position, "");
  EXPECT_EQ(machine_.Calls(),
            (Calls{"OpenFileAt(C:\\Jobs\\job.json, kRead)", "QueryFileSize(C:\\Jobs\\job.json)",
                   "AllocateBlock(18)", "ReadBytes(C:\\Jobs\\job.json, 17)"}));
  EXPECT_EQ(machine_.OpenHandles(), 0u) << "the tree needs neither the file nor its text";
}

TEST_F(JobFileReader, LoadingLogsNothing) {
  const LoadedJson missing = CCommands::LoadJsonFile(u"C:\\missing");
  EXPECT_EQ(missing.tree, nullptr);
  EXPECT_STREQ(missing.error_position, "");
  machine_.SetFile(kPath, "[x");
  const LoadedJson broken = CCommands::LoadJsonFile(kPath);
  EXPECT_EQ(broken.tree, nullptr);
  EXPECT_STREQ(broken.error_position, "x");
  EXPECT_EQ(LogText(), "");
}

TEST_F(JobFileReader, AFileThatChangesItsSizeMeanwhile) {
  const std::string json = R"({"FilePath": "d", "SourceFileName": "n"})";
  struct Case {
    const char* name;
    std::uint64_t reported;
    bool result;
    const char* log;
  };
  const Case cases[] = {
      {"shorter by then", 4000, true, ""},
      {"longer by then", 3, false, "ERROR: ReadFromFile(): Parse JSON failed with error 'F'\n"},
      {"empty before", 0, false, "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"},
      {"larger than any memory", std::uint64_t{1} << 62, false,
       "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"},
      {"larger than any number", std::numeric_limits<std::uint64_t>::max(), false,
       "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    machine_.Reset();
    machine_.SetFile(kPath, json);
    machine_.SetReportedSize(kPath, c.reported);
    JobParameters params;
    EXPECT_EQ(CCommands::ReadFromFile(params, kPath),
              c.result ? JobFileReading::kJobFile : JobFileReading::kNoJobFile);
    EXPECT_EQ(EntriesText(params.arguments), c.result ? "filename=d\nattdisplayname=n.pdf\n" : "");
    EXPECT_EQ(LogText(), c.log);
  }
}

TEST_F(JobFileReader, AJobOf64MiB) {
  const std::string json =
      R"({"FilePath": "d", "SourceFileName": "n", "Cmd": {"Commands": {"K": ")";
  const std::string end = R"("}, "Receiver": ["0301"]}})";
  const std::size_t length = k64MiB - json.size() - end.size();
  machine_.SetFile(kPath, json + std::string(length, 'x') + end);
  JobParameters params;
  EXPECT_EQ(CCommands::ReadFromFile(params, kPath), JobFileReading::kJobFile);
  EXPECT_EQ(EntriesText(params.arguments), "filename=d\nattdisplayname=n.pdf\n");
  ASSERT_EQ(params.faxFields.Entries().size(), 2u);
  EXPECT_EQ(params.faxFields.Entries()[0].second.size(), length);
  EXPECT_EQ(params.faxFields.Entries()[0].second.find_first_not_of(u'x'), std::u16string::npos);
  EXPECT_EQ(Readable(params.faxFields.Entries()[1].second), "0301");
  EXPECT_EQ(LogText(), "");
}

TEST_F(JobFileReader, RubbishOf64MiB) {
  ExpectNoJob(std::string(k64MiB - 1, ' ') + "x", "x");
}

TEST_F(JobFileReader, ALongErrorPositionIsLoggedWhole) {
  const std::string text(1000000, 'x');
  ExpectNoJob(text, text);
}

TEST_F(JobFileReader, AHundredThousandLevels) {
  constexpr std::size_t kLevels = 100000;
  const ReadJob arrays = Read(std::string(kLevels, '['));
  EXPECT_FALSE(arrays.result);
  const std::string start = "ERROR: ReadFromFile(): Parse JSON failed with error '[";
  EXPECT_TRUE(arrays.log.starts_with(start));
  EXPECT_LT(arrays.log.size(), start.size() + kLevels);

  ReadJob whole = Read(std::string(kLevels, '[') + std::string(kLevels, ']'));
  EXPECT_FALSE(whole.result);
  EXPECT_TRUE(whole.log.starts_with(start));

  std::string objects;
  for (std::size_t i = 0; i < kLevels; ++i) {
    objects += "{\"a\":";
  }
  whole = Read(objects);
  EXPECT_FALSE(whole.result);
  EXPECT_TRUE(
      whole.log.starts_with("ERROR: ReadFromFile(): Parse JSON failed with error '{\"a\":"));
}

TEST_F(JobFileReader, HundredsOfLevelsAreRead) {
  constexpr std::size_t kLevels = 900;
  EXPECT_EQ(ReadDocumentAnd(R"(, "x": )" + std::string(kLevels, '[') + std::string(kLevels, ']') +
                            R"(, "Cmd": {"Commands": {"S": "s"}})")
                .fields,
            "S=s\n");
}

TEST_F(JobFileReader, GetDocumentFromJsonWantsATree) {
  ParameterList arguments;
  EXPECT_FALSE(CCommands::GetDocumentFromJson(arguments, nullptr));
  EXPECT_EQ(LogText(), "ERROR: GetDocumentFromJson(): JSON error\n");
  EXPECT_EQ(arguments.Entries().size(), 0u);
}

TEST_F(JobFileReader, GetDocumentFromJsonAddsBothOrNone) {
  ParameterList arguments;
  arguments.Add(u"x", u"y");
  const JsonTree no_name(cJSON_Parse(R"({"FilePath": "d"})"));
  EXPECT_FALSE(CCommands::GetDocumentFromJson(arguments, no_name.get()));
  EXPECT_EQ(EntriesText(arguments), "x=y\n");
  const JsonTree both(cJSON_Parse(R"({"FilePath": "d", "SourceFileName": "n"})"));
  EXPECT_TRUE(CCommands::GetDocumentFromJson(arguments, both.get()));
  EXPECT_EQ(EntriesText(arguments), "x=y\nfilename=d\nattdisplayname=n.pdf\n");
  EXPECT_EQ(LogText(), "ERROR: GetDocumentFromJson(): JobName not found\n");
}

TEST_F(JobFileReader, ReadCommandValueTellsWhetherItFoundOne) {
  const JsonTree tree(cJSON_Parse(
      R"({"Cmd": {"Parameters": {"Subject": "long", "": "p"}, "Commands": {"S": "letter", "": "c"}}})"));
  struct Case {
    const char16_t* letter;
    const char16_t* long_name;
    const char* fields;  // empty: nothing is found
  };
  const Case cases[] = {
      {u"S", u"Subject", "S=long\n"}, {u"S", u"", "S=letter\n"}, {u"S", u"Missing", "S=letter\n"},
      {u"X", u"Subject", "X=long\n"}, {u"X", u"Missing", ""},    {u"X", u"", ""},
      {u"", u"Subject", "=long\n"},   {u"", u"Missing", ""},     {u"", u"", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Readable(c.letter) + " " + Readable(c.long_name));
    JobParameters params;
    const bool is_found = CCommands::ReadCommandValue(params, tree.get(), c.letter, c.long_name);
    EXPECT_EQ(is_found, *c.fields != '\0');
    EXPECT_EQ(EntriesText(params.faxFields), c.fields);
  }
  JobParameters params;
  EXPECT_FALSE(CCommands::ReadCommandValue(params, nullptr, u"S", u"Subject"));
  EXPECT_EQ(LogText(), "");
}

// The members in a job file for the fault sweeps, values too long to live inside a string object.
const std::string kLongPath = "C:\\Spool\\" + std::string(40, 'd');
const std::string kLongName = std::string(40, 'n');
const std::string kLongRate = std::string(40, '9');
const std::string kLongOutput = std::string(40, 'o');
const std::string kLongNumber = std::string(40, '3');
const std::string kSweptJob =
    R"({"FilePath": "C:\\Spool\\)" + std::string(40, 'd') + R"(", "SourceFileName": ")" +
    kLongName + R"(", "Cmd": {"Parameters": {"Baudrate": ")" + kLongRate +
    R"("}, "Commands": {"O": ")" + kLongOutput + R"("}, "Receiver": [")" + kLongNumber + R"("]}})";

// Plays the reading of kSweptJob through on a machine whose fallible calls fail as a sweep says,
// and tells what has to come of it.
class ExpectedJob {
 public:
  explicit ExpectedJob(const FaultRun& run) : run_(run) {
    for (const char* call : {"OpenFileAt", "QueryFileSize", "AllocateBlock", "ReadBytes"}) {
      if (Fails(call)) {
        job.log = "ERROR: ReadFromFile(): Parse JSON failed with error ''\n";
        return;
      }
    }
    job.result = true;
    std::string path;
    if (!Finds(&kLongPath, path)) {
      job.log = kFilenameNotFound;
      return;
    }
    std::string name;
    if (!Finds(&kLongName, name)) {
      job.log = kJobNameNotFound;
      return;
    }
    job.arguments = "filename=" + path + "\nattdisplayname=" + name + ".pdf\n";
    for (const Field& field : kFields) {
      std::string value;
      const bool is_rate = field.letter == "B";
      const bool is_output = field.letter == "O";
      if ((!field.long_name.empty() && Finds(is_rate ? &kLongRate : nullptr, value)) ||
          Finds(is_output ? &kLongOutput : nullptr, value)) {
        job.fields += field.letter + "=" + value + "\n";
      }
    }
    job.fields += "+FAX=" + Converted(kLongNumber) + "\n";
  }

  ReadJob job;

 private:
  // True when the next fallible call, which has to be one of `name`, fails.
  bool Fails(std::string_view name) {
    const std::size_t here = calls_;
    ++calls_;
    if (here == run_.index) {
      EXPECT_EQ(run_.name, name);
    }
    return here == run_.index || (run_.mode == FaultMode::kFromThere && here > run_.index);
  }

  std::string Converted(const std::string& value) { return Fails("BytesToWide") ? "" : value; }

  // One lookup: the name is narrowed, then the value, if there is one, is widened.
  bool Finds(const std::string* member, std::string& value) {
    if (Fails("WideToBytes") || Fails("WideToBytes") || member == nullptr) {
      return false;
    }
    value = Converted(*member);
    return true;
  }

  FaultRun run_;
  std::size_t calls_ = 0;
};

TEST_F(JobFileReader, EveryCallOfAReading) {
  ReadJob job;
  const platform::fake::FaultScenario scenario = {
      [this] { machine_.SetFile(kPath, kSweptJob); },
      [&job] {
        JobParameters params;
        job.result = CCommands::ReadFromFile(params, kPath) == JobFileReading::kJobFile;
        job.arguments = EntriesText(params.arguments);
        job.fields = EntriesText(params.faxFields);
      }};
  const std::size_t runs = platform::fake::SweepFaults(scenario, [&](const FaultRun& run) {
    const ReadJob expected = ExpectedJob(run).job;
    EXPECT_EQ(job.result, expected.result);
    EXPECT_EQ(job.arguments, expected.arguments);
    EXPECT_EQ(job.fields, expected.fields);
    EXPECT_EQ(LogText(), expected.log);
    EXPECT_EQ(machine_.FileBytes(kPath), kSweptJob);
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
    machine_.Reset();
    machine_.SetFile(kPath, kSweptJob);
    JobParameters params;
    JobFileReading reading{};
    EXPECT_TRUE(faults.Run([&] { reading = CCommands::ReadFromFile(params, path); }));
    EXPECT_EQ(machine_.FileBytes(kPath), kSweptJob);
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
                           ? "ERROR: ReadFromFile(): Parse JSON failed with error ''\n"
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
    machine_.Reset();
    machine_.SetFile(kPath, kSweptJob);
    machine_.FailCallOf(call, 0, platform::kNotEnoughMemory);
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
    machine_.Reset();
    machine_.SetFile(kPath, "%PDF-1.4");
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
