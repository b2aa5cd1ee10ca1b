#include <windows.h>

#include <cstdlib>
#include <exception>

#include "platform/application.h"
#include "platform/windows/wide.h"

// What std::terminate calls: the runtime's own handler would write about the exception and abort,
// and whatever is shown then waits for a user whom nobody has told of the job.
void __gnu_cxx::__verbose_terminate_handler() {
  TerminateProcess(GetCurrentProcess(), 1);
}

namespace {

// For the whole process, before anything else.
void ShowNothingAndLoadNothingFromTheCurrentFolder() {
  SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX |
               SEM_NOOPENFILEERRORBOX);
  _set_error_mode(_OUT_TO_STDERR);
  SetDllDirectoryW(L"");
}

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
  ShowNothingAndLoadNothingFromTheCurrentFolder();
  return Run(command_line);
}
