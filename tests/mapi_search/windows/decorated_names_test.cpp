// Libraries of 32 bits that export their functions under the linker's names.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/mapi_search/machine.h"

namespace zentpost::mapi_search {
namespace {

using Texts = std::vector<std::string>;

struct Function {
  std::string name;
  std::string decorated;    // what a library says that has the linker's name alone
  std::string both;         // one that has both
  std::string unavailable;  // the result when there is neither
};

const std::vector<Function>& Functions() {
  static const std::vector<Function> functions = {
      {"MAPIInitialize", "0x00001001 <- MAPIInitialize 11", "0x00001005 <- plain 4", "0x80004005"},
      {"MAPILogonEx", "0x00001002 <- MAPILogonEx 21 22 24 80000023 28", "0x00001015 <- plain 20",
       "0x80004005"},
      {"MAPIOpenFormMgr", "0x00001003 <- MAPIOpenFormMgr 30 38", "0x00001009 <- plain 8",
       "0x80004005"},
      {"MAPIAdminProfiles", "0x00001004 <- MAPIAdminProfiles 41 48", "0x00001009 <- plain 8",
       "0x80004005"},
      {"HrQueryAllRows", "0x00001005 <- HrQueryAllRows 50 54 58 5c ffffffff 60",
       "0x00001019 <- plain 24", "0x80004005"},
      {"FreeProws", "none <- FreeProws 70", "none <- plain 4", "none"},
      {"FreePadrlist", "none <- FreePadrlist 80", "none <- plain 4", "none"},
      {"MAPIAllocateBuffer", "0x00001008 <- MAPIAllocateBuffer 91 98", "0x00001009 <- plain 8",
       "0x80004005"},
      {"MAPIFreeBuffer", "0x00001009 <- MAPIFreeBuffer a0", "0x00001005 <- plain 4", "0x00000000"},
  };
  return functions;
}

// What every function gives with this library as the mail client's.
Texts CallAll(const char* stand_in) {
  Machine machine;
  machine.SetDefaultMailClient(kClient);
  machine.SetMailClientText(kClient, registry::kExtendedLibrary,
                            machine.Put(stand_in, "client.dll"));
  Texts steps;
  for (const Function& function : Functions()) {
    steps.push_back("call=" + function.name);
  }
  return Lines(machine.Search(steps), "call");
}

TEST(DecoratedNames, AreFoundWhereThereAreNoPlainOnes) {
  Texts expected;
  for (const Function& function : Functions()) {
    expected.push_back(function.decorated);
  }
  EXPECT_EQ(CallAll("decorated"), expected);
}

TEST(DecoratedNames, ComeBehindThePlainOnes) {
  Texts expected;
  for (const Function& function : Functions()) {
    expected.push_back(function.both);
  }
  EXPECT_EQ(CallAll("both_names"), expected);
}

TEST(DecoratedNames, MayBeMissingToo) {
  Texts expected;
  for (const Function& function : Functions()) {
    expected.push_back(function.unavailable + " <- nothing");
  }
  EXPECT_EQ(CallAll("stub"), expected);
}

}  // namespace
}  // namespace zentpost::mapi_search
