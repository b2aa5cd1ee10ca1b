// expect: FormatHasAnUnknownConversion
#include "diag/format.h"

// Nothing follows the percent sign.
void Call() {
  static_cast<void>(zentpost::Format(u"100 %"));
}
