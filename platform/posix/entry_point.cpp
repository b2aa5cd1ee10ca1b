#include <string>
#include <string_view>
#include <vector>

#include "platform/application.h"
#include "platform/posix/command_line.h"

int main(int argument_count, char** arguments) {
  // The program's path may be missing.
  const std::vector<std::string_view> given(arguments + (argument_count > 0 ? 1 : 0),
                                            arguments + argument_count);
  // Outlives the application object, which is destroyed behind main.
  static const std::u16string& line = *new std::u16string(platform::RebuildCommandLine(given));
  platform::CWinApp& application = platform::Application();
  application.m_lpCmdLine = line.c_str();
  // There is no message loop between the two hooks, whatever the first one asks for.
  static_cast<void>(application.InitInstance());
  return application.ExitInstance();
}
