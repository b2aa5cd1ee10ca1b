#include "testing/end_to_end/process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>

#include "platform/unique_handle.h"
#include "testing/end_to_end/text.h"
#include "testing/end_to_end/windows/call_frame.h"
#include "testing/end_to_end/windows/raw_run.h"
#include "testing/end_to_end/windows/wide_text.h"

namespace zentpost::e2e {
namespace {

constexpr std::chrono::seconds kPatience{120};
constexpr unsigned char kBreakpointInstruction = 0xCC;  // int3
constexpr DWORD kPipeSize = 1 << 20;                    // more than anybody writes into one here

struct HandleTraits {
  using Value = HANDLE;
  static constexpr HANDLE kNone = nullptr;
  static void Close(HANDLE handle) noexcept { CloseHandle(handle); }
};
using Handle = platform::UniqueHandle<HandleTraits>;

[[noreturn]] void ThrowLastError(const char* call) {
  throw std::runtime_error(std::string(call) + " failed with " + std::to_string(GetLastError()));
}

// The environment as CreateProcessW wants it: sorted by name, with a zero behind each variable and
// one behind all. Names that begin with "=" are the drives' folders.
std::wstring EnvironmentBlock(const Environment& changes) {
  struct IgnoringCase {
    bool operator()(const std::wstring& left, const std::wstring& right) const {
      return CompareStringOrdinal(left.c_str(), -1, right.c_str(), -1, TRUE) == CSTR_LESS_THAN;
    }
  };
  std::map<std::wstring, std::wstring, IgnoringCase> variables;
  wchar_t* own = GetEnvironmentStringsW();
  for (const wchar_t* entry = own; *entry != L'\0';) {
    const std::wstring text = entry;
    entry += text.size() + 1;
    const std::size_t equals = text.find(L'=', 1);
    variables[text.substr(0, equals)] = text.substr(equals + 1);
  }
  FreeEnvironmentStringsW(own);
  for (const auto& [name, value] : changes) {
    if (value) {
      variables[Wide(name)] = value->wstring();
    } else {
      variables.erase(Wide(name));
    }
  }
  std::wstring block;
  for (const auto& [name, value] : variables) {
    block += name + L'=' + value + L'\0';
  }
  return block + L'\0';
}

struct Child {
  Handle process;
  Handle thread;
  DWORD id = 0;
};

// `input` and `output` have to be inheritable.
Child Start(const std::filesystem::path& program, std::wstring_view command_line,
            const ProcessOptions& options, HANDLE input, HANDLE output, DWORD flags) {
  std::wstring line = L'"' + program.wstring() + L'"';
  if (!command_line.empty()) {
    line.append(L" ").append(command_line);
  }
  std::wstring environment = EnvironmentBlock(options.environment);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input;
  startup.hStdOutput = output;
  startup.hStdError = output;
  PROCESS_INFORMATION information = {};
  if (CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                     flags | CREATE_UNICODE_ENVIRONMENT, environment.data(), options.folder.c_str(),
                     &startup, &information) == 0) {
    ThrowLastError("CreateProcessW");
  }
  Child child;
  child.process.Reset(information.hProcess);
  child.thread.Reset(information.hThread);
  child.id = information.dwProcessId;
  return child;
}

// A file without content that a child can have as its standard input, or lose its output in.
Handle OpenNothing() {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  const HANDLE file =
      CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  &inheritable, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    ThrowLastError("CreateFileW");
  }
  return Handle(file);
}

int ExitCodeOf(HANDLE process) {
  DWORD exit_code = 0;
  if (GetExitCodeProcess(process, &exit_code) == 0) {
    ThrowLastError("GetExitCodeProcess");
  }
  return static_cast<int>(exit_code);
}

// The zero-terminated wide text at `address`, read up to the page that cannot be read.
std::string ReadText(HANDLE process, const void* address) {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kMostPages = 256;
  std::u16string rest;
  std::string utf8;
  auto at = reinterpret_cast<std::uintptr_t>(address);
  std::vector<char16_t> buffer(kPage * kMostPages / sizeof(char16_t));
  std::size_t pages = 1;
  while (true) {
    // Whole pages behind the first, so that one that is missing is not met before the text's end.
    const std::size_t wanted = pages * kPage - at % kPage;
    SIZE_T read = 0;
    if (ReadProcessMemory(process, reinterpret_cast<const void*>(at), buffer.data(), wanted,
                          &read) == 0) {
      if (pages == 1) {
        return utf8 + "<unreadable>";
      }
      pages = 1;
      continue;
    }
    pages = std::min(pages * 2, kMostPages);
    at += read;
    rest.append(buffer.data(), read / sizeof(char16_t));
    const std::size_t end = rest.find(u'\0');
    if (end != std::u16string::npos) {
      return utf8 + Utf8(std::u16string_view(rest).substr(0, end));
    }
    // A surrogate pair may be cut in two here.
    const char16_t last = rest.back();
    rest.pop_back();
    utf8 += Utf8(rest);
    rest.assign(1, last);
  }
}

