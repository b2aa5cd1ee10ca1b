#include "tools/doctor/job_findings.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "app/registry_names.h"
#include "fake_mapi/functions.h"
#include "platform/rehearsal/rehearsal.h"
#include "platform/sockets.h"
#include "testing/fake_platform/fixture.h"
#include "tools/support/text.h"

namespace zentpost::doctor {
namespace {

using support::Utf8;

constexpr char16_t kDocument[] = u"C:\\fax\\a.pdf";
constexpr char16_t kJob[] = u"C:\\fax\\job.json";
const std::u16string kJobLine = kJob;

const std::string kTop = R"("FilePath": "C:\\fax\\a.pdf", "SourceFileName": "invoice")";

// A job file with these members in "Cmd", and these behind "Cmd".
std::string JobFile(const std::string& command, const std::string& more = "") {
  return "{" + kTop + R"(, "Cmd": {)" + command + "}" + more + "}";
}

class JobFindings : public platform::fake::FakePlatformTest {
 protected:
  JobFindings() { StartOver(); }

  // A job with its document, and an add-in that takes it.
  void StartOver() {
    fake_.Reset();
    fake_.SetFile(kDocument, "document");
    fake_.SetString(platform::Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort,
                    u"5000");
    answers_.connect = [](std::uint16_t) { return platform::kSuccess; };
    answers_.load = nullptr;
    route_ = Route::kAddin;
  }

  // No add-in, but a mail client.
  void UseMailClient() {
    answers_.connect = nullptr;
    answers_.load = [](const std::u16string&) {
      platform::rehearsal::Library library;
      library.status = platform::kSuccess;
      library.find = [](std::string_view name) -> platform::Procedure {
        static const auto functions = fake_mapi::Functions();
        const auto found = functions.find(std::string(name));
        return found == functions.end() ? nullptr : found->second;
      };
      return library;
    };
    route_ = Route::kMapi;
  }

  void Find(const std::u16string& line) {
    findings_.clear();
    job_ = RehearseJob(line, answers_, std::u16string::npos);
    AddJobFindings(line, job_, route_, route_ == Route::kAddin, findings_);
    AddFalselyDelivered(job_, {route_, job_.exit_code == 0, job_.exit_code, u""}, findings_);
  }

  // "D25! D29 D34!": the codes in their order, errors marked.
  std::string Codes() const {
    std::string codes;
    for (const Finding& finding : findings_) {
      codes += (codes.empty() ? "" : " ") + std::string(finding.code) +
               (finding.severity == Severity::kError ? "!" : "");
    }
    return codes;
  }

  std::string Codes(const std::u16string& line) {
    Find(line);
    return Codes();
  }

  // The codes for a job file that holds this.
  std::string CodesOf(const std::string& bytes, const std::u16string& path = kJob) {
    fake_.SetFile(path, bytes);
    return Codes(path);
  }

  // All that was seen of a code: "a; b" for each finding, on a line of its own.
  std::string Seen(std::string_view code) const {
    std::string all;
    for (const Finding& finding : findings_) {
      if (finding.code == code) {
        all += all.empty() ? "" : "\n";
        for (const std::u16string& text : finding.seen) {
          all += (&text == finding.seen.data() ? "" : "; ") + Utf8(text);
        }
      }
    }
    return all;
  }

