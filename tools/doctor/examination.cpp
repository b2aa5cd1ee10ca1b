#include "tools/doctor/examination.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>
#include <utility>

#include "addin/payload.h"
#include "app/registry_names.h"
#include "diag/error_texts.h"
#include "diag/log_file.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "platform/rehearsal/rehearsal.h"
#include "platform/sockets.h"
#include "platform/system.h"
#include "tools/doctor/candidates.h"
#include "tools/doctor/job_findings.h"
#include "tools/doctor/job_rehearsal.h"
#include "tools/doctor/machine_findings.h"
#include "tools/doctor/report_parts.h"
#include "tools/doctor/seen_text.h"
#include "tools/doctor/settings.h"

namespace zentpost::doctor {
namespace {

namespace reading = platform::reading;
using platform::Status;
using State = reading::Listener::State;

// More than is reported of a line of the log: a character takes two units at most.
constexpr std::size_t kLogUnits = 2 * (kTextLimit + 1);

// --- the add-in ---

// Who listens on the add-in's port, and whether somebody does.
struct Addin {
  std::uint16_t port = 0;  // 0: none
  bool listens = false;
  std::u16string program;  // "OUTLOOK.EXE, process 4711", as far as it is known; may be empty
};

std::u16string ProgramText(const reading::Listener& listener) {
  std::u16string text = listener.program;
  if (listener.process != 0) {
    text.append(text.empty() ? u"" : u", ").append(u"process ").append(Number(listener.process));
  }
  return text;
}

// Whether somebody listens, by the system's tables.
bool Listens(const reading::Listener& listener, const std::u16string& port, Report& report) {
  switch (listener.state) {
    case State::kNobody:
      return false;
    case State::kListens:
      break;
    case State::kPerhaps:
      report.assumed.push_back(u"the program that listens on " + port +
                               u" of IPv6 takes connections of IPv4 as well");
      break;
    case State::kUnknown:
      report.assumed.push_back(u"somebody listens on " + port +
                               u": the system's table of ports cannot be read");
      break;
  }
  return true;
}

// D03 and D04.
Addin FindAddin(std::uint16_t port, bool connects, Report& report) {
  Addin addin = {port, false, {}};
  if (port == 0) {
    return addin;
  }
  const std::u16string port_text = u"port " + Number(port);
  std::vector<std::u16string> seen = SeenSetting(registry::kAddinPort);
  reading::Listener listener;
  static_cast<void>(platform::ThrowWithoutMemory(reading::FindListener(port, listener)));
  if (connects) {
    const Status status = platform::ThrowWithoutMemory(reading::TryToConnect(port));
    addin.listens = status == platform::kSuccess;
    if (!addin.listens) {
      seen.push_back(u"connecting to " + port_text + u": " + GetErrorText(status));
    }
  } else {
    addin.listens = Listens(listener, port_text, report);
  }
  if (!addin.listens) {
    report.findings.push_back({"D03", Severity::kWarning, std::move(seen)});
    return addin;
  }
  addin.program = ProgramText(listener);
  if (connects || listener.state != State::kUnknown) {
    AddFinding(
        report.findings, "D04", Severity::kNote,
        {port_text + u": " +
         (addin.program.empty() ? u"the system does not tell which program" : addin.program)});
  }
  return addin;
}

// --- the verdict ---

std::string LocalTimeText() {
  platform::LocalTime time{};
  static_cast<void>(platform::BreakIntoLocalTime(platform::SecondsSinceEpoch(), time));
  char text[64] = {};
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d", time.year, time.month,
                time.day, time.hour, time.minute, time.second);
  return text;
}

std::u16string VerdictText(const Verdict& verdict, const Addin& addin, const FoundCandidate* taken,
                           const JobRehearsal* job) {
  const std::u16string path = taken == nullptr ? u"" : taken->reported.path.value_or(u"");
  const std::u16string failure =
      verdict.delivered ? u"would count as delivered, and nobody would get it" : u"would fail";
  switch (verdict.route) {
    case Route::kAddin:
      return u"would be handed to the add-in on port " + Number(addin.port) +
             (addin.program.empty() ? u"; the system does not tell which program that is"
                                    : u" (" + addin.program + u")");
    case Route::kMapi:
      return verdict.delivered ? u"would be handed to the mail client through " + path
                               : u"would fail at the mail client, reached through " + path;
    case Route::kFile:
      return job->file ? u"would be written into a file, and handed to nobody"
                       : u"would be handed to nobody, and written into no file";
    case Route::kSkipped:
      return failure + u": SkipExtendedMapi is on";
    case Route::kNone:
      break;
  }
  return failure + (taken == nullptr
                        ? u": no usable MAPI library of a mail client is found"
                        : u": the MAPI library " + path + u" lacks what the job needs");
}

// What an ordinary job would come to: one with a number and a document, and without a preview.
Verdict OrdinaryVerdict(bool is_addin_there, bool is_skipped, bool is_usable) {
  Verdict verdict;
  verdict.route = is_addin_there ? Route::kAddin
                  : is_skipped   ? Route::kSkipped
                  : is_usable    ? Route::kMapi
                                 : Route::kNone;
  verdict.exit_code = verdict.route == Route::kNone ? 1 : 0;
  return verdict;
}

// --- the window ---

// D35.
void AddWindow(const JobRehearsal* job, Report& report) {
  if (report.verdict.route != Route::kMapi) {
    return;
  }
  std::vector<std::u16string> seen;
  const bool is_shown = job != nullptr && job->message && job->is_shown;
  if (is_shown && IsPresentAndNotMinus(job->parameters.faxFields, u"P")) {
    seen.emplace_back(u"the job asks for a preview");
  }
  if (is_shown && job->parameters.faxFields.Value(u"+FAX").empty()) {
    seen.emplace_back(u"the job has no fax number");
  }
  if (!HasDefaultProfile()) {
    seen.emplace_back(u"no default profile is registered: the mail client asks for one");
  }
  if (!seen.empty()) {
    report.findings.push_back({"D35", Severity::kNote, std::move(seen)});
  }
}

// --- what is taken for granted ---

void AddAssumptions(const std::vector<FoundCandidate>& candidates, const FoundCandidate* taken,
                    const JobRehearsal* job, const Wanted& wanted, Report& report) {
  const auto assume = [&](std::u16string text) { report.assumed.push_back(std::move(text)); };
  for (const FoundCandidate& candidate : candidates) {
    const std::u16string source = u" (" + Widened(candidate.reported.source) + u")";
    if (!candidate.untold.empty()) {
      assume(u"the library " + candidate.untold + source +
             u" does not load: its file cannot be told");
    } else if (!candidate.reported.path) {
      assume(u"a library that the Windows Installer may know" + source +
             u" does not load: its path is not known");
    }
  }
  using Kind = platform::rehearsal::Step::Kind;
  const auto has_step = [&](Kind kind) {
    const auto& steps = job->record.steps;
    return std::any_of(steps.begin(), steps.end(), [&](const auto& step) {
      return step.kind == kind && step.status == platform::kSuccess;
    });
  };
  const bool connects =
      job == nullptr ? report.verdict.route == Route::kAddin : has_step(Kind::kConnect);
  if (connects && !wanted.connects) {
    assume(u"the connection to the add-in succeeds");
  }
  const bool is_by_mapi = job == nullptr && report.verdict.route == Route::kMapi;
  if (taken != nullptr && (is_by_mapi || (job != nullptr && job->has_initialized))) {
    assume(u"the library " + taken->reported.path.value_or(u"") +
           u" loads, and its MAPIInitialize succeeds");
  }
  if (is_by_mapi || (job != nullptr && job->has_logged_on)) {
    const std::u16string logon =
        u"the logon to the mail client succeeds, with a default profile named Outlook";
    assume(report.verdict.route == Route::kMapi
               ? logon + u", and so does all that it is asked for then"
               : logon);
  }
  if (job != nullptr &&
      (has_step(Kind::kRewrite) || has_step(Kind::kAppend) || has_step(Kind::kRemove))) {
    assume(
        u"nobody else holds the files that are written or deleted, and rights to them that cannot "
        u"be read are given");
  }
}

// --- the order ---

// Of findings of one severity those that tell a cause stand before those that tell what follows
// from it; the others stand by their codes.
int Rank(std::string_view code) {
  constexpr std::array<std::pair<std::string_view, int>, 6> kRanks = {
      {{"D13", 12}, {"D14", 12}, {"D12", 13}, {"D28", 27}, {"D27", 28}, {"D34", 99}}};
  const auto* const found = std::find_if(kRanks.begin(), kRanks.end(),
                                         [&](const auto& each) { return each.first == code; });
  return found != kRanks.end() ? found->second : (code[1] - '0') * 10 + (code[2] - '0');
}

void Sort(std::vector<Finding>& findings) {
  const auto key = [](const Finding& finding) {
    return std::tuple(finding.severity, Rank(finding.code), finding.code);
  };
  std::stable_sort(
      findings.begin(), findings.end(),
      [&](const Finding& left, const Finding& right) { return key(left) < key(right); });
}

// The files that the tool would touch.
std::vector<std::u16string> FilesOf(const std::vector<FoundCandidate>& candidates,
                                    const JobRehearsal* job) {
  std::vector<std::u16string> files = {GetLogFilePath()};
  for (const FoundCandidate& candidate : candidates) {
    files.push_back(candidate.library.file.empty()
                        ? candidate.reported.path.value_or(candidate.untold)
                        : candidate.library.file);
  }
  if (job != nullptr) {
    const ParameterList& arguments = job->parameters.arguments;
    files.push_back(arguments.Value(argument::kJobFile));
    files.push_back(arguments.Value(argument::kDocument));
    if (job->parameters.faxFields.Contains(u"O")) {
      files.push_back(PayloadFilePath(job->parameters.faxFields.Value(u"O")));
    }
  }
  std::erase(files, u"");
  return files;
}

}  // namespace

