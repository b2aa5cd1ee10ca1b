#include "mapiload/discovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::RegistryKey;
using test::Readable;
using Lines = std::vector<std::string>;

constexpr std::uint32_t kFullWidth = 260;

constexpr char16_t kOutlookKey[] = u"Software\\Clients\\Mail\\Microsoft Outlook";

// A text with the zero units that pad it.
std::u16string Padded(std::u16string text) {
  text.resize(kFullWidth);
  return text;
}

// What a path says to whoever reads it up to its first zero unit.
Lines Texts(const std::vector<std::u16string>& paths) {
  Lines texts;
  for (const std::u16string& path : paths) {
    texts.push_back(Readable(path.c_str()));
  }
  return texts;
}

const std::string kEnterComponentPath =
    R"(Enter GetComponentPath: szComponent = %ws, szQualifier = %ws, fInstall = 0x%08X\n)";

class Discovery : public test::MapiSearchTest {
 protected:
  RegistryKey ClientKey() {
    RegistryKey key;
    EXPECT_EQ(OpenKey(Hive::kLocalMachine, kClientKey, platform::kKeyRead, key),
              platform::kSuccess);
    return key;
  }
  // The last line of the trace that begins so.
  static std::string TraceOf(const std::string& start) {
    std::string found;
    for (const std::string& line : Trace()) {
      if (line.rfind(start, 0) == 0) {
        found = line;
      }
    }
    return found;
  }
};

// --- libraries that are loaded already ---

TEST_F(Discovery, AttachesToALoadedLibraryWithAReference) {
  AddEmptyLibrary(u"D:\\Mail\\olmapi32.dll");
  platform::Module held;
  ASSERT_EQ(platform::LoadModule(u"D:\\Mail\\olmapi32.dll", held), platform::kSuccess);
  const platform::Module found = AttachToMAPIDll(u"olmapi32.dll");
  EXPECT_EQ(found.Get(), held.Get());
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Mail\\olmapi32.dll"), 2u);
  EXPECT_EQ(machine_.CallsOf("GetModuleHandleExW"), Lines{"GetModuleHandleExW(0x0, olmapi32.dll)"});
  EXPECT_EQ(machine_.CallsOf("FindLoadedModule"), Lines{});
  EXPECT_EQ(Trace().front(), R"(Enter AttachToMAPIDll: wzMapiDll = %ws\n [olmapi32.dll])");
  EXPECT_EQ(Trace().back(), R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n [olmapi32.dll])");
}

TEST_F(Discovery, AttachNeverLoads) {
  AddEmptyLibrary(u"C:\\Windows\\system32\\olmapi32.dll");
  EXPECT_FALSE(AttachToMAPIDll(u"olmapi32.dll"));
  EXPECT_EQ(machine_.ModuleReferences(u"C:\\Windows\\system32\\olmapi32.dll"), 0u);
  EXPECT_EQ(Trace().back(), R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n [null])");
}

TEST_F(Discovery, DeliberatelyAttachesWithoutAReferenceWhereTheKernelLacksTheFunction) {
  machine_.AddModule(kKernel, {});
  AddEmptyLibrary(u"D:\\Mail\\olmapi32.dll");
  platform::Module held;
  ASSERT_EQ(platform::LoadModule(u"D:\\Mail\\olmapi32.dll", held), platform::kSuccess);
  platform::Module found = AttachToMAPIDll(u"olmapi32.dll");
  EXPECT_EQ(found.Detach(), held.Get());
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Mail\\olmapi32.dll"), 1u);
  EXPECT_EQ(machine_.CallsOf("FindLoadedModule"), Lines{"FindLoadedModule(olmapi32.dll)"});
  EXPECT_FALSE(AttachToMAPIDll(u"msmapi32.dll"));
}

// --- the mail client's key ---

TEST_F(Discovery, OpensTheKeyOfTheDefaultClient) {
  SetDefaultClient();
  SetClientText(u"DllPath", u"C:\\a.dll");
  {
    const RegistryKey key = GetHKeyMapiClient(u"");
    EXPECT_EQ(machine_.Calls(),
              (Lines{R"(OpenKey(HKLM, Software\Clients\Mail, 0x20019))", "QueryValue(, 260)",
                     R"(OpenSubKey(HKLM\Software\Clients\Mail, Some Client, 0x20019))"}));
    EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), Padded(u"C:\\a.dll"));
    EXPECT_EQ(machine_.OpenHandles(), 1u);
  }
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.begin(), trace.begin() + 4),
            (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [])",
                   R"(GetHKeyMapiClient: HKLM\%ws = %ws\n [Software\Clients\Mail, Some Client])",
                   R"(GetHKeyMapiClient: pwzProvider = %ws\n [Some Client])",
                   R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [true])"}));
}

TEST_F(Discovery, OpensTheKeyOfANamedClientWithoutAskingForTheDefault) {
  SetDefaultClient();
  machine_.AddKey(Hive::kLocalMachine, u"Software\\Clients\\Mail\\Other");
  EXPECT_TRUE(GetHKeyMapiClient(u"Other"));
  EXPECT_EQ(machine_.CallsOf("QueryValue"), Lines{});
  EXPECT_EQ(Trace(), (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [Other])",
                            R"(GetHKeyMapiClient: pwzProvider = %ws\n [Other])",
                            R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [true])"}));
}