  platform::rehearsal::Answers answers_;
  Route route_ = Route::kAddin;
  JobRehearsal job_;
  std::vector<Finding> findings_;
};

TEST_F(JobFindings, ThereAreNoneInOrdinaryJobs) {
  const std::u16string kLines[] = {
      u"C:\\fax\\a.pdf 0301;Shello",
      u"\"C:\\my docs\\a.pdf\" \"0301;SMy invoice\"",
      u"'C:\\my docs\\a.pdf' 0301",
      u"C:\\fax\\a.pdf 0301 /attdisplayname \"My invoice.pdf\"",
      u"C:\\fax\\letter.rtf 0301",
      u" C:\\fax\\job.json ",
      u"C:\\fax\\job.json /ATTDISPLAYNAME",
      u"C:\\fax\\mark.json",
  };
  const std::string job = JobFile(
      R"("Parameters": {"Subject": "B\u00e4cker", "recipientname": "x", "ECM": "-"},
         "Commands": {"P": "-", "s": "y", "B": "9600"}, "RECEIVER": ["0301", 2])",
      R"(, "Result": {"Status": 1, "Subject": 5}, "Own": 5, "Pages": {"List": [1, {"x": null}]})");
  for (const bool has_addin : {true, false}) {
    StartOver();
    fake_.SetFile(u"C:\\my docs\\a.pdf", "document");
    fake_.SetFile(u"C:\\fax\\letter.rtf", "{\\rtf1 letter}");
    fake_.SetFile(kJob, job);
    fake_.SetFile(u"C:\\fax\\mark.json", "\xEF\xBB\xBF" + job + "\r\n");
    if (!has_addin) {
      UseMailClient();
    }
    for (const std::u16string& line : kLines) {
      if (line.find(u"ATTDISPLAYNAME") == line.npos) {
        EXPECT_EQ(Codes(line), "") << Utf8(line) << "\n" << Seen("D31") << Seen("D28");
        EXPECT_EQ(job_.exit_code, 0);
      }
    }
  }
}

// Whatever stands in a line and a job file, something can be said of it.
TEST_F(JobFindings, AnyLineAndAnyJobFileCanBeExamined) {
  const std::vector<std::u16string> kLinePieces = {u" ",
                                                   u"  ",
                                                   u"\"",
                                                   u"'",
                                                   u"/",
                                                   u"C:\\fax\\job.json",
                                                   u"C:\\fax\\a.pdf",
                                                   u"/filename",
                                                   u"/jobname",
                                                   u"/attdisplayname",
                                                   u"/faxcommand",
                                                   u"0301;",
                                                   u"Oout.json",
                                                   u";",
                                                   u"\t",
                                                   u"\u4E2D\u6587\u4E2D\u6587",
                                                   u"\xD800",
                                                   u"\u00C3\u00BC"};
  const std::vector<std::string> kJsonPieces = {
      "{", "}",    "[",  "]",    ",",        ":",     "\"",           "\n",
      "1", "null", "\\", "\xC3", "\"Cmd\":", "\"a\"", "\xEF\xBB\xBF", std::string(1, '\0')};
  const std::vector<std::string> kMembers = {
      R"(,"FilePath":"a")",
      R"(,"Cmd":{"Receiver":5})",
      R"(,"Cmd":[{"Cmd":{}}])",
      ",\"Cmd\":{\"Commands\":{\"S\":\"\xFC\",\"O\":\"C:/fax/a.pdf\"}}",
      R"(,"Cmd":{"Parameters":{"Subjct":"x","Subject":"\u4E2D"}})",
      R"(,"Result":{"S":1})",
      R"(,"":[[]])"};
  std::mt19937 random(4711);
  const auto pieces = [&random](const auto& of, std::size_t most) {
    auto text = of[0].substr(0, 0);
    for (std::size_t i = random() % most; i > 0; --i) {
      text += of[random() % of.size()];
    }
    return text;
  };
  int with_job_file = 0;
  for (int i = 0; i < 2000; ++i) {
    fake_.SetFile(kJob,
                  i % 2 == 0 ? "{" + kTop + pieces(kMembers, 5) + "}" : pieces(kJsonPieces, 12));
    const std::u16string line = (i % 3 == 0 ? u"" : kJobLine + u" ") + pieces(kLinePieces, 8);
    route_ = i % 5 == 0 ? Route::kFile : Route::kAddin;
    Find(line);
    with_job_file += job_.parameters.fromJobFile ? 1 : 0;
    for (const Finding& finding : findings_) {
      EXPECT_TRUE(finding.code >= "D25" && finding.code <= "D34") << Utf8(line);
      EXPECT_FALSE(finding.seen.empty()) << finding.code;
    }
    EXPECT_TRUE(Seen("D26").empty() || (Seen("D25") + Seen("D27") + Seen("D28")).empty());
  }
  EXPECT_GT(with_job_file, 100);
}

// --- D25 ---

TEST_F(JobFindings, D25TellsWhyTheFirstFileCannotBeRead) {
  fake_.SetSystemMessage(2, u"The file is missing.");
  fake_.AddPipe(u"C:\\fax\\pipe");
  const struct {
    const char16_t* line;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {u"C:\\fax\\none.json 0301", "D25! D34!",
       "C:\\fax\\none.json; The file is missing. (error 2)"},
      {u"C:\\fax\\none.pdf", "D25! D34!", "C:\\fax\\none.pdf; The file is missing. (error 2)"},
      {u"C:\\nowhere\\a.pdf", "D25! D34!", "C:\\nowhere\\a.pdf; Unknown Error. (error 3)"},
      {u"C:\\fax", "D25! D34!", "C:\\fax; Unknown Error. (error 5)"},
      {u"C:\\fax\\pipe", "D25! D34!", "C:\\fax\\pipe; Unknown Error. (error 5)"},
      {u"\"\" 0301", "D25! D34!", "an empty path; Unknown Error. (error 3)"},
      {kDocument, "", ""},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Codes(test.line), test.codes) << Utf8(test.line);
    EXPECT_EQ(Seen("D25"), test.seen);
  }
}

TEST_F(JobFindings, D25IsForFilesThatOthersHoldOrThatCannotBeReadToo) {
  fake_.SetFile(kJob, JobFile(""));
  job_ = RehearseJob(kJobLine, answers_, std::u16string::npos);
  const struct {
    const char* call;
    platform::Status status;
    const char* seen;
  } kCases[] = {
      {"OpenFileAt", platform::kSharingViolation, "32"},
      {"QueryFileSize", platform::kGeneralFailure, "31"},
      {"ReadBytes", platform::kReadFault, "30"},
      {"AllocateBlock", platform::kNotEnoughMemory, "8"},
      {"OpenFileAt", platform::kNotEnoughMemory, "8"},
  };
  for (const auto& test : kCases) {
    findings_.clear();
    fake_.FailCallOf(test.call, 0, test.status, platform::fake::FaultMode::kFromThere);
    AddJobFindings(kJobLine, job_, Route::kNone, false, findings_);
    fake_.ClearFault();
    EXPECT_EQ(Codes(), "D25! D29!") << test.call;
    EXPECT_EQ(Seen("D25"),
              std::string("C:\\fax\\job.json; Unknown Error. (error ") + test.seen + ")");
  }
}

TEST_F(JobFindings, D25IsForAJobFileThatDoesNotFitIntoMemory) {
  fake_.SetFile(kJob, JobFile(""));
  fake_.SetReportedSize(kJob, std::uint64_t{1} << 30);
  Find(kJob);
  EXPECT_EQ(findings_[0].code, "D25");
  EXPECT_EQ(Seen("D25"), "C:\\fax\\job.json; Unknown Error. (error 8)");
}

// --- D26 ---

