// The numbers by which the fax client's installation configures the tool, read afresh each time.
#pragma once

#include <cstdint>

#include "platform/registry.h"

namespace zentpost {

// The 32-bit number `value_name` of the key "Software\Sollvex\FaxClient": the user's, or the
// machine's when the user's is 0 or absent; 0 when neither hive has one. The value's type is not
// looked at; data of more than four bytes counts as absent, and so does what cannot be read when
// memory runs out. Does not throw.
[[nodiscard]] std::uint32_t ReadClientNumber(const char16_t* value_name);

// The same of one hive alone; 0 when it has none. The registry's key stays open in `key`, so that
// the caller sees how closing it went. Does not throw.
[[nodiscard]] std::uint32_t ReadClientNumberOf(platform::Hive hive, const char16_t* value_name,
                                               platform::RegistryKey& key);

}  // namespace zentpost
