// Memory that runs out within a function of the platform layer is a failure with a number, never an
// exception. The back-ends turn the one into the other, and those of the core turn it back for whom
// every other failure is ordinary.
#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>

#include "platform/status.h"

namespace platform {

// HRESULT_FROM_WIN32(ERROR_OUTOFMEMORY), published in winerror.h as E_OUTOFMEMORY.
inline constexpr auto kOutOfMemoryResult = static_cast<std::int32_t>(0x8007000E);

// Gives what `function` gives, or `failure` when memory runs out in it.
template <class Result, class Function>
[[nodiscard]] Result UnlessMemoryRunsOut(Result failure, Function function) {
  try {
    return function();
  } catch (const std::bad_alloc&) {
    return failure;
  } catch (const std::length_error&) {  // A text longer than any memory.
    return failure;
  }
}

// The same for what gives a number.
template <class Function>
[[nodiscard]] Status UnlessMemoryRunsOut(Function function) {
  return UnlessMemoryRunsOut(kNotEnoughMemory, function);
}

// Gives `status`, unless it is kNotEnoughMemory: throws std::bad_alloc instead.
inline Status ThrowWithoutMemory(Status status) {
  if (status == kNotEnoughMemory) {
    throw std::bad_alloc();
  }
  return status;
}

}  // namespace platform
