// A user without any folder for application data. On Windows such a user's profile would have to be
// broken for it; here it takes two variables.
#include "testing/end_to_end/job_test.h"

namespace zentpost::e2e {
namespace {

class FallbackLog : public JobTest {};

TEST_F(FallbackLog, LogIsInTheFolderForTemporaryFilesWhenThereIsNoOther) {
  machine_.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kLogLevel, 1);
  ProcessOptions options = machine_.Options();
  std::erase_if(options.environment,
                [](const auto& entry) { return entry.first == "XDG_DATA_HOME"; });
  options.environment.emplace_back("XDG_DATA_HOME", std::nullopt);
  options.environment.emplace_back("HOME", std::nullopt);

  const ToolRun run = Run({}, options);

  EXPECT_EQ(run.exit_code, 1);
  ExpectLog(run, Started("") + NoMapiLines({}));
  const std::string file = ReadBytes(machine_.TemporaryFolder() / "zentpost.log").value_or("");
  ASSERT_GT(file.size(), 19U);
  EXPECT_TRUE(file.substr(19).starts_with(" - INFO   : StartZentpost(): \r\n"));
}

}  // namespace
}  // namespace zentpost::e2e
