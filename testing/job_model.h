// One fax job told a second time, in words of its own: what it does to the system and to the mail
// client, call by call, what it logs, and what it leaves behind; also when one of its calls fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "testing/fake_platform/fake_platform.h"

namespace zentpost::test {

// A job, and the machine that it meets. Texts are longer than what a string object holds without
// memory of its own.
struct Situation {
  const char* name;

  bool on_command_line = false;  // the document and a fax command, no job file
  bool has_result = false;       // the job file holds one from before
  bool diverted = false;         // by the field O
  bool preview = false;
  const char* receiver = "0301234567 and an extension";
  const char* recipient = "J\xC3\xA4ger and Company";
  const char* source_name = "An attachment's name";

  bool has_port = true;
  std::optional<platform::fake::Peer> peer =
      platform::fake::Peer::kAccept;  // none: nothing listens
  unsigned connections = platform::fake::FakePlatform::kUnlimited;

  std::uint32_t user_log_level = 0;
  std::uint32_t machine_log_level = 0;
  std::uint32_t user_skip = 0;

  bool has_mail_client = false;
  bool has_shutdown = true;
  bool is_online = true;       // else the default store can only be opened normally
  bool is_automatic = false;   // addresses are wrapped, and have no type
  bool has_file_type = false;  // the registry knows ".xyz", without a MIME type
};

inline constexpr char16_t kJobPath[] = u"C:\\jobs\\a.json";
inline constexpr char16_t kDocumentPath[] = u"C:\\docs\\fax.pdf";
inline constexpr char16_t kDivertedPath[] = u"C:\\Temp\\a payload of its own.json";
inline constexpr char kDocumentBytes[] = "%PDF-1.4\nnothing of it is JSON\n";

// What faults give, and what a MAPI call makes of it.
inline constexpr platform::Status kFault = platform::kGeneralFailure;

[[nodiscard]] const char16_t* CommandLineOf(const Situation& situation);
// The job file before the job.
[[nodiscard]] std::string JobFileOf(const Situation& situation);

// Makes the fake platform, which is fresh, that machine, but for the mail client.
void SetUpMachine(const Situation& situation);

// The calls on the fake platform so far in the form of JobModel::steps.
[[nodiscard]] std::vector<std::string> StepsOfTheJob();

class JobModel {
 public:
  // The fallible call at `fault_index`, from 0, fails as `mode` says; without a mode nothing fails.
  explicit JobModel(const Situation& situation,
                    std::optional<platform::fake::FaultMode> mode = std::nullopt,
                    std::size_t fault_index = 0);

  // In order: the functions called, to the system and to the mail client's library, and the log's
  // lines as "log INFO: StartZentpost(): a.json".
  std::vector<std::string> steps;
  std::size_t fallible_calls = 0;
  std::string debug_output;
  int exit_code = 1;
  std::map<std::string, std::string> files;  // by their paths
  std::vector<std::string> connections;      // what the system took for each
  std::optional<std::uint64_t> waits;        // where the watchdog's number is certain
  std::vector<std::string> attachments;      // that were saved
  std::string accounts;                      // of the mail client: what is left behind
  // Which of the fallible calls starts the watchdog.
  std::optional<std::size_t> watchdog;

 private:
  class Run;
};

}  // namespace zentpost::test
