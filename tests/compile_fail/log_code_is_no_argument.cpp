// expect: FormatHasMoreConversionsThanArguments
#include "diag/log_file.h"

// The code is printed on a line of its own, not by the format.
void Call() {
  zentpost::LogErrorWithCode(5, u"_utf8(): %x");
}
