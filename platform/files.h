// Files as bytes, and the folders of the current user. Paths are UTF-16; line ends are never
// touched here. Nothing here throws: what needs memory gives kNotEnoughMemory when it runs out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

enum class OpenMode {
  kRead,     // an existing file, for reading
  kRewrite,  // for writing; created when missing, emptied when not
};

enum class RawFile : std::uintptr_t {};
struct FileTraits {
  using Value = RawFile;
  static constexpr RawFile kNone{};
  static void Close(RawFile file) noexcept;
};
using File = UniqueHandle<FileTraits>;

// Opens a file on a disk; others may read and write it meanwhile, as a C library's fopen allows. A
// folder cannot be opened, nor anything else whose user may have to wait (a pipe, a port, a
// console): these give kAccessDenied at once. On failure `file` owns nothing.
[[nodiscard]] Status OpenFileAt(const std::u16string& path, OpenMode mode, File& file);

// The file's present size in bytes.
[[nodiscard]] Status QueryFileSize(const File& file, std::uint64_t& bytes);

// Reads on from where the last read ended until `capacity` bytes are there, the file ends or
// reading fails; `count` says how many bytes arrived in either case.
[[nodiscard]] Status ReadBytes(const File& file, void* buffer, std::size_t capacity,
                               std::size_t& count);

// Writes all `size` bytes behind what was written last, or fails with some of them written.
[[nodiscard]] Status WriteBytes(const File& file, const void* bytes, std::size_t size);

// Appends `size` bytes to the file at `path` in one step, whole and unmixed with what other
// processes append at the same time; the file is created when missing, its folder is not. What
// cannot be opened, as OpenFileAt says, cannot be appended to. No lock of another program is waited
// for. Where the system does not append in one step, those who append share a lock, which is waited
// for 2 seconds at most, and not at all once that has failed in this process; without it the bytes
// are appended all the same, and may then be mixed with others.
[[nodiscard]] Status AppendToFile(const std::u16string& path, const void* bytes, std::size_t size);

[[nodiscard]] Status RemoveFile(const std::u16string& path);

// Which file it is that a path leads to. Two paths lead to one file when their identities are
// equal, however they are spelled and whichever links lie on the way; this holds as long as the
// file is there.
struct FileIdentity {
  std::uint64_t volume = 0;
  std::array<std::uint8_t, 16> file = {};

  bool operator==(const FileIdentity&) const = default;
};

// Tells the identity of the file at `path` without opening it for reading or writing: it works
// however others have opened the file, changes nothing and never waits. Only files on a disk have
// one: anything else that is there gives kAccessDenied, what is missing the number of OpenFileAt.
// kNotSupported: the file system tells files apart by their paths alone. On failure `identity` is
// as it was.
[[nodiscard]] Status IdentifyFile(const std::u16string& path, FileIdentity& identity);

// The folder for temporary files, ending with a separator, as GetTempPathW gives it: `length` is
// the number of units without the terminator when `buffer` (space for `capacity` units) took it,
// and the space needed, terminator included, when it did not. On failure `length` is 0.
[[nodiscard]] Status TemporaryFolder(std::uint32_t capacity, char16_t* buffer,
                                     std::uint32_t& length);

// The current user's folder of local application data, without a separator at its end. Gives the
// HRESULT of SHGetFolderPathW for CSIDL_LOCAL_APPDATA (0x1C), no token, the current path, or
// 0x8007000E when memory runs out; `folder` is empty when that is negative.
[[nodiscard]] std::int32_t LocalApplicationDataFolder(std::u16string& folder);

}  // namespace platform
