// A program that is started, watched and ended.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zentpost::acceptance {

// From now on Ctrl-C, Ctrl-Break, the closing of the console and the end of the session end what
// runs, and this program goes on. For the last three Windows leaves it some seconds.
void TakeInterrupts();
[[nodiscard]] bool IsInterrupted();
// Lets Windows end this program, where it waits for that.
void FinishAfterInterrupt();

struct ChildEnd {
  enum class How { kEnded, kTimedOut, kInterrupted, kNotStarted };
  How how = How::kEnded;
  unsigned long code = 0;  // the exit code, or the reason for which it was not started
  double seconds = 0;
};

// kWait: the child is left to end by itself, and is on no console whose closing would end it.
enum class Interrupts { kEndIt, kWait };

// Runs `program` with `arguments` (without quotation marks) in `folder`. Its outputs go into the
// file `output`, its input is empty. What it starts is ended with it, and all is ended when this
// program is.
[[nodiscard]] ChildEnd RunChild(const std::filesystem::path& program,
                                const std::vector<std::wstring>& arguments,
                                const std::filesystem::path& folder,
                                const std::filesystem::path& output, std::chrono::seconds patience,
                                Interrupts interrupts = Interrupts::kEndIt);

}  // namespace zentpost::acceptance