TEST_F(Discovery, FindsNoClientWithoutTheMailKey) {
  machine_.SetString(Hive::kCurrentUser, kMailKey, u"", kClient);
  machine_.AddKey(Hive::kCurrentUser, kClientKey);
  for (const char16_t* const provider : {u"", kClient}) {
    ClearTrace();
    EXPECT_FALSE(GetHKeyMapiClient(provider));
    EXPECT_EQ(Trace(),
              (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [)" + Readable(provider) + "]",
                     R"(%ws failed with 0x%08X [GetHKeyMapiClient: RegOpenKeyExW(HKLM), 2])",
                     R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [false])"}));
  }
  EXPECT_EQ(machine_.CallsOf("QueryValue"), Lines{});
}

TEST_F(Discovery, FindsNoClientWhenNoneIsTheDefault) {
  machine_.AddKey(Hive::kLocalMachine, kClientKey);
  EXPECT_FALSE(GetHKeyMapiClient(u""));
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [])",
                   R"(%ws failed with 0x%08X [GetHKeyMapiClient: RegQueryValueExW(hMailKey), 2])",
                   R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [false])"}));
  EXPECT_EQ(machine_.CallsOf("OpenSubKey"), Lines{});
}

TEST_F(Discovery, FindsNoClientWhenTheDefaultIsEmpty) {
  machine_.AddKey(Hive::kLocalMachine, kClientKey);
  machine_.SetString(Hive::kLocalMachine, kMailKey, u"", u"");
  EXPECT_FALSE(GetHKeyMapiClient(u""));
  EXPECT_EQ(Trace(), (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [])",
                            R"(GetHKeyMapiClient: HKLM\%ws = %ws\n [Software\Clients\Mail, ])",
                            R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [false])"}));
}

TEST_F(Discovery, FindsNoClientWhenItsKeyIsMissing) {
  machine_.SetString(Hive::kLocalMachine, kMailKey, u"", kClient);
  EXPECT_FALSE(GetHKeyMapiClient(u""));
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter GetHKeyMapiClient (%ws)\n [])",
                   R"(GetHKeyMapiClient: HKLM\%ws = %ws\n [Software\Clients\Mail, Some Client])",
                   R"(GetHKeyMapiClient: pwzProvider = %ws\n [Some Client])",
                   R"(%ws failed with 0x%08X [GetHKeyMapiClient: RegOpenKeyExW, 2])",
                   R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [false])"}));
}

TEST_F(Discovery, DeliberatelyReadsNoClientNameOfMoreThan130Characters) {
  for (const std::size_t length : {129u, 130u}) {  // and a terminator
    const std::u16string name(length, u'c');
    machine_.SetString(Hive::kLocalMachine, kMailKey, u"", name);
    machine_.AddKey(Hive::kLocalMachine, std::u16string(kMailKey) + u"\\" + name);
    EXPECT_EQ(static_cast<bool>(GetHKeyMapiClient(u"")), length == 129) << length;
  }
  EXPECT_EQ(TraceOf("%ws failed"),
            "%ws failed with 0x%08X [GetHKeyMapiClient: RegQueryValueExW(hMailKey), 234]");
}

TEST_F(Discovery, ReadsAClientNameThatFillsItsRoomWithoutATerminator) {
  machine_.SetValue(Hive::kLocalMachine, kMailKey, u"", platform::kRegSz, std::string(260, 'x'));
  const std::u16string name(130, 0x7878);
  machine_.AddKey(Hive::kLocalMachine, std::u16string(kMailKey) + u"\\" + name);
  EXPECT_TRUE(GetHKeyMapiClient(u""));
  EXPECT_EQ(TraceOf("GetHKeyMapiClient: pwzProvider"),
            R"(GetHKeyMapiClient: pwzProvider = %ws\n [)" + Readable(name) + "]");
}

TEST_F(Discovery, ClosesTheMailKeyOnlyAfterTheLastLine) {
  SetDefaultClient();
  std::vector<std::size_t> open;
  WatchTrace(u"Exit GetHKeyMapiClient", [&] { open.push_back(machine_.OpenHandles()); });
  EXPECT_TRUE(GetHKeyMapiClient(u""));
  EXPECT_FALSE(GetHKeyMapiClient(u"Missing"));
  EXPECT_EQ(open, (std::vector<std::size_t>{2, 1}));
}

// --- values of the client's key ---

TEST_F(Discovery, ReadsATextValuePaddedToTheFullWidth) {
  SetClientText(u"DllPath", u"C:\\%a%.dll");
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), Padded(u"C:\\%a%.dll"));
  EXPECT_EQ(machine_.CallsOf("QueryValue"), Lines{"QueryValue(DllPath, 260)"});
  EXPECT_EQ(machine_.CallsOf("ExpandEnvironment"), Lines{});
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPath])",
                   R"(RegQueryWszExpand: rgchValue = %ws\n [C:\%a%.dll])",
                   R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])"}));
}

