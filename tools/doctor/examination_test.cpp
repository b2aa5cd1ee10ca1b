#include "tools/doctor/examination.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "app/registry_names.h"
#include "mapiload/discovery.h"
#include "testing/fake_platform/fixture.h"
#include "tools/doctor/candidates.h"
#include "tools/doctor/report_samples.h"
#include "tools/doctor/test_library.h"
#include "tools/support/text.h"

namespace zentpost::doctor {
namespace {

using platform::Hive;
using platform::reading::Listener;

constexpr char16_t kClient[] = u"Software\\Clients\\Mail\\Tolvan";
constexpr char16_t kLibrary[] = u"C:\\Program Files\\Tolvan\\olmapi32.dll";
constexpr char16_t kSystemLibrary[] = u"C:\\Windows\\system32\\mapi32.dll";
constexpr char16_t kJob[] = u"C:\\fax\\job.json";
constexpr char16_t kDocument[] = u"C:\\fax\\a.pdf";
constexpr char16_t kProfiles[] = u"Software\\Microsoft\\Office\\16.0\\Outlook";
constexpr bool kIs64 = sizeof(void*) == 8;

// A library for this program's bitness, or the other one, with the nine functions but `lacking`.
std::string LibraryBytes(std::initializer_list<std::string_view> lacking = {},
                         bool is_other = false) {
  TestPe library;
  if (kIs64 == is_other) {
    library.machine = 0x014C;
    library.bitness = 32;
    library.characteristics = 0x2102;
  }
  for (const MapiFunction& function : kMapiFunctions) {
    if (std::find(lacking.begin(), lacking.end(), function.name) == lacking.end()) {
      library.exports.push_back({function.name, ""});
    }
  }
  std::sort(library.exports.begin(), library.exports.end(),
            [](const auto& left, const auto& right) { return left.name < right.name; });
  return library.Build();
}

std::string SimpleMapiBytes() {
  TestPe library;
  if (!kIs64) {
    library.machine = 0x014C;
    library.bitness = 32;
    library.characteristics = 0x2102;
  }
  library.exports = {{"MAPIFreeBuffer", ""}, {"MAPISendMail", ""}};
  return library.Build();
}

// A machine on which all is well: a mail client, whose add-in listens, the log, a profile.
class Examination : public platform::fake::FakePlatformTest {
 protected:
  Examination() { StartOver(); }

  void StartOver() {
    fake_.Reset();
    fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"Tolvan");
    fake_.SetString(Hive::kLocalMachine, kClient, registry::kExtendedLibrary, kLibrary);
    fake_.SetFile(kLibrary, LibraryBytes());
    fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, u"5000");
    fake_.SetListener(5000, {Listener::State::kListens, 4711, u"TOLVAN.EXE"});
    fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
    fake_.AddFolder(u"C:\\AppData\\VORNA\\Client\\Log");
    fake_.SetString(Hive::kCurrentUser, kProfiles, u"DefaultProfile", u"Outlook");
    fake_.SetFile(kDocument, "document");
    fake_.SetFile(kJob, R"({"FilePath": "C:\\fax\\a.pdf", "SourceFileName": "invoice",
                            "Cmd": {"Receiver": ["0301"]}})");
    wanted_ = {};
  }

  void StopAddin() { fake_.SetListener(5000, {}); }

  // Examines the machine; gives the codes in their order, errors marked by "!", notes by "-".
  std::string Codes() {
    report_ = Examine(wanted_).report;
    KeepReport(ReportAsJson(report_));
    std::string codes;
    for (const Finding& finding : report_.findings) {
      codes.append(codes.empty() ? "" : " ").append(finding.code);
      codes += finding.severity == Severity::kError  ? "!"
               : finding.severity == Severity::kNote ? "-"
                                                     : "";
    }
    return codes;
  }

  const std::vector<std::u16string>& Seen(std::string_view code) const {
    const auto found = std::find_if(report_.findings.begin(), report_.findings.end(),
                                    [&](const Finding& finding) { return finding.code == code; });
    static const std::vector<std::u16string> nothing;
    return found == report_.findings.end() ? nothing : found->seen;
  }

  Wanted wanted_;
  Report report_;
};

TEST_F(Examination, OfAHealthyMachineTellsTheAddin) {
  EXPECT_EQ(Codes(), "D04-");
  EXPECT_EQ(report_.verdict.route, Route::kAddin);
  EXPECT_TRUE(report_.verdict.delivered);
  EXPECT_EQ(report_.verdict.text,
            u"would be handed to the add-in on port 5000 (TOLVAN.EXE, process 4711)");
  EXPECT_EQ(Seen("D04"), std::vector<std::u16string>{u"port 5000: TOLVAN.EXE, process 4711"});
  ASSERT_EQ(report_.candidates.size(), 2u);
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kUsable);
  EXPECT_EQ(report_.candidates[0].exports, 9);
  EXPECT_EQ(report_.candidates[1].source, "system");
  EXPECT_EQ(report_.assumed, std::vector<std::u16string>{u"the connection to the add-in succeeds"});
}

