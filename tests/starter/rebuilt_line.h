// The command line that the tool sees on a system where processes are handed words.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zentpost::test {

// Nothing where processes are handed a line. Both in UTF-8.
[[nodiscard]] std::optional<std::string> RebuiltLine(const std::vector<std::string>& words);

}  // namespace zentpost::test
