#include "mapiload/attempt.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <system_error>

namespace zentpost {
namespace {

TEST(Attempt, GivesWhatTheSourceGives) {
  EXPECT_EQ(Attempt([] { return std::string("a"); }), "a");
}

TEST(Attempt, GivesNothingWhenMemoryRunsOut) {
  EXPECT_EQ(Attempt([]() -> std::string { throw std::bad_alloc(); }), "");
}

TEST(Attempt, GivesNothingForATextThatNoMemoryCouldHold) {
  EXPECT_EQ(Attempt([] { return std::string(std::string().max_size() + 1, 'a'); }), "");
}

TEST(Attempt, GivesNothingWhenALockCannotBeHad) {
  EXPECT_EQ(Attempt([] {
              std::unique_lock<std::mutex> lock;  // of no mutex, which the library refuses
              lock.lock();
              return std::string("a");
            }),
            "");
}

TEST(Attempt, HoldsBackNoOtherMistake) {
  EXPECT_THROW(Attempt([]() -> int { throw std::runtime_error("a mistake"); }), std::runtime_error);
}

}  // namespace
}  // namespace zentpost
