// What the paths of libraries have in common on every machine.
#pragma once

#include <string_view>

namespace platform {

// Whether `path` names a file: not one that is empty or blank, a drive and its colon alone, or one
// that ends with a separator. Blanks at the end do not count, as the system does not see them.
// Windows would append ".dll" to such a path and load what it finds under that name.
[[nodiscard]] constexpr bool NamesAFile(std::u16string_view path) {
  while (!path.empty() && (path.back() == u' ' || (path.back() >= u'\t' && path.back() <= u'\r'))) {
    path.remove_suffix(1);
  }
  const bool is_drive = path.size() == 2 && path[1] == u':';
  return !path.empty() && !is_drive && path.back() != u'\\' && path.back() != u'/';
}

}  // namespace platform
