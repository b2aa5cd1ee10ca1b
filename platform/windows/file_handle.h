// The handle of a file, and opening one.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/reading.h"

namespace platform {

// One call moves at most what a DWORD counts; a round number below it keeps the calls few.
inline constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

inline DWORD Piece(std::size_t size) {
  return static_cast<DWORD>(std::min(size, kLargestPiece));
}

inline HANDLE Handle(RawFile file) {
  return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(file));
}

// Opens a file on a disk, with the arguments of CreateFileW; nothing else, since what stands behind
// a pipe or a port may keep its user waiting for ever.
[[nodiscard]] Status OpenDiskFile(const std::u16string& path, DWORD access, DWORD sharing,
                                  DWORD disposition, reading::File& file);

}  // namespace platform
