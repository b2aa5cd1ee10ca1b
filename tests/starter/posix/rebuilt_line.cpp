#include "tests/starter/rebuilt_line.h"

#include <string_view>

#include "platform/posix/command_line.h"
#include "tools/support/text.h"

namespace zentpost::test {

std::optional<std::string> RebuiltLine(const std::vector<std::string>& words) {
  return support::Utf8(
      platform::RebuildCommandLine(std::vector<std::string_view>(words.begin(), words.end())));
}

}  // namespace zentpost::test
