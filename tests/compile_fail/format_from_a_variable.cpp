// expect: constant expression
#include "diag/format.h"

// A format that is not known yet cannot be checked.
void Call(const char16_t* format) {
  static_cast<void>(zentpost::Format(format, u"x"));
}
