#include "diag/client_settings.h"

#include "app/registry_names.h"

namespace zentpost {

std::uint32_t ReadClientNumberOf(platform::Hive hive, const char16_t* value_name,
                                 platform::RegistryKey& key) {
  if (platform::OpenKey(hive, registry::kFaxClientKey, platform::kKeyRead, key) !=
      platform::kSuccess) {
    return 0;
  }
  std::uint32_t number = 0;
  std::uint32_t size = sizeof(number);
  if (platform::QueryValue(key, value_name, nullptr, &number, size) != platform::kSuccess) {
    return 0;
  }
  return number;
}

std::uint32_t ReadClientNumber(const char16_t* value_name) {
  platform::RegistryKey key;
  const std::uint32_t number = ReadClientNumberOf(platform::Hive::kCurrentUser, value_name, key);
  if (number != 0) {
    return number;
  }
  // The machine's value is asked for only once the user's key is properly closed.
  if (key && platform::CloseKey(key) != platform::kSuccess) {
    return 0;
  }
  return ReadClientNumberOf(platform::Hive::kLocalMachine, value_name, key);
}

}  // namespace zentpost
