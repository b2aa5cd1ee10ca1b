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
  std::u16string Value(const char16_t* name = u"DllPath") {
    return RegQueryWszExpand(ClientKey(), name);
  }
  // The last line of the trace that begins so.
  static std::string TraceOf(const std::string& start) {
    std::string found;
    for (const std::string& line : seen_.trace) {
      if (line.starts_with(start)) {
        found = line;
      }
    }
    return found;
  }
  static Lines LastLines(std::ptrdiff_t count) {
    return {seen_.trace.end() - count, seen_.trace.end()};
  }
};

// --- libraries that are loaded already ---

TEST_F(Discovery, AttachNeverLoads) {
  AddEmptyLibrary(u"C:\\Windows\\system32\\olmapi32.dll");
  EXPECT_FALSE(AttachToMAPIDll(u"olmapi32.dll"));
  EXPECT_EQ(fake_.ModuleReferences(u"C:\\Windows\\system32\\olmapi32.dll"), 0u);
  EXPECT_EQ(fake_.CallsOf("GetModuleHandleExW"), Lines{"GetModuleHandleExW(0x0, olmapi32.dll)"});
  EXPECT_EQ(seen_.trace.back(), R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n [null])");
}

TEST_F(Discovery, DeliberatelyAttachesWithoutAReferenceWhereTheKernelLacksTheFunction) {
  fake_.AddModule(kKernel, {});
  const platform::Module held = Load(u"D:\\Mail\\olmapi32.dll");
  platform::Module found = AttachToMAPIDll(u"olmapi32.dll");
  EXPECT_EQ(found.Detach(), held.Get());
  EXPECT_EQ(fake_.ModuleReferences(u"D:\\Mail\\olmapi32.dll"), 1u);
  EXPECT_EQ(fake_.CallsOf("FindLoadedModule"), Lines{"FindLoadedModule(olmapi32.dll)"});
  EXPECT_FALSE(AttachToMAPIDll(u"msmapi32.dll"));
}

// --- the mail client's key ---

