// expect: FormatHasAnUnknownConversion
#include "diag/format.h"

// There are no floating-point numbers here.
void Call() {
  static_cast<void>(zentpost::Format(u"%f", 7));
}
