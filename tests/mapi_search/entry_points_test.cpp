// The nine functions, called in a library that was found on a real machine.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/call.h"
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
      {"MAPIInitialize", "0x00001001 <- MAPIInitialize(0x11)", "0x80004005"},
      {"MAPILogonEx", "0x00001002 <- MAPILogonEx(0x21, 0x22, 0x24, 0x80000023, 0x28)",
       "0x80004005"},
      {"MAPIOpenFormMgr", "0x00001003 <- MAPIOpenFormMgr(0x30, 0x38)", "0x80004005"},
      {"MAPIAdminProfiles", "0x00001004 <- MAPIAdminProfiles(0x41, 0x48)", "0x80004005"},
      {"HrQueryAllRows", "0x00001005 <- HrQueryAllRows(0x50, 0x54, 0x58, 0x5c, 0xffffffff, 0x60)",
       "0x80004005"},
      {"FreeProws", "none <- FreeProws(0x70)", "none"},
      {"FreePadrlist", "none <- FreePadrlist(0x80)", "none"},
      {"MAPIAllocateBuffer", "0x00001008 <- MAPIAllocateBuffer(0x91, 0x98)", "0x80004005"},
      {"MAPIFreeBuffer", "0x00001009 <- MAPIFreeBuffer(0xa0)", "0x00000000"},
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

Texts ResultsWithoutAny() {
  Texts results;
  for (const Function& function : Functions()) {
    results.push_back(function.unavailable + " <- nothing");
  }
  return results;
}

// The names of stand-ins that have all functions. In 32 bits libraries may export them under the
// linker's names too, or alone; where there are both, calling the linker's ends the process.
Texts WholeStandIns() {
  return PLATFORM_STDCALL_IS_DECORATED != 0 ? Texts{"stand_in", "decorated", "both_names"}
                                            : Texts{"stand_in"};
}

TEST(EntryPoints, CallTheClientsLibrary) {
  for (const std::string& stand_in : WholeStandIns()) {
    SCOPED_TRACE(stand_in);
    Machine machine;
    machine.SetDefaultMailClient(kClient);
    machine.SetMailClientText(kClient, registry::kExtendedLibrary,
                              machine.Put(stand_in, "client.dll"));
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
}

TEST(EntryPoints, DoWithoutAFunctionThatTheLibraryLacks) {
  for (const char* const lacking : {"MAPIInitialize", "FreePadrlist"}) {
    Machine machine;
    machine.SetDefaultMailClient(kClient);
    machine.SetMailClientText(kClient, registry::kExtendedLibrary,
                              machine.Put(std::string("lacks_") + lacking, "client.dll"));
    const Texts lines = machine.Search(CallAll());
    EXPECT_EQ(Lines(lines, "call"), ResultsWithout(lacking)) << lacking;
  }
}

// One without any name of any of them.
TEST(EntryPoints, DoWithoutFunctions) {
  Machine machine;
  machine.SetDefaultMailClient(kClient);
  machine.SetMailClientText(kClient, registry::kExtendedLibrary, machine.Put("stub", "client.dll"));
  EXPECT_EQ(Lines(machine.Search(CallAll()), "call"), ResultsWithoutAny());
}

TEST(EntryPoints, SearchAtEveryCallUntilALibraryIsFound) {
  Machine machine;
  if (!machine.HideSystemLibraries()) {
    GTEST_SKIP() << "this system cannot do without its own library";
  }
  const Texts lines = machine.Search(CallAll());
  EXPECT_EQ(Lines(lines, "call"), ResultsWithoutAny());
  EXPECT_EQ(Tried(lines).size(), Functions().size());
}

TEST(EntryPoints, BindAgainWhenALibraryWasInstalled) {
  Machine machine;
  const std::string lacking = machine.Put("lacks_MAPIInitialize", "lacking.dll");
  const std::string whole = machine.Put("stand_in", "whole.dll");
  const Texts lines = machine.Search({"install=" + lacking, "call=MAPIInitialize", "clear",
                                      "install=" + whole, "call=MAPIInitialize"});
  EXPECT_EQ(Lines(lines, "call"),
            (Texts{"0x80004005 <- nothing", "0x00001001 <- MAPIInitialize(0x11)"}));
}

}  // namespace
}  // namespace zentpost::mapi_search