TEST_F(Discovery, OpensTheKeyOfTheNamedClientOrOfTheDefaultOne) {
  const struct {
    const char16_t* default_client;  // null: none is
    bool has_key;                    // of "Some Client"; else of the mail clients alone
    const char16_t* provider;
    bool is_found;
    std::string failure;
  } kCases[] = {
      {kClient, true, u"", true, ""},
      {u"Other", true, kClient, true, ""},
      {nullptr, true, u"", false, "RegQueryValueExW(hMailKey), 2]"},
      {u"", true, u"", false, ""},
      {kClient, false, u"", false, "RegOpenKeyExW, 2]"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(Readable(test.provider) + " " + test.failure);
    fake_.Reset();
    seen_.trace.clear();
    fake_.AddKey(Hive::kLocalMachine, test.has_key ? kClientKey : kMailKey);
    if (test.default_client != nullptr) {
      fake_.SetString(Hive::kLocalMachine, kMailKey, u"", test.default_client);
    }
    EXPECT_EQ(static_cast<bool>(GetHKeyMapiClient(test.provider)), test.is_found);
    Lines calls = {R"(OpenKey(HKLM, Software\Clients\Mail, 0x20019))"};
    if (*test.provider == u'\0') {
      calls.emplace_back("QueryValue(, 260)");
    }
    if (test.is_found || !test.has_key) {
      calls.emplace_back(R"(OpenSubKey(HKLM\Software\Clients\Mail, Some Client, 0x20019))");
    }
    EXPECT_EQ(fake_.Calls(), calls);
    EXPECT_EQ(
        TraceOf("%ws failed"),
        test.failure.empty() ? "" : "%ws failed with 0x%08X [GetHKeyMapiClient: " + test.failure);
  }
}

TEST_F(Discovery, FindsNoClientWithoutTheMailKey) {
  fake_.SetString(Hive::kCurrentUser, kMailKey, u"", kClient);
  fake_.AddKey(Hive::kCurrentUser, kClientKey);
  for (const char16_t* const provider : {u"", kClient}) {
    EXPECT_FALSE(GetHKeyMapiClient(provider));
    EXPECT_EQ(LastLines(2),
              (Lines{R"(%ws failed with 0x%08X [GetHKeyMapiClient: RegOpenKeyExW(HKLM), 2])",
                     R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [false])"}));
  }
  EXPECT_EQ(fake_.CallsOf("QueryValue"), Lines{});
}

TEST_F(Discovery, DeliberatelyReadsNoClientNameOfMoreThan130Characters) {
  for (const std::size_t length : {129u, 130u}) {  // and a terminator
    const std::u16string name(length, u'c');
    fake_.SetString(Hive::kLocalMachine, kMailKey, u"", name);
    fake_.AddKey(Hive::kLocalMachine, std::u16string(kMailKey) + u"\\" + name);
    EXPECT_EQ(static_cast<bool>(GetHKeyMapiClient(u"")), length == 129) << length;
  }
  EXPECT_EQ(TraceOf("%ws failed"),
            "%ws failed with 0x%08X [GetHKeyMapiClient: RegQueryValueExW(hMailKey), 234]");
  // One may fill its space without a terminator.
  fake_.SetValue(Hive::kLocalMachine, kMailKey, u"", platform::kRegSz, std::string(260, 'x'));
  fake_.AddKey(Hive::kLocalMachine, std::u16string(kMailKey) + u"\\" + std::u16string(130, 0x7878));
  EXPECT_TRUE(GetHKeyMapiClient(u""));
}

TEST_F(Discovery, ClosesTheMailKeyOnlyAfterTheLastLine) {
  SetDefaultClient();
  std::vector<std::size_t> open;
  WatchTrace(u"Exit GetHKeyMapiClient", [&] { open.push_back(fake_.OpenHandles()); });
  EXPECT_TRUE(GetHKeyMapiClient(u""));
  EXPECT_FALSE(GetHKeyMapiClient(u"Missing"));
  EXPECT_EQ(open, (std::vector<std::size_t>{2, 1}));
}

// --- values of the client's key ---

TEST_F(Discovery, ReadsTextsPaddedToTheFullWidthAndExpandsThemWhereTheyAreMeantToBe) {
  fake_.SetVariable(u"a", u"D:\\Office");
  for (const auto& [type, value] : {std::pair(platform::kRegSz, Padded(u"%a%.dll")),
                                    std::pair(platform::kRegExpandSz, Padded(u"D:\\Office.dll")),
                                    std::pair(platform::kRegBinary, std::u16string()),
                                    std::pair(platform::kRegDword, std::u16string()),
                                    std::pair(platform::kRegMultiSz, std::u16string()),
                                    std::pair(std::uint32_t{0}, std::u16string())}) {
    SetClientText(u"DllPath", u"%a%.dll", type);
    EXPECT_EQ(Value(), value) << type;
    EXPECT_EQ(LastLines(1), Lines{R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])"});
  }
  EXPECT_EQ(fake_.CallsOf("QueryValue"), Lines(6, "QueryValue(DllPath, 260)"));
  EXPECT_EQ(fake_.CallsOf("ExpandEnvironment"), Lines{"ExpandEnvironment(%a%.dll, 260)"});
}

TEST_F(Discovery, PadsAnExpansionWhateverTheSystemLeavesBehindIt) {
  std::u16string left(kFullWidth, u'\0');
  std::uint32_t length = 0;
  ASSERT_EQ(platform::ExpandEnvironment(u"a", left.data(), kFullWidth, length), platform::kSuccess);
  ASSERT_NE(left, Padded(u"a"));
  SetClientText(u"DllPath", u"a", platform::kRegExpandSz);
  EXPECT_EQ(Value(), Padded(u"a"));
}

TEST_F(Discovery, ExpandsAValueThatFillsItsRoomWithoutATerminator) {
  fake_.SetVariable(u"\u7878", u"D:\\Office\\");
  std::string bytes = std::string("%\0xx%\0", 6) + std::string(254, 'x');
  fake_.SetValue(Hive::kLocalMachine, kClientKey, u"DllPath", platform::kRegExpandSz, bytes);
  EXPECT_EQ(Value(), Padded(u"D:\\Office\\" + std::u16string(127, 0x7878)));
}

TEST_F(Discovery, UsesAnExpansionOfUpTo259UnitsWithItsTerminator) {
  SetClientText(u"DllPath", u"%long%", platform::kRegExpandSz);
  fake_.SetVariable(u"long", std::u16string(258, u'x'));
  EXPECT_EQ(Value(), Padded(std::u16string(258, u'x')));
  for (const std::size_t length : {259u, 260u, 1000u}) {
    fake_.SetVariable(u"long", std::u16string(length, u'x'));
    EXPECT_EQ(Value(), u"") << length;
    EXPECT_EQ(LastLines(2), (Lines{R"(RegQueryWszExpand: rgchValue = %ws\n [%long%])",
                                   R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])"}));
  }
}

TEST_F(Discovery, DeliberatelyReadsNoValueOfMoreThan130Characters) {
  // The bytes count, not the characters before the first zero unit.
  for (const std::size_t units : {130u, 131u}) {
    fake_.SetValue(Hive::kLocalMachine, kClientKey, u"DllPath", platform::kRegSz,
                   std::string(2 * units, 'x'));
    EXPECT_EQ(Value(), units == 130 ? Padded(std::u16string(130, 0x7878)) : u"");
  }
  EXPECT_EQ(seen_.trace.back(), R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [234])");
}

TEST_F(Discovery, DeliberatelyTakesAnEmptyValueForACandidate) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"");
  SetClientText(u"DllPath", u"%none%", platform::kRegExpandSz);
  fake_.SetVariable(u"none", u"");
  EXPECT_EQ(GetMapiCandidatePaths(),
            (std::vector<std::u16string>{Padded(u""), Padded(u""), kSystemMapi}));
}

// --- the path that the client registered with the installer ---

TEST_F(Discovery, AsksTheStubForTheClientsComponent) {
  // Whatever the type of the texts.
  SetClientText(u"MSIComponentID", u"{C}", platform::kRegBinary);
  SetClientText(u"MSIApplicationLCID", u"1031", platform::kRegMultiSz);
  AddStub(kSystemMapi, std::string("D:\\Mail\\mapi.dll\0rest", 21));
  const RegistryKey key = ClientKey();
  fake_.ClearCalls();
  EXPECT_EQ(GetMailClientFromMSIData(key), u"D:\\Mail\\mapi.dll");
  EXPECT_EQ(seen_.stub_questions, Lines{"{C}, 1031, 260, 0, zeroed"});
  EXPECT_EQ(fake_.Calls(),
            (Lines{"QueryValue(MSIComponentID, 260)", "QueryValue(MSIApplicationLCID, 260)",
                   "LoadModule(mapi32.dll)",
                   R"(FindProcedure(C:\Windows\system32\mapi32.dll, FGetComponentPath))"}));
}

TEST_F(Discovery, AsksNobodyWithoutAClientKeyOrOneOfItsTwoTexts) {
  EXPECT_EQ(GetMailClientFromMSIData(RegistryKey()), u"");
  EXPECT_EQ(fake_.Calls(), Lines{});
  EXPECT_EQ(seen_.trace, Lines{});
  for (const char16_t* const present : {u"MSIComponentID", u"MSIApplicationLCID"}) {
    fake_.Reset();
    seen_.trace.clear();
    AddStub(kSystemMapi, "D:\\mapi.dll");
    SetClientText(present, u"1031");
    EXPECT_EQ(GetMailClientFromMSIData(ClientKey()), u"");
    EXPECT_EQ(seen_.trace, (Lines{R"(Enter GetMailClientFromMSIData\n)",
                                  R"(Exit GetMailClientFromMSIData: szPath = %ws\n [])"}));
  }
  EXPECT_EQ(seen_.stub_questions, Lines{});
}

TEST_F(Discovery, TakesTheOtherStubWhenTheFirstDoesNotLoad) {
  AddStub(u"C:\\Windows\\system32\\mapistub.dll", "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), u"D:\\mapi.dll");
  EXPECT_EQ(fake_.CallsOf("LoadModule"),
            (Lines{"LoadModule(mapi32.dll)", "LoadModule(mapistub.dll)"}));
  EXPECT_EQ(fake_.ModuleReferences(), 0u);
}

TEST_F(Discovery, HasNoComponentPathWithoutAStubOrItsFunction) {
  const Lines nothing = {kEnterComponentPath + " [{C}, 1, 1]",
                         R"(Exit GetComponentPath: fReturn = 0x%08X\n [0])"};
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", true), u"");
  EXPECT_EQ(seen_.trace, nothing);
  // The other stub is not asked when the first is there.
  AddStub(u"C:\\Windows\\system32\\mapistub.dll", "D:\\mapi.dll");
  for (const platform::fake::FakePlatform::Exports& exports :
       {platform::fake::FakePlatform::Exports(), {{"FGetComponentPath", nullptr}}}) {
    fake_.AddModule(kSystemMapi, exports);
    fake_.ClearCalls();
    seen_.trace.clear();
    EXPECT_EQ(GetComponentPath(u"{C}", u"1", true), u"");
    EXPECT_EQ(fake_.CallsOf("LoadModule"), Lines{"LoadModule(mapi32.dll)"});
    EXPECT_EQ(seen_.trace, nothing);
    EXPECT_EQ(fake_.ModuleReferences(), 0u);
  }
}

TEST_F(Discovery, FreesTheStubBeforeTheLastLine) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  std::vector<std::size_t> references;
  const auto look = [&] { references.push_back(fake_.ModuleReferences(kSystemMapi)); };
  for (const char16_t* const line : {u"GetComponentPath: path", u"Exit GetComponentPath"}) {
    WatchTrace(line, look);
    static_cast<void>(GetComponentPath(u"{C}", u"1", false));
  }
  EXPECT_EQ(references, (std::vector<std::size_t>{1, 0}));
}

TEST_F(Discovery, DeliberatelyLooksAtTheLowByteOfTheStubsAnswerOnly) {
  for (const auto& [answer, is_found] :
       {std::pair(0, "0"), std::pair(1, "1"), std::pair(0x100, "0"), std::pair(0x1FF, "255")}) {
    const std::string path = *is_found != '0' ? "D:\\mapi.dll" : "";
    AddStub(kSystemMapi, "D:\\mapi.dll", answer);
    EXPECT_EQ(Readable(GetComponentPath(u"{C}", u"1", false)), path);
    EXPECT_EQ(LastLines(2), (Lines{R"(GetComponentPath: path = %ws\n [)" + path + "]",
                                   std::string(R"(Exit GetComponentPath: fReturn = 0x%08X\n [)") +
                                       is_found + "]"}));
  }
}

TEST_F(Discovery, DeliberatelyKeepsOnlyTheLowByteOfEachUnitForTheStub) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"\u0141\u0142C", u"\u0331", true), u"D:\\mapi.dll");
  EXPECT_EQ(seen_.stub_questions, Lines{"ABC, 1, 260, 1, zeroed"});
}

