// expect: a 32-bit number, a UTF-16 text or a pointer
#include "diag/format.h"

// Nor does a fraction.
void Call() {
  static_cast<void>(zentpost::Format(u"%d", 7.5));
}
