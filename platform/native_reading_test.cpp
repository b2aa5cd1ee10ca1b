#include <gtest/gtest.h>

#include <filesystem>

#include "platform/reading.h"
#include "platform/sockets.h"

namespace platform::reading {
namespace {

std::u16string Completed(const std::u16string& path) {
  std::u16string complete;
  EXPECT_EQ(CompletePath(path, complete), kSuccess);
  return complete;
}

TEST(CompletePath, GivesARelativePathItsRoot) {
  const std::filesystem::path folder = std::filesystem::current_path();
  EXPECT_EQ(Completed(u"a b.pdf"), (folder / u"a b.pdf").u16string());
  const std::u16string root = folder.root_path().u16string();
  EXPECT_TRUE(Completed(u"x/../a.pdf").starts_with(root));
}

TEST(CompletePath, LeavesACompletePathAsItStands) {
  const std::u16string root = std::filesystem::current_path().root_path().u16string();
  for (const std::u16string& path : {root + u"a.pdf", root + u"x/../a.pdf", root + u"no/a.pdf",
                                     std::u16string(u"//server/share/a.pdf")}) {
    EXPECT_EQ(Completed(path), path);
  }
}

// A drive without a root is the drive's current folder; elsewhere these are names like any other.
TEST(CompletePath, ADriveAloneIsNoRoot) {
  EXPECT_NE(Completed(u"Z:a.pdf"), u"Z:a.pdf");
}

TEST(TryToConnect, TellsThatNobodyListens) {
  EXPECT_EQ(TryToConnect(1), kSocketRefused);
}

}  // namespace
}  // namespace platform::reading
