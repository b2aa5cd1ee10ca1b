// The message in the mail client's own form, for the user to complete.
#pragma once

#include "mapiload/extended_mapi.h"

namespace zentpost {

// Shows `message`, which lies in the folder `outbox` of `store`, and returns when the user has
// closed the form. A form that the user has cancelled is a success: S_OK. E_INVALIDARG when
// `message` is null; otherwise the result of the first call that failed. Does not throw.
[[nodiscard]] HRESULT OpenMessageModal(IMAPISession* session, IMsgStore* store, IMAPIFolder* outbox,
                                       IMessage* message);

}  // namespace zentpost
