// Whole jobs with every allocation failing, one after the other: the core's own, the JSON library's
// and the platform layer's blocks. What is expected of such a run follows from the undisturbed one:
// an outcome that is true, nothing lost, nothing sent twice, and a log that tells of the job up to
// where memory ran out.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/log_lines.h"
#include "testing/outcomes.h"
#include "tests/whole_job/whole_job.h"

namespace zentpost {
namespace {

using platform::fake::Peer;
using test::AllocationFaults;
using test::Situation;

constexpr char16_t kLog[] = u"C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";
constexpr std::int32_t kOutOfMemory = -2147024882;  // 0x8007000E

const Situation kSituations[] = {
    {.name = "add-in, job file"},
    {.name = "add-in, document", .on_command_line = true},
    {.name = "add-in, a narrowed name", .recipient = "J\xC3\x83\xC2\xA4ger and Company"},
    {.name = "add-in, diverted", .diverted = true},
    {.name = "add-in failing half-way", .peer = Peer::kReset},
    {.name = "add-in failing half-way, document", .on_command_line = true, .peer = Peer::kReset},
    {.name = "mail client, job file", .has_port = false},
    {.name = "mail client, document", .on_command_line = true, .has_port = false},
    {.name = "mail client, diverted", .diverted = true, .has_port = false},
    {.name = "mail client, shown", .preview = true, .has_port = false},
    {.name = "mail client, address automation", .has_port = false, .is_automatic = true},
    {.name = "mail client, skipped", .has_port = false, .user_skip = 1},
};

// What a run leaves behind.
struct Outcome {
  int exit_code = -1;
  std::optional<std::string> job_file;
  std::optional<std::string> document;
  std::optional<std::string> diverted;
  std::vector<std::string> payloads;      // what the add-in got, empty connections left out
  std::vector<std::string> attachments;   // that were saved
  std::vector<std::string> message = {};  // what was set on the message
  std::size_t messages = 0;               // submitted or shown
  std::vector<std::string> log;           // its lines, without their times
};

std::vector<std::string> LogLines() {
  std::vector<std::string> lines;
  std::istringstream stream(test::LogText());
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

class JobMemory : public test::WholeJobTest {
 protected:
  Outcome Run(const Situation& situation, AllocationFaults& faults) {
    StartOver(situation);
    EXPECT_TRUE(faults.Run([&] { RunUnchecked(situation); })) << "an exception came out";
    const bool has_little_memory = faults.Mode() != test::AllocationFaultMode::kNone;
    const std::vector<test::SeenOutcome> seen = SeenOutcomes();
    EXPECT_EQ(test::OutcomeProblem(seen, has_little_memory), "");
    known_outcomes_.insert(test::FindOutcome(seen, has_little_memory));
    EXPECT_EQ(fake_.CallsOf("EndSockets").size(), 1u);
    EXPECT_EQ(fake_.OpenHandles(), 0u);
    ForgetMapiLoading();
    EXPECT_EQ(mapi_->Accounts(), "");

    Outcome outcome = {.exit_code = exit_code_,
                       .job_file = fake_.FileBytes(test::kJobPath),
                       .document = fake_.FileBytes(test::kDocumentPath),
                       .diverted = fake_.FileBytes(test::kDivertedPath),
                       .payloads = fake_.Connections(),
                       .attachments = mapi_->SavedAttachments(),
                       .messages = mapi_->CallsOf("IMessage::SubmitMessage").size() +
                                   mapi_->CallsOf("IMAPISession::ShowForm").size(),
                       .log = LogLines()};
    std::erase(outcome.payloads, "");
    for (const char* const call : {"IMessage::ModifyRecipients", "IMessage::SetProps"}) {
      const std::vector<std::string> calls = mapi_->CallsOf(call);
      outcome.message.insert(outcome.message.end(), calls.begin(), calls.end());
    }
    return outcome;
  }

  // As when there is no memory for the job file's bytes.
  std::vector<std::string> LogOfTheJobFileAsDocument(const Situation& situation) {
    StartOver(situation);
    fake_.FailCallOf("AllocateBlock", 0, platform::kNotEnoughMemory);
    RunJob(situation);
    ForgetMapiLoading();
    return LogLines();
  }

  // The places of those that there were.
  std::set<std::optional<std::size_t>> known_outcomes_;
};

bool IsTakenForDocument(const Outcome& outcome) {
  return std::find(outcome.log.begin(), outcome.log.end(),
                   "ERROR: ReadFromFile(): Parse JSON failed with error ''") != outcome.log.end();
}

// What the log tells of a failure, without its line end.
std::string LineOf(const test::AddinFailure& failure) {
  const std::string_view log = failure.log;
  return std::string(log.substr(0, log.size() - 1));
}

// The lines of a job up to where memory ran out are those of the undisturbed job; what follows
// tells of the failure, or of the route that takes over. Where one allocation has failed, the one
// line that it may have been for is missing.
void ExpectLog(const std::vector<std::string>& log, const std::vector<std::string>& undisturbed,
               const std::set<std::string>& of_other_route, test::AllocationFaultMode mode) {
  static const std::set<std::string> kOfFailures = {
      "ERROR: ReadFromFile(): Parse JSON failed with error ''",
      "ERROR: WriteJobFileResult(): Parse JSON failed with error ''",
      "INFO: StartZentpost(): C:\\jobs\\a.json",
      "ERROR: _utf8(): A memory error occurred.",
      "ERROR: Code 0x00000008 --> Unknown Error.",
      "WARNING: Code 0x00000008 --> Unknown Error.",
      LineOf(test::kNoPayload),
      LineOf(test::kNotConnected),
      LineOf(test::kNotSent),
      "ERROR: SendMail(): MAPIInititialize failed.",
      "ERROR: Code 0x80004005 --> A general not more specified error occurred.",
      "ERROR: Code 0x8007000e --> (CDO) Not enough memory available.",
      "WARNING: Code 0x8007000e --> (CDO) Not enough memory available.",
      "ERROR: SendMail(): The recipient '0301234567 and an extension' cannot be added.",
      "ERROR: SendMail(): The recipient '0301234567' cannot be added.",
      "WARNING: AddAttachment(): The extension cannot be retrieved.",
      "WARNING: AddAttachment(): The mime tag cannot be retrieved.",
      "ERROR: AddAttachment(): The attachment path cannot be read.",
      "ERROR: SendMail(): The attachment cannot be added.",
      "WARNING: AddAttachment(): The attachment file cannot be deleted.",
      "DEBUG: SendMail(): cleanup.",
      "DEBUG: SendMail(): Function end.",
      "INFO: DoMAPIFastShutdown(): Function in progress.",
      "INFO: DoMAPIFastShutdown(): Function end.",
  };
  auto next = undisturbed.begin();
  std::ptrdiff_t missing = 0;
  bool has_failed = false;
  for (const std::string& line : log) {
    const auto found = std::find(next, undisturbed.end(), line);
    if (found != undisturbed.end()) {
      missing += has_failed ? 0 : found - next;
      next = found + 1;
    } else {
      has_failed = true;
      EXPECT_TRUE(kOfFailures.contains(line) || of_other_route.contains(line)) << line;
    }
  }
  if (mode == test::AllocationFaultMode::kOnce) {
    // The add-in's whole route, the lines of its payload among them, when its probe had no memory.
    constexpr std::ptrdiff_t kLinesOfTheAddinsRoute = 18;
    EXPECT_LE(missing, kLinesOfTheAddinsRoute);
  }
}

// What a job file may hold in the end, and the exit code that it goes with, unless that may be any.
struct End {
  std::string job_file;
  std::string name;
  std::optional<int> exit_code = std::nullopt;
};
std::vector<End> EndsOf(const std::string& before) {
  std::vector<End> ends = {
      {test::WithSuccess(before), "delivered", 0},
      {test::WithResult(before, 1, kOutOfMemory, "MAPI Error"), "failed, out of memory", 1},
      {test::WithMapiError(before), "failed, the search found no library", 1},
      // Where an outcome could not be printed.
      {"", "emptied"},
      {before, "not written down"}};
  // The route that took over could not write down how it went: what the add-in's has said stays,
  // also where the job was then delivered.
  for (const auto& [log, code, text] : {test::kNoPayload, test::kNotSent, test::kNotConnected}) {
    ends.push_back({test::WithResult(before, 1, code, text), "told of the add-in's route alone"});
  }
  return ends;
}

TEST_F(JobMemory, EveryAllocationOfAJobHasAnOutcome) {
  std::size_t runs = 0;
  std::map<std::string, std::size_t> outcomes;
  for (Situation situation : kSituations) {
    SCOPED_TRACE(situation.name);
    situation.user_log_level = 1;
    situation.has_mail_client = true;
    // What the mail client's route says of the same job, should it have to take over, and of the
    // job file, should it be taken for the document.
    AllocationFaults none(test::AllocationFaultMode::kNone, 0);
    std::set<std::string> other_log;
    for (const std::vector<std::string>& log :
         {Run(test::ByMail(situation), none).log, LogOfTheJobFileAsDocument(situation)}) {
      other_log.insert(log.begin(), log.end());
    }
    const std::string before = test::JobFileOf(situation);
    const std::vector<End> ends = EndsOf(before);

    std::optional<Outcome> undisturbed;
    runs += test::SweepAllocations(situation.name, [&](AllocationFaults& faults) {
      const Outcome outcome = Run(situation, faults);
      if (!undisturbed) {
        undisturbed = outcome;
        EXPECT_EQ(outcome.exit_code, 0);
        EXPECT_EQ(outcome.job_file, situation.on_command_line
                                        ? std::nullopt
                                        : std::optional(test::WithSuccess(before)));
        return;
      }
      ExpectLog(outcome.log, undisturbed->log, other_log, faults.Mode());

      // Without a line the job has ended before its first one.
      EXPECT_TRUE(!outcome.log.empty() || outcome.exit_code == 1 ||
                  faults.Mode() == test::AllocationFaultMode::kFromThere);

      // The file of the log holds no half lines.
      const std::string log_file = fake_.FileBytes(kLog).value_or("");
      EXPECT_TRUE(log_file.empty() || log_file.ends_with("\r\n"));

      if (!situation.on_command_line && IsTakenForDocument(outcome)) {
        // There was no memory for the job file's bytes: it is then a document like any other.
        ++outcomes["job file taken for the document"];
        EXPECT_EQ(faults.Mode(), test::AllocationFaultMode::kOnce);
        EXPECT_EQ(outcome.job_file ? std::vector{*outcome.job_file} : outcome.attachments,
                  std::vector<std::string>{before});
        EXPECT_EQ(outcome.document, test::kDocumentBytes);
        EXPECT_EQ(outcome.exit_code, 0);
        return;
      }
      // At most one delivery, and it is whole. What an add-in got of a connection that it broke off
      // itself is none.
      const bool was_sent =
          situation.has_port && situation.peer == Peer::kAccept && !outcome.payloads.empty();
      if (was_sent) {
        EXPECT_EQ(outcome.payloads, undisturbed->payloads);
      }
      EXPECT_LE(outcome.messages + (was_sent ? 1 : 0), 1u);
      const bool took_over = outcome.messages != 0 && undisturbed->messages == 0;
      if (outcome.messages != 0) {
        EXPECT_EQ(outcome.attachments, std::vector<std::string>{test::kDocumentBytes});
        if (!took_over) {
          EXPECT_EQ(outcome.message, undisturbed->message);
        }
      }
      // The document is there, or the mail client has all of it.
      if (outcome.document) {
        EXPECT_EQ(*outcome.document, test::kDocumentBytes);
      } else {
        EXPECT_EQ(outcome.attachments, std::vector<std::string>{test::kDocumentBytes});
      }
      // The diverted payload is there whole when the job counts as delivered.
      if (situation.diverted && outcome.exit_code == 0 && !was_sent && outcome.messages == 0) {
        EXPECT_EQ(outcome.diverted, undisturbed->diverted);
      }
      const bool is_delivered = was_sent || outcome.messages != 0 || situation.user_skip != 0 ||
                                (situation.diverted && outcome.diverted == undisturbed->diverted);
      if (outcome.exit_code == 0) {
        EXPECT_TRUE(is_delivered);
      } else {
        EXPECT_FALSE(was_sent || outcome.messages != 0);
      }

      // The job file is as it was or holds an outcome that is true.
      if (situation.on_command_line) {
        EXPECT_EQ(outcome.job_file, std::nullopt);
        ++outcomes[outcome.exit_code == 0 ? "delivered" : "failed"];
        return;
      }
      const auto end = std::find_if(ends.begin(), ends.end(), [&](const End& each) {
        return each.job_file == outcome.job_file;
      });
      ASSERT_NE(end, ends.end()) << outcome.job_file.value_or("no job file");
      EXPECT_EQ(outcome.exit_code, end->exit_code.value_or(outcome.exit_code));
      ++outcomes[end->name];
    });
  }
  EXPECT_GT(outcomes["delivered"], 0u);
  EXPECT_GT(outcomes["failed, out of memory"], 0u);
  EXPECT_GT(outcomes["not written down"], 0u);
  for (std::size_t place = 0; place < test::Outcomes().size(); ++place) {
    const test::Outcome& outcome = test::Outcomes()[place];
    if (outcome.source == test::Source::kMemory) {
      EXPECT_TRUE(known_outcomes_.contains(place))
          << test::NameOf(outcome.route) << ", exit code " << outcome.exit_code << ", Result "
          << outcome.result;
    }
  }
  std::cout << "whole jobs without memory: " << std::size(kSituations) << " jobs, " << runs
            << " runs\n";
  for (const auto& [outcome, count] : outcomes) {
    std::cout << "  " << outcome << ": " << count << "\n";
  }
}

}  // namespace
}  // namespace zentpost
