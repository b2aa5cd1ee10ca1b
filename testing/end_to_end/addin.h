// A fake add-in that listens for one test, on a free port and on a thread
// of its own.
#pragma once

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tools/addin_listener/listener.h"

namespace zentpost::e2e {

using addin_listener::ConnectionEnd;
using addin_listener::Misbehaviour;

class Addin {
 public:
  struct Behaviour {
    Misbehaviour misbehaviour = Misbehaviour::kNone;
    unsigned connection = 0;  // as in addin_listener::ListenerOptions
    std::uint16_t port = 0;   // 0: a free one
    // Called on the add-in's thread when the probe has come and gone; nothing more is read from
    // other connections until it returns.
    std::function<void()> at_probe = {};
  };

  // Listens when the constructor returns. `is_listening` is false where the port is taken.
  Addin() : Addin(Behaviour{}) {}
  explicit Addin(const Behaviour& behaviour);
  ~Addin();
  Addin(const Addin&) = delete;
  Addin& operator=(const Addin&) = delete;

  [[nodiscard]] bool is_listening() const { return is_listening_; }
  [[nodiscard]] std::uint16_t port() const { return listener_.port(); }

  // Waits until every connection made so far has ended and gives them all, in the order in which
  // they were accepted; nothing listens any more. A connection that is read slowly is cut.
  std::vector<addin_listener::Connection> Finish();

 private:
  void Serve();

  Behaviour behaviour_;
  addin_listener::Listener listener_;
  bool is_listening_ = false;
  std::thread thread_;
  std::vector<addin_listener::Connection> connections_;
  unsigned last_number_ = 0;  // of the connection that Finish makes; 0: not seen yet
};

// A port on which nothing listens.
[[nodiscard]] std::uint16_t PortWithoutListener();

}  // namespace zentpost::e2e
