// tool_side COUNT FILE: what the tool does with the random jobs 1 to COUNT, each on its machine.
// Fails for a job that ends in a way that is not known.

#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/application.h"
#include "app/registry_names.h"
#include "diag/client_settings.h"
#include "fake_mapi/client.h"
#include "mapiload/discovery.h"
#include "mapiload/process_state.h"
#include "platform/call.h"
#include "platform/reading.h"
#include "testing/fake_platform/fake_platform.h"
#include "testing/log_lines.h"
#include "testing/outcomes.h"
#include "tools/doctor/message_keeper.h"
#include "tools/doctor/parity/outcome.h"
#include "tools/doctor/parity/random_machine.h"
#include "tools/support/text.h"

namespace zentpost::doctor::parity {
namespace {

using platform::Procedure;
using platform::Status;

std::uint32_t PLATFORM_STDCALL SetInternalUi(std::uint32_t /*level*/, void** /*window*/) {
  return 0;
}

// The installer, which knows what the machine has.
std::uint32_t PLATFORM_STDCALL ProvideComponent(const char16_t* category, const char16_t* qualifier,
                                                std::uint32_t /*mode*/, char16_t* path,
                                                std::uint32_t* count) {
  std::u16string found;
  const Status status = platform::reading::FindComponent(category, qualifier, found);
  if (status != platform::kSuccess) {
    return status;
  }
  if (path != nullptr) {
    *std::copy(found.begin(), found.end(), path) = u'\0';
  }
  *count = static_cast<std::uint32_t>(found.size());
  return 0;
}

// What the files hold that the tool has written, by their paths; not the log, to which it adds.
std::map<std::u16string, std::string> WrittenFiles(const platform::fake::FakePlatform& fake) {
  std::map<std::u16string, std::string> files;
  for (const std::string& call : fake.CallsOf("WriteBytes")) {
    const std::size_t start = call.find('(') + 1;
    const std::u16string path = support::Utf16(call.substr(start, call.rfind(',') - start));
    files[path] = fake.FileBytes(path).value_or("");
  }
  return files;
}

std::string ResultIn(const std::string& job_file) {
  cJSON* const tree = cJSON_Parse(job_file.c_str());
  const cJSON* const result = cJSON_GetObjectItem(tree, "Result");
  const auto number = [&](const char* name) {
    const cJSON* const member = cJSON_GetObjectItemCaseSensitive(result, name);
    return std::to_string(member == nullptr ? 0 : member->valueint);
  };
  const cJSON* const text = cJSON_GetObjectItemCaseSensitive(result, "ErrorText");
  std::string told = number("Status") + " " + number("ErrorCode") + " " +
                     (text == nullptr ? "" : text->valuestring);
  cJSON_Delete(tree);
  return told;
}

// The bytes that the add-in makes of the last delivery.
std::optional<std::string> Delivered(const std::vector<std::string>& connections) {
  for (auto bytes = connections.rbegin(); bytes != connections.rend(); ++bytes) {
    if (!bytes->empty()) {
      return support::Windows1252(support::Utf16(*bytes));
    }
  }
  return std::nullopt;
}

// Where the job went, as far as only the tool's own traces tell.
std::string RouteOf(const JobParameters& params, bool was_sent) {
  return params.faxFields.Contains(u"O")                      ? "file"
         : was_sent                                           ? "addin"
         : ReadClientNumber(registry::kSkipExtendedMapi) != 0 ? "skipped"
                                                              : kExtendedMapi;
}

// Nothing, and a message: the job has ended in a way that is not known.
std::optional<Outcome> RunJob(std::uint32_t seed) {
  platform::fake::FakePlatform& fake = platform::fake::TheFakePlatform();
  const RandomJob job = SetUpRandomMachine(seed, Side::kTool);
  fake.AddModule(
      u"C:\\Windows\\system32\\msi.dll",
      {{"MsiSetInternalUI", reinterpret_cast<Procedure>(SetInternalUi)},
       {"MsiProvideQualifiedComponentW", reinterpret_cast<Procedure>(ProvideComponent)}});
  const std::vector<std::u16string> before = fake.FilePaths();
  const std::optional<std::string> job_file_before =
      job.has_job_file ? fake.FileBytes(job.job_file) : std::nullopt;
  std::optional<Message> message;
  bool is_shown = false;
  JobParameters params;
  Outcome outcome;
  int exit_code = -1;
  ForgetMapiLoading();
  {
    fake_mapi::Client client(std::make_unique<MessageKeeper>(message, is_shown));
    if (job.logon_fails) {
      client.Answer("MAPILogonEx", 0, static_cast<std::int32_t>(0x80040111));
    }
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = job.line.c_str();
    application.m_pSeenJob = &params;
    static_cast<void>(application.InitInstance());
    exit_code = application.ExitInstance();
    ForgetMapiLoading();
  }
  const std::string problem = test::OutcomeProblem(
      test::ReadOutcome(exit_code, test::LogText(fake), job_file_before,
                        job.has_job_file ? fake.FileBytes(job.job_file) : std::nullopt));
  if (!problem.empty()) {
    std::cerr << "job " << seed << ": " << problem << '\n';
    return std::nullopt;
  }
  outcome["exit code"] = std::to_string(exit_code);
  outcome["log"] = OneLine(test::LogText(fake));
  outcome["message"] = OneLine(message);
  std::string removed = kNothing;
  for (const std::u16string& path : before) {
    if (!fake.FileBytes(path)) {
      removed = support::Utf8(path);
    }
  }
  outcome["removed"] = removed;
  outcome["result"] = kNothing;
  outcome["candidates"] = OneLine(GetMapiCandidatePaths());
  std::optional<std::string> payload = Delivered(fake.Connections());
  outcome["route"] = RouteOf(params, payload.has_value());
  for (const auto& [path, bytes] : WrittenFiles(fake)) {
    if (job.has_job_file && path == job.job_file) {
      outcome["result"] = ResultIn(bytes);
    } else {
      payload = bytes;
    }
  }
  outcome["payload"] = payload ? OneLine(*payload) : kNothing;
  return outcome;
}

}  // namespace
}  // namespace zentpost::doctor::parity

int main(int argc, char** argv) {
  namespace parity = zentpost::doctor::parity;
  if (argc != 3) {
    std::cerr << "usage: tool_side COUNT FILE\n";
    return 2;
  }
  std::ofstream out(argv[2], std::ios::binary);
  const auto count = static_cast<std::uint32_t>(std::atoi(argv[1]));
  bool are_known = true;
  for (std::uint32_t seed = 1; seed <= count; ++seed) {
    const std::optional<parity::Outcome> outcome = parity::RunJob(seed);
    are_known = are_known && outcome.has_value();
    parity::Write(out, seed, outcome.value_or(parity::Outcome()));
  }
  return out.flush() && are_known ? 0 : 1;
}