TEST_F(Examination, FindsNothingWrongWithHealthyMachines) {
  const auto set_path = [&](const char16_t* name, std::u16string_view path,
                            std::uint32_t type = platform::kRegSz) {
    fake_.SetString(Hive::kLocalMachine, kClient, name, path, type);
  };
  const auto use_no_extended_path = [&] {
    fake_.Reset();
    fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"Tolvan");
    fake_.AddKey(Hive::kLocalMachine, kClient);
    fake_.SetFile(kDocument, "document");
  };
  const std::vector<std::function<void()>> changes = {
      [] {},
      [&] {
        use_no_extended_path();
        set_path(registry::kExtendedLibrary, kLibrary);
        fake_.SetFile(kLibrary, LibraryBytes());
      },
      [&] {
        fake_.SetListener(5000, {Listener::State::kPerhaps, 0, u""});
      },
      [&] {
        use_no_extended_path();
        fake_.SetFile(kSystemLibrary, LibraryBytes());
      },
      [&] {
        use_no_extended_path();
        set_path(registry::kLibrary, kLibrary);
        fake_.SetFile(kLibrary, LibraryBytes());
      },
      [&] {
        use_no_extended_path();
        set_path(registry::kLibrary, u"tolvan.dll");
        fake_.SetFile(u"C:\\Windows\\system32\\tolvan.dll", LibraryBytes());
      },
      [&] {
        fake_.SetVariable(u"TOLVAN", u"C:\\Program Files\\Tolvan");
        set_path(registry::kExtendedLibrary, u"%TOLVAN%\\olmapi32.dll", platform::kRegExpandSz);
      },
      [&] {
        use_no_extended_path();
        fake_.AddComponent(u"{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}", u"outlook.exe",
                           u"C:\\Office\\outlook.exe");
        fake_.SetFile(u"C:\\Office\\olmapi32.dll", LibraryBytes());
      },
      [&] {
        fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation,
                        u"1");
        fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressPostfix,
                        u"@fax.invalid");
      },
      [&] {
        fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 0);
        fake_.SetDword(Hive::kLocalMachine, registry::kFaxClientKey, registry::kLogLevel, 1);
      },
      [&] {
        fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 0);
        fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, 0);
      },
      [&] {
        // Both kinds of libraries, in the order in which installations write them.
        set_path(registry::kLibrary, u"C:\\Program Files\\Tolvan\\second.dll");
        fake_.SetFile(u"C:\\Program Files\\Tolvan\\second.dll", LibraryBytes());
        fake_.SetFile(kSystemLibrary, LibraryBytes());
        fake_.SetString(Hive::kCurrentUser, registry::kMailClientsKey, u"", u"Tolvan");
      },
      [&] {
        // As the system's own client is registered, beside what the installer keeps for itself.
        use_no_extended_path();
        set_path(registry::kLibrary, u"mapi32.dll");
        set_path(registry::kInstallerComponent, u"{1}", 7);  // REG_MULTI_SZ
        set_path(registry::kInstallerLanguage, u"1033");
        fake_.SetFile(kSystemLibrary, LibraryBytes());
      },
      [&] { wanted_.line = kJob; },
      [&] { wanted_.line = std::u16string(kDocument) + u" 0301;SInvoice"; },
  };
  for (const std::function<void()>& change : changes) {
    StartOver();
    change();
    const std::string codes = Codes();
    EXPECT_EQ(std::count(codes.begin(), codes.end(), '-'),
              static_cast<std::ptrdiff_t>(report_.findings.size()))
        << &change - changes.data() << ": " << codes;
    EXPECT_TRUE(report_.verdict.delivered);
  }
}

TEST_F(Examination, TellsThatThereIsNoPort) {
  fake_.AddKey(Hive::kLocalMachine, registry::kAddinKey);
  for (const bool has_key : {true, false}) {
    fake_.Reset();
    if (has_key) {
      fake_.AddKey(Hive::kCurrentUser, registry::kAddinKey);
    }
    fake_.SetString(Hive::kLocalMachine, registry::kAddinKey, registry::kAddinPort, u"5000");
    Codes();
    EXPECT_TRUE(std::any_of(report_.findings.begin(), report_.findings.end(),
                            [](const Finding& each) { return each.code == "D01"; }));
    ASSERT_EQ(report_.settings.size(), 1u);
    EXPECT_EQ(report_.settings[0].effect, u"the tool does not read it in this hive");
  }
}

TEST_F(Examination, TellsWhatTheToolMakesOfAPort) {
  struct Row {
    const char16_t* text;
    std::uint32_t type;
    bool is_plain;
    const char16_t* made;
  };
  const Row rows[] = {
      {u"5000", platform::kRegSz, true, u""},
      {u"0000000000000005000", platform::kRegSz, true, u""},
      {u"65535", platform::kRegSz, true, u""},
      {u"1", platform::kRegSz, true, u""},
      {u"65536", platform::kRegSz, false, u"the tool makes no port of it"},
      {u"70000", platform::kRegSz, false, u"the tool makes port 4464 of it"},
      {u"0", platform::kRegSz, false, u"the tool makes no port of it"},
      {u"", platform::kRegSz, false, u"the tool makes no port of it"},
      {u"5000 ", platform::kRegSz, false, u"the tool makes port 5000 of it"},
      {u" 5000", platform::kRegSz, false, u"the tool makes port 5000 of it"},
      {u"+5000", platform::kRegSz, false, u"the tool makes port 5000 of it"},
      {u"5000x", platform::kRegSz, false, u"the tool makes port 5000 of it"},
      {u"port", platform::kRegSz, false, u"the tool makes no port of it"},
      {u"00000000000000005000", platform::kRegSz, false, u"the tool makes no port of it"},
      {u"5000", platform::kRegExpandSz, false, u"the tool makes port 5000 of it"},
  };
  for (const Row& row : rows) {
    fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, row.text,
                    row.type);
    const std::string codes = Codes();
    EXPECT_EQ(codes.find("D02") == codes.npos, row.is_plain) << codes;
    EXPECT_EQ(Seen("D02").empty() ? u"" : Seen("D02").back(), row.made);
  }
  fake_.SetDword(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, 5000);
  EXPECT_EQ(Codes().substr(0, 3), "D02");
}

TEST_F(Examination, TellsThatNobodyListens) {
  StopAddin();
  EXPECT_EQ(Codes(), "D03");
  EXPECT_EQ(Seen("D03"), std::vector<std::u16string>{
                             u"HKCU\\Software\\Sollvex\\OutlookAddin, TolvanAddinPort = \"5000\" "
                             u"(REG_SZ)"});
  EXPECT_EQ(report_.verdict.route, Route::kMapi);
  EXPECT_EQ(report_.verdict.text,
            u"would be handed to the mail client through C:\\Program Files\\Tolvan\\olmapi32.dll");
  EXPECT_EQ(report_.assumed.back(),
            u"the logon to the mail client succeeds, with a default profile named Outlook, and "
            u"so does all that it is asked for then");
}

