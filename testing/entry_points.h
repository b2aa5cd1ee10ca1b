// The functions of entry_points.inc as tests call them.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"

namespace zentpost::test {

struct EntryPoint {
  const char* name;
  const char* decorated_name;  // in 32 bits
  const char* reached;         // what the library sees of the call
  std::uint32_t result;
  std::uint32_t unavailable;
};

inline constexpr EntryPoint kEntryPoints[] = {
#define ENTRY_POINT(name, size, arguments, seen, result, unavailable) \
  {#name, #name "@" #size, #name "(" seen ")", result, unavailable},
#include "testing/entry_points.inc"
#undef ENTRY_POINT
};

template <class T>
T* Pointer(std::uintptr_t number) {
  return reinterpret_cast<T*>(number);
}

// The result of `call`, or 0 when it gives none.
template <class Call>
std::uint32_t ResultOf(const Call& call) {
  if constexpr (std::is_void_v<decltype(call())>) {
    call();
    return 0;
  } else {
    return static_cast<std::uint32_t>(call());
  }
}

// Calls the entry point of this name; gives its result, or 0.
inline std::uint32_t CallEntryPoint(std::string_view called) {
#define ENTRY_POINT(name, size, arguments, seen, result, unavailable) \
  if (called == #name) {                                              \
    return ResultOf([] { return name arguments; });                   \
  }
#include "testing/entry_points.inc"
#undef ENTRY_POINT
  return 0;
}

}  // namespace zentpost::test
