// The command line of addin_listener.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/addin_listener/listener.h"

namespace zentpost::addin_listener {

enum class Action { kListen, kDecode, kShowHelp, kShowVersion };
enum class Display { kReadable, kJson, kQuiet };

struct Options {
  Action action = Action::kListen;
  ListenerOptions listener;
  Display display = Display::kReadable;
  std::optional<std::filesystem::path> port_file;
  std::optional<std::filesystem::path> out_folder;
  unsigned code_page = 1252;                     // the sender's
  std::optional<std::filesystem::path> capture;  // kDecode: nothing is the standard input
};

// `arguments` are the words after the program's name, in UTF-8. A value follows its option as the
// next word or after "="; of an option given twice the last one counts. Throws std::runtime_error
// with what is wrong with a command line that cannot be used. --help, -h and --version count at
// once, whatever follows them.
[[nodiscard]] Options ParseOptions(const std::vector<std::string>& arguments);

// The text of --help, with a line feed at its end.
[[nodiscard]] std::string_view HelpText();

}  // namespace zentpost::addin_listener
