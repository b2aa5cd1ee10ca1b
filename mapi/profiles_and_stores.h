// The user's default profile and default message store.
#pragma once

#include "mapiload/extended_mapi.h"

namespace zentpost {

// MAX_PATH (minwindef.h): the space for a profile's name, in UTF-16 units with the terminator.
inline constexpr unsigned kProfileNameSize = 260;

// Puts the display name of the default profile into `profileName` (space for kProfileNameSize
// units; a longer name is cut off); it stays as it is when no profile is the default one. Gives the
// result of the first call that failed; a success does not tell that a name was found. Does not
// throw.
[[nodiscard]] HRESULT GetDefaultProfile(char16_t* profileName);

// Opens the session's default store, in online mode if that can be had, and puts it with a
// reference into `store`, which is null before the call and stays so when no store is the default
// one: that is a success too. Otherwise gives the result of the first call that failed for good,
// and `store` is null. Does not throw.
[[nodiscard]] HRESULT FindDefaultMsgStore(IMAPISession* session, IMsgStore** store);

}  // namespace zentpost