TEST_F(Discovery, ExpandsAValueThatIsMeantToBe) {
  machine_.SetVariable(u"Office", u"D:\\Office");
  SetClientText(u"DllPathEx", u"%Office%\\a.dll", platform::kRegExpandSz);
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPathEx"), Padded(u"D:\\Office\\a.dll"));
  EXPECT_EQ(machine_.CallsOf("ExpandEnvironment"),
            Lines{"ExpandEnvironment(%Office%\\a.dll, 260)"});
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPathEx])",
                   R"(RegQueryWszExpand: rgchValue = %ws\n [%Office%\a.dll])",
                   R"(RegQueryWszExpand: rgchValue(expanded) = %ws\n [D:\Office\a.dll])",
                   R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])"}));
}

TEST_F(Discovery, PadsAnExpansionWhateverTheSystemLeavesBehindIt) {
  std::u16string left(kFullWidth, u'\0');
  std::uint32_t length = 0;
  ASSERT_EQ(platform::ExpandEnvironment(u"a", left.data(), kFullWidth, length), platform::kSuccess);
  ASSERT_NE(left, Padded(u"a"));
  SetClientText(u"DllPath", u"a", platform::kRegExpandSz);
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), Padded(u"a"));
}

TEST_F(Discovery, ExpandsAValueThatFillsItsRoomWithoutATerminator) {
  machine_.SetVariable(u"\u7878", u"D:\\Office\\");
  std::string bytes = std::string("%\0xx%\0", 6) + std::string(254, 'x');
  machine_.SetValue(Hive::kLocalMachine, kClientKey, u"DllPath", platform::kRegExpandSz, bytes);
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"),
            Padded(u"D:\\Office\\" + std::u16string(127, 0x7878)));
}

TEST_F(Discovery, UsesAnExpansionOfUpTo259UnitsWithItsTerminator) {
  SetClientText(u"DllPath", u"%long%", platform::kRegExpandSz);
  const RegistryKey key = ClientKey();
  machine_.SetVariable(u"long", std::u16string(258, u'x'));
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), Padded(std::u16string(258, u'x')));
  for (const std::size_t length : {259u, 260u, 1000u}) {
    machine_.SetVariable(u"long", std::u16string(length, u'x'));
    ClearTrace();
    EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), u"") << length;
    EXPECT_EQ(TraceOf("RegQueryWszExpand"), R"(RegQueryWszExpand: rgchValue = %ws\n [%long%])");
    EXPECT_EQ(Trace().back(), R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])");
  }
}

TEST_F(Discovery, GivesNothingWhenExpandingFails) {
  SetClientText(u"DllPath", u"%a%", platform::kRegExpandSz);
  const RegistryKey key = ClientKey();
  machine_.FailCallOf("ExpandEnvironment", 0, platform::kGeneralFailure);
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), u"");
  EXPECT_EQ(Trace().back(), R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])");
}

TEST_F(Discovery, GivesNothingForAnyOtherType) {
  for (const std::uint32_t type :
       {platform::kRegBinary, platform::kRegDword, platform::kRegMultiSz, std::uint32_t{0}}) {
    SetClientText(u"DllPath", u"a", type);
    const RegistryKey key = ClientKey();
    ClearTrace();
    EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), u"") << type;
    EXPECT_EQ(Trace(),
              (Lines{R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPath])",
                     R"(RegQueryWszExpand: rgchValue = %ws\n [a])",
                     R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])"}));
  }
}

TEST_F(Discovery, GivesNothingForAMissingValue) {
  machine_.AddKey(Hive::kLocalMachine, kClientKey);
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), u"");
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPath])",
                   R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [2])"}));
}

TEST_F(Discovery, DeliberatelyReadsNoValueOfMoreThan130Characters) {
  // The bytes count, not the characters before the first zero unit.
  const auto set = [&](std::size_t units) {
    machine_.SetValue(Hive::kLocalMachine, kClientKey, u"DllPath", platform::kRegSz,
                      std::string(2 * units, 'x'));
  };
  set(130);
  const RegistryKey key = ClientKey();
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), Padded(std::u16string(130, 0x7878)));
  set(131);
  EXPECT_EQ(RegQueryWszExpand(key, u"DllPath"), u"");
  EXPECT_EQ(Trace().back(), R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [234])");
}

TEST_F(Discovery, DeliberatelyTakesAnEmptyValueForACandidate) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"");
  SetClientText(u"DllPath", u"%none%", platform::kRegExpandSz);
  machine_.SetVariable(u"none", u"");
  EXPECT_EQ(GetMapiCandidatePaths(),
            (std::vector<std::u16string>{Padded(u""), Padded(u""), kSystemMapi}));
}

// --- the path that the client registered with the installer ---

