#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/memory_failure.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/errno_status.h"
#include "platform/posix/utf8.h"
#include "platform/reading.h"

namespace platform::reading {
namespace {

namespace fs = std::filesystem;

// The system writes an address as the hexadecimal digits of its words, and says that somebody
// listens by this state.
constexpr std::string_view kLoopback = "0100007F";
constexpr std::string_view kAny = "00000000";
constexpr std::string_view kAny6 = "00000000000000000000000000000000";
constexpr unsigned kListening = 0x0A;

struct Row {
  std::string address;
  unsigned port = 0;
  unsigned state = 0;
  unsigned long inode = 0;
};

bool ReadRow(const std::string& line, Row& row) {
  char address[33] = {};
  const int fields = std::sscanf(
      line.c_str(), "%*u: %32[0-9A-F]:%x %*[0-9A-F]:%*x %x %*x:%*x %*x:%*x %*x %*u %*u %lu",
      address, &row.port, &row.state, &row.inode);
  row.address = address;
  return fields == 4;
}

// Finds who has the socket open. Of other users' processes it is not told.
void FindProcess(unsigned long inode, Listener& listener) {
  const std::string socket = "socket:[" + std::to_string(inode) + "]";
  std::error_code error;
  const fs::directory_iterator end;
  for (fs::directory_iterator process("/proc", error); !error && process != end;
       process.increment(error)) {
    const std::string name = process->path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) {
      continue;
    }
    for (fs::directory_iterator file(process->path() / "fd", error); !error && file != end;
         file.increment(error)) {
      if (fs::read_symlink(file->path(), error) == socket) {
        listener.process = static_cast<std::uint32_t>(std::strtoul(name.c_str(), nullptr, 10));
        std::string program;
        std::getline(std::ifstream(process->path() / "comm"), program);
        listener.program = FromUtf8(program);
        return;
      }
      error.clear();  // it has closed the file meanwhile
    }
    error.clear();
  }
}

// Looks for a listener with an address for which `state_of` gives a state. False: it is not told.
template <class StateOf>
bool FindIn(const char* table, std::uint16_t port, Listener& listener, StateOf state_of) {
  std::ifstream rows(table);
  std::string line;
  if (!std::getline(rows, line)) {  // the headings
    return false;
  }
  Row row;
  while (listener.state == Listener::State::kNobody && std::getline(rows, line)) {
    if (ReadRow(line, row) && row.state == kListening && row.port == port) {
      listener.state = state_of(row.address);
      if (listener.state != Listener::State::kNobody) {
        FindProcess(row.inode, listener);
      }
    }
  }
  return true;
}

void Find(std::uint16_t port, Listener& listener) {
  const bool is_told = FindIn("/proc/net/tcp", port, listener, [](std::string_view address) {
    return address == kLoopback || address == kAny ? Listener::State::kListens
                                                   : Listener::State::kNobody;
  });
  if (listener.state == Listener::State::kNobody) {
    FindIn("/proc/net/tcp6", port, listener, [](std::string_view address) {
      return address == kAny6 ? Listener::State::kPerhaps : Listener::State::kNobody;
    });
  }
  if (!is_told && listener.state == Listener::State::kNobody) {
    listener.state = Listener::State::kUnknown;
  }
}

}  // namespace

Status TryToConnect(std::uint16_t port) {
  const Descriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return connection && connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address),
                               sizeof(address)) == 0
             ? kSuccess
             : StatusFromSocketErrno(errno);
}

Status FindListener(std::uint16_t port, Listener& listener) {
  listener = Listener();
  return UnlessMemoryRunsOut([&] {
    Find(port, listener);
    return kSuccess;
  });
}

}  // namespace platform::reading
