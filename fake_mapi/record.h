// Arguments of calls as texts, see client.h.
#pragma once

#include <string>

#include "mapi_types.h"

namespace zentpost::fake_mapi {

// A text as the mail client keeps it; `is_wide` tells what is really there. Null is empty.
[[nodiscard]] std::u16string FromText(const WideChar* text, bool is_wide);

[[nodiscard]] std::string TextOf(const WideChar* text, bool is_wide = true);
[[nodiscard]] std::string TextOf(const char* text);
[[nodiscard]] std::string BytesOf(ULONG size, const void* bytes);
[[nodiscard]] std::string ValuesOf(ULONG count, const SPropValue* values);
[[nodiscard]] std::string TagsOf(const SPropTagArray* tags);
[[nodiscard]] std::string ListOf(const ADRLIST* list);
[[nodiscard]] std::string InterfaceOf(const GUID* id);
[[nodiscard]] std::string NullOr(const void* pointer);

[[nodiscard]] bool IsClientShutdown(const GUID& id);
[[nodiscard]] GUID InterfaceId(std::uint32_t first);

}  // namespace zentpost::fake_mapi
