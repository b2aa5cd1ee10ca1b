#include "testing/end_to_end/real_machine.h"

#include <windows.h>

#include <cstdio>

#include "testing/end_to_end/windows/wine.h"

namespace zentpost::e2e {
namespace {

bool IsAskedFor() {
  wchar_t value[2] = {};
  return GetEnvironmentVariableW(L"ZENTPOST_TEST_REAL_MACHINE", value, 2) == 1 && value[0] == L'1';
}

}  // namespace

bool IsRealMachine() {
  return !IsWine() || IsAskedFor();
}

bool MayChangeMachine(const std::string& what) {
  if (!IsRealMachine()) {
    return true;
  }
  const bool is_asked_for = IsAskedFor();
  std::printf(is_asked_for
                  ? "this test changes %s, and puts back what it found\n"
                  : "this test would change %s: set ZENTPOST_TEST_REAL_MACHINE=1 to let it\n",
              what.c_str());
  return is_asked_for;
}

}  // namespace zentpost::e2e
