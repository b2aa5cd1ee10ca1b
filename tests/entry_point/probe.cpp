// entry_point_probe STEP: the tool's own start-up around another application object. Steps:
//   nothing                   ends with kExitCode
//   init-instance             throws out of InitInstance
//   exit-instance             throws out of ExitInstance
//   worker                    throws out of a thread's procedure
//   noexcept                  throws out of a function that says it does not
//   settings                  writes ProcessSettings() to the file kSettingsFile
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/application.h"
#include "platform/worker.h"
#include "tests/entry_point/probe.h"

namespace zentpost::entry_point {
namespace {

[[noreturn]] void Throw() {
  throw std::runtime_error("nobody catches this");
}

void ThrowAllTheSame() noexcept {
  Throw();  // GCC warns of a throw that it sees, not of a call
}

class Probe : public platform::CWinApp {
 public:
  bool InitInstance() override {
    const std::u16string_view step = m_lpCmdLine;
    if (step == u"init-instance") {
      Throw();
    } else if (step == u"worker") {
      platform::Worker worker;
      return platform::StartWorker([](void*) -> std::uint32_t { Throw(); }, nullptr, worker) ==
                 platform::kSuccess &&
             platform::WaitForWorker(worker) == platform::kSuccess;
    } else if (step == u"noexcept") {
      ThrowAllTheSame();
    } else if (step == u"settings") {
      WriteSettings();
    }
    return true;
  }

  int ExitInstance() override {
    if (m_lpCmdLine == std::u16string_view(u"exit-instance")) {
      Throw();
    }
    return kExitCode;
  }

 private:
  static void WriteSettings() {
    std::FILE* const file = std::fopen(kSettingsFile, "wb");
    if (file != nullptr) {
      std::fputs(ProcessSettings().c_str(), file);
      std::fclose(file);
    }
  }
};

}  // namespace
}  // namespace zentpost::entry_point

platform::CWinApp& platform::Application() {
  static zentpost::entry_point::Probe probe;
  return probe;
}
