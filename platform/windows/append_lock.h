// How the processes that append to one file find each other.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace platform {

inline constexpr std::u16string_view kAppendLockPrefix = u"Global\\Zentpost-append-";

// The zero-terminated name of the mutex that those who append to the file at `path` share: the
// prefix and 16 hexadecimal digits, which depend on every unit of the path (FNV-1a, 64 bits,
// over the units' bytes). It is in the namespace of all sessions, as the file is.
using AppendLockName = std::array<char16_t, kAppendLockPrefix.size() + 17>;

[[nodiscard]] constexpr AppendLockName NameOfAppendLock(std::u16string_view path) {
  constexpr std::uint64_t kOffsetBasis = 0xCBF29CE484222325;
  constexpr std::uint64_t kPrime = 0x100000001B3;
  std::uint64_t hash = kOffsetBasis;
  for (const char16_t unit : path) {
    for (const unsigned byte : {unit & 0xFFU, static_cast<unsigned>(unit >> 8)}) {
      hash = (hash ^ byte) * kPrime;
    }
  }
  AppendLockName name = {};
  std::size_t length = 0;
  for (const char16_t unit : kAppendLockPrefix) {
    name[length++] = unit;
  }
  for (int shift = 60; shift >= 0; shift -= 4) {
    name[length++] = u"0123456789abcdef"[(hash >> shift) & 0xF];
  }
  return name;
}

}  // namespace platform