TEST_F(Discovery, DeliberatelyEndsATextForTheStubAtAUnitWhoseLowByteIsZero) {
  AddStub(kSystemMapi, "D:\\mapi.dll");
  EXPECT_EQ(GetComponentPath(u"{C}\u0100x", u"10\u020031", false), u"D:\\mapi.dll");
  EXPECT_EQ(seen_.stub_questions, Lines{"{C}, 10, 260, 0, zeroed"});
}

TEST_F(Discovery, DeliberatelyWidensTheStubsPathWithTheSignOfEachByte) {
  AddStub(kSystemMapi, "D:\\J\xE4\x80\x7F\xFF");
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), std::u16string(u"D:\\J") + char16_t{0xFFE4} +
                                                       char16_t{0xFF80} + char16_t{0x7F} +
                                                       char16_t{0xFFFF});
}

TEST_F(Discovery, TakesAPathThatFillsTheStubsSpace) {
  AddStub(kSystemMapi, std::string(300, 'x'));
  EXPECT_EQ(GetComponentPath(u"{C}", u"1", false), std::u16string(260, u'x'));
}

// --- installed Outlooks ---

TEST_F(Discovery, AsksForThe64BitOutlookFirst) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"C:\\64\\OUTLOOK.EXE");
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\64\\OUTLOOK.EXE");
  EXPECT_EQ(seen_.installer_questions,
            (Lines{"{A}, outlook.x64.exe, 0, size 0", "{A}, outlook.x64.exe, 0, fetch 18"}));
}

