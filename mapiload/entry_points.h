// The nine functions of Extended MAPI that the tool calls, under their own names and with their
// published arguments and results. Each finds itself in the mail client's MAPI library at its first
// call, which starts the search for that library (mapiload/library.h), and again when a new library
// has been installed; otherwise it only forwards the call. In 32 bits a library may also export it
// under the linker's name for it ("FreeProws@4"), which is asked for where the plain name is
// missing.
//
// Without a library, or when the library does not export the function, nothing is called: results
// are then MAPI_E_CALL_FAILED, 0 from MAPIFreeBuffer, and nothing that they hand out is written.
// While no library has been found every call searches again.
//
// May be called from any thread; what the library itself allows is another matter.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"

namespace zentpost {

// Starts MAPI for this process. `init` may be null.
HRESULT MAPIInitialize(void* init);

// Logs on to `profile` (wide with MAPI_UNICODE; empty: the user's choice). `session` gets a
// reference.
HRESULT MAPILogonEx(std::uintptr_t ui_parameter, char16_t* profile, char16_t* password,
                    std::uint32_t flags, IMAPISession** session);

// The session's form manager, with a reference.
HRESULT MAPIOpenFormMgr(IMAPISession* session, IMAPIFormMgr** form_manager);

// The administration of profiles, with a reference.
HRESULT MAPIAdminProfiles(std::uint32_t flags, IProfAdmin** profile_admin);

// All rows of `table` with the columns `tags`; `maximum_rows` 0 means all. The caller frees `rows`
// with FreeProws.
HRESULT HrQueryAllRows(IMAPITable* table, SPropTagArray* tags, SRestriction* restriction,
                       SSortOrderSet* sort_order, std::int32_t maximum_rows, SRowSet** rows);
void FreeProws(SRowSet* rows);

// Frees the list, and the property values of each entry, which are blocks of their own.
void FreePadrlist(ADRLIST* list);

// A block of `size` bytes, content unspecified, that MAPIFreeBuffer frees; null is freed too.
SCODE MAPIAllocateBuffer(std::uint32_t size, void** buffer);
std::uint32_t MAPIFreeBuffer(void* buffer);

}  // namespace zentpost
