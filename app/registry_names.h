// The registry as the tool reads it: the names of its keys and values, and of the mail clients'.
// Tests and tools that set a machine up take them from here; what a test expects it spells out
// itself.
#pragma once

namespace zentpost::registry {

// The fax client's settings, under the user's hive and, for numbers, under the machine's.
inline constexpr char16_t kFaxClientKey[] = u"Software\\Sollvex\\FaxClient";
inline constexpr char16_t kLogLevel[] = u"LogLevel";
inline constexpr char16_t kSkipExtendedMapi[] = u"SkipExtendedMapi";

// The settings of the mail client's add-in, under the user's hive.
inline constexpr char16_t kAddinKey[] = u"Software\\Sollvex\\OutlookAddin";
inline constexpr char16_t kAddinPort[] = u"TolvanAddinPort";
inline constexpr char16_t kAddressAutomation[] = u"AddrExtFaxEnabled";
inline constexpr char16_t kAddressPrefix[] = u"AddrExtFaxPrefix";
inline constexpr char16_t kAddressPostfix[] = u"AddrExtFaxPostfix";

// The machine's mail clients, each in a key below this one, whose default value names one of them.
inline constexpr char16_t kMailClientsKey[] = u"Software\\Clients\\Mail";
inline constexpr char16_t kExtendedLibrary[] = u"DllPathEx";
inline constexpr char16_t kLibrary[] = u"DllPath";
inline constexpr char16_t kInstallerComponent[] = u"MSIComponentID";
inline constexpr char16_t kInstallerLanguage[] = u"MSIApplicationLCID";

// Under the hive of classes, in the key named for a file name extension.
inline constexpr char16_t kContentType[] = u"Content Type";

}  // namespace zentpost::registry