TEST_F(Discovery, AsksTheStubForTheClientsComponent) {
  SetClientText(u"MSIComponentID", u"{C}");
  SetClientText(u"MSIApplicationLCID", u"1031");
  AddStub(kSystemMapi, std::string("D:\\Mail\\mapi.dll\0rest", 21));
  const RegistryKey key = ClientKey();
  machine_.ClearCalls();
  EXPECT_EQ(GetMailClientFromMSIData(key), u"D:\\Mail\\mapi.dll");
  EXPECT_EQ(StubQuestions(), Lines{"{C}, 1031, 260, 0, zeroed"});
  EXPECT_EQ(machine_.Calls(),
            (Lines{"QueryValue(MSIComponentID, 260)", "QueryValue(MSIApplicationLCID, 260)",
                   "LoadModule(mapi32.dll)",
                   R"(FindProcedure(C:\Windows\system32\mapi32.dll, FGetComponentPath))"}));
  EXPECT_EQ(machine_.ModuleReferences(), 0u);
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter GetMailClientFromMSIData\n)", kEnterComponentPath + " [{C}, 1031, 0]",
                   R"(GetComponentPath: path = %ws\n [D:\Mail\mapi.dll])",
                   R"(Exit GetComponentPath: fReturn = 0x%08X\n [1])",
                   R"(Exit GetMailClientFromMSIData: szPath = %ws\n [D:\Mail\mapi.dll])"}));
}

TEST_F(Discovery, AsksNobodyWithoutAClientKey) {
  EXPECT_EQ(GetMailClientFromMSIData(RegistryKey()), u"");
  EXPECT_EQ(machine_.Calls(), Lines{});
  EXPECT_EQ(Trace(), Lines{});
}

TEST_F(Discovery, AsksNobodyWhenOneOfTheTwoValuesIsMissing) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  const Lines nothing_found{R"(Enter GetMailClientFromMSIData\n)",
                            R"(Exit GetMailClientFromMSIData: szPath = %ws\n [])"};
  SetClientText(u"MSIApplicationLCID", u"1031");
  const RegistryKey key = ClientKey();
  EXPECT_EQ(GetMailClientFromMSIData(key), u"");
  EXPECT_EQ(Trace(), nothing_found);
  machine_.Reset();
  ClearTrace();
  AddStub(kSystemMapi, "D:\\mapi.dll");
  SetClientText(u"MSIComponentID", u"{C}");
  const RegistryKey other = ClientKey();
  EXPECT_EQ(GetMailClientFromMSIData(other), u"");
  EXPECT_EQ(Trace(), nothing_found);
  EXPECT_EQ(StubQuestions(), Lines{});
}

TEST_F(Discovery, ReadsTheInstallersValuesWhateverTheirType) {
  SetClientText(u"MSIComponentID", u"{C}", platform::kRegBinary);
  SetClientText(u"MSIApplicationLCID", u"1031", platform::kRegMultiSz);
  AddStub(kSystemMapi, "D:\\mapi.dll");
  const RegistryKey key = ClientKey();
  EXPECT_EQ(GetMailClientFromMSIData(key), u"D:\\mapi.dll");
}

TEST_F(Discovery, TakesTheOtherStubWhenTheFirstDoesNotLoad) {
  AddStub(u"C:\\Windows\\system32\\mapistub.dll", "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"D:\\mapi.dll");
  EXPECT_EQ(machine_.CallsOf("LoadModule"),
            (Lines{"LoadModule(mapi32.dll)", "LoadModule(mapistub.dll)"}));
  EXPECT_EQ(machine_.ModuleReferences(), 0u);
}

TEST_F(Discovery, HasNoComponentPathWithoutAStub) {
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", true), u"");
  EXPECT_EQ(Trace(), (Lines{kEnterComponentPath + " [{C}, 1, 1]",
                            R"(Exit GetComponentPath: fReturn = 0x%08X\n [0])"}));
}

TEST_F(Discovery, HasNoComponentPathWhenTheStubLacksTheFunction) {
  AddEmptyLibrary(kSystemMapi);
  AddStub(u"C:\\Windows\\system32\\mapistub.dll", "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"");
  EXPECT_EQ(machine_.CallsOf("LoadModule"), Lines{"LoadModule(mapi32.dll)"});
  EXPECT_EQ(Trace().size(), 2u);
  EXPECT_EQ(machine_.ModuleReferences(), 0u);
}

TEST_F(Discovery, HasNoComponentPathWhenTheStubsFunctionHasNoAddress) {
  machine_.AddModule(kSystemMapi, {{"FGetComponentPath", nullptr}});
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"");
  EXPECT_EQ(Trace(), (Lines{kEnterComponentPath + " [{C}, 1, 0]",
                            R"(Exit GetComponentPath: fReturn = 0x%08X\n [0])"}));
  EXPECT_EQ(machine_.ModuleReferences(), 0u);
}

TEST_F(Discovery, FreesTheStubBeforeTheLastLine) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  std::vector<std::size_t> references;
  const auto look = [&] { references.push_back(machine_.ModuleReferences(kSystemMapi)); };
  WatchTrace(u"GetComponentPath: path", look);
  static_cast<void>(GetComponentPath(u"{C}", u"1", false));
  WatchTrace(u"Exit GetComponentPath", look);
  static_cast<void>(GetComponentPath(u"{C}", u"1", false));
  EXPECT_EQ(references, (std::vector<std::size_t>{1, 0}));
}

TEST_F(Discovery, HasNoComponentPathWhenTheStubSaysNo) {
  AddStub(kSystemMapi, "D:\\mapi.dll", 0);
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"");
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.begin() + 1, trace.end()),
            (Lines{R"(GetComponentPath: path = %ws\n [])",
                   R"(Exit GetComponentPath: fReturn = 0x%08X\n [0])"}));
}

