#include "diag/log_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::fake::FaultMode;
using platform::fake::FaultRun;
using test::LogText;
using Texts = std::vector<std::u16string>;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kLogFolder[] = u"C:\\AppData\\VORNA\\Client\\Log";
constexpr char16_t kLogPath[] = u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";
constexpr char16_t kTemporaryLogPath[] = u"C:\\Temp\\zentpost.log";

class LogFile : public platform::fake::MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    machine_.AddFolder(kLogFolder);
  }

  void SwitchOn() { machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 1); }

  // What the log file holds; "(none)" when there is no such file.
  std::string Stored(std::u16string_view path = kLogPath) const {
    return machine_.FileBytes(path).value_or("(none)");
  }
};

TEST_F(LogFile, TagsHaveTwelveCharacters) {
  struct Case {
    std::uint32_t level;
    const char16_t* prefix;
  };
  const Case cases[] = {
      {0, u"2026/11/20 23:58:07 - INFO   : "},          {1, u"2026/11/20 23:58:07 - WARNING: "},
      {2, u"2026/11/20 23:58:07 - ERROR  : "},          {3, u"2026/11/20 23:58:07 - DEBUG  : "},
      {4, u"2026/11/20 23:58:07 - INFO   : "},          {7, u"2026/11/20 23:58:07 - INFO   : "},
      {0xFFFFFFFF, u"2026/11/20 23:58:07 - INFO   : "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.level);
    EXPECT_EQ(FormatLogPrefix(c.level), c.prefix);
    EXPECT_EQ(FormatLogPrefix(c.level).size(), test::kLogTime.size() + 12);
  }
}

TEST_F(LogFile, TimeStampHasAllItsDigits) {
  struct Case {
    platform::LocalTime time;
    const char16_t* prefix;
  };
  const Case cases[] = {
      {{1970, 1, 1, 0, 0, 0}, u"1970/01/01 00:00:00 - INFO   : "},
      {{2026, 2, 3, 4, 5, 6}, u"2026/02/03 04:05:06 - INFO   : "},
      {{2028, 2, 29, 12, 0, 0}, u"2028/02/29 12:00:00 - INFO   : "},
      {{2999, 12, 31, 23, 59, 59}, u"2999/12/31 23:59:59 - INFO   : "},
  };
  for (const Case& c : cases) {
    machine_.SetLocalTime(c.time);
    EXPECT_EQ(FormatLogPrefix(kLevelInfo), c.prefix);
  }
}

TEST_F(LogFile, ATimeThatHasNoLocalFormIsShownAsNone) {
  machine_.FailCallOf("BreakIntoLocalTime", 0, platform::kInvalidParameter);
  EXPECT_EQ(FormatLogPrefix(kLevelError), u"0000/00/00 -01:-01:-01 - ERROR  : ");
  EXPECT_TRUE(machine_.FaultTaken());
}

TEST_F(LogFile, TheClockIsReadOnceForALine) {
  LogInfo(u"one");
  EXPECT_EQ(machine_.CallsOf("SecondsSinceEpoch").size(), 1u);
  EXPECT_EQ(machine_.CallsOf("BreakIntoLocalTime").size(), 1u);
}

TEST_F(LogFile, EveryEntryPoint) {
  SwitchOn();
  machine_.SetSystemMessage(2, u"The system cannot find the file specified.\r\n");
  LogInfo(u"StartZentpost(): %s", u"a.json");
  LogWarning(u"w %d", -1);
  LogError(u"JSON error");
  LogDebug(u"d %x", 255U);
  LogErrorWithCode(2, u"AddAttachment(): '%s'", u"b.pdf");
  LogWarningWithCode(0x80040604, u"cw %d", 1);
  LogDebugWithCode(0xFFFFFFFF, u"cd");
  EXPECT_EQ(LogText(),
            "INFO: StartZentpost(): a.json\n"
            "WARNING: w -1\n"
            "ERROR: JSON error\n"
            "DEBUG: d ff\n"
            "ERROR: AddAttachment(): 'b.pdf'\n"
            "ERROR: Code 0x00000002 --> The system cannot find the file specified.\n"
            "WARNING: cw 1\n"
            "WARNING: Code 0x80040604 --> (CDO) Collision occured..\n"
            "DEBUG: cd\n"
            "DEBUG: Code 0xffffffff --> Unknown Error.\n");
  EXPECT_EQ(Stored(),
            "2026/11/20 23:58:07 - INFO   : StartZentpost(): a.json\r\n"
            "2026/11/20 23:58:07 - WARNING: w -1\r\n"
            "2026/11/20 23:58:07 - ERROR  : JSON error\r\n"
            "2026/11/20 23:58:07 - DEBUG  : d ff\r\n"
            "2026/11/20 23:58:07 - ERROR  : AddAttachment(): 'b.pdf'\r\n"
            "2026/11/20 23:58:07 - ERROR  : Code 0x00000002 --> The system cannot find the file "
            "specified.\r\n"
            "2026/11/20 23:58:07 - WARNING: cw 1\r\n"
            "2026/11/20 23:58:07 - WARNING: Code 0x80040604 --> (CDO) Collision occured..\r\n"
            "2026/11/20 23:58:07 - DEBUG  : cd\r\n"
            "2026/11/20 23:58:07 - DEBUG  : Code 0xffffffff --> Unknown Error.\r\n");
}

