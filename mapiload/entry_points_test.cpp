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
#include "testing/mapi_search.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::Procedure;
using Exports = platform::fake::Machine::Exports;
using Lines = std::vector<std::string>;

constexpr char16_t kLibrary[] = u"C:\\Mail\\a.dll";
constexpr char16_t kOther[] = u"C:\\Mail\\b.dll";

// Arguments that only the right call has. None is ever looked into.
template <class T>
T* Pointer(std::uintptr_t number) {
  return reinterpret_cast<T*>(number);
}

// The calls that reached the library, "NAME(ARGUMENT, ...)" in decimal.
Lines calls;

template <class... Numbers>
void Record(const std::string& name, Numbers... numbers) {
  std::string text;
  ((text += (text.empty() ? "" : ", ") + std::to_string(numbers)), ...);
  calls.push_back(name + "(" + text + ")");
}

std::uintptr_t Number(const void* pointer) {
  return reinterpret_cast<std::uintptr_t>(pointer);
}

// The library's functions, with the published calling convention. Each has a result of its own.
HRESULT PLATFORM_STDCALL Initialize(void* init) {
  Record("MAPIInitialize", Number(init));
  return 101;
}
HRESULT PLATFORM_STDCALL LogonEx(std::uintptr_t ui_parameter, char16_t* profile, char16_t* password,
                                 std::uint32_t flags, IMAPISession** session) {
  Record("MAPILogonEx", ui_parameter, Number(profile), Number(password), flags, Number(session));
  return MakeResult(0x80040111);
}
HRESULT PLATFORM_STDCALL OpenFormMgr(IMAPISession* session, IMAPIFormMgr** form_manager) {
  Record("MAPIOpenFormMgr", Number(session), Number(form_manager));
  return 103;
}
HRESULT PLATFORM_STDCALL AdminProfiles(std::uint32_t flags, IProfAdmin** profile_admin) {
  Record("MAPIAdminProfiles", flags, Number(profile_admin));
  return 104;
}
HRESULT PLATFORM_STDCALL QueryAllRows(IMAPITable* table, SPropTagArray* tags,
                                      SRestriction* restriction, SSortOrderSet* sort_order,
                                      std::int32_t maximum_rows, SRowSet** rows) {
  Record("HrQueryAllRows", Number(table), Number(tags), Number(restriction), Number(sort_order),
         maximum_rows, Number(rows));
  return 105;
}
void PLATFORM_STDCALL FreeRows(SRowSet* rows) {
  Record("FreeProws", Number(rows));
}
void PLATFORM_STDCALL FreeList(ADRLIST* list) {
  Record("FreePadrlist", Number(list));
}
SCODE PLATFORM_STDCALL AllocateBuffer(std::uint32_t size, void** buffer) {
  Record("MAPIAllocateBuffer", size, Number(buffer));
  return MAPI_E_NOT_ENOUGH_MEMORY;
}
std::uint32_t PLATFORM_STDCALL FreeBuffer(void* buffer) {
  Record("MAPIFreeBuffer", Number(buffer));
  return 0xFFFFFFFF;
}
std::uint32_t PLATFORM_STDCALL FreeBufferOfAnother(void* buffer) {
  Record("another MAPIFreeBuffer", Number(buffer));
  return 77;
}

template <class Function>
Procedure Exported(Function function) {
  return reinterpret_cast<Procedure>(function);
}

Exports AllExports() {
  return {
      {"MAPIInitialize", Exported(Initialize)},   {"MAPILogonEx", Exported(LogonEx)},
      {"MAPIOpenFormMgr", Exported(OpenFormMgr)}, {"MAPIAdminProfiles", Exported(AdminProfiles)},
      {"HrQueryAllRows", Exported(QueryAllRows)}, {"FreeProws", Exported(FreeRows)},
      {"FreePadrlist", Exported(FreeList)},       {"MAPIAllocateBuffer", Exported(AllocateBuffer)},
      {"MAPIFreeBuffer", Exported(FreeBuffer)}};
}

std::string Void(const std::function<void()>& call) {
  call();
  return "nothing";
}

// One entry point: how it is called here, what then reaches the library, what comes back, and what
// comes back when the library cannot be reached.
struct Entry {
  std::string name;
  std::string decorated_name;  // in 32 bits
  std::function<std::string()> call;
  std::string reached;
  std::string result;
  std::string unavailable;
};

const std::string kCallFailed = "-2147467259";  // 0x80004005

