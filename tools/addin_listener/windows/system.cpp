#include "tools/addin_listener/system.h"

#include <winsock2.h>
// After winsock2.h, whose types they use.
#include <fcntl.h>
#include <io.h>
#include <iphlpapi.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "tools/addin_listener/listener.h"
#include "tools/support/text.h"

namespace zentpost::addin_listener {
namespace {

// The console calls its handler on a thread of its own.
std::mutex g_mutex;
Listener* g_listener = nullptr;

BOOL WINAPI HandleConsoleEvent(DWORD event) {
  {
    const std::lock_guard lock(g_mutex);
    if (g_listener == nullptr) {
      return FALSE;
    }
    g_listener->Stop();
  }
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
    // The window is being closed: the process would end when this returns.
    Sleep(INFINITE);
  }
  return TRUE;
}

}  // namespace

std::string CallError(const std::system_error& error) {
  const std::string_view what = error.what();
  const auto code = static_cast<DWORD>(error.code().value());
  std::string text = error.code().message();
  if (error.code().category() != std::generic_category()) {
    wchar_t wide[512];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                       wide, static_cast<DWORD>(std::size(wide)), nullptr);
    text = length == 0 ? "system error" : support::Utf8(support::FromWide(wide));
    text.resize(text.find_last_not_of("\r\n") + 1);
  }
  return std::string(what.substr(0, what.find(':'))) + ": " + text + " (" + std::to_string(code) +
         ")";
}

std::FILE* CreateNewFile(const std::filesystem::path& path) {
  const int file = _wsopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                           _SH_DENYRW, _S_IREAD | _S_IWRITE);
  return file < 0 ? nullptr : _fdopen(file, "wb");
}

void MakeInputBinary() {
  _setmode(_fileno(stdin), _O_BINARY);
}

void KeepFromChildren(std::uintptr_t socket) {
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
}

std::optional<bool> ClientIsConnected(std::uint16_t port, std::uint16_t client_port) {
  std::vector<std::byte> buffer;
  ULONG length = 0;
  ULONG status = ERROR_INSUFFICIENT_BUFFER;
  // The table may grow between two calls.
  for (int attempt = 0; status == ERROR_INSUFFICIENT_BUFFER && attempt < 5; ++attempt) {
    buffer.resize(length);
    status = GetTcpTable(reinterpret_cast<MIB_TCPTABLE*>(buffer.data()), &length, FALSE);
  }
  if (status != NO_ERROR) {
    return std::nullopt;
  }
  const auto* table = reinterpret_cast<const MIB_TCPTABLE*>(buffer.data());
  return std::any_of(table->table, table->table + table->dwNumEntries, [&](const MIB_TCPROW& row) {
    // Ports stand in the lower half, in network order; the upper half may hold anything.
    return row.dwRemoteAddr == htonl(INADDR_LOOPBACK) &&
           static_cast<u_short>(row.dwRemotePort) == htons(port) &&
           row.dwState == MIB_TCP_STATE_ESTAB &&
           (client_port == 0 || static_cast<u_short>(row.dwLocalPort) == htons(client_port));
  });
}

InterruptGuard::InterruptGuard(Listener& listener) {
  const std::lock_guard lock(g_mutex);
  g_listener = &listener;
  SetConsoleCtrlHandler(HandleConsoleEvent, TRUE);
}

InterruptGuard::~InterruptGuard() {
  const std::lock_guard lock(g_mutex);
  SetConsoleCtrlHandler(HandleConsoleEvent, FALSE);
  g_listener = nullptr;
}

}  // namespace zentpost::addin_listener
