// Formats that do not fit their arguments are no program. A line without a remark is one.
#include <string>

#include "diag/format.h"
#include "diag/log_file.h"

using zentpost::Format;

void Formats(const char16_t* text, const std::u16string& string, const void* pointer, int number) {
  static_cast<void>(Format(u"%s %ws %s", text, string, u"literal"));
  static_cast<void>(Format(u"%d %u %x %X", 7, 7U, 7, 7U));
  static_cast<void>(Format(u"%p %.8x %05d 100%%", pointer, 7U, 7));
  zentpost::LogInfo(u"StartZentpost(): %s", text);
  zentpost::LogErrorWithCode(5, u"_utf8(): %x", 7U);

  // What is not known yet cannot be checked.
  static_cast<void>(Format(text, u"x"));  // refused: constant expression

  static_cast<void>(Format(u"%f", 7));          // refused: FormatHasAnUnknownConversion
  static_cast<void>(Format(u"%ld", 7));         // refused: FormatHasAnUnknownConversion
  static_cast<void>(Format(u"%5s", u"seven"));  // refused: FormatHasAnUnknownConversion
  static_cast<void>(Format(u"100 %"));          // refused: FormatHasAnUnknownConversion

  static_cast<void>(Format(u"100%d"));                  // refused: FormatHasMoreConversions
  static_cast<void>(Format(u"%s %s", u"one"));          // refused: FormatHasMoreConversions
  static_cast<void>(Format(u"%s %%", u"one", u"two"));  // refused: FormatHasFewerConversions

  static_cast<void>(Format(u"%d", u"seven"));        // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%s", 7));               // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%s %d", 7, u"seven"));  // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%p", 7));               // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%x", &number));         // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%d", 7U));              // refused: FormatDoesNotFit
  static_cast<void>(Format(u"%s", "bytes"));         // refused: FormatDoesNotFit

  static_cast<void>(Format(u"%d", 7LL));                  // refused: a 32-bit number, a UTF-16
  static_cast<void>(Format(u"%d", 7.5));                  // refused: a 32-bit number, a UTF-16
  static_cast<void>(Format(u"%s", std::string("text")));  // refused: a 32-bit number, a UTF-16

  // The log's functions check their formats alike. A code is printed on a line of its own.
  zentpost::LogInfo(u"StartZentpost(): %d", u"a.json");  // refused: FormatDoesNotFit
  zentpost::LogError(u"ReadFromFile(): '%s'");           // refused: FormatHasMoreConversions
  zentpost::LogErrorWithCode(5, u"_utf8(): %x");         // refused: FormatHasMoreConversions
}
