// The registry for one test: the machine's own on Windows, put aside meanwhile, and a file of the
// test's own elsewhere.
#pragma once

#include <optional>
#include <string>

#include "tools/support/files.h"

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
  support::TemporaryFolder folder_;  // for the file
};

}  // namespace zentpost::fake_mapi::sandbox
