// The observable results of every function of platform/modules.h. The same expectations are
// compiled against each back-end, so that none drifts from the others.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/module_path.h"
#include "platform/modules.h"
#include "platform/status.h"
#include "testing/platform_contract/modules_contract.h"

namespace platform::modules_contract {
namespace {

static_assert(!std::is_copy_constructible_v<Module>);
static_assert(std::is_nothrow_move_constructible_v<Module>);

class ModulesContract : public testing::Test {
 protected:
  ModulesContract() { PrepareMachine(); }
  ~ModulesContract() override { ClearMachine(); }
};

// Stands where a call must not write.
constexpr char16_t kUntouched = u'#';

// --- loading ---

TEST_F(ModulesContract, LoadsALibraryAndLetsItGo) {
  EXPECT_FALSE(IsLibraryLoaded());
  Module module;
  EXPECT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  EXPECT_TRUE(module);
  EXPECT_TRUE(IsLibraryLoaded());
  module.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, ALibraryStaysUntilItsLastReferenceGoes) {
  Module first;
  Module second;
  ASSERT_EQ(LoadModule(Library().c_str(), first), kSuccess);
  ASSERT_EQ(LoadModule(Library().c_str(), second), kSuccess);
  EXPECT_EQ(first.Get(), second.Get());
  first.Reset();
  EXPECT_TRUE(IsLibraryLoaded());
  second.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, AnOwnerThatIsMovedKeepsTheReference) {
  Module other;
  {
    Module module;
    ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
    other = std::move(module);
  }
  EXPECT_TRUE(IsLibraryLoaded());
  other.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, LoadingAgainIntoTheSameOwnerKeepsOneReference) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  EXPECT_TRUE(IsLibraryLoaded());
  module.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, WhatIsMissingIsNotFound) {
  Module module;
  EXPECT_EQ(LoadModule(MissingLibrary().c_str(), module), kModuleNotFound);
  EXPECT_FALSE(module);
}

TEST_F(ModulesContract, AFileThatIsNoLibraryIsNotLoaded) {
  Module module;
  EXPECT_NE(LoadModule(BrokenLibrary().c_str(), module), kSuccess);
  EXPECT_FALSE(module);
}

// Some systems would give the program itself, or a file that has an extension and no name.
TEST_F(ModulesContract, APathWithoutANameLoadsNothing) {
  const std::u16string folder = Library().substr(0, Library().rfind(LibraryFileName()));
  const std::u16string paths[] = {u"",
                                  u" ",
                                  u"\t \r\n",
                                  u"C:",
                                  u"c: ",
                                  u"\\",
                                  u"/",
                                  u"C:\\",
                                  u"C:/",
                                  folder,
                                  folder + u" ",
                                  u"sub\\",
                                  u"sub/",
                                  Library() + u"\\",
                                  Library() + u"/",
                                  u"library.dll\\ "};
  Module loaded;
  ASSERT_EQ(LoadModule(Library().c_str(), loaded), kSuccess);
  for (const std::u16string& path : paths) {
    SCOPED_TRACE(testing::PrintToString(path));
    Module module;
    ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
    EXPECT_EQ(LoadModule(path.c_str(), module), kModuleNotFound);
    EXPECT_FALSE(module);
  }
  EXPECT_EQ(LoadModule(nullptr, loaded), kModuleNotFound);
  EXPECT_FALSE(loaded);
  EXPECT_FALSE(IsLibraryLoaded());
}

static_assert(NamesAFile(u"a") && NamesAFile(u"a.dll") && NamesAFile(u".dll") &&
              NamesAFile(u"C:a") && NamesAFile(u"C:\\a") && NamesAFile(u"C:/a/b ") &&
              NamesAFile(u" a") && NamesAFile(u"a:b") && NamesAFile(u"\\a"));
static_assert(!NamesAFile(u"") && !NamesAFile(u" ") && !NamesAFile(u"\t\n\v\f\r ") &&
              !NamesAFile(u"C:") && !NamesAFile(u"C: ") && !NamesAFile(u"C:\\") &&
              !NamesAFile(u"a/") && !NamesAFile(u"a\\ "));

TEST_F(ModulesContract, AFailureLetsGoOfWhatTheOwnerHeld) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  EXPECT_NE(LoadModule(MissingLibrary().c_str(), module), kSuccess);
  EXPECT_FALSE(module);
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, ABareNameIsFoundAmongTheLoadedLibraries) {
  Module module;
  EXPECT_EQ(LoadModule(LibraryFileName().c_str(), module), kModuleNotFound);
  EXPECT_FALSE(module);

  Module by_path;
  ASSERT_EQ(LoadModule(Library().c_str(), by_path), kSuccess);
  EXPECT_EQ(LoadModule(LibraryFileName().c_str(), module), kSuccess);
  EXPECT_EQ(module.Get(), by_path.Get());
  by_path.Reset();
  EXPECT_TRUE(IsLibraryLoaded());
  module.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, ABareNameIsFoundInTheSystemsFolders) {
  ASSERT_FALSE(IsLibraryOfTheSystemLoaded());
  Module module;
  EXPECT_EQ(LoadModule(LibraryOfTheSystem().c_str(), module), kSuccess);
  EXPECT_TRUE(module);
  EXPECT_TRUE(IsLibraryOfTheSystemLoaded());
}

