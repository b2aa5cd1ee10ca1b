#include "mapiload/split_path.h"

#include <algorithm>
#include <string_view>

namespace zentpost {
namespace {

// False when `field` has no space for `text` and its terminator.
bool Fill(std::u16string_view text, std::span<char16_t> field) {
  if (text.size() >= field.size()) {
    return false;
  }
  *std::copy(text.begin(), text.end(), field.begin()) = u'\0';
  return true;
}

}  // namespace

int SplitPath(const char16_t* path, std::span<char16_t> drive, std::span<char16_t> directory) {
  const std::u16string_view whole(path);
  const std::size_t drive_length = whole.size() > 1 && whole[1] == u':' ? 2 : 0;
  const std::u16string_view rest = whole.substr(drive_length);
  // npos + 1 is 0.
  const std::size_t directory_length = rest.find_last_of(u"\\/") + 1;
  if (Fill(whole.substr(0, drive_length), drive) &&
      Fill(rest.substr(0, directory_length), directory)) {
    return 0;
  }
  drive.front() = u'\0';
  directory.front() = u'\0';
  return kFieldTooSmall;
}

}  // namespace zentpost
