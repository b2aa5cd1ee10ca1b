// expect: FormatHasAnUnknownConversion
#include "diag/format.h"

// Texts are never cut or filled up.
void Call() {
  static_cast<void>(zentpost::Format(u"%5s", u"seven"));
}
