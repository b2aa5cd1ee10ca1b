#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {
namespace {

// Before wWinMain: what a program may find.
[[maybe_unused]] const bool is_prepared = [] {
  SetErrorMode(SEM_NOALIGNMENTFAULTEXCEPT);
  _set_error_mode(_OUT_TO_MSGBOX);
  SetDllDirectoryW(L"C:\\elsewhere");
  return true;
}();

}  // namespace

std::string ProcessSettings() {
  wchar_t directory[MAX_PATH] = L"unknown";
  const DWORD length = GetDllDirectoryW(MAX_PATH, directory);
  char text[100];
  std::snprintf(text, sizeof text, "errors 0x%04X, runtime %d, directory of %lu characters",
                GetErrorMode(), _set_error_mode(_REPORT_ERRMODE), length);
  return text;
}

}  // namespace zentpost::entry_point
