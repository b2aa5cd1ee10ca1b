#include "diag/error_texts.h"

#include <algorithm>
#include <iterator>

#include "diag/text_trim.h"
#include "platform/system.h"

namespace zentpost {
namespace {

struct ErrorText {
  std::uint32_t code;
  const char16_t* text;
};

// The codes are MAPI's and COM's published ones (mapicode.h, winerror.h), in ascending order. The
// texts are what support staff search the logs for: odd spelling and doubled full stops included.
constexpr ErrorText kErrorTexts[] = {
    {0x80004002,
     u"(CDO) The interface is not supported."},  // MAPI_E_INTERFACE_NOT_SUPPORTED, E_NOINTERFACE
    {0x80004005, u"A general not more specified error occurred."},     // MAPI_E_CALL_FAILED, E_FAIL
    {0x80040102, u"(CDO) No support."},                                // MAPI_E_NO_SUPPORT
    {0x80040103, u"(CDO) Bad charwidth."},                             // MAPI_E_BAD_CHARWIDTH
    {0x80040105, u"(CDO) The string is too long."},                    // MAPI_E_STRING_TOO_LONG
    {0x80040106, u"(CDO) Unknown flags."},                             // MAPI_E_UNKNOWN_FLAGS
    {0x80040107, u"(CDO) The entryID is invalid."},                    // MAPI_E_INVALID_ENTRYID
    {0x80040108, u"(CDO) The object is invalid."},                     // MAPI_E_INVALID_OBJECT
    {0x80040109, u"(CDO) The object was changed."},                    // MAPI_E_OBJECT_CHANGED
    {0x8004010A, u"(CDO) The object was deleted."},                    // MAPI_E_OBJECT_DELETED
    {0x8004010B, u"(CDO) CDO is busy."},                               // MAPI_E_BUSY
    {0x8004010D, u"(CDO) There is not enough disk space available."},  // MAPI_E_NOT_ENOUGH_DISK
    {0x8004010E,
     u"(CDO) There are not enough resources available."},           // MAPI_E_NOT_ENOUGH_RESOURCES
    {0x8004010F, u"(CDO) The value was not found."},                // MAPI_E_NOT_FOUND
    {0x80040110, u"(CDO) Version failed."},                         // MAPI_E_VERSION
    {0x80040111, u"(CDO) Logon failed."},                           // MAPI_E_LOGON_FAILED
    {0x80040112, u"(CDO) Session failed due to a session limit."},  // MAPI_E_SESSION_LIMIT
    {0x80040113, u"(CDO) The user canceled the operation."},        // MAPI_E_USER_CANCEL
    {0x80040114, u"(CDO) The system is unable to abort the routine."},  // MAPI_E_UNABLE_TO_ABORT
    {0x80040115, u"(CDO) A network error occured."},                    // MAPI_E_NETWORK_ERROR
    {0x80040116, u"(CDO) A disk error occured."},                       // MAPI_E_DISK_ERROR
    {0x80040117, u"(CDO) The call was too complex."},                   // MAPI_E_TOO_COMPLEX
    {0x80040118, u"(CDO) Bad column."},                                 // MAPI_E_BAD_COLUMN
    {0x80040119, u"(CDO) Extended Error."},                             // MAPI_E_EXTENDED_ERROR
    {0x8004011A, u"(CDO) CDO call computed."},                          // MAPI_E_COMPUTED
    {0x8004011B, u"(CDO) There were corrupt data sent."},               // MAPI_E_CORRUPT_DATA
    {0x8004011C, u"(CDO) CDO failed due to unconfigured data."},        // MAPI_E_UNCONFIGURED
    {0x8004011D, u"(CDO) The provider failed to connect."},             // MAPI_E_FAILONEPROVIDER
    {0x8004011E, u"(CDO) The CPID is unknown."},                        // MAPI_E_UNKNOWN_CPID
    {0x8004011F, u"(CDO) The LCID is unknown."},                        // MAPI_E_UNKNOWN_LCID
    {0x80040120, u"(CDO) A password change is required."},  // MAPI_E_PASSWORD_CHANGE_REQUIRED
    {0x80040121, u"(CDO) Password expired."},               // MAPI_E_PASSWORD_EXPIRED
    {0x80040122, u"(CDO) Invalid workstation account."},    // MAPI_E_INVALID_WORKSTATION_ACCOUNT
    {0x80040123, u"(CDO) Invalid access time."},            // MAPI_E_INVALID_ACCESS_TIME
    {0x80040124, u"(CDO) The account is disabled."},        // MAPI_E_ACCOUNT_DISABLED
    {0x80040200, u"(CDO) Session end."},                    // MAPI_E_END_OF_SESSION
    {0x80040201, u"(CDO) The entryID is unknown."},         // MAPI_E_UNKNOWN_ENTRYID
    {0x80040202, u"(CDO) Missing required column."},        // MAPI_E_MISSING_REQUIRED_COLUMN
    {0x80040301, u"(CDO) Bad value."},                      // MAPI_E_BAD_VALUE
    {0x80040302, u"(CDO) Invalid Type."},                   // MAPI_E_INVALID_TYPE
    {0x80040303, u"(CDO) The type is not supported."},      // MAPI_E_TYPE_NO_SUPPORT
    {0x80040304, u"(CDO) Unexpected type."},                // MAPI_E_UNEXPECTED_TYPE
    {0x80040305, u"(CDO) Data too big."},                   // MAPI_E_TOO_BIG
    {0x80040306, u"(CDO) Decline copy."},                   // MAPI_E_DECLINE_COPY
    {0x80040307, u"(CDO) Unexpected ID."},                  // MAPI_E_UNEXPECTED_ID
    {0x80040400, u"(CDO) Unable to complete."},             // MAPI_E_UNABLE_TO_COMPLETE
    {0x80040401, u"(CDO) Timeout."},                        // MAPI_E_TIMEOUT
    {0x80040402, u"(CDO) The table is empty."},             // MAPI_E_TABLE_EMPTY
    {0x80040403, u"(CDO) Table is too big."},               // MAPI_E_TABLE_TOO_BIG
    {0x80040405, u"(CDO) Invalid bookmark."},               // MAPI_E_INVALID_BOOKMARK
    {0x80040500, u"(CDO) Wait."},                           // MAPI_E_WAIT
    {0x80040501, u"(CDO) Cancel."},                         // MAPI_E_CANCEL
    {0x80040600, u"(CDO) Corrupt Store."},                  // MAPI_E_CORRUPT_STORE
    {0x80040601, u"(CDO) Object was not in queue."},        // MAPI_E_NOT_IN_QUEUE
    {0x80040602, u"(CDO) No suppress."},                    // MAPI_E_NO_SUPPRESS
    {0x80040604, u"(CDO) Collision occured.."},             // MAPI_E_COLLISION
    {0x80040605, u"(CDO) Initialization (No initialize) Error."},  // MAPI_E_NOT_INITIALIZED
    {0x80040606, u"(CDO) Non standard."},                          // MAPI_E_NON_STANDARD
    {0x80040607, u"(CDO) No recipients."},                         // MAPI_E_NO_RECIPIENTS
    {0x80040608, u"(CDO) Submitted."},                             // MAPI_E_SUBMITTED
    {0x80040609, u"(CDO) Object has folders."},                    // MAPI_E_HAS_FOLDERS
    {0x8004060A, u"(CDO) Object has messages."},                   // MAPI_E_HAS_MESSAGES
    {0x80070005, u"(CDO) Access denied."},                // MAPI_E_NO_ACCESS, E_ACCESSDENIED
    {0x8007000E, u"(CDO) Not enough memory available."},  // MAPI_E_NOT_ENOUGH_MEMORY, E_OUTOFMEMORY
    {0x80070057, u"(CDO) Invalid Parameter."},            // MAPI_E_INVALID_PARAMETER, E_INVALIDARG
};

constexpr bool IsAscending() {
  return std::is_sorted(std::begin(kErrorTexts), std::end(kErrorTexts),
                        [](const ErrorText& a, const ErrorText& b) { return a.code < b.code; });
}
static_assert(IsAscending(), "the table is searched by halves");

}  // namespace

std::u16string GetErrorText(std::uint32_t code) {
  const ErrorText* row =
      std::lower_bound(std::begin(kErrorTexts), std::end(kErrorTexts), code,
                       [](const ErrorText& a, std::uint32_t wanted) { return a.code < wanted; });
  if (row != std::end(kErrorTexts) && row->code == code) {
    return row->text;
  }

  std::u16string message;
  static_cast<void>(platform::SystemMessage(code, message));  // empty on failure
  std::u16string text(Trimmed(message));
  std::erase_if(text,
                [](char16_t unit) { return unit == u'\r' || unit == u'\n' || unit == u'\t'; });
  return text.empty() ? u"Unknown Error." : text;
}

}  // namespace zentpost
