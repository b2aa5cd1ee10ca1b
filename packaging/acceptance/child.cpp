#include "packaging/acceptance/child.h"

#include <windows.h>

#include "platform/unique_handle.h"

namespace zentpost::acceptance {
namespace {

struct HandleTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using Handle = platform::UniqueHandle<HandleTraits>;

// Set once and never closed: the system's thread that tells of an interrupt uses them.
HANDLE interrupted = nullptr;
HANDLE finished = nullptr;

BOOL WINAPI HandleInterrupt(DWORD event) {
  SetEvent(interrupted);
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
    // The process ends when this returns.
    WaitForSingleObject(finished, INFINITE);
  }
  return TRUE;
}

Handle OpenInheritable(const wchar_t* path, DWORD access, DWORD creation) {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const HANDLE file =
      CreateFileW(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  &inheritable, creation, FILE_ATTRIBUTE_NORMAL, nullptr);
  return Handle(file == INVALID_HANDLE_VALUE ? nullptr : file);
}

// Ends what is in it when its last handle is closed, which is when this process ends.
Handle MakeJob() {
  Handle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

}  // namespace

void TakeInterrupts() {
  interrupted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  finished = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  SetConsoleCtrlHandler(HandleInterrupt, TRUE);
}

bool IsInterrupted() {
  return WaitForSingleObject(interrupted, 0) == WAIT_OBJECT_0;
}

void FinishAfterInterrupt() {
  SetEvent(finished);
}

ChildEnd RunChild(const std::filesystem::path& program, const std::vector<std::wstring>& arguments,
                  const std::filesystem::path& folder, const std::filesystem::path& output,
                  std::chrono::seconds patience, Interrupts interrupts) {
  ChildEnd end;
  const auto begin = std::chrono::steady_clock::now();
  const auto not_started = [&] {
    end.how = ChildEnd::How::kNotStarted;
    end.code = GetLastError();
    return end;
  };
  const Handle input = OpenInheritable(L"NUL", GENERIC_READ, OPEN_EXISTING);
  const Handle printed = OpenInheritable(output.c_str(), GENERIC_WRITE, CREATE_ALWAYS);
  if (!input || !printed) {
    return not_started();
  }
  std::wstring line = L'"' + program.wstring() + L'"';
  for (const std::wstring& argument : arguments) {
    // In quotation marks zentpost_doctor's options are none.
    const bool is_plain = argument.find_first_of(L" *?") == std::wstring::npos;
    line.append(is_plain ? L" " + argument : L" \"" + argument + L'"');
  }
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input.Get();
  startup.hStdOutput = printed.Get();
  startup.hStdError = printed.Get();
  PROCESS_INFORMATION information = {};
  // Ctrl-C is this program's alone, and the child is in the job before it starts anything. The
  // closing of the console ends what is on it: what is waited for has one of its own.
  const DWORD console = interrupts == Interrupts::kWait ? CREATE_NO_WINDOW : 0;
  if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                     CREATE_SUSPENDED | CREATE_NEW_PROCESS_GROUP | console, nullptr, folder.c_str(),
                     &startup, &information) == 0) {
    return not_started();
  }
  const Handle process(information.hProcess);
  const Handle thread(information.hThread);
  const Handle job = MakeJob();
  // On Windows 7 a process that is in somebody's job already stays there alone; it is then ended
  // without what it has started.
  const bool is_in_job = AssignProcessToJobObject(job.Get(), process.Get()) != 0;
  ResumeThread(thread.Get());

  const HANDLE both[] = {process.Get(), interrupted};
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(patience);
  const DWORD waited = WaitForMultipleObjects(interrupts == Interrupts::kEndIt ? 2 : 1, both, FALSE,
                                              static_cast<DWORD>(milliseconds.count()));
  if (waited != WAIT_OBJECT_0) {
    end.how = waited == WAIT_TIMEOUT ? ChildEnd::How::kTimedOut : ChildEnd::How::kInterrupted;
    if (!is_in_job || TerminateJobObject(job.Get(), 1) == 0) {
      TerminateProcess(process.Get(), 1);
    }
    WaitForSingleObject(process.Get(), 10000);
  }
  GetExitCodeProcess(process.Get(), &end.code);
  end.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return end;
}

}  // namespace zentpost::acceptance
