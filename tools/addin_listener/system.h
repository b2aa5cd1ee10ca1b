// What this program needs of the operating system beyond the C++ library and Asio.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace zentpost::addin_listener {

class Listener;

// "call: the system's text (number)", in UTF-8, for an error that was made with the call's name.
[[nodiscard]] std::string CallError(const std::system_error& error);

// Creates a file for bytes. Null: `errno` says why; EEXIST where that name was there already.
[[nodiscard]] std::FILE* CreateNewFile(const std::filesystem::path& path);

// From now on the standard input gives its bytes as they are.
void MakeInputBinary();

// No child process inherits `socket`: a port stays open for as long as anybody holds its socket.
void KeepFromChildren(std::uintptr_t socket);

// Whether a client of this machine holds a connection to `port` on 127.0.0.1 that it has neither
// closed nor lost; `client_port`, where not 0, is that client's. Asks the system's table of
// connections, which knows the clients' ends: it tells of connections that were not accepted yet,
// and of an end that stands behind bytes that were not read or sent. Nothing when the table cannot
// be had.
[[nodiscard]] std::optional<bool> ClientIsConnected(std::uint16_t port, std::uint16_t client_port);

// While an object lives, the user's or the system's wish that the program end (an interrupt from
// the keyboard, a termination signal, a closed console window) stops `listener` instead. Where the
// system would end the process at once, that waits until the program has ended by itself. One
// object at a time.
class InterruptGuard {
 public:
  explicit InterruptGuard(Listener& listener);
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;
};

}  // namespace zentpost::addin_listener
