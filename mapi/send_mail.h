// The send flow: one message in the user's own mail client.
#pragma once

#include <cstdint>
#include <string>

#include "mapiload/extended_mapi.h"

namespace zentpost {

// Delivers one message through Extended MAPI. All texts may be empty; an empty recipient, subject,
// body or sender name is left out. The message is submitted when `showModal` is 0 and `submit` is
// not, and otherwise shown to the user, who may cancel it: that is a success. `reserved1` and
// `reserved2` are ignored. The document at `attachmentPath` is deleted once the message holds it.
//
// Gives the result of the last call when all went well, and otherwise that of the first call that
// failed: E_FAIL where MAPI cannot be started, MAPI_E_NOT_FOUND where there is no default store or
// no Outbox, MAPI_E_NOT_ENOUGH_MEMORY when memory runs out. Does not throw. What was begun before a
// failure stays in the Outbox; an attachment that was saved by then may not be part of it. To be
// called on one thread only, as MAPI wants it.
[[nodiscard]] HRESULT SendMail(const std::u16string& subject, const std::u16string& body,
                               std::uint32_t showModal, std::uint32_t submit,
                               std::uint32_t reserved1, std::uint32_t reserved2,
                               const std::u16string& recipient, const std::u16string& recipientName,
                               const std::u16string& attachmentPath,
                               const std::u16string& attachmentName,
                               const std::u16string& senderName);

}  // namespace zentpost
