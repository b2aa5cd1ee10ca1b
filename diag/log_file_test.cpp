#include "diag/log_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "diag/utf8_text.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::fake::FaultRun;
using test::LogText;
using Calls = std::vector<std::string>;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kLogFolder[] = u"C:\\AppData\\VORNA\\Client\\Log";
constexpr char16_t kLogPath[] = u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";
constexpr char16_t kTemporaryLogPath[] = u"C:\\Temp\\zentpost.log";

// A whole line of the file.
std::string Line(const std::string& tag_and_message) {
  return std::string(test::kLogTime) + tag_and_message + "\r\n";
}

class LogFile : public platform::fake::FakePlatformTest {
 protected:
  LogFile() { StartOver(); }

  // A machine with the folder of the log.
  void StartOver() {
    fake_.Reset();
    fake_.AddFolder(kLogFolder);
  }

  void SwitchOn() { fake_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 1); }

  // What the log file holds; "(none)" when there is no such file.
  std::string Stored(std::u16string_view path = kLogPath) const {
    return fake_.FileBytes(path).value_or("(none)");
  }

  // What was told the debugger, in UTF-8, with `line_end` where a line ends.
  std::string Debugged(const std::string& line_end) const {
    std::string lines;
    for (const std::u16string& text : fake_.DebugOutput()) {
      lines += text == u"\n" ? line_end : test::Readable(text);
    }
    return lines;
  }

  // Expects these lines in the debugger, and the same in the file.
  void ExpectLogged(const std::string& lines) {
    EXPECT_EQ(LogText(), lines);
    EXPECT_EQ(Stored(), Debugged("\r\n"));
  }
};

TEST_F(LogFile, TagsHaveTwelveCharacters) {
  const std::pair<std::uint32_t, std::u16string> cases[] = {
      {0, u" - INFO   : "},         {1, u" - WARNING: "}, {2, u" - ERROR  : "},
      {3, u" - DEBUG  : "},         {4, u" - INFO   : "}, {7, u" - INFO   : "},
      {0xFFFFFFFF, u" - INFO   : "}};
  for (const auto& [level, tag] : cases) {
    EXPECT_EQ(FormatLogPrefix(level), u"2026/11/20 23:58:07" + tag) << level;
  }
}

TEST_F(LogFile, TimeStampHasAllItsDigits) {
  const std::pair<platform::LocalTime, std::u16string> cases[] = {
      {{1970, 1, 1, 0, 0, 0}, u"1970/01/01 00:00:00"},
      {{2026, 2, 3, 4, 5, 6}, u"2026/02/03 04:05:06"},
      {{2028, 2, 29, 12, 0, 0}, u"2028/02/29 12:00:00"},
      {{2999, 12, 31, 23, 59, 59}, u"2999/12/31 23:59:59"},
  };
  for (const auto& [time, stamp] : cases) {
    fake_.SetLocalTime(time);
    EXPECT_EQ(FormatLogPrefix(kLevelInfo), stamp + u" - INFO   : ");
  }
}

TEST_F(LogFile, EveryEntryPoint) {
  SwitchOn();
  fake_.SetSystemMessage(2, u"The system cannot find the file specified.\r\n");
  LogInfo(u"StartZentpost(): %s", u"a.json");
  LogWarning(u"w %d", -1);
  LogError(u"JSON error");
  LogDebug(u"d %x", 255U);
  LogErrorWithCode(2, u"AddAttachment(): '%s'", u"b.pdf");
  LogWarningWithCode(0x80040604, u"cw %d", 1);
  LogDebugWithCode(0xFFFFFFFF, u"cd");
  WriteLogEntry(kLevelWarning, u"%s|%d|%.8x", {u"a", -1, 5U});
  WriteLogEntry(7, u"100%%", {});
  // The number 0 adds no line.
  fake_.SetSystemMessage(0, u"The operation completed successfully.\r\n");
  LogErrorWithCode(0, u"e0");
  LogWarningWithCode(0, u"w0");
  LogDebugWithCode(0, u"d0");
  LogInfo(u"");
  LogInfo(u"%s", u"");
  ExpectLogged(
      "INFO: StartZentpost(): a.json\n"
      "WARNING: w -1\n"
      "ERROR: JSON error\n"
      "DEBUG: d ff\n"
      "ERROR: AddAttachment(): 'b.pdf'\n"
      "ERROR: Code 0x00000002 --> The system cannot find the file specified.\n"
      "WARNING: cw 1\n"
      "WARNING: Code 0x80040604 --> (CDO) Collision occured..\n"
      "DEBUG: cd\n"
      "DEBUG: Code 0xffffffff --> Unknown Error.\n"
      "WARNING: a|-1|00000005\n"
      "INFO: 100%\n"
      "ERROR: e0\n"
      "WARNING: w0\n"
      "DEBUG: d0\n"
      "INFO: \n"
      "INFO: \n");
}

