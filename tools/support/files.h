// Files as bytes, with names in UTF-8, and folders for a while.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zentpost::support {

[[nodiscard]] std::filesystem::path Path(std::string_view utf8);
[[nodiscard]] std::string PathText(const std::filesystem::path& path);

// Nothing when it is no file, or one that cannot be read.
[[nodiscard]] std::optional<std::string> ReadBytes(const std::filesystem::path& path);
// Creates or replaces the file; false when that fails.
bool WriteBytes(const std::filesystem::path& path, std::string_view bytes);

// A new folder in the system's for temporary files, with a name that begins with `name`; removed
// with all in it.
class TemporaryFolder {
 public:
  // The name without more is one that no ANSI code page holds.
  explicit TemporaryFolder(std::u8string_view name = u8"zentpost-\u4E2D\u00E4-");
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace zentpost::support
