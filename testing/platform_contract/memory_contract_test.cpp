#include "platform/memory.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

class MemoryContract : public ContractTest {};

TEST_F(MemoryContract, ABlockOfAnySizeIsAlignedAndHoldsWhatIsPutIntoIt) {
  HeapBlock blocks[10];
  std::size_t size = 0;
  for (HeapBlock& block : blocks) {
    SCOPED_TRACE(size);
    ASSERT_EQ(AllocateBlock(size, block), kSuccess);
    ASSERT_TRUE(block);
    EXPECT_EQ(static_cast<std::uintptr_t>(block.Get()) % alignof(double), 0U);
    EXPECT_EQ(static_cast<std::uintptr_t>(block.Get()) % alignof(std::uint64_t), 0U);
    char* const data = BlockData<char>(block);
    std::memset(data, 'x', size);
    EXPECT_EQ(std::count(data, data + size, 'x'), static_cast<std::ptrdiff_t>(size));
    size = size == 8 ? 1'000'000 : size + 1;
  }
}

TEST_F(MemoryContract, ABlockThatCannotBeHadIsAnOrdinaryFailure) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  for (const std::size_t size : {kMost, kMost - 1, kMost / 2 + 1}) {
    HeapBlock block;
    ASSERT_EQ(AllocateBlock(1, block), kSuccess);
    EXPECT_EQ(AllocateBlock(size, block), kNotEnoughMemory);
    EXPECT_FALSE(block);
  }
}

}  // namespace
}  // namespace platform::contract