TEST_F(Examination, TellsHowSureItIsOfTheListener) {
  fake_.SetListener(5000, {Listener::State::kPerhaps, 0, u""});
  EXPECT_EQ(Codes(), "D04-");
  EXPECT_EQ(report_.assumed.front(),
            u"the program that listens on port 5000 of IPv6 takes connections of IPv4 as well");
  EXPECT_EQ(report_.verdict.text,
            u"would be handed to the add-in on port 5000; the system does not tell which program "
            u"that is");
  fake_.SetListener(5000, {Listener::State::kUnknown, 0, u""});
  EXPECT_EQ(Codes(), "");
  EXPECT_EQ(report_.verdict.route, Route::kAddin);
  EXPECT_EQ(report_.assumed.front(),
            u"somebody listens on port 5000: the system's table of ports cannot be read");
}

TEST_F(Examination, ConnectsOnceWhenItIsTold) {
  wanted_.connects = true;
  EXPECT_EQ(Codes(), "D03");
  EXPECT_EQ(Seen("D03").size(), 2u);
  EXPECT_TRUE(fake_.Connections().empty());
  fake_.Listen(5000);
  EXPECT_EQ(Codes(), "D04-");
  EXPECT_EQ(fake_.Connections(), std::vector<std::string>{""});
  EXPECT_TRUE(report_.assumed.empty());
}

TEST_F(Examination, ConnectsToNobodyByItself) {
  fake_.Listen(5000);
  wanted_.line = kJob;
  Codes();
  EXPECT_TRUE(fake_.Connections().empty());
}

TEST_F(Examination, TellsThatExtendedMapiIsSkipped) {
  fake_.SetDword(Hive::kLocalMachine, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);
  EXPECT_EQ(Codes(), "D05 D04-");
  StopAddin();
  EXPECT_EQ(Codes(), "D05! D03");
  EXPECT_EQ(report_.verdict.route, Route::kSkipped);
  EXPECT_TRUE(report_.verdict.delivered);
  EXPECT_EQ(Seen("D05"),
            std::vector<std::u16string>{
                u"HKLM\\Software\\Sollvex\\FaxClient, SkipExtendedMapi = 1 (REG_DWORD)"});
  wanted_.line = std::u16string(kDocument) + u" 0301;OC:\\fax\\out.json";
  EXPECT_EQ(Codes(), "D03 D05 D33");
  EXPECT_EQ(report_.verdict.text, u"would be written into a file, and handed to nobody");
  wanted_.line = std::u16string(kDocument) + u" 0301;OC:\\nowhere\\out.json";
  EXPECT_EQ(Codes(), "D03 D05 D33");
  EXPECT_EQ(report_.verdict.text, u"would be handed to nobody, and written into no file");
}

TEST_F(Examination, TakesATextForOnAsTheToolDoes) {
  StopAddin();
  fake_.SetString(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, u"0");
  EXPECT_EQ(Codes(), "D05! D03 D08");
}

TEST_F(Examination, TellsOfTheLog) {
  fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 0);
  EXPECT_EQ(Codes(), "D04- D06-");
  fake_.SetDword(Hive::kLocalMachine, registry::kFaxClientKey, registry::kLogLevel, 1);
  EXPECT_EQ(Codes(), "D04-");
  fake_.Remove(u"C:\\AppData\\VORNA");
  EXPECT_EQ(Codes(), "D07 D04-");
  fake_.SetFile(u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log", "");
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetReadOnly(u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log", true);
  EXPECT_EQ(Codes(), "D07 D04-");
}

TEST_F(Examination, TellsOfTheTypesOfSettings) {
  fake_.SetString(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, u"1");
  EXPECT_EQ(Codes(), "D08 D04-");
  fake_.SetValue(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 4711,
                 std::string("\x01\x00\xAB", 3));
  EXPECT_EQ(Codes(), "D08 D04-");
  ASSERT_EQ(report_.settings.size(), 2u);
  EXPECT_EQ(report_.settings[1].type, u"4711");
  EXPECT_EQ(report_.settings[1].value, u"01 00 ab");
}

TEST_F(Examination, TellsTheEffectOfEachHive) {
  const auto effects = [&](std::uint32_t users, std::uint32_t machines) {
    fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, users);
    fake_.SetDword(Hive::kLocalMachine, registry::kFaxClientKey, registry::kLogLevel, machines);
    Codes();
    EXPECT_EQ(report_.settings.size(), 3u);
    return report_.settings[1].effect + u"; " + report_.settings[2].effect;
  };
  EXPECT_EQ(effects(1, 0),
            u"the log file is written; the tool does not get to it: the user's value is on");
  EXPECT_EQ(effects(0, 1), u"off: the machine's value counts; the log file is written");
  EXPECT_EQ(effects(0, 0), u"off: the machine's value counts; off");
}

TEST_F(Examination, TellsOfTheAddressAutomation) {
  for (const char16_t* const text : {u"1", u"0", u""}) {
    fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, text);
    EXPECT_EQ(Codes(), "D04-");
  }
  for (const char16_t* const text : {u"1 ", u"true", u"01"}) {
    fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, text);
    EXPECT_EQ(Codes(), "D09 D04-");
  }
  fake_.SetDword(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, 1);
  EXPECT_EQ(Codes(), "D09 D04-");
  fake_.SetValue(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation,
                 platform::kRegBinary, "");
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, u"1",
                  platform::kRegBinary);
  EXPECT_EQ(Codes(), "D04-");
  EXPECT_EQ(report_.settings[1].effect, u"fax addresses are made of prefix, number and suffix");
}

TEST_F(Examination, TellsThatTheRightsOfTheKeyStopTheAutomation) {
  fake_.SetReadOnlyKey(Hive::kCurrentUser, registry::kAddinKey);
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, u"1");
  EXPECT_EQ(Codes(), "D10 D04-");
  EXPECT_EQ(report_.settings[1].effect, u"the number goes out as it is");
  fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, u"0");
  EXPECT_EQ(Codes(), "D04-");
}

