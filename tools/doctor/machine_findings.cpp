#include "tools/doctor/machine_findings.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include "app/registry_names.h"
#include "mapiload/discovery.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "tools/doctor/seen_text.h"
#include "tools/doctor/settings.h"

namespace zentpost::doctor {
namespace {

using platform::Hive;
namespace reading = platform::reading;

constexpr char16_t kDefaultValue[] = u"(Default)";

// "HKLM\Software\Clients\Mail, (Default)".
std::u16string Place(const std::u16string& key, const char16_t* name) {
  return u"HKLM\\" + key + u", " + (name == nullptr ? kDefaultValue : name);
}

bool IsTooLong(const RegistryValue& value) {
  return value.bytes.size() > kMailClientTextBytes;
}

void AddTooLong(std::vector<Finding>& findings, const std::u16string& place,
                const RegistryValue& value) {
  AddFinding(findings, "D16", Severity::kWarning,
             {place, u"it has more than " + Number(kMailClientTextBytes) + u" bytes: " +
                         Number(value.bytes.size())});
}

// D16 of the values that should hold the path of a library.
void AddUnusablePath(const std::u16string& key, const platform::RegistryKey& client,
                     const char16_t* name, std::vector<Finding>& findings) {
  const auto value = ReadValue(Hive::kLocalMachine, key.c_str(), name);
  if (!value) {
    return;
  }
  const std::u16string place = Place(key, name);
  const std::u16string path = RegQueryWszExpand(client, name);
  if (IsTooLong(*value)) {
    AddTooLong(findings, place, *value);
  } else if (value->type != platform::kRegSz && value->type != platform::kRegExpandSz) {
    AddFinding(findings, "D16", Severity::kWarning,
               {place, u"it is no text, but a " + TypeName(value->type)});
  } else if (value->Text().empty()) {
    AddFinding(findings, "D16", Severity::kWarning, {place, u"it is empty"});
  } else if (path.empty()) {
    AddFinding(findings, "D16", Severity::kWarning,
               {place, u"with its variables expanded it is too long: " + Quoted(value->Text())});
  }
}

// D16 of the mail client's own key.
void AddClientTexts(const std::u16string& client, const platform::RegistryKey& opened,
                    std::vector<Finding>& findings) {
  const std::u16string key = registry::kMailClientsKey + (u"\\" + client);
  AddUnusablePath(key, opened, registry::kExtendedLibrary, findings);
  AddUnusablePath(key, opened, registry::kLibrary, findings);
  for (const char16_t* const name : {registry::kInstallerComponent, registry::kInstallerLanguage}) {
    const auto value = ReadValue(Hive::kLocalMachine, key.c_str(), name);
    if (value && IsTooLong(*value)) {
      AddTooLong(findings, Place(key, name), *value);
    }
  }
}

// D16 to D19.
void AddClientFindings(std::vector<Finding>& findings) {
  const std::u16string key = registry::kMailClientsKey;
  const auto value = ReadValue(Hive::kLocalMachine, key.c_str(), nullptr);
  const std::u16string client = value ? value->Text() : std::u16string();
  if (client.empty()) {
    AddFinding(findings, "D17", Severity::kWarning, {Place(key, nullptr)});
  } else if (IsTooLong(*value)) {
    AddTooLong(findings, Place(key, nullptr), *value);
  } else if (const platform::RegistryKey opened = GetHKeyMapiClient(u"")) {
    AddClientTexts(client, opened, findings);
  } else {
    AddFinding(findings, "D18", Severity::kWarning, {u"HKLM\\" + key + u"\\" + client});
  }
  const auto own = ReadValue(Hive::kCurrentUser, key.c_str(), nullptr);
  if (own && !own->Text().empty() && InLowerCase(own->Text()) != InLowerCase(client)) {
    AddFinding(findings, "D19", Severity::kWarning,
               {u"HKCU names " + Quoted(own->Text()) + u", HKLM " + Quoted(client)});
  }
}

// D11, D20 and D24.
void AddProcessFindings(std::vector<Finding>& findings) {
  reading::Process process;
  if (platform::ThrowWithoutMemory(reading::DescribeProcess(process)) != platform::kSuccess) {
    return;
  }
  if (process.is_multi_byte) {
    AddFinding(findings, "D11", Severity::kWarning, {u"code page " + Number(process.code_page)});
  }
  for (const char16_t* const name : {u"mapi32.dll", u"mapistub.dll"}) {
    const std::u16string path = process.folder + name;
    platform::FileIdentity identity;
    const platform::Status status =
        platform::ThrowWithoutMemory(reading::IdentifyFile(path, identity));
    // Where files have no numbers it is there all the same.
    if (status == platform::kSuccess || status == platform::kNotSupported) {
      AddFinding(findings, "D20", Severity::kWarning, {path});
    }
  }
  if (process.is_elevated) {
    AddFinding(findings, "D24", Severity::kWarning);
  }
}

// D22 and D23.
void AddUserFindings(std::vector<Finding>& findings) {
  if (!HasDefaultProfile()) {
    AddFinding(findings, "D22", Severity::kNote);
  }
  const auto edition =
      ReadValue(Hive::kCurrentUser, u"Software\\Microsoft\\Office\\16.0\\Outlook\\Preferences",
                u"UseNewOutlook");
  if (edition && edition->type == platform::kRegDword &&
      edition->bytes.size() == sizeof(std::uint32_t) && ValueText(*edition) != u"0") {
    AddFinding(findings, "D23", Severity::kWarning, {u"UseNewOutlook = " + ValueText(*edition)});
  }
}

}  // namespace

void AddMachineFindings(std::vector<Finding>& findings) {
  AddClientFindings(findings);
  AddProcessFindings(findings);
  AddUserFindings(findings);
}

bool HasDefaultProfile() {
  constexpr const char16_t* kKeys[] = {
      u"Software\\Microsoft\\Office\\16.0\\Outlook",
      u"Software\\Microsoft\\Office\\15.0\\Outlook",
      u"Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows Messaging Subsystem\\Profiles",
  };
  return std::any_of(std::begin(kKeys), std::end(kKeys), [](const char16_t* key) {
    const auto value = ReadValue(Hive::kCurrentUser, key, u"DefaultProfile");
    return value && value->type == platform::kRegSz && !value->Text().empty();
  });
}

}  // namespace zentpost::doctor
