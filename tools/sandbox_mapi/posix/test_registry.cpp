#include "tools/sandbox_mapi/test_registry.h"

#include <cstdlib>

#include "tools/sandbox_mapi/test_folder.h"

namespace zentpost::fake_mapi::sandbox {

struct TestRegistry::State {
  TestFolder folder;
};

TestRegistry::TestRegistry() : state_(std::make_unique<State>()) {
  setenv("ZENTPOST_REGISTRY", (state_->folder.Path() / "registry.reg").c_str(), 1);
}

TestRegistry::~TestRegistry() {
  unsetenv("ZENTPOST_REGISTRY");
}

void TestRegistry::SetDefaultClient(const std::optional<std::string>& name) {
  // Said later, it overrides what was said before.
  std::string text = ReadBytes(state_->folder.Path() / "registry.reg");
  if (text.empty()) {
    text = "Windows Registry Editor Version 5.00\n";
  }
  text += "\n[HKEY_LOCAL_MACHINE\\Software\\Clients\\Mail]\n@=";
  text += name ? '"' + *name + '"' : "-";
  WriteBytes(state_->folder.Path() / "registry.reg", text + '\n');
}

}  // namespace zentpost::fake_mapi::sandbox
