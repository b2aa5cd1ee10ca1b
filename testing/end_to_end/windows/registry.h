// What the tests write into the machine's own registry, and how it gets back what it had. Failures
// throw, but for those that the results tell of.
#pragma once

#include <windows.h>

#include <string>

namespace zentpost::e2e {

// Creates the key where it is missing. `text` may have zero units in it; a terminator is added.
void SetRegistryText(HKEY root, const std::wstring& key, const std::wstring& name, DWORD type,
                     const std::wstring& text);
void SetRegistryNumber(HKEY root, const std::wstring& key, const std::wstring& name, DWORD number);
void AddRegistryKey(HKEY root, const std::wstring& key);

// With all that is below it, if it is there.
void CopyRegistryKey(HKEY root, const std::wstring& from, const std::wstring& to);
void RemoveRegistryKey(HKEY root, const std::wstring& key);

// Moves a key to another place for the time of the tests, and back. What is put aside already comes
// from a run that was cut short: it is the machine's, and what stands in its place is that run's.
// False: the key is there, and this user may not move it.
[[nodiscard]] bool PutKeyAside(HKEY root, const std::wstring& key, const std::wstring& aside);
void PutKeyBack(HKEY root, const std::wstring& key, const std::wstring& aside);

// All that stands in a key and below it, key by key and value by value.
[[nodiscard]] std::wstring RegistryContents(HKEY root, const std::wstring& key);

}  // namespace zentpost::e2e