const std::vector<Entry>& Entries() {
  static const std::vector<Entry> entries = {
      {"MAPIInitialize", "MAPIInitialize@4",
       [] { return std::to_string(MAPIInitialize(Pointer<void>(11))); }, "MAPIInitialize(11)",
       "101", kCallFailed},
      {"MAPILogonEx", "MAPILogonEx@20",
       [] {
         return std::to_string(MAPILogonEx(21, Pointer<char16_t>(22), Pointer<char16_t>(23), 24,
                                           Pointer<IMAPISession*>(25)));
       },
       "MAPILogonEx(21, 22, 23, 24, 25)", "-2147221231", kCallFailed},
      {"MAPIOpenFormMgr", "MAPIOpenFormMgr@8",
       [] {
         return std::to_string(
             MAPIOpenFormMgr(Pointer<IMAPISession>(31), Pointer<IMAPIFormMgr*>(32)));
       },
       "MAPIOpenFormMgr(31, 32)", "103", kCallFailed},
      {"MAPIAdminProfiles", "MAPIAdminProfiles@8",
       [] { return std::to_string(MAPIAdminProfiles(0x80000000, Pointer<IProfAdmin*>(42))); },
       "MAPIAdminProfiles(2147483648, 42)", "104", kCallFailed},
      {"HrQueryAllRows", "HrQueryAllRows@24",
       [] {
         return std::to_string(HrQueryAllRows(Pointer<IMAPITable>(51), Pointer<SPropTagArray>(52),
                                              Pointer<SRestriction>(53), Pointer<SSortOrderSet>(54),
                                              -55, Pointer<SRowSet*>(56)));
       },
       "HrQueryAllRows(51, 52, 53, 54, -55, 56)", "105", kCallFailed},
      {"FreeProws", "FreeProws@4", [] { return Void([] { FreeProws(Pointer<SRowSet>(61)); }); },
       "FreeProws(61)", "nothing", "nothing"},
      {"FreePadrlist", "FreePadrlist@4",
       [] { return Void([] { FreePadrlist(Pointer<ADRLIST>(71)); }); }, "FreePadrlist(71)",
       "nothing", "nothing"},
      {"MAPIAllocateBuffer", "MAPIAllocateBuffer@8",
       [] { return std::to_string(MAPIAllocateBuffer(0xFFFFFFFF, Pointer<void*>(82))); },
       "MAPIAllocateBuffer(4294967295, 82)", "-2147024882", kCallFailed},
      {"MAPIFreeBuffer", "MAPIFreeBuffer@4",
       [] { return std::to_string(MAPIFreeBuffer(Pointer<void>(91))); }, "MAPIFreeBuffer(91)",
       "4294967295", "0"},
  };
  return entries;
}

class EntryPoints : public test::MapiSearchTest {
 protected:
  EntryPoints() { calls.clear(); }

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
  static void ExpectAllWork() {
    for (const Entry& entry : Entries()) {
      calls.clear();
      EXPECT_EQ(entry.call(), entry.result) << entry.name;
      EXPECT_EQ(calls, Lines{entry.reached});
    }
  }
};

TEST_F(EntryPoints, FindTheLibraryAndForwardWhatTheyTakeAndGive) {
  Register(kLibrary, AllExports());
  ExpectAllWork();
  EXPECT_EQ(test::Readable(machine_.ModulePath(GetMAPIHandle())), R"(C:\Mail\a.dll)");
}

TEST_F(EntryPoints, EachFindsTheLibraryByItself) {
  for (const Entry& entry : Entries()) {
    ForgetMapiLoading();
    machine_.Reset();
    Register(kLibrary, AllExports());
    EXPECT_EQ(entry.call(), entry.result) << entry.name;
  }
}

TEST_F(EntryPoints, LookUpTheirPlainNamesOnceEach) {
  Register(kLibrary, AllExports());
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
  const Exports plain = AllExports();
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
  Exports exports = AllExports();
  for (const Entry& entry : Entries()) {
    // Would give another result, and reach another function.
    exports[entry.decorated_name] = Exported(FreeBufferOfAnother);
  }
  Install(kLibrary, std::move(exports));
  ExpectAllWork();
}

TEST_F(EntryPoints, OnceBoundOnlyForward) {
  Register(kLibrary, AllExports());
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
  EXPECT_EQ(calls, Lines{});
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
  machine_.AddModule(kSystemMapi, AllExports());
  ExpectAllWork();
}

TEST_F(EntryPoints, FailAloneWhereTheLibraryLacksTheirExport) {
  for (const Entry& missing : Entries()) {
    ForgetMapiLoading();
    machine_.Reset();
    Exports exports = AllExports();
    exports.erase(missing.name);
    Register(kLibrary, std::move(exports));
    for (int round = 0; round < 2; ++round) {
      for (const Entry& entry : Entries()) {
        calls.clear();
        const bool is_missing = entry.name == missing.name;
        EXPECT_EQ(entry.call(), is_missing ? entry.unavailable : entry.result)
            << entry.name << " without " << missing.name;
        EXPECT_EQ(calls, is_missing ? Lines{} : Lines{entry.reached});
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
  Install(kLibrary, AllExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
  machine_.ClearCalls();
  EXPECT_EQ(MAPIInitialize(nullptr), 101);
  EXPECT_EQ(machine_.Calls(), Lines{R"(FindProcedure(C:\Mail\a.dll, MAPIInitialize))"});
}

TEST_F(EntryPoints, LookTheirFunctionsUpAgainAfterALaterInstallation) {
  Install(kLibrary, AllExports());
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
  machine_.AddModule(kLibrary, AllExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
  Install(kOther, {});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
}

TEST_F(EntryPoints, CallNothingOnceTheLibraryIsGone) {
  Install(kLibrary, AllExports());
  ExpectAllWork();
  calls.clear();
  SetMAPIHandle(Module());
  for (const Entry& entry : Entries()) {
    EXPECT_EQ(entry.call(), entry.unavailable) << entry.name;
  }
  EXPECT_EQ(calls, Lines{});
}

TEST_F(EntryPoints, BindToTheNextLibraryOnceTheFirstIsGone) {
  Install(kLibrary, AllExports());
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0xFFFFFFFF);
  SetMAPIHandle(Module());
  Install(kOther, {{"MAPIFreeBuffer", Exported(FreeBufferOfAnother)}});
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 77u);
  EXPECT_EQ(MAPIInitialize(nullptr), MAPI_E_CALL_FAILED);
}

TEST_F(EntryPoints, GiveTheirFixedFailureWhenTheLookupFails) {
  Install(kLibrary, AllExports());
  machine_.FailCallOf("FindProcedure", 0, platform::kGeneralFailure);
  EXPECT_EQ(MAPIInitialize(nullptr), MAPI_E_CALL_FAILED);
  EXPECT_TRUE(machine_.FaultTaken());
  EXPECT_EQ(calls, Lines{});
}

}  // namespace
}  // namespace zentpost
