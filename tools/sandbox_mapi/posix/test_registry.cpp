#include "tools/sandbox_mapi/test_registry.h"

#include <cstdlib>

#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {

struct TestRegistry::State {
  support::TemporaryFolder folder;
  const std::filesystem::path file = folder.Path() / "registry.reg";
};

TestRegistry::TestRegistry() : state_(std::make_unique<State>()) {
  setenv("ZENTPOST_REGISTRY", state_->file.c_str(), 1);
}

TestRegistry::~TestRegistry() {
  unsetenv("ZENTPOST_REGISTRY");
}

void TestRegistry::SetDefaultClient(const std::optional<std::string>& name) {
  // What comes later overrides what stands before it.
  const std::string text =
      support::ReadBytes(state_->file).value_or("Windows Registry Editor Version 5.00\n");
  support::WriteBytes(state_->file, text + "\n[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail]\n@=" +
                                        (name ? '"' + *name + '"' : "-") + '\n');
}

}  // namespace zentpost::fake_mapi::sandbox
