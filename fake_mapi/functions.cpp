#include "fake_mapi/functions.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

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

// One call: as `act` has it, or, of a client that looks into nothing, recorded with its raw
// arguments and done.
template <class... Argument, class Act>
HRESULT Do(const char* function, const std::tuple<Argument...>& arguments, const Act& act) {
  Call call(function);
  if (call.Of().is_inert) {
    std::apply([&](auto... argument) { call.Record({Call::Raw(argument)...}); }, arguments);
  } else {
    act(call);
  }
  return call.Result();
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
  return Do("MAPIInitialize", std::tuple(init), [&](Call& call) {
    call.Record({NullOr(init)});
    if (call.Works()) {
      call.Refuse(call.Inside().storage->Start());
      call.Of().is_initialized = call.Works();
    }
  });
}

void PLATFORM_STDCALL MAPIUninitialize() {
  Call("MAPIUninitialize").RecordInfallible({});
}

HRESULT PLATFORM_STDCALL MAPILogonEx(ULONG_PTR window, WideChar* profile, WideChar* password,
                                     ULONG flags, IMAPISession** session) {
  return Do("MAPILogonEx", std::tuple(window, profile, password, flags, session), [&](Call& call) {
    const bool is_wide = (flags & kUnicodeFlag) != 0;
    call.Record({std::to_string(window), TextOf(profile, is_wide), TextOf(password, is_wide),
                 LowerHex(flags)});
    call.AllowFlags(flags, kLogonFlags);
    NeedInitialized(call);
    const std::u16string name = FromText(profile, is_wide);
    if (!name.empty() && !HasProfile(call.Of(), name)) {
      call.Refuse(kLogonFailed);
    }
    call.Give(session, [&] { return NewSession(call.Of()); });
  });
}

HRESULT PLATFORM_STDCALL MAPIOpenFormMgr(IMAPISession* session, IMAPIFormMgr** manager) {
  return Do("MAPIOpenFormMgr", std::tuple(session, manager), [&](Call& call) {
    call.Record({call.Accounts().NameOfObject(session)});
    call.NeedObject(session, "IMAPISession");
    call.Give(manager, [&] { return NewFormManager(call.Of()); });
  });
}

HRESULT PLATFORM_STDCALL MAPIAdminProfiles(ULONG flags, IProfAdmin** administration) {
  return Do("MAPIAdminProfiles", std::tuple(flags, administration), [&](Call& call) {
    call.Record({LowerHex(flags)});
    call.AllowFlags(flags, kUnicodeFlag);
    NeedInitialized(call);
    call.Give(administration, [&] { return NewProfileAdministration(call.Of()); });
  });
}

HRESULT PLATFORM_STDCALL HrQueryAllRows(IMAPITable* table, SPropTagArray* tags,
                                        SRestriction* restriction, SSortOrderSet* order,
                                        LONG maximum, SRowSet** rows) {
  return Do("HrQueryAllRows", std::tuple(table, tags, restriction, order, maximum, rows),
            [&](Call& call) {
              call.Record({call.Accounts().NameOfObject(table), TagsOf(tags), NullOr(restriction),
                           NullOr(order), std::to_string(maximum)});
              const Object* const object = call.NeedObject(table, "IMAPITable");
              NeedTags(call, tags);
              if (maximum < 0) {
                call.Breach("for a negative number of rows");
              }
              if (restriction != nullptr || order != nullptr) {
                call.Refuse(kNoSupport);
              }
              call.Give(rows, [&] {
                return NewRows(call, object, tags,
                               static_cast<std::size_t>(std::max<LONG>(maximum, 0)));
              });
            });
}

void PLATFORM_STDCALL FreeProws(SRowSet* rows) {
  Call call("FreeProws");
  if (call.Of().is_inert) {
    return call.Record({Call::Raw(rows)});
  }
  call.RecordInfallible({call.Accounts().NameOfBlock(rows)});
  call.Accounts().Free(rows, "FreeProws", BlockUse::kRows);
}

void PLATFORM_STDCALL FreePadrlist(ADRLIST* list) {
  Call call("FreePadrlist");
  if (call.Of().is_inert) {
    return call.Record({Call::Raw(list)});
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
  return Do("MAPIAllocateBuffer", std::tuple(size, buffer), [&](Call& call) {
    call.Record({std::to_string(size)});
    call.Give(buffer, [&] { return call.Accounts().Allocate(size, "MAPIAllocateBuffer"); });
  });
}

SCODE PLATFORM_STDCALL MAPIAllocateMore(ULONG size, void* object, void** buffer) {
  return Do("MAPIAllocateMore", std::tuple(size, object, buffer), [&](Call& call) {
    call.Record({std::to_string(size), call.Accounts().NameOfBlock(object)});
    call.Give(buffer, [&] { return call.Accounts().AllocatePart(size, object); });
  });
}

ULONG PLATFORM_STDCALL MAPIFreeBuffer(void* buffer) {
  return static_cast<ULONG>(Do("MAPIFreeBuffer", std::tuple(buffer), [&](Call& call) {
    call.RecordInfallible({call.Accounts().NameOfBlock(buffer)});
    if (call.Works() && !call.Accounts().Free(buffer, "MAPIFreeBuffer")) {
      call.Refuse(kCallFailed);
    }
  }));
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

std::map<std::string, Procedure> Functions() {
  // CMakeLists.txt reads here what a library exports: the names as the linker decorates them in
  // 32 bits.
  const std::pair<std::string, Procedure> table[] = {
      {"MAPIInitialize@4", reinterpret_cast<Procedure>(MAPIInitialize)},
      {"MAPILogonEx@20", reinterpret_cast<Procedure>(MAPILogonEx)},
      {"MAPIOpenFormMgr@8", reinterpret_cast<Procedure>(MAPIOpenFormMgr)},
      {"MAPIAdminProfiles@8", reinterpret_cast<Procedure>(MAPIAdminProfiles)},
      {"HrQueryAllRows@24", reinterpret_cast<Procedure>(HrQueryAllRows)},
      {"FreeProws@4", reinterpret_cast<Procedure>(FreeProws)},
      {"FreePadrlist@4", reinterpret_cast<Procedure>(FreePadrlist)},
      {"MAPIAllocateBuffer@8", reinterpret_cast<Procedure>(MAPIAllocateBuffer)},
      {"MAPIAllocateMore@12", reinterpret_cast<Procedure>(MAPIAllocateMore)},
      {"MAPIFreeBuffer@4", reinterpret_cast<Procedure>(MAPIFreeBuffer)},
      {"MAPIUninitialize@0", reinterpret_cast<Procedure>(MAPIUninitialize)},
  };
  std::map<std::string, Procedure> functions;
  for (const auto& [name, function] : table) {
    functions[name.substr(0, name.find('@'))] = function;
  }
  return functions;
}

}  // namespace zentpost::fake_mapi
