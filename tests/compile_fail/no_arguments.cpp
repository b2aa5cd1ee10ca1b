// expect: FormatHasMoreConversionsThanArguments
#include "diag/format.h"

// A percent sign that was meant as itself.
void Call() {
  static_cast<void>(zentpost::Format(u"100%d"));
}