TEST_F(Discovery, PassesOnWhetherToInstall) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", true), u"D:\\mapi.dll");
  EXPECT_EQ(StubQuestions(), Lines{"{C}, 1, 260, 1, zeroed"});
}

TEST_F(Discovery, DeliberatelyLooksAtTheLowByteOfTheStubsAnswerOnly) {
  AddStub(kSystemMapi, "D:\\mapi.dll", 0x100);
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"");
  EXPECT_EQ(Trace().back(), R"(Exit GetComponentPath: fReturn = 0x%08X\n [0])");
  AddStub(kSystemMapi, "D:\\mapi.dll", 0x1FF);
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"D:\\mapi.dll");
  EXPECT_EQ(Trace().back(), R"(Exit GetComponentPath: fReturn = 0x%08X\n [255])");
}

TEST_F(Discovery, DeliberatelyKeepsOnlyTheLowByteOfEachUnitForTheStub) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"\u0141\u0142C", u"\u0331", false), u"D:\\mapi.dll");
  EXPECT_EQ(StubQuestions(), Lines{"ABC, 1, 260, 0, zeroed"});
}

TEST_F(Discovery, DeliberatelyEndsATextForTheStubAtAUnitWhoseLowByteIsZero) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}\u0100x", u"10\u020031", false), u"D:\\mapi.dll");
  EXPECT_EQ(StubQuestions(), Lines{"{C}, 10, 260, 0, zeroed"});
}

TEST_F(Discovery, DeliberatelyWidensTheStubsPathWithTheSignOfEachByte) {
  AddStub(kSystemMapi, "D:\\J\xE4\x80\x7F\xFF");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), std::u16string(u"D:\\J") + char16_t{0xFFE4} +
                                                       char16_t{0xFF80} + char16_t{0x7F} +
                                                       char16_t{0xFFFF});
}

TEST_F(Discovery, TakesAPathThatFillsTheStubsRoom) {
  AddStub(kSystemMapi, std::string(300, 'x'));
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), std::u16string(260, u'x'));
}

// --- installed Outlooks ---

constexpr char kX64Failed[] =
    "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x64), 1607]";
constexpr char kX86Failed[] =
    "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x86), 1607]";

TEST_F(Discovery, AsksForThe64BitOutlookFirst) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"C:\\64\\OUTLOOK.EXE");
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\64\\OUTLOOK.EXE");
  EXPECT_EQ(InstallerQuestions(),
            (Lines{"{A}, outlook.x64.exe, 0, size 0", "{A}, outlook.x64.exe, 0, fetch 18"}));
  EXPECT_EQ(Trace().front(), R"(Enter GetOutlookPath: szCategory = %ws\n [{A}])");
  EXPECT_EQ(Trace().back(), R"(Exit GetOutlookPath: Path = %ws\n [C:\64\OUTLOOK.EXE])");
}

TEST_F(Discovery, DeliberatelyFetchesFromThe64BitOneAgainWhenTheOtherAnswered) {
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(InstallerQuestions(),
            (Lines{"{A}, outlook.x64.exe, 0, size 0", "{A}, outlook.exe, 0, size 0",
                   "{A}, outlook.x64.exe, 0, fetch 18", "{A}, outlook.exe, 0, fetch 18"}));
  Lines failures;
  for (const std::string& line : Trace()) {
    if (line.rfind("%ws", 0) == 0) {
      failures.push_back(line);
    }
  }
  EXPECT_EQ(failures, (Lines{kX64Failed, kX64Failed}));
}

TEST_F(Discovery, HasNoOutlookPathWhenNeitherIsKnown) {
  AddInstaller();
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  EXPECT_EQ(InstallerQuestions(),
            (Lines{"{A}, outlook.x64.exe, 0, size 0", "{A}, outlook.exe, 0, size 0"}));
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.end() - 3, trace.end()),
            (Lines{kX64Failed, kX86Failed, R"(Exit GetOutlookPath: nothing found\n)"}));
}

TEST_F(Discovery, HasNoOutlookPathWithoutAnInstaller) {
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  EXPECT_EQ(TraceOf("%ws"),
            "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x86), "
            "2147500037]");
}

TEST_F(Discovery, HasNoOutlookPathWhenFetchingFails) {
  AddUnfetchableComponent(u"{A}", u"outlook.x64.exe", 5);
  AddUnfetchableComponent(u"{A}", u"outlook.exe", 1610);
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  const Lines trace = Trace();
  EXPECT_EQ(
      Lines(trace.end() - 3, trace.end()),
      (Lines{"%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x64), 5]",
             "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x86), 1610]",
             R"(Exit GetOutlookPath: nothing found\n)"}));
}

TEST_F(Discovery, FetchesFromThe32BitOneWhenThe64BitFetchFails) {
  AddUnfetchableComponent(u"{A}", u"outlook.x64.exe", 5);
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\X.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\32\\X.EXE");
}