TEST_F(JobFindings, D26IsForWhatLooksLikeAJobFileAndIsNone) {
  const struct {
    const char16_t* path;
    std::string bytes;
    const char* place;  // empty: no finding
  } kCases[] = {
      {kJob, "{\n\t\"FilePath\": \"a\",\n}", "line 3, column 2"},
      {kJob, "{\r\n\"a\": 1,\r\n\"b\": x\r\n}", "line 3, column 6"},
      {kJob, "{\"a\": 1} x", "line 1, column 10"},
      {kJob, "{\"a\": \"C:\\Fax\"}", "line 1, column 10"},
      // characters, not bytes; the mark is none
      {kJob, "{\"\xC3\xA4\xF0\x9F\x93\xA0\": x}", "line 1, column 8"},
      {kJob, "\xEF\xBB\xBF{\"\xC3\xA4\": x}", "line 1, column 7"},
      {kJob, "letter", "line 1, column 1"},
      {kJob, "", "line 1, column 1"},
      {u"C:\\fax\\JOB.JSON", "letter", "line 1, column 1"},
      {u"C:\\fax\\job.tmp", "{\"FilePath\": ", "line 1, column 14"},
      {u"C:\\fax\\job.tmp", "{ \r\n\t\"", "line 2, column 3"},
      {u"C:\\fax\\job.tmp", "{} {}", "line 1, column 4"},
      {u"C:\\fax\\job.tmp", "\xEF\xBB\xBF{ } x", "line 1, column 5"},
      {u"C:\\fax\\job.tmp", std::string("{\"a\": 1}\0x", 10), "line 1, column 9"},
      // UTF-16, in either order
      {u"C:\\fax\\job.tmp", std::string("\xFF\xFE{\0\r\0\n\0\"\0", 10), "line 1, column 1"},
      {u"C:\\fax\\job.tmp", std::string("\xFE\xFF\0{\0}", 6), "line 1, column 1"},
      {kJob, std::string(10000, '['), "line 1, column 1001"},
      {kJob, "{\"a\": \"\\ud800\"}", "line 1, column 8"},
      {kJob, std::string("\0\0", 2), "line 1, column 1"},
      // documents
      {u"C:\\fax\\a.rtf", "{\\rtf1 letter}", ""},
      {u"C:\\fax\\a.txt", "{", ""},
      {u"C:\\fax\\a.txt", "{ letter", ""},
      {u"C:\\fax\\a.txt", std::string("{\0\"", 3), ""},
      {u"C:\\fax\\a.txt", "\"{\"", ""},
      {u"C:\\fax\\a.txt", "1, {\"a\": ", ""},
      {u"C:\\fax\\a.json.txt", "letter", ""},
      {u"C:\\fax\\a.txt", std::string("\xFF\xFE{\0\\\0", 6), ""},
      // job files
      {kJob, JobFile("") + " and more", ""},
      {kJob, JobFile("") + "\x1A{", ""},
  };
  for (const auto& test : kCases) {
    const std::string codes = CodesOf(test.bytes, test.path);
    const std::string place = test.place;
    EXPECT_EQ(codes.find("D26!") == 0, !place.empty()) << test.bytes << ": " << codes;
    EXPECT_EQ(codes.ends_with("D34!"), !place.empty() || codes.find("D27") == 0) << codes;
    if (!place.empty()) {
      EXPECT_EQ(Seen("D26"), Utf8(test.path) + "; " + place) << test.bytes;
    }
  }
}

// --- D27 ---

TEST_F(JobFindings, D27IsForJsonWithoutADocument) {
  const struct {
    const char* bytes;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {"{}", "D27! D34!", "; there is no text for FilePath; there is no text for SourceFileName"},
      {R"({"FilePath": "C:\\fax\\a.pdf"})", "D27! D34!", "; there is no text for SourceFileName"},
      {R"({"SourceFileName": "a"})", "D27! D34!", "; there is no text for FilePath"},
      {R"({"FilePath": 5, "SourceFileName": "a"})", "D27! D28! D34!",
       "; there is no text for FilePath"},
      {"42", "D27! D34!", "; the file is JSON, but no object"},
      {"[1, 2]", "D27! D34!", "; the file is JSON, but no object"},
      {R"([{"a": 1}])", "D27! D34!", "; the file is JSON, but no object"},
      {R"({"filepath": "C:\\fax\\a.pdf", "SOURCEFILENAME": "a"})", "", nullptr},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(CodesOf(test.bytes), test.codes) << test.bytes;
    EXPECT_EQ(Seen("D27"), test.seen == nullptr ? "" : Utf8(kJob) + test.seen);
  }
  // There it fails, which needs no D34.
  UseMailClient();
  EXPECT_EQ(CodesOf("{}"), "D27!");
}

// --- D28 ---