TEST_F(Examination, TellsOfTheProcess) {
  fake_.SetProcess({u"C:\\Program Files\\Zentpost\\", true, 932, true, false, {}});
  EXPECT_EQ(Codes(), "D11 D24 D04-");
  EXPECT_EQ(Seen("D11"), std::vector<std::u16string>{u"code page 932"});
  fake_.SetProcess({u"C:\\Program Files\\Zentpost\\", false, 1250, false, false, {}});
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetFile(u"C:\\Program Files\\Zentpost\\mapistub.dll", "");
  fake_.AddFolder(u"C:\\Program Files\\Zentpost\\mapi32.dll");
  EXPECT_EQ(Codes(), "D20 D04-");
  // Where files have no numbers it is there all the same.
  fake_.Remove(u"C:\\Program Files\\Zentpost\\mapi32.dll");
  fake_.FailCallOf("IdentifyFile", 1, platform::kNotSupported);
  EXPECT_EQ(Codes(), "D20 D04-");
  EXPECT_TRUE(fake_.FaultTaken());
}

TEST_F(Examination, TellsThatNoLibraryIsUsable) {
  fake_.Remove(kLibrary);
  EXPECT_EQ(Codes(), "D12 D15 D04-");
  StopAddin();
  EXPECT_EQ(Codes(), "D12! D03 D15");
  EXPECT_EQ(report_.verdict.route, Route::kNone);
  EXPECT_EQ(report_.verdict.exit_code, 1);
  EXPECT_EQ(report_.verdict.text, u"would fail: no usable MAPI library of a mail client is found");
  // The system's own helps.
  fake_.SetFile(kSystemLibrary, LibraryBytes());
  EXPECT_EQ(Codes(), "D03 D15");
  EXPECT_EQ(report_.verdict.route, Route::kMapi);
}

TEST_F(Examination, TellsOfTheOtherBitness) {
  fake_.SetFile(kLibrary, LibraryBytes({}, true));
  EXPECT_EQ(Codes(), "D13 D12 D04-");
  StopAddin();
  EXPECT_EQ(Codes(), "D13! D12! D03");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kOtherBitness);
  EXPECT_EQ(report_.candidates[0].bitness, kIs64 ? 32 : 64);
  fake_.SetFile(kSystemLibrary, LibraryBytes());
  EXPECT_EQ(Codes(), "D03 D13");
  // Nobody would take it.
  fake_.SetFile(kLibrary, LibraryBytes());
  fake_.SetFile(kSystemLibrary, LibraryBytes({}, true));
  EXPECT_EQ(Codes(), "D03");
}

TEST_F(Examination, TellsOfALibraryForArm64) {
  TestPe library;
  library.machine = 0xAA64;
  fake_.SetFile(kLibrary, library.Build());
  StopAddin();
  EXPECT_EQ(Codes(), "D13! D12! D03");
  EXPECT_EQ(report_.candidates[0].bitness, 64);
  EXPECT_EQ(Seen("D13").back(), u"it is a library for another processor, such as ARM64");
}

TEST_F(Examination, TellsOfFunctionsThatAreMissing) {
  StopAddin();
  fake_.SetFile(kLibrary, LibraryBytes({"MAPILogonEx", "FreeProws"}));
  EXPECT_EQ(Codes(), "D14! D12! D03");
  EXPECT_EQ(Seen("D14").back(), u"it lacks MAPILogonEx, FreeProws");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kLacksExports);
  EXPECT_EQ(report_.verdict.text,
            u"would fail: the MAPI library C:\\Program Files\\Tolvan\\olmapi32.dll lacks what the "
            u"job needs");
  // The logon is all that succeeds then.
  fake_.SetFile(kLibrary, LibraryBytes({"HrQueryAllRows"}));
  wanted_.line = kJob;
  EXPECT_EQ(Codes(), "D14! D12! D03");
  EXPECT_EQ(std::count(report_.assumed.begin(), report_.assumed.end(),
                       u"the logon to the mail client succeeds, with a default profile named "
                       u"Outlook"),
            1);
  wanted_.line.reset();
  fake_.SetFile(kLibrary, LibraryBytes({"FreeProws"}));
  EXPECT_EQ(Codes(), "D03 D14");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kUsable);
  // One behind the one that is taken.
  fake_.SetFile(kLibrary, LibraryBytes());
  fake_.SetFile(kSystemLibrary, LibraryBytes({"MAPILogonEx"}));
  EXPECT_EQ(Codes(), "D03 D14");
  fake_.SetFile(kSystemLibrary, SimpleMapiBytes());
  EXPECT_EQ(Codes(), "D03 D14");
  EXPECT_EQ(Seen("D14").back().substr(0, 16), u"Simple MAPI only");
  EXPECT_EQ(report_.candidates[1].exports, 1);
}

TEST_F(Examination, CountsFunctionsUnderTheLinkersNamesInLibrariesForX86Alone) {
  StopAddin();
  TestPe library;
  for (const MapiFunction& function : kMapiFunctions) {
    library.exports.push_back({function.decorated, ""});
  }
  std::sort(library.exports.begin(), library.exports.end(),
            [](const auto& left, const auto& right) { return left.name < right.name; });
  fake_.SetFile(kLibrary, library.Build());
  Codes();
  EXPECT_EQ(report_.candidates[0].exports, 0);
  library.machine = 0x014C;
  library.bitness = 32;
  library.characteristics = 0x2102;
  fake_.SetFile(kLibrary, library.Build());
  EXPECT_EQ(Codes(), kIs64 ? "D13! D12! D03" : "D03");
  EXPECT_EQ(report_.candidates[0].exports, 9);
}

TEST_F(Examination, FindsALibraryUsableThatStandsBehindTheOneThatIsTaken) {
  StopAddin();
  fake_.SetFile(kLibrary, LibraryBytes({"MAPILogonEx"}));
  fake_.SetFile(kSystemLibrary, LibraryBytes());
  EXPECT_EQ(Codes(), "D14! D03");
  EXPECT_EQ(report_.verdict.route, Route::kNone);
  EXPECT_EQ(report_.verdict.exit_code, 1);
}

