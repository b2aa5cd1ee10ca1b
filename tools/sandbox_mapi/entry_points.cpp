// The functions that the library exports, under their published names.
#include <cstring>
#include <string>

#include "mapi_headers.h"
#include "tools/sandbox_mapi/interfaces.h"
#include "tools/sandbox_mapi/library.h"
#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
namespace {

// Row sets and address lists end in as many entries as they say.
template <class Set, class Entry>
constexpr std::size_t SizeWith(std::size_t count) {
  return sizeof(Set) - sizeof(Entry) + count * sizeof(Entry);
}

std::u16string TextOf(LPTSTR text, ULONG flags) {
  if ((flags & kUnicodeFlag) != 0 || text == nullptr) {
    return FromWide(text);
  }
  return FromWindows1252(reinterpret_cast<const char*>(text));
}

HRESULT QueryRows(const std::vector<Properties>& rows, const SPropTagArray& tags, std::size_t most,
                  LPSRowSet& result) {
  Accounting& accounting = TheLibrary().accounting;
  const std::size_t count = most != 0 && most < rows.size() ? most : rows.size();
  auto* const set = static_cast<LPSRowSet>(
      accounting.Allocate(SizeWith<SRowSet, SRow>(count), BufferKind::kRowSet));
  if (set == nullptr) {
    return kNotEnoughMemory;
  }
  set->cRows = 0;
  for (std::size_t i = 0; i < count; ++i) {
    SRow& row = set->aRow[i];
    row.ulAdrEntryPad = 0;
    // A missing column is told by its value alone.
    const HRESULT filled =
        ToMapi(rows[i], &tags, kUnicode, BufferKind::kRow, row.cValues, row.lpProps);
    if (filled < 0) {
      for (std::size_t j = 0; j < i; ++j) {
        accounting.Free(set->aRow[j].lpProps);
      }
      accounting.Free(set);
      return filled;
    }
    ++set->cRows;
  }
  result = set;
  return kOk;
}

}  // namespace
}  // namespace zentpost::sandbox_mapi

