// The fixture of tests that run whole jobs: the fake platform and the fake mail client as a
// Situation has them, and the application on top of them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/application.h"
#include "mapiload/process_state.h"
#include "testing/fake_mapi.h"
#include "testing/fake_platform/fake_platform.h"
#include "testing/fake_platform/fixture.h"
#include "testing/job_model.h"
#include "testing/log_lines.h"
#include "testing/outcomes.h"

namespace zentpost::test {

// `situation` with a mail client and no add-in.
inline Situation ByMail(Situation situation) {
  situation.has_port = false;
  situation.has_mail_client = true;
  return situation;
}

// Jobs that reach the mail client.
inline const Situation kWithMailClient[] = {
    ByMail({.name = "submitted"}),
    ByMail({.name = "submitted with address automation", .is_automatic = true}),
    ByMail({.name = "submitted with an unusual document",
            .source_name = "Letter.pdf.xyz",
            .has_file_type = true}),
    ByMail({.name = "submitted to a plain client", .has_shutdown = false, .is_online = false}),
    ByMail({.name = "shown", .preview = true}),
    ByMail({.name = "shown without a recipient", .receiver = ""}),
    ByMail({.name = "submitted from the command line", .on_command_line = true}),
    {.name = "submitted when the add-in refuses", .connections = 1, .has_mail_client = true},
};

class WholeJobTest : public platform::fake::FakePlatformTest {
 protected:
  ~WholeJobTest() override { ForgetMapiLoading(); }

  // On a fake platform that is fresh already.
  void SetUpJob(const Situation& situation) {
    ForgetMapiLoading();
    mapi_ = std::make_unique<FakeMapi>();
    mapi_->has_shutdown = situation.has_shutdown;
    mapi_->failures_leave_garbage = failures_leave_garbage_;
    if (!situation.is_online) {
      mapi_->Answer("IMAPISession::OpenMsgStore", 0, MAPI_E_NOT_FOUND);
    }
    if (situation.has_mail_client) {
      FakeMapi::Install();
    }
    SetUpMachine(situation);
    job_file_before_ = fake_.FileBytes(kJobPath);
  }

  void StartOver(const Situation& situation) {
    fake_.Reset();
    SetUpJob(situation);
  }

  // A job, which has to end in one of the ways that are known.
  void RunJob(const Situation& situation) {
    RunUnchecked(situation);
    EXPECT_EQ(OutcomeProblem(SeenOutcomes()), "");
  }
  void RunUnchecked(const Situation& situation) {
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = CommandLineOf(situation);
    EXPECT_FALSE(application.InitInstance());
    exit_code_ = application.ExitInstance();
  }
  [[nodiscard]] std::vector<SeenOutcome> SeenOutcomes() const {
    return ReadOutcome(exit_code_, LogText(), job_file_before_, fake_.FileBytes(kJobPath));
  }

  // Whatever happened, the document is there byte for byte, or an attachment that was saved holds
  // it.
  void ExpectDocumentIsKept() const {
    const std::optional<std::string> bytes = fake_.FileBytes(kDocumentPath);
    EXPECT_EQ(bytes ? std::vector{*bytes} : mapi_->SavedAttachments(),
              std::vector<std::string>{kDocumentBytes});
  }

  std::unique_ptr<FakeMapi> mapi_;
  std::optional<std::string> job_file_before_;
  bool failures_leave_garbage_ = false;
  int exit_code_ = -1;
};

}  // namespace zentpost::test