TEST_F(LogFile, CodeZeroAddsNoLine) {
  SwitchOn();
  machine_.SetSystemMessage(0, u"The operation completed successfully.\r\n");
  LogErrorWithCode(0, u"e");
  LogWarningWithCode(0, u"w");
  LogDebugWithCode(0, u"d");
  EXPECT_EQ(LogText(), "ERROR: e\nWARNING: w\nDEBUG: d\n");
  EXPECT_EQ(machine_.CallsOf("SystemMessage").size(), 0u);
  EXPECT_EQ(Stored(),
            "2026/11/20 23:58:07 - ERROR  : e\r\n"
            "2026/11/20 23:58:07 - WARNING: w\r\n"
            "2026/11/20 23:58:07 - DEBUG  : d\r\n");
}

TEST_F(LogFile, TheLineAndItsEndGoToTheDebuggerOneAfterTheOther) {
  LogInfo(u"one");
  LogErrorWithCode(0x80070057, u"two");
  EXPECT_EQ(
      machine_.DebugOutput(),
      (Texts{u"2026/11/20 23:58:07 - INFO   : one", u"\n", u"2026/11/20 23:58:07 - ERROR  : two",
             u"\n", u"2026/11/20 23:58:07 - ERROR  : Code 0x80070057 --> (CDO) Invalid Parameter.",
             u"\n"}));
}

TEST_F(LogFile, LogLevelSwitchesTheFileAndNothingElse) {
  struct Case {
    std::optional<std::uint32_t> user;
    std::optional<std::uint32_t> machine;
    bool to_file;
  };
  const Case cases[] = {
      {std::nullopt, std::nullopt, false},
      {0, std::nullopt, false},
      {std::nullopt, 0, false},
      {0, 0, false},
      {0, 1, true},
      {std::nullopt, 1, true},
      {1, std::nullopt, true},
      {1, 0, true},
      {1, 1, true},
      {2, 0, true},
      {3, std::nullopt, true},
      {0xFFFFFFFF, std::nullopt, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("user " + (c.user ? std::to_string(*c.user) : "absent") + ", machine " +
                 (c.machine ? std::to_string(*c.machine) : "absent"));
    machine_.Reset();
    machine_.AddFolder(kLogFolder);
    if (c.user) {
      machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", *c.user);
    }
    if (c.machine) {
      machine_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", *c.machine);
    }
    LogInfo(u"i");
    LogWarning(u"w");
    LogError(u"e");
    LogDebug(u"d");
    EXPECT_EQ(LogText(), "INFO: i\nWARNING: w\nERROR: e\nDEBUG: d\n");
    EXPECT_EQ(Stored(), c.to_file ? "2026/11/20 23:58:07 - INFO   : i\r\n"
                                    "2026/11/20 23:58:07 - WARNING: w\r\n"
                                    "2026/11/20 23:58:07 - ERROR  : e\r\n"
                                    "2026/11/20 23:58:07 - DEBUG  : d\r\n"
                                  : "(none)");
  }
}

TEST_F(LogFile, AnythingButAFileInItsPlaceIsLeftAlone) {
  machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 1);
  machine_.AddFolder(kLogFolder);
  machine_.AddPipe(kLogPath);
  LogInfo(u"one");
  EXPECT_EQ(machine_.CallsOf("AppendToFile").size(), 1u);
  EXPECT_EQ(machine_.FileBytes(kLogPath).value_or(""), "");
  EXPECT_EQ(LogText(), "INFO: one\n");
}

