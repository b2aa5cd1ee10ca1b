#include "tools/support/files.h"

#include <fstream>
#include <system_error>
#include <vector>

namespace zentpost::support {

std::filesystem::path Path(std::string_view utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string PathText(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::optional<std::string> ReadBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  std::string bytes;
  std::vector<char> piece(65536);
  do {
    // Unlike the iterators of the stream's buffer this throws nothing, whatever `path` is.
    file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    bytes.append(piece.data(), static_cast<std::size_t>(file.gcount()));
  } while (file);
  return file.bad() ? std::nullopt : std::optional(bytes);
}

bool WriteBytes(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return static_cast<bool>(file);
}

TemporaryFolder::TemporaryFolder(std::u8string_view name) {
  int number = 0;
  do {
    const std::string digits = std::to_string(number++);
    path_ = std::filesystem::temp_directory_path() /
            (std::u8string(name) + std::u8string(digits.begin(), digits.end()));
  } while (!std::filesystem::create_directory(path_));
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace zentpost::support
