#include "mapi/send_mail.h"

namespace zentpost {

std::int32_t SendMail(const std::u16string& /*subject*/, const std::u16string& /*body*/,
                      std::uint32_t /*showModal*/, std::uint32_t /*submit*/,
                      std::uint32_t /*reserved1*/, std::uint32_t /*reserved2*/,
                      const std::u16string& /*recipient*/, const std::u16string& /*recipientName*/,
                      const std::u16string& /*attachmentPath*/,
                      const std::u16string& /*attachmentName*/,
                      const std::u16string& /*senderName*/) {
  // No MAPI library is looked for yet, so every machine is one without MAPI.
  return static_cast<std::int32_t>(0x80004005);  // E_FAIL (winerror.h)
}

}  // namespace zentpost
