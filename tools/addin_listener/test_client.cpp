#include "tools/addin_listener/test_client.h"

#include <asio/io_context.hpp>
#include <asio/write.hpp>
#include <string>

namespace zentpost::addin_listener {
namespace {

using asio::ip::tcp;

asio::io_context& Context() {
  static asio::io_context context;
  return context;
}

bool EndsInReset(tcp::socket& socket) {
  std::error_code error;
  char byte;
  socket.non_blocking(false);
  while (socket.read_some(asio::buffer(&byte, 1), error) > 0) {
  }
  return error != asio::error::eof;
}

}  // namespace

TestClient::TestClient(std::uint16_t port) : socket_(Context()) {
  socket_.connect({asio::ip::address_v4::loopback(), port}, error_);
}

bool TestClient::Send(std::string_view bytes) {
  return asio::write(socket_, asio::buffer(bytes), error_) == bytes.size();
}

std::size_t TestClient::SendUntilStuck(std::size_t most) {
  const std::string block(64 << 10, 'x');
  std::size_t total = 0;
  socket_.non_blocking(true);
  for (bool stuck = false; !stuck && total < most;) {
    total += socket_.write_some(asio::buffer(block), error_);
    stuck = bool{error_};
    if (error_ == asio::error::would_block) {
      socket_.async_wait(tcp::socket::wait_write,
                         [&stuck](std::error_code failure) { stuck = bool{failure}; });
      Context().restart();
      Context().run_for(std::chrono::milliseconds(200));
    }
  }
  return total;
}

bool TestClient::AwaitReset() {
  return EndsInReset(socket_) || ResetMayLookOrderly();
}

void TestClient::Close() {
  socket_.close(error_);
}

void TestClient::CloseWithReset() {
  socket_.set_option(tcp::socket::linger(true, 0));
  Close();
}

bool ResetMayLookOrderly() {
  // Where both come one right after the other, either may be seen.
  for (int round = 0; round < 20; ++round) {
    tcp::acceptor acceptor(Context(), {asio::ip::address_v4::loopback(), 0});
    tcp::socket client(Context());
    client.connect(acceptor.local_endpoint());
    tcp::socket accepted = acceptor.accept();
    accepted.set_option(tcp::socket::linger(true, 0));
    accepted.close();
    if (!EndsInReset(client)) {
      return true;
    }
  }
  return false;
}

}  // namespace zentpost::addin_listener
