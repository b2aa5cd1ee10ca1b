#include "platform/modules.h"

#include <string>
#include <type_traits>
#include <utility>

#include "platform/module_path.h"
#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

static_assert(!std::is_copy_constructible_v<Module>);
static_assert(std::is_nothrow_move_constructible_v<Module>);

static_assert(NamesAFile(u"a") && NamesAFile(u"a.dll") && NamesAFile(u".dll") &&
              NamesAFile(u"C:a") && NamesAFile(u"C:\\a") && NamesAFile(u"C:/a/b ") &&
              NamesAFile(u" a") && NamesAFile(u"a:b") && NamesAFile(u"\\a"));
static_assert(!NamesAFile(u"") && !NamesAFile(u" ") && !NamesAFile(u"\t\n\v\f\r ") &&
              !NamesAFile(u"C:") && !NamesAFile(u"C: ") && !NamesAFile(u"C:\\") &&
              !NamesAFile(u"a/") && !NamesAFile(u"a\\ "));

constexpr char16_t kFileName[] = u"library.dll";

class ModulesContract : public ContractTest {
 protected:
  static std::u16string Path(const char16_t* name = kFileName) { return LibraryFolder() + name; }

  static Module Loaded(const std::u16string& path = Path()) {
    Module module;
    EXPECT_EQ(LoadModule(path.c_str(), module), kSuccess);
    EXPECT_TRUE(module);
    EXPECT_TRUE(IsLoaded(path));
    return module;
  }

  // Into an owner that holds one, which it lets go.
  static Status TryToLoad(const char16_t* path) {
    Module module = Loaded();
    const Status status = LoadModule(path, module);
    EXPECT_FALSE(module);
    EXPECT_FALSE(IsLoaded(Path()));
    return status;
  }

  static std::u16string Expanded(const std::u16string& source) {
    std::u16string buffer(1000, u'#');
    std::uint32_t length = 0;
    EXPECT_EQ(ExpandEnvironment(source.c_str(), buffer.data(), 1000, length), kSuccess);
    EXPECT_LE(length, 1000U);
    buffer.resize(length);
    EXPECT_TRUE(buffer.ends_with(u'\0'));
    return buffer.substr(0, buffer.size() - 1);
  }
};

TEST_F(ModulesContract, ALibraryStaysUntilItsLastReferenceGoes) {
  EXPECT_FALSE(IsLoaded(Path()));
  Module first = Loaded();
  Module second = Loaded();
  EXPECT_EQ(first.Get(), second.Get());
  first.Reset();
  EXPECT_TRUE(IsLoaded(Path()));
  // Again into the same owner: still one reference.
  ASSERT_EQ(LoadModule(Path().c_str(), second), kSuccess);
  Module moved = std::move(second);
  EXPECT_TRUE(IsLoaded(Path()));
  moved.Reset();
  EXPECT_FALSE(IsLoaded(Path()));
  RawModule found{1};
  EXPECT_EQ(FindLoadedModule(kFileName, found), kModuleNotFound);
  EXPECT_EQ(found, RawModule{});
}

TEST_F(ModulesContract, WhatIsNoLibraryIsNotLoaded) {
  EXPECT_EQ(TryToLoad(Path(u"missing.dll").c_str()), kModuleNotFound);
  EXPECT_EQ(TryToLoad(u"missing.dll"), kModuleNotFound);
  EXPECT_NE(TryToLoad(Path(u"broken.dll").c_str()), kSuccess);
  EXPECT_EQ(TryToLoad(nullptr), kModuleNotFound);
}

// Some systems would give the program itself, or a file that has an extension and no name.
TEST_F(ModulesContract, APathWithoutANameLoadsNothing) {
  const std::u16string folder = LibraryFolder();
  for (const std::u16string& path :
       {std::u16string(u""), std::u16string(u" "), std::u16string(u"\t \r\n"),
        std::u16string(u"C:"), std::u16string(u"c: "), std::u16string(u"\\"), std::u16string(u"/"),
        std::u16string(u"C:\\"), std::u16string(u"C:/"), folder, folder + u" ",
        std::u16string(u"sub\\"), std::u16string(u"sub/"), Path() + u"\\", Path() + u"/",
        std::u16string(u"library.dll\\ ")}) {
    EXPECT_EQ(TryToLoad(path.c_str()), kModuleNotFound) << testing::PrintToString(path);
  }
}

