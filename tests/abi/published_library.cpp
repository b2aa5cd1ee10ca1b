// A library that exports the nine functions of Extended MAPI that the tool calls, made from the
// published declarations. They note down how they are called.
#include "tests/abi/published_library.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <mapix.h>
// Needs the types of the one above.
#include <mapiform.h>
#include <mapiutil.h>

#include <type_traits>
#include <utility>

#include "platform/call.h"

namespace zentpost::abi {
namespace {

LibraryCall last_call = {"", 0, {}, 0};
std::int32_t next_result = 0x2000;

template <class Argument>
std::uintptr_t Word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return reinterpret_cast<std::uintptr_t>(argument);
  } else {
    return static_cast<std::uintptr_t>(argument);
  }
}

// Every call gives another result.
template <class... Arguments>
std::int32_t Note(const char* function, Arguments... arguments) {
  last_call = {function, sizeof...(arguments), {Word(arguments)...}, ++next_result};
  return last_call.result;
}

}  // namespace

extern "C" PLATFORM_EXPORT LibraryCall TakeLastCall() {
  return std::exchange(last_call, {"", 0, {}, 0});
}

}  // namespace zentpost::abi

using zentpost::abi::Note;

extern "C" {

PLATFORM_EXPORT HRESULT WINAPI MAPIInitialize(LPVOID init) {
  return Note("MAPIInitialize", init);
}

PLATFORM_EXPORT HRESULT WINAPI MAPILogonEx(ULONG_PTR window, LPTSTR profile, LPTSTR password,
                                           ULONG flags, LPMAPISESSION* session) {
  return Note("MAPILogonEx", window, profile, password, flags, session);
}

PLATFORM_EXPORT HRESULT WINAPI MAPIOpenFormMgr(LPMAPISESSION session, LPMAPIFORMMGR* manager) {
  return Note("MAPIOpenFormMgr", session, manager);
}

PLATFORM_EXPORT HRESULT WINAPI MAPIAdminProfiles(ULONG flags, LPPROFADMIN* administration) {
  return Note("MAPIAdminProfiles", flags, administration);
}

PLATFORM_EXPORT HRESULT WINAPI HrQueryAllRows(LPMAPITABLE table, LPSPropTagArray tags,
                                              LPSRestriction restriction, LPSSortOrderSet order,
                                              LONG maximum, LPSRowSet* rows) {
  return Note("HrQueryAllRows", table, tags, restriction, order, maximum, rows);
}

PLATFORM_EXPORT void WINAPI FreeProws(LPSRowSet rows) {
  Note("FreeProws", rows);
}

PLATFORM_EXPORT void WINAPI FreePadrlist(LPADRLIST list) {
  Note("FreePadrlist", list);
}

PLATFORM_EXPORT SCODE WINAPI MAPIAllocateBuffer(ULONG size, LPVOID* buffer) {
  return Note("MAPIAllocateBuffer", size, buffer);
}

PLATFORM_EXPORT ULONG WINAPI MAPIFreeBuffer(LPVOID buffer) {
  return static_cast<ULONG>(Note("MAPIFreeBuffer", buffer));
}

}  // extern "C"
