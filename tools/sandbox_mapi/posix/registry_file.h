// The text file that stands for the registry, as far as this tool changes it: its own keys are one
// block of lines at the end of the file. What was said before is overridden by them and not
// touched, so that taking the block away puts everything back.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zentpost::fake_mapi::sandbox {

class RegistryFile {
 public:
  // Where the tool looks for the file, too: ZENTPOST_REGISTRY, else below the user's configuration
  // folder. Empty when he has none.
  [[nodiscard]] static std::filesystem::path Location();

  // A missing file is an empty one. False: `error` says why.
  [[nodiscard]] bool Read(std::string& error);

  // The block's "Folder".
  [[nodiscard]] std::optional<std::string> Folder() const;
  [[nodiscard]] bool HasBlock() const;

  // `keys` is what stands between the block's first and last line, in UTF-8 with line feeds.
  void SetBlock(std::string_view keys);
  void RemoveBlock();

  // In the encoding that the file had.
  [[nodiscard]] bool Write(std::string& error) const;

 private:
  enum class Encoding { kUtf8, kUtf16, kAnsi };

  Encoding encoding_ = Encoding::kUtf8;
  bool has_byte_order_mark_ = false;
  bool is_missing_ = false;
  std::string text_;  // UTF-8
};

// A text between quotation marks, as the file has it.
[[nodiscard]] std::string QuotedForRegistry(std::string_view text);

}  // namespace zentpost::fake_mapi::sandbox
