#include "tools/addin_listener/system.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "tools/addin_listener/listener.h"

namespace zentpost::addin_listener {
namespace {

// How a listener ends that gets `signal` before it runs, for 1 ms.
RunEnd EndAfter(int signal) {
  Listener listener;
  std::string error;
  EXPECT_TRUE(listener.Open({.timeout = std::chrono::milliseconds(1)}, error)) << error;
  const InterruptGuard guard(listener);
  std::raise(signal);
  return listener.Run([](const Connection&) {}, error);
}

TEST(System, EachSignalThatEndsAProgramStopsTheListenerInstead) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    // As at the start of a program, whatever the one that started this test has set.
    ASSERT_NE(std::signal(signal, SIG_DFL), SIG_ERR);
    EXPECT_EQ(EndAfter(signal), RunEnd::kStopped);
    EXPECT_EQ(std::signal(signal, SIG_DFL), SIG_DFL);
  }
}

TEST(System, SignalThatWasIgnoredStaysIgnored) {
  ASSERT_NE(std::signal(SIGHUP, SIG_IGN), SIG_ERR);
  EXPECT_EQ(EndAfter(SIGHUP), RunEnd::kTimedOut);
  EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

TEST(System, ErrorsNameTheCallTheReasonAndTheNumber) {
  EXPECT_EQ(CallError(std::system_error(EADDRINUSE, std::generic_category(), "bind")),
            "bind: Address already in use (98)");
}

}  // namespace
}  // namespace zentpost::addin_listener
