#include "tools/doctor/settings.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "addin/addin_port.h"
#include "app/registry_names.h"
#include "diag/client_settings.h"
#include "diag/error_texts.h"
#include "diag/log_file.h"
#include "mapi/recipients.h"
#include "platform/files.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/rehearsal/rehearsal.h"
#include "tools/doctor/seen_text.h"

namespace zentpost::doctor {
namespace {

using platform::Hive;
namespace reading = platform::reading;
namespace rehearsal = platform::rehearsal;

// Published in winnt.h, by their numbers.
constexpr const char16_t* kTypeNames[] = {
    u"REG_NONE",
    u"REG_SZ",
    u"REG_EXPAND_SZ",
    u"REG_BINARY",
    u"REG_DWORD",
    u"REG_DWORD_BIG_ENDIAN",
    u"REG_LINK",
    u"REG_MULTI_SZ",
    u"REG_RESOURCE_LIST",
    u"REG_FULL_RESOURCE_DESCRIPTOR",
    u"REG_RESOURCE_REQUIREMENTS_LIST",
    u"REG_QWORD",
};

std::u16string Hexadecimal(const std::string& bytes) {
  constexpr char16_t kDigits[] = u"0123456789abcdef";
  std::u16string text;
  for (const char byte : bytes) {
    const auto number = static_cast<unsigned char>(byte);
    text.append(text.empty() ? u"" : u" ").append({kDigits[number >> 4], kDigits[number & 15]});
  }
  return text;
}

struct KnownSetting {
  const char16_t* key;
  const char16_t* name;
  bool is_read_of_machine;  // also under HKEY_LOCAL_MACHINE
};
constexpr KnownSetting kSettings[] = {
    {registry::kAddinKey, registry::kAddinPort, false},
    {registry::kAddinKey, registry::kAddressAutomation, false},
    {registry::kAddinKey, registry::kAddressPrefix, false},
    {registry::kAddinKey, registry::kAddressPostfix, false},
    {registry::kFaxClientKey, registry::kLogLevel, true},
    {registry::kFaxClientKey, registry::kSkipExtendedMapi, true},
};

const char16_t* HiveName(Hive hive) {
  return hive == Hive::kCurrentUser ? u"HKCU" : u"HKLM";
}

bool IsText(const RegistryValue& value) {
  return value.type == platform::kRegSz || value.type == platform::kRegExpandSz;
}

// "HKCU\Software\Sollvex\FaxClient, LogLevel = 1 (REG_DWORD)".
std::u16string Seen(Hive hive, const KnownSetting& setting, const RegistryValue& value) {
  std::u16string text = HiveName(hive);
  text.append(u"\\").append(setting.key).append(u", ").append(setting.name).append(u" = ");
  const char16_t* const quote = IsText(value) ? u"\"" : u"";
  text.append(quote).append(ValueText(value)).append(quote);
  return text.append(u" (").append(TypeName(value.type)).append(u")");
}

bool IsOn(Hive hive, const char16_t* name) {
  platform::RegistryKey key;
  return ReadClientNumberOf(hive, name, key) != 0;
}

std::u16string EffectOf(Hive hive, const KnownSetting& setting, const Effects& effects) {
  const std::u16string_view name = setting.name;
  if (hive == Hive::kLocalMachine && !setting.is_read_of_machine) {
    return u"the tool does not read it in this hive";
  }
  if (name == registry::kAddinPort) {
    return effects.port == 0 ? u"there is no port of the add-in"
                             : u"the add-in's port is " + Number(effects.port);
  }
  if (name == registry::kAddressAutomation) {
    return effects.is_address_automatic ? u"fax addresses are made of prefix, number and suffix"
                                        : u"the number goes out as it is";
  }
  if (name == registry::kLogLevel || name == registry::kSkipExtendedMapi) {
    const bool is_on = IsOn(hive, setting.name);
    const bool is_on_for_user = IsOn(Hive::kCurrentUser, setting.name);
    if (hive == Hive::kLocalMachine && is_on_for_user) {
      return u"the tool does not get to it: the user's value is on";
    }
    if (!is_on) {
      return hive == Hive::kCurrentUser ? u"off: the machine's value counts" : u"off";
    }
    return name == registry::kLogLevel ? u"the log file is written"
                                       : u"nothing is sent through Extended MAPI";
  }
  return effects.is_address_automatic ? u"it is a part of each fax address"
                                      : u"it is not used: the address automation is off";
}

// Calls `use` with what there is of a setting, in the hives in which the tool reads it.
template <class Use>
void ForEach(std::u16string_view name, Use use) {
  const auto* const known = std::find_if(std::begin(kSettings), std::end(kSettings),
                                         [&](const auto& each) { return name == each.name; });
  for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine}) {
    if (hive == Hive::kCurrentUser || known->is_read_of_machine) {
      if (const auto value = ReadValue(hive, known->key, known->name)) {
        use(*value, Seen(hive, *known, *value));
      }
    }
  }
}

// The port that the value tells, where it is nothing but a number from 1 to 65535; else 0.
std::uint16_t PlainPort(const RegistryValue& value) {
  constexpr std::size_t kLongest = 19;
  const std::u16string text = value.Text();
  if (value.type != platform::kRegSz || text.size() > kLongest) {
    return 0;
  }
  std::uint64_t number = 0;
  for (const char16_t unit : text) {
    if (unit < u'0' || unit > u'9') {
      return 0;
    }
    number = number * 10 + (unit - u'0');
  }
  return number <= 65535 ? static_cast<std::uint16_t>(number) : 0;
}

}  // namespace

