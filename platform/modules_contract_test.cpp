// What platform/modules.h promises, on every back-end.
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/modules.h"
#include "platform/modules_contract_machine.h"

namespace platform {
namespace {

class Modules : public ::testing::Test {
 protected:
  Modules() { contract::PrepareLibraries(); }
  ~Modules() override { contract::ClearLibraries(); }

  // The handle that the process knows `name` by; RawModule{} when it is not loaded.
  static RawModule Loaded(const std::u16string& name) {
    RawModule module{1};  // has to be overwritten
    const Status status = FindLoadedModule(name.c_str(), module);
    EXPECT_EQ(status == kSuccess, module != RawModule{});
    if (status != kSuccess) {
      EXPECT_EQ(status, kModuleNotFound);
    }
    return module;
  }

  const std::u16string path_ = contract::LibraryPath();
};

TEST_F(Modules, ALoadedLibraryExportsItsFunction) {
  Module module;
  ASSERT_EQ(LoadModule(path_.c_str(), module), kSuccess);
  ASSERT_TRUE(module);
  Procedure procedure = nullptr;
  ASSERT_EQ(FindProcedure(module.Get(), "ContractAnswer", procedure), kSuccess);
  EXPECT_EQ(contract::CallAnswer(procedure), contract::kAnswer);
}

TEST_F(Modules, AFunctionThatIsNotExportedIsNull) {
  Module module;
  ASSERT_EQ(LoadModule(path_.c_str(), module), kSuccess);
  Procedure procedure = reinterpret_cast<Procedure>(&contract::CallAnswer);
  EXPECT_EQ(FindProcedure(module.Get(), "contractanswer", procedure), kProcedureNotFound);
  EXPECT_EQ(procedure, nullptr);
}

TEST_F(Modules, NoModuleExportsNothing) {
  Procedure procedure = reinterpret_cast<Procedure>(&contract::CallAnswer);
  EXPECT_NE(FindProcedure(RawModule{}, "ContractAnswer", procedure), kSuccess);
  EXPECT_EQ(procedure, nullptr);
}

TEST_F(Modules, ALibraryStaysLoadedUntilItsLastReferenceIsGone) {
  EXPECT_EQ(Loaded(path_), RawModule{});
  Module first;
  ASSERT_EQ(LoadModule(path_.c_str(), first), kSuccess);
  Module second;
  ASSERT_EQ(LoadModule(path_.c_str(), second), kSuccess);
  EXPECT_EQ(first.Get(), second.Get());
  first.Reset();
  EXPECT_EQ(Loaded(path_), second.Get());
  second.Reset();
  EXPECT_EQ(Loaded(path_), RawModule{});
}

TEST_F(Modules, ALoadedLibraryIsFoundByItsFileNameWithoutAReference) {
  const std::u16string name = path_.substr(path_.find_last_of(u"\\/") + 1);
  EXPECT_EQ(Loaded(name), RawModule{});
  Module module;
  ASSERT_EQ(LoadModule(path_.c_str(), module), kSuccess);
  EXPECT_EQ(Loaded(name), module.Get());
  EXPECT_EQ(Loaded(name), module.Get());
  module.Reset();
  EXPECT_EQ(Loaded(name), RawModule{});
}

TEST_F(Modules, ABareNameLoadsTheLibraryOfThatNameThatIsLoadedAlready) {
  const std::u16string name = path_.substr(path_.find_last_of(u"\\/") + 1);
  Module module;
  EXPECT_EQ(LoadModule(name.c_str(), module), kModuleNotFound);
  Module loaded;
  ASSERT_EQ(LoadModule(path_.c_str(), loaded), kSuccess);
  ASSERT_EQ(LoadModule(name.c_str(), module), kSuccess);
  EXPECT_EQ(module.Get(), loaded.Get());
  loaded.Reset();
  EXPECT_EQ(Loaded(path_), module.Get()) << "the bare name has taken no reference";
}

TEST_F(Modules, WhatDoesNotLoadLeavesNothingOwned) {
  const std::pair<const char*, std::u16string> cases[] = {
      {"a missing file", path_ + u".missing.dll"},
      {"a missing folder", u"C:\\no\\such\\folder\\library.dll"},
      {"a bare name that nothing has", u"zentpost-no-such-library.dll"},
      {"nothing", u""},
      {"a drive", u"C:"},
      {"a file that is no library", contract::BrokenLibraryPath()},
  };
  for (const auto& [name, path] : cases) {
    SCOPED_TRACE(name);
    Module module;
    ASSERT_EQ(LoadModule(path_.c_str(), module), kSuccess);
    EXPECT_NE(LoadModule(path.c_str(), module), kSuccess);
    EXPECT_FALSE(module);
    EXPECT_EQ(Loaded(path_), RawModule{}) << "what was held before was not let go";
  }
}

TEST_F(Modules, TheSystemDirectoryHasNoSeparatorAtItsEnd) {
  const std::u16string expected = contract::SystemDirectoryPath();
  std::u16string buffer(1000, u'x');
  std::uint32_t length = 0;
  ASSERT_EQ(SystemDirectory(1000, buffer.data(), length), kSuccess);
  EXPECT_EQ(length, expected.size());
  EXPECT_EQ(std::u16string(buffer.c_str()), expected);
  EXPECT_NE(expected.back(), u'\\');
  EXPECT_NE(expected.back(), u'/');
}

TEST_F(Modules, TheSystemDirectorySaysHowMuchRoomItNeeds) {
  const auto size = static_cast<std::uint32_t>(contract::SystemDirectoryPath().size());
  std::u16string buffer(1000, u'x');
  for (const std::uint32_t capacity : {size + 1, size + 2}) {
    std::uint32_t length = 0;
    EXPECT_EQ(SystemDirectory(capacity, buffer.data(), length), kSuccess);
    EXPECT_EQ(length, size) << "with room for " << capacity;
  }
  for (const std::uint32_t capacity : {size, size - 1, 1u}) {
    std::uint32_t length = 0;
    EXPECT_EQ(SystemDirectory(capacity, buffer.data(), length), kSuccess);
    EXPECT_EQ(length, size + 1) << "with room for " << capacity;
  }
}

TEST_F(Modules, VariablesAreExpanded) {
  contract::SetVariable(u"ZENTPOST_FOLDER", u"C:\\Ünicode \u65e5");
  contract::SetVariable(u"ZENTPOST_NESTED", u"%ZENTPOST_FOLDER%");
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"", u""},
      {u"plain", u"plain"},
      {u"%ZENTPOST_FOLDER%", u"C:\\Ünicode \u65e5"},
      {u"%ZENTPOST_FOLDER%\\a.dll", u"C:\\Ünicode \u65e5\\a.dll"},
      {u"a %ZENTPOST_FOLDER%%ZENTPOST_FOLDER%", u"a C:\\Ünicode \u65e5C:\\Ünicode \u65e5"},
      {u"%ZENTPOST_NESTED%", u"%ZENTPOST_FOLDER%"},
      {u"%ZENTPOST_MISSING%", u"%ZENTPOST_MISSING%"},
      {u"%ZENTPOST_MISSING%%ZENTPOST_FOLDER%", u"%ZENTPOST_MISSING%C:\\Ünicode \u65e5"},
      {u"%", u"%"},
      {u"%%", u"%%"},
      {u"100%", u"100%"},
      {u"50% of %ZENTPOST_FOLDER", u"50% of %ZENTPOST_FOLDER"},
  };
  int number = 0;
  for (const auto& [source, expected] : cases) {
    SCOPED_TRACE("case " + std::to_string(number++));
    const auto needed = static_cast<std::uint32_t>(expected.size() + 1);
    std::u16string buffer(expected.size() + 1, u'x');
    std::uint32_t length = 0;
    EXPECT_EQ(ExpandEnvironment(source.c_str(), buffer.data(), needed, length), kSuccess);
    EXPECT_EQ(length, needed);
    EXPECT_TRUE(expected == buffer.c_str());

    length = 0;
    EXPECT_EQ(ExpandEnvironment(source.c_str(), buffer.data(), needed - 1, length), kSuccess);
    EXPECT_EQ(length, needed) << "without room for the terminator";
  }
}

}  // namespace
}  // namespace platform
