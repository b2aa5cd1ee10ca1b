#include "tools/sandbox_mapi/posix/registry_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tools/sandbox_mapi/test_folder.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr char kKeys[] = "[HKEY_LOCAL_MACHINE\\A]\n\"Folder\"=\"/b\\\\c\"\n";

class RegistryFileTest : public testing::Test {
 protected:
  RegistryFileTest() { setenv("ZENTPOST_REGISTRY", Path().c_str(), 1); }
  ~RegistryFileTest() override { unsetenv("ZENTPOST_REGISTRY"); }

  [[nodiscard]] std::filesystem::path Path() const { return folder_.Path() / "r.reg"; }

  // Sets the block, and takes it away again; gives the file in between.
  std::string SetAndRemove() {
    std::string error;
    RegistryFile file;
    EXPECT_TRUE(file.Read(error)) << error;
    file.SetBlock(kKeys);
    EXPECT_TRUE(file.Write(error)) << error;
    std::string between = ReadBytes(Path());
    RegistryFile again;
    EXPECT_TRUE(again.Read(error)) << error;
    EXPECT_EQ(again.Folder(), "/b\\c");
    again.SetBlock(kKeys);
    again.RemoveBlock();
    EXPECT_FALSE(again.HasBlock());
    EXPECT_EQ(again.Folder(), std::nullopt);
    EXPECT_TRUE(again.Write(error)) << error;
    return between;
  }

  TestFolder folder_;
};

std::string Utf16Bytes(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char c : ascii) {
    bytes += c;
    bytes += '\0';
  }
  return bytes;
}

TEST_F(RegistryFileTest, FileIsAsItWasToTheByte) {
  const std::string header = "Windows Registry Editor Version 5.00";
  for (const std::string& text :
       {header + "\n", header, header + "\r\n\r\n[HKEY_LOCAL_MACHINE\\X]\r\n@=\"\xC3\xBC\"",
        "\xEF\xBB\xBF" + header + "\r\n", std::string("REGEDIT4\r\n; \xFC\x80\r\n"),
        Utf16Bytes(header + "\r\n\r\n[HKEY_LOCAL_MACHINE\\X]\r\n")}) {
    SCOPED_TRACE(text);
    WriteBytes(Path(), text);
    const std::string between = SetAndRemove();
    EXPECT_TRUE(between.starts_with(text));
    EXPECT_GT(between.size(), text.size());
    EXPECT_EQ(ReadBytes(Path()), text);
  }
}

TEST_F(RegistryFileTest, LinesBehindTheBlockStay) {
  WriteBytes(Path(), "Windows Registry Editor Version 5.00\n");
  std::string error;
  RegistryFile file;
  ASSERT_TRUE(file.Read(error));
  file.SetBlock(kKeys);
  ASSERT_TRUE(file.Write(error));
  WriteBytes(Path(), ReadBytes(Path()) + "[HKEY_LOCAL_MACHINE\\Later]\n");
  ASSERT_TRUE(file.Read(error));
  file.RemoveBlock();
  ASSERT_TRUE(file.Write(error));
  EXPECT_EQ(ReadBytes(Path()),
            "Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Later]\n");
}

TEST_F(RegistryFileTest, MissingFileIsMadeWithItsHeader) {
  const std::string between = SetAndRemove();
  EXPECT_TRUE(between.starts_with("Windows Registry Editor Version 5.00\n")) << between;
}

TEST_F(RegistryFileTest, WhatIsNoRegistryIsLeftAlone) {
  WriteBytes(Path(), "[HKEY_LOCAL_MACHINE\\X]\n");
  std::string error;
  RegistryFile file;
  EXPECT_FALSE(file.Read(error));
  EXPECT_NE(error.find("does not begin with"), std::string::npos) << error;
}

TEST_F(RegistryFileTest, AnsiFileRefusesWhatItCannotHold) {
  WriteBytes(Path(), "REGEDIT4\r\n");
  std::string error;
  RegistryFile file;
  ASSERT_TRUE(file.Read(error)) << error;
  file.SetBlock("\"Folder\"=\"\xE4\xB8\xAD\"\n");
  EXPECT_FALSE(file.Write(error));
  EXPECT_NE(error.find("cannot hold the characters"), std::string::npos) << error;
  EXPECT_EQ(ReadBytes(Path()), "REGEDIT4\r\n");
}

TEST_F(RegistryFileTest, FileThatCannotBeWrittenIsAFailure) {
  std::filesystem::create_directories(Path() / "x");
  std::string error;
  RegistryFile file;
  EXPECT_FALSE(file.Read(error)) << "a folder is no file";
  file.SetBlock(kKeys);
  EXPECT_FALSE(file.Write(error));
  EXPECT_NE(error.find("cannot write"), std::string::npos) << error;
}

TEST_F(RegistryFileTest, PlaceFollowsTheEnvironment) {
  EXPECT_EQ(RegistryFile::Location(), Path());
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
