#include "tools/sandbox_mapi/posix/registry_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr char kKeys[] = "[HKEY_LOCAL_MACHINE\\A]\n\"Folder\"=\"/b\\\\c\"\n";
constexpr char kHeader[] = "Windows Registry Editor Version 5.00";

class RegistryFileTest : public testing::Test {
 protected:
  RegistryFileTest() { setenv("ZENTPOST_REGISTRY", path_.c_str(), 1); }
  ~RegistryFileTest() override { unsetenv("ZENTPOST_REGISTRY"); }

  // Reads the file, changes it and writes it; gives what is there then, or why that failed.
  template <class Change>
  std::string Changed(const Change& change) {
    std::string error;
    RegistryFile file;
    if (!file.Read(error)) {
      return error;
    }
    change(file);
    return file.Write(error) ? support::ReadBytes(path_).value_or("none") : error;
  }
  std::string Set() {
    return Changed([](RegistryFile& file) { file.SetBlock(kKeys); });
  }
  std::string Removed() {
    return Changed([](RegistryFile& file) {
      EXPECT_EQ(file.Folder(), "/b\\c");
      file.RemoveBlock();
      EXPECT_FALSE(file.HasBlock());
      EXPECT_EQ(file.Folder(), std::nullopt);
    });
  }

  support::TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.Path() / "r.reg";
};

std::string InUtf16(const std::string& ascii) {
  std::string bytes = "\xFF\xFE";
  for (const char c : ascii) {
    bytes.append({c, '\0'});
  }
  return bytes;
}

TEST_F(RegistryFileTest, FileIsAsItWasToTheByte) {
  const std::string header = kHeader;
  for (const std::string& text :
       {header + "\n", header, header + "\r\n\r\n[HKEY_LOCAL_MACHINE\\X]\r\n@=\"\xC3\xBC\"",
        "\xEF\xBB\xBF" + header + "\r\n", std::string("REGEDIT4\r\n; \xFC\x80\r\n"),
        InUtf16(header + "\r\n\r\n[HKEY_LOCAL_MACHINE\\X]\r\n")}) {
    SCOPED_TRACE(text);
    support::WriteBytes(path_, text);
    const std::string between = Set();
    EXPECT_TRUE(between.starts_with(text));
    EXPECT_GT(between.size(), text.size());
    Set();
    EXPECT_EQ(Removed(), text);
  }
}

TEST_F(RegistryFileTest, LinesBehindTheBlockStay) {
  const std::string later = "[HKEY_LOCAL_MACHINE\\Later]\n";
  // A file that is missing is made.
  const std::string set = Set();
  EXPECT_TRUE(set.starts_with(std::string(kHeader) + "\n")) << set;
  support::WriteBytes(path_, set + later);
  EXPECT_EQ(Removed(), std::string(kHeader) + "\n" + later);
}

TEST_F(RegistryFileTest, WhatCannotBeChangedIsLeftAlone) {
  support::WriteBytes(path_, "[HKEY_LOCAL_MACHINE\\X]\n");
  EXPECT_NE(Set().find("does not begin with"), std::string::npos);
  support::WriteBytes(path_, "REGEDIT4\r\n");
  EXPECT_EQ(Changed([](RegistryFile& file) { file.SetBlock("\"Folder\"=\"\xE4\xB8\xAD\"\n"); }),
            "the registry's file cannot hold the characters of these paths: it is no Unicode file");
  EXPECT_EQ(support::ReadBytes(path_), "REGEDIT4\r\n");
  std::filesystem::remove(path_);
  std::filesystem::create_directories(path_ / "x");
  EXPECT_EQ(Set(), "cannot read " + path_.string());
  std::string error;
  EXPECT_FALSE(RegistryFile().Write(error));
  EXPECT_EQ(error, "cannot write " + path_.string());
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