TEST_F(JobFindings, D28IsForMembersWithoutEffect) {
  const std::string subject = R"("Parameters": {"Subject": "x"})";
  const struct {
    std::string bytes;
    const char* codes;
    const char* seen;
  } kCases[] = {
      // not what the tool takes
      {JobFile(R"("Parameters": {"Baudrate": 9600})"), "D28",
       "Cmd.Parameters.Baudrate = 9600; it is no text"},
      {JobFile(R"("Parameters": {"Subject": null})"), "D28",
       "Cmd.Parameters.Subject = null; it is no text"},
      {JobFile(R"("Commands": {"P": true})"), "D28", "Cmd.Commands.P = true; it is no text"},
      {JobFile(R"("Commands": {"P": {}, "S": []})"), "D28 D28",
       "Cmd.Commands.P = an object; it is no text\nCmd.Commands.S = an empty list; it is no text"},
      {JobFile(R"("Parameters": "x")"), "D28", "Cmd.Parameters = \"x\"; it is no object"},
      {JobFile(R"("Commands": [1])"), "D28", "Cmd.Commands = a list; it is no object"},
      {"{" + kTop + R"(, "Cmd": 1})", "D28", "Cmd = 1; it is no object"},
      {R"({"FilePath": 1, "SourceFileName": "a"})", "D27! D28! D34!",
       "FilePath = 1; it is no text"},
      {R"({"FilePath": "a", "SourceFileName": 1})", "D27! D28! D34!",
       "SourceFileName = 1; it is no text"},
      {JobFile(R"("Receiver": "0301")"), "D28! D34!", "Cmd.Receiver = \"0301\"; it is no list"},
      {JobFile(R"("Receiver": [301])"), "D28! D34!",
       "Cmd.Receiver = a list; its first element is no text"},
      {JobFile(R"("Receiver": [])"), "D28! D34!",
       "Cmd.Receiver = an empty list; its first element is no text"},
      // in the wrong object
      {JobFile(R"("Subject": "x")"), "D28",
       "Cmd.Subject = \"x\"; the tool looks for it in Cmd.Parameters"},
      {JobFile(R"("Commands": {"Subject": "x"})"), "D28",
       "Cmd.Commands.Subject = \"x\"; the tool looks for it in Cmd.Parameters"},
      {JobFile(R"("Parameters": {"s": "x"})"), "D28",
       "Cmd.Parameters.s = \"x\"; the tool looks for it in Cmd.Commands"},
      {JobFile("", R"(, "Receiver": ["0301"])"), "D28! D34!",
       "Receiver = a list; the tool looks for it in Cmd"},
      {JobFile("", R"(, "Parameters": {})"), "D28",
       "Parameters = an object; the tool looks for it in Cmd"},
      {JobFile(R"("FilePath": "x")"), "D28! D34!",
       "Cmd.FilePath = \"x\"; the tool looks for it in the file's outermost object"},
      {JobFile("", R"(, "Own": [{"Subject": "x"}])"), "D28",
       "Own[].Subject = \"x\"; the tool looks for it in Cmd.Parameters"},
      {R"([{"FilePath": "x"}])", "D27! D28! D34!",
       "[].FilePath = \"x\"; the tool looks for it in the file's outermost object"},
      // a second time
      {JobFile(R"("Parameters": {"Subject": "x", "SUBJECT": "y"})"), "D28",
       "Cmd.Parameters.SUBJECT = \"y\"; it stands there a second time, and the first one counts"},
      {JobFile(subject, R"(, "Cmd": {"Receiver": ["1"]})"), "D28 D28! D34!",
       "Cmd = an object; it stands there a second time, and the first one counts\n"
       "Cmd.Receiver = a list; the tool looks for it in Cmd"},
      {JobFile("", R"(, "FilePath": "x")"), "D28! D34!",
       "FilePath = \"x\"; it stands there a second time, and the first one counts"},
      // nearly a name: one letter more, less, wrong, and two swapped
      {JobFile(R"("Parameters": {"Subjects": "x"})"), "D28",
       "Cmd.Parameters.Subjects = \"x\"; the tool looks for \"Subject\""},
      {JobFile(R"("Parameters": {"ubject": "x"})"), "D28",
       "Cmd.Parameters.ubject = \"x\"; the tool looks for \"Subject\""},
      {JobFile(R"("Parameters": {"Sabject": "x"})"), "D28",
       "Cmd.Parameters.Sabject = \"x\"; the tool looks for \"Subject\""},
      {JobFile(R"("Parameters": {"subjetc": 5})"), "D28",
       "Cmd.Parameters.subjetc = 5; the tool looks for \"Subject\""},
      {JobFile("\"Parameters\": {\"S\xC3\xBC"
               "bject\": \"x\"}"),
       "D28",
       "Cmd.Parameters.S\xC3\xBC"
       "bject = \"x\"; the tool looks for \"Subject\""},
      {JobFile(R"("Recever": ["1"])"), "D28! D34!",
       "Cmd.Recever = a list; the tool looks for \"Receiver\""},
      {R"({"Filepaht": "a", "SourceFileName": "a"})", "D27! D28! D34!",
       "Filepaht = \"a\"; the tool looks for \"FilePath\""},
      {R"({"FilePath": "a", "SourceFilName": "a"})", "D27! D28! D34!",
       "SourceFilName = \"a\"; the tool looks for \"SourceFileName\""},
      {JobFile("", R"(, "Cdm": {"Receiver": ["1"]})"), "D28 D28! D34!",
       "Cdm = an object; the tool looks for \"Cmd\"\n"
       "Cdm.Receiver = a list; the tool looks for it in Cmd"},
      // no finding: two letters off, an own name, case alone, the tool's own member
      {JobFile(R"("Parameters": {"Subjxxt": "x"})"), "", ""},
      {JobFile(R"("Parameters": {"tcejbuS": 5, "": 5, "Sx": 1})"), "", ""},
      {JobFile(R"("parameters": {"SUBJECT": "x"}, "receiver": ["1"], "commands": {"k": "x"})"), "",
       ""},
      {JobFile("", R"(, "Result": {"Subject": 1, "Receiver": 2})"), "", ""},
      {JobFile(R"("Commands": {"X": "x", "Q": 5})"), "", ""},
  };
  for (const auto& test : kCases) {
    StartOver();
    fake_.SetFile(u"a", "document");
    const std::string codes = CodesOf(test.bytes);
    // The path "a" is relative, which is another finding.
    std::string others = codes;
    if (const std::size_t at = others.find("D29 "); at != others.npos) {
      others.erase(at, 4);
    }
    EXPECT_EQ(others, test.codes) << test.bytes;
    EXPECT_EQ(Seen("D28"), test.seen) << test.bytes;
  }
}