TEST_F(Discovery, HasNothingFromAnOutlookPathThatIsEmpty) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.end() - 2, trace.end()),
            (Lines{R"(Exit GetOutlookPath: Path = %ws\n [])",
                   R"(Exit GetOutlookPath: nothing found\n)"}));
}

TEST_F(Discovery, ReadsOutlooksPathUpToItsEndWhateverSizeTheInstallerTells) {
  AddCarelessComponent(u"{A}", u"outlook.x64.exe", u"C:\\o.exe", 40);
  EXPECT_EQ(Readable(GetOutlookPath(u"{A}")), R"(C:\o.exe)");
  EXPECT_EQ(InstallerQuestions().back(), "{A}, outlook.x64.exe, 0, fetch 41");
}

TEST_F(Discovery, EndsOutlooksPathAtAZeroUnit) {
  AddCarelessComponent(u"{A}", u"outlook.x64.exe", std::u16string(u"C:\\a.exe\0.exe", 13), 13);
  EXPECT_EQ(Readable(GetOutlookPath(u"{A}")), R"(C:\a.exe)");
}

TEST_F(Discovery, TakesAnOutlookPathThatFillsTheInstallersRoom) {
  AddCarelessComponent(u"{A}", u"outlook.x64.exe", std::u16string(50, u'x'), 20);
  EXPECT_EQ(Readable(GetOutlookPath(u"{A}")), std::string(21, 'x'));
  EXPECT_EQ(Trace().back(), R"(Exit GetOutlookPath: Path = %ws\n [)" + std::string(21, 'x') + "]");
}

TEST_F(Discovery, HasNoRoomForAnOutlookPathOfTheLargestSize) {
  AddCarelessComponent(u"{A}", u"outlook.x64.exe", u"C:\\o.exe", 0xFFFFFFFF);
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  EXPECT_EQ(InstallerQuestions().back(), "{A}, outlook.x64.exe, 0, fetch 0");
}

TEST_F(Discovery, FindsTheLibraryBesideOutlook) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"C:\\Office\\root\\OUTLOOK.EXE");
  EXPECT_EQ(GetInstalledOutlookMAPI(u"{A}"), u"C:\\Office\\root\\olmapi32.dll");
  EXPECT_EQ(Trace().front(), R"(Enter GetInstalledOutlookMAPI(%s)\n [{A}])");
  EXPECT_EQ(Trace().back(),
            R"(GetInstalledOutlookMAPI: found %ws\n [C:\Office\root\olmapi32.dll])");
}

TEST_F(Discovery, FindsNoLibraryWithoutAnOutlook) {
  AddInstaller();
  EXPECT_EQ(GetInstalledOutlookMAPI(u"{A}"), u"");
  EXPECT_EQ(Trace().back(), R"(Exit GetInstalledOutlookMAPI: found nothing\n)");
}

TEST_F(Discovery, DeliberatelyNamesTheWrongRoutineWhenOutlooksPathCannotBeSplit) {
  for (const std::size_t length : {257u, 258u}) {  // and two separators and a terminator
    const std::u16string folder = u"C:\\" + std::u16string(length, u'd') + u"\\";
    AddComponent(u"{A}", u"outlook.exe", folder + u"OUTLOOK.EXE");
    EXPECT_EQ(GetInstalledOutlookMAPI(u"{A}"), length == 257 ? folder + u"olmapi32.dll" : u"");
  }
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.end() - 2, trace.end()),
            (Lines{"%ws failed with 0x%08X [GetOutlookPath: _wsplitpath_s, 34]",
                   R"(Exit GetInstalledOutlookMAPI: found nothing\n)"}));
}

TEST_F(Discovery, FindsTheLibrariesOfAllOutlooksInTheOrderOfTheirCategories) {
  AddComponent(u"{BC174BAD-2F53-4855-A1D5-1D575C19B1EA}", u"outlook.exe", u"C:\\6\\o.exe");
  AddComponent(u"{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}", u"outlook.exe", u"C:\\5\\o.exe");
  AddComponent(u"{24AAE126-0911-478F-A019-07B875EB9996}", u"outlook.exe", u"C:\\4\\o.exe");
  AddComponent(u"{E83B4360-C208-4325-9504-0D23003A74A5}", u"outlook.exe", u"C:\\2\\o.exe");
  AddComponent(u"{5812C571-53F0-4467-BEFA-0A4F47A9437C}", u"outlook.exe", u"C:\\1\\o.exe");
  EXPECT_EQ(Texts(GetInstalledOutlookMAPI()),
            (Lines{R"(C:\1\olmapi32.dll)", R"(C:\2\olmapi32.dll)", R"(C:\4\olmapi32.dll)",
                   R"(C:\5\olmapi32.dll)", R"(C:\6\olmapi32.dll)"}));
  EXPECT_EQ(Trace().front(), R"(Enter GetInstalledOutlookMAPI\n)");
  EXPECT_EQ(Trace().back(), R"(Exit GetInstalledOutlookMAPI: found %d paths\n [5])");
  AddComponent(u"{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}", u"outlook.exe", u"C:\\3\\o.exe");
  EXPECT_EQ(Readable(GetInstalledOutlookMAPI().at(2)), R"(C:\3\olmapi32.dll)");
}

// --- the candidates ---

