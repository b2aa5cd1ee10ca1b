// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// A text where a number is wanted.
void Call() {
  static_cast<void>(zentpost::Format(u"%d", u"seven"));
}