Examination Examine(const Wanted& wanted) {
  Report report;
  report.version = ZENTPOST_VERSION;
  report.bitness = sizeof(void*) * 8;
  report.time = LocalTimeText();
  const Effects effects = AskTheTool();
  const Addin addin = FindAddin(effects.port, wanted.connects, report);

  // The line first: whether its message is shown decides what it needs of a library.
  const platform::rehearsal::Answers answers = {.load = LoadForRehearsal,
                                                .connect =
                                                    [&](std::uint16_t port) {
                                                      return addin.listens && port == addin.port
                                                                 ? platform::kSuccess
                                                                 : platform::kSocketRefused;
                                                    },
                                                .debug_output = nullptr};
  std::optional<JobRehearsal> rehearsed;
  if (wanted.line) {
    rehearsed = RehearseJob(*wanted.line, answers,
                            wanted.keeps_whole_log ? std::u16string::npos : kLogUnits);
  }
  const JobRehearsal* const job = rehearsed ? &*rehearsed : nullptr;
  const bool is_shown = job != nullptr && (job->parameters.faxFields.Value(u"+FAX").empty() ||
                                           IsPresentAndNotMinus(job->parameters.faxFields, u"P"));
  platform::rehearsal::Begin(answers);
  const std::vector<FoundCandidate> candidates = FindCandidates(is_shown);
  const FoundCandidate* const taken = Taken(candidates);
  const bool is_usable = taken != nullptr && taken->library.state == CandidateState::kUsable;

  Verdict& verdict = report.verdict;
  if (job != nullptr) {
    verdict.route = RouteOf(*job, effects.is_mapi_skipped, is_usable);
    verdict.exit_code = job->exit_code;
  } else {
    verdict = OrdinaryVerdict(addin.listens, effects.is_mapi_skipped, is_usable);
  }
  verdict.delivered = verdict.exit_code == 0;
  verdict.text = VerdictText(verdict, addin, taken, job);
  const bool is_taken_by_addin =
      verdict.route == Route::kAddin || (verdict.route == Route::kFile && addin.listens);

  report.settings = ReadSettings(effects);
  AddSettingFindings(effects, verdict.route, report.findings);
  AddLibraryFindings(candidates, is_taken_by_addin, report.findings);
  for (const FoundCandidate& candidate : candidates) {
    report.candidates.push_back(candidate.reported);
  }
  AddMachineFindings(report.findings);
  AddWindow(job, report);
  if (job != nullptr) {
    AddJobFindings(*wanted.line, *job, verdict.route, is_taken_by_addin, report.findings);
    AddFalselyDelivered(*job, verdict, report.findings);
  }
  AddAssumptions(candidates, taken, job, wanted, report);
  Sort(report.findings);
  std::vector<std::u16string> files = FilesOf(candidates, job);
  if (rehearsed) {
    report.rehearsal = Reported(*std::move(rehearsed), verdict.route);
  }
  return {std::move(report), std::move(files)};
}

}  // namespace zentpost::doctor