TEST_F(Discovery, ListsTheCandidatesInTheOrderOfTheSearch) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"C:\\ex.dll");
  SetClientText(u"DllPath", u"C:\\plain.dll");
  SetClientText(u"MSIComponentID", u"{C}");
  SetClientText(u"MSIApplicationLCID", u"1031");
  AddStub(kSystemMapi, "C:\\msi.dll");
  AddComponent(OutlookComponentIds[1], u"outlook.exe", u"C:\\2\\o.exe");
  AddComponent(OutlookComponentIds[4], u"outlook.x64.exe", u"C:\\5\\o.exe");
  EXPECT_EQ(GetMapiCandidatePaths(),
            (std::vector<std::u16string>{Padded(u"C:\\ex.dll"), u"C:\\2\\olmapi32.dll",
                                         u"C:\\5\\olmapi32.dll", Padded(u"C:\\plain.dll"),
                                         u"C:\\msi.dll", kSystemMapi}));
}

TEST_F(Discovery, ListsTheSystemsLibraryAloneWhenNothingIsRegistered) {
  EXPECT_EQ(Texts(GetMapiCandidatePaths()), Lines{Readable(kSystemMapi)});
  // Without a key the values are asked for all the same, which fails.
  EXPECT_EQ(machine_.CallsOf("QueryValue"),
            (Lines{"QueryValue(DllPathEx, 260)", "QueryValue(DllPath, 260)"}));
  EXPECT_EQ(TraceOf("Exit RegQueryWszExpand"), R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [6])");
}

TEST_F(Discovery, ListsOutlooksAndTheSystemsLibraryWithoutAMailClient) {
  AddComponent(OutlookComponentIds[0], u"outlook.exe", u"C:\\1\\o.exe");
  EXPECT_EQ(Texts(GetMapiCandidatePaths()), (Lines{R"(C:\1\olmapi32.dll)", Readable(kSystemMapi)}));
}

TEST_F(Discovery, ListsOnlyTheSystemsLibraryOnDemand) {
  SetDefaultClient();
  SetClientText(u"DllPath", u"C:\\plain.dll");
  AddComponent(OutlookComponentIds[0], u"outlook.exe", u"C:\\1\\o.exe");
  UseSystemMapiOnly = true;
  EXPECT_EQ(Texts(GetMapiCandidatePaths()), Lines{Readable(kSystemMapi)});
  EXPECT_EQ(machine_.Calls(), Lines{"SystemDirectory(260)"});
}

TEST_F(Discovery, PrefersOutlookToTheDefaultClientOnDemand) {
  SetDefaultClient();
  SetClientText(u"DllPath", u"C:\\plain.dll");
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"DllPathEx", u"C:\\ol.dll");
  PreferOutlookClient = true;
  EXPECT_EQ(Texts(GetMapiCandidatePaths()), Lines{R"(C:\ol.dll)"});
  EXPECT_EQ(Trace().front(), R"(Enter GetHKeyMapiClient (%ws)\n [Microsoft Outlook])");
}

TEST_F(Discovery, ListsOnlyTheSystemsLibraryOnDemandAlsoWhenOutlookIsPreferred) {
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"DllPathEx", u"C:\\ol.dll");
  UseSystemMapiOnly = true;
  PreferOutlookClient = true;
  EXPECT_EQ(Texts(GetMapiCandidatePaths()), Lines{Readable(kSystemMapi)});
  EXPECT_EQ(machine_.Calls(), Lines{"SystemDirectory(260)"});
}

TEST_F(Discovery, AsksAllSourcesButTheSystemForThePreferredOutlook) {
  SetDefaultClient();
  SetClientText(u"DllPath", u"C:\\plain.dll");
  SetClientText(u"MSIComponentID", u"{C}");
  SetClientText(u"MSIApplicationLCID", u"1031");
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"DllPathEx", u"C:\\ol_ex.dll");
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"DllPath", u"C:\\ol.dll");
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"MSIComponentID", u"{O}");
  machine_.SetString(Hive::kLocalMachine, kOutlookKey, u"MSIApplicationLCID", u"1033");
  AddStub(kSystemMapi, "C:\\ol_msi.dll");
  AddComponent(OutlookComponentIds[3], u"outlook.exe", u"C:\\4\\o.exe");
  PreferOutlookClient = true;
  EXPECT_EQ(Texts(GetMapiCandidatePaths()),
            (Lines{R"(C:\ol_ex.dll)", R"(C:\4\olmapi32.dll)", R"(C:\ol.dll)", R"(C:\ol_msi.dll)"}));
  EXPECT_EQ(StubQuestions(), Lines{"{O}, 1033, 260, 0, zeroed"});
}

TEST_F(Discovery, ClosesTheClientsKeyWhenAllSourcesHaveBeenAsked) {
  SetDefaultClient();
  // The system directory is asked for twice: on the way to the installer, and for the system's own
  // library, which is the last source.
  std::vector<std::size_t> open;
  WatchTrace(u"Enter GetSystemDirectory", [&] { open.push_back(machine_.OpenHandles()); });
  static_cast<void>(GetMapiCandidatePaths());
  EXPECT_EQ(open, (std::vector<std::size_t>{1, 1}));
  EXPECT_EQ(machine_.OpenHandles(), 0u);
}

