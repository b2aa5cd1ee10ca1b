// What the start-up sets on Windows, before the application object is asked for anything.
#include <gtest/gtest.h>

#include "testing/end_to_end/files.h"
#include "tests/entry_point/entry_point_test.h"
#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {
namespace {

// SEM_NOALIGNMENTFAULTEXCEPT (4) was set already; _OUT_TO_STDERR is 1.
TEST_F(EntryPoint, ShowsNoBoxAndTakesNoLibraryFromTheCurrentFolder) {
  EXPECT_EQ(Run("settings").exit_code, kExitCode);
  EXPECT_EQ(e2e::ReadBytes(folder_ / kSettingsFile).value_or("missing"),
            "errors 0x8007, runtime 1, directory empty");
}

}  // namespace
}  // namespace zentpost::entry_point