std::u16string RegistryValue::Text() const {
  std::u16string text(bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(char16_t));
  return text.substr(0, text.find(u'\0'));
}

std::optional<RegistryValue> ReadValue(Hive hive, const char16_t* key, const char16_t* name) {
  platform::RegistryKey opened;
  RegistryValue value;
  platform::Status status = platform::OpenKey(hive, key, platform::kKeyRead, opened);
  std::uint32_t size = 0;
  if (platform::ThrowWithoutMemory(status) != platform::kSuccess ||
      platform::QueryValue(opened, name, nullptr, nullptr, size) != platform::kSuccess) {
    return std::nullopt;
  }
  do {  // it may grow meanwhile
    value.bytes.resize(size);
    status = platform::QueryValue(opened, name, &value.type, value.bytes.data(), size);
  } while (status == platform::kMoreData && size > value.bytes.size());
  if (platform::ThrowWithoutMemory(status) != platform::kSuccess) {
    return std::nullopt;
  }
  value.bytes.resize(std::min<std::size_t>(size, value.bytes.size()));
  return value;
}

std::u16string TypeName(std::uint32_t type) {
  return type < std::size(kTypeNames) ? kTypeNames[type] : Number(type);
}

std::u16string ValueText(const RegistryValue& value) {
  if (IsText(value)) {
    return value.Text();
  }
  std::uint32_t number = 0;
  if (value.type != platform::kRegDword || value.bytes.size() != sizeof(number)) {
    return Hexadecimal(value.bytes);
  }
  std::memcpy(&number, value.bytes.data(), sizeof(number));
  return Widened(std::to_string(number));
}

Effects AskTheTool() {
  Effects effects;
  rehearsal::Begin({});
  effects.port = ReadAddinPort();
  effects.is_log_on = ReadClientNumber(registry::kLogLevel) != 0;
  effects.is_mapi_skipped = ReadClientNumber(registry::kSkipExtendedMapi) != 0;
  platform::RegistryKey key;
  const platform::Status status =
      platform::OpenKey(Hive::kCurrentUser, registry::kAddinKey, platform::kKeyReadWrite, key);
  effects.may_open_addin_key = status != platform::kAccessDenied ||
                               platform::OpenKey(Hive::kCurrentUser, registry::kAddinKey,
                                                 platform::kKeyRead, key) != platform::kSuccess;
  effects.is_address_automatic = IsAddressAutomatic();
  return effects;
}

std::vector<Setting> ReadSettings(const Effects& effects) {
  std::vector<Setting> settings;
  for (const KnownSetting& known : kSettings) {
    for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine}) {
      if (const auto value = ReadValue(hive, known.key, known.name)) {
        settings.push_back({known.name, HiveName(hive), TypeName(value->type), ValueText(*value),
                            EffectOf(hive, known, effects)});
      }
    }
  }
  return settings;
}

std::vector<std::u16string> SeenSetting(std::u16string_view name) {
  std::vector<std::u16string> seen;
  ForEach(name, [&](const RegistryValue& /*value*/, std::u16string text) {
    seen.push_back(std::move(text));
  });
  return seen;
}

void AddSettingFindings(const Effects& effects, Route route, std::vector<Finding>& findings) {
  const auto add = [&](std::string_view code, Severity severity,
                       std::initializer_list<std::u16string_view> seen = {}) {
    AddFinding(findings, code, severity, seen);
  };
  bool has_port = false;
  ForEach(registry::kAddinPort, [&](const RegistryValue& value, const std::u16string& seen) {
    has_port = true;
    if (const std::uint16_t plain = PlainPort(value); plain == 0 || plain != effects.port) {
      add("D02", Severity::kWarning,
          {seen, effects.port == 0 ? u"the tool makes no port of it"
                                   : u"the tool makes port " + Number(effects.port) + u" of it"});
    }
  });
  if (!has_port) {
    add("D01", Severity::kNote);
  }
  if (effects.is_mapi_skipped) {
    findings.push_back({"D05", route == Route::kSkipped ? Severity::kError : Severity::kWarning,
                        SeenSetting(registry::kSkipExtendedMapi)});
  }
  if (!effects.is_log_on) {
    add("D06", Severity::kNote);
  } else {
    const std::u16string path = GetLogFilePath();
    const platform::Status status =
        platform::ThrowWithoutMemory(reading::WouldChange(path, reading::Change::kAppend));
    if (status != platform::kSuccess) {
      add("D07", Severity::kWarning, {path, GetErrorText(status)});
    }
  }
  for (const char16_t* const name : {registry::kLogLevel, registry::kSkipExtendedMapi}) {
    ForEach(name, [&](const RegistryValue& value, const std::u16string& seen) {
      if (value.type != platform::kRegDword) {
        add("D08", Severity::kWarning, {seen});
      }
    });
  }
  ForEach(registry::kAddressAutomation, [&](const RegistryValue& value,
                                            const std::u16string& seen) {
    const std::u16string text = value.Text();
    // The tool takes "1" of any type.
    const bool is_off = value.bytes.empty() || (IsText(value) && (text.empty() || text == u"0"));
    if (!is_off && text != u"1") {
      add("D09", Severity::kWarning, {seen});
    } else if (text == u"1" && !effects.may_open_addin_key) {
      add("D10", Severity::kWarning, {seen});
    }
  });
}

}  // namespace zentpost::doctor