// Whose number counts is the client settings' subject.
TEST_F(LogFile, LogLevelSwitchesTheFileAndNothingElse) {
  for (const std::uint32_t number : {0U, 1U, 2U, 3U, 0xFFFFFFFFU}) {
    StartOver();
    fake_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", number);
    LogInfo(u"i");
    LogWarning(u"w");
    LogError(u"e");
    LogDebug(u"d");
    EXPECT_EQ(LogText(), "INFO: i\nWARNING: w\nERROR: e\nDEBUG: d\n");
    EXPECT_EQ(Stored(), number == 0 ? "(none)" : Debugged("\r\n"));
  }
}

TEST_F(LogFile, CallsOfALineWithTheFile) {
  fake_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
  fake_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", 1);
  LogInfo(u"one");
  EXPECT_EQ(fake_.Calls(), (Calls{
                               "OpenKey(HKCU, Software\\Sollvex\\FaxClient, 0x20019)",
                               "QueryValue(LogLevel, 4)",
                               "CloseKey(HKCU\\Software\\Sollvex\\FaxClient)",
                               "OpenKey(HKLM, Software\\Sollvex\\FaxClient, 0x20019)",
                               "QueryValue(LogLevel, 4)",
                               "SecondsSinceEpoch()",
                               "BreakIntoLocalTime(1795219087)",
                               "WriteDebugOutput(2026/11/20 23:58:07 - INFO   : one)",
                               "WriteDebugOutput(\n)",
                               "WideToBytes(65001, 35, 35)",
                               "TemporaryFolder(260)",
                               "LocalApplicationDataFolder()",
                               "AppendToFile(C:\\AppData\\VORNA\\Client\\Log\\zentpost.log, 36)",
                           }));
}

// The whole line arrives in one append, so that processes do not cut into each other's lines.
TEST_F(LogFile, ALongLineIsOneAppend) {
  SwitchOn();
  const std::u16string text(1000000, u'\u20AC');
  LogInfo(u"%s", text);
  EXPECT_EQ(fake_.CallsOf("AppendToFile"),
            Calls{"AppendToFile(C:\\AppData\\VORNA\\Client\\Log\\zentpost.log, 3000033)"});
  EXPECT_EQ(Stored(), Line(" - INFO   : " + test::Readable(text)));
}

TEST(LogLine, LongerThanTheCodecTakesIsDropped) {
  EXPECT_EQ(CodecLength(0x7FFFFFFF), 0x7FFFFFFF);
  EXPECT_THROW(CodecLength(0x80000000), std::length_error);
}

TEST_F(LogFile, LinesAreAddedBehindWhatIsThere) {
  SwitchOn();
  fake_.SetFile(kLogPath, "an earlier run\r\n");
  LogInfo(u"one");
  EXPECT_EQ(Stored(), "an earlier run\r\n" + Line(" - INFO   : one"));
}

