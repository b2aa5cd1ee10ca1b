#include "mapiload/system_libraries.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mapiload/process_state.h"
#include "mapiload/trace.h"
#include "testing/mapi_search.h"

namespace zentpost {
namespace {

using Lines = std::vector<std::string>;

class SystemLibraries : public test::MapiSearchTest {};

// --- the trace ---

TEST_F(SystemLibraries, TraceGoesToTheSinkThatItIsMeantFor) {
  MapiTrace(u"a %ws %p %d\n", {u"text", TraceHandle{}, 7u});
  MapiLoadTrace(u"b\n");
  EXPECT_EQ(Trace(), (Lines{R"(a %ws %p %d\n [text, null, 7])", R"(load: b\n)"}));
}

TEST_F(SystemLibraries, TraceOfEmptySinksIsSwallowed) {
  MapiTraceSink = nullptr;
  MapiTrace(u"a\n");
  MapiLoadTrace(u"b\n");
  MapiLoadTraceSink = nullptr;
  MapiLoadTrace(u"c\n");
  EXPECT_EQ(Trace(), Lines{R"(load: b\n)"});
}

// --- the system directory ---

TEST_F(SystemLibraries, TellsTheSystemDirectory) {
  EXPECT_EQ(GetSystemDirectory(), u"C:\\Windows\\system32");
  EXPECT_EQ(machine_.Calls(), Lines{"SystemDirectory(260)"});
  EXPECT_EQ(Trace(), (Lines{R"(Enter GetSystemDirectory\n)",
                            R"(Exit GetSystemDirectory: found %ws\n [C:\Windows\system32])"}));
}

TEST_F(SystemLibraries, AsksAgainWithMoreRoomForALongSystemDirectory) {
  for (const std::size_t length : {258u, 259u}) {
    machine_.SetSystemDirectory(std::u16string(length, u'd'));
    machine_.ClearCalls();
    EXPECT_EQ(GetSystemDirectory(), std::u16string(length, u'd'));
    EXPECT_EQ(machine_.Calls(), Lines{"SystemDirectory(260)"}) << length;
  }
  for (const std::size_t length : {260u, 261u, 518u, 519u}) {
    machine_.SetSystemDirectory(std::u16string(length, u'd'));
    machine_.ClearCalls();
    EXPECT_EQ(GetSystemDirectory(), std::u16string(length, u'd'));
    EXPECT_EQ(machine_.Calls(), (Lines{"SystemDirectory(260)", "SystemDirectory(520)"})) << length;
  }
  machine_.SetSystemDirectory(std::u16string(700, u'd'));
  machine_.ClearCalls();
  EXPECT_EQ(GetSystemDirectory(), std::u16string(700, u'd'));
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "SystemDirectory(520)", "SystemDirectory(780)"}));
}

TEST_F(SystemLibraries, TracesWhenTheSystemDirectoryCannotBeHad) {
  machine_.FailCallOf("SystemDirectory", 0, platform::kAccessDenied);
  EXPECT_EQ(GetSystemDirectory(), u"");
  EXPECT_EQ(machine_.Calls(), Lines{"SystemDirectory(260)"});
  EXPECT_EQ(Trace(), (Lines{R"(Enter GetSystemDirectory\n)",
                            R"(GetSystemDirectory: GetSystemDirectoryW failed with 0x%08X\n [5])",
                            R"(Exit GetSystemDirectory: found %ws\n [])"}));
}

// --- libraries of the system directory ---

TEST_F(SystemLibraries, LoadsFromTheSystemDirectoryByFullPath) {
  AddEmptyLibrary(kInstaller);
  const platform::Module library = LoadFromSystemDir(u"msi.dll");
  EXPECT_EQ(machine_.ModulePath(library.Get()), kInstaller);
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(C:\\Windows\\system32\\msi.dll)"}));
  EXPECT_EQ(
      Trace(),
      (Lines{R"(load: LoadFromSystemDir - loading "%ws"\n [msi.dll])",
             R"(Enter GetSystemDirectory\n)",
             R"(Exit GetSystemDirectory: found %ws\n [C:\Windows\system32])",
             R"(load: LoadFromSystemDir - loading from "%ws"\n [C:\Windows\system32\msi.dll])"}));
}

