// A stand-in for a mail client's MAPI library, see stand_in.h. Compiled once as it is and once for
// each function with LACKS_... defined, without that function.
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "mapiload/extended_mapi.h"
#include "platform/call.h"
#include "tests/mapi_search/stand_in.h"

namespace zentpost::mapi_search {
namespace {

// Not a std::string: this library is let go while the process lives on.
char last_call[512];
char told_call[512];

template <class Argument>
unsigned long long Word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return reinterpret_cast<std::uintptr_t>(argument);
  } else if constexpr (std::is_signed_v<Argument>) {
    return static_cast<std::make_unsigned_t<Argument>>(argument);
  } else {
    return argument;
  }
}

// Gives the function's result.
template <class... Arguments>
std::int32_t Note(unsigned number, const char* name, Arguments... arguments) {
  std::string text = name;
  const auto append = [&](unsigned long long word) {
    char digits[32];
    std::snprintf(digits, sizeof digits, " %llx", word);
    text += digits;
  };
  (append(Word(arguments)), ...);
  std::snprintf(last_call, sizeof last_call, "%s", text.c_str());
  return static_cast<std::int32_t>(kFirstResult + number);
}

}  // namespace

extern "C" {

PLATFORM_EXPORT const char* StandInLastCall() {
  std::snprintf(told_call, sizeof told_call, "%s", last_call);
  last_call[0] = '\0';
  return told_call;
}

#ifndef LACKS_MAPIInitialize
PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIInitialize(void* init) {
  return Note(0, "MAPIInitialize", init);
}
#endif

#ifndef LACKS_MAPILogonEx
PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPILogonEx(std::uintptr_t ui_parameter, char16_t* profile,
                                                     char16_t* password, std::uint32_t flags,
                                                     IMAPISession** session) {
  return Note(1, "MAPILogonEx", ui_parameter, profile, password, flags, session);
}
#endif

#ifndef LACKS_MAPIOpenFormMgr
PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIOpenFormMgr(IMAPISession* session,
                                                         IMAPIFormMgr** form_manager) {
  return Note(2, "MAPIOpenFormMgr", session, form_manager);
}
#endif

#ifndef LACKS_MAPIAdminProfiles
PLATFORM_EXPORT HRESULT PLATFORM_STDCALL MAPIAdminProfiles(std::uint32_t flags,
                                                           IProfAdmin** profile_admin) {
  return Note(3, "MAPIAdminProfiles", flags, profile_admin);
}
#endif

#ifndef LACKS_HrQueryAllRows
PLATFORM_EXPORT HRESULT PLATFORM_STDCALL HrQueryAllRows(IMAPITable* table, SPropTagArray* tags,
                                                        SRestriction* restriction,
                                                        SSortOrderSet* sort_order,
                                                        std::int32_t maximum_rows, SRowSet** rows) {
  return Note(4, "HrQueryAllRows", table, tags, restriction, sort_order, maximum_rows, rows);
}
#endif

#ifndef LACKS_FreeProws
PLATFORM_EXPORT void PLATFORM_STDCALL FreeProws(SRowSet* rows) {
  Note(5, "FreeProws", rows);
}
#endif

#ifndef LACKS_FreePadrlist
PLATFORM_EXPORT void PLATFORM_STDCALL FreePadrlist(ADRLIST* list) {
  Note(6, "FreePadrlist", list);
}
#endif

#ifndef LACKS_MAPIAllocateBuffer
PLATFORM_EXPORT SCODE PLATFORM_STDCALL MAPIAllocateBuffer(std::uint32_t size, void** buffer) {
  return Note(7, "MAPIAllocateBuffer", size, buffer);
}
#endif

#ifndef LACKS_MAPIFreeBuffer
PLATFORM_EXPORT std::uint32_t PLATFORM_STDCALL MAPIFreeBuffer(void* buffer) {
  return static_cast<std::uint32_t>(Note(8, "MAPIFreeBuffer", buffer));
}
#endif

}  // extern "C"
}  // namespace zentpost::mapi_search
