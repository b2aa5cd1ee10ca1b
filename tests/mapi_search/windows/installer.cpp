#include "tests/mapi_search/windows/installer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "testing/end_to_end/windows/registry.h"
#include "testing/end_to_end/windows/wide_text.h"

namespace zentpost::mapi_search {
namespace {

constexpr wchar_t kUserComponents[] = L"Software\\Microsoft\\Installer\\Components\\";
constexpr wchar_t kPutAside[] = L"Software\\Zentpost tests put aside\\";
// S-1-5-18 is the machine itself: products that are installed for all users.
constexpr wchar_t kUserData[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\UserData\\S-1-5-18\\";

// The 32 digits of a GUID in braces.
std::string Digits(std::string guid) {
  std::erase_if(guid, [](char letter) { return letter == '{' || letter == '}' || letter == '-'; });
  return guid;
}

// A GUID as the installer names keys: each of its three numbers with its digits from the last to
// the first, then each byte so.
std::wstring Packed(const std::string& guid) {
  std::string digits = Digits(guid);
  std::size_t begin = 0;
  for (const std::size_t length : {8, 4, 4, 2, 2, 2, 2, 2, 2, 2, 2}) {
    std::reverse(digits.begin() + static_cast<std::ptrdiff_t>(begin),
                 digits.begin() + static_cast<std::ptrdiff_t>(begin + length));
    begin += length;
  }
  return e2e::Wide(digits);
}

// A GUID as it stands in the installer's descriptors: its four 32-bit words, as they lie in memory,
// each with five digits to the base 85, the lowest first.
std::wstring InBase85(const std::string& guid) {
  constexpr char kDigits[] =
      "!$%&'()*+,-.0123456789=?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]^_`abcdefghijklmnopqrstuvwxyz{}~";
  static_assert(sizeof kDigits == 85 + 1);
  const std::string digits = Digits(guid);
  const auto number = [&](std::size_t begin, std::size_t length) {
    return static_cast<std::uint32_t>(std::stoul(digits.substr(begin, length), nullptr, 16));
  };
  const auto bytes = [&](std::size_t begin) {
    return number(begin, 2) | number(begin + 2, 2) << 8 | number(begin + 4, 2) << 16 |
           number(begin + 6, 2) << 24;
  };
  std::wstring text;
  for (std::uint32_t word :
       {number(0, 8), number(8, 4) | number(12, 4) << 16, bytes(16), bytes(24)}) {
    for (int digit = 0; digit < 5; ++digit) {
      text += static_cast<wchar_t>(kDigits[word % 85]);
      word /= 85;
    }
  }
  return text;
}

// Products and components of the tests' own, one more at each call.
std::string NewIdentifier() {
  static unsigned number = 0;
  char guid[40];
  std::snprintf(guid, sizeof guid, "{8D1E5F20-7C3B-4A96-B0D4-%012X}", ++number);
  return guid;
}

}  // namespace

Installer::~Installer() {
  for (const std::wstring& key : user_keys_) {
    e2e::RemoveRegistryKey(HKEY_CURRENT_USER, key);
  }
  for (const std::wstring& key : machine_keys_) {
    e2e::RemoveRegistryKey(HKEY_LOCAL_MACHINE, key);
  }
}

void Installer::Register(const std::string& category, const std::string& qualifier,
                         const std::filesystem::path& path) {
  const std::string product = NewIdentifier();
  const std::string component = NewIdentifier();
  const std::wstring category_key = kUserComponents + Packed(category);
  const std::wstring component_key = kUserData + (L"Components\\" + Packed(component));
  const std::wstring product_key = kUserData + (L"Products\\" + Packed(product));
  user_keys_.push_back(category_key);
  machine_keys_.push_back(component_key);
  machine_keys_.push_back(product_key);

  // One text, and the terminator of the list of texts.
  e2e::SetRegistryText(HKEY_CURRENT_USER, category_key, e2e::Wide(qualifier), REG_MULTI_SZ,
                       InBase85(product) + L"Mail>" + InBase85(component) + L'\0');
  e2e::SetRegistryText(HKEY_LOCAL_MACHINE, component_key, Packed(product), REG_SZ, path.wstring());
  e2e::SetRegistryNumber(HKEY_LOCAL_MACHINE, product_key + L"\\InstallProperties",
                         L"WindowsInstaller", 1);
}

bool PutCategoryAside(const std::string& category) {
  return e2e::PutKeyAside(HKEY_CURRENT_USER, kUserComponents + Packed(category),
                          kPutAside + Packed(category));
}

void PutCategoryBack(const std::string& category) {
  e2e::PutKeyBack(HKEY_CURRENT_USER, kUserComponents + Packed(category),
                  kPutAside + Packed(category));
}

}  // namespace zentpost::mapi_search
