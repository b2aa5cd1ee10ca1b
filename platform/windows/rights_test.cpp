#include <gtest/gtest.h>

#include "platform/reading.h"

namespace platform::reading {
namespace {

// Who opens a pipe or a port takes it from somebody else.
TEST(LookBeforeOpening, RefusesWhatIsNoFileByItsName) {
  for (const char16_t* const path :
       {u"COM1", u"NUL", u"\\\\.\\pipe\\a", u"\\\\?\\pipe\\a", u"\\\\server\\pipe\\a",
        u"\\\\server\\PIPE\\a", u"\\\\server\\mailslot\\a", u"\\\\.\\COM12", u"//./pipe/a"}) {
    EXPECT_EQ(LookBeforeOpening(path), kAccessDenied) << testing::PrintToString(path);
    EXPECT_EQ(WouldChange(path, Change::kRewrite), kAccessDenied) << testing::PrintToString(path);
  }
}

TEST(LookBeforeOpening, LetsFilesPass) {
  for (const char16_t* const path :
       {u"C:\\a.pdf", u"a.pdf", u"C:\\pipe\\a", u"\\\\server\\pipes\\a", u"\\\\server",
        u"\\\\?\\C:\\a", u"\\\\.\\C:\\a", u"\\\\?\\UNC\\server\\share\\a", u"", u"\\"}) {
    EXPECT_EQ(LookBeforeOpening(path), kSuccess) << testing::PrintToString(path);
  }
}

}  // namespace
}  // namespace platform::reading
