#include "testing/end_to_end/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "platform/unique_handle.h"
#include "testing/end_to_end/files.h"

extern char** environ;

namespace zentpost::e2e {
namespace {

constexpr std::chrono::seconds kPatience{120};
constexpr char kDebugOutputVariable[] = "ZENTPOST_DEBUG_OUTPUT";

struct DescriptorTraits {
  using Value = int;
  static constexpr int kNone = -1;
  static void Close(int descriptor) noexcept { close(descriptor); }
};
using Descriptor = platform::UniqueHandle<DescriptorTraits>;

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    read.Reset(ends[0]);
    write.Reset(ends[1]);
  }
  Descriptor read;
  Descriptor write;
};

// What execve wants: pointers to texts that somebody else owns.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> EnvironmentTexts(const Environment& changes) {
  std::vector<std::string> texts;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    bool is_changed = false;
    for (const auto& [name, value] : changes) {
      is_changed = is_changed || text.starts_with(name + "=");
    }
    if (!is_changed) {
      texts.emplace_back(text);
    }
  }
  for (const auto& [name, value] : changes) {
    if (value) {
      texts.push_back(name + "=" + value->string());
    }
  }
  return texts;
}

pid_t Start(const std::filesystem::path& program, const std::vector<std::string>& arguments,
            const std::filesystem::path& folder, const Environment& environment, int input,
            int output) {
  std::vector<std::string> argument_texts = {program.string()};
  argument_texts.insert(argument_texts.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment_texts = EnvironmentTexts(environment);
  const std::vector<char*> argv = Pointers(argument_texts);
  const std::vector<char*> envp = Pointers(environment_texts);

  const pid_t process = fork();
  if (process < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (process == 0) {
    // Other threads may have held locks at the fork: from here on only system calls.
    // Read-only files bind the tool's users, so they have to bind it here when root runs the tests.
    prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    if (dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(output, STDERR_FILENO) < 0 || chdir(folder.c_str()) != 0) {
      _exit(126);
    }
    execve(program.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  return process;
}

int WaitForEnd(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// Reads until all writers have closed, or `bytes` are there. False: that took too long.
bool ReadPipe(int pipe, std::size_t bytes, std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (text.size() < bytes) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd polled{pipe, POLLIN, 0};
    const int ready = left.count() > 0 ? poll(&polled, 1, static_cast<int>(left.count())) : 0;
    if (ready == 0) {
      return false;
    }
    char buffer[4096];
    const ssize_t count = ready > 0 ? read(pipe, buffer, sizeof buffer) : -1;
    if (count == 0) {
      return true;
    }
    if (count > 0) {
      text.append(buffer, static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool DebuggerStopsProcess() {
  return false;
}

ProcessRun RunProcess(const std::filesystem::path& program,
                      const std::vector<std::string>& arguments, const ProcessOptions& options) {
  const std::filesystem::path debug_output = options.folder / "debug-output.txt";
  std::filesystem::remove(debug_output);
  Environment environment = options.environment;
  environment.emplace_back(kDebugOutputVariable, debug_output);
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  Pipe output;

  ProcessRun run;
  const auto begin = std::chrono::steady_clock::now();
  const pid_t process =
      Start(program, arguments, options.folder, environment, nothing.Get(), output.write.Get());
  output.write.Reset();
  if (!ReadPipe(output.read.Get(), std::string::npos, run.printed)) {
    ADD_FAILURE() << "the process did not end";
    kill(process, SIGKILL);
  }
  run.exit_code = WaitForEnd(process);
  run.duration = std::chrono::steady_clock::now() - begin;
  run.debug_output = ReadBytes(debug_output).value_or("");
  return run;
}

ProcessRun RunWithoutDebugger(const std::filesystem::path& program,
                              const std::vector<std::string>& arguments,
                              const ProcessOptions& options) {
  ProcessRun run = RunProcess(program, arguments, options);
  run.debug_output.clear();
  return run;
}

int RunUnwatched(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 const ProcessOptions& options) {
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  return WaitForEnd(
      Start(program, arguments, options.folder, options.environment, nothing.Get(), nothing.Get()));
}

std::vector<int> RunTogether(const std::filesystem::path& program,
                             const std::vector<std::vector<std::string>>& arguments,
                             const ProcessOptions& options) {
  Pipe gate;
  Pipe ready;
  std::vector<pid_t> processes;
  for (const std::vector<std::string>& list : arguments) {
    processes.push_back(Start(program, list, options.folder, options.environment, gate.read.Get(),
                              ready.write.Get()));
  }
  ready.write.Reset();
  std::string signs;
  if (!ReadPipe(ready.read.Get(), processes.size(), signs) || signs.size() < processes.size()) {
    ADD_FAILURE() << "not all processes are ready: " << signs;
  }
  gate.write.Reset();
  std::vector<int> exit_codes;
  for (const pid_t process : processes) {
    exit_codes.push_back(WaitForEnd(process));
  }
  return exit_codes;
}

}  // namespace zentpost::e2e