TEST_F(Discovery, DeliberatelyFetchesFromThe64BitOneAgainWhenTheOtherAnswered) {
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\32\\OUTLOOK.EXE");
  EXPECT_EQ(seen_.installer_questions,
            (Lines{"{A}, outlook.x64.exe, 0, size 0", "{A}, outlook.exe, 0, size 0",
                   "{A}, outlook.x64.exe, 0, fetch 18", "{A}, outlook.exe, 0, fetch 18"}));
}

TEST_F(Discovery, FetchesFromThe32BitOneWhenThe64BitFetchFails) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"C:\\Never told", 5);
  AddComponent(u"{A}", u"outlook.exe", u"C:\\Never told", 1610);
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  EXPECT_EQ(LastLines(3),
            (Lines{"%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x64), 5]",
                   "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x86), "
                   "1610]",
                   R"(Exit GetOutlookPath: nothing found\n)"}));
  AddComponent(u"{A}", u"outlook.exe", u"C:\\32\\X.EXE");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"C:\\32\\X.EXE");
}

TEST_F(Discovery, HasNothingFromAnOutlookPathThatIsEmpty) {
  AddComponent(u"{A}", u"outlook.x64.exe", u"");
  EXPECT_EQ(GetOutlookPath(u"{A}"), u"");
  EXPECT_EQ(LastLines(2), (Lines{R"(Exit GetOutlookPath: Path = %ws\n [])",
                                 R"(Exit GetOutlookPath: nothing found\n)"}));
}

