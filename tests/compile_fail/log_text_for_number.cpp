// expect: FormatDoesNotFitTheArgumentsType
#include "diag/log_file.h"

// The entry points of the log check their formats alike.
void Call() {
  zentpost::LogInfo(u"StartZentpost(): %d", u"a.json");
}
