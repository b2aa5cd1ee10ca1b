// expect: FormatHasFewerConversionsThanArguments
#include "diag/format.h"

// The second argument is printed nowhere.
void Call() {
  static_cast<void>(zentpost::Format(u"%s %%", u"one", u"two"));
}
