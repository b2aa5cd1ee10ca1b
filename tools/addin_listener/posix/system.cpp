#include "tools/addin_listener/system.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>

#include "tools/addin_listener/listener.h"

namespace zentpost::addin_listener {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
std::atomic<Listener*> g_listener;

void StopListener(int) {
  const int saved = errno;
  g_listener.load()->Stop();
  errno = saved;
}

// A program started to go on after its terminal is gone has these signals ignored, and keeps that.
bool IsIgnored(int signal) {
  struct sigaction action {};
  sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

void Handle(void (*handler)(int)) {
  for (const int signal : kSignals) {
    if (!IsIgnored(signal)) {
      std::signal(signal, handler);
    }
  }
}

}  // namespace

std::string CallError(const std::system_error& error) {
  return std::string(error.what()) + " (" + std::to_string(error.code().value()) + ")";
}

std::FILE* CreateNewFile(const std::filesystem::path& path) {
  return std::fopen(path.c_str(), "wbxe");
}

void MakeInputBinary() {}

void KeepFromChildren(std::uintptr_t socket) {
  fcntl(static_cast<int>(socket), F_SETFD, FD_CLOEXEC);
}

std::optional<bool> ClientIsConnected(std::uint16_t port, std::uint16_t client_port) {
  std::ifstream table("/proc/net/tcp");
  if (!table) {
    return std::nullopt;
  }
  // "number: own-address:port peer-address:port state ...", in hexadecimal.
  const unsigned kEstablished = 1;
  for (std::string line; std::getline(table, line);) {
    unsigned own_port = 0;
    unsigned peer_address = 0;
    unsigned peer_port = 0;
    unsigned state = 0;
    if (std::sscanf(line.c_str(), " %*u: %*8x:%4x %8x:%4x %2x", &own_port, &peer_address,
                    &peer_port, &state) == 4 &&
        peer_address == htonl(INADDR_LOOPBACK) && peer_port == port && state == kEstablished &&
        (client_port == 0 || own_port == client_port)) {
      return true;
    }
  }
  return false;
}

InterruptGuard::InterruptGuard(Listener& listener) {
  g_listener = &listener;
  Handle(StopListener);
}

InterruptGuard::~InterruptGuard() {
  Handle(SIG_DFL);
}

}  // namespace zentpost::addin_listener
