#include "tests/starter/starter_test.h"

namespace zentpost::e2e {
namespace {

using InstalledTool = StarterTest;

TEST_F(InstalledTool, ThereIsNone) {
  ExpectRefused(Start({}), "--tool is missing");
  ExpectRefused(Start({"--tool", ""}), "--tool is missing");
}

}  // namespace
}  // namespace zentpost::e2e
