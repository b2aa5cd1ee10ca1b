#include "tools/doctor/job_rehearsal.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "addin/text_encoding.h"
#include "app/application.h"
#include "jobfile/commands.h"
#include "jobfile/member_names.h"
#include "mapiload/process_state.h"
#include "tools/doctor/message_keeper.h"
#include "tools/doctor/seen_text.h"
#include "tools/doctor/system_libraries.h"

namespace zentpost::doctor {
namespace {

namespace rehearsal = platform::rehearsal;

std::size_t CountCharacters(std::u16string_view text) {
  // The second half of a pair is no character of its own.
  std::size_t characters = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_second =
        i > 0 && (text[i] & 0xFC00) == 0xDC00 && (text[i - 1] & 0xFC00) == 0xD800;
    characters += is_second ? 0 : 1;
  }
  return characters;
}

// "2026/11/20 23:58:07 - INFO   : text" without the time, and with one blank behind the colon; no
// more of the text than so many units.
LogLine WithoutTime(std::u16string_view line, std::size_t units) {
  constexpr std::size_t kTimeUnits = 22;
  constexpr std::size_t kLevelUnits = 7;
  line.remove_prefix(std::min(line.size(), kTimeUnits));
  std::u16string_view level = line.substr(0, kLevelUnits);
  level = level.substr(0, level.find(u' '));
  line.remove_prefix(std::min(line.size(), kLevelUnits));
  return {std::u16string(level).append(line.substr(0, units)),
          level.size() + CountCharacters(line)};
}

// What the job file would tell its watchers; it is read on the rehearsal itself, and its members in
// any case, as they are written.
std::optional<JobResult> ReadResult(const std::u16string& job_file) {
  const LoadedJson loaded = CCommands::LoadJsonFile(job_file);
  const cJSON* const result = cJSON_GetObjectItem(loaded.tree.get(), kResultMember);
  if (cJSON_IsObject(result) == 0) {
    return std::nullopt;
  }
  JobResult found;
  const auto number = [&](const char* name) {
    const cJSON* const member = cJSON_GetObjectItem(result, name);
    return cJSON_IsNumber(member) != 0 ? member->valueint : 0;
  };
  found.status = number("Status");
  found.error_code = number("ErrorCode");
  static_cast<void>(GetJsonString(result, u"ErrorText", found.error_text, u""));
  return found;
}

// What the add-in makes of the bytes on the wire.
std::string Understood(const std::string& wire) {
  return NarrowThroughAnsi(FromUtf8(wire.c_str()).value_or(u"")).value_or("");
}

std::u16string StepText(const rehearsal::Step& step) {
  using Kind = rehearsal::Step::Kind;
  const std::u16string quoted = Quoted(step.what);
  std::u16string text;
  switch (step.kind) {
    case Kind::kRewrite:
      text = u"write the file " + quoted;
      break;
    case Kind::kAppend:
      text = u"add lines to the log file " + quoted;
      break;
    case Kind::kRemove:
      text = u"delete the file " + quoted;
      break;
    case Kind::kConnect:
      text = u"connect to port " + Number(step.number) + u" of " + step.what;
      break;
    case Kind::kSend:
      text = u"send " + Number(step.number) + u" bytes to the add-in";
      break;
    case Kind::kLoad:
      text = u"load the library " + quoted;
      break;
  }
  return step.status == platform::kSuccess ? text : text + u": fails with " + Number(step.status);
}

std::vector<std::u16string> Steps(const JobRehearsal& job) {
  std::vector<std::u16string> steps;
  const std::vector<rehearsal::Step>& recorded = job.record.steps;
  for (std::size_t i = 0; i <= recorded.size(); ++i) {
    if (job.message && i == job.steps_before_message) {
      steps.emplace_back(job.is_shown ? u"show the message in the mail client's window"
                                      : u"hand the message to the mail client");
    }
    // The libraries of the search's own are no step to tell.
    if (i == recorded.size() ||
        (recorded[i].kind == rehearsal::Step::Kind::kLoad && SystemLibrary(recorded[i].what))) {
      continue;
    }
    std::u16string text = StepText(recorded[i]);
    // A line of the log is a step each time; it is told once.
    if (recorded[i].kind != rehearsal::Step::Kind::kAppend ||
        std::find(steps.begin(), steps.end(), text) == steps.end()) {
      steps.push_back(std::move(text));
    }
  }
  return steps;
}

// Keeps the message, and what stood before it.
class MessageWatch : public MessageKeeper {
 public:
  explicit MessageWatch(JobRehearsal& job) : MessageKeeper(job.message, job.is_shown), job_(job) {}

