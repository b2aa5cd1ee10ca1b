// Runs programs as a fax application or a developer with a debugger would: one process with a
// command line, its debugger output caught, its exit code kept.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentpost::e2e {

// Changes to this process's own environment; nothing in the second place removes a variable.
using Environment = std::vector<std::pair<std::string, std::optional<std::filesystem::path>>>;

struct ProcessOptions {
  std::filesystem::path folder;  // where the process works
  Environment environment;
  // Called with each text that the process hands to the debugger, while the process stands still.
  // Only where DebuggerStopsProcess() says so.
  std::function<void(std::string_view text)> at_debug_output;
};

struct ProcessRun {
  // As the system gives it. Where a signal ended the process, the signal's number, negative.
  int exit_code = 0;
  std::string debug_output;  // all texts handed to the debugger, one behind the other, in UTF-8
  std::string printed;       // what went to the standard output and error output
  std::chrono::steady_clock::duration duration{};
};

// Whether this system's debugger output is caught by stopping the process.
[[nodiscard]] bool DebuggerStopsProcess();

// The text that the tool sees as its command line when it is started with these arguments by
// RunProcess: the arguments with a blank between them, one that is empty or contains white space in
// double quotes. Arguments with quotes are for RunRaw.
[[nodiscard]] std::string CommandLineOf(const std::vector<std::string>& arguments);

// Starts `program` with `arguments` (UTF-8) and waits for its end. A process that does not end
// within two minutes is ended, and the test has failed.
[[nodiscard]] ProcessRun RunProcess(const std::filesystem::path& program,
                                    const std::vector<std::string>& arguments,
                                    const ProcessOptions& options);

// The same without a debugger, whose output is then not caught: for programs that throw. Under a
// debugger Wine loses registers on the way to where a 64-bit program catches.
[[nodiscard]] ProcessRun RunWithoutDebugger(const std::filesystem::path& program,
                                            const std::vector<std::string>& arguments,
                                            const ProcessOptions& options);

// The same without a debugger, and what the process prints is dropped: nothing stops it or waits
// for it but the call's end. Gives the exit code. May be called on several threads at a time.
[[nodiscard]] int RunUnwatched(const std::filesystem::path& program,
                               const std::vector<std::string>& arguments,
                               const ProcessOptions& options);

// Starts `program` once for each list of arguments. Each process has to write one byte to its
// standard output when it is ready and to wait for the end of its standard input, which comes when
// all are ready. Waits for their ends and gives their exit codes.
[[nodiscard]] std::vector<int> RunTogether(const std::filesystem::path& program,
                                           const std::vector<std::vector<std::string>>& arguments,
                                           const ProcessOptions& options);

}  // namespace zentpost::e2e
