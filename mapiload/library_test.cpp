#include "mapiload/library.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "mapiload/discovery.h"
#include "mapiload/process_state.h"
#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::RawModule;
using test::Readable;
using Lines = std::vector<std::string>;

constexpr char16_t kLibrary[] = u"C:\\Mail\\a.dll";
constexpr char16_t kOther[] = u"C:\\Mail\\b.dll";

const std::string kEnterComponentPath =
    R"(Enter GetComponentPath: szComponent = %ws, szQualifier = %ws, fInstall = 0x%08X\n)";

class Library : public test::MapiSearchTest {
 protected:
  Module Load(const char16_t* path) {
    AddEmptyLibrary(path);
    Module module;
    EXPECT_EQ(platform::LoadModule(path, module), platform::kSuccess);
    return module;
  }
  std::string InstalledPath() { return Readable(machine_.ModulePath(GetMAPIHandle())); }
};

// --- installing ---

TEST_F(Library, IsNoneAtFirst) {
  EXPECT_EQ(GetMAPIHandle(), RawModule{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
  EXPECT_EQ(storeProxyHandle, RawModule{});
}

TEST_F(Library, IsInstalledWithItsReference) {
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(InstalledPath(), Readable(kLibrary));
  EXPECT_EQ(machine_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(MapiHandleGeneration, 2u);
  EXPECT_EQ(Trace().front(), R"(Enter SetMAPIHandle: hinstMAPI = %p\n [a.dll])");
  EXPECT_EQ(Trace().back(), R"(Exit SetMAPIHandle\n)");
}

TEST_F(Library, InstalledFirstStaysAndTheGenerationMovesAllTheSame) {
  SetMAPIHandle(Load(kLibrary));
  std::size_t references = 1;
  WatchTrace(u"Exit SetMAPIHandle", [&] { references = machine_.ModuleReferences(kOther); });
  SetMAPIHandle(Load(kOther));
  EXPECT_EQ(references, 0u) << "not released before the last line";
  EXPECT_EQ(InstalledPath(), Readable(kLibrary));
  EXPECT_EQ(machine_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(machine_.ModuleReferences(kOther), 0u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

TEST_F(Library, InstalledTwiceKeepsOneReference) {
  SetMAPIHandle(Load(kLibrary));
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(machine_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

TEST_F(Library, IsReleasedWithoutMovingTheGeneration) {
  SetMAPIHandle(Load(kLibrary));
  ClearTrace();
  SetMAPIHandle(Module());
  EXPECT_EQ(GetMAPIHandle(), RawModule{});
  EXPECT_EQ(machine_.ModuleReferences(kLibrary), 0u);
  EXPECT_EQ(MapiHandleGeneration, 2u);
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter SetMAPIHandle: hinstMAPI = %p\n [null])", R"(Exit SetMAPIHandle\n)"}));
  SetMAPIHandle(Module());  // nothing is there any more
  EXPECT_EQ(MapiHandleGeneration, 2u);
  SetMAPIHandle(Load(kOther));
  EXPECT_EQ(InstalledPath(), Readable(kOther));
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

// --- the companion ---

// In effect there never is one; were it there, it would be kept and given back.
TEST_F(Library, LooksForTheCompanionOnlyWhileThereIsNone) {
  storeProxyHandle = Load(kOther).Detach();
  ClearTrace();
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(machine_.ModuleReferences(kOther), 1u);
  EXPECT_EQ(Trace(),
            (Lines{R"(Enter SetMAPIHandle: hinstMAPI = %p\n [a.dll])", R"(Exit SetMAPIHandle\n)"}));
  SetMAPIHandle(Module());
  EXPECT_EQ(storeProxyHandle, RawModule{});
  EXPECT_EQ(machine_.ModuleReferences(kOther), 0u);
}

TEST_F(Library, IsInstalledOnlyWhenTheCompanionHasBeenLookedFor) {
  int looks = 0;
  WatchTrace(u"LoadFromOLMAPIDir - loading \"", [&] {
    ++looks;
    EXPECT_EQ(GetMAPIHandle(), RawModule{});
    EXPECT_EQ(MapiHandleGeneration, 1u);
  });
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(looks, 1);
}

TEST_F(Library, DeliberatelyNeverFindsTheCompanion) {
  AddComponent(OutlookComponentIds[0], u"outlook.exe", u"D:\\Office\\o.exe");
  AddEmptyLibrary(u"D:\\Office\\pstprx32.dll");
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(storeProxyHandle, RawModule{});
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Office\\pstprx32.dll"), 0u);
  // So that it is looked for again.
  ClearTrace();
  SetMAPIHandle(Load(kOther));
  EXPECT_EQ(Trace().at(1), R"(load: LoadFromOLMAPIDir - loading "%ws"\n [pstprx32.dll])");
}

// --- the search ---

TEST_F(Library, IsNotSearchedForWhenItIsInstalled) {
  SetMAPIHandle(Load(kLibrary));
  ClearTrace();
  machine_.ClearCalls();
  EXPECT_EQ(GetPrivateMAPI(), GetMAPIHandle());
  EXPECT_EQ(machine_.Calls(), Lines{});
  EXPECT_EQ(Trace(), (Lines{R"(Enter GetPrivateMAPI\n)",
                            R"(Exit GetPrivateMAPI, hinstPrivateMAPI = %p\n [a.dll])"}));
}

TEST_F(Library, LoadedByOutlookAlreadyIsTakenWithAReferenceAndWithoutAsking) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", kOther);
  AddEmptyLibrary(kOther);
  const Module msmapi = Load(u"D:\\Old\\msmapi32.dll");
  const Module olmapi = Load(u"D:\\Office\\olmapi32.dll");
  EXPECT_EQ(GetPrivateMAPI(), olmapi.Get());
  EXPECT_EQ(GetMAPIHandle(), olmapi.Get());
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Office\\olmapi32.dll"), 2u);
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Old\\msmapi32.dll"), 1u);
  EXPECT_EQ(machine_.ModuleReferences(kOther), 0u);
  EXPECT_EQ(machine_.CallsOf("OpenKey"), Lines{});
  EXPECT_EQ(machine_.CallsOf("QueryValue"), Lines{});
  EXPECT_EQ(MapiHandleGeneration, 2u);
  EXPECT_EQ(Trace().back(),
            R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [olmapi32.dll])");
}

TEST_F(Library, OfAnOlderClientThatIsLoadedAlreadyComesNext) {
  const Module msmapi = Load(u"D:\\Old\\msmapi32.dll");
  EXPECT_EQ(GetPrivateMAPI(), msmapi.Get());
  EXPECT_EQ(
      machine_.CallsOf("GetModuleHandleExW"),
      (Lines{"GetModuleHandleExW(0x0, olmapi32.dll)", "GetModuleHandleExW(0x0, msmapi32.dll)"}));
  EXPECT_EQ(machine_.ModuleReferences(u"D:\\Old\\msmapi32.dll"), 2u);
  EXPECT_EQ(machine_.CallsOf("OpenKey"), Lines{});
  EXPECT_EQ(Trace().back(),
            R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [msmapi32.dll])");
}

TEST_F(Library, IsLoadedFromTheCandidatesAndInstalled) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", kOther);
  AddEmptyLibrary(kOther);
  const RawModule found = GetPrivateMAPI();
  EXPECT_EQ(machine_.ModulePath(found), kOther);
  EXPECT_EQ(GetMAPIHandle(), found);
  EXPECT_EQ(machine_.ModuleReferences(kOther), 1u);
  EXPECT_EQ(MapiHandleGeneration, 2u);
}

TEST_F(Library, ThatIsNowhereIsSearchedForAgainFromTheStart) {
  EXPECT_EQ(GetPrivateMAPI(), RawModule{});
  const Lines first = Trace();
  ClearTrace();
  machine_.ClearCalls();
  EXPECT_EQ(GetPrivateMAPI(), RawModule{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
  EXPECT_EQ(machine_.CallsOf("GetModuleHandleExW").size(), 2u);
  EXPECT_EQ(machine_.CallsOf("OpenKey").size(), 1u);
  EXPECT_EQ(Trace().size(), first.size() - 4);  // the kernel's function is bound by now
  AddEmptyLibrary(kSystemMapi);
  EXPECT_EQ(machine_.ModulePath(GetPrivateMAPI()), kSystemMapi);
}

TEST_F(Library, SearchTracesItsWholeWay) {
  SetDefaultClient();
  SetClientText(u"DllPathEx", u"%Mail%\\ex.dll", platform::kRegExpandSz);
  machine_.SetVariable(u"Mail", u"C:\\Mail");
  SetClientText(u"MSIComponentID", u"{C}");
  SetClientText(u"MSIApplicationLCID", u"1031");
  AddStub(kSystemMapi, "C:\\Mail\\msi.dll");
  AddEmptyLibrary(u"C:\\Mail\\msi.dll");
  AddEmptyLibrary(kInstaller);  // without the function
  static_cast<void>(GetPrivateMAPI());

  // What an installer that cannot be bound makes of one category.
  const std::string no_function =
      "load: LoadProc: failed to load \"%ws\" from \"%ws\"\\n [MsiProvideQualifiedComponentW, "
      "msi.dll]";
  const auto category = [&](const char* id, bool first) {
    Lines lines = {R"(Enter GetInstalledOutlookMAPI(%s)\n [)" + std::string(id) + "]",
                   R"(Enter GetOutlookPath: szCategory = %ws\n [)" + std::string(id) + "]"};
    if (first) {
      lines.push_back(R"(load: LoadFromSystemDir - loading "%ws"\n [msi.dll])");
      lines.push_back(
          R"(load: LoadFromSystemDir - loading from "%ws"\n [C:\Windows\system32\msi.dll])");
    }
    const Lines rest = {
        no_function,
        "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x64), 2147500037]",
        no_function,
        "%ws failed with 0x%08X [GetOutlookPath: MsiProvideQualifiedComponent(x86), 2147500037]",
        R"(Exit GetOutlookPath: nothing found\n)",
        R"(Exit GetInstalledOutlookMAPI: found nothing\n)"};
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
  };
  constexpr const char* kCategories[] = {
      "{5812C571-53F0-4467-BEFA-0A4F47A9437C}", "{E83B4360-C208-4325-9504-0D23003A74A5}",
      "{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}", "{24AAE126-0911-478F-A019-07B875EB9996}",
      "{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}", "{BC174BAD-2F53-4855-A1D5-1D575C19B1EA}"};

  Lines expected = {
      R"(Enter GetPrivateMAPI\n)",
      R"(Enter AttachToMAPIDll: wzMapiDll = %ws\n [olmapi32.dll])",
      R"(load: LoadFromSystemDir - loading "%ws"\n [kernel32.dll])",
      R"(Enter GetSystemDirectory\n)",
      R"(Exit GetSystemDirectory: found %ws\n [C:\Windows\system32])",
      R"(load: LoadFromSystemDir - loading from "%ws"\n [C:\Windows\system32\kernel32.dll])",
      R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n [null])",
      R"(Enter AttachToMAPIDll: wzMapiDll = %ws\n [msmapi32.dll])",
      R"(Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n [null])",
      R"(Enter GetDefaultMapiHandle\n)",
      R"(Enter GetHKeyMapiClient (%ws)\n [])",
      R"(GetHKeyMapiClient: HKLM\%ws = %ws\n [Software\Clients\Mail, Some Client])",
      R"(GetHKeyMapiClient: pwzProvider = %ws\n [Some Client])",
      R"(Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n [true])",
      R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPathEx])",
      R"(RegQueryWszExpand: rgchValue = %ws\n [%Mail%\ex.dll])",
      R"(RegQueryWszExpand: rgchValue(expanded) = %ws\n [C:\Mail\ex.dll])",
      R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [0])",
      R"(Enter GetInstalledOutlookMAPI\n)"};
  const auto append = [&](const Lines& lines) {
    expected.insert(expected.end(), lines.begin(), lines.end());
  };
  for (const char* const id : kCategories) {
    append(category(id, id == kCategories[0]));
  }
  append({R"(Exit GetInstalledOutlookMAPI: found %d paths\n [0])",
          R"(Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n [handle, DllPath])",
          R"(Exit RegQueryWszExpand: dwErr = 0x%08X\n [2])", R"(Enter GetMailClientFromMSIData\n)",
          kEnterComponentPath + " [{C}, 1031, 0]",
          R"(GetComponentPath: path = %ws\n [C:\Mail\msi.dll])",
          R"(Exit GetComponentPath: fReturn = 0x%08X\n [1])",
          R"(Exit GetMailClientFromMSIData: szPath = %ws\n [C:\Mail\msi.dll])",
          R"(Enter GetSystemDirectory\n)",
          R"(Exit GetSystemDirectory: found %ws\n [C:\Windows\system32])",
          R"(Trying %ws\n [C:\Mail\ex.dll])", R"(Trying %ws\n [C:\Mail\msi.dll])",
          R"(Exit GetDefaultMapiHandle: hinstMapi = %p\n [msi.dll])",
          R"(Enter SetMAPIHandle: hinstMAPI = %p\n [msi.dll])",
          R"(load: LoadFromOLMAPIDir - loading "%ws"\n [pstprx32.dll])"});
  for (const char* const id : kCategories) {
    append(category(id, false));
  }
  append({R"(Exit SetMAPIHandle\n)",
          R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [msi.dll])"});
  EXPECT_EQ(Trace(), expected);
}

// --- what tests set back ---

TEST_F(Library, ForgottenIsAsAtTheStart) {
  AddEmptyLibrary(kSystemMapi);
  AddInstaller();
  ASSERT_NE(GetPrivateMAPI(), RawModule{});
  const Lines first = Trace();
  ForgetMapiLoading();
  EXPECT_EQ(GetMAPIHandle(), RawModule{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
  EXPECT_EQ(machine_.ModuleReferences(), 0u);
  ClearTrace();
  ASSERT_NE(GetPrivateMAPI(), RawModule{});
  EXPECT_EQ(Trace(), first);
}

}  // namespace
}  // namespace zentpost