  bool Send(const fake_mapi::Message& message, bool stays_in_outbox) override {
    job_.steps_before_message = rehearsal::Recorded().steps.size();
    return MessageKeeper::Send(message, stays_in_outbox);
  }
  bool Show(const fake_mapi::Message& message) override {
    job_.steps_before_message = rehearsal::Recorded().steps.size();
    return MessageKeeper::Show(message);
  }

 private:
  JobRehearsal& job_;
};

}  // namespace

JobRehearsal RehearseJob(const std::u16string& line, rehearsal::Answers answers,
                         std::size_t log_units) {
  JobRehearsal job;
  answers.debug_output = [&job, log_units](std::u16string_view text) {
    if (text != u"\n") {
      job.log.push_back(WithoutTime(text, log_units));
    }
  };
  ForgetMapiLoading();
  rehearsal::Begin(std::move(answers));
  {
    const fake_mapi::Client client(std::make_unique<MessageWatch>(job));
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = line.c_str();
    application.m_pSeenJob = &job.parameters;
    static_cast<void>(application.InitInstance());
    job.exit_code = application.ExitInstance();
    job.has_initialized = !client.CallsOf("MAPIInitialize").empty();
    job.has_logged_on = !client.CallsOf("MAPILogonEx").empty();
    ForgetMapiLoading();
  }
  job.record = rehearsal::Recorded();
  const ParameterList& arguments = job.parameters.arguments;
  // A log of its name may come to stand there afterwards.
  job.is_document_removed = std::any_of(
      job.record.steps.begin(), job.record.steps.end(), [&](const rehearsal::Step& step) {
        return step.kind == rehearsal::Step::Kind::kRemove && step.status == platform::kSuccess &&
               step.what == arguments.Value(argument::kDocument);
      });
  if (arguments.Contains(argument::kJobFile) &&
      rehearsal::ChangedBytes(arguments.Value(argument::kJobFile))) {
    job.result = ReadResult(arguments.Value(argument::kJobFile));
  }
  for (const std::string& bytes : job.record.connections) {
    if (!bytes.empty()) {
      job.wire = bytes;
    }
  }
  for (const rehearsal::Step& step : job.record.steps) {
    if (step.kind == rehearsal::Step::Kind::kRewrite &&
        step.what != arguments.Value(argument::kJobFile) && step.status == platform::kSuccess) {
      job.file = rehearsal::ChangedBytes(step.what);
    }
  }
  return job;
}

Route RouteOf(const JobRehearsal& job, bool is_skipped, bool is_usable) {
  if (job.parameters.faxFields.Contains(u"O")) {
    return Route::kFile;
  }
  // What was sent, though it be nothing, has arrived.
  const bool has_sent = std::any_of(
      job.record.steps.begin(), job.record.steps.end(),
      [](const rehearsal::Step& step) { return step.kind == rehearsal::Step::Kind::kSend; });
  if (has_sent) {
    return Route::kAddin;
  }
  if (is_skipped) {
    return Route::kSkipped;
  }
  return is_usable ? Route::kMapi : Route::kNone;
}

Rehearsal Reported(JobRehearsal job, Route route) {
  Rehearsal reported;
  const ParameterList& arguments = job.parameters.arguments;
  if (!arguments.Value(argument::kJobFile).empty()) {
    reported.job_file = arguments.Value(argument::kJobFile);
  }
  if (!arguments.Value(argument::kDocument).empty()) {
    reported.document = arguments.Value(argument::kDocument);
    reported.document_fate = job.is_document_removed ? DocumentFate::kDeleted : DocumentFate::kKept;
  }
  reported.result = job.result;
  for (const auto& [name, value] : job.parameters.faxFields.Entries()) {
    reported.fields.emplace_back(name, value);
  }
  if (route == Route::kAddin && job.wire) {
    reported.payload = Understood(*job.wire);
  } else if (route == Route::kFile) {
    reported.payload = std::move(job.file);
  } else if (route == Route::kMapi) {
    reported.message = job.message;
  }
  reported.log = std::move(job.log);
  reported.steps = Steps(job);
  return reported;
}

}  // namespace zentpost::doctor
