// expect: a 32-bit number, a UTF-16 text or a pointer
#include "diag/format.h"

// The same in a string object.
void Call() {
  static_cast<void>(zentpost::Format(u"%s", std::string("seven")));
}
