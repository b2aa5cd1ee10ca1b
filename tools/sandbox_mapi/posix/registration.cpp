// The text file that stands for the registry: this tool's keys are one block of lines at its end.
// What stands before it is overridden and not touched, so that taking the block away puts
// everything back to the byte. The file is in UTF-8.
#include "tools/sandbox_mapi/registration.h"

#include <stdexcept>
#include <system_error>

#include "tools/sandbox_mapi/system.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kBegin =
    "\n; sandbox_mapi begins here: unregister takes these lines away\n";
constexpr std::string_view kEnd = "; sandbox_mapi ends here\n";
constexpr std::string_view kFolder = "\"Folder\"=\"";

class RegistryFile {
 public:
  // Where the tool looks for the file, too. A missing file is an empty one.
  RegistryFile() {
    if (const auto path = EnvironmentVariable("ZENTPOST_REGISTRY")) {
      path_ = *path;
    } else if (const auto folder = EnvironmentVariable("XDG_CONFIG_HOME")) {
      path_ = std::filesystem::path(*folder) / "zentpost" / "registry.reg";
    } else if (const auto home = EnvironmentVariable("HOME")) {
      path_ = std::filesystem::path(*home) / ".config" / "zentpost" / "registry.reg";
    } else {
      throw std::runtime_error("there is no place for the registry's file: set ZENTPOST_REGISTRY");
    }
    std::error_code ignored;
    const std::optional<std::string> read = std::filesystem::exists(path_, ignored)
                                                ? support::ReadBytes(path_)
                                                : std::string(kHeader) + "\n";
    if (!read) {
      throw std::runtime_error("the registry's file cannot be read" + Advice());
    }
    bytes_ = *read;
    if (!bytes_.starts_with(kHeader) && !bytes_.starts_with(std::string(kUtf8Mark) += kHeader)) {
      throw std::runtime_error("the registry's file does not begin with\n\"" +
                               std::string(kHeader) + '"' + Advice());
    }
    begin_ = bytes_.find(kBegin);
  }

  [[nodiscard]] std::string Place() const { return support::PathText(path_); }
  [[nodiscard]] bool HasBlock() const { return begin_ != std::string::npos; }

  // The block's "Folder".
  [[nodiscard]] std::optional<std::string> Folder() const {
    const std::size_t start = bytes_.find(kFolder, begin_);
    if (!HasBlock() || start == std::string::npos) {
      return std::nullopt;
    }
    const std::string text = bytes_.substr(start + kFolder.size());
    std::string folder;
    for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
      i += text[i] == '\\' ? 1 : 0;
      folder += text[i];
    }
    return folder;
  }

  void RemoveBlock() {
    if (HasBlock()) {
      const std::size_t last = bytes_.find(kEnd, begin_);
      bytes_.erase(begin_, last == std::string::npos ? last : last + kEnd.size() - begin_);
    }
  }
  void AddBlock(const std::string& keys) { bytes_.append(kBegin).append(keys).append(kEnd); }

  void Write() const {
    std::error_code problem;
    std::filesystem::create_directories(path_.parent_path(), problem);
    // Whoever reads it meanwhile finds the former file or the new one.
    const std::filesystem::path fresh = path_.string() + ".new";
    const bool is_written = support::WriteBytes(fresh, bytes_);
    std::filesystem::rename(fresh, path_, problem);
    if (!is_written || problem) {
      throw std::runtime_error("the registry's file cannot be written" + Advice());
    }
  }

 private:
  [[nodiscard]] std::string Advice() const {
    return ": name another one in ZENTPOST_REGISTRY\n  " + Place();
  }

  std::filesystem::path path_;
  std::string bytes_;
  std::size_t begin_ = std::string::npos;
};

}  // namespace

void Register(const std::filesystem::path& library, const std::filesystem::path& folder) {
  RegistryFile file;
  const std::string mail = "[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail";
  const std::string name = support::Quoted(kClientName);
  file.RemoveBlock();
  file.AddBlock(mail + "]\n@=" + name + "\n\n" + mail + '\\' + kClientName + "]\n@=" + name +
                "\n\"" + std::string(kLibraryValue) +
                "\"=" + support::Quoted(support::PathText(library)) +
                "\n\"Folder\"=" + support::Quoted(support::PathText(folder)) + '\n');
  file.Write();
}

bool Unregister() {
  RegistryFile file;
  const bool was_registered = file.HasBlock();
  if (was_registered) {
    file.RemoveBlock();
    file.Write();
  }
  return was_registered;
}

std::string RegistrationPlace() {
  return RegistryFile().Place();
}

std::optional<std::string> RegisteredFolder() {
  try {
    return RegistryFile().Folder();
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

}  // namespace zentpost::fake_mapi::sandbox
