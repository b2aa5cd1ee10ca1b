#include <windows.h>

#include "platform/application.h"
#include "platform/windows/wide.h"

// The C runtime's start-up code has skipped the program's path and the blanks behind it.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t* command_line, int) {
  platform::CWinApp& application = platform::Application();
  if (command_line != nullptr) {
    application.m_lpCmdLine = platform::FromSystem(command_line);
  }
  // There is no message loop between the two hooks, whatever the first one asks for.
  static_cast<void>(application.InitInstance());
  return application.ExitInstance();
}
