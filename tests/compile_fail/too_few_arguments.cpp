// expect: FormatHasMoreConversionsThanArguments
#include "diag/format.h"

// The second conversion has nothing to print.
void Call() {
  static_cast<void>(zentpost::Format(u"%s %s", u"one"));
}
