#include "app/application.h"

#include "app/command_line.h"
#include "app/dispatch.h"
#include "diag/log_file.h"
#include "platform/sockets.h"
#include "platform/system.h"

namespace zentpost {
namespace {

constexpr std::uint32_t kWin95Classes = 0xFF;  // ICC_WIN95_CLASSES (commctrl.h)
constexpr std::uint16_t kWinsockVersion22 = 0x0202;

}  // namespace

bool CAmbroluxPrintSendApp::InitInstance() {
  platform::InitializeCommonControls(kWin95Classes);
  CWinApp::InitInstance();
  // A failure shows soon enough: no add-in can then be reached.
  const bool has_sockets = platform::StartSockets(kWinsockVersion22) == platform::kSuccess;
  try {
    DeliverJob();
  } catch (...) {
    // Memory that ran out before a route had begun, and whatever nobody has thought of.
    m_bJobSucceeded = false;
  }
  if (has_sockets) {
    platform::EndSockets();
  }
  return false;
}

int CAmbroluxPrintSendApp::ExitInstance() {
  CWinApp::ExitInstance();
  return m_bJobSucceeded ? 0 : 1;
}

void CAmbroluxPrintSendApp::DeliverJob() {
  JobParameters job;
  JobParameters& params = m_pSeenJob != nullptr ? *m_pSeenJob : job;
  ParseCommandLine(params, m_lpCmdLine);
  // After the parsing, so that what the job file reader logs stands before it.
  LogInfo(u"StartZentpost(): %s", m_lpCmdLine);
  m_bJobSucceeded = DispatchJob(params);
}

}  // namespace zentpost
