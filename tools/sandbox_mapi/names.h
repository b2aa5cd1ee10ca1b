// How this tool names what it has: in the entry identifiers that it hands out, and in what it
// writes down.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fake_mapi/properties.h"

namespace zentpost::fake_mapi::sandbox {

// An entry identifier of this tool: what kind of thing ('S' store, 'F' folder, 'M' message) and
// its name in UTF-8.
struct Entry {
  char kind = 0;
  std::string name;
};
[[nodiscard]] std::string EntryId(const Entry& entry);
[[nodiscard]] std::optional<Entry> ReadEntryId(std::string_view entry_id);

// "PR_SUBJECT_W"; empty for a tag that this tool does not know by name.
[[nodiscard]] std::string TagName(std::uint32_t tag);
// "PT_UNICODE", or the number in hexadecimal.
[[nodiscard]] std::string TypeName(std::uint32_t tag);

}  // namespace zentpost::fake_mapi::sandbox
