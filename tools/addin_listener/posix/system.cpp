#include "tools/addin_listener/system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "platform/unique_handle.h"

namespace zentpost::addin_listener {
namespace {

struct DescriptorTraits {
  using Value = int;
  static constexpr int kNone = -1;
  static void Close(int descriptor) noexcept { close(descriptor); }
};

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

InterruptGuard::Callback g_callback = nullptr;
void* g_context = nullptr;
std::array<struct sigaction, kSignals.size()> g_former;

void HandleSignal(int) {
  g_callback(g_context);
}

}  // namespace

std::string CallError(const char* call, int code) {
  return std::string(call) + ": " + std::system_category().message(code) + " (" +
         std::to_string(code) + ")";
}

CreateResult CreateNewFile(const std::filesystem::path& path, std::string_view bytes,
                           std::string& error) {
  platform::UniqueHandle<DescriptorTraits> file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file) {
    if (errno == EEXIST) {
      return CreateResult::kExists;
    }
    error = CallError("open", errno);
    return CreateResult::kFailed;
  }
  while (!bytes.empty()) {
    const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written < 0) {
      error = CallError("write", errno);
      unlink(path.c_str());
      return CreateResult::kFailed;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  if (close(file.Detach()) != 0) {
    error = CallError("close", errno);
    unlink(path.c_str());
    return CreateResult::kFailed;
  }
  return CreateResult::kCreated;
}

InterruptGuard::InterruptGuard(Callback callback, void* context) {
  g_callback = callback;
  g_context = context;
  struct sigaction action {};
  action.sa_handler = HandleSignal;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &g_former[i]);
    // A program started to go on after its terminal is gone has these ignored, and keeps that.
    if (g_former[i].sa_handler != SIG_IGN) {
      sigaction(kSignals[i], &action, nullptr);
    }
  }
}

InterruptGuard::~InterruptGuard() {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], &g_former[i], nullptr);
  }
}

}  // namespace zentpost::addin_listener
