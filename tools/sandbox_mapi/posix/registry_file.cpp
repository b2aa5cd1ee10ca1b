#include "tools/sandbox_mapi/posix/registry_file.h"

#include <fstream>
#include <system_error>

#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kAnsiHeader = "REGEDIT4";
constexpr std::string_view kBegin = "; sandbox_mapi begins here: unregister takes these lines away";
constexpr std::string_view kEnd = "; sandbox_mapi ends here";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";

}  // namespace

std::filesystem::path RegistryFile::Location() {
  if (const auto path = EnvironmentVariable("ZENTPOST_REGISTRY")) {
    return *path;
  }
  if (const auto folder = EnvironmentVariable("XDG_CONFIG_HOME")) {
    return std::filesystem::path(*folder) / "zentpost" / "registry.reg";
  }
  if (const auto home = EnvironmentVariable("HOME")) {
    return std::filesystem::path(*home) / ".config" / "zentpost" / "registry.reg";
  }
  return {};
}

bool RegistryFile::Read(std::string& error) {
  const std::filesystem::path path = Location();
  if (path.empty()) {
    error = "there is no place for the registry's file: set ZENTPOST_REGISTRY";
    return false;
  }
  std::error_code problem;
  is_missing_ = !std::filesystem::exists(path, problem);
  if (is_missing_) {
    text_ = std::string(kHeader) + "\n";
    return true;
  }
  const std::optional<std::string> read = support::ReadBytes(path);
  if (!read) {
    error = "cannot read " + support::PathText(path);
    return false;
  }
  const std::string& bytes = *read;
  if (bytes.starts_with(kUtf16Mark)) {
    encoding_ = Encoding::kUtf16;
    std::u16string wide;
    for (std::size_t i = kUtf16Mark.size(); i + 1 < bytes.size(); i += 2) {
      wide += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                    static_cast<unsigned char>(bytes[i + 1]) << 8);
    }
    text_ = support::Utf8(wide);
  } else if (bytes.starts_with(kAnsiHeader)) {
    encoding_ = Encoding::kAnsi;
    text_ = support::Utf8(support::FromWindows1252(bytes));
  } else {
    has_byte_order_mark_ = bytes.starts_with(kUtf8Mark);
    text_ = bytes.substr(has_byte_order_mark_ ? kUtf8Mark.size() : 0);
  }
  if (!text_.starts_with(kHeader) && !text_.starts_with(kAnsiHeader)) {
    error = support::PathText(path) + " does not begin with \"" + std::string(kHeader) + '"';
    return false;
  }
  return true;
}

bool RegistryFile::HasBlock() const {
  return text_.find(kBegin) != std::string::npos;
}

std::optional<std::string> RegistryFile::Folder() const {
  constexpr std::string_view kName = "\n\"Folder\"=\"";
  const std::size_t begin = text_.find(kBegin);
  const std::size_t start = begin == std::string::npos ? begin : text_.find(kName, begin);
  if (start == std::string::npos) {
    return std::nullopt;
  }
  std::string folder;
  for (std::size_t i = start + kName.size(); i < text_.size() && text_[i] != '"'; ++i) {
    if (text_[i] == '\\') {
      ++i;
    }
    folder += text_[i];
  }
  return folder;
}

void RegistryFile::RemoveBlock() {
  const std::size_t begin = text_.find(kBegin);
  if (begin == std::string::npos) {
    return;
  }
  const std::size_t end = text_.find(kEnd, begin);
  // The line feed before the block was put there with it.
  const std::size_t start = begin > 0 ? begin - 1 : 0;
  if (end == std::string::npos) {
    text_.erase(start);
  } else {
    text_.erase(start, end + kEnd.size() + 1 - start);
  }
}

void RegistryFile::SetBlock(std::string_view keys) {
  RemoveBlock();
  text_ += '\n' + std::string(kBegin) + '\n' + std::string(keys) + std::string(kEnd) + '\n';
}

bool RegistryFile::Write(std::string& error) const {
  std::string bytes;
  switch (encoding_) {
    case Encoding::kUtf8:
      bytes = (has_byte_order_mark_ ? std::string(kUtf8Mark) : std::string()) + text_;
      break;
    case Encoding::kAnsi:
      bytes = support::Windows1252(support::Utf16(text_));
      if (support::Utf8(support::FromWindows1252(bytes)) != text_) {
        error =
            "the registry's file cannot hold the characters of these paths: it is no Unicode file";
        return false;
      }
      break;
    case Encoding::kUtf16:
      bytes = kUtf16Mark;
      for (const char16_t unit : support::Utf16(text_)) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
      }
      break;
  }
  const std::filesystem::path path = Location();
  std::error_code problem;
  if (path.has_parent_path()) {
    std::filesystem::create_directories(path.parent_path(), problem);
  }
  // Whoever reads it meanwhile finds the former file or the new one.
  std::filesystem::path fresh = path;
  fresh += ".new";
  std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
  file << bytes;
  file.close();
  if (file) {
    std::filesystem::rename(fresh, path, problem);
  }
  if (!file || problem) {
    error = "cannot write " + support::PathText(path);
    return false;
  }
  return true;
}

std::string QuotedForRegistry(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += '\\';
    }
    result += c;
  }
  return result + '"';
}

}  // namespace zentpost::fake_mapi::sandbox