TEST_F(LogFile, NothingIsKeptFromLineToLine) {
  LogInfo(u"off");
  SwitchOn();
  LogInfo(u"on");
  fake_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
  LogInfo(u"off again");
  SwitchOn();
  fake_.AddFolder(u"D:\\Data\\VORNA\\Client\\Log");
  fake_.SetLocalApplicationData(0, u"D:\\Data");
  LogInfo(u"elsewhere");
  fake_.SetLocalTime({2027, 1, 1, 0, 0, 0});
  LogInfo(u"later");
  EXPECT_EQ(Stored(), Line(" - INFO   : on"));
  EXPECT_EQ(Stored(u"D:\\Data\\VORNA\\Client\\Log\\zentpost.log"),
            Line(" - INFO   : elsewhere") + "2027/01/01 00:00:00 - INFO   : later\r\n");
}

TEST_F(LogFile, ThePathLiesBelowTheLocalApplicationData) {
  EXPECT_EQ(GetLogFilePath(), kLogPath);
  fake_.SetLocalApplicationData(0, u"C:\\Users\\M\u00FCller\\AppData\\Local");
  EXPECT_EQ(GetLogFilePath(),
            u"C:\\Users\\M\u00FCller\\AppData\\Local\\VORNA\\Client\\Log\\zentpost.log");
  // S_FALSE: the folder does not exist, but this would be it.
  fake_.SetLocalApplicationData(1, u"D:\\Missing");
  EXPECT_EQ(GetLogFilePath(), u"D:\\Missing\\VORNA\\Client\\Log\\zentpost.log");
}

TEST_F(LogFile, TheTemporaryFolderIsTakenAsItIsUpToItsLimit) {
  fake_.SetLocalApplicationData(static_cast<std::int32_t>(0x80004005), u"");
  // With its terminator the longest no longer fits into 260 units.
  for (const std::size_t length : {1U, 259U, 260U}) {
    const std::u16string folder = std::u16string(length - 1, u't') + u"\\";
    fake_.SetTemporaryFolder(folder);
    EXPECT_EQ(GetLogFilePath(), (length < 260 ? folder : u"") + u"zentpost.log");
  }
  fake_.SetTemporaryFolder(u"C:\\Temp\\");
  fake_.FailCallOf("TemporaryFolder", 0, platform::kAccessDenied);
  EXPECT_EQ(GetLogFilePath(), u"zentpost.log");
}

// The folder belongs to the fax client that installs the tool.
TEST_F(LogFile, DeliberateAMissingFolderIsNotCreated) {
  SwitchOn();
  fake_.Remove(u"C:\\AppData\\VORNA");
  LogError(u"one");
  // Had it been created, this line would be stored.
  LogError(u"two");
  EXPECT_EQ(LogText(), "ERROR: one\nERROR: two\n");
  EXPECT_EQ(fake_.FilePaths(), std::vector<std::u16string>{});
}

TEST_F(LogFile, PercentSignsInAMessageStandAsTheyAre) {
  SwitchOn();
  LogInfo(u"%s", u"100% %s %d %n %");
  LogErrorWithCode(5, u"%s", u"%x%x");
  fake_.SetSystemMessage(193, u"%1 is not a valid Win32 application.\r\n");
  LogErrorWithCode(193, u"%%");
  ExpectLogged(
      "INFO: 100% %s %d %n %\n"
      "ERROR: %x%x\n"
      "ERROR: Code 0x00000005 --> Unknown Error.\n"
      "ERROR: %\n"
      "ERROR: Code 0x000000c1 --> %1 is not a valid Win32 application.\n");
}

TEST_F(LogFile, TheFileIsUtf8) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"\U0001F4E0", "\xF0\x9F\x93\xA0"},
      {u"<\xD83D>", "<\xEF\xBF\xBD>"},
      {u"\u00C3\u00A4", "\xC3\x83\xC2\xA4"},
      {u"\u007F\u0080", "\x7F\xC2\x80"},
      {u"\u07FF\u0800\uFFFF", "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
  };
  SwitchOn();
  for (const auto& [message, bytes] : cases) {
    SCOPED_TRACE(bytes);
    fake_.SetFile(kLogPath, "");
    LogInfo(u"%s", message);
    EXPECT_EQ(Stored(), Line(" - INFO   : " + bytes));
    EXPECT_TRUE(fake_.DebugOutput().end()[-2].ends_with(u" : " + message));
    // The buffer is what the line takes, and two bytes more for a pair of surrogates.
    const std::size_t size = Stored().size() - 1 + (message == u"\U0001F4E0" ? 2 : 0);
    EXPECT_TRUE(fake_.CallsOf("WideToBytes").back().ends_with(", " + std::to_string(size) + ")"));
  }
}

