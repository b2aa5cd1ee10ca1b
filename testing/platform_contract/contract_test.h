// The fixture of every contract test, and what several of them use.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "platform/status.h"
#include "testing/platform_contract/machine.h"

namespace platform::contract {

class ContractTest : public testing::Test {
 protected:
  ContractTest() { PrepareMachine(); }
  ~ContractTest() override { ClearMachine(); }
};

// Bytes among which no part is like the next one.
inline std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>((i + i / 251) % 251);
  }
  return bytes;
}

// Calls `fill`, which is to put `expected` into a buffer, with every kind of capacity. It has to
// give the length, with the terminator only where `counts_terminator` says so; where the buffer is
// too small, the length with the terminator. Nothing behind the buffer may change, and nothing in
// one that is too small is looked at.
using Fill = std::function<Status(std::uint32_t capacity, char16_t* buffer, std::uint32_t& length)>;
inline void ExpectFills(const Fill& fill, const std::u16string& expected,
                        bool counts_terminator = false) {
  const auto needed = static_cast<std::uint32_t>(expected.size() + 1);
  for (const std::uint32_t capacity : {0U, 1U, needed / 2, needed - 1, needed, needed + 100}) {
    SCOPED_TRACE(capacity);
    std::u16string buffer(capacity + 2, u'#');
    std::uint32_t length = 99999;
    EXPECT_EQ(fill(capacity, capacity == 0 ? nullptr : buffer.data(), length), kSuccess);
    EXPECT_EQ(buffer.substr(capacity), u"##");
    if (capacity < needed) {
      EXPECT_EQ(length, needed);
    } else {
      EXPECT_EQ(length, counts_terminator ? needed : needed - 1);
      EXPECT_EQ(buffer.substr(0, needed), expected + u'\0');
    }
  }
}

}  // namespace platform::contract
