#include "tools/addin_listener/system.h"

#include <gtest/gtest.h>

namespace zentpost::addin_listener {
namespace {

TEST(System, ErrorsNameTheCallTheReasonAndTheNumber) {
  // The reason is in the user's language.
  const std::string text = CallError({5, std::system_category(), "rename"});
  EXPECT_TRUE(text.starts_with("rename: ")) << text;
  EXPECT_TRUE(text.ends_with(" (5)")) << text;
  EXPECT_GT(text.size(), std::string("rename:  (5)").size());
  EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
}

TEST(System, NumberWithoutATextIsStillNamed) {
  EXPECT_EQ(CallError({0x2FFFFFFF, std::system_category(), "x"}), "x: system error (805306367)");
}

}  // namespace
}  // namespace zentpost::addin_listener