TEST_F(LogFile, CallsOfALineWithoutTheFile) {
  LogInfo(u"one");
  EXPECT_EQ(machine_.Calls(), (std::vector<std::string>{
                                  "OpenKey(HKCU, Software\\Sollvex\\FaxClient, 0x20019)",
                                  "OpenKey(HKLM, Software\\Sollvex\\FaxClient, 0x20019)",
                                  "SecondsSinceEpoch()",
                                  "BreakIntoLocalTime(1795219087)",
                                  "WriteDebugOutput(2026/11/20 23:58:07 - INFO   : one)",
                                  "WriteDebugOutput(\n)",
                              }));
}

TEST_F(LogFile, CallsOfALineWithTheFile) {
  machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
  machine_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", 1);
  LogInfo(u"one");
  EXPECT_EQ(machine_.Calls(), (std::vector<std::string>{
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
  EXPECT_EQ(machine_.CallsOf("AppendToFile"),
            std::vector<std::string>{
                "AppendToFile(C:\\AppData\\VORNA\\Client\\Log\\zentpost.log, 3000033)"});
  EXPECT_EQ(Stored(), "2026/11/20 23:58:07 - INFO   : " + test::Readable(text) + "\r\n");
}

TEST_F(LogFile, LinesAreAddedBehindWhatIsThere) {
  SwitchOn();
  machine_.SetFile(kLogPath, "an earlier run\r\n");
  LogInfo(u"one");
  EXPECT_EQ(Stored(), "an earlier run\r\n2026/11/20 23:58:07 - INFO   : one\r\n");
}

TEST_F(LogFile, NothingIsKeptFromLineToLine) {
  LogInfo(u"off");
  SwitchOn();
  LogInfo(u"on");
  machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
  LogInfo(u"off again");
  SwitchOn();
  machine_.AddFolder(u"D:\\Data\\VORNA\\Client\\Log");
  machine_.SetLocalApplicationData(0, u"D:\\Data");
  LogInfo(u"elsewhere");
  machine_.SetLocalTime({2027, 1, 1, 0, 0, 0});
  LogInfo(u"later");
  EXPECT_EQ(Stored(), "2026/11/20 23:58:07 - INFO   : on\r\n");
  EXPECT_EQ(Stored(u"D:\\Data\\VORNA\\Client\\Log\\zentpost.log"),
            "2026/11/20 23:58:07 - INFO   : elsewhere\r\n"
            "2027/01/01 00:00:00 - INFO   : later\r\n");
}

TEST_F(LogFile, ThePathLiesBelowTheLocalApplicationData) {
  EXPECT_EQ(GetLogFilePath(), kLogPath);
  machine_.SetLocalApplicationData(0, u"C:\\Users\\M\u00FCller\\AppData\\Local");
  EXPECT_EQ(GetLogFilePath(),
            u"C:\\Users\\M\u00FCller\\AppData\\Local\\VORNA\\Client\\Log\\zentpost.log");
  // S_FALSE: the folder does not exist, but this would be it.
  machine_.SetLocalApplicationData(1, u"D:\\Missing");
  EXPECT_EQ(GetLogFilePath(), u"D:\\Missing\\VORNA\\Client\\Log\\zentpost.log");
}

TEST_F(LogFile, WithoutLocalApplicationDataTheLogIsInTheTemporaryFolder) {
  SwitchOn();
  machine_.SetLocalApplicationData(static_cast<std::int32_t>(0x80070003), u"");
  EXPECT_EQ(GetLogFilePath(), kTemporaryLogPath);
  LogInfo(u"one");
  EXPECT_EQ(Stored(kTemporaryLogPath), "2026/11/20 23:58:07 - INFO   : one\r\n");
  EXPECT_EQ(Stored(), "(none)");
}

TEST_F(LogFile, TheTemporaryFolderIsTakenAsItIsUpToItsLimit) {
  machine_.SetLocalApplicationData(static_cast<std::int32_t>(0x80004005), u"");
  for (const std::size_t length : {std::size_t{1}, std::size_t{259}}) {
    const std::u16string folder = std::u16string(length - 1, u't') + u"\\";
    machine_.SetTemporaryFolder(folder);
    EXPECT_EQ(GetLogFilePath(), folder + u"zentpost.log");
  }
  // With its terminator it no longer fits into 260 units.
  machine_.SetTemporaryFolder(std::u16string(259, u't') + u"\\");
  EXPECT_EQ(GetLogFilePath(), u"zentpost.log");
  machine_.SetTemporaryFolder(u"C:\\Temp\\");
  machine_.FailCallOf("TemporaryFolder", 0, platform::kAccessDenied);
  EXPECT_EQ(GetLogFilePath(), u"zentpost.log");
}

// The folder belongs to the fax client that installs the tool.
TEST_F(LogFile, DeliberateAMissingFolderIsNotCreated) {
  SwitchOn();
  machine_.Remove(u"C:\\AppData\\VORNA");
  LogError(u"one");
  EXPECT_EQ(LogText(), "ERROR: one\n");
  EXPECT_EQ(machine_.FilePaths(), Texts{});
  // Had it been created, this line would be stored.
  LogError(u"two");
  EXPECT_EQ(machine_.FilePaths(), Texts{});
}

TEST_F(LogFile, AFileThatCannotBeWrittenDropsTheLine) {
  SwitchOn();
  machine_.SetFile(kLogPath, "old\r\n");
  machine_.SetReadOnly(kLogPath, true);
  LogError(u"one");
  EXPECT_EQ(LogText(), "ERROR: one\n");
  EXPECT_EQ(Stored(), "old\r\n");
  machine_.SetReadOnly(kLogPath, false);
  LogError(u"two");
  EXPECT_EQ(Stored(), "old\r\n2026/11/20 23:58:07 - ERROR  : two\r\n");
}

TEST_F(LogFile, PercentSignsInAMessageStandAsTheyAre) {
  SwitchOn();
  LogInfo(u"%s", u"100% %s %d %n %");
  LogErrorWithCode(5, u"%s", u"%x%x");
  machine_.SetSystemMessage(193, u"%1 is not a valid Win32 application.\r\n");
  LogErrorWithCode(193, u"%%");
  EXPECT_EQ(LogText(),
            "INFO: 100% %s %d %n %\n"
            "ERROR: %x%x\n"
            "ERROR: Code 0x00000005 --> Unknown Error.\n"
            "ERROR: %\n"
            "ERROR: Code 0x000000c1 --> %1 is not a valid Win32 application.\n");
  EXPECT_EQ(Stored(),
            "2026/11/20 23:58:07 - INFO   : 100% %s %d %n %\r\n"
            "2026/11/20 23:58:07 - ERROR  : %x%x\r\n"
            "2026/11/20 23:58:07 - ERROR  : Code 0x00000005 --> Unknown Error.\r\n"
            "2026/11/20 23:58:07 - ERROR  : %\r\n"
            "2026/11/20 23:58:07 - ERROR  : Code 0x000000c1 --> %1 is not a valid Win32 "
            "application.\r\n");
}

TEST_F(LogFile, TheFileIsUtf8) {
  struct Case {
    std::u16string message;
    const char* bytes;
  };
  const char16_t lone_surrogate[] = {u'<', 0xD83D, u'>', 0};
  const Case cases[] = {
      {u"\u00E4\u00DF", "\xC3\xA4\xC3\x9F"},
      {u"\u20AC", "\xE2\x82\xAC"},
      {u"\u4E2D\u6587\u5B57", "\xE4\xB8\xAD\xE6\x96\x87\xE5\xAD\x97"},
      {u"\U0001F4E0", "\xF0\x9F\x93\xA0"},
      {lone_surrogate, "<\xEF\xBF\xBD>"},
      {u"\u00C3\u00A4", "\xC3\x83\xC2\xA4"},
      {u"\u007F\u0080", "\x7F\xC2\x80"},
      {u"\u07FF\u0800\uFFFF", "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
  };
  SwitchOn();
  for (const Case& c : cases) {
    SCOPED_TRACE(test::Readable(c.message));
    machine_.SetFile(kLogPath, "");
    LogInfo(u"%s", c.message);
    EXPECT_EQ(Stored(), std::string("2026/11/20 23:58:07 - INFO   : ") + c.bytes + "\r\n");
    EXPECT_EQ(machine_.DebugOutput().at(machine_.DebugOutput().size() - 2),
              u"2026/11/20 23:58:07 - INFO   : " + c.message);
    // The room is what the line takes, and two bytes more for a pair of surrogates.
    const std::size_t room = Stored().size() - 1 + (c.message == u"\U0001F4E0" ? 2 : 0);
    EXPECT_TRUE(
        machine_.CallsOf("WideToBytes").back().ends_with(", " + std::to_string(room) + ")"));
  }
}

TEST_F(LogFile, AnEmptyMessageIsALineToo) {
  SwitchOn();
  LogInfo(u"");
  LogInfo(u"%s", u"");
  EXPECT_EQ(LogText(), "INFO: \nINFO: \n");
  EXPECT_EQ(Stored(),
            "2026/11/20 23:58:07 - INFO   : \r\n"
            "2026/11/20 23:58:07 - INFO   : \r\n");
}

// The file is written as a C library's text mode does it: every line feed gets a carriage return,
// the one that has one already included.
TEST_F(LogFile, DeliberateLineFeedsInAMessageAreStoredAsLineEnds) {
  SwitchOn();
  LogInfo(u"%s", u"a\nb\r\nc\rd");
  EXPECT_EQ(machine_.DebugOutput(), (Texts{u"2026/11/20 23:58:07 - INFO   : a\nb\r\nc\rd", u"\n"}));
  EXPECT_EQ(Stored(), "2026/11/20 23:58:07 - INFO   : a\r\nb\r\r\nc\rd\r\n");
}

TEST_F(LogFile, WriteLogEntryFormatsItsArguments) {
  SwitchOn();
  WriteLogEntry(kLevelWarning, u"%s|%d|%.8x", {u"a", -1, 5U});
  WriteLogEntry(7, u"100%%", {});
  EXPECT_EQ(LogText(), "WARNING: a|-1|00000005\nINFO: 100%\n");
  EXPECT_EQ(Stored(),
            "2026/11/20 23:58:07 - WARNING: a|-1|00000005\r\n"
            "2026/11/20 23:58:07 - INFO   : 100%\r\n");
}

// Plays the writing of log lines through on a machine whose fallible calls fail as a sweep says,
// and tells what has to come of it.
class ExpectedLog {
 public:
  explicit ExpectedLog(const FaultRun& run) : run_(run) {}

  // True when the next fallible call, which has to be one of `name`, fails.
  bool Fails(std::string_view name) {
    const std::size_t here = calls_;
    ++calls_;
    if (here == run_.index) {
      EXPECT_EQ(run_.name, name);
    }
    return here == run_.index || (run_.mode == FaultMode::kFromThere && here > run_.index);
  }

  // One line of a log that the user's number 0 leaves to the machine's number 1.
  void Line(const std::string& tag_and_message) {
    bool is_closed = true;
    bool to_file = false;
    if (!Fails("OpenKey")) {
      static_cast<void>(Fails("QueryValue"));
      is_closed = !Fails("CloseKey");
    }
    if (is_closed && !Fails("OpenKey")) {
      to_file = !Fails("QueryValue");
    }
    const std::string line =
        (Fails("BreakIntoLocalTime") ? "0000/00/00 -01:-01:-01" : std::string(test::kLogTime)) +
        tag_and_message;
    debugger += line + "\n";
    if (!to_file || Fails("WideToBytes")) {
      return;
    }
    const bool has_temporary = !Fails("TemporaryFolder");
    std::string* file = &log;
    if (Fails("LocalApplicationDataFolder")) {
      file = has_temporary ? &temporary_log : &current_log;
    }
    if (!Fails("AppendToFile")) {
      *file += line + "\r\n";
    }
  }

  std::string debugger, log, temporary_log, current_log;

 private:
  FaultRun run_;
  std::size_t calls_ = 0;
};

TEST_F(LogFile, EveryCallOfAFailureWithItsCode) {
  const platform::fake::FaultScenario scenario = {
      [this] {
        machine_.AddFolder(kLogFolder);
        machine_.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", 0);
        machine_.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", 1);
        machine_.SetSystemMessage(2, u"The system cannot find the file specified.\r\n");
      },
      [] { LogErrorWithCode(2, u"AddAttachment(): '%s'", u"b.pdf"); }};
  const std::size_t runs = platform::fake::SweepFaults(scenario, [this](const FaultRun& run) {
    ExpectedLog expected(run);
    expected.Line(" - ERROR  : AddAttachment(): 'b.pdf'");
    const bool is_unknown = expected.Fails("SystemMessage");
    expected.Line(std::string(" - ERROR  : Code 0x00000002 --> ") +
                  (is_unknown ? "Unknown Error." : "The system cannot find the file specified."));

    std::string debugger;
    for (const std::u16string& text : machine_.DebugOutput()) {
      debugger += test::Readable(text);
    }
    EXPECT_EQ(debugger, expected.debugger);
    EXPECT_EQ(machine_.FileBytes(kLogPath).value_or(""), expected.log);
    EXPECT_EQ(machine_.FileBytes(kTemporaryLogPath).value_or(""), expected.temporary_log);
    EXPECT_EQ(machine_.FileBytes(u"zentpost.log").value_or(""), expected.current_log);
  });
  constexpr std::size_t kCalls = 2 * 10 + 1;
  EXPECT_EQ(runs, 2 * kCalls);
}

}  // namespace
}  // namespace zentpost
