// A machine and a job on it, made of a number: the same for the tool and for the doctor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zentpost::doctor::parity {

// For whom the machine is made. What the doctor cannot know is there for the tool alone.
enum class Side { kTool, kDoctor };

struct RandomJob {
  std::u16string line;
  bool has_job_file = false;  // the line begins with one
  std::u16string job_file;
  std::u16string document;

  // What only the tool meets: the doctor takes something else for granted.
  bool logon_fails = false;
  bool addin_goes = false;        // behind the first connection
  bool has_unknown_path = false;  // of a library that the installer would tell
};

// Makes TheFakePlatform() afresh, with everything but the mail client's own behaviour.
[[nodiscard]] RandomJob SetUpRandomMachine(std::uint32_t seed, Side side);

}  // namespace zentpost::doctor::parity
