// The registry, read only: the tool configures nothing. Which keys and values are read, in which
// order and with which access and buffer sizes, is the caller's business. Nothing here throws: what
// needs memory gives kNotEnoughMemory when it runs out.
#pragma once

#include <cstdint>

#include "platform/status.h"
#include "platform/unique_handle.h"

namespace platform {

enum class Hive { kCurrentUser, kLocalMachine, kClassesRoot };

// Published in winnt.h: access rights (KEY_...) and value types (REG_...).
inline constexpr std::uint32_t kKeyQueryValue = 0x00001;
inline constexpr std::uint32_t kKeyRead = 0x20019;
inline constexpr std::uint32_t kKeyReadWrite = 0x2001F;
inline constexpr std::uint32_t kRegSz = 1;
inline constexpr std::uint32_t kRegExpandSz = 2;
inline constexpr std::uint32_t kRegBinary = 3;
inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kRegMultiSz = 7;

enum class RawKey : std::uintptr_t {};
struct RegistryKeyTraits {
  using Value = RawKey;
  static constexpr RawKey kNone{};
  static void Close(RawKey key) noexcept;
};
using RegistryKey = UniqueHandle<RegistryKeyTraits>;

// Opens `path` (separators are backslashes, case is ignored) below `hive` with `access`. On failure
// `key` owns nothing.
[[nodiscard]] Status OpenKey(Hive hive, const char16_t* path, std::uint32_t access,
                             RegistryKey& key);

// The same below an open key.
[[nodiscard]] Status OpenSubKey(const RegistryKey& parent, const char16_t* path,
                                std::uint32_t access, RegistryKey& key);

// Reads the value `name` (null or empty: the key's default value) as it is stored: nothing is
// expanded, no terminator counts that is not there. `size` is the capacity of `data` in bytes on
// entry and the value's size in bytes on return, also with kMoreData, which leaves `data` as it was
// or partly written. What stands in `data` behind the value is unspecified: Windows puts a
// terminator there when a text lacks one and there is space. `data` may be null, which only asks
// for the size; `type` may be null.
[[nodiscard]] Status QueryValue(const RegistryKey& key, const char16_t* name, std::uint32_t* type,
                                void* data, std::uint32_t& size);

// Closes the key now and tells how that went; the key owns nothing afterwards in either case.
// Closing an owner that is empty gives kInvalidHandle.
Status CloseKey(RegistryKey& key);

}  // namespace platform
