#include <unistd.h>

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "platform/application.h"
#include "platform/posix/command_line.h"

namespace {

// Outlives the application object, which is destroyed behind main.
const char16_t* CommandLine(int argument_count, char** arguments) {
  // The program's path may be missing.
  const std::vector<std::string_view> given(arguments + (argument_count > 0 ? 1 : 0),
                                            arguments + argument_count);
  static const std::u16string& line = *new std::u16string(platform::RebuildCommandLine(given));
  return line.c_str();
}

// Nothing catches what is thrown out of here: std::terminate ends the process.
int Run(int argument_count, char** arguments) noexcept {
  const char16_t* const line = CommandLine(argument_count, arguments);
  platform::CWinApp& application = platform::Application();
  application.m_lpCmdLine = line;
  // There is no message loop between the two hooks, whatever the first one asks for.
  static_cast<void>(application.InitInstance());
  return application.ExitInstance();
}

}  // namespace

int main(int argument_count, char** arguments) {
  // As on Windows: an exit code, and no abort.
  std::set_terminate([] { _exit(1); });
  return Run(argument_count, arguments);
}