// Catches what a process says to its debugger. The system passes it on in the ANSI code page and
// cut, so the debugger stops the process where it speaks and reads the text there. The function
// itself is then left out: all that it does is to tell the debugger.
class Debugger {
 public:
  Debugger(const Child& child, const ProcessOptions& options, bool only_events)
      : child_(child), options_(options), only_events_(only_events) {}

  // Until the process has ended.
  void Serve(std::string& debug_output) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    bool is_ended = false;
    bool is_overdue = false;
    while (!is_ended) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      DEBUG_EVENT event = {};
      if (WaitForDebugEvent(&event, left.count() > 0 && !is_overdue
                                        ? static_cast<DWORD>(left.count())
                                    : is_overdue ? INFINITE
                                                 : 0) == 0) {
        ADD_FAILURE() << "the process did not end";
        TerminateProcess(child_.process.Get(), 1);
        is_overdue = true;
        continue;
      }
      is_ended = event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT;
      const DWORD answer = HandleEvent(event, debug_output);
      ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
    }
  }

 private:
  DWORD HandleEvent(const DEBUG_EVENT& event, std::string& debug_output) {
    switch (event.dwDebugEventCode) {
      case CREATE_PROCESS_DEBUG_EVENT:
        CloseIfThere(event.u.CreateProcessInfo.hFile);
        return DBG_CONTINUE;
      case LOAD_DLL_DEBUG_EVENT:
        CloseIfThere(event.u.LoadDll.hFile);
        return DBG_CONTINUE;
      case OUTPUT_DEBUG_STRING_EVENT:
        debug_output += ReadEvent(event.u.DebugString);
        return DBG_CONTINUE;
      case EXCEPTION_DEBUG_EVENT:
        return HandleException(event, debug_output);
      default:
        return DBG_CONTINUE;
    }
  }

  DWORD HandleException(const DEBUG_EVENT& event, std::string& debug_output) {
    const EXCEPTION_RECORD& exception = event.u.Exception.ExceptionRecord;
    if (exception.ExceptionCode != EXCEPTION_BREAKPOINT) {
      return DBG_EXCEPTION_NOT_HANDLED;
    }
    if (!has_started_) {
      // The system's own breakpoint: everything is loaded, and no code of the program has run.
      has_started_ = true;
      if (!only_events_) {
        SetBreakpoint();
      }
      return DBG_CONTINUE;
    }
    if (function_ == nullptr || exception.ExceptionAddress != function_) {
      return DBG_EXCEPTION_NOT_HANDLED;
    }
    TakeText(event.dwThreadId, debug_output);
    return DBG_CONTINUE;
  }

  // The libraries of the system lie at the same addresses in all processes of a session.
  void SetBreakpoint() {
    function_ = reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "OutputDebugStringW"));
    unsigned char code[16] = {};
    SIZE_T count = 0;
    if (ReadProcessMemory(child_.process.Get(), function_, code, sizeof code, &count) == 0 ||
        std::memcmp(code, function_, sizeof code) != 0 ||
        WriteProcessMemory(child_.process.Get(), function_, &kBreakpointInstruction, 1, &count) ==
            0 ||
        FlushInstructionCache(child_.process.Get(), function_, 1) == 0) {
      ADD_FAILURE() << "the process cannot be stopped where it speaks to its debugger";
      function_ = nullptr;
    }
  }

  void TakeText(DWORD thread_id, std::string& debug_output) {
    const Handle thread(OpenThread(THREAD_GET_CONTEXT | THREAD_SET_CONTEXT | THREAD_SUSPEND_RESUME,
                                   FALSE, thread_id));
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
    if (GetThreadContext(thread.Get(), &context) == 0) {
      ThrowLastError("GetThreadContext");
    }
    const std::string text =
        ReadText(child_.process.Get(), FirstArgument(child_.process.Get(), context));
    debug_output += text;
    if (options_.at_debug_output) {
      options_.at_debug_output(text);
    }
    if (!ReturnFromFunction(child_.process.Get(), context) ||
        SetThreadContext(thread.Get(), &context) == 0) {
      ThrowLastError("SetThreadContext");
    }
  }

  std::string ReadEvent(const OUTPUT_DEBUG_STRING_INFO& info) const {
    std::string text(info.nDebugStringLength, '\0');
    SIZE_T count = 0;
    ReadProcessMemory(child_.process.Get(), info.lpDebugStringData, text.data(), text.size(),
                      &count);
    text.resize(std::min<std::size_t>(text.find('\0'), count));
    return text;
  }

  static void CloseIfThere(HANDLE file) {
    if (file != nullptr && file != INVALID_HANDLE_VALUE) {
      CloseHandle(file);
    }
  }

  const Child& child_;
  const ProcessOptions& options_;
  const bool only_events_;
  bool has_started_ = false;
  void* function_ = nullptr;
};

