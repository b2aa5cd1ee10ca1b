// Where the search finds the mail client's library on a real machine, and what it prefers.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "testing/end_to_end/text.h"
#include "tests/mapi_search/fake_library.h"
#include "tests/mapi_search/machine.h"

namespace zentpost::mapi_search {
namespace {

using Texts = std::vector<std::string>;

// The path that `machine` gives for the step "search".
std::string Found(const Machine& machine) {
  const Texts lines = Lines(machine.Search({"search"}), "search");
  return lines.size() == 1 ? lines[0] : std::to_string(lines.size()) + " lines";
}

TEST(Search, FindsTheDefaultClientsLibraries) {
  Machine machine;
  machine.SetClient(registry::kExtendedLibrary, machine.Put("fake_library", "extended.dll"));
  machine.SetMailClientText("Another client", registry::kExtendedLibrary,
                            machine.Put("fake_library", "another.dll"));
  const Texts lines = machine.Search({"search"});
  const std::string path = (machine.Folder() / "extended.dll").string();
  EXPECT_EQ(Lines(lines, "search"), Texts{path});
  EXPECT_EQ(Lines(lines, "tried"), Texts{path});
  EXPECT_TRUE(IsTraced(lines, "GetHKeyMapiClient: HKLM\\%ws = %ws [Software\\Clients\\Mail, " +
                                  std::string(kClient) + "]"));
}

// Each source in turn is what remains.
TEST(Search, PrefersTheSourcesInTheirOrder) {
  for (const bool is_broken : {false, true}) {
    Machine machine;
    machine.PreferOwnLibraries();
    machine.Put("stub", "mapi32.dll");
    machine.SetClient(registry::kExtendedLibrary, machine.Put("fake_library", "1.dll"));
    machine.SetClient(registry::kLibrary, machine.Put("fake_library", "2.dll"));
    machine.SetClient(registry::kInstallerComponent, kComponent);
    machine.SetClient(registry::kInstallerLanguage, kQualifier);
    machine.SetVariable(kAnswerVariable, machine.Put("fake_library", "3.dll"));
    Texts tried;
    for (const char* const name : {"1.dll", "2.dll", "3.dll"}) {
      const std::string path = (machine.Folder() / name).string();
      tried.push_back(path);
      const Texts lines = machine.Search({"search"});
      EXPECT_EQ(Lines(lines, "search"), Texts{path});
      EXPECT_EQ(Lines(lines, "tried"), tried);
      if (is_broken) {
        machine.PutBroken(name);
      } else {
        machine.Remove(name);
      }
    }
    if (!machine.SystemLibrary().empty()) {
      const Texts lines = machine.Search({"search"});
      EXPECT_EQ(Lines(lines, "search"), Texts{machine.SystemLibrary()});
      EXPECT_EQ(Lines(lines, "tried").size(), tried.size() + 1);
    }
  }
}

TEST(Search, EndsAtTheSystemsOwnLibraryWhenNoClientIsRegistered) {
  Machine machine;
  if (machine.SystemLibrary().empty()) {
    GTEST_SKIP() << "this system has no library of its own";
  }
  const Texts lines = machine.Search({"search"});
  EXPECT_EQ(Lines(lines, "search"), Texts{machine.SystemLibrary()});
  EXPECT_EQ(Lines(lines, "tried").size(), 1u);
  EXPECT_TRUE(
      IsTraced(lines, "%ws failed with 0x%08X [GetHKeyMapiClient: RegOpenKeyExW(HKLM), 2]"));
}

TEST(Search, ExpandsVariablesWhereTheTypeSaysSo) {
  for (const char16_t* const name : {registry::kExtendedLibrary, registry::kLibrary}) {
    Machine machine;
    const std::string path = machine.Put("fake_library", "expanded.dll");
    machine.SetVariable("ZENTPOST_TEST_FOLDER", machine.Folder());
    const std::filesystem::path text =
        std::filesystem::path("%ZENTPOST_TEST_FOLDER%") / "expanded.dll";
    machine.SetClient(name, text.string(), Machine::TextKind::kExpandable);
    EXPECT_EQ(Found(machine), path);
    machine.SetClient(name, text.string());
    EXPECT_NE(Found(machine), path);
  }
}

// The buffer is told to the registry with half of its size.
TEST(Search, DeliberateLimitOf260BytesForATextOfTheRegistry) {
  Machine machine;
  const std::size_t begin = (machine.Folder() / "").u16string().size();
  ASSERT_LT(begin, 100u);
  for (const std::size_t length : {129u, 130u}) {
    const std::string name = std::string(length - begin - 4, 'a') + ".dll";
    const std::string path = machine.Put("fake_library", name);
    ASSERT_EQ(e2e::Utf16(path).size(), length);
    machine.SetClient(registry::kExtendedLibrary, path);
    const Texts lines = machine.Search({"search"});
    if (length == 129) {
      EXPECT_EQ(Lines(lines, "search"), Texts{path});
    } else {
      EXPECT_NE(Lines(lines, "search"), Texts{path});
      EXPECT_TRUE(IsTraced(lines, "Exit RegQueryWszExpand: dwErr = 0x%08X [234]"));
    }
  }
}

TEST(Search, DoesWithoutAnExpansionThatDoesNotFit) {
  Machine machine;
  machine.SetClient(registry::kExtendedLibrary, "%ZENTPOST_TEST_NAME%.dll",
                    Machine::TextKind::kExpandable);
  // 259 units with the terminator, and one more.
  const std::string fits = std::string(254, 'a') + ".dll";
  for (const std::size_t length : {254u, 255u}) {
    machine.SetVariable("ZENTPOST_TEST_NAME", std::string(length, 'a'));
    const Texts tried = Lines(machine.Search({"search"}), "tried");
    EXPECT_EQ(std::count(tried.begin(), tried.end(), fits), length == 254 ? 1 : 0);
    EXPECT_EQ(tried.size(), length == 254 ? 2u : 1u);
  }
}

TEST(Search, TakesALibraryThatIsLoadedAlreadyWithoutLookingFurther) {
  for (const char* const name : {"olmapi32.dll", "msmapi32.dll"}) {
    Machine machine;
    machine.SetClient(registry::kExtendedLibrary, machine.Put("fake_library", "extended.dll"));
    const std::string path = machine.Put("fake_library", name);
    const Texts lines =
        machine.Search({"load=" + path, "search", "unload=" + path, std::string("loaded=") + name});
    EXPECT_EQ(Lines(lines, "load"), Texts{"yes"});
    EXPECT_EQ(Lines(lines, "search"), Texts{path});
    EXPECT_EQ(Lines(lines, "unload"), Texts{"yes"});
    // The search has a reference of its own, where the system can give one for a name.
    EXPECT_EQ(Lines(lines, "loaded"), Texts{machine.GivesReferences() ? "yes" : "no"});
    EXPECT_FALSE(IsTraced(lines, "Enter GetHKeyMapiClient"));
    EXPECT_TRUE(Lines(lines, "tried").empty());
  }
}

// --- the library that the client registered with the installer ---

TEST(Search, AsksEitherStubForTheClientsComponent) {
  for (const char* const stub : {"mapi32.dll", "mapistub.dll"}) {
    Machine machine;
    machine.PreferOwnLibraries();
    machine.Put("stub", stub);
    if (stub != std::string("mapi32.dll")) {
      machine.PutBroken("mapi32.dll");
    }
    machine.SetClient(registry::kInstallerComponent, kComponent);
    machine.SetClient(registry::kInstallerLanguage, kQualifier);
    const std::string path = machine.Put("fake_library", "component.dll");
    machine.SetVariable(kAnswerVariable, path);
    const Texts lines = machine.Search({"search", std::string("loaded=") + stub});
    EXPECT_EQ(Lines(lines, "search"), Texts{path}) << stub;
    EXPECT_TRUE(IsTraced(lines, "GetComponentPath: path = %ws [" + path + "]")) << stub;
    EXPECT_TRUE(IsTraced(lines, "Exit GetComponentPath: fReturn = 0x%08X [1]")) << stub;
    EXPECT_EQ(Lines(lines, "loaded"), Texts{"no"}) << stub;
  }
}

TEST(Installation, TheFirstLibraryStaysUntilItIsTakenAway) {
  Machine machine;
  const std::string first = machine.Put("fake_library", "first.dll");
  const std::string second = machine.Put("fake_library", "second.dll");
  const Texts lines = machine.Search({"install=" + first, "install=" + second, "loaded=second.dll",
                                      "loaded=first.dll", "clear", "loaded=first.dll"});
  EXPECT_EQ(Lines(lines, "install"), (Texts{first, first}));
  EXPECT_EQ(Lines(lines, "clear"), Texts{"nothing"});
  EXPECT_EQ(Lines(lines, "loaded"), (Texts{"no", "yes", "no"}));
}

}  // namespace
}  // namespace zentpost::mapi_search