TEST_F(Examination, TellsThatTheMessageCannotBeShown) {
  StopAddin();
  fake_.SetFile(kLibrary, LibraryBytes({"MAPIOpenFormMgr"}));
  EXPECT_EQ(Codes(), "D03 D14");
  wanted_.line = kJob;
  EXPECT_EQ(Codes(), "D03 D14");
  wanted_.line = std::u16string(kDocument);  // without a number
  EXPECT_EQ(Codes().substr(0, 9), "D14! D12!");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kLacksExports);
  EXPECT_EQ(Seen("D14").back(),
            u"the message cannot be shown, and the document is deleted all the same");
  EXPECT_EQ(report_.rehearsal->document_fate, DocumentFate::kDeleted);
  fake_.SetFile(kLibrary, LibraryBytes({"MAPIOpenFormMgr", "MAPILogonEx"}));
  Codes();
  EXPECT_EQ(Seen("D14").back(), u"it lacks MAPILogonEx, MAPIOpenFormMgr");
}

TEST_F(Examination, TellsOfFilesThatAreNoLibraries) {
  fake_.SetFile(kLibrary, "MZ, and no more");
  EXPECT_EQ(Codes(), "D12 D04-");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kNoLibrary);
  EXPECT_EQ(report_.candidates[0].bitness, std::nullopt);
}

TEST_F(Examination, TellsOfTextsThatCannotBeUsed) {
  struct Row {
    const char16_t* name;
    std::uint32_t type;
    std::u16string text;
  };
  const std::u16string long_text(130, u'a');
  const Row rows[] = {
      {registry::kLibrary, platform::kRegSz, long_text},
      {registry::kLibrary, platform::kRegSz, u""},
      {registry::kLibrary, platform::kRegBinary, u"C:\\x.dll"},
      {registry::kLibrary, platform::kRegExpandSz, u"%long%"},
      {registry::kInstallerComponent, platform::kRegSz, long_text},
      {registry::kInstallerLanguage, platform::kRegSz, long_text},
  };
  for (const Row& row : rows) {
    StartOver();
    fake_.SetVariable(u"long", std::u16string(300, u'a'));
    fake_.SetString(Hive::kLocalMachine, kClient, row.name, row.text, row.type);
    EXPECT_EQ(Codes(), "D16 D04-") << row.type;
  }
  StartOver();
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kLibrary, std::u16string(129, u'a'));
  EXPECT_EQ(Codes(), "D15 D04-");
  fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", long_text);
  EXPECT_EQ(Codes(), "D12 D16 D04-");
}

TEST_F(Examination, TellsOfTheDefaultMailClient) {
  fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"");
  EXPECT_EQ(Codes(), "D12 D17 D04-");
  fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"Another");
  EXPECT_EQ(Codes(), "D12 D18 D04-");
  fake_.SetString(Hive::kLocalMachine, registry::kMailClientsKey, u"", u"Tolvan");
  fake_.SetString(Hive::kCurrentUser, registry::kMailClientsKey, u"", u"TOLVAN");
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetString(Hive::kCurrentUser, registry::kMailClientsKey, u"", u"Another");
  EXPECT_EQ(Codes(), "D19 D04-");
}

TEST_F(Examination, TellsOfUnusualPlaces) {
  struct Row {
    const char16_t* path;
    bool is_unusual;
  };
  const Row rows[] = {
      {u"C:\\Users\\Anna\\x.dll", true},    {u"c:\\Users\\Annabel\\x.dll", false},
      {u"C:\\Temp\\deep\\x.dll", true},     {u"mail\\x.dll", true},
      {u"C:\\Program Files\\x.dll", false}, {u"x.dll", false},
  };
  for (const Row& row : rows) {
    fake_.SetString(Hive::kLocalMachine, kClient, registry::kExtendedLibrary, row.path);
    const std::string codes = Codes();
    EXPECT_EQ(codes.find("D21") != codes.npos, row.is_unusual) << codes;
  }
}

TEST_F(Examination, TellsOfProfiles) {
  fake_.SetString(Hive::kCurrentUser, kProfiles, u"DefaultProfile", u"");
  EXPECT_EQ(Codes(), "D04- D22-");
  StopAddin();
  EXPECT_EQ(Codes(), "D03 D22- D35-");
  fake_.SetString(Hive::kCurrentUser, u"Software\\Microsoft\\Office\\15.0\\Outlook",
                  u"DefaultProfile", u"Anna");
  EXPECT_EQ(Codes(), "D03");
}

TEST_F(Examination, TellsOfTheNewEdition) {
  const std::u16string key = std::u16string(kProfiles) + u"\\Preferences";
  fake_.SetDword(Hive::kCurrentUser, key, u"UseNewOutlook", 1);
  EXPECT_EQ(Codes(), "D23 D04-");
  fake_.SetDword(Hive::kCurrentUser, key, u"UseNewOutlook", 0);
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetString(Hive::kCurrentUser, key, u"UseNewOutlook", u"1");
  EXPECT_EQ(Codes(), "D04-");
  fake_.SetValue(Hive::kCurrentUser, key, u"UseNewOutlook", platform::kRegDword, "\x01\x01");
  EXPECT_EQ(Codes(), "D04-");
}

TEST_F(Examination, TellsOfWindows) {
  StopAddin();
  wanted_.line = kJob;
  EXPECT_EQ(Codes(), "D03");
  wanted_.line = std::u16string(kDocument);
  EXPECT_EQ(Codes(), "D03 D35-");
  EXPECT_EQ(Seen("D35"), std::vector<std::u16string>{u"the job has no fax number"});
  wanted_.line = std::u16string(kDocument) + u" 0301;P";
  EXPECT_EQ(Codes(), "D03 D35-");
}

