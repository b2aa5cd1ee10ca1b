// expect: success
#include <string>

#include "diag/format.h"
#include "diag/log_file.h"

// The control: what the other files get wrong, done right.
void Call(const char16_t* text, const std::u16string& string, const void* pointer) {
  static_cast<void>(zentpost::Format(u"%s %ws %s", text, string, u"literal"));
  static_cast<void>(zentpost::Format(u"%d %u %x %X", 7, 7U, 7, 7U));
  static_cast<void>(zentpost::Format(u"%p %.8x %05d 100%%", pointer, 7U, 7));
  zentpost::LogInfo(u"StartZentpost(): %s", text);
  zentpost::LogErrorWithCode(5, u"_utf8(): %x", 7U);
}
