#include "mapiload/entry_points.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "platform/call.h"
#include "testing/fake_mapi.h"
#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Module;
using Exports = platform::fake::Machine::Exports;
using Lines = std::vector<std::string>;

constexpr char16_t kLibrary[] = u"C:\\Mail\\a.dll";
constexpr char16_t kOther[] = u"C:\\Mail\\b.dll";

// Arguments that only the right call has. None is ever looked into.
template <class T>
T* Pointer(std::uintptr_t number) {
  return reinterpret_cast<T*>(number);
}

// What another library has in the place of a function.
std::uint32_t PLATFORM_STDCALL Another(void* /*argument*/) {
  return 77;
}
const auto kAnother = reinterpret_cast<platform::Procedure>(Another);

std::string Void(const std::function<void()>& call) {
  call();
  return "nothing";
}

// One entry point: how it is called here, what then reaches the library, what it gives, and what
// comes back when the library cannot be reached.
struct Entry {
  std::string name;
  std::string decorated_name;  // in 32 bits
  std::function<std::string()> call;
  std::string reached;
  std::int32_t result;
  std::string unavailable;

  std::string Result() const {
    return unavailable == "nothing"   ? unavailable
           : name == "MAPIFreeBuffer" ? std::to_string(static_cast<std::uint32_t>(result))
                                      : std::to_string(result);
  }
};

const std::string kCallFailed = "-2147467259";  // 0x80004005

const std::vector<Entry>& Entries() {
  static const std::vector<Entry> entries = {
      {"MAPIInitialize", "MAPIInitialize@4",
       [] { return std::to_string(MAPIInitialize(Pointer<void>(0x11))); }, "MAPIInitialize(0x11)",
       101, kCallFailed},
      {"MAPILogonEx", "MAPILogonEx@20",
       [] {
         return std::to_string(MAPILogonEx(0x21, Pointer<char16_t>(0x22), Pointer<char16_t>(0x23),
                                           0x24, Pointer<IMAPISession*>(0x25)));
       },
       "MAPILogonEx(0x21, 0x22, 0x23, 0x24, 0x25)", MakeResult(0x80040111), kCallFailed},
      {"MAPIOpenFormMgr", "MAPIOpenFormMgr@8",
       [] {
         return std::to_string(
             MAPIOpenFormMgr(Pointer<IMAPISession>(0x31), Pointer<IMAPIFormMgr*>(0x32)));
       },
       "MAPIOpenFormMgr(0x31, 0x32)", 103, kCallFailed},
      {"MAPIAdminProfiles", "MAPIAdminProfiles@8",
       [] { return std::to_string(MAPIAdminProfiles(0x80000000, Pointer<IProfAdmin*>(0x42))); },
       "MAPIAdminProfiles(0x80000000, 0x42)", 104, kCallFailed},
      {"HrQueryAllRows", "HrQueryAllRows@24",
       [] {
         return std::to_string(HrQueryAllRows(
             Pointer<IMAPITable>(0x51), Pointer<SPropTagArray>(0x52), Pointer<SRestriction>(0x53),
             Pointer<SSortOrderSet>(0x54), -55, Pointer<SRowSet*>(0x56)));
       },
       "HrQueryAllRows(0x51, 0x52, 0x53, 0x54, 0xffffffc9, 0x56)", 105, kCallFailed},
      {"FreeProws", "FreeProws@4", [] { return Void([] { FreeProws(Pointer<SRowSet>(0x61)); }); },
       "FreeProws(0x61)", 0, "nothing"},
      {"FreePadrlist", "FreePadrlist@4",
       [] { return Void([] { FreePadrlist(Pointer<ADRLIST>(0x71)); }); }, "FreePadrlist(0x71)", 0,
       "nothing"},
      {"MAPIAllocateBuffer", "MAPIAllocateBuffer@8",
       [] { return std::to_string(MAPIAllocateBuffer(0xFFFFFFFF, Pointer<void*>(0x82))); },
       "MAPIAllocateBuffer(0xffffffff, 0x82)", MAPI_E_NOT_ENOUGH_MEMORY, kCallFailed},
      {"MAPIFreeBuffer", "MAPIFreeBuffer@4",
       [] { return std::to_string(MAPIFreeBuffer(Pointer<void>(0x91))); }, "MAPIFreeBuffer(0x91)",
       MakeResult(0xFFFFFFFF), "0"},
  };
  return entries;
}

class EntryPoints : public test::MapiSearchTest {
 protected:
  EntryPoints() {
    client_.is_inert = true;
    for (const Entry& entry : Entries()) {
      client_.Plan({.call = entry.name, .from = true, .code = entry.result});
    }
  }

