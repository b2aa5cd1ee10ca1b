#include <winsock2.h>
// In a block of its own: it uses the types of winsock2.h.
#include <windows.h>
#include <ws2tcpip.h>
// In a block of its own, behind what it needs.
#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/windows/wide.h"

namespace platform::reading {
namespace {

// The system's table of listeners; empty when it does not tell. It may grow between two calls.
std::vector<std::byte> TableOf(ULONG family) {
  std::vector<std::byte> table;
  ULONG size = 0;
  DWORD status = ERROR_INSUFFICIENT_BUFFER;
  for (int attempt = 0; attempt < 8 && status == ERROR_INSUFFICIENT_BUFFER; ++attempt) {
    table.resize(size);
    status =
        GetExtendedTcpTable(table.data(), &size, FALSE, family, TCP_TABLE_OWNER_PID_LISTENER, 0);
  }
  if (status != NO_ERROR) {
    table.clear();
  }
  return table;
}

// The rows of a table, which stand behind their count.
template <class Table>
const auto* Rows(const std::vector<std::byte>& table, DWORD& count) {
  const auto* const rows = reinterpret_cast<const Table*>(table.data());
  count = table.empty() ? 0 : rows->dwNumEntries;
  return rows->table;
}

std::u16string ProgramOf(DWORD process) {
  std::u16string path(32768, u'\0');
  DWORD length = static_cast<DWORD>(path.size());
  const HANDLE opened = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process);
  const bool is_known = opened != nullptr &&
                        QueryFullProcessImageNameW(opened, 0, ToSystem(path.data()), &length) != 0;
  if (opened != nullptr) {
    CloseHandle(opened);
  }
  path.resize(is_known ? length : 0);
  return path.substr(path.rfind(u'\\') + 1);  // npos + 1 is 0
}

void Found(Listener& listener, Listener::State state, DWORD process) {
  listener.state = state;
  listener.process = process;
  listener.program = ProgramOf(process);
}

void Find(std::uint16_t port, Listener& listener) {
  const std::vector<std::byte> addresses = TableOf(AF_INET);
  DWORD count = 0;
  const auto* const rows = Rows<MIB_TCPTABLE_OWNER_PID>(addresses, count);
  // Who listens on the very address gets the connection.
  for (const DWORD wanted : {DWORD{htonl(INADDR_LOOPBACK)}, DWORD{INADDR_ANY}}) {
    for (DWORD i = 0; i < count; ++i) {
      if (rows[i].dwLocalAddr == wanted &&
          ntohs(static_cast<u_short>(rows[i].dwLocalPort)) == port) {
        return Found(listener, Listener::State::kListens, rows[i].dwOwningPid);
      }
    }
  }
  const std::vector<std::byte> addresses_6 = TableOf(AF_INET6);
  const auto* const rows_6 = Rows<MIB_TCP6TABLE_OWNER_PID>(addresses_6, count);
  for (DWORD i = 0; i < count; ++i) {
    const UCHAR* const address = rows_6[i].ucLocalAddr;
    if (std::count(address, address + 16, 0) == 16 &&
        ntohs(static_cast<u_short>(rows_6[i].dwLocalPort)) == port) {
      return Found(listener, Listener::State::kPerhaps, rows_6[i].dwOwningPid);
    }
  }
  if (addresses.empty()) {
    listener.state = Listener::State::kUnknown;
  }
}

Status ConnectTo(std::uint16_t port) {
  const SOCKET connection = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  Status status = kSuccess;
  if (connection == INVALID_SOCKET ||
      connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    status = static_cast<Status>(WSAGetLastError());
  }
  if (connection != INVALID_SOCKET) {
    closesocket(connection);
  }
  return status;
}

}  // namespace

Status TryToConnect(std::uint16_t port) {
  WSADATA data = {};
  if (const int error = WSAStartup(MAKEWORD(2, 2), &data); error != 0) {
    return static_cast<Status>(error);
  }
  const Status status = ConnectTo(port);
  WSACleanup();
  return status;
}

Status FindListener(std::uint16_t port, Listener& listener) {
  listener = Listener();
  return UnlessMemoryRunsOut([&] {
    Find(port, listener);
    return kSuccess;
  });
}

}  // namespace platform::reading
