// What the library of published functions and the test that calls it agree on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zentpost::abi {

// The last call of one of its functions: what it got, pointers and numbers alike, and what it gave.
struct LibraryCall {
  const char* function;
  std::size_t count;
  std::uintptr_t arguments[8];
  std::int32_t result;
};

// Its export "TakeLastCall". Without a call since it was last taken, `function` is empty.
using TakeLastCallFunction = LibraryCall (*)();

}  // namespace zentpost::abi
