// A mail client of 32 bits whose library exports its functions under the linker's names alone.
#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

namespace fs = std::filesystem;

using DecoratedClient = JobTest;

TEST_F(DecoratedClient, GetsTheJob) {
  if (!Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not choose the machine's mail client";
  }
  // The program registers the library beside it.
  const fs::path folder = machine_.Folder() / "client";
  const fs::path built = Setting("sandbox").parent_path();
  const fs::path program = folder / Setting("sandbox").filename();
  const fs::path mail = folder / "mail";
  fs::create_directories(folder);
  fs::copy_file(Setting("sandbox"), program);
  fs::copy_file(built / "decorated" / "sandbox_mapi.dll", folder / "sandbox_mapi.dll");
  ProcessOptions options = machine_.Options();
  options.environment.emplace_back("SANDBOX_MAPI_FOLDER", mail);
  const Job job = {.document = "letter.pdf", .receiver = "0301234567"};
  SetFile("job.json", job.File());
  SetFile("letter.pdf", "the document");

  ASSERT_EQ(RunProcess(program, {"register"}, options).exit_code, 0);
  const ToolRun run = Run({"job.json"}, options);
  ASSERT_EQ(RunProcess(program, {"unregister"}, options).exit_code, 0);

  EXPECT_EQ(run.exit_code, 0) << run.log;
  ExpectJobFile(test::WithSuccess(job.File()));
  EXPECT_FALSE(FileExists("letter.pdf"));
  const std::string report = ReadBytes(mail / "report.txt").value_or("no report");
  EXPECT_NE(report.find("result: no leaks, no double frees, no overruns\n"), std::string::npos)
      << report;
  EXPECT_NE(run.log.find(Info("SendMail(): Message sent successfully.")), std::string::npos)
      << run.log;
}

}  // namespace
}  // namespace zentpost::e2e
