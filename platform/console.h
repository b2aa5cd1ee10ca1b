// The start and the end of a console program, and what it needs of its system in between.
#pragma once

#include <string>
#include <string_view>

namespace platform {

class Console {
 public:
  virtual ~Console() = default;

  // Take UTF-8. False when it cannot be written. Do not throw, as does nothing here.
  virtual bool Out(std::string_view text) = 0;
  virtual void Err(std::string_view text) = 0;
  // Replaces the file at `path`, or makes it; false when that fails.
  virtual bool WriteFile(const std::u16string& path, std::string_view bytes) = 0;
  // Waits for a key where the text would go with the console's window.
  virtual void AwaitReader() = 0;
};

// The program itself, which gives its exit code. `command_line` is the raw text behind the
// program's path.
int RunConsoleProgram(std::u16string_view command_line, Console& console);

}  // namespace platform
