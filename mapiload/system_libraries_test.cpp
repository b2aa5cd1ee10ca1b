// What a search takes of the system, beyond what search_fault_test.cpp shows of it.
#include "mapiload/system_libraries.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/mapi_search.h"

namespace zentpost {
namespace {

using Lines = std::vector<std::string>;
using SystemLibraries = test::MapiSearchTest;

TEST_F(SystemLibraries, AsksAgainWithMoreRoomForALongSystemDirectory) {
  const Lines questions = {"SystemDirectory(260)", "SystemDirectory(520)", "SystemDirectory(780)"};
  for (const auto& [length, asked] :
       {std::pair(19u, 1), std::pair(258u, 1), std::pair(259u, 1), std::pair(260u, 2),
        std::pair(261u, 2), std::pair(518u, 2), std::pair(519u, 2), std::pair(700u, 3)}) {
    fake_.SetSystemDirectory(std::u16string(length, u'd'));
    fake_.ClearCalls();
    EXPECT_EQ(GetSystemDirectory(), std::u16string(length, u'd'));
    EXPECT_EQ(fake_.Calls(), Lines(questions.begin(), questions.begin() + asked)) << length;
  }
}

TEST_F(SystemLibraries, LoadsNothingWithoutAName) {
  EXPECT_FALSE(LoadFromSystemDir(u""));
  EXPECT_EQ(fake_.Calls(), Lines{});
  EXPECT_EQ(seen_.trace, Lines{});
}

TEST_F(SystemLibraries, DeliberatelyKeepsASystemDirectoryThatCouldNotBeHad) {
  fake_.FailCallOf("SystemDirectory", 0, platform::kAccessDenied);
  EXPECT_FALSE(LoadFromSystemDir(u"a.dll"));
  EXPECT_FALSE(LoadFromSystemDir(u"b.dll"));
  EXPECT_EQ(fake_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(\\a.dll)", "LoadModule(\\b.dll)"}));
}

TEST_F(SystemLibraries, AsksTheInstallerWithTheArgumentsPassedOn) {
  std::uint32_t count = 7;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"outlook.exe", 0, nullptr, &count), 0x80004005u);
  EXPECT_EQ(count, 7u);
  AddComponent(u"{A}", u"outlook.exe", u"C:\\Office\\OUTLOOK.EXE");
  count = 99;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"outlook.exe", 0, nullptr, &count), 0u);
  EXPECT_EQ(count, 21u);
  char16_t path[30];
  count = 30;
  EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"outlook.exe", 0, path, &count), 0u);
  EXPECT_EQ(std::u16string(path), u"C:\\Office\\OUTLOOK.EXE");
  EXPECT_EQ(ProvideQualifiedComponent(u"{B}", u"outlook.exe", 0, nullptr, &count), 1607u);
  EXPECT_EQ(seen_.installer_questions,
            (Lines{"{A}, outlook.exe, 0, size 99", "{A}, outlook.exe, 0, fetch 30",
                   "{B}, outlook.exe, 0, size 21"}));
}

TEST_F(SystemLibraries, DeliberatelyPassesInstallMode0WhateverIsAskedFor) {
  AddInstaller();
  std::uint32_t count = 0;
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0xFFFFFFFF, nullptr, &count));
  EXPECT_EQ(seen_.installer_questions, Lines{"{A}, b, 0, size 0"});
}

TEST_F(SystemLibraries, TellsTheInstallerOnceToShowNothingBeforeItIsAsked) {
  AddInstaller();
  std::uint32_t count = 0;
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  static_cast<void>(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count));
  EXPECT_EQ(seen_.installer_settings, Lines{"2, no window, 0"});
  EXPECT_EQ(seen_.installer_questions.size(), 2u);
  EXPECT_EQ(fake_.Calls(),
            (Lines{"SystemDirectory(260)", "LoadModule(C:\\Windows\\system32\\msi.dll)",
                   "FindProcedure(C:\\Windows\\system32\\msi.dll, MsiProvideQualifiedComponentW)",
                   "FindProcedure(C:\\Windows\\system32\\msi.dll, MsiSetInternalUI)"}));
}

}  // namespace
}  // namespace zentpost
