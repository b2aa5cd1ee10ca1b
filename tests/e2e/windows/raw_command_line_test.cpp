// Command lines as one text that reaches the tool untouched, as only Windows hands them over.
#include "testing/end_to_end/windows/raw_run.h"

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

class RawCommandLine : public JobTest {
 protected:
  ToolRun RunWith(std::u16string_view command_line) {
    const std::time_t begin = std::time(nullptr);
    return Checked(RunRaw(Setting("tool"), command_line, machine_.Options()), begin);
  }
};

TEST_F(RawCommandLine, DocumentsAndFaxCommandsWithQuotesAndBlanks) {
  const struct {
    const char16_t* command_line;
    test::PayloadText members;
  } cases[] = {
      {u"c:\\a.pdf", {.file_name = R"(c:\\a.pdf)"}},
      {u"\"c:\\my docs\\a.pdf\"", {.file_name = R"(c:\\my docs\\a.pdf)"}},
      {u"'c:\\my docs\\a.pdf' 0301", {.receiver = "0301", .file_name = R"(c:\\my docs\\a.pdf)"}},
      // Either quote closes what the other opened.
      {u"\"c:\\my docs\\a.pdf' 0301", {.receiver = "0301", .file_name = R"(c:\\my docs\\a.pdf)"}},
      // A quote that no quote closes makes the rest one token.
      {u"c:\\o'brien.pdf x", {.file_name = R"(c:\\obrien.pdf x)"}},
      {u"a.pdf \"0301;Shello there",
       {.receiver = "0301", .file_name = "a.pdf", .subject = "hello there"}},
      // A quote inside a quoted stretch closes only before a blank or at the end.
      {u"\"a\"b c.pdf\" 0301", {.receiver = "0301", .file_name = "ab c.pdf"}},
      // The fax command has lost its quotes before it is taken apart.
      {u"a.pdf 0301;Sit's_mine;Kb",
       {.receiver = "0301", .file_name = "a.pdf", .comment = "b", .subject = "its_mine"}},
      {u"a.pdf '0301;Ssubject';Kcomment more",
       {.receiver = "0301", .file_name = "a.pdf", .comment = "comment more", .subject = "subject"}},
      {u"\"\"", {}},
      {u"\"", {}},
      {u"''  x", {}},
      {u"a.pdf  0301", {.file_name = "a.pdf"}},  // an empty fax command, and the number an option
      {u"a.pdf\t0301", {.file_name = R"(a.pdf\t0301)"}},              // only blanks separate
      {u"a.pdf \t0301", {.receiver = "0301", .file_name = "a.pdf"}},  // tokens are trimmed
      {u"a.pdf 0301   ", {.receiver = "0301", .file_name = "a.pdf"}},
      {u"a.pdf \"\" 0301", {.file_name = "a.pdf"}},
      {u"a.pdf /x 0301;Sshort", {.file_name = "a.pdf"}},
      {u"/a.pdf 0301", {.receiver = "0301", .file_name = "/a.pdf"}},
      {u"\"a.pdf\"0301;Sx", {.file_name = "a.pdf0301;Sx"}},
  };
  SwitchLogOn();
  for (const auto& each : cases) {
    SCOPED_TRACE(Utf8(each.command_line));
    Addin addin;
    SetAddinPort(addin);

    // The log has the command line as it was given, to the last blank and quote.
    ExpectDelivered(RunWith(each.command_line), addin, Payload(each.members),
                    Utf8(each.command_line), NotAJobFile());
  }
}

TEST_F(RawCommandLine, BlanksInFrontAreNotPartOfIt) {
  Addin addin;
  SetAddinPort(addin);

  ExpectDelivered(RunWith(u"   a.pdf 0301 "), addin,
                  Payload({.receiver = "0301", .file_name = "a.pdf"}), "a.pdf 0301 ",
                  NotAJobFile());
}

TEST_F(RawCommandLine, BlanksAloneAreNoCommandLine) {
  const ToolRun run = RunWith(u"   ");

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run, Started("") + NoMapiLines({}));
}

TEST_F(RawCommandLine, ThirtyTwoThousandCharactersWithQuotes) {
  Addin addin;
  SetAddinPort(addin);
  SetFile("my job.json", kJobFile);
  std::u16string line = u"'my job.json' \"0301;K";
  line.append(32000 - line.size() - 1, u'x').append(u"\"");

  ExpectDelivered(RunWith(line), addin,
                  Payload({.receiver = "0301",
                           .file_name = "C:\\\\Fax\\\\Letter 7.pdf",
                           .attachment_name = "Letter 7.pdf",
                           .comment = std::string(32000 - 22, 'x')}),
                  Utf8(line));
  ExpectJobFile(JobFileDelivered(), "my job.json");
}

TEST_F(RawCommandLine, UnpairedSurrogateIsKeptInTheCommandLineAndReplacedInUtf8) {
  Addin addin;
  SetAddinPort(addin);

  const ToolRun run = RunWith(std::u16string{u'a', char16_t{0xD800}, u'b', u'c', u'd'});

  // U+FFFD is EF BF BD, read as Windows-1252 and sent in UTF-8.
  ExpectDelivered(run, addin,
                  Payload({.file_name = "a\xC3\xAF\xC2\xBF\xC2\xBD"
                                        "bcd"}),
                  "a\xEF\xBF\xBD"
                  "bcd",
                  NotAJobFile());
}

TEST_F(RawCommandLine, EventsTellADebuggerTheSameLines) {
  const std::time_t begin = std::time(nullptr);
  SwitchLogOn();
  SetFile("job.json", kJobFile);

  const ToolRun run =
      Checked(RunRawWithDebugEvents(Setting("tool"), u"job.json /preview", machine_.Options()),
              begin, kJobFile, PathOf("job.json"));

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run, Started("job.json /preview") + NoMapiLines(SampleMapi()));
}

TEST_F(RawCommandLine, LogLevelCountsFromTheNextLineOn) {
  machine_.AddLogFolder();
  ExpectLogFile(LogFile::kUnchecked);
  SetFile("job.json", kJobFile);
  ProcessOptions options = machine_.Options();
  options.at_debug_output = [this](std::string_view text) {
    // The line is with the debugger and has not yet reached the file, but the number has been read.
    if (text.ends_with("ProcessToExtendedMapi(): Parameters :")) {
      machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
    } else if (text.ends_with("Sendername : Sam Sender")) {
      machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 0);
    }
  };

  const std::time_t begin = std::time(nullptr);
  const ToolRun run =
      Checked(RunRaw(Setting("tool"), u"job.json", options), begin, kJobFile, PathOf("job.json"));

  ExpectLog(run, Started() + NoMapiLines(SampleMapi()));
  std::string file = ReadBytes(machine_.LogFile()).value_or("");
  ASSERT_GT(file.size(), 0U);
  std::string lines;
  for (const char* message :
       {"Receiver   : 0301234567", "Recipient  : Erika Example", "Sendername : Sam Sender"}) {
    const std::size_t end = file.find("\r\n");
    ASSERT_NE(end, std::string::npos);
    EXPECT_EQ(file.substr(19, end - 19),
              " - INFO   : ProcessToExtendedMapi(): " + std::string(message));
    file.erase(0, end + 2);
  }
  EXPECT_EQ(file, "");
}

}  // namespace
}  // namespace zentpost::e2e
