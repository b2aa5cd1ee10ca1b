// The application object: does the whole job in its start-up hook and ends the process with the
// job's outcome. Never opens a window.
#pragma once

#include "app/job_parameters.h"
#include "platform/application.h"

namespace zentpost {

class CAmbroluxPrintSendApp : public platform::CWinApp {
 public:
  // Parses the command line, logs it and delivers the job. Always false: there is nothing to wait
  // for. Does not throw: whatever comes out of the job, it was then not delivered.
  bool InitInstance() override;

  // 0 when the job was delivered, 1 when it was not.
  int ExitInstance() override;

  // Where the job is kept as it was understood, for who looks on; null: nowhere.
  JobParameters* m_pSeenJob = nullptr;

 private:
  void DeliverJob();

  bool m_bJobSucceeded = false;
};

}  // namespace zentpost
