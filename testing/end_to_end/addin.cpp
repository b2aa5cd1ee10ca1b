#include "testing/end_to_end/addin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tools/addin_listener/test_client.h"

namespace zentpost::e2e {
namespace {

namespace al = addin_listener;

constexpr std::chrono::seconds kPatience{150};
// What the last connection sends: all that were made before it have then been accepted.
constexpr std::string_view kLastWord = "the test has ended";

}  // namespace

Addin::Addin(const Behaviour& behaviour) : behaviour_(behaviour) {
  al::ListenerOptions options;
  options.port = behaviour.port;
  options.count = 0;
  options.timeout = kPatience;
  options.misbehaviour = behaviour.misbehaviour;
  options.connection = behaviour.connection;
  std::string error;
  is_listening_ = listener_.Open(options, error);
  if (is_listening_) {
    thread_ = std::thread([this] { Serve(); });
  } else if (behaviour.port == 0) {
    ADD_FAILURE() << error;
  }
}

Addin::~Addin() {
  if (thread_.joinable()) {
    listener_.Stop();
    thread_.join();
  }
}

std::vector<al::Connection> Addin::Finish() {
  if (thread_.joinable()) {
    // Refused where the add-in has given up listening; it then ends by itself.
    if (al::TestClient last(port()); last.connected()) {
      EXPECT_TRUE(last.Send(kLastWord));
    }
    thread_.join();
  }
  std::sort(connections_.begin(), connections_.end(),
            [](const al::Connection& a, const al::Connection& b) { return a.number < b.number; });
  return std::move(connections_);
}

void Addin::Serve() {
  std::string error;
  const al::RunEnd end = listener_.Run(
      [this](al::Connection connection) {
        if (connection.end == ConnectionEnd::kProbe && behaviour_.at_probe) {
          behaviour_.at_probe();
        }
        if (connection.wire == kLastWord) {
          last_number_ = connection.number;
        } else {
          connections_.push_back(std::move(connection));
        }
        const bool cuts = behaviour_.misbehaviour == Misbehaviour::kSlow;
        if (last_number_ != 0 && (cuts || connections_.size() + 1 == last_number_)) {
          listener_.Stop();
        }
      },
      error);
  if (end == al::RunEnd::kFailed || end == al::RunEnd::kTimedOut) {
    ADD_FAILURE() << "the fake add-in gave up: " << error;
  }
}

std::uint16_t PortWithoutListener() {
  al::Listener listener;
  std::string error;
  EXPECT_TRUE(listener.Open({}, error)) << error;
  return listener.port();
}

}  // namespace zentpost::e2e