struct Pipe {
  Pipe(bool inherit_read, bool inherit_write) {
    if (CreatePipe(read.Put(), write.Put(), nullptr, kPipeSize) == 0) {
      ThrowLastError("CreatePipe");
    }
    SetHandleInformation(read.Get(), HANDLE_FLAG_INHERIT, inherit_read ? HANDLE_FLAG_INHERIT : 0);
    SetHandleInformation(write.Get(), HANDLE_FLAG_INHERIT, inherit_write ? HANDLE_FLAG_INHERIT : 0);
  }
  Handle read;
  Handle write;
};

// What has been written to the pipe. Not all that will be: a process of the system's own that the
// program made start may hold the other end open for as long as it likes.
std::string ReadWhatIsThere(HANDLE pipe) {
  DWORD size = 0;
  if (PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) == 0 || size == 0) {
    return {};
  }
  std::string text(size, '\0');
  if (ReadFile(pipe, text.data(), size, &size, nullptr) == 0) {
    ThrowLastError("ReadFile");
  }
  text.resize(size);
  return text;
}

ProcessRun RunUnderDebugger(const std::filesystem::path& program, std::wstring_view command_line,
                            const ProcessOptions& options, bool only_events) {
  const Handle nothing = OpenNothing();
  Pipe output(false, true);

  ProcessRun run;
  const auto begin = std::chrono::steady_clock::now();
  const Child child = Start(program, command_line, options, nothing.Get(), output.write.Get(),
                            DEBUG_ONLY_THIS_PROCESS);
  Debugger(child, options, only_events).Serve(run.debug_output);
  WaitForSingleObject(child.process.Get(), INFINITE);
  run.exit_code = ExitCodeOf(child.process.Get());
  run.duration = std::chrono::steady_clock::now() - begin;
  run.printed = ReadWhatIsThere(output.read.Get());
  return run;
}

}  // namespace

bool DebuggerStopsProcess() {
  return true;
}

ProcessRun RunProcess(const std::filesystem::path& program,
                      const std::vector<std::string>& arguments, const ProcessOptions& options) {
  return RunUnderDebugger(program, Wide(CommandLineOf(arguments)), options, false);
}

ProcessRun RunRaw(const std::filesystem::path& program, std::u16string_view command_line,
                  const ProcessOptions& options) {
  return RunUnderDebugger(program, Wide(command_line), options, false);
}

ProcessRun RunRawWithDebugEvents(const std::filesystem::path& program,
                                 std::u16string_view command_line, const ProcessOptions& options) {
  return RunUnderDebugger(program, Wide(command_line), options, true);
}

ProcessRun RunWithoutDebugger(const std::filesystem::path& program,
                              const std::vector<std::string>& arguments,
                              const ProcessOptions& options) {
  const Handle nothing = OpenNothing();
  Pipe output(false, true);
  ProcessRun run;
  const auto begin = std::chrono::steady_clock::now();
  const Child child =
      Start(program, Wide(CommandLineOf(arguments)), options, nothing.Get(), output.write.Get(), 0);
  constexpr DWORD kMilliseconds = std::chrono::milliseconds(kPatience).count();
  if (WaitForSingleObject(child.process.Get(), kMilliseconds) == WAIT_TIMEOUT) {
    ADD_FAILURE() << "the process did not end";
    TerminateProcess(child.process.Get(), 1);
    WaitForSingleObject(child.process.Get(), INFINITE);
  }
  run.exit_code = ExitCodeOf(child.process.Get());
  run.duration = std::chrono::steady_clock::now() - begin;
  run.printed = ReadWhatIsThere(output.read.Get());
  return run;
}

int RunUnwatched(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const ProcessOptions& options) {
  const Handle nothing = OpenNothing();
  const Child child =
      Start(program, Wide(CommandLineOf(arguments)), options, nothing.Get(), nothing.Get(), 0);
  WaitForSingleObject(child.process.Get(), INFINITE);
  return ExitCodeOf(child.process.Get());
}

std::vector<int> RunTogether(const std::filesystem::path& program,
                             const std::vector<std::vector<std::string>>& arguments,
                             const ProcessOptions& options) {
  Pipe gate(true, false);
  Pipe ready(false, true);
  std::vector<Child> children;
  for (const std::vector<std::string>& list : arguments) {
    children.push_back(
        Start(program, Wide(CommandLineOf(list)), options, gate.read.Get(), ready.write.Get(), 0));
  }
  ready.write.Reset();
  for (std::size_t count = 0; count < children.size(); ++count) {
    char sign = 0;
    DWORD read = 0;
    if (ReadFile(ready.read.Get(), &sign, 1, &read, nullptr) == 0 || read != 1) {
      ADD_FAILURE() << "not all processes are ready";
      break;
    }
  }
  gate.write.Reset();
  std::vector<int> exit_codes;
  for (const Child& child : children) {
    WaitForSingleObject(child.process.Get(), INFINITE);
    exit_codes.push_back(ExitCodeOf(child.process.Get()));
  }
  return exit_codes;
}

}  // namespace zentpost::e2e