TEST_F(JobFindings, D28StaysShortForAnyFile) {
  std::string members;
  for (int i = 0; i < 300; ++i) {
    members += (i == 0 ? "" : ",") + std::string(R"("Subject": "x")");
  }
  fake_.SetFile(kJob, JobFile(members, R"(, "Receiver": ["1"], "FilePaths": ")" +
                                           std::string(70000, 'x') + "\""));
  Find(kJob);
  EXPECT_EQ(findings_.size(), 100u + 1 + 1);
  EXPECT_EQ(findings_[100].severity, Severity::kError);
  EXPECT_EQ(Utf8(findings_[100].seen[0]), "202 more members have no effect");

  EXPECT_EQ(CodesOf("{" + kTop + ", \"FilePaths\": \"" + std::string(70000, 'x') + "\"}"),
            "D28! D34!");
  EXPECT_EQ(Seen("D28"),
            "FilePaths = \"(a text of 70000 bytes)\"; the tool looks for \"FilePath\"");
  EXPECT_EQ(CodesOf(JobFile("", ", \"x\": " + std::string(990, '[') + "{\"Subject\": 1}" +
                                    std::string(990, ']'))),
            "D28");
  EXPECT_EQ(CodesOf(JobFile("\"" + std::string(100000, 'x') + "\": {\"Subject\": 1}")), "D28");
  EXPECT_EQ(Seen("D28"),
            "Cmd.(a text of 100000 bytes).Subject = 1; the tool looks for it in Cmd.Parameters");
}

// --- D29 ---

std::string NamedDocument(const std::string& path) {
  return "{\"FilePath\": \"" + path + "\", \"SourceFileName\": \"a\"}";
}

TEST_F(JobFindings, D29IsForADocumentThatIsNotThere) {
  fake_.AddPipe(u"C:\\fax\\pipe");
  EXPECT_EQ(CodesOf(NamedDocument("C:\\\\fax\\\\none.pdf")), "D29! D34!");
  EXPECT_EQ(Seen("D29"), "C:\\fax\\none.pdf; Unknown Error. (error 2)");
  EXPECT_EQ(CodesOf(NamedDocument("C:\\\\fax")), "D29! D34!");
  EXPECT_EQ(CodesOf(NamedDocument("C:\\\\fax\\\\pipe")), "D29! D34!");
  EXPECT_EQ(CodesOf(NamedDocument("")), "D29! D34!");
  EXPECT_EQ(CodesOf(NamedDocument("C:\\\\fax\\\\a.pdf")), "");
  UseMailClient();
  EXPECT_EQ(CodesOf(NamedDocument("C:\\\\fax\\\\none.pdf")), "D29! D34!");
  EXPECT_EQ(job_.exit_code, 0);
}

TEST_F(JobFindings, D29IsForADocumentThatOthersHoldToo) {
  fake_.SetFile(kJob, JobFile(""));
  job_ = RehearseJob(kJobLine, answers_, std::u16string::npos);
  // The first file is opened before it.
  fake_.FailCallOf("OpenFileAt", 1, platform::kSharingViolation);
  AddJobFindings(kJobLine, job_, route_, route_ == Route::kAddin, findings_);
  EXPECT_EQ(Codes(), "D29!");
  EXPECT_EQ(Seen("D29"), "C:\\fax\\a.pdf; Unknown Error. (error 32)");
}

TEST_F(JobFindings, D29TellsOfAnyDocument) {
  constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;
  const struct {
    const char* what;
    std::uint64_t size;
    bool has_addin;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {"too large", 4 * kGiB, true, "D29", "4294967296 bytes: one of 4 GiB or more"},
      {"too large", 4 * kGiB, false, "D29!", "4294967296 bytes: one of 4 GiB or more"},
      {"the largest", 4 * kGiB - 1, true, "D29", "4294967295 bytes, which do not fit"},
      {"no memory", 2 * kGiB, false, "D29!", "2147483648 bytes, which do not fit"},
  };
  for (const auto& test : kCases) {
    for (const bool has_job_file : {true, false}) {
      StartOver();
      fake_.SetFile(kJob, JobFile(""));
      fake_.SetReportedSize(kDocument, test.size);
      if (!test.has_addin) {
        UseMailClient();
      }
      EXPECT_EQ(Codes(has_job_file ? kJob : kDocument), test.codes)
          << test.what << has_job_file << Seen("D25");
      EXPECT_NE(Seen("D29").find(test.seen), std::string::npos) << Seen("D29");
    }
  }
}

