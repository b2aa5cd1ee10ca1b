// The sender's side of a connection, for tests.
#pragma once

#include <asio/ip/tcp.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace zentpost::addin_listener {

// Far more than anything here takes: only a test that is about to fail waits as long.
inline constexpr std::chrono::seconds kLongEnough{60};

class TestClient {
 public:
  // Connects to `port` on 127.0.0.1.
  explicit TestClient(std::uint16_t port);

  [[nodiscard]] bool connected() const { return !error_; }

  // Sends all of `bytes`, waiting for the peer where it must. False when the connection is lost.
  [[nodiscard]] bool Send(std::string_view bytes);

  // Sends until the system takes no more for 200 ms, or `most` bytes are sent. Gives their number.
  std::size_t SendUntilStuck(std::size_t most);

  // Waits until the peer ends the connection. False: it did not reset it, as far as that can be
  // seen.
  [[nodiscard]] bool AwaitReset();

  void Close();
  void CloseWithReset();

 private:
  asio::ip::tcp::socket socket_;
  std::error_code error_;
};

// Whether a connection that is reset may look closed in order: some systems do that first.
[[nodiscard]] bool ResetMayLookOrderly();

}  // namespace zentpost::addin_listener
