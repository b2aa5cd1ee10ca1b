// What this program needs of the operating system besides sockets: the text of an error number,
// files that never overwrite others, and the user's wish to end.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zentpost::addin_listener {

// "call: the system's text (number)", in UTF-8; `code` is an errno value or a Win32 number.
[[nodiscard]] std::string CallError(const char* call, int code);

enum class CreateResult { kCreated, kExists, kFailed };
// Creates `path` with `bytes` as its content. kExists: a file of that name was there already and is
// untouched. kFailed: `error` says why, and no new file remains.
[[nodiscard]] CreateResult CreateNewFile(const std::filesystem::path& path, std::string_view bytes,
                                         std::string& error);

// While an object lives, the user's or the system's wish that the program end (an interrupt from
// the keyboard, a termination signal, a closed console window) calls `callback` instead of ending
// it, from a signal handler or another thread. Where the system would end the process as soon as
// the callback has returned, it is held up until the object is destroyed. One object at a time.
class InterruptGuard {
 public:
  using Callback = void (*)(void* context) noexcept;
  InterruptGuard(Callback callback, void* context);
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
};

}  // namespace zentpost::addin_listener
