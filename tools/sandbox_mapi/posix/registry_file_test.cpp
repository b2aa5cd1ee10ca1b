// The text file that stands for the registry: it must be as it was to the byte.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tools/sandbox_mapi/registration.h"
#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

const std::string kHeader = "Windows Registry Editor Version 5.00";

class RegistryFileTest : public testing::Test {
 protected:
  RegistryFileTest() { setenv("ZENTPOST_REGISTRY", path_.c_str(), 1); }
  ~RegistryFileTest() override { unsetenv("ZENTPOST_REGISTRY"); }

  // Registers, and gives what is in the file then, or why that failed.
  std::string Registered(const std::string& folder = "/b\\c") const {
    try {
      Register("/a.so", folder);
      return support::ReadBytes(path_).value_or("none");
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }

  support::TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.Path() / "r.reg";
};

TEST_F(RegistryFileTest, FileIsAsItWasToTheByte) {
  for (const std::string& text :
       {kHeader + "\n", kHeader, kHeader + "\r\n\r\n[HKEY_LOCAL_MACHINE\\X]\r\n@=\"\xC3\xBC\"",
        "\xEF\xBB\xBF" + kHeader + "\r\n"}) {
    SCOPED_TRACE(text);
    support::WriteBytes(path_, text);
    const std::string between = Registered();
    EXPECT_TRUE(between.starts_with(text));
    EXPECT_GT(between.size(), text.size());
    EXPECT_EQ(Registered(), between) << "once and for all";
    EXPECT_EQ(RegisteredFolder(), "/b\\c");
    EXPECT_TRUE(Unregister());
    EXPECT_EQ(support::ReadBytes(path_), text);
    EXPECT_EQ(RegisteredFolder(), std::nullopt);
    EXPECT_FALSE(Unregister());
  }
}

TEST_F(RegistryFileTest, LinesBehindTheBlockStay) {
  const std::string later = "[HKEY_LOCAL_MACHINE\\Later]\n";
  const std::string registered = Registered();
  EXPECT_TRUE(registered.starts_with(kHeader + "\n")) << "a file that is missing is made";
  support::WriteBytes(path_, registered + later);
  EXPECT_TRUE(Unregister());
  EXPECT_EQ(support::ReadBytes(path_), kHeader + "\n" + later);
}

TEST_F(RegistryFileTest, WhatCannotBeChangedIsLeftAlone) {
  support::WriteBytes(path_, "REGEDIT4\r\n");
  const std::string advice = ": name another one in ZENTPOST_REGISTRY\n  " + path_.string();
  EXPECT_EQ(Registered(), "the registry's file does not begin with\n\"" + kHeader + '"' + advice);
  EXPECT_EQ(support::ReadBytes(path_), "REGEDIT4\r\n");
  support::WriteBytes(path_, kHeader);
  std::filesystem::create_directories(path_.string() + ".new");
  EXPECT_EQ(Registered(), "the registry's file cannot be written" + advice);
  std::filesystem::remove(path_);
  std::filesystem::create_directories(path_);
  EXPECT_EQ(Registered(), "the registry's file cannot be read" + advice);
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
