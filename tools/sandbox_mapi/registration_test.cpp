#include "tools/sandbox_mapi/registration.h"

#include <gtest/gtest.h>

#include <algorithm>
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
      EXPECT_EQ(MustUnregister(), "nothing to undo: sandbox_mapi was not registered\n");
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
  EXPECT_EQ(
      err_,
      "sandbox_mapi: the library's path has 130 characters, and more than 129\nare not read when "
      "a mail client is looked for: put it into a folder with a\nshorter path\n  " +
          PathText(too_long) + '\n');
  EXPECT_EQ(DefaultClient(), "Former");
}

TEST_F(Registration, ProgramRegistersWithAFolderAndMakesIt) {
  const fs::path deep = folder_.Path() / "mail" / "deep";
  EXPECT_EQ(Run({"register", "--folder", PathText(deep)}), 0) << err_;
  EXPECT_TRUE(fs::is_directory(deep));
  EXPECT_EQ(RegisteredFolder(), PathText(deep));
  EXPECT_EQ(out_, "this machine's default mail client is now\n  " + PathText(Library()) +
                      "\nmail becomes files in\n  " + PathText(deep) + "\nthat is written in\n  " +
                      RegistrationPlace() + "\nto undo it: sandbox_mapi unregister\n");
  EXPECT_TRUE(fs::is_empty(deep)) << "nothing is left of the trial";
  MustUnregister();
}

TEST_F(Registration, OrdersThatCannotBeUsedAreToldBeforeAnythingIsChanged) {
  registry_->SetDefaultClient("Former");
  const fs::path mail = folder_.Path() / "mail";
  fs::create_directory(mail);
  support::WriteBytes(mail / "sandbox.json", "{\n\"Outbox\": 1\n}");
  EXPECT_EQ(Run({"register", "--folder", PathText(mail)}), 3);
  EXPECT_EQ(err_,
            "sandbox_mapi: the orders cannot be used, and no mail would be sent: correct them or\n"
            "take them away\n  " +
                PathText(mail / "sandbox.json") +
                ": line 2: \"Outbox\" is neither true nor false\n");
  EXPECT_EQ(DefaultClient(), "Former");
  support::WriteBytes(mail / "sandbox.json", "{\n\"Outbox\": false\n}");
  EXPECT_EQ(Run({"register", "--folder", PathText(mail)}), 0) << err_;
  MustUnregister();
}

TEST(RegistryProblem, TellsWhoMayAndWhatToDo) {
  EXPECT_EQ(
      RegistryProblem("RegSetKeyValue", 5),
      "only an administrator may change the machine's mail client: start the\ncommand prompt as "
      "an administrator and try again (RegSetKeyValue failed with 5)");
  EXPECT_EQ(RegistryProblem("RegDeleteTree", 1018),
            "the registry cannot be changed (RegDeleteTree failed with 1018)");
}

// But for paths, which are as long as they are.
void ExpectNarrow(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    EXPECT_TRUE(line.size() <= 80 || line.starts_with("  ")) << line;
    at = end + 1;
  }
}

TEST_F(Registration, ProgramSaysWhatItCannotDo) {
  registry_->SetDefaultClient("Former");
  const std::string help = "; --help shows what there is\n";
  // What the program would write for a trial is a folder already.
  const fs::path unwritable = folder_.Path() / "unwritable";
  fs::create_directories(unwritable / ("probe-" + std::to_string(ProcessId())) / "x");
  const struct {
    std::vector<std::string> arguments;
    int exit_code;
    std::string out = "";  // both as they begin
    std::string err = "";
  } cases[] = {
      {{"register", "--folder", PathText(Library() / "x")},
       3,
       "",
       "sandbox_mapi: cannot make the folder for the mail: name another with --folder\n  " +
           PathText(Library() / "x") + "\n  "},
      {{"register", "--folder", PathText(unwritable)},
       3,
       "",
       "sandbox_mapi: cannot write into the folder: name another with --folder\n  " +
           PathText(unwritable)},
      {{"register"},
       3,
       "",
       "sandbox_mapi: there is no library beside this program: put back what was\nbuilt with it\n "
       " " +
           PathText(Library())},
      {{"--help"}, 0, "usage: sandbox_mapi register"},
      {{"-h"}, 0, "usage: sandbox_mapi register"},
      {{"--version"}, 0, "sandbox_mapi "},
      {{}, 2, "", "sandbox_mapi: a command is missing" + help},
      {{"sign"}, 2, "", "sandbox_mapi: unknown command sign" + help},
      {{"register", "x"}, 2, "", "sandbox_mapi: register takes --folder FOLDER alone" + help},
      {{"register", "--folder"}, 2, "", "sandbox_mapi: --folder takes one folder" + help},
      {{"register", "--folder", ""}, 2, "", "sandbox_mapi: --folder takes one folder" + help},
      {{"register", "--folder", "a", "b"}, 2, "", "sandbox_mapi: --folder takes one folder" + help},
      {{"unregister", "x"}, 2, "", "sandbox_mapi: unregister takes nothing behind it" + help},
      {{"--help", "x"}, 2, "", "sandbox_mapi: --help takes nothing behind it" + help},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::PrintToString(test.arguments));
    EXPECT_EQ(Run(test.arguments), test.exit_code);
    EXPECT_TRUE(out_.starts_with(test.out) && out_.empty() == test.out.empty()) << out_;
    EXPECT_TRUE(err_.starts_with(test.err) && err_.empty() == test.err.empty()) << err_;
    ExpectNarrow(out_ + err_);
    EXPECT_EQ(DefaultClient(), "Former");
    fs::remove(Library());
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
