#include "tools/sandbox_mapi/registration.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "fake_mapi/text.h"
#include "platform/registry.h"
#include "testing/end_to_end/real_machine.h"
#include "tools/sandbox_mapi/program.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/sandbox_mapi/test_folder.h"
#include "tools/sandbox_mapi/test_registry.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;

constexpr char16_t kMailKey[] = u"Software\\Clients\\Mail";
constexpr char16_t kClientKey[] = u"Software\\Clients\\Mail\\Sandbox MAPI";

// A text as the tool reads it: into 260 bytes.
std::optional<std::string> Read(const char16_t* path, const char16_t* name) {
  platform::RegistryKey key;
  if (platform::OpenKey(platform::Hive::kLocalMachine, path, platform::kKeyRead, key) !=
      platform::kSuccess) {
    return std::nullopt;
  }
  char16_t text[131] = {};
  std::uint32_t size = 260;
  std::uint32_t type = 0;
  if (platform::QueryValue(key, name, &type, text, size) != platform::kSuccess ||
      type != platform::kRegSz) {
    return std::nullopt;
  }
  return Utf8(std::u16string_view(text));
}

std::optional<std::string> DefaultClient() {
  return Read(kMailKey, nullptr);
}

class Registration : public testing::Test {
 protected:
  void SetUp() override {
    if (!e2e::MayChangeMachine("the default mail client")) {
      GTEST_SKIP() << "this machine's mail client is not to be changed";
    }
    registry_.emplace();
    WriteBytes(Library(), "library");
  }

  [[nodiscard]] fs::path Library() const { return folder_.Path() / "a.dll"; }
  [[nodiscard]] fs::path Mail() const { return folder_.Path() / "mail"; }

  void MustRegister() {
    std::string error;
    EXPECT_TRUE(Register(Library(), Mail(), error)) << error;
  }
  // Whether there was anything to undo.
  static bool MustUnregister() {
    bool was_registered = false;
    std::string error;
    EXPECT_TRUE(Unregister(was_registered, error)) << error;
    return was_registered;
  }
  int Run(const std::vector<std::string>& arguments) {
    out_.clear();
    err_.clear();
    return RunProgram(
        arguments, Library(), [this](std::string_view text) { out_ += text; },
        [this](std::string_view text) { err_ += text; });
  }

  TestFolder folder_;
  std::optional<TestRegistry> registry_;
  std::string out_;
  std::string err_;
};

TEST_F(Registration, LibraryIsFoundAsTheDefaultClients) {
  registry_->SetDefaultClient("Former");
  MustRegister();
  EXPECT_EQ(DefaultClient(), kClientName);
  EXPECT_EQ(Read(kClientKey, Utf16(kLibraryValue).c_str()), PathText(Library()));
  EXPECT_EQ(RegisteredFolder(), PathText(Mail()));
}

TEST_F(Registration, FormerClientComesBack) {
  registry_->SetDefaultClient("Former");
  MustRegister();
  EXPECT_TRUE(MustUnregister());
  EXPECT_EQ(DefaultClient(), "Former");
  EXPECT_EQ(RegisteredFolder(), std::nullopt);
  EXPECT_EQ(Read(kClientKey, nullptr), std::nullopt);
}

TEST_F(Registration, FormerClientComesBackAfterTwoRegistrations) {
  registry_->SetDefaultClient("Former");
  MustRegister();
  MustRegister();
  EXPECT_EQ(DefaultClient(), kClientName);
  EXPECT_TRUE(MustUnregister());
  EXPECT_EQ(DefaultClient(), "Former");
  EXPECT_FALSE(MustUnregister()) << "there is nothing left to undo";
  EXPECT_EQ(DefaultClient(), "Former");
}

TEST_F(Registration, WithoutAFormerClientThereIsNoneAgain) {
  registry_->SetDefaultClient(std::nullopt);
  MustRegister();
  MustRegister();
  EXPECT_EQ(DefaultClient(), kClientName);
  EXPECT_TRUE(MustUnregister());
  EXPECT_EQ(DefaultClient(), std::nullopt);
}