  void Install(const char16_t* path, Exports exports) {
    machine_.AddModule(path, std::move(exports));
    Module module;
    ASSERT_EQ(platform::LoadModule(path, module), platform::kSuccess);
    SetMAPIHandle(std::move(module));
  }
  // The mail client that a search finds.
  void Register(const char16_t* path, Exports exports) {
    SetDefaultClient();
    SetClientText(u"DllPathEx", path);
    machine_.AddModule(path, std::move(exports));
  }
  // What reached the library since this was asked last.
  Lines Reached() {
    const Lines all = client_.Calls();
    Lines newest(all.begin() + static_cast<std::ptrdiff_t>(seen_), all.end());
    seen_ = all.size();
    return newest;
  }
  void ExpectAllWork() {
    for (const Entry& entry : Entries()) {
      EXPECT_EQ(entry.call(), entry.Result()) << entry.name;
      EXPECT_EQ(Reached(), Lines{entry.reached});
    }
  }

 private:
  fake_mapi::Client client_;
  std::size_t seen_ = 0;
};

TEST_F(EntryPoints, FindTheLibraryAndForwardWhatTheyTakeAndGive) {
  Register(kLibrary, test::MapiExports());
  ExpectAllWork();
  EXPECT_EQ(test::Readable(machine_.ModulePath(GetMAPIHandle())), R"(C:\Mail\a.dll)");
}

TEST_F(EntryPoints, EachFindsTheLibraryByItself) {
  for (const Entry& entry : Entries()) {
    ForgetMapiLoading();
    machine_.Reset();
    Register(kLibrary, test::MapiExports());
    EXPECT_EQ(entry.call(), entry.Result()) << entry.name;
  }
}

TEST_F(EntryPoints, LookUpTheirPlainNamesOnceEach) {
  Register(kLibrary, test::MapiExports());
  ExpectAllWork();
  Lines expected = {R"(FindProcedure(C:\Windows\system32\kernel32.dll, GetModuleHandleExW))"};
  for (const Entry& entry : Entries()) {
    expected.push_back(R"(FindProcedure(C:\Mail\a.dll, )" + entry.name + ")");
  }
  EXPECT_EQ(machine_.CallsOf("FindProcedure"), expected);
}

// The names by which they look for a function that the library lacks.
Lines LookedFor(const Entry& entry) {
  Lines names = {R"(FindProcedure(C:\Mail\a.dll, )" + entry.name + ")"};
  if (PLATFORM_STDCALL_IS_DECORATED != 0) {
    names.push_back(R"(FindProcedure(C:\Mail\a.dll, )" + entry.decorated_name + ")");
  }
  return names;
}

TEST_F(EntryPoints, LookForTheLinkersNameIn32BitsAloneAndOnceWhereThePlainOneIsMissing) {
  Install(kLibrary, {});
  for (const Entry& entry : Entries()) {
    machine_.ClearCalls();
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
    EXPECT_EQ(machine_.Calls(), LookedFor(entry));
  }
}

TEST_F(EntryPoints, FindIn32BitsWhatIsExportedUnderTheLinkersNameAlone) {
  Exports exports;
  const Exports plain = test::MapiExports();
  for (const Entry& entry : Entries()) {
    exports[entry.decorated_name] = plain.at(entry.name);
  }
  Install(kLibrary, std::move(exports));
  if (PLATFORM_STDCALL_IS_DECORATED != 0) {
    ExpectAllWork();
    return;
  }
  for (const Entry& entry : Entries()) {
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
  }
}

TEST_F(EntryPoints, PreferThePlainNameToTheLinkers) {
  Exports exports = test::MapiExports();
  for (const Entry& entry : Entries()) {
    // Would give another result, and reach another function.
    exports[entry.decorated_name] = kAnother;
  }
  Install(kLibrary, std::move(exports));
  ExpectAllWork();
}

TEST_F(EntryPoints, OnceBoundOnlyForward) {
  Register(kLibrary, test::MapiExports());
  ExpectAllWork();
  machine_.ClearCalls();
  ClearTrace();
  ExpectAllWork();
  EXPECT_EQ(machine_.Calls(), Lines{});
  EXPECT_EQ(Trace(), Lines{});
}

