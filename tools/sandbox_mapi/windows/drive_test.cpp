// A folder for the mail on a drive that is not there.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "tools/sandbox_mapi/program.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

TEST(DriveTest, FolderOnADriveThatIsNotThereIsRefused) {
  std::string folder = "A:\\mail";
  for (DWORD drives = GetLogicalDrives(); drives % 2 != 0; drives /= 2) {
    ++folder[0];
  }
  ASSERT_LE(folder[0], 'Z');
  std::string told;
  EXPECT_EQ(RunProgram(
                {"register", "--folder", folder}, "C:\\a.dll",
                [](std::string_view text) { FAIL() << text; },
                [&told](std::string_view text) { told += text; }),
            3);
  EXPECT_EQ(told, "sandbox_mapi: there is no drive for the mail: name another with --folder\n  " +
                      folder + "\n");
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
