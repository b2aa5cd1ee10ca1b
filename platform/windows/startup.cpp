#include "platform/windows/startup.h"

#include <windows.h>

#include <cstdlib>
#include <exception>

// What std::terminate calls: the runtime's own handler would write about the exception and abort,
// and whatever is shown then waits for a user whom nobody has told of the job.
void __gnu_cxx::__verbose_terminate_handler() {
  TerminateProcess(GetCurrentProcess(), 1);
}

namespace platform {

void ShowNothingAndLoadNothingFromTheCurrentFolder() {
  SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX |
               SEM_NOOPENFILEERRORBOX);
  _set_error_mode(_OUT_TO_STDERR);
  SetDllDirectoryW(L"");
}

}  // namespace platform
