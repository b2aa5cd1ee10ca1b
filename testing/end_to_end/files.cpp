#include "testing/end_to_end/files.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

// The one of the command line; without one, a new folder in the system's for temporary files, short
// since the registry's texts are only read up to 129 characters.
struct WorkFolder {
  WorkFolder() : path(Setting("work-folder")), is_temporary(path.empty()) {
    for (int number = 0; path.empty(); ++number) {
      const std::filesystem::path folder =
          std::filesystem::temp_directory_path() / ("zentpost-" + std::to_string(number));
      if (std::filesystem::create_directory(folder)) {
        path = folder;
      }
    }
    std::filesystem::create_directories(path);
  }
  ~WorkFolder() {
    std::error_code ignored;
    if (is_temporary) {
      std::filesystem::remove_all(path, ignored);
    }
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  std::filesystem::path path;
  bool is_temporary;
};

}  // namespace

void WriteBytes(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    throw std::runtime_error("a file for the test cannot be written");
  }
}

std::optional<std::string> ReadBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) {
    return std::nullopt;
  }
  std::string bytes(static_cast<std::size_t>(file.tellg()), '\0');
  file.seekg(0);
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file ? std::optional(std::move(bytes)) : std::nullopt;
}

std::filesystem::path MakeTestFolder() {
  static const WorkFolder work_folder;
  // Several runs may share the folder for work, so a number that is taken is passed over.
  static unsigned number = 0;
  while (true) {
    std::filesystem::path folder = work_folder.path / std::to_string(++number);
    if (std::filesystem::create_directory(folder)) {
      return folder;
    }
  }
}

}  // namespace zentpost::e2e