using zentpost::sandbox_mapi::BufferKind;
using zentpost::sandbox_mapi::Call;
using zentpost::sandbox_mapi::TheLibrary;

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): they have no other declaration.
extern "C" {

PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIInitialize(LPVOID lpMapiInit) {
  Call call("MAPIInitialize");
  call.Arg("init", lpMapiInit == nullptr ? "null" : "given");
  if (call.Fails()) {
    return call.Failure();
  }
  auto& library = TheLibrary();
  if (!library.config_error.empty()) {
    return call.Return(zentpost::sandbox_mapi::kUnconfigured);
  }
  if (!library.mailbox.Prepare(library.config.profile_name)) {
    return call.Return(zentpost::sandbox_mapi::kDiskError);
  }
  library.is_initialized = true;
  return call.Return(zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT void PLATFORM_STDCALL MAPIUninitialize() {
  Call("MAPIUninitialize").ReturnNothing();
}

PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPILogonEx(ULONG_PTR, LPTSTR lpszProfileName, LPTSTR,
                                                     ULONG ulFlags, LPMAPISESSION* lppSession) {
  Call call("MAPILogonEx");
  const std::u16string profile = zentpost::sandbox_mapi::TextOf(lpszProfileName, ulFlags);
  call.Text("profile", profile).Hex("flags", ulFlags).Out(lppSession);
  if (lppSession == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *lppSession = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  if (!TheLibrary().is_initialized) {
    return call.Return(zentpost::sandbox_mapi::kNotInitialized);
  }
  if (!profile.empty() && profile != TheLibrary().config.profile_name) {
    return call.Return(zentpost::sandbox_mapi::kLogonFailed);
  }
  *lppSession = zentpost::sandbox_mapi::NewSession();
  return call.Return(zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIOpenFormMgr(LPMAPISESSION pSession,
                                                         LPMAPIFORMMGR* ppmgr) {
  Call call("MAPIOpenFormMgr");
  call.Object("session", pSession).Out(ppmgr);
  if (ppmgr == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *ppmgr = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  if (!TheLibrary().accounting.IsAlive(pSession, "MAPIOpenFormMgr")) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *ppmgr = zentpost::sandbox_mapi::NewFormMgr();
  return call.Return(zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIAdminProfiles(ULONG ulFlags,
                                                           LPPROFADMIN* lppProfAdmin) {
  Call call("MAPIAdminProfiles");
  call.Hex("flags", ulFlags).Out(lppProfAdmin);
  if (lppProfAdmin == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *lppProfAdmin = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  if (!TheLibrary().is_initialized) {
    return call.Return(zentpost::sandbox_mapi::kNotInitialized);
  }
  *lppProfAdmin = zentpost::sandbox_mapi::NewProfAdmin();
  return call.Return(zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT HRESULT PLATFORM_STDCALL HrQueryAllRows(LPMAPITABLE lpTable,
                                                        LPSPropTagArray lpPropTags,
                                                        LPSRestriction lpRestriction,
                                                        LPSSortOrderSet lpSortOrderSet,
                                                        LONG crowsMax, LPSRowSet* lppRows) {
  Call call("HrQueryAllRows");
  call.Object("table", lpTable).Arg("most", std::to_string(crowsMax)).Out(lppRows);
  if (lppRows == nullptr || lpPropTags == nullptr || crowsMax < 0) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *lppRows = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  if (lpRestriction != nullptr || lpSortOrderSet != nullptr) {
    return call.Return(zentpost::sandbox_mapi::kNoSupport);
  }
  const auto* const rows = zentpost::sandbox_mapi::RowsOf(lpTable);
  if (rows == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  return call.Return(zentpost::sandbox_mapi::QueryRows(
      *rows, *lpPropTags, static_cast<std::size_t>(crowsMax), *lppRows));
}

PLATFORM_EXPORT void PLATFORM_STDCALL FreeProws(LPSRowSet lpRows) {
  Call call("FreeProws");
  auto& accounting = TheLibrary().accounting;
  // What is no live buffer is not looked into.
  if (lpRows != nullptr && accounting.SizeOf(lpRows) > 0) {
    for (ULONG i = 0; i < lpRows->cRows; ++i) {
      accounting.Free(lpRows->aRow[i].lpProps);
    }
  }
  accounting.Free(lpRows);
  call.ReturnNothing();
}

PLATFORM_EXPORT void PLATFORM_STDCALL FreePadrlist(LPADRLIST lpAdrlist) {
  Call call("FreePadrlist");
  auto& accounting = TheLibrary().accounting;
  if (lpAdrlist != nullptr && accounting.SizeOf(lpAdrlist) > 0) {
    for (ULONG i = 0; i < lpAdrlist->cEntries; ++i) {
      accounting.Free(lpAdrlist->aEntries[i].rgPropVals);
    }
  }
  accounting.Free(lpAdrlist);
  call.ReturnNothing();
}

PLATFORM_EXPORT SCODE PLATFORM_STDCALL MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
  Call call("MAPIAllocateBuffer");
  call.Arg("size", std::to_string(cbSize)).Out(lppBuffer);
  if (lppBuffer == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *lppBuffer = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  *lppBuffer = TheLibrary().accounting.Allocate(cbSize, BufferKind::kBuffer);
  return call.Return(*lppBuffer == nullptr ? zentpost::sandbox_mapi::kNotEnoughMemory
                                           : zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT SCODE PLATFORM_STDCALL MAPIAllocateMore(ULONG cbSize, LPVOID lpObject,
                                                        LPVOID* lppBuffer) {
  Call call("MAPIAllocateMore");
  call.Arg("size", std::to_string(cbSize)).Out(lppBuffer);
  if (lppBuffer == nullptr) {
    return call.Return(zentpost::sandbox_mapi::kInvalidParameter);
  }
  *lppBuffer = nullptr;
  if (call.Fails()) {
    return call.Failure();
  }
  *lppBuffer = TheLibrary().accounting.AllocateMore(cbSize, lpObject);
  return call.Return(*lppBuffer == nullptr ? zentpost::sandbox_mapi::kNotEnoughMemory
                                           : zentpost::sandbox_mapi::kOk);
}

PLATFORM_EXPORT ULONG PLATFORM_STDCALL MAPIFreeBuffer(LPVOID lpBuffer) {
  Call call("MAPIFreeBuffer");
  call.Arg("buffer", lpBuffer == nullptr ? "null" : "given");
  if (call.Fails()) {
    return static_cast<ULONG>(call.Failure());
  }
  return static_cast<ULONG>(call.Return(TheLibrary().accounting.Free(lpBuffer)
                                            ? zentpost::sandbox_mapi::kOk
                                            : zentpost::sandbox_mapi::kCallFailed));
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
