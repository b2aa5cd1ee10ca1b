// The nine functions of the mail client's library as tests call them: each with arguments that only
// the right call has, and that nobody looks into.
#pragma once

#include <cstdint>
#include <string_view>

#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"

namespace zentpost::test {

struct EntryPoint {
  const char* name;
  const char* decorated_name;  // in 32 bits
  const char* reached;         // what the library sees of the call
  std::uint32_t result;        // what a library of the tests gives; 0: the function gives nothing
  std::uint32_t unavailable;   // what comes back when the library cannot be reached
};

inline constexpr EntryPoint kEntryPoints[] = {
    {"MAPIInitialize", "MAPIInitialize@4", "MAPIInitialize(0x11)", 0x1001, 0x80004005},
    {"MAPILogonEx", "MAPILogonEx@20", "MAPILogonEx(0x21, 0x22, 0x23, 0x24, 0x25)", 0x80040111,
     0x80004005},
    {"MAPIOpenFormMgr", "MAPIOpenFormMgr@8", "MAPIOpenFormMgr(0x31, 0x32)", 0x1003, 0x80004005},
    {"MAPIAdminProfiles", "MAPIAdminProfiles@8", "MAPIAdminProfiles(0x80000000, 0x42)", 0x1004,
     0x80004005},
    {"HrQueryAllRows", "HrQueryAllRows@24",
     "HrQueryAllRows(0x51, 0x52, 0x53, 0x54, 0xffffffc9, 0x56)", 0x1005, 0x80004005},
    {"FreeProws", "FreeProws@4", "FreeProws(0x61)", 0, 0},
    {"FreePadrlist", "FreePadrlist@4", "FreePadrlist(0x71)", 0, 0},
    {"MAPIAllocateBuffer", "MAPIAllocateBuffer@8", "MAPIAllocateBuffer(0xffffffff, 0x82)",
     0x8007000E, 0x80004005},
    {"MAPIFreeBuffer", "MAPIFreeBuffer@4", "MAPIFreeBuffer(0x91)", 0xFFFFFFFF, 0},
};

template <class T>
T* Pointer(std::uintptr_t number) {
  return reinterpret_cast<T*>(number);
}

// Calls the entry point of this name; gives its result, or 0.
inline std::uint32_t CallEntryPoint(std::string_view name) {
  const auto code = [](std::int32_t result) { return static_cast<std::uint32_t>(result); };
  if (name == "MAPIInitialize") {
    return code(MAPIInitialize(Pointer<void>(0x11)));
  }
  if (name == "MAPILogonEx") {
    return code(MAPILogonEx(0x21, Pointer<char16_t>(0x22), Pointer<char16_t>(0x23), 0x24,
                            Pointer<IMAPISession*>(0x25)));
  }
  if (name == "MAPIOpenFormMgr") {
    return code(MAPIOpenFormMgr(Pointer<IMAPISession>(0x31), Pointer<IMAPIFormMgr*>(0x32)));
  }
  if (name == "MAPIAdminProfiles") {
    return code(MAPIAdminProfiles(0x80000000, Pointer<IProfAdmin*>(0x42)));
  }
  if (name == "HrQueryAllRows") {
    return code(HrQueryAllRows(Pointer<IMAPITable>(0x51), Pointer<SPropTagArray>(0x52),
                               Pointer<SRestriction>(0x53), Pointer<SSortOrderSet>(0x54), -55,
                               Pointer<SRowSet*>(0x56)));
  }
  if (name == "MAPIAllocateBuffer") {
    return code(MAPIAllocateBuffer(0xFFFFFFFF, Pointer<void*>(0x82)));
  }
  if (name == "MAPIFreeBuffer") {
    return MAPIFreeBuffer(Pointer<void>(0x91));
  }
  if (name == "FreeProws") {
    FreeProws(Pointer<SRowSet>(0x61));
  } else {
    FreePadrlist(Pointer<ADRLIST>(0x71));
  }
  return 0;
}

}  // namespace zentpost::test
