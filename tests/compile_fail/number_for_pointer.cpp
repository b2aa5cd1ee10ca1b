// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// A number where a pointer is wanted.
void Call() {
  static_cast<void>(zentpost::Format(u"%p", 7));
}
