#include "mapiload/split_path.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace zentpost {
namespace {

struct Fields {
  std::array<char16_t, 3> drive{u'?', u'?', u'?'};
  std::array<char16_t, 260> directory;
  int status = -1;

  explicit Fields(const std::u16string& path) {
    directory.fill(u'?');
    status = SplitPath(path.c_str(), drive, directory);
  }
  std::u16string Drive() const { return drive.data(); }
  std::u16string Directory() const { return directory.data(); }
};

void ExpectSplit(const std::u16string& path, const std::u16string& drive,
                 const std::u16string& directory) {
  const Fields fields(path);
  EXPECT_EQ(fields.status, 0);
  EXPECT_EQ(fields.Drive(), drive);
  EXPECT_EQ(fields.Directory(), directory);
}

TEST(SplitPath, TakesDriveAndDirectoryApart) {
  ExpectSplit(u"C:\\Office\\root\\OUTLOOK.EXE", u"C:", u"\\Office\\root\\");
  ExpectSplit(u"C:/Office\\root/OUTLOOK.EXE", u"C:", u"/Office\\root/");
  ExpectSplit(u"C:\\OUTLOOK.EXE", u"C:", u"\\");
  ExpectSplit(u"C:OUTLOOK.EXE", u"C:", u"");
}

TEST(SplitPath, HasADriveOnlyWhereAColonIsTheSecondUnit) {
  ExpectSplit(u"\\\\server\\share\\OUTLOOK.EXE", u"", u"\\\\server\\share\\");
  ExpectSplit(u"OUTLOOK.EXE", u"", u"");
  ExpectSplit(u"AB:\\c", u"", u"AB:\\");
  ExpectSplit(u":\\c", u"", u":\\");
  ExpectSplit(u"::", u"::", u"");
  ExpectSplit(u"C", u"", u"");
  ExpectSplit(u"", u"", u"");
}

TEST(SplitPath, LeavesAloneWhatStandsBehindTheTerminators) {
  const Fields fields(u"C:\\a\\b");
  EXPECT_EQ(std::u16string(fields.directory.data(), 6), std::u16string(u"\\a\\\0??", 6));
}

TEST(SplitPath, FillsADirectoryFieldToTheLast) {
  const std::u16string directory = u"\\" + std::u16string(257, u'd') + u"\\";
  ASSERT_EQ(directory.size(), 259u);
  ExpectSplit(u"C:" + directory + u"x.exe", u"C:", directory);
}

TEST(SplitPath, FailsAndEmptiesBothFieldsWhenTheDirectoryIsTooLong) {
  const Fields fields(u"C:\\" + std::u16string(258, u'd') + u"\\x.exe");
  EXPECT_EQ(fields.status, 34);
  EXPECT_EQ(fields.Drive(), u"");
  EXPECT_EQ(fields.Directory(), u"");
}

TEST(SplitPath, FailsAndEmptiesBothFieldsWhenTheDriveFieldIsTooSmall) {
  std::array<char16_t, 2> drive{u'?', u'?'};
  std::array<char16_t, 4> directory{u'?', u'?', u'?', u'?'};
  EXPECT_EQ(SplitPath(u"C:\\x", drive, directory), kFieldTooSmall);
  EXPECT_EQ(drive[0], u'\0');
  EXPECT_EQ(directory[0], u'\0');
}

}  // namespace
}  // namespace zentpost
