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

TEST_F(EntryPoint, EndsWith1WhenAHookThrows) {
  ExpectEndsWith1("init-instance");
  ExpectEndsWith1("exit-instance");
}

TEST_F(EntryPoint, EndsWith1WhenAThreadThrows) {
  ExpectEndsWith1("worker");
}

TEST_F(EntryPoint, EndsWith1WhenAFunctionThrowsAlthoughItSaysThatItDoesNot) {
  ExpectEndsWith1("noexcept");
}

}  // namespace
}  // namespace zentpost::entry_point
