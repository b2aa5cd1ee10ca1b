// The registry for one test: the machine's own on Windows, put back afterwards, and a file of the
// test's own elsewhere.
#pragma once

#include <memory>
#include <optional>
#include <string>

namespace zentpost::fake_mapi::sandbox {

class TestRegistry {
 public:
  TestRegistry();
  ~TestRegistry();
  TestRegistry(const TestRegistry&) = delete;
  TestRegistry& operator=(const TestRegistry&) = delete;

  // Names the machine's default mail client; nothing: there is none.
  void SetDefaultClient(const std::optional<std::string>& name);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zentpost::fake_mapi::sandbox