// The file is written as a C library's text mode does it: every line feed gets a carriage return,
// the one that has one already included.
TEST_F(LogFile, DeliberateLineFeedsInAMessageAreStoredAsLineEnds) {
  SwitchOn();
  LogInfo(u"%s", u"a\nb\r\nc\rd");
  EXPECT_EQ(Debugged("|"), "2026/11/20 23:58:07 - INFO   : a\nb\r\nc\rd|");
  EXPECT_EQ(Stored(), "2026/11/20 23:58:07 - INFO   : a\r\nb\r\r\nc\rd\r\n");
}

// Plays the writing of log lines through on a machine whose fallible calls fail as a sweep says,
// and tells what has to come of it.
struct ExpectedLog {
  explicit ExpectedLog(const FaultRun& run) : replay(run) {}

  // One line of a log that the user's number 0 leaves to the machine's number 1.
  void Line(const std::string& tag_and_message) {
    bool is_closed = true;
    bool to_file = false;
    if (!replay.Fails("OpenKey")) {
      static_cast<void>(replay.Fails("QueryValue"));
      is_closed = !replay.Fails("CloseKey");
    }
    if (is_closed && !replay.Fails("OpenKey")) {
      to_file = !replay.Fails("QueryValue");
    }
    const std::string line = (replay.Fails("BreakIntoLocalTime") ? std::string(test::kNoLogTime)
                                                                 : std::string(test::kLogTime)) +
                             tag_and_message;
    debugger += line + "\n";
    if (!to_file || replay.Fails("WideToBytes")) {
      return;
    }
    const bool has_temporary = !replay.Fails("TemporaryFolder");
    std::string* file = &log;
    if (replay.Fails("LocalApplicationDataFolder")) {
      file = has_temporary ? &temporary_log : &current_log;
    }
    if (!replay.Fails("AppendToFile")) {
      *file += line + "\r\n";
    }
  }

  platform::fake::FaultReplay replay;
  std::string debugger, log, temporary_log, current_log;
};

TEST_F(LogFile, EveryCallOfAFailureWithItsCode) {
  const platform::fake::FaultScenario scenario = {
      [this] {
        fake_.AddFolder(kLogFolder);
        fake_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
        fake_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", 1);
        fake_.SetSystemMessage(2, u"The system cannot find the file specified.\r\n");
      },
      [] { LogErrorWithCode(2, u"AddAttachment(): '%s'", u"b.pdf"); }};
  const std::size_t runs = platform::fake::SweepFaults(scenario, [this](const FaultRun& run) {
    ExpectedLog expected(run);
    expected.Line(" - ERROR  : AddAttachment(): 'b.pdf'");
    const bool is_unknown = expected.replay.Fails("SystemMessage");
    expected.Line(std::string(" - ERROR  : Code 0x00000002 --> ") +
                  (is_unknown ? "Unknown Error." : "The system cannot find the file specified."));
    EXPECT_EQ(Debugged("\n"), expected.debugger);
    EXPECT_EQ(fake_.FileBytes(kLogPath).value_or(""), expected.log);
    EXPECT_EQ(fake_.FileBytes(kTemporaryLogPath).value_or(""), expected.temporary_log);
    EXPECT_EQ(fake_.FileBytes(u"zentpost.log").value_or(""), expected.current_log);
  });
  constexpr std::size_t kCalls = 2 * 10 + 1;
  EXPECT_EQ(runs, 2 * kCalls);
}

}  // namespace
}  // namespace zentpost
