// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// A number where a text is wanted.
void Call() {
  static_cast<void>(zentpost::Format(u"%s", 7));
}
