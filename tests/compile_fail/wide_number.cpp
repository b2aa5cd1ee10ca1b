// expect: a 32-bit number, a UTF-16 text or a pointer
#include "diag/format.h"

// A number of 64 bits does not fit any conversion.
void Call() {
  static_cast<void>(zentpost::Format(u"%d", 7LL));
}