TEST_F(JobFindings, D29WarnsOfReadOnlyEmptyAndRelativeDocuments) {
  fake_.SetFile(u"C:\\fax\\empty.pdf", "");
  fake_.SetFile(u"b.pdf", "document");
  fake_.SetFile(u"C:\\fax\\kept.pdf", "document");
  fake_.SetReadOnly(u"C:\\fax\\kept.pdf", true);
  const struct {
    const char* path;
    const char* seen;
  } kCases[] = {
      {"C:\\\\fax\\\\kept.pdf", "it cannot be deleted and stays: Unknown Error. (error 5)"},
      {"C:\\\\fax\\\\empty.pdf", "it is empty"},
      {"b.pdf",
       "the path is relative: here it is \"C:\\Current\\b.pdf\", elsewhere another file "
       "or none"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(CodesOf(NamedDocument(test.path)), "D29") << test.path;
    EXPECT_TRUE(Seen("D29").ends_with(std::string("; ") + test.seen)) << Seen("D29");
  }
  EXPECT_EQ(Codes(u"b.pdf"), "D29");
  EXPECT_EQ(Codes(u"C:\\fax\\kept.pdf"), "D29");
  EXPECT_EQ(Codes(u"C:\\fax\\empty.pdf"), "D29");
  EXPECT_EQ(Codes(u"none.pdf"), "D25! D29 D34!");
}

// --- D30 ---

TEST_F(JobFindings, D30IsForTextsThatTheAddinGetsOtherwise) {
  const struct {
    const char16_t* line;
    const char* codes;
    const char* seen;
  } kCases[] = {
      // no room for three bytes a character
      {u"C:\\fax\\a.pdf 0301;S\u4E2D\u6587\u4E2D\u6587", "D30!",
       "Subject; in the job: \"\u4E2D\u6587\u4E2D\u6587\"; arrives empty"},
      {u"C:\\fax\\a.pdf \u4E2D\u6587\u4E2D\u6587", "D30! D34!",
       "Receiver; in the job: \"\u4E2D\u6587\u4E2D\u6587\"; arrives empty"},
      {u"C:\\fax\\a.pdf 0301 /attdisplayname \u4E2D\u6587\u4E2D\u6587", "D30! D34!",
       "AttachmentName; in the job: \"\u4E2D\u6587\u4E2D\u6587\"; arrives empty"},
      {u"C:"
       u"\\fax\\\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D"
       u"\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587.pdf",
       "D30! D34!", nullptr},
      // taken for widened UTF-8
      {u"C:\\fax\\a.pdf 0301;EM\u00C3\u00BCller", "D30!",
       "RecipientName; in the job: \"M\u00C3\u00BCller\"; arrives as: \"M\u00FCller\""},
      {u"C:\\fax\\a.pdf 0301;K\u00E4\u00BB", "D30!", nullptr},
      // it cannot be written in UTF-8
      {u"C:\\fax\\a.pdf 0301;U\xD800", "D30!",
       "SenderName; in the job: \"\uFFFD\"; arrives as: \"\uFFFD\""},
      // near misses
      {u"C:\\fax\\a.pdf 0301;S\u00E4\u00F6\u00FC;K\u4E2D\u6587", "", ""},
      {u"C:\\fax\\a.pdf 0301;E\u00C3x\u00BC", "", ""},
      {u"C:\\fax\\a.pdf 0301;B\u4E2D\u6587\u4E2D\u6587", "", ""},
  };
  fake_.SetFile(
      u"C:"
      u"\\fax\\\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587"
      u"\u4E2D\u6587\u4E2D\u6587\u4E2D\u6587.pdf",
      "x");
  for (const auto& test : kCases) {
    EXPECT_EQ(Codes(test.line), test.codes) << Utf8(test.line);
    if (test.seen != nullptr) {
      EXPECT_EQ(Seen("D30"), test.seen);
    }
  }
}

TEST_F(JobFindings, D30IsForPathsThatLoseAQuote) {
  fake_.SetFile(u"C:\\obrien\\a.pdf", "document");
  fake_.SetFile(u"C:\\my docs\\a.pdf", "document");
  fake_.SetFile(u"C:\\obrien\\job.json", JobFile(""));
  fake_.SetFile(kJob, "{}");
  const struct {
    const char16_t* line;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {u"\"C:\\o'brien\\a.pdf\" 0301", "D30! D34!",
       "FileName; in the job: \"C:\\o'brien\\a.pdf\"; arrives as: \"C:\\obrien\\a.pdf\""},
      {u"C:\\o'brien\\a.pdf", "D31 D30! D34!", nullptr},
      {u"C:\\\"my docs\"\\a.pdf", "D31 D30! D34!", nullptr},
      {u"\"C:\\obrien\\a.pdf'", "D30! D34!", nullptr},
      {u"\"C:\\o'brien\\job.json\"", "D30!",
       "the job file's path; in the job: \"C:\\o'brien\\job.json\"; arrives as: "
       "\"C:\\obrien\\job.json\""},
      {u"C:\\fax\\job.json 0301 /filename \"C:\\o'brien\\a.pdf\"", "D27! D30! D34!", nullptr},
      {u"C:\\fax\\a.pdf 0301 /jobname \"C:\\o'brien\\job.json\"", "D30!", nullptr},
      // near misses: the pair around it, a field and a name
      {u"C:\\fax\\a.pdf 0301 /attdisplayname \"o'brien.pdf\"", "", ""},
      {u"\"C:\\my docs\\a.pdf\"", "", ""},
      {u"'C:\\my docs\\a.pdf' 0301", "", ""},
      {u"C:\\fax\\a.pdf \"0301;EO'Brien\"", "", ""},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Codes(test.line), test.codes) << Utf8(test.line);
    if (test.seen != nullptr) {
      EXPECT_EQ(Seen("D30"), test.seen);
    }
  }
}

TEST_F(JobFindings, D30IsForAPayloadThatHasNoRoomOnTheWire) {
  const auto line = [](const std::u16string& piece) {
    std::u16string text = u"C:\\fax\\a.pdf 0301;S";
    for (int i = 0; i < 2000; ++i) {
      text += piece;
    }
    return text;
  };
  // Its bytes are D0 93, which become a character of two bytes and one of three.
  EXPECT_EQ(Codes(line(u"\u0413")), "D30! D34!");
  EXPECT_TRUE(Seen("D30").starts_with("the whole payload; in the job: \"{\n\t\"Parameters\""))
      << Seen("D30");
  EXPECT_TRUE(Seen("D30").ends_with("; arrives empty"));
  EXPECT_FALSE(job_.wire);
  EXPECT_EQ(Codes(line(u"\u0413x")), "");
  EXPECT_EQ(Codes(line(u"\u00E4")), "");
  // In a file it is as it is.
  route_ = Route::kFile;
  EXPECT_EQ(Codes(line(u"\u0413") + u";Oout.json"), "D33");
}

