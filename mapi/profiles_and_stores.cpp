#include "mapi/profiles_and_stores.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "diag/log_file.h"
#include "mapi/owners.h"
#include "mapi/results.h"
#include "mapi/text_buffer.h"
#include "platform/text_codec.h"

namespace zentpost {
namespace {

// All rows of `table` with the two columns `first` and `second`.
HRESULT QueryTwoColumns(IMAPITable* table, std::uint32_t first, std::uint32_t second,
                        MapiRowSet& rows) {
  SizedSPropTagArray<2> columns = {2, {first, second}};
  return ForgetOnFailure(HrQueryAllRows(table, reinterpret_cast<SPropTagArray*>(&columns), nullptr,
                                        nullptr, 0, rows.Put()),
                         rows);
}

// At most 256 bytes of the text are looked at. A text that cannot be converted changes nothing.
void CopyAnsiText(const char* text, char16_t* buffer) {
  constexpr std::size_t kLimit = 256;
  const auto length = static_cast<std::int32_t>(std::find(text, text + kLimit, '\0') - text);
  char16_t wide[kLimit] = {};
  std::int32_t written = 0;
  if (length == 0 || platform::BytesToWide(platform::CodePage::kSystemAnsi, text, length, wide,
                                           std::size(wide), written) == platform::kSuccess) {
    CopyText({wide, static_cast<std::size_t>(written)}, buffer, kProfileNameSize);
  }
}

bool HasTwoColumns(const SRow& row) {
  return row.cValues >= 2 && row.lpProps != nullptr;
}

bool IsDefaultProfile(const SRow& row) {
  return HasTwoColumns(row) && row.lpProps[0].ulPropTag == PR_DEFAULT_PROFILE &&
         row.lpProps[0].Value.b != 0;
}

// The name may be missing: its column then holds an error.
void CopyProfileName(const SPropValue& name, char16_t* profileName) {
  const std::uint32_t type = PROP_TYPE(name.ulPropTag);
  if (type == PT_UNICODE && name.Value.lpszW != nullptr) {
    CopyText(name.Value.lpszW, profileName, kProfileNameSize);
  } else if (type == PT_STRING8 && name.Value.lpszA != nullptr) {
    CopyAnsiText(name.Value.lpszA, profileName);
  }
}

}  // namespace

HRESULT GetDefaultProfile(char16_t* profileName) {
  MapiReference<IProfAdmin> profile_admin;
  HRESULT result = ForgetOnFailure(MAPIAdminProfiles(0, profile_admin.Put()), profile_admin);
  if (Failed(result) || !profile_admin) {
    return result;
  }
  MapiReference<IMAPITable> table;
  result = ForgetOnFailure(profile_admin.Get()->GetProfileTable(0, table.Put()), table);
  if (Failed(result) || !table) {
    return result;
  }
  MapiRowSet rows;
  result = QueryTwoColumns(table.Get(), PR_DEFAULT_PROFILE, PR_DISPLAY_NAME_A, rows);
  if (Failed(result) || !rows) {
    return result;
  }
  if (rows.Get()->cRows == 0) {
    LogError(u"GetDefaultProfile(): There are no profiles.");
  }
  // The last of several default profiles counts.
  for (std::uint32_t i = 0; i < rows.Get()->cRows; ++i) {
    const SRow& row = rows.Get()->aRow[i];
    if (IsDefaultProfile(row)) {
      CopyProfileName(row.lpProps[1], profileName);
    }
  }
  return result;
}

HRESULT FindDefaultMsgStore(IMAPISession* session, IMsgStore** store) {
  MapiReference<IMAPITable> table;
  HRESULT result = ResultOf(session->GetMsgStoresTable(0, table.Put()), table);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"FindDefaultMsgStore(): There are no message stores found.");
    return result;
  }
  MapiRowSet rows;
  result = QueryTwoColumns(table.Get(), PR_DEFAULT_STORE, PR_ENTRYID, rows);
  if (Failed(result) || !rows) {
    return result;
  }
  if (rows.Get()->cRows == 0) {
    LogError(u"FindDefaultMsgStore(): There are no message stores found.");
    return result;
  }
  const SRow* const begin = rows.Get()->aRow;
  const SRow* const end = begin + rows.Get()->cRows;
  const SRow* const row = std::find_if(begin, end, [](const SRow& candidate) {
    return HasTwoColumns(candidate) && candidate.lpProps[0].Value.b == 1;
  });
  if (row == end) {
    return result;
  }
  // A store without an entry identifier is one that the session cannot open, with a code of its
  // own.
  const SBinary entry =
      row->lpProps[1].ulPropTag == PR_ENTRYID ? row->lpProps[1].Value.bin : SBinary{};
  auto* const entry_id = reinterpret_cast<ENTRYID*>(entry.lpb);
  result =
      ForgetOnFailure(session->OpenMsgStore(0, entry.cb, entry_id, nullptr,
                                            MDB_ONLINE | MAPI_DEFERRED_ERRORS | MDB_WRITE, store),
                      *store);
  if (!Failed(result)) {
    return result;
  }
  LogErrorWithCode(CodeOf(result),
                   u"FindDefaultMsgStore(): The message store canot be opened as online mode.");
  result = ForgetOnFailure(session->OpenMsgStore(0, entry.cb, entry_id, nullptr,
                                                 MAPI_DEFERRED_ERRORS | MDB_WRITE, store),
                           *store);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"FindDefaultMsgStore(): The message store canot be opened.");
    // These rows are deliberately not freed; the process ends soon.
    static_cast<void>(rows.Detach());
  }
  return result;
}

}  // namespace zentpost
