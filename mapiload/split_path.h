// Splits a path into drive and directory, within fields of fixed width.
#pragma once

#include <span>

namespace zentpost {

// Published in errno.h of Microsoft's C library, ERANGE.
inline constexpr int kFieldTooSmall = 34;

// As _wsplitpath_s does: the drive is the first unit and a colon behind it, the directory reaches
// from there through the last separator ('\' or '/'). Each is written with a terminator, and empty
// when the path has none; what stands behind the terminator stays as it is. Gives 0, or
// kFieldTooSmall when a field has no space, with both fields then empty. Neither field has width 0.
[[nodiscard]] int SplitPath(const char16_t* path, std::span<char16_t> drive,
                            std::span<char16_t> directory);

}  // namespace zentpost