TEST_F(Discovery, ReadsOutlooksPathUpToItsEndWhateverSizeTheInstallerTells) {
  const struct {
    std::u16string units;
    std::uint32_t count;
    std::string path;
    const char* fetch;
  } kCases[] = {
      {u"C:\\o.exe", 40, R"(C:\o.exe)", "fetch 41"},
      {std::u16string(u"C:\\a.exe\0.exe", 13), 13, R"(C:\a.exe)", "fetch 14"},
      {std::u16string(50, u'x'), 20, std::string(21, 'x'), "fetch 21"},
      {u"C:\\o.exe", 0xFFFFFFFF, "", "fetch 0"},
  };
  for (const auto& test : kCases) {
    AddComponent(u"{A}", u"outlook.x64.exe", test.units, 0, test.count);
    EXPECT_EQ(Readable(GetOutlookPath(u"{A}")), test.path);
    EXPECT_EQ(seen_.installer_questions.back(),
              std::string("{A}, outlook.x64.exe, 0, ") + test.fetch);
  }
}

TEST_F(Discovery, DeliberatelyNamesTheWrongRoutineWhenOutlooksPathCannotBeSplit) {
  for (const std::size_t length : {257u, 258u}) {  // and two separators and a terminator
    const std::u16string folder = u"C:\\" + std::u16string(length, u'd') + u"\\";
    AddComponent(u"{A}", u"outlook.exe", folder + u"OUTLOOK.EXE");
    EXPECT_EQ(GetInstalledOutlookMAPI(u"{A}"), length == 257 ? folder + u"olmapi32.dll" : u"");
  }
  EXPECT_EQ(LastLines(2), (Lines{"%ws failed with 0x%08X [GetOutlookPath: _wsplitpath_s, 34]",
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
  EXPECT_EQ(seen_.trace.front(), R"(Enter GetInstalledOutlookMAPI\n)");
  EXPECT_EQ(seen_.trace.back(), R"(Exit GetInstalledOutlookMAPI: found %d paths\n [5])");
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
  for (const auto& [name, text] :
       {std::pair(u"DllPathEx", u"C:\\ol_ex.dll"), std::pair(u"DllPath", u"C:\\ol.dll"),
        std::pair(u"MSIComponentID", u"{O}"), std::pair(u"MSIApplicationLCID", u"1033")}) {
    fake_.SetString(Hive::kLocalMachine, kOutlookKey, name, text);
  }
  AddStub(kSystemMapi, "C:\\msi.dll");
  AddComponent(OutlookComponentIds[1], u"outlook.exe", u"C:\\2\\o.exe");
  AddComponent(OutlookComponentIds[4], u"outlook.x64.exe", u"C:\\5\\o.exe");
  EXPECT_EQ(GetMapiCandidatePaths(),
            (std::vector<std::u16string>{Padded(u"C:\\ex.dll"), u"C:\\2\\olmapi32.dll",
                                         u"C:\\5\\olmapi32.dll", Padded(u"C:\\plain.dll"),
                                         u"C:\\msi.dll", kSystemMapi}));
  PreferOutlookClient = true;
  EXPECT_EQ(Texts(GetMapiCandidatePaths()),
            (Lines{R"(C:\ol_ex.dll)", R"(C:\2\olmapi32.dll)", R"(C:\5\olmapi32.dll)",
                   R"(C:\ol.dll)", R"(C:\msi.dll)"}));
  EXPECT_EQ(seen_.stub_questions,
            (Lines{"{C}, 1031, 260, 0, zeroed", "{O}, 1033, 260, 0, zeroed"}));
  UseSystemMapiOnly = true;
  for (const bool is_outlook_preferred : {false, true}) {
    PreferOutlookClient = is_outlook_preferred;
    fake_.ClearCalls();
    EXPECT_EQ(Texts(GetMapiCandidatePaths()), Lines{Readable(kSystemMapi)});
    EXPECT_EQ(fake_.Calls(), Lines{"SystemDirectory(260)"});
  }
}

TEST_F(Discovery, ClosesTheClientsKeyWhenAllSourcesHaveBeenAsked) {
  SetDefaultClient();
  // The system directory is asked for twice: on the way to the installer, and for the system's own
  // library, which is the last source.
  std::vector<std::size_t> open;
  WatchTrace(u"Enter GetSystemDirectory", [&] { open.push_back(fake_.OpenHandles()); });
  static_cast<void>(GetMapiCandidatePaths());
  EXPECT_EQ(open, (std::vector<std::size_t>{1, 1}));
  EXPECT_EQ(fake_.OpenHandles(), 0u);
}

TEST_F(Discovery, AsksForTheSystemDirectoryAfreshForTheSystemsLibrary) {
  EXPECT_EQ(Readable(GetSystemMapiPath()), Readable(kSystemMapi));
  fake_.SetSystemDirectory(u"D:\\sys");
  EXPECT_EQ(GetSystemMapiPath(), u"D:\\sys\\mapi32.dll");
}

// --- loading a candidate ---

TEST_F(Discovery, TriesADuplicateAgain) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"C:\\same.dll");
  SetClientText(u"DllPath", u"C:\\same.dll");
  EXPECT_FALSE(GetDefaultMapiHandle());
  EXPECT_EQ(LastLines(4), (Lines{R"(Trying %ws\n [C:\same.dll])", R"(Trying %ws\n [C:\same.dll])",
                                 R"(Trying %ws\n [C:\Windows\system32\mapi32.dll])",
                                 R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [null])"}));
  const Lines loads = fake_.CallsOf("LoadModule");
  EXPECT_EQ(std::count(loads.begin(), loads.end(), R"(LoadModule(C:\same.dll))"), 2);
}

TEST_F(Discovery, LoadsNothingFromAnEmptyList) {
  PreferOutlookClient = true;
  EXPECT_FALSE(GetDefaultMapiHandle());
  EXPECT_EQ(TraceOf("Trying"), "");
  EXPECT_EQ(seen_.trace.back(), R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [null])");
}

// --- the companion ---

TEST_F(Discovery, DeliberatelyLoadsTheDriveAloneInsteadOfTheCompanion) {
  AddComponent(OutlookComponentIds[2], u"outlook.exe", u"D:\\Office\\o.exe");
  AddEmptyLibrary(u"D:\\Office\\pstprx32.dll");
  EXPECT_FALSE(LoadFromOLMAPIDir(u"pstprx32.dll"));
  EXPECT_EQ(fake_.CallsOf("LoadModule").back(), "LoadModule(D:)");
  EXPECT_EQ(seen_.trace.front(), R"(load: LoadFromOLMAPIDir - loading "%ws"\n [pstprx32.dll])");
  EXPECT_EQ(TraceOf("load: LoadFromOLMAPIDir - loading from"),
            R"(load: LoadFromOLMAPIDir - loading from "%ws"\n [D:])");
}

TEST_F(Discovery, DeliberatelyLoadsNoPathAtAllForAnOutlookOnAServer) {
  EXPECT_FALSE(LoadBesideOutlookMapi(u"\\\\server\\Office\\olmapi32.dll", u"pstprx32.dll"));
  EXPECT_EQ(fake_.Calls(), Lines{"LoadModule()"});
}

TEST_F(Discovery, TriesAllOutlooksForTheCompanion) {
  AddComponent(OutlookComponentIds[0], u"outlook.exe", u"C:\\a\\o.exe");
  AddComponent(OutlookComponentIds[3], u"outlook.exe", u"D:\\a\\o.exe");
  AddComponent(OutlookComponentIds[5], u"outlook.exe", u"E:\\a\\o.exe");
  // Not even a library of this name is loaded: a drive alone names none.
  AddEmptyLibrary(u"C:\\Windows\\system32\\D:");
  EXPECT_FALSE(LoadFromOLMAPIDir(u"pstprx32.dll"));
  const Lines loads = fake_.CallsOf("LoadModule");
  EXPECT_EQ(Lines(loads.end() - 3, loads.end()),
            (Lines{"LoadModule(C:)", "LoadModule(D:)", "LoadModule(E:)"}));
}

TEST_F(Discovery, SkipsAnOutlookWhosePathCannotBeSplitForTheCompanion) {
  EXPECT_FALSE(
      LoadBesideOutlookMapi(u"C:\\" + std::u16string(300, u'd') + u"\\olmapi32.dll", u"p.dll"));
  EXPECT_EQ(fake_.Calls(), Lines{});
  EXPECT_EQ(seen_.trace, Lines{"%ws failed with 0x%08X [LoadFromOLMAPIDir: _wsplitpath_s, 34]"});
}

}  // namespace
}  // namespace zentpost
