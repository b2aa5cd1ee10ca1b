#include "tools/sandbox_mapi/registration.h"

#include <system_error>

#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {

bool CanBeRegistered(const std::filesystem::path& library, std::string& error) {
  const std::string path = support::PathText(library);
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(library, ignored)) {
    error = "there is no library " + path;
    return false;
  }
  const std::size_t length = support::Utf16(path).size();
  if (length > kLongestLibraryPath) {
    error = "the library's path has " + std::to_string(length) + " characters, and more than " +
            std::to_string(kLongestLibraryPath) +
            " are not read when a mail client is looked for: put it into a folder with a shorter "
            "path\n  " +
            path;
    return false;
  }
  return true;
}

}  // namespace zentpost::fake_mapi::sandbox
