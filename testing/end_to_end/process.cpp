#include "testing/end_to_end/process.h"

namespace zentpost::e2e {

std::string CommandLineOf(const std::vector<std::string>& arguments) {
  std::string line;
  for (const std::string& argument : arguments) {
    if (&argument != &arguments.front()) {
      line += ' ';
    }
    const bool is_plain =
        !argument.empty() && argument.find_first_of(" \t\r\n\v\f") == std::string::npos;
    line += is_plain ? argument : '"' + argument + '"';
  }
  return line;
}

}  // namespace zentpost::e2e
