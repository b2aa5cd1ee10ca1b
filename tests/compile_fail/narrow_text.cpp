// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// Bytes of unknown encoding are no text.
void Call() {
  static_cast<void>(zentpost::Format(u"%s", "seven"));
}
