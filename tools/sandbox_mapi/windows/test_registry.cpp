#include "tools/sandbox_mapi/test_registry.h"

#include <windows.h>

#include <stdexcept>
#include <vector>

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr wchar_t kMailKey[] = L"Software\\Clients\\Mail";
constexpr wchar_t kClientKey[] = L"Software\\Clients\\Mail\\Sandbox MAPI";

void Demand(LSTATUS status, const char* what) {
  if (status != ERROR_SUCCESS) {
    throw std::runtime_error(std::string(what) + " failed with " + std::to_string(status));
  }
}

}  // namespace

struct TestRegistry::State {
  HKEY mail = nullptr;
  bool had_default = false;
  DWORD type = REG_NONE;
  std::vector<BYTE> data;
};

TestRegistry::TestRegistry() : state_(std::make_unique<State>()) {
  HKEY client = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kClientKey, 0, KEY_READ, &client) == ERROR_SUCCESS) {
    RegCloseKey(client);
    throw std::runtime_error("the library is registered on this machine: unregister it first");
  }
  Demand(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMailKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                         &state_->mail, nullptr),
         "RegCreateKeyEx");
  DWORD size = 0;
  state_->had_default = RegQueryValueExW(state_->mail, nullptr, nullptr, &state_->type, nullptr,
                                         &size) == ERROR_SUCCESS;
  if (state_->had_default) {
    state_->data.resize(size);
    Demand(RegQueryValueExW(state_->mail, nullptr, nullptr, nullptr, state_->data.data(), &size),
           "RegQueryValueEx");
  }
}

TestRegistry::~TestRegistry() {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClientKey);
  if (state_->had_default) {
    RegSetValueExW(state_->mail, nullptr, 0, state_->type, state_->data.data(),
                   static_cast<DWORD>(state_->data.size()));
  } else {
    RegDeleteValueW(state_->mail, nullptr);
  }
  RegCloseKey(state_->mail);
}

void TestRegistry::SetDefaultClient(const std::optional<std::string>& name) {
  if (!name) {
    RegDeleteValueW(state_->mail, nullptr);
    return;
  }
  const std::wstring text(name->begin(), name->end());
  Demand(
      RegSetValueExW(state_->mail, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                     static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
      "RegSetValueEx");
}

}  // namespace zentpost::fake_mapi::sandbox
