#include "mapiload/attempt.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

namespace zentpost {
namespace {

TEST(Attempt, GivesWhatTheSourceGivesAndNothingWhateverIsThrown) {
  EXPECT_EQ(Attempt([] { return std::string("a"); }), "a");
  EXPECT_EQ(Attempt([]() -> std::string { throw std::bad_alloc(); }), "");
  // A text that no memory could hold.
  EXPECT_EQ(Attempt([] { return std::string(std::string().max_size() + 1, 'a'); }), "");
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
