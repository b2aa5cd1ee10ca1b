// What the rights to a file or a key would give, told without asking for more than reading.
#include <windows.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

// What a file's or a key's rights are told with: who owns it, who may do what, how trusted a
// program has to be (published in winnt.h as LABEL_SECURITY_INFORMATION).
constexpr SECURITY_INFORMATION kRights = OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                         DACL_SECURITY_INFORMATION | 0x00000010;

struct HandleTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using Handle = UniqueHandle<HandleTraits>;

// Calls `ask(descriptor, size, needed)` with a size of 0 first. Empty where it may not be looked
// at.
template <class Ask>
std::vector<std::uint8_t> Descriptor(Ask ask) {
  DWORD needed = 0;
  ask(nullptr, 0, needed);
  std::vector<std::uint8_t> descriptor(needed);
  if (needed == 0 || !ask(descriptor.data(), needed, needed)) {
    descriptor.clear();
  }
  return descriptor;
}

// Whether the process has all of `rights` by `descriptor`. What cannot be found out is granted.
bool IsGranted(std::vector<std::uint8_t> descriptor, DWORD rights, GENERIC_MAPPING mapping) {
  Handle process;
  Handle token;
  if (descriptor.empty() ||
      !OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, process.Put()) ||
      !DuplicateToken(process.Get(), SecurityImpersonation, token.Put())) {
    return true;
  }
  MapGenericMask(&rights, &mapping);
  PRIVILEGE_SET privileges = {};
  DWORD privileges_size = sizeof(privileges);
  DWORD granted = 0;
  BOOL is_granted = FALSE;
  return !AccessCheck(descriptor.data(), token.Get(), rights, &mapping, &privileges,
                      &privileges_size, &granted, &is_granted) ||
         is_granted != FALSE;
}

bool IsGrantedForFile(const std::u16string& path, DWORD rights) {
  constexpr GENERIC_MAPPING kMapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE,
                                        FILE_ALL_ACCESS};
  return IsGranted(Descriptor([&](void* descriptor, DWORD size, DWORD& needed) {
                     return GetFileSecurityW(ToSystem(path.c_str()), kRights, descriptor, size,
                                             &needed) != FALSE;
                   }),
                   rights, kMapping);
}

// The whole path from the root on; empty when the system does not give it.
std::u16string FullPath(const std::u16string& path) {
  std::u16string full(GetFullPathNameW(ToSystem(path.c_str()), 0, nullptr, nullptr), u'\0');
  const DWORD length = GetFullPathNameW(ToSystem(path.c_str()), static_cast<DWORD>(full.size()),
                                        ToSystem(full.data()), nullptr);
  full.resize(length < full.size() ? length : 0);
  return full;
}

std::u16string FolderOf(const std::u16string& path) {
  const std::u16string full = FullPath(path);
  return full.substr(0, full.rfind(u'\\') + 1);  // npos + 1 is 0
}

// Whether a whole path leads to no file: "COM1" is \\.\COM1, a pipe \\.\pipe\NAME or
// \\SERVER\pipe\NAME.
bool NamesADevice(std::u16string_view full) {
  const auto is = [](std::u16string_view text, std::wstring_view word) {
    return CompareStringOrdinal(ToSystem(text.data()), static_cast<int>(text.size()), word.data(),
                                static_cast<int>(word.size()), TRUE) == CSTR_EQUAL;
  };
  if (full.starts_with(u"\\\\.\\") || full.starts_with(u"\\\\?\\")) {
    const std::u16string_view rest = full.substr(4);
    const bool is_drive = rest.size() > 2 && rest[1] == u':' && rest[2] == u'\\';
    return !is_drive && !is(rest.substr(0, 4), L"UNC\\") && !is(rest.substr(0, 7), L"Volume{");
  }
  if (!full.starts_with(u"\\\\")) {
    return false;
  }
  const std::u16string_view share = full.substr(std::min(full.find(u'\\', 2), full.size() - 1) + 1);
  const std::u16string_view name = share.substr(0, share.find(u'\\'));
  return is(name, L"pipe") || is(name, L"mailslot");
}

