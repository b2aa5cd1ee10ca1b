#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/reading.h"

namespace platform::reading {
namespace {

namespace fs = std::filesystem;

class ReadingFiles : public testing::Test {
 protected:
  ReadingFiles() { fs::create_directory(folder_); }
  ~ReadingFiles() override { fs::remove_all(folder_); }

  const fs::path folder_ = fs::absolute("reading_files_test");
  const fs::path file_ = folder_ / "file";
};

// Who opens a pipe lets the one go on that writes into it.
TEST_F(ReadingFiles, APipeIsNotOpened) {
  ASSERT_EQ(mkfifo(file_.c_str(), 0600), 0);
  EXPECT_EQ(LookBeforeOpening(file_.u16string()), kAccessDenied);
  EXPECT_EQ(LookBeforeOpening(u"/dev/null"), kAccessDenied);
  EXPECT_EQ(LookBeforeOpening(folder_.u16string()), kSuccess);
  EXPECT_EQ(LookBeforeOpening(u"/nowhere/a"), kSuccess);
}

TEST_F(ReadingFiles, WhatAnotherUserOwnsIsNotRemovedInAFolderLikeTmp) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "this user cannot become another one";
  }
  std::ofstream(file_).put('x');
  ASSERT_EQ(chmod(folder_.c_str(), 01777), 0);
  EXPECT_EQ(WouldChange(file_.u16string(), Change::kRemove), kSuccess);
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(seteuid(kNobody), 0);
  const Status status = WouldChange(file_.u16string(), Change::kRemove);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(status, kAccessDenied);
}

}  // namespace
}  // namespace platform::reading
