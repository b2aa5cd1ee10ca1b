// Where a MAPI library may be: among what the process has loaded, in the registry's entry of the
// mail client, beside an installed Outlook, or in the system directory.
//
// A returned empty text or handle means that nothing was found; why stands in the trace
// (mapiload/trace.h). All texts are UTF-16. Every operation may throw std::bad_alloc, and
// std::length_error for a size that the system told and no text can have, unless it says otherwise.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/modules.h"
#include "platform/registry.h"

namespace zentpost {

// Qualified-component categories under which installations of Outlook register themselves with the
// Windows Installer, in the order of the search.
inline constexpr std::array<const char16_t*, 6> OutlookComponentIds = {
    u"{5812C571-53F0-4467-BEFA-0A4F47A9437C}", u"{E83B4360-C208-4325-9504-0D23003A74A5}",
    u"{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}", u"{24AAE126-0911-478F-A019-07B875EB9996}",
    u"{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}", u"{BC174BAD-2F53-4855-A1D5-1D575C19B1EA}",
};

// A text of a mail client is asked of the registry with so many bytes, half of what its buffer
// holds: a longer one cannot be read. So the search has always done it, and which entries it finds
// is known by that.
inline constexpr std::uint32_t kMailClientTextBytes = 260;

// Only the system's own mapi32.dll is a candidate. Nothing in the tool sets it.
extern bool UseSystemMapiOnly;
// The mail client "Microsoft Outlook" counts instead of the default one, and the system's own
// mapi32.dll is none of the candidates. Nothing in the tool sets it.
extern bool PreferOutlookClient;

// The library named `wzMapiDll` (a file name) if the process has loaded it already, with a
// reference; it is never loaded here. Where the system's GetModuleHandleExW cannot be had, the
// reference is missing.
platform::Module AttachToMAPIDll(const char16_t* wzMapiDll);

// The first candidate that loads, in their order. Duplicates are tried again.
platform::Module GetDefaultMapiHandle();

// The candidates in the order of the search: the mail client's "DllPathEx", the libraries beside
// the installed Outlooks, the client's "DllPath", the path that the client registered with the
// installer, the system's mapi32.dll. A path may be padded with zero units; it ends at the first
// one. Does not throw: what memory is missing for is left out.
std::vector<std::u16string> GetMapiCandidatePaths();

// Opens the registry key of the mail client `pwzProvider`, of the default one when that is empty,
// in HKEY_LOCAL_MACHINE, for reading.
platform::RegistryKey GetHKeyMapiClient(const std::u16string& pwzProvider);

// The text value `lpValueName` of `hKey`, with its variables expanded when it is a REG_EXPAND_SZ;
// empty on failure and for any other type. A value that could be read, an empty one too, is padded
// with zero units to 260; one of more than 260 bytes cannot be read.
std::u16string RegQueryWszExpand(const platform::RegistryKey& hKey, const char16_t* lpValueName);

// The path of the MAPI library that the client registered with the Windows Installer. `client` may
// own nothing.
std::u16string GetMailClientFromMSIData(const platform::RegistryKey& client);

// The path of the component `szComponent`, as the system's MAPI stub tells it. Of the arguments
// only the low byte of each unit gets there. Bytes of the path from 0x80 on become units from
// 0xFF80 on.
std::u16string GetComponentPath(const char16_t* szComponent, const char16_t* szQualifier,
                                bool fInstall);

// The paths of olmapi32.dll for all OutlookComponentIds that yield one, in their order. Does not
// throw, as for GetMapiCandidatePaths.
std::vector<std::u16string> GetInstalledOutlookMAPI();

// The path of olmapi32.dll in the folder of the Outlook that is registered under `szCategory`.
std::u16string GetInstalledOutlookMAPI(const char16_t* szCategory);

// The full path of the outlook.x64.exe or outlook.exe that is registered under `szCategory`.
std::u16string GetOutlookPath(const char16_t* szCategory);

// The full path of the system's own mapi32.dll.
std::u16string GetSystemMapiPath();

// Tries to load the library `name` from the folders of the installed Outlooks. What is loaded is
// the text of the drive alone ("C:"), see LoadBesideOutlookMapi, so nothing comes of it in effect.
platform::Module LoadFromOLMAPIDir(const char16_t* name);

// One step of it: tries to load `name` from the folder of `olmapi_path`. Drive, folder and name are
// joined at the full width of their fields, with the zero units behind drive and folder, and the
// path ends at the first one. It has always been so, and no client has the companion loaded into
// it.
platform::Module LoadBesideOutlookMapi(const std::u16string& olmapi_path, const char16_t* name);

}  // namespace zentpost
