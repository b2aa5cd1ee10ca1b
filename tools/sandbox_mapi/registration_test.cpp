#include "tools/sandbox_mapi/registration.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/registry.h"
#include "testing/end_to_end/real_machine.h"
#include "tools/sandbox_mapi/program.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/sandbox_mapi/test_registry.h"
#include "tools/support/files.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;
using support::PathText;

constexpr char16_t kMailKey[] = u"Software\\Clients\\Mail";
constexpr char16_t kClientKey[] = u"Software\\Clients\\Mail\\Sandbox MAPI";

// A text as the tool reads it: into 260 bytes.
std::optional<std::string> Read(const char16_t* path, const char16_t* name) {
  platform::RegistryKey key;
  char16_t text[131] = {};
  std::uint32_t size = 260;
  std::uint32_t type = 0;
  if (platform::OpenKey(platform::Hive::kLocalMachine, path, platform::kKeyRead, key) !=
          platform::kSuccess ||
      platform::QueryValue(key, name, &type, text, size) != platform::kSuccess ||
      type != platform::kRegSz) {
    return std::nullopt;
  }
  return support::Utf8(text);
}

std::optional<std::string> DefaultClient() {
  return Read(kMailKey, nullptr);
}
std::optional<std::string> RegisteredLibrary() {
  return Read(kClientKey, support::Utf16(kLibraryValue).c_str());
}

class Registration : public testing::Test {
 protected:
  void SetUp() override {
    if (!e2e::MayChangeMachine("the default mail client")) {
      GTEST_SKIP() << "this machine's mail client is not to be changed";
    }
    registry_.emplace();
    support::WriteBytes(Library(), "library");
  }

  [[nodiscard]] fs::path Library() const { return folder_.Path() / "a.dll"; }

  int Run(const std::vector<std::string>& arguments, const fs::path& library = {}) {
    out_.clear();
    err_.clear();
    return RunProgram(
        arguments, library.empty() ? Library() : library,
        [this](std::string_view text) { out_ += text; },
        [this](std::string_view text) { err_ += text; });
  }
  void MustRegister() { EXPECT_EQ(Run({"register"}), 0) << err_; }
  // What it told.
  std::string MustUnregister() {
    EXPECT_EQ(Run({"unregister"}), 0) << err_;
    return out_;
  }

  support::TemporaryFolder folder_;
  std::optional<TestRegistry> registry_;
  std::string out_;
  std::string err_;
};

TEST_F(Registration, FormerClientComesBackHoweverOftenTheLibraryWasRegistered) {
  for (const std::optional<std::string>& former : {std::optional<std::string>("Former"), {}}) {
    registry_->SetDefaultClient(former);
    for (int registrations = 1; registrations <= 2; ++registrations) {
      for (int i = 0; i < registrations; ++i) {
        MustRegister();
      }
      EXPECT_EQ(DefaultClient(), kClientName);
      EXPECT_EQ(RegisteredLibrary(), PathText(Library()));
      EXPECT_EQ(RegisteredFolder(), PathText(folder_.Path() / kClientName));
      EXPECT_EQ(MustUnregister(), "the former mail client is back\n");
      EXPECT_EQ(DefaultClient(), former);
      EXPECT_EQ(RegisteredFolder(), std::nullopt);
      EXPECT_EQ(Read(kClientKey, nullptr), std::nullopt);
      EXPECT_EQ(MustUnregister(), "was not registered\n");
    }
  }
}

TEST_F(Registration, ClientThatBecameTheDefaultMeanwhileStays) {
  registry_->SetDefaultClient("Former");
  MustRegister();
  registry_->SetDefaultClient("Newcomer");
  EXPECT_EQ(MustUnregister(), "the former mail client is back\n");
  EXPECT_EQ(DefaultClient(), "Newcomer");
  EXPECT_EQ(RegisteredFolder(), std::nullopt);
}

TEST_F(Registration, PathThatTheToolCannotReadIsRefused) {
  registry_->SetDefaultClient("Former");
  const std::size_t base = support::Utf16(PathText(folder_.Path())).size() + 1;
  ASSERT_LT(base, kLongestLibraryPath);
  const fs::path longest = folder_.Path() / std::string(kLongestLibraryPath - base, 'x');
  const fs::path too_long = fs::path(longest) += "x";
  for (const fs::path& library : {longest, too_long}) {
    support::WriteBytes(library, "library");
  }
  EXPECT_EQ(Run({"register"}, longest), 0) << err_;
  EXPECT_EQ(RegisteredLibrary(), PathText(longest)) << "as long as it may be, it can be read";
  MustUnregister();
  EXPECT_EQ(Run({"register"}, too_long), 3);
  EXPECT_NE(err_.find("has 130 characters, and more than 129 are not read"), std::string::npos)
      << err_;
  EXPECT_EQ(DefaultClient(), "Former");
}

TEST_F(Registration, ProgramRegistersWithAFolderAndMakesIt) {
  const fs::path deep = folder_.Path() / "mail" / "deep";
  EXPECT_EQ(Run({"register", "--folder", PathText(deep)}), 0) << err_;
  EXPECT_TRUE(fs::is_directory(deep));
  EXPECT_EQ(RegisteredFolder(), PathText(deep));
  EXPECT_EQ(out_, "the default mail client is now " + PathText(Library()) + "\nmail goes to " +
                      PathText(deep) + "\n");
}

TEST_F(Registration, ProgramSaysWhatItCannotDo) {
  registry_->SetDefaultClient("Former");
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    std::string out = "";  // both as they begin
    std::string err = "";
  } cases[] = {
      {{"register", "--folder", PathText(Library() / "x")},
       3,
       "",
       "sandbox_mapi: cannot make the folder "},
      {{"register"}, 3, "", "sandbox_mapi: there is no library " + PathText(Library())},
      {{"--help"}, 0, "usage: sandbox_mapi register"},
      {{"--version"}, 0, "sandbox_mapi "},
      {{}, 2, "", "sandbox_mapi: this command line cannot be used; --help"},
      {{"sign"}, 2, "", "sandbox_mapi: this"},
      {{"register", "x"}, 2, "", "sandbox_mapi: this"},
      {{"register", "--folder"}, 2, "", "sandbox_mapi: this"},
      {{"register", "--folder", ""}, 2, "", "sandbox_mapi: this"},
      {{"unregister", "x"}, 2, "", "sandbox_mapi: this"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::PrintToString(test.arguments));
    EXPECT_EQ(Run(test.arguments), test.exit_code);
    EXPECT_TRUE(out_.starts_with(test.out) && out_.empty() == test.out.empty()) << out_;
    EXPECT_TRUE(err_.starts_with(test.err) && err_.empty() == test.err.empty()) << err_;
    EXPECT_EQ(DefaultClient(), "Former");
    fs::remove(Library());
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
