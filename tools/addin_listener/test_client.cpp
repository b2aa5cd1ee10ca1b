#include "tools/addin_listener/test_client.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <string>
#include <system_error>

namespace zentpost::addin_listener {
namespace {

using asio::ip::tcp;

tcp::endpoint Loopback(std::uint16_t port) {
  return {asio::ip::address_v4::loopback(), port};
}

}  // namespace

struct TestClient::Connection {
  asio::io_context io;
  tcp::socket socket{io};
  std::error_code error;

  bool EndsInReset() {
    char byte;
    socket.non_blocking(false);
    while (socket.read_some(asio::buffer(&byte, 1), error) > 0) {
    }
    return error != asio::error::eof;
  }
};

TestClient::TestClient(std::uint16_t port) : connection_(std::make_unique<Connection>()) {
  connection_->socket.connect(Loopback(port), connection_->error);
}
TestClient::TestClient(TestClient&&) noexcept = default;
TestClient::~TestClient() = default;

bool TestClient::connected() const {
  return !connection_->error;
}

bool TestClient::Send(std::string_view bytes) {
  return asio::write(connection_->socket, asio::buffer(bytes), connection_->error) == bytes.size();
}

std::size_t TestClient::SendUntilStuck(std::size_t most) {
  auto& [io, socket, error] = *connection_;
  const std::string block(64 << 10, 'x');
  std::size_t total = 0;
  socket.non_blocking(true);
  for (bool stuck = false; !stuck && total < most;) {
    total += socket.write_some(asio::buffer(block), error);
    if (error) {
      stuck = true;
      if (error == asio::error::would_block) {
        socket.async_wait(tcp::socket::wait_write,
                          [&stuck](std::error_code failure) { stuck = bool{failure}; });
        io.restart();
        io.run_for(std::chrono::milliseconds(200));
      }
    }
  }
  return total;
}

bool TestClient::AwaitReset() {
  return connection_->EndsInReset() || ResetMayLookOrderly();
}

void TestClient::Close() {
  connection_->socket.close(connection_->error);
}

void TestClient::CloseWithReset() {
  connection_->socket.set_option(tcp::socket::linger(true, 0));
  Close();
}

bool ResetMayLookOrderly() {
  // Where both come one right after the other, either may be seen.
  for (int round = 0; round < 20; ++round) {
    asio::io_context io;
    tcp::acceptor acceptor(io, Loopback(0));
    TestClient::Connection client;
    client.socket.connect(acceptor.local_endpoint());
    tcp::socket accepted = acceptor.accept();
    accepted.set_option(tcp::socket::linger(true, 0));
    accepted.close();
    if (!client.EndsInReset()) {
      return true;
    }
  }
  return false;
}

}  // namespace zentpost::addin_listener