bool IsOnReadOnlyVolume(const std::u16string& path) {
  const std::u16string full = FullPath(path);
  std::u16string root(full.size() + 2, u'\0');  // and a separator
  DWORD flags = 0;
  return GetVolumePathNameW(ToSystem(full.c_str()), ToSystem(root.data()),
                            static_cast<DWORD>(root.size())) &&
         GetVolumeInformationW(ToSystem(root.data()), nullptr, 0, nullptr, nullptr, &flags, nullptr,
                               0) &&
         (flags & FILE_READ_ONLY_VOLUME) != 0;
}

Status Judge(const std::u16string& path, Change change) {
  const DWORD attributes = GetFileAttributesW(ToSystem(path.c_str()));
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const Status status = GetLastError();
    if (status != ERROR_FILE_NOT_FOUND || change == Change::kRemove) {
      return status;
    }
    if (IsOnReadOnlyVolume(path)) {
      return ERROR_WRITE_PROTECT;
    }
    return IsGrantedForFile(FolderOf(path), FILE_ADD_FILE) ? kSuccess : kAccessDenied;
  }
  // The system makes a hidden file anew only for whoever wants a hidden one.
  const DWORD refused =
      FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY |
      (change == Change::kRewrite ? FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM : DWORD{0});
  if ((attributes & refused) != 0) {
    return kAccessDenied;
  }
  if (IsOnReadOnlyVolume(path)) {
    return ERROR_WRITE_PROTECT;
  }
  if (change == Change::kRemove) {
    return IsGrantedForFile(path, DELETE) || IsGrantedForFile(FolderOf(path), FILE_DELETE_CHILD)
               ? kSuccess
               : kAccessDenied;
  }
  // What is no file on a disk has no identity.
  FileIdentity identity;
  if (const Status status = reading::IdentifyFile(path, identity);
      status != kSuccess && status != kNotSupported) {
    return status;
  }
  const DWORD wanted =
      change == Change::kRewrite ? FILE_GENERIC_WRITE : FILE_APPEND_DATA | SYNCHRONIZE;
  return IsGrantedForFile(path, wanted) ? kSuccess : kAccessDenied;
}

}  // namespace

Status LookBeforeOpening(const std::u16string& path) {
  return UnlessMemoryRunsOut(
      [&] { return NamesADevice(FullPath(path)) ? kAccessDenied : kSuccess; });
}

Status WouldChange(const std::u16string& path, Change change) {
  return UnlessMemoryRunsOut(
      [&] { return NamesADevice(FullPath(path)) ? kAccessDenied : Judge(path, change); });
}

Status CompletePath(const std::u16string& path, std::u16string& complete) {
  return UnlessMemoryRunsOut([&] {
    const auto is_separator = [&](std::size_t at) {
      return at < path.size() && (path[at] == u'\\' || path[at] == u'/');
    };
    // A drive alone is relative to its current folder, and a single separator to the current drive.
    const bool has_root = (path.size() > 1 && path[1] == u':' && is_separator(2)) ||
                          (is_separator(0) && is_separator(1));
    complete = has_root ? path : FullPath(path);
    return kSuccess;
  });
}

Status PathKey(const std::u16string& path, std::u16string& key) {
  return UnlessMemoryRunsOut([&] {
    key = FullPath(path);
    // The same length in either case; a failure leaves it as it is.
    static_cast<void>(LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, ToSystem(key.c_str()),
                                   static_cast<int>(key.size()), ToSystem(key.data()),
                                   static_cast<int>(key.size())));
    return kSuccess;
  });
}

Status WouldOpenKey(RawKey key, std::uint32_t access) {
  constexpr GENERIC_MAPPING kMapping = {KEY_READ, KEY_WRITE, KEY_EXECUTE, KEY_ALL_ACCESS};
  auto* const native = reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(key));
  return UnlessMemoryRunsOut([&] {
    return IsGranted(Descriptor([&](void* descriptor, DWORD size, DWORD& needed) {
                       needed = size;
                       return RegGetKeySecurity(native, kRights, descriptor, &needed) ==
                              ERROR_SUCCESS;
                     }),
                     access, kMapping)
               ? kSuccess
               : kAccessDenied;
  });
}

}  // namespace platform::reading
