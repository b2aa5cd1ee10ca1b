#include <windows.h>

#include <algorithm>
#include <string_view>

#include "platform/memory_failure.h"
#include "platform/modules.h"
#include "platform/reading.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

// Published in msi.h: a component that is there, and the level at which nothing is shown.
constexpr int kInstalledHere = 3;  // INSTALLSTATE_LOCAL
constexpr UINT kNoUserInterface = 2;
constexpr DWORD kGuidUnits = 39;

// The installer's library, as long as this lives.
class Installer {
 public:
  Installer() {
    wchar_t path[MAX_PATH + 16] = {};
    const UINT length = GetSystemDirectoryW(path, MAX_PATH);
    if (length != 0 && length < MAX_PATH) {
      library_ = LoadLibraryW((std::wstring(path, length) + L"\\msi.dll").c_str());
    }
  }
  Installer(const Installer&) = delete;
  Installer& operator=(const Installer&) = delete;
  ~Installer() {
    if (library_ != nullptr) {
      FreeLibrary(library_);
    }
  }

  template <class Function>
  [[nodiscard]] Function* Find(const char* name) const {
    return library_ == nullptr ? nullptr
                               : reinterpret_cast<Function*>(
                                     reinterpret_cast<void (*)()>(GetProcAddress(library_, name)));
  }

 private:
  HMODULE library_ = nullptr;
};

// A GUID in braces as the installer names keys: its parts' digits in reverse, those of the last
// eight bytes by pairs.
std::u16string Packed(const std::u16string& guid) {
  constexpr std::size_t kTextUnits = 38;
  if (guid.size() != kTextUnits) {
    return {};
  }
  std::u16string packed;
  const auto add = [&](std::size_t start, std::size_t count) {
    const std::u16string part = guid.substr(start, count);
    packed.append(part.rbegin(), part.rend());
  };
  add(1, 8);
  add(10, 4);
  add(15, 4);
  for (const std::size_t start : {20, 22, 25, 27, 29, 31, 33, 35}) {
    add(start, 2);
  }
  return packed;
}

// The descriptors of a component, one behind the other; empty when it is not registered in the key.
std::u16string Descriptors(Hive hive, const std::u16string& key, const std::u16string& qualifier) {
  RawKey opened{};
  if (OpenKey(hive, key.c_str(), kKeyQueryValue, opened) != kSuccess) {
    return {};
  }
  std::uint32_t size = 0;
  std::uint32_t type = 0;
  std::u16string text;
  if (QueryValue(opened, qualifier.c_str(), &type, nullptr, size) == kSuccess) {
    text.resize(size / sizeof(char16_t));
    size = static_cast<std::uint32_t>(text.size() * sizeof(char16_t));
    if (QueryValue(opened, qualifier.c_str(), &type, text.data(), size) != kSuccess) {
      text.clear();
    }
  }
  LetGo(opened);
  return text;
}

Status PathOf(const std::u16string& descriptor, std::u16string& path) {
  const Installer installer;
  auto* const decompose =
      installer.Find<UINT WINAPI(const wchar_t*, wchar_t*, wchar_t*, wchar_t*, DWORD*)>(
          "MsiDecomposeDescriptorW");
  auto* const get_path =
      installer.Find<int WINAPI(const wchar_t*, const wchar_t*, wchar_t*, DWORD*)>(
          "MsiGetComponentPathW");
  auto* const set_interface = installer.Find<UINT WINAPI(UINT, HWND*)>("MsiSetInternalUI");
  if (decompose == nullptr || get_path == nullptr || set_interface == nullptr) {
    return kNotSupported;
  }
  set_interface(kNoUserInterface, nullptr);
  wchar_t product[kGuidUnits] = {};
  wchar_t feature[kGuidUnits] = {};
  wchar_t component[kGuidUnits] = {};
  if (decompose(ToSystem(descriptor.c_str()), product, feature, component, nullptr) !=
      ERROR_SUCCESS) {
    return kNotSupported;
  }
  path.resize(32768);
  DWORD length = static_cast<DWORD>(path.size());
  const int state = get_path(product, component, ToSystem(path.data()), &length);
  path.resize(state == kInstalledHere ? length : 0);
  return path.empty() ? kNotSupported : kSuccess;
}

}  // namespace

Status FindComponent(const std::u16string& category, const std::u16string& qualifier,
                     std::u16string& path) {
  path.clear();
  return UnlessMemoryRunsOut([&] {
    const std::u16string key = u"Installer\\Components\\" + Packed(category);
    std::u16string descriptor =
        Descriptors(Hive::kCurrentUser, u"Software\\Microsoft\\" + key, qualifier);
    if (descriptor.empty()) {
      descriptor = Descriptors(Hive::kClassesRoot, key, qualifier);
    }
    return descriptor.empty() ? kFileNotFound : PathOf(descriptor, path);
  });
}

}  // namespace platform::reading