TEST_F(Examination, LeavesPathsThatTheInstallerDoesNotTellOpen) {
  fake_.AddComponent(u"{E83B4360-C208-4325-9504-0D23003A74A5}", u"outlook.exe", std::nullopt);
  fake_.AddComponent(u"{24AAE126-0911-478F-A019-07B875EB9996}", u"outlook.exe",
                     u"C:\\Office\\outlook.exe");
  EXPECT_EQ(Codes(), "D15 D04-");
  ASSERT_EQ(report_.candidates.size(), 4u);
  EXPECT_EQ(report_.candidates[1].path, std::nullopt);
  EXPECT_EQ(report_.candidates[1].source, "installer");
  EXPECT_EQ(report_.candidates[1].state, CandidateState::kUnknown);
  EXPECT_EQ(report_.candidates[2].path, u"C:\\Office\\olmapi32.dll");
  EXPECT_EQ(report_.assumed.front(),
            u"a library that the Windows Installer may know (installer) does not load: its path is "
            u"not known");
}

TEST_F(Examination, LeavesAPathOpenThatStandsBeforeAKnownOne) {
  constexpr char16_t kCategory[] = u"{E83B4360-C208-4325-9504-0D23003A74A5}";
  fake_.AddComponent(kCategory, u"outlook.x64.exe", std::nullopt);
  fake_.AddComponent(kCategory, u"outlook.exe", u"C:\\Office\\outlook.exe");
  Codes();
  ASSERT_EQ(report_.candidates.size(), 4u);
  EXPECT_EQ(report_.candidates[1].path, std::nullopt);
  EXPECT_EQ(report_.candidates[2].path, u"C:\\Office\\olmapi32.dll");
}

// What a rehearsal has found unknown is not told of the next search's first component.
TEST_F(Examination, LeavesNoPathOpenButThatOfItsComponent) {
  StopAddin();
  fake_.Remove(kLibrary);
  fake_.AddComponent(OutlookComponentIds[1], u"outlook.exe", std::nullopt);
  fake_.SetFile(kSystemLibrary, LibraryBytes());
  wanted_.line = kJob;
  Codes();
  EXPECT_EQ(std::count_if(report_.candidates.begin(), report_.candidates.end(),
                          [](const Candidate& each) { return !each.path; }),
            1);
}

TEST_F(Examination, LeavesOpenWhatTheLoaderMakesOfANameWhereItDoesNotTell) {
  platform::reading::Process process = {
      u"C:\\Program Files\\Zentpost\\", false, 1252, false, true, {}};
  fake_.SetProcess(process);
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kExtendedLibrary, u"libmail.so");
  EXPECT_EQ(Codes(), "D12 D04-");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kUnknown);
  EXPECT_EQ(report_.candidates[0].path, std::nullopt);
  EXPECT_EQ(report_.assumed.front(),
            u"the library libmail.so (DllPathEx) does not load: its file cannot be told");
  // One of another system is none here.
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kExtendedLibrary, kLibrary);
  EXPECT_EQ(Codes(), "D12 D04-");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kNoLibrary);
  EXPECT_EQ(report_.candidates[0].bitness, std::nullopt);
}

TEST_F(Examination, TellsWhyALibraryThatIsThereCannotBeOpened) {
  fake_.FailCallOf("OpenFileAt", 0, 32);  // ERROR_SHARING_VIOLATION
  EXPECT_EQ(Codes(), "D12 D15 D04-");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kMissing);
  EXPECT_TRUE(Seen("D15").back().starts_with(u"it cannot be opened: ")) << Seen("D15").size();
  // What is no file is not even looked into.
  fake_.ClearFault();
  fake_.Remove(kLibrary);
  fake_.AddPipe(kLibrary);
  fake_.ClearCalls();
  EXPECT_EQ(Codes(), "D12 D15 D04-");
  for (const std::string& call : fake_.CallsOf("OpenFileAt")) {
    EXPECT_EQ(call.find("Tolvan"), call.npos) << call;
  }
}

TEST_F(Examination, LeavesALibraryOpenWhoseExportsCannotBeRead) {
  const std::string bytes = LibraryBytes();
  fake_.SetFile(kLibrary, bytes.substr(0, bytes.size() / 2));
  fake_.SetReportedSize(kLibrary, bytes.size());
  EXPECT_EQ(Codes(), "D12 D04-");
  EXPECT_EQ(report_.candidates[0].state, CandidateState::kUnknown);
  EXPECT_EQ(report_.candidates[0].path, std::nullopt);
}

TEST_F(Examination, LeavesPathsThatTheStubWouldTellOpen) {
  TestPe stub;
  if (!kIs64) {
    stub.machine = 0x014C;
    stub.bitness = 32;
    stub.characteristics = 0x2102;
  }
  stub.exports = {{"FGetComponentPath", ""}};
  fake_.SetFile(kSystemLibrary, stub.Build());
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kInstallerComponent, u"{1}");
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kInstallerLanguage, u"1033");
  Codes();
  ASSERT_EQ(report_.candidates.size(), 3u);
  EXPECT_EQ(report_.candidates[1].path, std::nullopt);
  EXPECT_EQ(report_.candidates[1].source, "MSI");
}

TEST_F(Examination, NamesTheCandidatesOfTheSearchInItsOrder) {
  fake_.AddComponent(u"{E83B4360-C208-4325-9504-0D23003A74A5}", u"outlook.exe",
                     u"C:\\Office\\outlook.exe");
  fake_.SetString(Hive::kLocalMachine, kClient, registry::kLibrary, u"x.dll");
  Codes();
  std::vector<std::u16string> paths;
  std::vector<std::string_view> sources;
  for (const Candidate& candidate : report_.candidates) {
    paths.push_back(candidate.path.value_or(u""));
    sources.push_back(candidate.source);
  }
  EXPECT_EQ(sources,
            (std::vector<std::string_view>{"DllPathEx", "installer", "DllPath", "system"}));
  std::vector<std::u16string> searched = GetMapiCandidatePaths();
  for (std::u16string& path : searched) {
    path.resize(std::min(path.size(), path.find(u'\0')));
  }
  EXPECT_EQ(paths, searched);
}

TEST_F(Examination, TellsTheStepsInTheirOrder) {
  StopAddin();
  wanted_.line = kJob;
  Codes();
  const std::vector<std::u16string> steps = {
      u"add lines to the log file \"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log\"",
      u"connect to port 5000 of 127.0.0.1: fails with 10061",
      u"load the library \"C:\\Program Files\\Tolvan\\olmapi32.dll\"",
      u"delete the file \"C:\\fax\\a.pdf\"",
      u"hand the message to the mail client",
      u"write the file \"C:\\fax\\job.json\""};
  EXPECT_EQ(report_.rehearsal->steps, steps);
}

