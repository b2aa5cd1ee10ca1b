// The nine functions, called in a library that was found on a real machine.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/mapi_search/machine.h"

namespace zentpost::mapi_search {
namespace {

using Texts = std::vector<std::string>;

struct Function {
  std::string name;
  std::string called;       // the result, and what the library saw
  std::string unavailable;  // the result when there is nothing to call
};

const std::vector<Function>& Functions() {
  static const std::vector<Function> functions = {
      {"MAPIInitialize", "0x00001001 <- MAPIInitialize 11", "0x80004005"},
      {"MAPILogonEx", "0x00001002 <- MAPILogonEx 21 22 24 80000023 28", "0x80004005"},
      {"MAPIOpenFormMgr", "0x00001003 <- MAPIOpenFormMgr 30 38", "0x80004005"},
      {"MAPIAdminProfiles", "0x00001004 <- MAPIAdminProfiles 41 48", "0x80004005"},
      {"HrQueryAllRows", "0x00001005 <- HrQueryAllRows 50 54 58 5c ffffffff 60", "0x80004005"},
      {"FreeProws", "none <- FreeProws 70", "none"},
      {"FreePadrlist", "none <- FreePadrlist 80", "none"},
      {"MAPIAllocateBuffer", "0x00001008 <- MAPIAllocateBuffer 91 98", "0x80004005"},
      {"MAPIFreeBuffer", "0x00001009 <- MAPIFreeBuffer a0", "0x00000000"},
  };
  return functions;
}

Texts CallAll() {
  Texts steps;
  for (const Function& function : Functions()) {
    steps.push_back("call=" + function.name);
  }
  return steps;
}

Texts ResultsWithout(const std::string& lacking) {
  Texts results;
  for (const Function& function : Functions()) {
    results.push_back(function.name == lacking ? function.unavailable + " <- nothing"
                                               : function.called);
  }
  return results;
}

TEST(EntryPoints, CallTheClientsLibrary) {
  Machine machine;
  machine.SetDefaultMailClient(kClient);
  machine.SetMailClientText(kClient, registry::kExtendedLibrary,
                            machine.Put("stand_in", "client.dll"));
  // Twice: the first call binds, the second one does not.
  Texts steps = CallAll();
  const Texts again = CallAll();
  steps.insert(steps.end(), again.begin(), again.end());
  Texts expected = ResultsWithout("");
  const Texts expected_again = expected;
  expected.insert(expected.end(), expected_again.begin(), expected_again.end());
  const Texts lines = machine.Search(steps);
  EXPECT_EQ(Lines(lines, "call"), expected);
  EXPECT_EQ(Tried(lines).size(), 1u);
}

TEST(EntryPoints, DoWithoutAFunctionThatTheLibraryLacks) {
  for (const Function& function : Functions()) {
    Machine machine;
    machine.SetDefaultMailClient(kClient);
    machine.SetMailClientText(kClient, registry::kExtendedLibrary,
                              machine.Put("lacks_" + function.name, "client.dll"));
    const Texts lines = machine.Search(CallAll());
    EXPECT_EQ(Lines(lines, "call"), ResultsWithout(function.name)) << function.name;
  }
}

TEST(EntryPoints, SearchAtEveryCallUntilALibraryIsFound) {
  Machine machine;
  if (!machine.HideSystemLibraries()) {
    GTEST_SKIP() << "this system cannot do without its own library";
  }
  const Texts lines = machine.Search(CallAll());
  Texts expected;
  for (const Function& function : Functions()) {
    expected.push_back(function.unavailable + " <- nothing");
  }
  EXPECT_EQ(Lines(lines, "call"), expected);
  EXPECT_EQ(Tried(lines).size(), Functions().size());
}

TEST(EntryPoints, BindAgainWhenALibraryWasInstalled) {
  Machine machine;
  const std::string lacking = machine.Put("lacks_MAPIInitialize", "lacking.dll");
  const std::string whole = machine.Put("stand_in", "whole.dll");
  const Texts lines = machine.Search({"install=" + lacking, "call=MAPIInitialize", "clear",
                                      "install=" + whole, "call=MAPIInitialize"});
  EXPECT_EQ(Lines(lines, "call"),
            (Texts{"0x80004005 <- nothing", "0x00001001 <- MAPIInitialize 11"}));
}

}  // namespace
}  // namespace zentpost::mapi_search
