// Texts for 32-bit error codes: a fixed table for the codes of MAPI and COM, the system's own
// message for all others.
#pragma once

#include <cstdint>
#include <string>

namespace zentpost {

// The text for `code` on one line: without line ends and tabs. Never empty: "Unknown Error." where
// neither the table nor the system knows the code. Throws std::bad_alloc
// when memory runs out.
[[nodiscard]] std::u16string GetErrorText(std::uint32_t code);

}  // namespace zentpost
