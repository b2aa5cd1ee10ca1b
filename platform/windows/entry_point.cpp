#include <windows.h>

#include "platform/application.h"
#include "platform/windows/startup.h"
#include "platform/windows/wide.h"

namespace {

// Nothing catches what is thrown out of here: std::terminate ends the process.
int Run(const wchar_t* command_line) noexcept {
  platform::CWinApp& application = platform::Application();
  if (command_line != nullptr) {
    application.m_lpCmdLine = platform::FromSystem(command_line);
  }
  // There is no message loop between the two hooks, whatever the first one asks for.
  static_cast<void>(application.InitInstance());
  return application.ExitInstance();
}

}  // namespace

// The C runtime's start-up code has skipped the program's path and the blanks behind it.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t* command_line, int) {
  platform::ShowNothingAndLoadNothingFromTheCurrentFolder();
  return Run(command_line);
}
