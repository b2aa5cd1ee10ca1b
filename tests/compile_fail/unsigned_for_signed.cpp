// expect: FormatDoesNotFitTheArgumentsType
#include "diag/format.h"

// Above 2147483647 the number would turn negative.
void Call() {
  static_cast<void>(zentpost::Format(u"%d", 7U));
}
