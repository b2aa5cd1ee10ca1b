#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {
namespace {

// What SetDllDirectoryW was told: the system itself does not tell an empty directory from none.
std::string dll_directory = "never set";

BOOL WINAPI NoteDllDirectory(const wchar_t* directory) {
  dll_directory = directory == nullptr ? "none" : *directory == L'\0' ? "empty" : "another";
  return TRUE;
}

// Before wWinMain: what a program may find.
[[maybe_unused]] const bool is_prepared = [] {
  SetErrorMode(SEM_NOALIGNMENTFAULTEXCEPT);
  _set_error_mode(_OUT_TO_MSGBOX);
  return true;
}();

}  // namespace

std::string ProcessSettings() {
  char text[100];
  std::snprintf(text, sizeof text, "errors 0x%04X, runtime %d, directory %s", GetErrorMode(),
                _set_error_mode(_REPORT_ERRMODE), dll_directory.c_str());
  return text;
}

}  // namespace zentpost::entry_point

// What the linker would otherwise take from the import library.
#ifdef __i386__
#define IMPORT __asm__("__imp__SetDllDirectoryW@4")
#else
#define IMPORT __asm__("__imp_SetDllDirectoryW")
#endif
extern "C" {
extern const decltype(&zentpost::entry_point::NoteDllDirectory) imported_set_dll_directory IMPORT;
const decltype(&zentpost::entry_point::NoteDllDirectory) imported_set_dll_directory =
    zentpost::entry_point::NoteDllDirectory;
}
