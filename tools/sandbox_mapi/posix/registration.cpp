#include "tools/sandbox_mapi/registration.h"

#include "tools/sandbox_mapi/posix/registry_file.h"
#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {

bool Register(const std::filesystem::path& library, const std::filesystem::path& folder,
              std::string& error) {
  RegistryFile file;
  if (!CanBeRegistered(library, error) || !file.Read(error)) {
    return false;
  }
  const std::string mail = "[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail";
  const std::string name = QuotedForRegistry(kClientName);
  std::string keys = mail + "]\n@=" + name + "\n\n" + mail + '\\' + kClientName + "]\n@=" + name;
  keys +=
      "\n\"" + std::string(kLibraryValue) + "\"=" + QuotedForRegistry(support::PathText(library));
  keys += "\n\"Folder\"=" + QuotedForRegistry(support::PathText(folder)) + '\n';
  file.SetBlock(keys);
  return file.Write(error);
}

bool Unregister(bool& was_registered, std::string& error) {
  RegistryFile file;
  was_registered = false;
  if (!file.Read(error)) {
    return false;
  }
  if (!file.HasBlock()) {
    return true;
  }
  was_registered = true;
  file.RemoveBlock();
  return file.Write(error);
}

}  // namespace zentpost::fake_mapi::sandbox
