// A new folder for one test, with a name that no ANSI code page holds; removed with all in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <system_error>

namespace zentpost::fake_mapi::sandbox {

class TestFolder {
 public:
  TestFolder() {
    std::random_device random;
    do {
      path_ = std::filesystem::temp_directory_path() /
              (u8"sandbox-\u4E2D\u00E4-" + Digits(random()) + Digits(random()));
    } while (!std::filesystem::create_directory(path_));
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

 private:
  static std::u8string Digits(unsigned number) {
    const std::string text = std::to_string(number);
    return std::u8string(text.begin(), text.end());
  }

  std::filesystem::path path_;
};

[[nodiscard]] inline std::string ReadBytes(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace zentpost::fake_mapi::sandbox
