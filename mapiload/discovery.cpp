#include "mapiload/discovery.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "app/registry_names.h"
#include "mapiload/attempt.h"
#include "mapiload/split_path.h"
#include "mapiload/system_libraries.h"
#include "mapiload/trace.h"
#include "platform/call.h"

namespace zentpost {

using platform::Module;
using platform::RegistryKey;
using platform::Status;

bool UseSystemMapiOnly = false;
bool PreferOutlookClient = false;

namespace {

constexpr char16_t kOutlookClient[] = u"Microsoft Outlook";
constexpr char16_t kOutlookMapi[] = u"olmapi32.dll";
constexpr char16_t kSystemMapi[] = u"mapi32.dll";

constexpr char16_t kQualifierX64[] = u"outlook.x64.exe";
constexpr char16_t kQualifierX86[] = u"outlook.exe";

// Published in msi.h, INSTALLMODE_DEFAULT.
constexpr std::uint32_t kInstallModeDefault = 0;

// A text that is read or expanded, with zero units behind it.
constexpr std::uint32_t kTextUnits = 260;
using TextBuffer = std::array<char16_t, kTextUnits>;

// The path that the system's stub writes, in 8-bit text.
constexpr std::uint32_t kComponentPathBytes = 260;

// What a path is split into, with zero units behind the texts.
struct PathFields {
  std::array<char16_t, 3> drive{};
  std::array<char16_t, 260> directory{};
};

void TraceFailure(const char16_t* what, std::uint32_t code) {
  MapiTrace(u"%ws failed with 0x%08X", {what, code});
}

// `text` is all zero on entry, so that what is read always ends.
Status ReadText(const RegistryKey& key, const char16_t* name, TextBuffer& text,
                std::uint32_t* type) {
  std::uint32_t bytes = kMailClientTextBytes;
  return platform::QueryValue(key, name, type, text.data(), bytes);
}

std::u16string WholeBuffer(const TextBuffer& text) {
  return std::u16string(text.begin(), text.end());
}

// Empty when `source` does not fit, as the longest that fits is 259 units and a terminator.
std::u16string Expand(const char16_t* source) {
  TextBuffer expanded{};
  std::uint32_t length = 0;
  // A failure has the length 0.
  static_cast<void>(platform::ExpandEnvironment(source, expanded.data(), kTextUnits, length));
  if (length < 1 || length >= kTextUnits) {
    return {};
  }
  std::fill(expanded.begin() + length, expanded.end(), u'\0');
  MapiTrace(u"RegQueryWszExpand: rgchValue(expanded) = %ws\n", {expanded.data()});
  return WholeBuffer(expanded);
}

std::string LowBytes(const char16_t* text) {
  std::string bytes;
  for (; *text != u'\0'; ++text) {
    bytes += static_cast<char>(*text & 0xFF);
  }
  return bytes;
}

// Each byte with its sign.
std::u16string WidenSigned(std::string_view bytes) {
  std::u16string text;
  for (const char byte : bytes) {
    text += static_cast<char16_t>(static_cast<signed char>(byte));
  }
  return text;
}

// Loads the system's stub by its bare name, so that the system's own order decides which it is.
Module LoadStub() {
  Module stub;
  for (const char16_t* const name : {kSystemMapi, u"mapistub.dll"}) {
    // The owner tells: a failure leaves it empty.
    static_cast<void>(platform::LoadModule(name, stub));
    if (stub) {
      break;
    }
  }
  return stub;
}

// Asks the installer for the component of the 64-bit Outlook, then for that of the 32-bit one.
// `count` is as for ProvideQualifiedComponent. False when neither is known.
bool AskInstaller(const char16_t* category, char16_t* path, std::uint32_t& count) {
  struct Question {
    const char16_t* qualifier;
    const char16_t* label;
  };
  constexpr Question kQuestions[] = {
      {kQualifierX64, u"GetOutlookPath: MsiProvideQualifiedComponent(x64)"},
      {kQualifierX86, u"GetOutlookPath: MsiProvideQualifiedComponent(x86)"},
  };
  const std::uint32_t capacity = count;
  for (const Question& question : kQuestions) {
    // What a failed call leaves in the count is not how much the buffer holds.
    count = capacity;
    const std::uint32_t status =
        ProvideQualifiedComponent(category, question.qualifier, kInstallModeDefault, path, &count);
    if (status == platform::kSuccess) {
      return true;
    }
    TraceFailure(question.label, status);
  }
  return false;
}

// Adds what a source has found, which may be nothing.
void AddFound(std::vector<std::u16string>& paths, std::u16string path) {
  if (!path.empty()) {
    Attempt([&] { paths.push_back(std::move(path)); });
  }
}

}  // namespace

Module AttachToMAPIDll(const char16_t* wzMapiDll) {
  MapiTrace(u"Enter AttachToMAPIDll: wzMapiDll = %ws\n", {wzMapiDll});
  platform::RawModule found{};
  if (const ModuleHandleExFunction get_handle = BindModuleHandleEx()) {
    // The handle tells; a failed call leaves none.
    static_cast<void>(get_handle(0, wzMapiDll, &found));
  } else {
    static_cast<void>(platform::FindLoadedModule(wzMapiDll, found));
  }
  MapiTrace(u"Exit AttachToMAPIDll: hinstPrivateMAPI = %p\n", {ForTrace(found)});
  return Module(found);
}

Module GetDefaultMapiHandle() {
  MapiTrace(u"Enter GetDefaultMapiHandle\n");
  Module library;
  for (const std::u16string& path : GetMapiCandidatePaths()) {
    MapiTrace(u"Trying %ws\n", {path.c_str()});
    // The owner tells: a failure leaves it empty.
    static_cast<void>(platform::LoadModule(path.c_str(), library));
    if (library) {
      break;
    }
  }
  MapiTrace(u"Exit GetDefaultMapiHandle: hinstMapi = %p\n", {ForTrace(library.Get())});
  return library;
}

std::vector<std::u16string> GetMapiCandidatePaths() {
  std::vector<std::u16string> paths;
  if (UseSystemMapiOnly) {
    AddFound(paths, Attempt(GetSystemMapiPath));
    return paths;
  }
  const RegistryKey client =
      Attempt([] { return GetHKeyMapiClient(PreferOutlookClient ? kOutlookClient : u""); });
  const auto add_value = [&](const char16_t* name) {
    AddFound(paths, Attempt([&] { return RegQueryWszExpand(client, name); }));
  };
  add_value(registry::kExtendedLibrary);
  for (std::u16string& path : GetInstalledOutlookMAPI()) {
    AddFound(paths, std::move(path));
  }
  add_value(registry::kLibrary);
  AddFound(paths, Attempt([&] { return GetMailClientFromMSIData(client); }));
  if (!PreferOutlookClient) {
    AddFound(paths, Attempt(GetSystemMapiPath));
  }
  return paths;
}

RegistryKey GetHKeyMapiClient(const std::u16string& pwzProvider) {
  MapiTrace(u"Enter GetHKeyMapiClient (%ws)\n", {pwzProvider.c_str()});
  RegistryKey mail;
  RegistryKey client;
  TextBuffer default_client{};
  const char16_t* provider = pwzProvider.c_str();
  Status status = platform::OpenKey(platform::Hive::kLocalMachine, registry::kMailClientsKey,
                                    platform::kKeyRead, mail);
  if (status != platform::kSuccess) {
    TraceFailure(u"GetHKeyMapiClient: RegOpenKeyExW(HKLM)", status);
  }
  if (mail && *provider == u'\0') {
    status = ReadText(mail, nullptr, default_client, nullptr);
    if (status == platform::kSuccess) {
      provider = default_client.data();
      MapiTrace(u"GetHKeyMapiClient: HKLM\\%ws = %ws\n", {registry::kMailClientsKey, provider});
    } else {
      TraceFailure(u"GetHKeyMapiClient: RegQueryValueExW(hMailKey)", status);
    }
  }
  if (mail && *provider != u'\0') {
    MapiTrace(u"GetHKeyMapiClient: pwzProvider = %ws\n", {provider});
    status = platform::OpenSubKey(mail, provider, platform::kKeyRead, client);
    if (status != platform::kSuccess) {
      TraceFailure(u"GetHKeyMapiClient: RegOpenKeyExW", status);
    }
  }
  MapiTrace(u"Exit GetHKeyMapiClient.hkeyMapiClient found (%ws)\n", {client ? u"true" : u"false"});
  return client;
}

std::u16string RegQueryWszExpand(const RegistryKey& hKey, const char16_t* lpValueName) {
  MapiTrace(u"Enter RegQueryWszExpand: hKey = %p, lpValueName = %ws\n",
            {ForTrace(hKey.Get()), lpValueName});
  std::u16string result;
  TextBuffer value{};
  std::uint32_t type = 0;
  const Status status = ReadText(hKey, lpValueName, value, &type);
  if (status == platform::kSuccess) {
    MapiTrace(u"RegQueryWszExpand: rgchValue = %ws\n", {value.data()});
    if (type == platform::kRegExpandSz) {
      result = Expand(value.data());
    } else if (type == platform::kRegSz) {
      result = WholeBuffer(value);
    }
  }
  MapiTrace(u"Exit RegQueryWszExpand: dwErr = 0x%08X\n", {status});
  return result;
}

std::u16string GetMailClientFromMSIData(const RegistryKey& client) {
  if (!client) {
    return {};
  }
  MapiTrace(u"Enter GetMailClientFromMSIData\n");
  std::u16string path;
  TextBuffer component{};
  TextBuffer language{};
  if (ReadText(client, registry::kInstallerComponent, component, nullptr) == platform::kSuccess &&
      ReadText(client, registry::kInstallerLanguage, language, nullptr) == platform::kSuccess) {
    path = GetComponentPath(component.data(), language.data(), false);
  }
  MapiTrace(u"Exit GetMailClientFromMSIData: szPath = %ws\n", {path.c_str()});
  return path;
}

std::u16string GetComponentPath(const char16_t* szComponent, const char16_t* szQualifier,
                                bool fInstall) {
  using Function =
      std::int32_t(PLATFORM_STDCALL*)(const char*, const char*, char*, std::uint32_t, std::int32_t);
  MapiTrace(u"Enter GetComponentPath: szComponent = %ws, szQualifier = %ws, fInstall = 0x%08X\n",
            {szComponent, szQualifier, std::uint32_t{fInstall}});
  std::u16string path;
  // The stub answers in a whole number of which only the low byte counts.
  std::uint8_t found = 0;
  if (Module stub = LoadStub()) {
    platform::Procedure procedure = nullptr;
    // The address tells; a failure leaves none.
    static_cast<void>(platform::FindProcedure(stub.Get(), "FGetComponentPath", procedure));
    if (procedure != nullptr) {
      const std::string component = LowBytes(szComponent);
      const std::string qualifier = LowBytes(szQualifier);
      std::array<char, kComponentPathBytes> bytes{};
      found = static_cast<std::uint8_t>(
          reinterpret_cast<Function>(procedure)(component.c_str(), qualifier.c_str(), bytes.data(),
                                                kComponentPathBytes, std::int32_t{fInstall}));
      if (found != 0) {
        const auto* const end = std::find(bytes.begin(), bytes.end(), '\0');
        path = WidenSigned({bytes.data(), static_cast<std::size_t>(end - bytes.begin())});
      }
      MapiTrace(u"GetComponentPath: path = %ws\n", {path.c_str()});
    }
  }
  MapiTrace(u"Exit GetComponentPath: fReturn = 0x%08X\n", {std::uint32_t{found}});
  return path;
}

std::vector<std::u16string> GetInstalledOutlookMAPI() {
  MapiTrace(u"Enter GetInstalledOutlookMAPI\n");
  std::vector<std::u16string> paths;
  for (const char16_t* const category : OutlookComponentIds) {
    AddFound(paths, Attempt([&] { return GetInstalledOutlookMAPI(category); }));
  }
  MapiTrace(u"Exit GetInstalledOutlookMAPI: found %d paths\n",
            {static_cast<std::uint32_t>(paths.size())});
  return paths;
}

std::u16string GetInstalledOutlookMAPI(const char16_t* szCategory) {
  MapiTrace(u"Enter GetInstalledOutlookMAPI(%s)\n", {szCategory});
  const std::u16string outlook = GetOutlookPath(szCategory);
  if (!outlook.empty()) {
    PathFields fields;
    const int status = SplitPath(outlook.c_str(), fields.drive, fields.directory);
    if (status == 0) {
      std::u16string path;
      path.append(fields.drive.data()).append(fields.directory.data()).append(kOutlookMapi);
      MapiTrace(u"GetInstalledOutlookMAPI: found %ws\n", {path.c_str()});
      return path;
    }
    // The line names the routine that found the path, and support staff know it so.
    TraceFailure(u"GetOutlookPath: _wsplitpath_s", static_cast<std::uint32_t>(status));
  }
  MapiTrace(u"Exit GetInstalledOutlookMAPI: found nothing\n");
  return {};
}

std::u16string GetOutlookPath(const char16_t* szCategory) {
  MapiTrace(u"Enter GetOutlookPath: szCategory = %ws\n", {szCategory});
  std::u16string path;
  std::uint32_t count = 0;
  if (AskInstaller(szCategory, nullptr, count)) {
    ++count;
    std::u16string buffer(count, u'\0');
    // Both qualifiers again: which of them answered the question for the size is not kept.
    if (AskInstaller(szCategory, buffer.data(), count)) {
      path.assign(buffer, 0, buffer.find(u'\0'));  // all of it where the installer wrote no end
      MapiTrace(u"Exit GetOutlookPath: Path = %ws\n", {path.c_str()});
    }
  }
  if (path.empty()) {
    MapiTrace(u"Exit GetOutlookPath: nothing found\n");
  }
  return path;
}

std::u16string GetSystemMapiPath() {
  return GetSystemDirectory().append(u"\\").append(kSystemMapi);
}

Module LoadFromOLMAPIDir(const char16_t* name) {
  MapiLoadTrace(u"LoadFromOLMAPIDir - loading \"%ws\"\n", {name});
  Module module;
  for (const char16_t* const category : OutlookComponentIds) {
    const std::u16string installed = Attempt([&] { return GetInstalledOutlookMAPI(category); });
    if (!installed.empty()) {
      module = Attempt([&] { return LoadBesideOutlookMapi(installed, name); });
    }
    if (module) {
      break;
    }
  }
  return module;
}

Module LoadBesideOutlookMapi(const std::u16string& olmapi_path, const char16_t* name) {
  Module module;
  PathFields fields;
  const int status = SplitPath(olmapi_path.c_str(), fields.drive, fields.directory);
  if (status != 0) {
    TraceFailure(u"LoadFromOLMAPIDir: _wsplitpath_s", static_cast<std::uint32_t>(status));
    return module;
  }
  std::u16string path(fields.drive.begin(), fields.drive.end());
  path.append(fields.directory.begin(), fields.directory.end()).append(name);
  MapiLoadTrace(u"LoadFromOLMAPIDir - loading from \"%ws\"\n", {path.c_str()});
  // A failure leaves the owner empty, which is all that is asked for.
  static_cast<void>(platform::LoadModule(path.c_str(), module));
  return module;
}

}  // namespace zentpost
