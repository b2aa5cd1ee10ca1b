#include "tools/sandbox_mapi/test_registry.h"

#include <stdexcept>

#include "testing/end_to_end/windows/registry.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
constexpr wchar_t kAside[] = L"Software\\Clients\\Mail before the tests of sandbox_mapi";

}  // namespace

TestRegistry::TestRegistry() {
  if (!e2e::PutKeyAside(HKEY_LOCAL_MACHINE, kMailKey, kAside)) {
    throw std::runtime_error("this user may not change the machine's mail client");
  }
  e2e::AddRegistryKey(HKEY_LOCAL_MACHINE, kMailKey);
}

TestRegistry::~TestRegistry() {
  e2e::PutKeyBack(HKEY_LOCAL_MACHINE, kMailKey, kAside);
}

void TestRegistry::SetDefaultClient(const std::optional<std::string>& name) {
  RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kMailKey, nullptr);
  if (name) {
    e2e::SetRegistryText(HKEY_LOCAL_MACHINE, kMailKey, L"", REG_SZ,
                         std::wstring(name->begin(), name->end()));
  }
}

}  // namespace zentpost::fake_mapi::sandbox
