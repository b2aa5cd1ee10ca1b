// The results of Extended MAPI under their published names (mapicode.h), as they stand in the
// log's "Code" lines and in a job file's "ErrorCode".
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zentpost::doctor {

struct MapiResult {
  std::string_view symbol;
  std::uint32_t number;
  std::string_view meaning;  // ASCII
};

// All that the published header names, failures first, by their numbers. Does not throw.
[[nodiscard]] std::span<const MapiResult> MapiResults();

}  // namespace zentpost::doctor
