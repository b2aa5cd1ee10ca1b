// The sender's side of a connection, for tests.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace zentpost::addin_listener {

// Far more than anything here takes: only a test that is about to fail waits as long.
inline constexpr std::chrono::seconds kLongEnough{60};

enum class PeerEnd { kOrderly, kReset };

class TestClient {
 public:
  // Connects to `port` on 127.0.0.1.
  explicit TestClient(std::uint16_t port);
  TestClient(TestClient&&) noexcept;
  ~TestClient();

  [[nodiscard]] bool connected() const;

  // Sends all of `bytes`, waiting for the peer where it must. False when the connection is lost.
  [[nodiscard]] bool Send(std::string_view bytes);

  // Sends until the system takes no more for 200 ms, or `most` bytes are sent. Gives their number.
  std::size_t SendUntilStuck(std::size_t most);

  // Waits until the peer ends the connection and says how.
  PeerEnd AwaitEnd();

  void Close();
  void CloseWithReset();

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

// How a peer sees that its connection was reset. Not everywhere as kReset: some systems close in
// order before they reset.
[[nodiscard]] PeerEnd WhatAResetLooksLike();

}  // namespace zentpost::addin_listener
