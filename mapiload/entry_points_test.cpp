#include "mapiload/entry_points.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "platform/call.h"
#include "testing/entry_points.h"
#include "testing/fake_mapi.h"
#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Module;
using test::CallEntryPoint;
using test::EntryPoint;
using test::kEntryPoints;
using test::Pointer;
using Exports = platform::fake::FakePlatform::Exports;
using Lines = std::vector<std::string>;

constexpr char16_t kLibrary[] = u"C:\\Mail\\a.dll";
constexpr char16_t kOther[] = u"C:\\Mail\\b.dll";

// What another library has in the place of a function.
std::uint32_t PLATFORM_STDCALL Another(void* /*argument*/) {
  return 77;
}
const auto kAnother = reinterpret_cast<platform::Procedure>(Another);

class EntryPoints : public test::MapiSearchTest {
 protected:
  EntryPoints() {
    client_.is_inert = true;
    for (const EntryPoint& entry : kEntryPoints) {
      client_.Plan({.call = entry.name, .from = true, .code = MakeResult(entry.result)});
    }
  }

  void Install(const char16_t* path, Exports exports) {
    SetMAPIHandle(Load(path, std::move(exports)));
  }
  // The mail client that a search finds.
  void Register(Exports exports) {
    SetDefaultClient();
    SetClientText(u"DllPathEx", kLibrary);
    fake_.AddModule(kLibrary, std::move(exports));
  }
  // Calls all of them, of which `missing` does not reach the library; "all": none of them does.
  void ExpectAllWorkBut(const std::string& missing) {
    for (const EntryPoint& entry : kEntryPoints) {
      const bool is_reached = missing != "all" && missing != entry.name;
      const std::size_t calls_before = client_.Calls().size();
      EXPECT_EQ(CallEntryPoint(entry.name), is_reached ? entry.result : entry.unavailable)
          << entry.name << " without " << missing;
      const Lines calls = client_.Calls();
      EXPECT_EQ(Lines(calls.begin() + static_cast<std::ptrdiff_t>(calls_before), calls.end()),
                is_reached ? Lines{entry.reached} : Lines{});
    }
  }
  void ExpectAllWork() { ExpectAllWorkBut("none"); }
  void ExpectNoneWorks() { ExpectAllWorkBut("all"); }

  fake_mapi::Client client_;
};

TEST_F(EntryPoints, FindTheLibraryAndForwardWhatTheyTakeAndGive) {
  Register(test::MapiExports());
  ExpectAllWork();
  EXPECT_EQ(test::Readable(fake_.ModulePath(GetMAPIHandle())), R"(C:\Mail\a.dll)");
  // Each has looked up its plain name once.
  Lines lookups = {R"(FindProcedure(C:\Windows\system32\kernel32.dll, GetModuleHandleExW))"};
  for (const EntryPoint& entry : kEntryPoints) {
    lookups.push_back(std::string(R"(FindProcedure(C:\Mail\a.dll, )") + entry.name + ")");
  }
  EXPECT_EQ(fake_.CallsOf("FindProcedure"), lookups);
  // Once bound they only forward.
  fake_.ClearCalls();
  seen_.trace.clear();
  ExpectAllWork();
  EXPECT_EQ(fake_.Calls(), Lines{});
  EXPECT_EQ(seen_.trace, Lines{});
}

TEST_F(EntryPoints, EachFindsTheLibraryByItself) {
  for (const EntryPoint& entry : kEntryPoints) {
    ForgetMapiLoading();
    fake_.Reset();
    Register(test::MapiExports());
    EXPECT_EQ(CallEntryPoint(entry.name), entry.result) << entry.name;
  }
}

TEST_F(EntryPoints, LookForTheLinkersNameIn32BitsAloneAndOnceWhereThePlainOneIsMissing) {
  Install(kLibrary, {});
  for (const EntryPoint& entry : kEntryPoints) {
    Lines lookups = {std::string(R"(FindProcedure(C:\Mail\a.dll, )") + entry.name + ")"};
    if (PLATFORM_STDCALL_IS_DECORATED != 0) {
      lookups.push_back(std::string(R"(FindProcedure(C:\Mail\a.dll, )") + entry.decorated_name +
                        ")");
    }
    fake_.ClearCalls();
    EXPECT_EQ(CallEntryPoint(entry.name), entry.unavailable) << entry.name;
    EXPECT_EQ(CallEntryPoint(entry.name), entry.unavailable) << entry.name;
    EXPECT_EQ(fake_.Calls(), lookups);
  }
}