TEST_F(SystemLibraries, LoadsNothingWithoutAName) {
  EXPECT_FALSE(LoadFromSystemDir(u""));
  EXPECT_EQ(machine_.Calls(), Lines{});
  EXPECT_EQ(Trace(), Lines{});
}

TEST_F(SystemLibraries, GivesNothingWhenTheLibraryIsNotThere) {
  EXPECT_FALSE(LoadFromSystemDir(u"msi.dll"));
  EXPECT_EQ(machine_.CallsOf("LoadModule"), Lines{"LoadModule(C:\\Windows\\system32\\msi.dll)"});
}

TEST_F(SystemLibraries, AsksForTheSystemDirectoryOnceInAProcess) {
  EXPECT_FALSE(LoadFromSystemDir(u"a.dll"));
  machine_.SetSystemDirectory(u"D:\\elsewhere");
  EXPECT_FALSE(LoadFromSystemDir(u"b.dll"));
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(C:\\Windows\\system32\\a.dll)",
                   "LoadModule(C:\\Windows\\system32\\b.dll)"}));
}

TEST_F(SystemLibraries, DeliberatelyKeepsASystemDirectoryThatCouldNotBeHad) {
  machine_.FailCallOf("SystemDirectory", 0, platform::kAccessDenied);
  EXPECT_FALSE(LoadFromSystemDir(u"a.dll"));
  EXPECT_FALSE(LoadFromSystemDir(u"b.dll"));
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(\\a.dll)", "LoadModule(\\b.dll)"}));
}

TEST_F(SystemLibraries, ForgettingGivesWhatIsKeptBack) {
  EXPECT_FALSE(LoadFromSystemDir(u"a.dll"));
  ForgetMapiLoading();
  machine_.SetSystemDirectory(u"D:\\elsewhere");
  EXPECT_FALSE(LoadFromSystemDir(u"b.dll"));
  EXPECT_EQ(machine_.CallsOf("LoadModule"), (Lines{"LoadModule(C:\\Windows\\system32\\a.dll)",
                                                   "LoadModule(D:\\elsewhere\\b.dll)"}));
}

// --- functions bound when they are needed ---

TEST_F(SystemLibraries, AsksTheInstallerWithTheArgumentsPassedOn) {
  AddComponent(u"{A}", u"outlook.exe", u"C:\\Office\\OUTLOOK.EXE");
  std::uint32_t count = 99;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"outlook.exe", 0, nullptr, &count), 0u);
  EXPECT_EQ(count, 21u);
  char16_t path[30];
  count = 30;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"outlook.exe", 0, path, &count), 0u);
  EXPECT_EQ(std::u16string(path), u"C:\\Office\\OUTLOOK.EXE");
  EXPECT_EQ(ProvideQualifiedComponent(u"{B}", u"outlook.exe", 0, nullptr, &count), 1607u);
  EXPECT_EQ(InstallerQuestions(),
            (Lines{"{A}, outlook.exe, 0, size 99", "{A}, outlook.exe, 0, fetch 30",
                   "{B}, outlook.exe, 0, size 21"}));
}

TEST_F(SystemLibraries, DeliberatelyPassesInstallMode0WhateverIsAskedFor) {
  AddInstaller();
  std::uint32_t count = 0;
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0xFFFFFFFF, nullptr, &count));
  EXPECT_EQ(InstallerQuestions(), Lines{"{A}, b, 0, size 0"});
}

TEST_F(SystemLibraries, BindsTheInstallerOnce) {
  AddInstaller();
  std::uint32_t count = 0;
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(C:\\Windows\\system32\\msi.dll)",
                   "FindProcedure(C:\\Windows\\system32\\msi.dll, MsiProvideQualifiedComponentW)",
                   "FindProcedure(C:\\Windows\\system32\\msi.dll, MsiSetInternalUI)"}));
  EXPECT_EQ(machine_.ModuleReferences(kInstaller), 1u);
  EXPECT_EQ(InstallerQuestions().size(), 2u);
}

