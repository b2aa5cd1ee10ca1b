// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// Each argument would fit the other conversion.
void Call() {
  static_cast<void>(zentpost::Format(u"%s %d", 7, u"seven"));
}
