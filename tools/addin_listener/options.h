// The command line of addin_listener. Pure: takes words, gives settings or a sentence on what is
// wrong with them.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/addin_listener/listener.h"

namespace zentpost::addin_listener {

enum class Action { kListen, kShowHelp, kShowVersion };
enum class Display { kReadable, kJson, kQuiet };

struct Options {
  Action action = Action::kListen;
  ListenerOptions listener;
  Display display = Display::kReadable;
  std::optional<std::filesystem::path> port_file;
  std::optional<std::filesystem::path> out_folder;
};

// `arguments` are the words after the program's name, in UTF-8. A value follows its option as the
// next word or after "="; of an option given twice the last one counts. Nothing for a command line
// that cannot be used; `error` then says why in UTF-8. --help and --version count at once, whatever
// follows them.
[[nodiscard]] std::optional<Options> ParseOptions(const std::vector<std::string>& arguments,
                                                  std::string& error);

// The text of --help, with a line feed at its end.
[[nodiscard]] std::string_view HelpText();

}  // namespace zentpost::addin_listener
