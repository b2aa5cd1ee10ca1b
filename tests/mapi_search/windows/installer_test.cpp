// What the search finds through the Windows Installer, whose msi.dll it binds when it runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "testing/end_to_end/files.h"
#include "tests/mapi_search/fake_library.h"
#include "tests/mapi_search/machine.h"
#include "tests/mapi_search/windows/installer.h"

namespace zentpost::mapi_search {
namespace {

using Texts = std::vector<std::string>;

// Outlook's categories, in the order of the search.
const Texts kCategories = {
    "{5812C571-53F0-4467-BEFA-0A4F47A9437C}", "{E83B4360-C208-4325-9504-0D23003A74A5}",
    "{1E77DE88-BCAB-4C37-B9E5-073AF52DFD7A}", "{24AAE126-0911-478F-A019-07B875EB9996}",
    "{BC174BAD-2F53-4855-A1D5-0D575C19B1EA}", "{BC174BAD-2F53-4855-A1D5-1D575C19B1EA}",
};

class InstallerSearch : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const std::string& category : kCategories) {
      ASSERT_TRUE(PutCategoryAside(category));
    }
  }
  static void TearDownTestSuite() {
    for (const std::string& category : kCategories) {
      PutCategoryBack(category);
    }
  }

  // Installs an Outlook into a folder of its own and gives the path of its MAPI library.
  std::string InstallOutlook(const std::string& category, const std::string& executable,
                             const std::string& folder) {
    const std::string library = machine_.Put("fake_library", folder + "/olmapi32.dll");
    const std::filesystem::path path = (machine_.Folder() / folder / executable).make_preferred();
    e2e::WriteBytes(path, "");
    installer_.Register(category, executable, path);
    return library;
  }

  Machine machine_;
  Installer installer_;
};

TEST_F(InstallerSearch, FindsTheLibraryOfAnOutlook) {
  // The 64-bit one is asked for first.
  for (const char* const executable : {"outlook.exe", "outlook.x64.exe"}) {
    const std::string library = InstallOutlook(kCategories[0], executable, "office");
    const Texts lines = machine_.Search({"search"});
    EXPECT_EQ(Lines(lines, "search"), Texts{library});
    EXPECT_TRUE(IsTraced(lines, "Exit GetOutlookPath: Path = %ws [" +
                                    (machine_.Folder() / "office" / executable).string()));
    EXPECT_TRUE(IsTraced(lines, "GetInstalledOutlookMAPI: found %ws [" + library));
    EXPECT_TRUE(IsTraced(lines, "Exit GetInstalledOutlookMAPI: found %d paths [1]"));
  }
}

TEST_F(InstallerSearch, TriesTheCategoriesInTheirOrderAmongTheOtherSources) {
  machine_.SetDefaultMailClient(kClient);
  Texts expected = {machine_.Put("fake_library", "extended.dll")};
  machine_.SetMailClientText(kClient, registry::kExtendedLibrary, expected[0]);
  for (std::size_t i = 0; i < kCategories.size(); ++i) {
    expected.push_back(InstallOutlook(kCategories[i],
                                      i % 2 == 0 ? "outlook.x64.exe" : "outlook.exe",
                                      "office" + std::to_string(i)));
  }
  expected.push_back(machine_.Put("fake_library", "plain.dll"));
  machine_.SetMailClientText(kClient, registry::kLibrary, expected.back());
  expected.push_back(machine_.Put("fake_library", "component.dll"));
  installer_.Register(kComponent, kQualifier, expected.back());
  machine_.SetMailClientText(kClient, registry::kInstallerComponent, kComponent);
  machine_.SetMailClientText(kClient, registry::kInstallerLanguage, kQualifier);

  Texts tried;
  for (const std::string& path : expected) {
    tried.push_back(path);
    const Texts lines = machine_.Search({"search"});
    EXPECT_EQ(Lines(lines, "search"), Texts{path});
    EXPECT_EQ(Lines(lines, "tried"), tried);
    ASSERT_TRUE(std::filesystem::remove(path));
  }
}

TEST_F(InstallerSearch, DoesWithoutAnOutlookThatIsGone) {
  InstallOutlook(kCategories[0], "outlook.exe", "office");
  machine_.Remove("office/outlook.exe");
  const Texts lines = machine_.Search({"search"});
  EXPECT_TRUE(IsTraced(lines, "Exit GetInstalledOutlookMAPI: found %d paths [0]"));
  EXPECT_NE(Lines(lines, "search"),
            Texts{(machine_.Folder() / "office" / "olmapi32.dll").string()});
}

TEST_F(InstallerSearch, TheSystemsOwnStubKnowsTheClientsComponent) {
  const std::string library = machine_.Put("fake_library", "component.dll");
  installer_.Register(kComponent, kQualifier, library);
  machine_.SetDefaultMailClient(kClient);
  machine_.SetMailClientText(kClient, registry::kInstallerComponent, kComponent);
  machine_.SetMailClientText(kClient, registry::kInstallerLanguage, kQualifier);
  const Texts lines = machine_.Search({"search"});
  EXPECT_EQ(Lines(lines, "search"), Texts{library});
  EXPECT_TRUE(IsTraced(lines, "Exit GetMailClientFromMSIData: szPath = %ws [" + library));
}

TEST_F(InstallerSearch, IsToldToShowNothingBeforeTheSearchAsks) {
  const Texts lines = machine_.Search({"installer-ui", "search", "installer-ui"});
  const Texts levels = Lines(lines, "installer-ui");
  ASSERT_EQ(levels.size(), 2u);
  EXPECT_NE(levels[0], "2");
  EXPECT_EQ(levels[1], "2");  // INSTALLUILEVEL_NONE
}

// Only the drive is loaded, which is no library; see LoadBesideOutlookMapi.
TEST_F(InstallerSearch, DeliberateFailureToLoadTheCompanionBesideOutlooksLibrary) {
  const std::string library = InstallOutlook(kCategories[0], "outlook.exe", "office");
  machine_.Put("fake_library", "office/pstprx32.dll");
  const Texts lines = machine_.Search({"search", "loaded=pstprx32.dll"});
  EXPECT_EQ(Lines(lines, "search"), Texts{library});
  EXPECT_EQ(Lines(lines, "loaded"), Texts{"no"});
  const Texts loads = Lines(lines, "load trace");
  const auto is_there = [&](const std::string& line) {
    return std::find(loads.begin(), loads.end(), line) != loads.end();
  };
  EXPECT_TRUE(is_there("LoadFromOLMAPIDir - loading \"%ws\" [pstprx32.dll]"));
  EXPECT_TRUE(is_there("LoadFromOLMAPIDir - loading from \"%ws\" [" + library.substr(0, 2) + "]"));
}

}  // namespace
}  // namespace zentpost::mapi_search
