// expect: FormatHasAnUnknownConversion
#include "diag/format.h"

// Numbers have 32 bits; nothing else is said about them.
void Call() {
  static_cast<void>(zentpost::Format(u"%ld", 7));
}