TEST_F(EntryPoints, WithoutALibraryGiveTheirFixedFailureAndSearchAgainEachTime) {
  for (int round = 0; round < 2; ++round) {
    for (const Entry& entry : Entries()) {
      machine_.ClearCalls();
      ClearTrace();
      EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
      EXPECT_EQ(machine_.CallsOf("GetModuleHandleExW"),
                (Lines{"GetModuleHandleExW(0x0, olmapi32.dll)",
                       "GetModuleHandleExW(0x0, msmapi32.dll)"}));
      EXPECT_EQ(machine_.CallsOf("OpenKey").size(), 1u);
      EXPECT_EQ(machine_.CallsOf("LoadModule").back(),
                R"(LoadModule(C:\Windows\system32\mapi32.dll))");
      EXPECT_EQ(Trace().front(), R"(Enter GetPrivateMAPI\n)");
      EXPECT_EQ(Trace().back(), R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [null])");
    }
  }
  EXPECT_EQ(Reached(), Lines{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
}

TEST_F(EntryPoints, WithoutALibraryWriteNothingOut) {
  IMAPISession* session = Pointer<IMAPISession>(1);
  IMAPIFormMgr* manager = Pointer<IMAPIFormMgr>(2);
  IProfAdmin* admin = Pointer<IProfAdmin>(3);
  SRowSet* rows = Pointer<SRowSet>(4);
  void* buffer = Pointer<void>(5);
  EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, 0, &session), MAPI_E_CALL_FAILED);
  EXPECT_EQ(MAPIOpenFormMgr(session, &manager), MAPI_E_CALL_FAILED);
  EXPECT_EQ(MAPIAdminProfiles(0, &admin), MAPI_E_CALL_FAILED);
  EXPECT_EQ(HrQueryAllRows(nullptr, nullptr, nullptr, nullptr, 0, &rows), MAPI_E_CALL_FAILED);
  EXPECT_EQ(MAPIAllocateBuffer(1, &buffer), MAPI_E_CALL_FAILED);
  EXPECT_EQ(session, Pointer<IMAPISession>(1));
  EXPECT_EQ(manager, Pointer<IMAPIFormMgr>(2));
  EXPECT_EQ(admin, Pointer<IProfAdmin>(3));
  EXPECT_EQ(rows, Pointer<SRowSet>(4));
  EXPECT_EQ(buffer, Pointer<void>(5));
}

TEST_F(EntryPoints, WorkOnceALibraryTurnsUp) {
  for (const Entry& entry : Entries()) {
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
  }
  machine_.AddModule(kSystemMapi, test::MapiExports());
  ExpectAllWork();
}

TEST_F(EntryPoints, FailAloneWhereTheLibraryLacksTheirExport) {
  for (const Entry& missing : Entries()) {
    ForgetMapiLoading();
    machine_.Reset();
    Register(kLibrary, test::MapiExports({missing.name}));
    for (int round = 0; round < 2; ++round) {
      for (const Entry& entry : Entries()) {
        const bool is_missing = entry.name == missing.name;
        EXPECT_EQ(entry.call(), is_missing ? entry.unavailable : entry.Result())
            << entry.name << " without " << missing.name;
        EXPECT_EQ(Reached(), is_missing ? Lines{} : Lines{entry.reached});
      }
    }
    // Looked for once: the library that is installed does not change.
    const Lines lookups = machine_.CallsOf("FindProcedure");
    EXPECT_EQ(std::count(lookups.begin(), lookups.end(),
                         R"(FindProcedure(C:\Mail\a.dll, )" + missing.name + ")"),
              1);
  }
}

TEST_F(EntryPoints, BindByThemselvesAlthoughAnotherIsBoundAlready) {
  Install(kLibrary, test::MapiExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
  machine_.ClearCalls();
  EXPECT_EQ(MAPIInitialize(nullptr), 101);
  EXPECT_EQ(machine_.Calls(), Lines{R"(FindProcedure(C:\Mail\a.dll, MAPIInitialize))"});
}

TEST_F(EntryPoints, LookTheirFunctionsUpAgainAfterALaterInstallation) {
  Install(kLibrary, test::MapiExports());
  ExpectAllWork();
  Install(kOther, {});  // is refused
  machine_.ClearCalls();
  ExpectAllWork();
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 9u);
  ExpectAllWork();
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 9u);
}

TEST_F(EntryPoints, FindAnExportThatWasMissingBeforeALaterInstallation) {
  Install(kLibrary, {});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
  machine_.AddModule(kLibrary, test::MapiExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
  Install(kOther, {});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
}

TEST_F(EntryPoints, CallNothingOnceTheLibraryIsGone) {
  Install(kLibrary, test::MapiExports());
  ExpectAllWork();
  SetMAPIHandle(Module());
  for (const Entry& entry : Entries()) {
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
  }
  EXPECT_EQ(Reached(), Lines{});
}

TEST_F(EntryPoints, BindToTheNextLibraryOnceTheFirstIsGone) {
  Install(kLibrary, test::MapiExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
  SetMAPIHandle(Module());
  Install(kOther, {{"MAPIFreeBuffer", kAnother}});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 77u);
  EXPECT_EQ(MAPIInitialize(nullptr), MAPI_E_CALL_FAILED);
}

TEST_F(EntryPoints, GiveTheirFixedFailureWhenTheLookupFails) {
  Install(kLibrary, test::MapiExports());
  machine_.FailCallOf("FindProcedure", 0, platform::kGeneralFailure);
  EXPECT_EQ(MAPIInitialize(nullptr), MAPI_E_CALL_FAILED);
  EXPECT_TRUE(machine_.FaultTaken());
  EXPECT_EQ(Reached(), Lines{});
}

}  // namespace
}  // namespace zentpost
