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

class Library : public test::MapiSearchTest {
 protected:
  std::string InstalledPath() { return Readable(fake_.ModulePath(GetMAPIHandle())); }
};

// --- installing ---

TEST_F(Library, IsNoneAtFirstAndInstalledWithItsReference) {
  EXPECT_EQ(GetMAPIHandle(), RawModule{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
  EXPECT_EQ(storeProxyHandle, RawModule{});
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(InstalledPath(), Readable(kLibrary));
  EXPECT_EQ(fake_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(MapiHandleGeneration, 2u);
  EXPECT_EQ(seen_.trace.front(), R"(Enter SetMAPIHandle: hinstMAPI = %p\n [a.dll])");
  EXPECT_EQ(seen_.trace.back(), R"(Exit SetMAPIHandle\n)");
}

TEST_F(Library, InstalledFirstStaysAndTheGenerationMovesAllTheSame) {
  SetMAPIHandle(Load(kLibrary));
  std::size_t references = 1;
  WatchTrace(u"Exit SetMAPIHandle", [&] { references = fake_.ModuleReferences(kOther); });
  SetMAPIHandle(Load(kOther));
  EXPECT_EQ(references, 0u) << "not released before the last line";
  EXPECT_EQ(InstalledPath(), Readable(kLibrary));
  EXPECT_EQ(fake_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(fake_.ModuleReferences(kOther), 0u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

TEST_F(Library, InstalledTwiceKeepsOneReference) {
  SetMAPIHandle(Load(kLibrary));
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(fake_.ModuleReferences(kLibrary), 1u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

TEST_F(Library, IsReleasedWithoutMovingTheGeneration) {
  SetMAPIHandle(Load(kLibrary));
  seen_.trace.clear();
  SetMAPIHandle(Module());
  EXPECT_EQ(GetMAPIHandle(), RawModule{});
  EXPECT_EQ(fake_.ModuleReferences(kLibrary), 0u);
  EXPECT_EQ(MapiHandleGeneration, 2u);
  EXPECT_EQ(seen_.trace,
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
  seen_.trace.clear();
  SetMAPIHandle(Load(kLibrary));
  EXPECT_EQ(fake_.ModuleReferences(kOther), 1u);
  EXPECT_EQ(seen_.trace,
            (Lines{R"(Enter SetMAPIHandle: hinstMAPI = %p\n [a.dll])", R"(Exit SetMAPIHandle\n)"}));
  SetMAPIHandle(Module());
  EXPECT_EQ(storeProxyHandle, RawModule{});
  EXPECT_EQ(fake_.ModuleReferences(kOther), 0u);
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
  EXPECT_EQ(fake_.ModuleReferences(u"D:\\Office\\pstprx32.dll"), 0u);
  // So that it is looked for again.
  seen_.trace.clear();
  SetMAPIHandle(Load(kOther));
  EXPECT_EQ(seen_.trace.at(1), R"(load: LoadFromOLMAPIDir - loading "%ws"\n [pstprx32.dll])");
}

// --- the search ---

TEST_F(Library, IsNotSearchedForWhenItIsInstalled) {
  SetMAPIHandle(Load(kLibrary));
  seen_.trace.clear();
  fake_.ClearCalls();
  EXPECT_EQ(GetPrivateMAPI(), GetMAPIHandle());
  EXPECT_EQ(fake_.Calls(), Lines{});
  EXPECT_EQ(seen_.trace, (Lines{R"(Enter GetPrivateMAPI\n)",
                                R"(Exit GetPrivateMAPI, hinstPrivateMAPI = %p\n [a.dll])"}));
}

TEST_F(Library, LoadedByOutlookAlreadyComesBeforeThatOfAnOlderClient) {
  const Module msmapi = Load(u"D:\\Old\\msmapi32.dll");
  {
    const Module olmapi = Load(u"D:\\Office\\olmapi32.dll");
    EXPECT_EQ(GetPrivateMAPI(), olmapi.Get());
    EXPECT_EQ(fake_.ModuleReferences(u"D:\\Office\\olmapi32.dll"), 2u);
    EXPECT_EQ(fake_.ModuleReferences(u"D:\\Old\\msmapi32.dll"), 1u);
    SetMAPIHandle(Module());
  }
  fake_.ClearCalls();
  EXPECT_EQ(GetPrivateMAPI(), msmapi.Get());
  EXPECT_EQ(fake_.CallsOf("GetModuleHandleExW"), (Lines{"GetModuleHandleExW(0x0, olmapi32.dll)",
                                                        "GetModuleHandleExW(0x0, msmapi32.dll)"}));
  EXPECT_EQ(fake_.ModuleReferences(u"D:\\Old\\msmapi32.dll"), 2u);
  EXPECT_EQ(fake_.CallsOf("OpenKey"), Lines{});
  EXPECT_EQ(seen_.trace.back(),
            R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [msmapi32.dll])");
}

}  // namespace
}  // namespace zentpost
