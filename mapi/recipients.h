// The job's recipient: the address that the user's settings make of it, and its way onto the
// message.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"

namespace zentpost {

// Whether the settings of the mail client's add-in ask for the automation of addresses. Throws
// std::bad_alloc when memory runs out.
[[nodiscard]] bool IsAddressAutomatic();

// Computes from `recipient`, a fax number or an e-mail address, the address and its type ("SMTP",
// "FAX" or empty) by the settings of the mail client's add-in for the current user. Both buffers
// have space for kTextBufferSize UTF-16 units with the terminator; what is longer is cut off.
// `reserved` is ignored. E_INVALIDARG when `recipient` is null or empty, or a buffer is null;
// MAPI_E_NOT_ENOUGH_MEMORY when memory runs out. Does not throw.
[[nodiscard]] HRESULT ProcessClientAddressAutomation(const char16_t* recipient, char16_t* address,
                                                     std::uint32_t reserved, char16_t* addressType);

// Adds one recipient to the message and saves that. `displayName` is shown instead of the address
// when it is not empty; with an address type that is not empty the address is made an entry of its
// own first, and resolved. Texts longer than kTextBufferSize units are cut off. E_INVALIDARG when
// `address` is null or empty, or `message` is null; otherwise the result of the first call that
// failed. When the library has no memory for the list the recipient is missing and the result is a
// success.
[[nodiscard]] HRESULT AddRecipientAddress(IMAPISession* session, IMessage* message,
                                          const char16_t* address, const char16_t* displayName,
                                          const char16_t* addressType);

}  // namespace zentpost