// --- finding what is loaded ---

TEST_F(ModulesContract, FindsALoadedLibraryByNameAndByPath) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  for (const std::u16string& name : {LibraryFileName(), Library()}) {
    RawModule found{};
    EXPECT_EQ(FindLoadedModule(name.c_str(), found), kSuccess);
    EXPECT_EQ(found, module.Get());
  }
}

TEST_F(ModulesContract, FindingTakesNoReference) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  RawModule found{};
  ASSERT_EQ(FindLoadedModule(LibraryFileName().c_str(), found), kSuccess);
  module.Reset();
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, FindingLoadsNothing) {
  for (const std::u16string& name : {LibraryFileName(), Library(), LibraryOfTheSystem()}) {
    RawModule found{1};
    EXPECT_EQ(FindLoadedModule(name.c_str(), found), kModuleNotFound);
    EXPECT_EQ(found, RawModule{});
  }
  EXPECT_FALSE(IsLibraryLoaded());
}

TEST_F(ModulesContract, AReleasedLibraryIsFoundNoMore) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  module.Reset();
  RawModule found{1};
  EXPECT_EQ(FindLoadedModule(LibraryFileName().c_str(), found), kModuleNotFound);
  EXPECT_EQ(found, RawModule{});
}

// --- exports ---

TEST_F(ModulesContract, FindsAnExport) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  Procedure procedure = nullptr;
  EXPECT_EQ(FindProcedure(module.Get(), "ContractNumber", procedure), kSuccess);
  ASSERT_NE(procedure, nullptr);
  EXPECT_EQ(reinterpret_cast<ContractNumber>(procedure)(), kContractNumber);
}

TEST_F(ModulesContract, AMissingExportIsNotFound) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  // Names are told apart by case, and to the last letter.
  for (const char* const name : {"contractnumber", "ContractNumbe", "ContractNumbers", ""}) {
    Procedure procedure = [] {};
    EXPECT_EQ(FindProcedure(module.Get(), name, procedure), kProcedureNotFound) << name;
    EXPECT_EQ(procedure, nullptr) << name;
  }
}

// Where some systems would look in the program itself, or in all that is loaded.
TEST_F(ModulesContract, NoModuleExportsNothing) {
  Module module;
  ASSERT_EQ(LoadModule(Library().c_str(), module), kSuccess);
  Procedure procedure = [] {};
  EXPECT_EQ(FindProcedure(RawModule{}, "ContractNumber", procedure), kInvalidHandle);
  EXPECT_EQ(procedure, nullptr);
}

// --- the system directory ---

TEST_F(ModulesContract, TellsTheSystemDirectoryWithoutASeparatorAtItsEnd) {
  const std::u16string expected = TheSystemDirectory();
  ASSERT_FALSE(expected.empty());
  std::vector<char16_t> buffer(expected.size() + 100, kUntouched);
  std::uint32_t length = 0;
  EXPECT_EQ(SystemDirectory(static_cast<std::uint32_t>(buffer.size()), buffer.data(), length),
            kSuccess);
  ASSERT_EQ(length, expected.size());
  EXPECT_EQ(std::u16string(buffer.data(), length), expected);
  EXPECT_EQ(buffer[length], u'\0');
  EXPECT_NE(expected.back(), u'\\');
  EXPECT_NE(expected.back(), u'/');
}

TEST_F(ModulesContract, TheSystemDirectoryFitsExactly) {
  const std::u16string expected = TheSystemDirectory();
  const auto capacity = static_cast<std::uint32_t>(expected.size() + 1);
  std::vector<char16_t> buffer(capacity + 1, kUntouched);
  std::uint32_t length = 0;
  EXPECT_EQ(SystemDirectory(capacity, buffer.data(), length), kSuccess);
  EXPECT_EQ(length, expected.size());
  EXPECT_EQ(std::u16string(buffer.data(), capacity), expected + u'\0');
  EXPECT_EQ(buffer[capacity], kUntouched);
}

TEST_F(ModulesContract, TellsTheRoomThatTheSystemDirectoryNeeds) {
  const std::u16string expected = TheSystemDirectory();
  const auto needed = static_cast<std::uint32_t>(expected.size() + 1);
  for (const std::uint32_t capacity : {needed - 1, std::uint32_t{1}}) {
    std::vector<char16_t> buffer(needed, kUntouched);
    std::uint32_t length = 0;
    EXPECT_EQ(SystemDirectory(capacity, buffer.data(), length), kSuccess);
    EXPECT_EQ(length, needed) << capacity;
    EXPECT_EQ(buffer[capacity], kUntouched) << capacity;
  }
  std::uint32_t length = 0;
  EXPECT_EQ(SystemDirectory(0, nullptr, length), kSuccess);
  EXPECT_EQ(length, needed);
}

