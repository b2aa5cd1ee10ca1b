// The tool's settings in the registry: as they stand there, and what the tool makes of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"
#include "tools/doctor/report.h"

namespace zentpost::doctor {

// A value as it is stored.
struct RegistryValue {
  std::uint32_t type = 0;
  std::string bytes;

  // The text before the first zero, whatever the type.
  [[nodiscard]] std::u16string Text() const;
};

// Nothing when the value, or its key, is not there or may not be read. `name` may be null for the
// key's default value. Throws std::bad_alloc when memory runs out, as everything here does.
[[nodiscard]] std::optional<RegistryValue> ReadValue(platform::Hive hive, const char16_t* key,
                                                     const char16_t* name);

// "REG_SZ", or the number of a type without a name.
[[nodiscard]] std::u16string TypeName(std::uint32_t type);

// A DWORD in decimal, a text as it stands, anything else as hexadecimal bytes.
[[nodiscard]] std::u16string ValueText(const RegistryValue& value);

// What the tool makes of its settings, asked of its own code.
struct Effects {
  std::uint16_t port = 0;  // 0: no port
  bool is_log_on = false;
  bool is_mapi_skipped = false;
  bool is_address_automatic = false;
  bool may_open_addin_key = true;  // with the access that the automation asks for
};
[[nodiscard]] Effects AskTheTool();

// The six settings in their order, one for each hive that has the value.
[[nodiscard]] std::vector<Setting> ReadSettings(const Effects& effects);

// How a setting stands in the hives in which the tool reads it, as in
// "HKCU\Software\Sollvex\FaxClient, LogLevel = 1 (REG_DWORD)".
[[nodiscard]] std::vector<std::u16string> SeenSetting(std::u16string_view name);

// D01, D02 and D05 to D10. `route` is where the job would go.
void AddSettingFindings(const Effects& effects, Route route, std::vector<Finding>& findings);

}  // namespace zentpost::doctor
