// The program sandbox_mapi from its command line to its exit code.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::fake_mapi::sandbox {

// Takes UTF-8 text with line feeds.
using Writer = std::function<void(std::string_view text)>;

// `arguments` are the words after the program's name, in UTF-8; `library` is the library to
// register. Returns the exit code that the help text names.
[[nodiscard]] int RunProgram(const std::vector<std::string>& arguments,
                             const std::filesystem::path& library, const Writer& out,
                             const Writer& err);

}  // namespace zentpost::fake_mapi::sandbox
