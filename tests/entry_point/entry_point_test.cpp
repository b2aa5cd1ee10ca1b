// How a program ends when something goes wrong that nobody has thought of.
#include "tests/entry_point/entry_point_test.h"

#include "testing/end_to_end/settings.h"
#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {
namespace {

TEST_F(EntryPoint, EndsWithWhatTheApplicationSays) {
  const e2e::ProcessRun run = Run("nothing");
  EXPECT_EQ(run.exit_code, kExitCode);
  EXPECT_EQ(run.printed, "");
}

// Also out of a function that says that it throws nothing.
TEST_F(EntryPoint, EndsWith1WhereverIsThrown) {
  for (const char* step : {"init-instance", "exit-instance", "worker", "noexcept"}) {
    ExpectEndsWith1(step);
  }
}

}  // namespace
}  // namespace zentpost::entry_point
