#include "testing/end_to_end/files.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {

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
  // Several runs may share the folder for work, so a number that is taken is passed over.
  static unsigned number = 0;
  std::filesystem::create_directories(TheSettings().work_folder);
  while (true) {
    std::filesystem::path folder = TheSettings().work_folder / std::to_string(++number);
    if (std::filesystem::create_directory(folder)) {
      return folder;
    }
  }
}

}  // namespace zentpost::e2e
