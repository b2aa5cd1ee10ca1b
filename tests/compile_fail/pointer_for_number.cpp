// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// A pointer where a number is wanted.
void Call() {
  int x = 7;
  static_cast<void>(zentpost::Format(u"%x", &x));
}
