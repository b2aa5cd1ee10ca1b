// Another program keeps the lock of the log for itself.
#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "platform/windows/append_lock.h"
#include "platform/windows/wide.h"
#include "testing/end_to_end/job_test.h"

namespace zentpost::e2e {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

class LogLock : public JobTest {};

TEST_F(LogLock, ThatIsNeverGivenBackCostsAJobTwoSecondsAndNoLine) {
  SwitchLogOn();
  // The shortest of some runs: what else the machine does can only lengthen one.
  const auto shortest_run = [this] {
    milliseconds shortest = milliseconds::max();
    for (int i = 0; i < 3; ++i) {
      // It writes several lines, all of which are compared with what the debugger got.
      const ToolRun run = Run({});
      ExpectLog(run, Started("") + NoMapiLines({}));
      shortest = std::min(shortest, duration_cast<milliseconds>(run.duration));
    }
    return shortest;
  };
  const milliseconds undisturbed = shortest_run();
  const auto name = platform::NameOfAppendLock(machine_.LogFile().u16string());
  HANDLE mutex = CreateMutexW(nullptr, TRUE, platform::ToSystem(name.data()));
  ASSERT_NE(mutex, nullptr);

  const milliseconds disturbed = shortest_run();

  ReleaseMutex(mutex);
  CloseHandle(mutex);
  // Less would mean that the tool and this test do not speak of the same lock.
  EXPECT_GE(disturbed - undisturbed, milliseconds(1500));
  EXPECT_LE(disturbed - undisturbed, milliseconds(2500));
  std::printf("a job took %d ms, and %d ms without its lock\n",
              static_cast<int>(undisturbed.count()), static_cast<int>(disturbed.count()));
}

}  // namespace
}  // namespace zentpost::e2e
