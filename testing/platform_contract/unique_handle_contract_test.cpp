#include "platform/unique_handle.h"

#include <type_traits>
#include <utility>
#include <vector>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

using Numbers = std::vector<int>;

Numbers closed;

struct NumberTraits {
  using Value = int;
  static constexpr int kNone = 0;
  static void Close(int number) noexcept { closed.push_back(number); }
};
using OwnedNumber = UniqueHandle<NumberTraits>;

static_assert(!std::is_copy_constructible_v<OwnedNumber>);
static_assert(!std::is_copy_assignable_v<OwnedNumber>);
static_assert(std::is_nothrow_move_constructible_v<OwnedNumber>);

class UniqueHandleContract : public testing::Test {
 protected:
  UniqueHandleContract() { closed.clear(); }
};

TEST_F(UniqueHandleContract, ClosesWhatItHoldsAtItsEndAndNothingWhenItIsEmpty) {
  {
    const OwnedNumber empty;
    const OwnedNumber owner(7);
    EXPECT_FALSE(empty);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.Get(), 7);
    EXPECT_EQ(closed, Numbers());
  }
  EXPECT_EQ(closed, Numbers({7}));
}

TEST_F(UniqueHandleContract, MovesHandOnAndCloseWhatTheTargetHeld) {
  OwnedNumber source(2);
  OwnedNumber built(std::move(source));
  EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): an owner that was moved from is empty.
  EXPECT_EQ(built.Get(), 2);
  OwnedNumber target(1);
  target = std::move(built);
  EXPECT_FALSE(built);  // NOLINT(bugprone-use-after-move): as above.
  EXPECT_EQ(target.Get(), 2);
  EXPECT_EQ(closed, Numbers({1}));
  OwnedNumber& same = target;
  target = std::move(same);
  EXPECT_EQ(target.Get(), 2);
  EXPECT_EQ(closed, Numbers({1}));
}

TEST_F(UniqueHandleContract, PutClosesWhatItHeldAndTakesWhatIsFilledIn) {
  OwnedNumber owner(1);
  int* const address = owner.Put();
  EXPECT_EQ(closed, Numbers({1}));
  EXPECT_FALSE(owner);
  *address = 5;
  EXPECT_EQ(owner.Get(), 5);
}

TEST_F(UniqueHandleContract, ResetClosesWhatItHeldAndDetachDoesNot) {
  OwnedNumber owner(1);
  owner.Reset(4);
  EXPECT_EQ(closed, Numbers({1}));
  EXPECT_EQ(owner.Detach(), 4);
  EXPECT_FALSE(owner);
  EXPECT_EQ(closed, Numbers({1}));
}

}  // namespace
}  // namespace platform::contract