TEST_F(SystemLibraries, TriesAgainToLoadAnInstallerThatIsMissing) {
  std::uint32_t count = 7;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 0x80004005u);
  EXPECT_EQ(count, 7u);
  EXPECT_EQ(machine_.CallsOf("FindProcedure"), Lines{});
  AddInstaller();
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 1607u);
  EXPECT_EQ(machine_.CallsOf("LoadModule").size(), 2u);
}

TEST_F(SystemLibraries, LooksAgainForAMissingExportWithoutLoadingAgain) {
  AddEmptyLibrary(kInstaller);
  std::uint32_t count = 7;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 0x80004005u);
  ClearTrace();
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 0x80004005u);
  EXPECT_EQ(Trace(), Lines{"load: LoadProc: failed to load \"%ws\" from \"%ws\"\\n "
                           "[MsiProvideQualifiedComponentW, msi.dll]"});
  AddInstaller();
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 1607u);
  EXPECT_EQ(machine_.CallsOf("LoadModule").size(), 1u);
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 4u);
}

TEST_F(SystemLibraries, TellsTheInstallerOnceToShowNothingBeforeItIsAsked) {
  AddInstaller();
  std::uint32_t count = 0;
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  EXPECT_EQ(InstallerSettings(), Lines{"2, no window, 0"});
  ClearTrace();
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  EXPECT_EQ(InstallerSettings(), Lines{"2, no window, 0"});
  EXPECT_EQ(InstallerQuestions().size(), 2u);
  EXPECT_EQ(Trace(), Lines{});
}

TEST_F(SystemLibraries, TellsAnInstallerNothingThatCannotBeAsked) {
  machine_.AddModule(kInstaller, {{"MsiSetInternalUI", nullptr}});
  std::uint32_t count = 0;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 0x80004005u);
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 1u);
}

TEST_F(SystemLibraries, AsksAnInstallerThatCannotBeToldAllTheSameAndWithoutATrace) {
  AddTalkativeInstaller();
  std::uint32_t count = 0;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 1607u);
  }
  EXPECT_EQ(InstallerQuestions().size(), 2u);
  EXPECT_EQ(machine_.CallsOf("LoadModule").size(), 1u);
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 2u);
  EXPECT_EQ(Trace().back(),
            R"(load: LoadFromSystemDir - loading from "%ws"\n [C:\Windows\system32\msi.dll])");
}

TEST_F(SystemLibraries, AsksTheInstallerWhenItsFunctionCannotBeLookedUp) {
  AddInstaller();
  machine_.FailCallOf("FindProcedure", 1, platform::kGeneralFailure);
  std::uint32_t count = 0;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 1607u);
  }
  EXPECT_TRUE(machine_.FaultTaken());
  EXPECT_EQ(InstallerSettings(), Lines{});
  EXPECT_EQ(machine_.CallsOf("FindProcedure").size(), 2u);
}

TEST_F(SystemLibraries, TakesAnExportWithoutAnAddressForAMissingOne) {
  machine_.AddModule(kInstaller, {{"MsiProvideQualifiedComponentW", nullptr}});
  std::uint32_t count = 7;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 0x80004005u);
  EXPECT_EQ(Trace().back(),
            "load: LoadProc: failed to load \"%ws\" from \"%ws\"\\n "
            "[MsiProvideQualifiedComponentW, msi.dll]");
}

TEST_F(SystemLibraries, BindsTheModuleHandleFunctionOfTheKernel) {
  EXPECT_NE(BindModuleHandleEx(), nullptr);
  EXPECT_NE(BindModuleHandleEx(), nullptr);
  EXPECT_EQ(machine_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(C:\\Windows\\system32\\kernel32.dll)",
                   "FindProcedure(C:\\Windows\\system32\\kernel32.dll, GetModuleHandleExW)"}));
}

TEST_F(SystemLibraries, HasNoModuleHandleFunctionWhereTheKernelLacksIt) {
  AddEmptyLibrary(kKernel);
  EXPECT_EQ(BindModuleHandleEx(), nullptr);
  EXPECT_EQ(Trace().back(),
            "load: LoadProc: failed to load \"%ws\" from \"%ws\"\\n [GetModuleHandleExW, "
            "kernel32.dll]");
}

}  // namespace
}  // namespace zentpost