TEST_F(Examination, ReadsTheResultAsItIsWritten) {
  // The tool finds the member in any case, and keeps its name.
  fake_.SetFile(kJob,
                R"({"FilePath": "C:\\fax\\a.pdf", "SourceFileName": "invoice", "RESULT": {}})");
  wanted_.line = kJob;
  Codes();
  ASSERT_TRUE(report_.rehearsal->result);
  EXPECT_EQ(report_.rehearsal->result->status, 0);
}

TEST_F(Examination, ReadsADocumentAsOftenAsTheToolAtMost) {
  constexpr std::size_t kSize = 100000;
  StopAddin();
  fake_.SetFile(kDocument, std::string(kSize, 'd'));
  const auto reads = [&](const std::u16string& line) {
    wanted_.line = line;
    fake_.ClearCalls();
    Codes();
    const std::vector<std::string> calls = fake_.CallsOf("ReadBytes");
    return std::count_if(calls.begin(), calls.end(), [&](const std::string& call) {
      return call.find("a.pdf, " + std::to_string(kSize)) != call.npos;
    });
  };
  EXPECT_EQ(reads(kJob), 1);
  EXPECT_EQ(reads(kDocument + std::u16string(u" 0301")), 2);
}

TEST_F(Examination, KeepsNoMoreOfALongLineOfTheLogThanIsReported) {
  fake_.SetFile(kDocument, std::string(100000, 'd'));
  wanted_.line = std::u16string(kDocument) + u" 0301";
  Codes();
  const LogLine& line = report_.rehearsal->log.front();
  EXPECT_GT(line.characters, 100000u);
  EXPECT_LT(line.text.size(), 10000u);
  EXPECT_NE(ReportAsJson(report_).find("... (" + std::to_string(line.characters) + " characters)"),
            std::string::npos);
}

TEST_F(Examination, ALogThatIsTheDocumentIsDeletedBeforeItIsMadeAnew) {
  constexpr char16_t kLog[] = u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";
  StopAddin();
  fake_.SetFile(kLog, "a line");
  wanted_.line = std::u16string(kLog) + u" 0301";
  Codes();
  EXPECT_EQ(report_.rehearsal->document_fate, DocumentFate::kDeleted);
}

TEST_F(Examination, AnEmptyPathIsNoDocument) {
  fake_.SetFile(kJob, R"({"FilePath": "", "SourceFileName": "invoice"})");
  wanted_.line = kJob;
  EXPECT_EQ(Codes(), "D29! D34! D04-");
  EXPECT_EQ(report_.rehearsal->document, std::nullopt);
  EXPECT_EQ(report_.rehearsal->document_fate, DocumentFate::kNone);
}

TEST_F(Examination, PutsCausesBeforeTheirConsequences) {
  StopAddin();
  fake_.SetFile(kLibrary, LibraryBytes({}, true));
  fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);
  fake_.SetFile(kJob, R"({"Filepaht": "C:\\fax\\a.pdf", "SourceFileName": "invoice"})");
  wanted_.line = kJob;
  EXPECT_EQ(Codes(), "D05! D13! D12! D28! D27! D34! D03");
}

TEST_F(Examination, OrdersTwoAndThreeCausesBySeverityAndByWhatFollowsFromWhat) {
  struct Cause {
    const char* code;
    std::function<void()> bring;
  };
  const std::vector<Cause> causes = {
      {"D02",
       [&] {
         fake_.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, u"port");
       }},
      {"D05",
       [&] {
         fake_.SetDword(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi,
                        1);
       }},
      {"D07", [&] { fake_.Remove(u"C:\\AppData\\VORNA"); }},
      {"D13", [&] { fake_.SetFile(kLibrary, LibraryBytes({}, true)); }},
      {"D14", [&] { fake_.SetFile(kSystemLibrary, LibraryBytes({"MAPILogonEx"})); }},
      {"D19",
       [&] { fake_.SetString(Hive::kCurrentUser, registry::kMailClientsKey, u"", u"Another"); }},
      {"D22", [&] { fake_.SetString(Hive::kCurrentUser, kProfiles, u"DefaultProfile", u""); }},
      {"D28", [&] { fake_.SetFile(kJob, R"({"Filepaht": "a", "SourceFileName": "b"})"); }},
      {"D31", [&] { *wanted_.line += u"  /x y"; }},
      {"D32", [&] { fake_.SetReadOnly(kJob, true); }},
  };
  const std::string order =
      "D01 D02 D03 D04 D05 D06 D07 D08 D09 D10 D11 D13 D14 D12 D15 D16 D17 D18 D19 D20 D21 D22 D23 "
      "D24 D25 D26 D28 D27 D29 D30 D31 D32 D33 D35 D34";
  const auto check = [&](std::vector<std::size_t> brought) {
    StartOver();
    StopAddin();
    wanted_.line = kJob;
    for (const std::size_t i : brought) {
      causes[i].bring();
    }
    const std::string codes = Codes();
    for (const std::size_t i : brought) {
      EXPECT_NE(codes.find(causes[i].code), codes.npos) << causes[i].code << ": " << codes;
    }
    EXPECT_TRUE(std::is_sorted(report_.findings.begin(), report_.findings.end(),
                               [&](const Finding& left, const Finding& right) {
                                 return std::pair(left.severity, order.find(left.code)) <
                                        std::pair(right.severity, order.find(right.code));
                               }))
        << codes;
  };
  for (std::size_t first = 0; first < causes.size(); ++first) {
    for (std::size_t second = first + 1; second < causes.size(); ++second) {
      check({first, second});
      for (std::size_t third = second + 1; third < causes.size(); ++third) {
        check({first, second, third});
      }
    }
  }
}

