// What the back-ends read of the machine, under names of its own, so that a back-end which has no
// effects can stand on it as well. Each function is as the one of its name in the header of its
// kind, but for what is said here. Nothing here changes anything or throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/registry.h"
#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform::reading {

// --- files ---

struct FileTraits {
  using Value = RawFile;
  static constexpr RawFile kNone{};
  static void Close(RawFile file) noexcept;
};
using File = UniqueHandle<FileTraits>;

// What others may do with a file while it is open.
enum class Sharing {
  kAsTheTool,  // as platform::OpenFileAt says
  kAll,        // also remove and rename it
};

// kAccessDenied where `path` leads to a device, a pipe or something else that notices when it is
// opened, told without opening it. kSuccess for all others, also where nothing is.
[[nodiscard]] Status LookBeforeOpening(const std::u16string& path);

// Opens a file for reading: only this one takes a right to it, and only that of reading.
[[nodiscard]] Status OpenFileAt(const std::u16string& path, Sharing sharing, File& file);
[[nodiscard]] Status QueryFileSize(RawFile file, std::uint64_t& bytes);
[[nodiscard]] Status ReadBytes(RawFile file, void* buffer, std::size_t capacity,
                               std::size_t& count);
// Reads at `offset`, up to `capacity` bytes or the file's end. Where ReadBytes reads next is then
// not known.
[[nodiscard]] Status ReadBytesAt(RawFile file, std::uint64_t offset, void* buffer,
                                 std::size_t capacity, std::size_t& count);
[[nodiscard]] Status IdentifyFile(const std::u16string& path, FileIdentity& identity);

// What could be done to a file.
enum class Change {
  kRewrite,  // OpenFileAt with OpenMode::kRewrite
  kAppend,   // AppendToFile
  kRemove,   // RemoveFile
};

// The number that changing the file at `path` so would give, told from what is there, its
// attributes and the rights to it, without opening anything for writing. That nobody holds the file
// is taken for granted, and so is a right that may not be looked at.
[[nodiscard]] Status WouldChange(const std::u16string& path, Change change);

// A text that is the same for all spellings of one path: from its root on, and in one case where
// the system does not tell cases apart. The file may be missing.
[[nodiscard]] Status PathKey(const std::u16string& path, std::u16string& key);

// What the system makes of a path that is relative; `path` itself where it is not. The file may be
// missing.
[[nodiscard]] Status CompletePath(const std::u16string& path, std::u16string& complete);

// The file that the loader would take for the library `name`; empty when it finds none. A path with
// a folder is only completed. kNotSupported: how the loader would look is not known.
[[nodiscard]] Status FindLibrary(const std::u16string& name, std::u16string& path);

// --- registry ---

// Closes a key that nobody asks how it went.
void LetGo(RawKey key) noexcept;
[[nodiscard]] Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access, RawKey& key);
[[nodiscard]] Status OpenSubKey(RawKey parent, const char16_t* path, std::uint32_t access,
                                RawKey& key);
[[nodiscard]] Status QueryValue(RawKey key, const char16_t* name, std::uint32_t* type, void* data,
                                std::uint32_t& size);
Status CloseKey(RawKey key);

// The number that opening an open key afresh with `access` would give, told from its rights.
[[nodiscard]] Status WouldOpenKey(RawKey key, std::uint32_t access);

// --- the Windows Installer ---

// The path of the component that is registered under a category (a GUID in braces) and a qualifier,
// told without installing or repairing anything. kFileNotFound: none is registered. kNotSupported:
// one is, or may be, and its path is not known.
[[nodiscard]] Status FindComponent(const std::u16string& category, const std::u16string& qualifier,
                                   std::u16string& path);

// --- the process ---

struct Process {
  std::u16string folder;                      // of the program's file, with a separator at its end
  bool is_elevated = false;                   // has more rights than its user's other programs
  std::uint32_t code_page = 0;                // the ANSI code page's number
  bool is_multi_byte = false;                 // a character may take several bytes in it
  bool loads_elf = false;                     // its libraries are ELF files, not PE files
  std::vector<std::u16string> users_folders;  // the user's profile, and those for temporary files
};
[[nodiscard]] Status DescribeProcess(Process& process);

// --- ports ---

// Who accepts TCP connections on 127.0.0.1.
struct Listener {
  enum class State {
    kNobody,
    kListens,
    kPerhaps,  // on all addresses of IPv6, which takes connections of IPv4 as well where it is told
               // to
    kUnknown,  // the system does not tell
  };
  State state = State::kNobody;
  std::uint32_t process = 0;  // 0: not known
  std::u16string program;     // its file's name; empty: not known
};

// Tells from the system's tables who listens on `port`, without connecting.
[[nodiscard]] Status FindListener(std::uint16_t port, Listener& listener);

// What connecting to `port` of 127.0.0.1 gives. The one function here that somebody notices: there
// is a connection, which carries no byte and is closed at once.
[[nodiscard]] Status TryToConnect(std::uint16_t port);

}  // namespace platform::reading