TEST_F(JobFindings, D30IsForJobFilesThatAreNoUtf8) {
  EXPECT_EQ(CodesOf(JobFile("\"Parameters\": {\"Subject\": \"M\xFCller\"}")), "D30!");
  EXPECT_EQ(Seen("D30"),
            "Subject; in the job: \"M\u00FCller\"; arrives as: \"M\uFFFDller\", since the job file "
            "is no UTF-8");
  EXPECT_EQ(CodesOf(JobFile("\"Receiver\": [\"\xFC\"]")), "D30! D34!");
  // a surrogate alone
  EXPECT_EQ(CodesOf(JobFile("\"Parameters\": {\"Comment\": \"\xED\xA0\x80\"}")), "D30!");
  EXPECT_EQ(CodesOf(JobFile("\"Parameters\": {\"Subject\": \"\xEF\xBF\xBD\xC3\xBC\"}")), "");
  // The first name counts, and a fax command replaces all fields.
  EXPECT_EQ(CodesOf(JobFile(
                "\"Parameters\": {\"Subject\": \"x\"}, \"Commands\": {\"S\": \"M\xFCller\"}")),
            "");
  fake_.SetFile(kJob, JobFile("\"Parameters\": {\"Subject\": \"M\xFCller\"}"));
  EXPECT_EQ(Codes(kJobLine + u" 0301"), "");
}

TEST_F(JobFindings, D30IsForTextsThatTheMailClientGetsOtherwise) {
  UseMailClient();
  const std::u16string kLong(1023, u'x');
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301;E" + kLong), "");
  fake_.SetFile(kDocument, "document");
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301;E" + kLong + u"x"), "D30!");
  EXPECT_EQ(Seen("D30"), "RecipientName; in the job: \"" + Utf8(kLong) + "x\"; arrives as: \"" +
                             Utf8(kLong) + "\"");
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf " + kLong + u"1"), "D30! D34!");
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301 /attdisplayname a/b.pdf"), "D30! D34!");
  EXPECT_EQ(Seen("D30"), "AttachmentName; in the job: \"a/b.pdf\"; arrives as: \"b.pdf\"");
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301;S\u4E2D\u6587\u4E2D\u6587;EM\u00C3\u00BCller;Kx;Uy"), "");
}

// --- D31 ---

TEST_F(JobFindings, D31IsForLinesThatSayOtherThanTheySeem) {
  fake_.SetFile(kJob, JobFile(""));
  fake_.SetFile(u"C:\\fax\\none.json", "{}");
  const struct {
    const char16_t* line;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {u"C:\\fax\\a.pdf 0301;SMy invoice", "D31",
       "a blank ends the fax command \"0301;SMy\"; what stands behind it counts as an option, and "
       "has no effect: \"invoice\""},
      {u"C:\\fax\\a.pdf 0301; SMy new invoice 4711 /preview 1", "D31 D31",
       "a blank ends the fax command \"0301;\"; what stands behind it counts as an option, and has "
       "no effect: \"SMy\" with the value \"new\"; behind it as well: \"invoice\" with the value "
       "\"4711\"\nthe option has no effect: \"/preview\" with the value \"1\""},
      {u"C:\\fax\\a.pdf  0301", "D31",
       "part 2 of the line is empty: two blanks behind \"C:\\fax\\a.pdf\"\nthis"},
      {u"C:\\fax\\a.pdf 0301   /attdisplayname x", "D31", nullptr},
      {u"C:\\fax\\a.pdf 0301 /preview", "D31", "the option has no effect: \"/preview\""},
      {u"C:\\fax\\a.pdf 0301 /filename x.pdf", "D31",
       "the option has no effect: \"/filename\" with the value \"x.pdf\""},
      {u"C:\\fax\\job.json /attdisplayname x.pdf", "D31", nullptr},
      {u"C:\\fax\\a.pdf /attdisplayname x.pdf /attdisplayname y.pdf", "D31",
       "the option has no effect: \"/attdisplayname\" with the value \"y.pdf\""},
      {u"C:\\fax\\a.pdf /attdisplayname x.pdf 0301", "D31",
       "this counts as an option, and has no effect: \"0301\""},
      {u"C:\\fax\\a.pdf 0301;S\"My invoice", "D31",
       "nothing closes the last quotation mark or apostrophe, so that this is one part: "
       "\"0301;S\"My invoice\""},
      {u"C:\\fax\\a.pdf 0301;SIt's here", "D31", nullptr},
      {u"C:\\fax\\a.pdf /faxcommand 0301", "D31",
       "the option has no effect: \"/faxcommand\" with the value \"0301\""},
      // near misses
      {u"  C:\\fax\\a.pdf \"0301;SMy  invoice\"  ", "", ""},
      {u"C:\\fax\\a.pdf \"\"", "", ""},
      {u"C:\\fax\\a.pdf 0301 /AttDisplayName x.pdf", "", ""},
      {u"C:\\fax\\a.pdf 0301 /attdisplayname", "", ""},
      {u"C:\\fax\\a.pdf 0301 -attdisplayname x.pdf", "", ""},
      {u"C:\\fax\\a.pdf 0301 /jobname C:\\fax\\none.json", "", ""},
      {u"C:\\fax\\none.json 0301 /filename C:\\fax\\a.pdf /attdisplayname x", "D27! D34!", ""},
  };
  for (const auto& test : kCases) {
    const std::string codes = Codes(test.line);
    if (test.seen != nullptr && std::string_view(test.seen).ends_with("\nthis")) {
      EXPECT_TRUE(Seen("D31").starts_with(
          std::string_view(test.seen).substr(0, std::string_view(test.seen).size() - 5)))
          << Seen("D31");
      continue;
    }
    EXPECT_EQ(codes, test.codes) << Utf8(test.line) << "\n" << Seen("D31");
    if (test.seen != nullptr) {
      EXPECT_EQ(Seen("D31"), test.seen);
    }
  }
}

