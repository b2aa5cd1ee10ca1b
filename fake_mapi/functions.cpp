#include "fake_mapi/functions.h"

#include <algorithm>
#include <string>

#include "fake_mapi/call.h"
#include "fake_mapi/interfaces.h"
#include "fake_mapi/record.h"

namespace zentpost::fake_mapi {
namespace {

// Whether a client has a profile of that name.
bool HasProfile(const Client& client, const std::u16string& name) {
  return std::any_of(
      client.profiles.begin(), client.profiles.end(),
      [&](const Properties& profile) { return profile.Text(kIdDisplayName) == name; });
}

void NeedInitialized(Call& call) {
  if (!call.Of().is_initialized) {
    call.Refuse(kNotInitialized);
  }
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the published headers' are odd
extern "C" {

HRESULT PLATFORM_STDCALL MAPIInitialize(void* init) {
  Call call("MAPIInitialize");
  if (call.IsInert(init)) {
    return call.Result();
  }
  call.Record({NullOr(init)});
  if (call.Works()) {
    call.Refuse(call.Inside().storage->Start());
    call.Of().is_initialized = call.Works();
  }
  return call.Result();
}

void PLATFORM_STDCALL MAPIUninitialize() {
  Call("MAPIUninitialize").RecordInfallible({});
}

HRESULT PLATFORM_STDCALL MAPILogonEx(ULONG_PTR window, WideChar* profile, WideChar* password,
                                     ULONG flags, IMAPISession** session) {
  Call call("MAPILogonEx");
  if (call.IsInert(window, profile, password, flags, session)) {
    return call.Result();
  }
  const bool is_wide = (flags & kUnicodeFlag) != 0;
  call.Record({std::to_string(window), TextOf(profile, is_wide), TextOf(password, is_wide),
               LowerHex(flags)});
  call.NeedPlaces(session);
  call.AllowFlags(flags, kLogonFlags);
  NeedInitialized(call);
  const std::u16string name = FromText(profile, is_wide);
  if (!name.empty() && !HasProfile(call.Of(), name)) {
    call.Refuse(kLogonFailed);
  }
  call.Give(session, [&] { return NewSession(call.Of()); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL MAPIOpenFormMgr(IMAPISession* session, IMAPIFormMgr** manager) {
  Call call("MAPIOpenFormMgr");
  if (call.IsInert(session, manager)) {
    return call.Result();
  }
  call.Record({call.Accounts().NameOfObject(session)});
  call.NeedPlaces(manager);
  call.NeedObject(session, "IMAPISession");
  call.Give(manager, [&] { return NewFormManager(call.Of()); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL MAPIAdminProfiles(ULONG flags, IProfAdmin** administration) {
  Call call("MAPIAdminProfiles");
  if (call.IsInert(flags, administration)) {
    return call.Result();
  }
  call.Record({LowerHex(flags)});
  call.NeedPlaces(administration);
  call.AllowFlags(flags, kUnicodeFlag);
  NeedInitialized(call);
  call.Give(administration, [&] { return NewProfileAdministration(call.Of()); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL HrQueryAllRows(IMAPITable* table, SPropTagArray* tags,
                                        SRestriction* restriction, SSortOrderSet* order,
                                        LONG maximum, SRowSet** rows) {
  Call call("HrQueryAllRows");
  if (call.IsInert(table, tags, restriction, order, maximum, rows)) {
    return call.Result();
  }
  call.Record({call.Accounts().NameOfObject(table), TagsOf(tags), NullOr(restriction),
               NullOr(order), std::to_string(maximum)});
  call.NeedPlaces(rows);
  const Object* const object = call.NeedObject(table, "IMAPITable");
  NeedTags(call, tags);
  if (maximum < 0) {
    call.Breach("for a negative number of rows");
  }
  if (restriction != nullptr || order != nullptr) {
    call.Refuse(kNoSupport);
  }
  call.Give(rows, [&] {
    return NewRows(call, object, tags, static_cast<std::size_t>(std::max<LONG>(maximum, 0)));
  });
  return call.Result();
}

void PLATFORM_STDCALL FreeProws(SRowSet* rows) {
  Call call("FreeProws");
  if (call.IsInert(rows)) {
    return;
  }
  call.RecordInfallible({call.Accounts().NameOfBlock(rows)});
  call.Accounts().Free(rows, "FreeProws", BlockUse::kRows);
}

void PLATFORM_STDCALL FreePadrlist(ADRLIST* list) {
  Call call("FreePadrlist");
  if (call.IsInert(list)) {
    return;
  }
  call.RecordInfallible({call.Accounts().NameOfBlock(list)});
  // What is no block of ours is not looked into.
  if (call.Accounts().SizeOf(list) > 0) {
    for (ULONG i = 0; i < list->cEntries; ++i) {
      call.Accounts().Free(list->aEntries[i].rgPropVals, "FreePadrlist");
    }
  }
  call.Accounts().Free(list, "FreePadrlist");
}

SCODE PLATFORM_STDCALL MAPIAllocateBuffer(ULONG size, void** buffer) {
  Call call("MAPIAllocateBuffer");
  if (call.IsInert(size, buffer)) {
    return call.Result();
  }
  call.Record({std::to_string(size)});
  call.NeedPlaces(buffer);
  call.Give(buffer, [&] { return call.Accounts().Allocate(size, "MAPIAllocateBuffer"); });
  return call.Result();
}

SCODE PLATFORM_STDCALL MAPIAllocateMore(ULONG size, void* object, void** buffer) {
  Call call("MAPIAllocateMore");
  call.Record({std::to_string(size), call.Accounts().NameOfBlock(object)});
  call.NeedPlaces(buffer);
  call.Give(buffer, [&] { return call.Accounts().AllocatePart(size, object); });
  return call.Result();
}

ULONG PLATFORM_STDCALL MAPIFreeBuffer(void* buffer) {
  Call call("MAPIFreeBuffer");
  if (call.IsInert(buffer)) {
    return static_cast<ULONG>(call.Result());
  }
  call.RecordInfallible({call.Accounts().NameOfBlock(buffer)});
  if (call.Works() && !call.Accounts().Free(buffer, "MAPIFreeBuffer")) {
    call.Refuse(kCallFailed);
  }
  return static_cast<ULONG>(call.Result());
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

std::span<const Function> Functions() {
  static const Function functions[] = {
      {"MAPIInitialize", "MAPIInitialize@4", reinterpret_cast<Procedure>(MAPIInitialize)},
      {"MAPILogonEx", "MAPILogonEx@20", reinterpret_cast<Procedure>(MAPILogonEx)},
      {"MAPIOpenFormMgr", "MAPIOpenFormMgr@8", reinterpret_cast<Procedure>(MAPIOpenFormMgr)},
      {"MAPIAdminProfiles", "MAPIAdminProfiles@8", reinterpret_cast<Procedure>(MAPIAdminProfiles)},
      {"HrQueryAllRows", "HrQueryAllRows@24", reinterpret_cast<Procedure>(HrQueryAllRows)},
      {"FreeProws", "FreeProws@4", reinterpret_cast<Procedure>(FreeProws)},
      {"FreePadrlist", "FreePadrlist@4", reinterpret_cast<Procedure>(FreePadrlist)},
      {"MAPIAllocateBuffer", "MAPIAllocateBuffer@8",
       reinterpret_cast<Procedure>(MAPIAllocateBuffer)},
      {"MAPIFreeBuffer", "MAPIFreeBuffer@4", reinterpret_cast<Procedure>(MAPIFreeBuffer)},
  };
  return functions;
}

}  // namespace zentpost::fake_mapi
