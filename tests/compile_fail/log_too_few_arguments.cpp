// expect: FormatHasMoreConversionsThanArguments
#include "diag/log_file.h"

// The entry points of the log check their formats alike.
void Call() {
  zentpost::LogError(u"ReadFromFile(): Parse JSON failed with error '%s'");
}
