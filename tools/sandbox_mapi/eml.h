// Writes a message as a mail program stores it: RFC 5322 and MIME, lines of at most 76 characters
// that end in CRLF, non-ASCII names in the headers as RFC 2047 and RFC 2231 have them.
#pragma once

#include <chrono>
#include <ostream>
#include <string>
#include <string_view>

#include "tools/sandbox_mapi/names.h"

namespace zentpost::fake_mapi::sandbox {

struct EmlOptions {
  std::chrono::sys_seconds date;
  std::string unique;      // At most 60 letters, digits and dots, as no other message has them.
  bool is_unsent = false;  // A draft: mail programs open it for editing.
};

// The bytes of attached documents are read from their files while writing, a piece at a time. False
// when one cannot be read; a failed `out` is for the caller to see.
[[nodiscard]] bool WriteEml(const Message& message, const EmlOptions& options, std::ostream& out);

// How an address stands in a header, README.md has the table. `address_type` and `address` are as
// MAPI has them, the result is an addr-spec in ASCII.
[[nodiscard]] std::string AddressSpec(std::u16string_view address_type,
                                      std::u16string_view address);

// "Name: value" in lines of at most 76 characters where the value can be split, with CRLF at their
// ends. Control characters become blanks; what is not ASCII is encoded.
[[nodiscard]] std::string TextHeader(std::string_view name, std::u16string_view value);

// `text` as quoted-printable with each kind of line end as CRLF; without one at its end unless the
// text has one there.
[[nodiscard]] std::string QuotedPrintable(std::u16string_view text);

// "Fri, 20 Nov 2026 08:05:09 +0000"
[[nodiscard]] std::string MailDate(std::chrono::sys_seconds time);

}  // namespace zentpost::fake_mapi::sandbox
