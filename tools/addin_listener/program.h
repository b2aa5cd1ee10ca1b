// The program addin_listener from its command line to its exit code: listens, checks, prints,
// keeps.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::addin_listener {

// Takes UTF-8 text with line feeds and passes it on at once; false when that is not possible.
using Writer = std::function<bool(std::string_view text)>;

// `arguments` are the words after the program's name, in UTF-8. Returns the exit code that the help
// text names.
[[nodiscard]] int RunProgram(const std::vector<std::string>& arguments, const Writer& out,
                             const Writer& err);

}  // namespace zentpost::addin_listener