// Values, files and lines that nobody meant: a report in any case.
class BadInput : public Examination {
 protected:
  void ExpectReport() {
    Codes();
    const std::string json = ReportAsJson(report_);
    cJSON* const tree = cJSON_Parse(json.c_str());
    EXPECT_NE(tree, nullptr) << json;
    cJSON_Delete(tree);
    EXPECT_EQ(support::Utf8(support::Utf16(json)), json);
    EXPECT_FALSE(ReportAsText(report_).empty());
  }
};

TEST_F(BadInput, ValuesOfEveryTypeAndSizeAreReported) {
  struct Value {
    Hive hive;
    const char16_t* key;
    const char16_t* name;
  };
  const Value values[] = {
      {Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort},
      {Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation},
      {Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel},
      {Hive::kLocalMachine, registry::kFaxClientKey, registry::kSkipExtendedMapi},
      {Hive::kLocalMachine, registry::kMailClientsKey, u""},
      {Hive::kCurrentUser, registry::kMailClientsKey, u""},
      {Hive::kLocalMachine, kClient, registry::kExtendedLibrary},
      {Hive::kLocalMachine, kClient, registry::kLibrary},
      {Hive::kLocalMachine, kClient, registry::kInstallerComponent},
      {Hive::kLocalMachine, kClient, registry::kInstallerLanguage},
      {Hive::kCurrentUser, kProfiles, u"DefaultProfile"},
  };
  constexpr std::size_t kSizes[] = {0, 1, 2, 3, 4, 5, 8, 39, 40, 41, 259, 260, 261, 65536};
  constexpr std::uint32_t kTypes = 13;
  const auto report = [&](const Value& value, std::uint32_t type, std::size_t size) {
    StartOver();
    StopAddin();
    fake_.SetValue(value.hive, value.key, value.name, type, std::string(size, '\x31'));
    ExpectReport();
  };
  // Each value in every type and in every size.
  for (std::uint32_t i = 0; i < std::size(values); ++i) {
    for (std::uint32_t type = 0; type < kTypes; ++type) {
      report(values[i], type, kSizes[(i + type) % std::size(kSizes)]);
    }
    for (const std::size_t size : kSizes) {
      report(values[i], i % kTypes, size);
    }
  }
}

TEST_F(BadInput, AMachineThatNobodyMayReadIsReported) {
  for (const char* const call :
       {"OpenKey", "OpenSubKey", "QueryValue", "OpenFileAt", "QueryFileSize", "ReadBytes",
        "IdentifyFile", "LocalApplicationDataFolder", "TemporaryFolder"}) {
    for (const char16_t* const line : {kJob, kDocument, u"C:\\fax\\a.pdf 0301;Oout.json"}) {
      StartOver();
      StopAddin();
      wanted_.line = line;
      fake_.FailCallOf(call, 0, platform::kAccessDenied, platform::fake::FaultMode::kFromThere);
      ExpectReport();
    }
  }
}

TEST_F(BadInput, FilesOfAnyContentsAreReported) {
  const std::string deep(10000, '[');
  const std::string files[] = {
      "",
      std::string(1, '\0'),
      std::string(5000, '\0'),
      std::string("\xFF\xFE{\0\"\0", 6),
      "{",
      "{}",
      "[]",
      "5",
      deep,
      deep + std::string(10000, ']'),
      R"({"FilePath": "\ud800", "SourceFileName": "\udc00"})",
      "{\"FilePath\": \"\xC3\", \"SourceFileName\": \"\xFF\"}",
      R"({"FilePath": {}, "Cmd": [[[]]]})",
      "{\"" + std::string(100000, 'x') + "\": 1}",
  };
  for (const std::string& bytes : files) {
    for (const bool has_addin : {true, false}) {
      StartOver();
      if (!has_addin) {
        StopAddin();
      }
      fake_.SetFile(kJob, bytes);
      wanted_.line = kJob;
      ExpectReport();
      EXPECT_EQ(fake_.FileBytes(kJob), bytes);
    }
  }
}

TEST_F(BadInput, LinesOfAnyTextAreReported) {
  const std::u16string lines[] = {
      u"",
      u"\"",
      u"'",
      std::u16string(1, u'\0') + u"x",
      std::u16string(32767, u'a'),
      std::u16string(32767, u' '),
      std::u16string(32767, u'\\'),
      u"\xD800",
      u"/ / / /",
      u"a.pdf ;;;;;;;;",
      u"C:",
      u"\\\\?\\",
      u"NUL",
      u"\x202E\x1B[2J\r\n",
  };
  for (const std::u16string& line : lines) {
    StartOver();
    wanted_.line = line;
    ExpectReport();
  }
}

TEST_F(Examination, ChangesNothingAndOpensNothingForWriting) {
  const auto files = fake_.FilePaths();
  wanted_.line = kJob;
  for (const bool has_addin : {true, false}) {
    if (!has_addin) {
      StopAddin();
    }
    fake_.ClearCalls();
    Codes();
    EXPECT_EQ(report_.rehearsal->result->status, 0);
    EXPECT_EQ(report_.rehearsal->document_fate,
              has_addin ? DocumentFate::kKept : DocumentFate::kDeleted);
    EXPECT_EQ(fake_.FilePaths(), files);
    for (const std::string& call : fake_.Calls()) {
      EXPECT_TRUE(call.find("OpenKey") == call.npos || call.find("0x20019)") != call.npos ||
                  call.find("0x1)") != call.npos)
          << call;
      for (const char* const other : {"kRewrite", "AppendToFile", "RemoveFile", "LoadModule",
                                      "WriteDebugOutput", "Connect", "Send"}) {
        EXPECT_EQ(call.find(other), call.npos) << call;
      }
    }
  }
}

TEST_F(Examination, NamesTheFilesThatTheReportMustNotReplace) {
  wanted_.line = kJob;
  const std::vector<std::u16string> files = Examine(wanted_).files;
  for (const std::u16string& file :
       {std::u16string(kJob), std::u16string(kDocument), std::u16string(kLibrary),
        std::u16string(u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log")}) {
    EXPECT_NE(std::find(files.begin(), files.end(), file), files.end());
  }
}

}  // namespace
}  // namespace zentpost::doctor