// --- D32 ---

TEST_F(JobFindings, D32IsForAJobFileThatCannotBeWritten) {
  EXPECT_EQ(CodesOf(JobFile("")), "");
  fake_.SetReadOnly(kJob, true);
  EXPECT_EQ(Codes(kJob), "D32");
  EXPECT_EQ(Seen("D32"), "C:\\fax\\job.json; Unknown Error. (error 5)");
  UseMailClient();
  EXPECT_EQ(Codes(kJob), "D32");
  // Nothing is written into JSON that is no object, nor into a document.
  fake_.SetFile(kJob, "42");
  fake_.SetReadOnly(kJob, true);
  EXPECT_EQ(Codes(kJob), "D27!");
  fake_.SetReadOnly(kDocument, true);
  EXPECT_EQ(Codes(kDocument), "D29");
}

// --- D33 ---

TEST_F(JobFindings, D33IsForADiversion) {
  fake_.AddFolder(u"C:\\Temp\\folder");
  fake_.AddLink(kDocument, u"C:\\fax\\link.pdf");
  fake_.SetFile(u"C:\\fax\\kept.json", "");
  fake_.SetReadOnly(u"C:\\fax\\kept.json", true);
  route_ = Route::kFile;
  const struct {
    const char* target;
    const char* codes;
    const char* seen;
  } kCases[] = {
      {"out.json", "D33", "the job goes into \"C:\\Temp\\out.json\""},
      {"C:\\\\fax\\\\out.json", "D33", "the job goes into \"C:\\fax\\out.json\""},
      {"C:\\\\nowhere\\\\out.json", "D33",
       "the job goes into \"C:\\nowhere\\out.json\"; it cannot be written: Unknown Error. (error "
       "3)"},
      {"C:\\\\fax\\\\kept.json", "D33",
       "the job goes into \"C:\\fax\\kept.json\"; it cannot be written: Unknown Error. (error 5)"},
      {"folder", "D33",
       "the job goes into \"C:\\Temp\\folder\"; it is no file to write to: Unknown Error. (error "
       "5)"},
      {"", "D33", nullptr},
      {"C:\\\\fax\\\\link.pdf", "D33!",
       "the job goes into \"C:\\fax\\link.pdf\"; this is the document or the job file: nothing is "
       "written"},
      {"C:/fax/job.json", "D33!", nullptr},
  };
  for (const bool has_addin : {true, false}) {
    answers_.connect = has_addin ? [](std::uint16_t) { return platform::kSuccess; }
                                 : std::function<platform::Status(std::uint16_t)>();
    for (const auto& test : kCases) {
      EXPECT_EQ(CodesOf(JobFile(R"("Commands": {"O": ")" + std::string(test.target) + "\"}")),
                test.codes)
          << test.target;
      EXPECT_EQ(job_.exit_code, 0);
      if (test.seen != nullptr) {
        EXPECT_EQ(Seen("D33"), test.seen);
      }
    }
  }
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301;Oout.json"), "D33");
  EXPECT_EQ(Codes(u"C:\\fax\\a.pdf 0301;NO"), "");
}

// --- D34 ---

TEST_F(JobFindings, D34NamesTheReasons) {
  EXPECT_EQ(Codes(u"C:\\fax\\none.pdf"), "D25! D34!");
  EXPECT_EQ(Seen("D34"), "D25: C:\\fax\\none.pdf");
  EXPECT_EQ(CodesOf(R"({"FilePath": 1, "SourceFileName": "a"})"), "D27! D28! D34!");
  EXPECT_EQ(Seen("D34"),
            "D27: C:\\fax\\job.json; D28: FilePath = 1; the job has neither document nor fields");
  EXPECT_EQ(Codes(u""), "D34!");
  EXPECT_EQ(Seen("D34"), "the job has neither document nor fields");
}

TEST_F(JobFindings, D34StandsOnlyWhereTheJobCountsAsDelivered) {
  const Finding kErrors[] = {
      {"D05", Severity::kError, {u"SkipExtendedMapi"}},
      {"D25", Severity::kError, {}},
      {"D26", Severity::kError, {}},
      {"D27", Severity::kError, {}},
      {"D28", Severity::kError, {}},
      {"D29", Severity::kError, {}},
      {"D30", Severity::kError, {u"Receiver"}},
      {"D30", Severity::kError, {u"FileName"}},
      {"D30", Severity::kError, {u"AttachmentName"}},
      {"D30", Severity::kError, {u"the whole payload"}},
  };
  const Finding kOthers[] = {
      {"D05", Severity::kWarning, {}},          {"D28", Severity::kWarning, {}},
      {"D29", Severity::kWarning, {}},          {"D30", Severity::kError, {u"Subject"}},
      {"D31", Severity::kWarning, {}},          {"D33", Severity::kWarning, {}},
      {"D33", Severity::kError, {u"out.json"}}, {"D12", Severity::kWarning, {}},
  };
  job_ = RehearseJob(kDocument, answers_, std::u16string::npos);
  const auto is_added = [&](const Finding& finding, bool delivered) {
    findings_ = {finding};
    AddFalselyDelivered(job_, {Route::kMapi, delivered, delivered ? 0 : 1, u""}, findings_);
    return findings_.back().code == "D34" && findings_.back().severity == Severity::kError;
  };
  for (const Finding& finding : kErrors) {
    EXPECT_TRUE(is_added(finding, true)) << finding.code;
    EXPECT_FALSE(is_added(finding, false)) << finding.code;
  }
  for (const Finding& finding : kOthers) {
    EXPECT_FALSE(is_added(finding, true)) << finding.code;
  }
}

}  // namespace
}  // namespace zentpost::doctor
