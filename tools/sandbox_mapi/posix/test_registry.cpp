#include "tools/sandbox_mapi/test_registry.h"

#include <cstdlib>

namespace zentpost::fake_mapi::sandbox {

TestRegistry::TestRegistry() {
  setenv("ZENTPOST_REGISTRY", (folder_.Path() / "registry.reg").c_str(), 1);
}

TestRegistry::~TestRegistry() {
  unsetenv("ZENTPOST_REGISTRY");
}

void TestRegistry::SetDefaultClient(const std::optional<std::string>& name) {
  const std::filesystem::path file = folder_.Path() / "registry.reg";
  // What comes later overrides what stands before it.
  support::WriteBytes(file,
                      support::ReadBytes(file).value_or("Windows Registry Editor Version 5.00\n") +
                          "\n[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail]\n@=" +
                          (name ? '"' + *name + '"' : "-") + '\n');
}

}  // namespace zentpost::fake_mapi::sandbox
