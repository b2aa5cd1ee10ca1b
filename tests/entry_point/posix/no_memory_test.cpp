// Memory that runs out before there is an application object.
#include <gtest/gtest.h>

#include "tests/entry_point/entry_point_test.h"

namespace zentpost::entry_point {
namespace {

TEST_F(EntryPoint, EndsWith1WhenMemoryRunsOutWhileTheCommandLineIsRebuilt) {
  options_.environment = {{"ENTRY_POINT_PROBE_NO_MEMORY", "1"}};
  ExpectEndsWith1("nothing");
}

}  // namespace
}  // namespace zentpost::entry_point
