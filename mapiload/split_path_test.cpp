#include "mapiload/split_path.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "testing/text_printers.h"

namespace zentpost {
namespace {

using test::Readable;

// "status drive|directory" of a path, with fields that were not empty before.
template <std::size_t kDrive = 3, std::size_t kDirectory = 260>
std::string Split(const std::u16string& path) {
  std::array<char16_t, kDrive> drive;
  std::array<char16_t, kDirectory> directory;
  drive.fill(u'?');
  directory.fill(u'?');
  const int status = SplitPath(path.c_str(), drive, directory);
  return std::to_string(status) + " " + Readable(drive.data()) + "|" + Readable(directory.data());
}

TEST(SplitPath, TakesDriveAndDirectoryApart) {
  const struct {
    const char16_t* path;
    const char* fields;
  } kCases[] = {
      {u"C:\\Office\\root\\OUTLOOK.EXE", R"(0 C:|\Office\root\)"},
      {u"C:/Office\\root/OUTLOOK.EXE", R"(0 C:|/Office\root/)"},
      {u"C:\\OUTLOOK.EXE", R"(0 C:|\)"},
      {u"C:OUTLOOK.EXE", "0 C:|"},
      // There is a drive only where a colon is the second unit.
      {u"\\\\server\\share\\OUTLOOK.EXE", R"(0 |\\server\share\)"},
      {u"OUTLOOK.EXE", "0 |"},
      {u"AB:\\c", R"(0 |AB:\)"},
      {u":\\c", R"(0 |:\)"},
      {u"::", "0 ::|"},
      {u"C", "0 |"},
      {u"", "0 |"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Split(test.path), test.fields);
  }
}

TEST(SplitPath, LeavesAloneWhatStandsBehindTheTerminators) {
  std::array<char16_t, 3> drive{};
  std::array<char16_t, 6> directory{u'?', u'?', u'?', u'?', u'?', u'?'};
  EXPECT_EQ(SplitPath(u"C:\\a\\b", drive, directory), 0);
  EXPECT_EQ(std::u16string(directory.data(), 6), std::u16string(u"\\a\\\0??", 6));
}

TEST(SplitPath, FillsItsFieldsToTheLastAndEmptiesBothWhereOneIsTooSmall) {
  const std::string longest = "\\" + std::string(257, 'd') + "\\";
  EXPECT_EQ(Split(u"C:\\" + std::u16string(257, u'd') + u"\\x.exe"), "0 C:|" + longest);
  EXPECT_EQ(Split(u"C:\\" + std::u16string(258, u'd') + u"\\x.exe"), "34 |");
  EXPECT_EQ((Split<2, 4>(u"C:\\x")), std::to_string(kFieldTooSmall) + " |");
}

}  // namespace
}  // namespace zentpost