TEST_F(Discovery, AsksForTheSystemDirectoryAfreshForTheSystemsLibrary) {
  EXPECT_EQ(Readable(GetSystemMapiPath()), Readable(kSystemMapi));
  machine_.SetSystemDirectory(u"D:\\sys");
  EXPECT_EQ(GetSystemMapiPath(), u"D:\\sys\\mapi32.dll");
}

// --- loading a candidate ---

TEST_F(Discovery, LoadsTheFirstCandidateThatLoads) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"C:\\missing.dll");
  SetClientText(u"DllPath", u"C:\\plain.dll");
  AddEmptyLibrary(u"C:\\plain.dll");
  AddEmptyLibrary(kSystemMapi);
  const platform::Module found = GetDefaultMapiHandle();
  EXPECT_EQ(Readable(machine_.ModulePath(found.Get())), R"(C:\plain.dll)");
  EXPECT_EQ(machine_.ModuleReferences(kSystemMapi), 0u);
  const Lines trace = Trace();
  EXPECT_EQ(trace.front(), R"(Enter GetDefaultMapiHandle\n)");
  EXPECT_EQ(Lines(trace.end() - 3, trace.end()),
            (Lines{R"(Trying %ws\n [C:\missing.dll])", R"(Trying %ws\n [C:\plain.dll])",
                   R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [plain.dll])"}));
}

TEST_F(Discovery, TriesADuplicateAgain) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"C:\\same.dll");
  SetClientText(u"DllPath", u"C:\\same.dll");
  EXPECT_FALSE(GetDefaultMapiHandle());
  const Lines trace = Trace();
  EXPECT_EQ(Lines(trace.end() - 4, trace.end()),
            (Lines{R"(Trying %ws\n [C:\same.dll])", R"(Trying %ws\n [C:\same.dll])",
                   R"(Trying %ws\n [C:\Windows\system32\mapi32.dll])",
                   R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [null])"}));
  const Lines loads = machine_.CallsOf("LoadModule");
  EXPECT_EQ(std::count(loads.begin(), loads.end(), R"(LoadModule(C:\same.dll))"), 2);
}

TEST_F(Discovery, LoadsNothingFromAnEmptyList) {
  PreferOutlookClient = true;
  EXPECT_FALSE(GetDefaultMapiHandle());
  EXPECT_EQ(TraceOf("Trying"), "");
  EXPECT_EQ(Trace().back(), R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [null])");
}

// --- the companion ---

TEST_F(Discovery, DeliberatelyLoadsTheDriveAloneInsteadOfTheCompanion) {
  AddComponent(OutlookComponentIds[2], u"outlook.exe", u"D:\\Office\\o.exe");
  AddEmptyLibrary(u"D:\\Office\\pstprx32.dll");
  EXPECT_FALSE(LoadFromOLMAPIDir(u"pstprx32.dll"));
  EXPECT_EQ(machine_.CallsOf("LoadModule").back(), "LoadModule(D:)");
  EXPECT_EQ(Trace().front(), R"(load: LoadFromOLMAPIDir - loading "%ws"\n [pstprx32.dll])");
  EXPECT_EQ(TraceOf("load: LoadFromOLMAPIDir - loading from"),
            R"(load: LoadFromOLMAPIDir - loading from "%ws"\n [D:])");
}

TEST_F(Discovery, DeliberatelyLoadsNoPathAtAllForAnOutlookOnAServer) {
  EXPECT_FALSE(LoadBesideOutlookMapi(u"\\\\server\\Office\\olmapi32.dll", u"pstprx32.dll"));
  EXPECT_EQ(machine_.Calls(), Lines{"LoadModule()"});
}

TEST_F(Discovery, TriesAllOutlooksForTheCompanion) {
  AddComponent(OutlookComponentIds[0], u"outlook.exe", u"C:\\a\\o.exe");
  AddComponent(OutlookComponentIds[3], u"outlook.exe", u"D:\\a\\o.exe");
  AddComponent(OutlookComponentIds[5], u"outlook.exe", u"E:\\a\\o.exe");
  // Not even a library of this name is loaded: a drive alone names none.
  AddEmptyLibrary(u"C:\\Windows\\system32\\D:");
  EXPECT_FALSE(LoadFromOLMAPIDir(u"pstprx32.dll"));
  const Lines loads = machine_.CallsOf("LoadModule");
  EXPECT_EQ(Lines(loads.end() - 3, loads.end()),
            (Lines{"LoadModule(C:)", "LoadModule(D:)", "LoadModule(E:)"}));
}

TEST_F(Discovery, SkipsAnOutlookWhosePathCannotBeSplitForTheCompanion) {
  EXPECT_FALSE(
      LoadBesideOutlookMapi(u"C:\\" + std::u16string(300, u'd') + u"\\olmapi32.dll", u"p.dll"));
  EXPECT_EQ(machine_.Calls(), Lines{});
  EXPECT_EQ(Trace(), Lines{"%ws failed with 0x%08X [LoadFromOLMAPIDir: _wsplitpath_s, 34]"});
}

}  // namespace
}  // namespace zentpost