TEST_F(EntryPoints, FindIn32BitsWhatIsExportedUnderTheLinkersNameAlone) {
  Exports exports;
  const Exports plain = test::MapiExports();
  for (const EntryPoint& entry : kEntryPoints) {
    exports[entry.decorated_name] = plain.at(entry.name);
  }
  Install(kLibrary, std::move(exports));
  ExpectAllWorkBut(PLATFORM_STDCALL_IS_DECORATED != 0 ? "none" : "all");
}

TEST_F(EntryPoints, PreferThePlainNameToTheLinkers) {
  Exports exports = test::MapiExports();
  for (const EntryPoint& entry : kEntryPoints) {
    // Would give another result, and reach another function.
    exports[entry.decorated_name] = kAnother;
  }
  Install(kLibrary, std::move(exports));
  ExpectAllWork();
}

TEST_F(EntryPoints, WithoutALibraryGiveTheirFixedFailureAndSearchAgainEachTime) {
  for (int round = 0; round < 2; ++round) {
    for (const EntryPoint& entry : kEntryPoints) {
      fake_.ClearCalls();
      seen_.trace.clear();
      EXPECT_EQ(CallEntryPoint(entry.name), entry.unavailable) << entry.name;
      EXPECT_EQ(fake_.CallsOf("GetModuleHandleExW"),
                (Lines{"GetModuleHandleExW(0x0, olmapi32.dll)",
                       "GetModuleHandleExW(0x0, msmapi32.dll)"}));
      EXPECT_EQ(fake_.CallsOf("OpenKey").size(), 1u);
      EXPECT_EQ(fake_.CallsOf("LoadModule").back(),
                R"(LoadModule(C:\Windows\system32\mapi32.dll))");
      EXPECT_EQ(seen_.trace.front(), R"(Enter GetPrivateMAPI\n)");
      EXPECT_EQ(seen_.trace.back(),
                R"(Exit GetPrivateMAPI: Returning GetMAPIHandle() = %p\n [null])");
    }
  }
  EXPECT_EQ(client_.Calls(), Lines{});
  EXPECT_EQ(MapiHandleGeneration, 1u);
  fake_.AddModule(kSystemMapi, test::MapiExports());
  ExpectAllWork();
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

TEST_F(EntryPoints, FailAloneWhereTheLibraryLacksTheirExport) {
  for (const EntryPoint& missing : kEntryPoints) {
    ForgetMapiLoading();
    fake_.Reset();
    Register(test::MapiExports({missing.name}));
    ExpectAllWorkBut(missing.name);
    ExpectAllWorkBut(missing.name);
    // Looked for once: the library that is installed does not change.
    const Lines lookups = fake_.CallsOf("FindProcedure");
    EXPECT_EQ(std::count(lookups.begin(), lookups.end(),
                         std::string(R"(FindProcedure(C:\Mail\a.dll, )") + missing.name + ")"),
              1);
  }
}

TEST_F(EntryPoints, LookTheirFunctionsUpAgainAfterALaterInstallation) {
  Install(kLibrary, {});
  ExpectNoneWorks();
  fake_.AddModule(kLibrary, test::MapiExports());
  ExpectNoneWorks();
  Install(kOther, {});  // is refused
  fake_.ClearCalls();
  ExpectAllWork();
  ExpectAllWork();
  EXPECT_EQ(fake_.CallsOf("FindProcedure").size(), std::size(kEntryPoints));
}

TEST_F(EntryPoints, BindToTheNextLibraryOnceTheFirstIsGone) {
  Install(kLibrary, test::MapiExports());
  ExpectAllWork();
  SetMAPIHandle(Module());
  ExpectNoneWorks();
  Install(kOther, {{"MAPIFreeBuffer", kAnother}});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 77u);
  EXPECT_EQ(MAPIInitialize(nullptr), MAPI_E_CALL_FAILED);
}

}  // namespace
}  // namespace zentpost