// --- the environment ---

// The text for which the seam gives `source`, with room enough. The room belongs to the call: what
// stands in it behind the terminator is not promised.
std::u16string Expanded(const std::u16string& source) {
  constexpr std::uint32_t kRoom = 1000;
  std::vector<char16_t> buffer(kRoom + 1, kUntouched);
  std::uint32_t length = 0;
  EXPECT_EQ(ExpandEnvironment(source.c_str(), buffer.data(), kRoom, length), kSuccess);
  if (length == 0 || length > kRoom) {
    ADD_FAILURE() << length << " units";
    return {};
  }
  EXPECT_EQ(buffer[length - 1], u'\0');
  EXPECT_EQ(buffer[kRoom], kUntouched);
  return {buffer.data(), length - 1};
}

TEST_F(ModulesContract, ExpandsVariables) {
  SetVariable(u"ZENTPOST_FIRST", u"C:\\Program Files");
  SetVariable(u"ZENTPOST_SECOND", u"mail");
  EXPECT_EQ(Expanded(u"%ZENTPOST_FIRST%\\%ZENTPOST_SECOND%.dll"), u"C:\\Program Files\\mail.dll");
  EXPECT_EQ(Expanded(u"%ZENTPOST_FIRST%%ZENTPOST_SECOND%"), u"C:\\Program Filesmail");
}

TEST_F(ModulesContract, ExpandsVariablesBeyondAscii) {
  SetVariable(u"ZENTPOST_FIRST", u"B\u00FCro \u20AC");
  EXPECT_EQ(Expanded(u"<%ZENTPOST_FIRST%>"), u"<B\u00FCro \u20AC>");
}

TEST_F(ModulesContract, LeavesTextsWithoutVariablesAlone) {
  EXPECT_EQ(Expanded(u""), u"");
  EXPECT_EQ(Expanded(u"C:\\mail.dll"), u"C:\\mail.dll");
  EXPECT_EQ(Expanded(u"50%"), u"50%");
}

TEST_F(ModulesContract, LeavesUnknownVariablesWithTheirMarks) {
  const std::u16string name = kUnknownVariable;
  EXPECT_EQ(Expanded(u"<%" + name + u"%>"), u"<%" + name + u"%>");
  SetVariable(u"ZENTPOST_FIRST", u"known");
  EXPECT_EQ(Expanded(u"%" + name + u"%\\%ZENTPOST_FIRST%"), u"%" + name + u"%\\known");
}

TEST_F(ModulesContract, DoesNotExpandWhatAVariableContains) {
  SetVariable(u"ZENTPOST_FIRST", u"%ZENTPOST_SECOND%");
  SetVariable(u"ZENTPOST_SECOND", u"mail");
  EXPECT_EQ(Expanded(u"%ZENTPOST_FIRST%"), u"%ZENTPOST_SECOND%");
}

TEST_F(ModulesContract, AnExpansionFitsExactly) {
  SetVariable(u"ZENTPOST_FIRST", u"0123456789");
  const std::u16string expected = u"0123456789.dll";
  const auto capacity = static_cast<std::uint32_t>(expected.size() + 1);
  std::vector<char16_t> buffer(capacity + 1, kUntouched);
  std::uint32_t length = 0;
  EXPECT_EQ(ExpandEnvironment(u"%ZENTPOST_FIRST%.dll", buffer.data(), capacity, length), kSuccess);
  EXPECT_EQ(length, capacity);
  EXPECT_EQ(std::u16string(buffer.data(), capacity), expected + u'\0');
  EXPECT_EQ(buffer[capacity], kUntouched);
}

TEST_F(ModulesContract, TellsTheRoomThatAnExpansionNeeds) {
  SetVariable(u"ZENTPOST_FIRST", u"0123456789");
  const std::uint32_t needed = 15;
  for (const std::uint32_t capacity : {needed - 1, std::uint32_t{3}, std::uint32_t{1}}) {
    std::vector<char16_t> buffer(needed, kUntouched);
    std::uint32_t length = 0;
    EXPECT_EQ(ExpandEnvironment(u"%ZENTPOST_FIRST%.dll", buffer.data(), capacity, length),
              kSuccess);
    EXPECT_EQ(length, needed) << capacity;
    EXPECT_EQ(buffer[capacity], kUntouched) << capacity;
  }
  std::uint32_t length = 0;
  EXPECT_EQ(ExpandEnvironment(u"%ZENTPOST_FIRST%.dll", nullptr, 0, length), kSuccess);
  EXPECT_EQ(length, needed);
}

}  // namespace
}  // namespace platform::modules_contract