TEST_F(ModulesContract, ABareNameIsFoundAmongTheLoadedLibrariesAndInTheSystemsFolders) {
  Module module;
  EXPECT_EQ(LoadModule(kFileName, module), kModuleNotFound);
  EXPECT_FALSE(module);
  Module by_path = Loaded();
  Module by_name = Loaded(kFileName);
  EXPECT_EQ(by_name.Get(), by_path.Get());
  by_path.Reset();
  EXPECT_TRUE(IsLoaded(Path()));
  by_name.Reset();
  EXPECT_FALSE(IsLoaded(Path()));
  ASSERT_FALSE(IsLoaded(LibraryOfTheSystem()));
  Loaded(LibraryOfTheSystem());
}

TEST_F(ModulesContract, FindingTakesNoReferenceAndLoadsNothing) {
  for (const std::u16string& name : {std::u16string(kFileName), Path(), LibraryOfTheSystem()}) {
    RawModule found{1};
    EXPECT_EQ(FindLoadedModule(name.c_str(), found), kModuleNotFound);
    EXPECT_EQ(found, RawModule{});
    EXPECT_FALSE(IsLoaded(name));
  }
  Module module = Loaded();
  for (const std::u16string& name : {std::u16string(kFileName), Path()}) {
    RawModule found{};
    EXPECT_EQ(FindLoadedModule(name.c_str(), found), kSuccess);
    EXPECT_EQ(found, module.Get());
  }
  module.Reset();
  EXPECT_FALSE(IsLoaded(Path()));
}

TEST_F(ModulesContract, AnExportIsFoundByItsWholeNameInItsModule) {
  struct Case {
    const char* name;
    Status status;
    bool has_module = true;
  };
  const Module module = Loaded();
  // Some systems would look in the program itself, or in all that is loaded, for no module.
  for (const Case& test :
       {Case{"ContractNumber", kSuccess}, Case{"contractnumber", kProcedureNotFound},
        Case{"ContractNumbe", kProcedureNotFound}, Case{"ContractNumbers", kProcedureNotFound},
        Case{"", kProcedureNotFound}, Case{"ContractNumber", kInvalidHandle, false}}) {
    SCOPED_TRACE(test.name);
    Procedure procedure = [] {};
    EXPECT_EQ(FindProcedure(test.has_module ? module.Get() : RawModule{}, test.name, procedure),
              test.status);
    if (test.status != kSuccess) {
      EXPECT_EQ(procedure, nullptr);
    } else {
      ASSERT_NE(procedure, nullptr);
      EXPECT_EQ(reinterpret_cast<ContractNumber>(procedure)(), kContractNumber);
    }
  }
}

TEST_F(ModulesContract, TellsTheSystemDirectoryWithoutASeparatorAtItsEnd) {
  const std::u16string expected = TheSystemDirectory();
  ASSERT_FALSE(expected.empty());
  EXPECT_NE(expected.back(), u'\\');
  EXPECT_NE(expected.back(), u'/');
  ExpectFills(SystemDirectory, expected);
}

TEST_F(ModulesContract, ExpandsTheVariablesThatAreThereOnce) {
  SetVariable(u"ZENTPOST_FIRST", u"C:\\Program Files");
  SetVariable(u"ZENTPOST_SECOND", u"%ZENTPOST_FIRST%");
  SetVariable(u"ZENTPOST_THIRD", u"B\u00FCro \u20AC");
  struct Case {
    const char16_t* source;
    const char16_t* expanded;
  };
  for (const auto& [source, expanded] :
       {Case{u"", u""}, Case{u"C:\\mail.dll", u"C:\\mail.dll"}, Case{u"50%", u"50%"},
        Case{u"%ZENTPOST_FIRST%\\%ZENTPOST_THIRD%.dll", u"C:\\Program Files\\B\u00FCro \u20AC.dll"},
        Case{u"%ZENTPOST_FIRST%%ZENTPOST_FIRST%", u"C:\\Program FilesC:\\Program Files"},
        Case{u"%ZENTPOST_SECOND%", u"%ZENTPOST_FIRST%"},
        Case{u"<%ZENTPOST_NONE%>", u"<%ZENTPOST_NONE%>"},
        Case{u"%ZENTPOST_NONE%\\%ZENTPOST_FIRST%", u"%ZENTPOST_NONE%\\C:\\Program Files"}}) {
    EXPECT_EQ(Expanded(source), expanded);
  }
}

TEST_F(ModulesContract, TellsTheLengthThatAnExpansionNeeds) {
  SetVariable(u"ZENTPOST_FIRST", u"0123456789");
  ExpectFills(
      [](std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
        return ExpandEnvironment(u"%ZENTPOST_FIRST%.dll", buffer, capacity, length);
      },
      u"0123456789.dll", true);
}

}  // namespace
}  // namespace platform::contract
