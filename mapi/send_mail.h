// The send flow: one message in the user's own mail client.
#pragma once

#include <cstdint>
#include <string>

namespace zentpost {

// Delivers one message through Extended MAPI. All texts may be empty. It is submitted when
// `showModal` is 0 and `submit` is not, and shown to the user otherwise. `reserved1` and
// `reserved2` are ignored. Gives the HRESULT of the first call that failed; 0x80004005 where the
// machine has no Extended MAPI.
[[nodiscard]] std::int32_t SendMail(const std::u16string& subject, const std::u16string& body,
                                    std::uint32_t showModal, std::uint32_t submit,
                                    std::uint32_t reserved1, std::uint32_t reserved2,
                                    const std::u16string& recipient,
                                    const std::u16string& recipientName,
                                    const std::u16string& attachmentPath,
                                    const std::u16string& attachmentName,
                                    const std::u16string& senderName);

}  // namespace zentpost
