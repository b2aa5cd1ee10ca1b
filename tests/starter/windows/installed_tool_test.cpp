// The tool that the Windows Installer has put somewhere, in the view of either bitness.
#include <windows.h>

#include "testing/end_to_end/settings.h"
#include "testing/end_to_end/windows/registry.h"
#include "tests/starter/starter_test.h"

namespace zentpost::e2e {
namespace {

constexpr wchar_t kKey[] = L"Software\\Sollvex\\Zentpost";
// The 32-bit view as a 64-bit program sees it. Its own is cleared with the machine's.
constexpr wchar_t kOtherView[] = L"Software\\WOW6432Node\\Sollvex";
constexpr wchar_t kAside[] = L"Software\\WOW6432Node\\Sollvex put aside by zentpost's tests";

class InstalledTool : public StarterTest {
 protected:
  void SetUp() override {
    if (!Machine::CanWrite(Hive::kLocalMachine) ||
        !PutKeyAside(HKEY_LOCAL_MACHINE, kOtherView, kAside)) {
      GTEST_SKIP() << "this user may not change the machine's part of the registry";
    }
    is_ours_ = true;
  }
  void TearDown() override {
    if (is_ours_) {
      RemoveRegistryKey(HKEY_LOCAL_MACHINE, kOtherView);
      PutKeyBack(HKEY_LOCAL_MACHINE, kOtherView, kAside);
    }
  }

  static void Install(const std::wstring& key, const std::wstring& folder) {
    SetRegistryText(HKEY_LOCAL_MACHINE, key, L"InstallDir", REG_SZ, folder);
  }

  // The folder of the tool under test.
  [[nodiscard]] static std::wstring Folder() { return Setting("tool").parent_path().wstring(); }

  void ExpectFound() {
    Addin addin;
    SetAddinPort(addin);
    const ProcessRun run = Start({});
    EXPECT_EQ(run.exit_code, 0) << run.printed;
    EXPECT_EQ(Ends(addin.Finish()), "probe, delivered");
  }

 private:
  bool is_ours_ = false;
};

TEST_F(InstalledTool, IsFoundWithAndWithoutABackslashBehindTheFolder) {
  Install(kKey, Folder());
  ExpectFound();
  Install(kKey, Folder() + L"\\");
  ExpectFound();
}

TEST_F(InstalledTool, OfTheOtherBitnessIsFoundToo) {
  if constexpr (sizeof(void*) == 4) {
    GTEST_SKIP() << "a 32-bit program sees the other view as its own where there is only one";
  }
  Install(std::wstring(kOtherView) + L"\\Zentpost", Folder());
  ExpectFound();
  Install(kKey, L"");
  ExpectFound();
}

TEST_F(InstalledTool, OfThisBitnessComesFirst) {
  if constexpr (sizeof(void*) == 4) {
    GTEST_SKIP() << "the 64-bit one comes first";
  }
  Install(std::wstring(kOtherView) + L"\\Zentpost", L"C:\\no such folder");
  Install(kKey, Folder());
  ExpectFound();
}

TEST_F(InstalledTool, WhereThereIsNoneTheStarterSaysSo) {
  ExpectRefused(Start({}), "--tool is missing, and Zentpost is not installed");
  ExpectRefused(Start({"--tool", ""}), "--tool is missing, and Zentpost is not installed");
}

}  // namespace
}  // namespace zentpost::e2e
