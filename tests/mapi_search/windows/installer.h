// Components that the Windows Installer has registered for this user, as an installation would have
// left them. Failures throw.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace zentpost::mapi_search {

// What it registered is gone at its end.
class Installer {
 public:
  Installer() = default;
  ~Installer();
  Installer(const Installer&) = delete;
  Installer& operator=(const Installer&) = delete;

  // Registers the file at `path` as the component that stands under `category` (a GUID in braces)
  // and `qualifier`.
  void Register(const std::string& category, const std::string& qualifier,
                const std::filesystem::path& path);

 private:
  std::vector<std::wstring> user_keys_;
  std::vector<std::wstring> machine_keys_;
};

// What this user has of a category is put aside and back, as PutKeyAside and PutKeyBack do.
[[nodiscard]] bool PutCategoryAside(const std::string& category);
void PutCategoryBack(const std::string& category);

}  // namespace zentpost::mapi_search