TEST_F(Registration, ClientThatBecameTheDefaultMeanwhileStays) {
  registry_->SetDefaultClient("Former");
  MustRegister();
  registry_->SetDefaultClient("Newcomer");
  EXPECT_TRUE(MustUnregister());
  EXPECT_EQ(DefaultClient(), "Newcomer");
  EXPECT_EQ(RegisteredFolder(), std::nullopt);
}

TEST_F(Registration, PathThatTheToolCannotReadIsRefused) {
  registry_->SetDefaultClient("Former");
  std::string error;
  const std::size_t base = Utf16(PathText(folder_.Path())).size() + 1;
  ASSERT_LT(base, kLongestLibraryPath);
  const fs::path longest = folder_.Path() / std::string(kLongestLibraryPath - base, 'x');
  WriteBytes(longest, "library");
  EXPECT_TRUE(Register(longest, Mail(), error)) << error;
  EXPECT_EQ(Read(kClientKey, Utf16(kLibraryValue).c_str()), PathText(longest))
      << "as long as it may be, it can be read";
  MustUnregister();
  const fs::path too_long = folder_.Path() / std::string(kLongestLibraryPath - base + 1, 'x');
  WriteBytes(too_long, "library");
  EXPECT_FALSE(Register(too_long, Mail(), error));
  EXPECT_NE(error.find("has 130 characters, and more than 129 are not read"), std::string::npos)
      << error;
  EXPECT_EQ(DefaultClient(), "Former");
}

TEST_F(Registration, MissingLibraryIsRefused) {
  std::string error;
  EXPECT_FALSE(Register(folder_.Path() / "missing.dll", Mail(), error));
  EXPECT_EQ(error, "there is no library " + PathText(folder_.Path() / "missing.dll"));
}

TEST_F(Registration, ProgramRegistersWithAFolderAndMakesIt) {
  registry_->SetDefaultClient("Former");
  EXPECT_EQ(Run({"register", "--folder", PathText(Mail() / "deep")}), 0) << err_;
  EXPECT_TRUE(fs::is_directory(Mail() / "deep"));
  EXPECT_EQ(RegisteredFolder(), PathText(Mail() / "deep"));
  EXPECT_NE(out_.find(PathText(Library())), std::string::npos) << out_;
  EXPECT_EQ(Run({"register"}), 0) << err_;
  EXPECT_EQ(RegisteredFolder(), PathText(folder_.Path() / kClientName)) << "beside the library";
  EXPECT_EQ(Run({"unregister"}), 0) << err_;
  EXPECT_EQ(out_, "the former mail client is back\n");
  EXPECT_EQ(Run({"unregister"}), 0) << err_;
  EXPECT_EQ(out_, "was not registered\n");
  EXPECT_EQ(DefaultClient(), "Former");
}

TEST_F(Registration, ProgramSaysWhatItCannotDo) {
  EXPECT_EQ(Run({"register", "--folder", PathText(Library() / "x")}), 3);
  EXPECT_TRUE(err_.starts_with("sandbox_mapi: cannot make the folder ")) << err_;
  fs::remove(Library());
  EXPECT_EQ(Run({"register"}), 3);
  EXPECT_TRUE(err_.starts_with("sandbox_mapi: there is no library ")) << err_;
  EXPECT_EQ(out_, "");
  EXPECT_EQ(DefaultClient() == kClientName, false);
}

TEST_F(Registration, ProgramKnowsItsCommandLine) {
  EXPECT_EQ(Run({"--help"}), 0);
  EXPECT_TRUE(out_.starts_with("usage: sandbox_mapi register")) << out_;
  EXPECT_EQ(Run({"--version"}), 0);
  EXPECT_TRUE(out_.starts_with("sandbox_mapi ")) << out_;
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"sign"},
                                                       {"register", "x"},
                                                       {"register", "--folder"},
                                                       {"register", "--folder", ""},
                                                       {"unregister", "x"}};
  for (const auto& arguments : wrong) {
    EXPECT_EQ(Run(arguments), 2);
    EXPECT_NE(err_.find("--help"), std::string::npos) << err_;
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
