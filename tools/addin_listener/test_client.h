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

class TestClient {
 public:
  struct Connection;

  // Connects to `port` on 127.0.0.1.
  explicit TestClient(std::uint16_t port);
  TestClient(TestClient&&) noexcept;
  ~TestClient();

  [[nodiscard]] bool connected() const;

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
  std::unique_ptr<Connection> connection_;
};

// Whether a connection that is reset may look closed in order: some systems do that first.
[[nodiscard]] bool ResetMayLookOrderly();

}  // namespace zentpost::addin_listener
