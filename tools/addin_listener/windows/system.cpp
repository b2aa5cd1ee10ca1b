#include "tools/addin_listener/system.h"

#include <windows.h>

#include <algorithm>
#include <mutex>

#include "platform/unique_handle.h"

namespace zentpost::addin_listener {
namespace {

struct HandleTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using Handle = platform::UniqueHandle<HandleTraits>;

// The console calls its handler on a thread of its own.
std::mutex g_mutex;
InterruptGuard::Callback g_callback = nullptr;
void* g_context = nullptr;
HANDLE g_ended = nullptr;

BOOL WINAPI HandleConsoleEvent(DWORD event) {
  Handle ended;
  {
    const std::lock_guard lock(g_mutex);
    if (g_callback == nullptr) {
      return FALSE;
    }
    g_callback(g_context);
    HANDLE copy = nullptr;
    if (DuplicateHandle(GetCurrentProcess(), g_ended, GetCurrentProcess(), &copy, 0, FALSE,
                        DUPLICATE_SAME_ACCESS)) {
      ended.Reset(copy);
    }
  }
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && ended) {
    // The process ends when this returns: the window is being closed.
    WaitForSingleObject(ended.Get(), INFINITE);
  }
  return TRUE;
}

}  // namespace

std::string CallError(const char* call, int code) {
  wchar_t wide[512];
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                static_cast<DWORD>(code), 0, wide,
                                static_cast<DWORD>(std::size(wide)), nullptr);
  while (length > 0 && (wide[length - 1] == L'\n' || wide[length - 1] == L'\r')) {
    --length;
  }
  std::string text = "system error";
  if (length > 0) {
    text.resize(3 * static_cast<std::size_t>(length));
    text.resize(static_cast<std::size_t>(
        WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(length), text.data(),
                            static_cast<int>(text.size()), nullptr, nullptr)));
  }
  return std::string(call) + ": " + text + " (" + std::to_string(code) + ")";
}

CreateResult CreateNewFile(const std::filesystem::path& path, std::string_view bytes,
                           std::string& error) {
  const HANDLE opened = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) {
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_EXISTS || code == ERROR_ALREADY_EXISTS) {
      return CreateResult::kExists;
    }
    error = CallError("CreateFile", static_cast<int>(code));
    return CreateResult::kFailed;
  }
  Handle file(opened);
  while (!bytes.empty()) {
    const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1u << 30));
    DWORD written = 0;
    if (!WriteFile(file.Get(), bytes.data(), size, &written, nullptr)) {
      error = CallError("WriteFile", static_cast<int>(GetLastError()));
      file.Reset();
      DeleteFileW(path.c_str());
      return CreateResult::kFailed;
    }
    bytes.remove_prefix(written);
  }
  return CreateResult::kCreated;
}

InterruptGuard::InterruptGuard(Callback callback, void* context) {
  const std::lock_guard lock(g_mutex);
  g_callback = callback;
  g_context = context;
  g_ended = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(HandleConsoleEvent, TRUE);
}

InterruptGuard::~InterruptGuard() {
  const std::lock_guard lock(g_mutex);
  SetConsoleCtrlHandler(HandleConsoleEvent, FALSE);
  g_callback = nullptr;
  if (g_ended != nullptr) {
    SetEvent(g_ended);
    CloseHandle(g_ended);
    g_ended = nullptr;
  }
}

}  // namespace zentpost::addin_listener
