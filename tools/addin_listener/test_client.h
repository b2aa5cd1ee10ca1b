// The sender's side of a connection, for this folder's tests.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/addin_listener/sockets.h"

namespace zentpost::addin_listener {

// Far more than anything here takes: only a test that is about to fail waits as long.
inline constexpr std::chrono::seconds kLongEnough{60};

// How a peer sees that its connection was reset. Not everywhere as kBroken: some systems close in
// order before they reset.
inline ReceiveResult WhatAResetLooksLike();

class TestClient {
 public:
  // Connects; a failure to do so fails the test.
  explicit TestClient(std::uint16_t port) {
    std::string error;
    EXPECT_TRUE(ConnectToLoopback(port, socket_, error)) << error;
  }

  // Sends all of `bytes`, waiting for the peer where it must. False when the connection is lost.
  [[nodiscard]] bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      std::size_t sent = 0;
      const SendResult result = SendSome(socket_, bytes.data(), bytes.size(), sent);
      if (result == SendResult::kWouldWait) {
        if (WaitToSend(socket_, kLongEnough) != SendResult::kSent) {
          return false;
        }
      } else if (result == SendResult::kBroken) {
        return false;
      }
      bytes.remove_prefix(sent);
    }
    return true;
  }

  // Sends until the system takes no more for 200 ms, or `most` bytes are sent. Gives their number.
  std::size_t SendUntilStuck(std::size_t most) {
    const std::string block(64 << 10, 'x');
    std::size_t total = 0;
    while (total < most) {
      std::size_t sent = 0;
      const SendResult result = SendSome(socket_, block.data(), block.size(), sent);
      total += sent;
      if (result == SendResult::kBroken ||
          (result == SendResult::kWouldWait &&
           WaitToSend(socket_, std::chrono::milliseconds(200)) != SendResult::kSent)) {
        break;
      }
    }
    return total;
  }

  // Waits until the peer ends the connection and says how.
  ReceiveResult AwaitEnd() {
    const auto deadline = std::chrono::steady_clock::now() + kLongEnough;
    while (std::chrono::steady_clock::now() < deadline) {
      char byte;
      std::size_t received = 0;
      const ReceiveResult result = Receive(socket_, &byte, 1, received);
      if (result == ReceiveResult::kEnd || result == ReceiveResult::kBroken) {
        return result;
      }
      std::vector<WaitEntry> entries = {{socket_.Get()}};
      std::string error;
      EXPECT_TRUE(Wait(entries, kLongEnough, error)) << error;
    }
    return ReceiveResult::kNothingYet;
  }

  void Close() { socket_.Reset(); }
  void CloseWithReset() { Reset(std::move(socket_)); }

 private:
  SocketLibrary library_;
  Socket socket_;
};

inline ReceiveResult WhatAResetLooksLike() {
  const SocketLibrary library;
  std::string error;
  std::uint16_t port = 0;
  Socket listener;
  EXPECT_TRUE(ListenOnLoopback({}, listener, port, error)) << error;
  TestClient client(port);
  Socket accepted;
  while (Accept(listener, accepted, error) == AcceptResult::kNoneWaits) {
    std::vector<WaitEntry> entries = {{listener.Get()}};
    EXPECT_TRUE(Wait(entries, kLongEnough, error)) << error;
  }
  Reset(std::move(accepted));
  return client.AwaitEnd();
}

}  // namespace zentpost::addin_listener
