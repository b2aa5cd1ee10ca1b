#include "mapiload/attempt.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

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

TEST(Attempt, GivesNothingWhateverIsThrown) {
  EXPECT_EQ(Attempt([]() -> std::string { throw std::runtime_error("a mistake"); }), "");
  EXPECT_EQ(Attempt([]() -> int { throw 7; }), 0);
  int steps = 0;
  Attempt([&] {
    ++steps;
    throw 7;
  });
  EXPECT_EQ(steps, 1);
}

}  // namespace
}  // namespace zentpost
