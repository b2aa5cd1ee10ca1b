// The nine functions, called in a library that was found on a real machine.
#include "testing/entry_points.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/call.h"
#include "tests/mapi_search/machine.h"

namespace zentpost::mapi_search {
namespace {

using Texts = std::vector<std::string>;

// Calls all functions twice, of which the first time binds, in the library of this name.
void ExpectCalls(const std::string& library, bool (*is_reached)(const std::string& name)) {
  SCOPED_TRACE(library);
  Machine machine;
  machine.SetClient(registry::kExtendedLibrary, machine.Put(library, "client.dll"));
  Texts steps;
  Texts expected;
  for (int round = 0; round < 2; ++round) {
    for (const test::EntryPoint& entry : test::kEntryPoints) {
      const bool reached = is_reached(entry.name);
      steps.push_back(std::string("call=") + entry.name);
      expected.push_back(std::to_string(reached ? entry.result : entry.unavailable) + " <- " +
                         (reached ? entry.reached : "nothing"));
    }
  }
  const Texts lines = machine.Search(steps);
  EXPECT_EQ(Lines(lines, "call"), expected);
  EXPECT_EQ(Lines(lines, "tried").size(), 1u);
}

// In 32 bits libraries may export them under the linker's names too, or alone; where there are
// both, calling the linker's ends the process.
TEST(EntryPoints, CallTheClientsLibrary) {
  for (const std::string& library : PLATFORM_STDCALL_IS_DECORATED != 0
                                        ? Texts{"fake_library", "decorated", "both_names"}
                                        : Texts{"fake_library"}) {
    ExpectCalls(library, [](const std::string&) { return true; });
  }
}

TEST(EntryPoints, DoWithoutFunctionsThatTheLibraryLacks) {
  ExpectCalls("lacks_two", [](const std::string& name) {
    return name != "MAPIInitialize" && name != "FreePadrlist";
  });
  ExpectCalls("stub", [](const std::string&) { return false; });
}

}  // namespace
}  // namespace zentpost::mapi_search
