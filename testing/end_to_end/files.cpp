#include "testing/end_to_end/files.h"

#include <stdexcept>
#include <string>

#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

// The one of the command line, or a new one, short since the registry's texts are only read up to
// 129 characters.
const std::filesystem::path& WorkFolder() {
  static const std::filesystem::path chosen = Setting("work-folder");
  if (!chosen.empty()) {
    std::filesystem::create_directories(chosen);
    return chosen;
  }
  static const support::TemporaryFolder own(u8"zentpost-");
  return own.Path();
}

}  // namespace

void WriteBytes(const std::filesystem::path& path, std::string_view bytes) {
  if (!support::WriteBytes(path, bytes)) {
    throw std::runtime_error("a file for the test cannot be written");
  }
}

std::filesystem::path MakeTestFolder() {
  // Several runs may share the folder for work, so a number that is taken is passed over.
  static unsigned number = 0;
  while (true) {
    std::filesystem::path folder = WorkFolder() / std::to_string(++number);
    if (std::filesystem::create_directory(folder)) {
      return folder;
    }
  }
}

}  // namespace zentpost::e2e
