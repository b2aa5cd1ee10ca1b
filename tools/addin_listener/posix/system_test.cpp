#include "tools/addin_listener/system.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace zentpost::addin_listener {
namespace {

void CountCall(void* count) noexcept {
  ++*static_cast<std::atomic<int>*>(count);
}

TEST(System, EachSignalThatEndsAProgramCallsTheGuardInstead) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    // As at the start of a program, whatever the one that started this test has set.
    ASSERT_NE(std::signal(signal, SIG_DFL), SIG_ERR);
    std::atomic<int> count = 0;
    {
      const InterruptGuard guard(CountCall, &count);
      std::raise(signal);
      EXPECT_EQ(count, 1);
      std::raise(signal);
      EXPECT_EQ(count, 2);
    }
    EXPECT_EQ(std::signal(signal, SIG_DFL), SIG_DFL);
  }
}

TEST(System, SignalThatWasIgnoredStaysIgnored) {
  ASSERT_NE(std::signal(SIGHUP, SIG_IGN), SIG_ERR);
  std::atomic<int> count = 0;
  {
    const InterruptGuard guard(CountCall, &count);
    std::raise(SIGHUP);
    EXPECT_EQ(count, 0);
  }
  EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

TEST(System, ErrorsNameTheCallTheReasonAndTheNumber) {
  EXPECT_EQ(CallError("bind", EADDRINUSE), "bind: Address already in use (98)");
}

}  // namespace
}  // namespace zentpost::addin_listener
