// doctor_side COUNT FILE: what the doctor says of the random jobs 1 to COUNT, against what the tool
// has done with them, which FILE tells. Prints the share of what neither could know, and which
// codes there were. Fails for any other difference, and where a code never comes up.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include "platform/reading.h"
#include "testing/fake_platform/fake_platform.h"
#include "tools/doctor/examination.h"
#include "tools/doctor/parity/outcome.h"
#include "tools/doctor/parity/random_machine.h"
#include "tools/doctor/report.h"
#include "tools/doctor/report_parts.h"
#include "tools/doctor/texts.h"
#include "tools/support/text.h"

namespace zentpost::doctor::parity {
namespace {

Outcome Told(const Report& report) {
  const Rehearsal& rehearsal = *report.rehearsal;
  Outcome outcome;
  outcome["exit code"] = std::to_string(report.verdict.exit_code);
  std::string log;
  for (const LogLine& line : rehearsal.log) {
    log += support::Utf8(line.text) + "\n";
  }
  outcome["log"] = OneLine(log);
  outcome["result"] = kNothing;
  if (const std::optional<JobResult>& result = rehearsal.result) {
    outcome["result"] = std::to_string(result->status) + " " + std::to_string(result->error_code) +
                        " " + support::Utf8(result->error_text);
  }
  outcome["message"] = OneLine(rehearsal.message);
  outcome["removed"] = kNothing;
  if (rehearsal.document_fate == DocumentFate::kDeleted) {
    std::u16string path;
    static_cast<void>(platform::reading::PathKey(*rehearsal.document, path));
    outcome["removed"] = support::Utf8(path);
  }
  outcome["payload"] = rehearsal.payload ? OneLine(*rehearsal.payload) : kNothing;
  std::vector<std::u16string> paths;
  for (const Candidate& candidate : report.candidates) {
    if (candidate.path) {
      paths.push_back(*candidate.path);
    }
  }
  outcome["candidates"] = OneLine(paths);
  const Route route = report.verdict.route;
  outcome["route"] = route == Route::kMapi || route == Route::kNone ? kExtendedMapi : Name(route);
  return outcome;
}

// Whether the report says that it takes the very thing for granted that is otherwise.
bool IsAssumed(const RandomJob& job, const Report& report) {
  const auto assumes = [&](std::u16string_view text) {
    return std::any_of(report.assumed.begin(), report.assumed.end(),
                       [&](const auto& each) { return each.find(text) != std::u16string::npos; });
  };
  return (job.logon_fails && assumes(u"the logon to the mail client succeeds")) ||
         (job.addin_goes && assumes(u"the connection to the add-in succeeds")) ||
         (job.has_unknown_path && assumes(u"its path is not known"));
}

// What is decided before any of that: how the line and the job file are understood.
std::string Beginning(const std::string& log) {
  const std::size_t end = std::min(log.find("ProcessToOutlookClient()"), log.find("SendMail()"));
  return log.substr(0, log.rfind("\\0A", end));
}

class Comparison {
 public:
  bool Compare(std::uint32_t seed, std::istream& in) {
    const std::optional<Outcome> done = Read(in, seed);
    if (!done) {
      std::cerr << "job " << seed << " is not in the file\n";
      return false;
    }
    const RandomJob job = SetUpRandomMachine(seed, Side::kDoctor);
    const Report report =
        Examine({.line = job.line, .connects = false, .keeps_whole_log = true}).report;
    for (const Finding& finding : report.findings) {
      ++codes_[std::string(finding.code)];
    }
    ++routes_[static_cast<int>(report.verdict.route)];
    Outcome told = Told(report);
    if (job.has_unknown_path) {
      told["candidates"] = done->at("candidates");
    }
    if (told == *done) {
      return true;
    }
    if (IsAssumed(job, report) && Beginning(told.at("log")) == Beginning(done->at("log")) &&
        told.at("candidates") == done->at("candidates")) {
      ++unknown_;
      return true;
    }
    std::cerr << "job " << seed << ": " << support::Utf8(job.line) << '\n';
    for (const Candidate& candidate : report.candidates) {
      std::cerr << "  candidate " << candidate.source << ' '
                << support::Utf8(candidate.path.value_or(u"unknown")) << ' '
                << Name(candidate.state) << '\n';
    }
    for (const auto& [name, text] : *done) {
      if (told.at(name) != text) {
        std::cerr << "  " << name << ", the tool:   " << text << "\n  " << name
                  << ", the doctor: " << told.at(name) << '\n';
      }
    }
    return false;
  }

  // What was seen; false when a code never came up.
  bool Sum(std::uint32_t count) const {
    std::cout << count << " jobs, " << unknown_ << " of them with what cannot be known ("
              << 100.0 * static_cast<double>(unknown_) / count << " %)\nroutes:";
    for (const auto& [route, jobs] : routes_) {
      std::cout << ' ' << jobs;
    }
    std::cout << "\ncodes:";
    bool has_all = true;
    for (const CodeText& text : CodeTexts()) {
      const auto found = codes_.find(std::string(text.code));
      const int times = found == codes_.end() ? 0 : found->second;
      has_all = has_all && times > 0;
      std::cout << ' ' << text.code << ' ' << times;
    }
    std::cout << '\n';
    return has_all;
  }

 private:
  std::map<std::string, int> codes_;
  std::map<int, int> routes_;
  std::uint32_t unknown_ = 0;
};

}  // namespace
}  // namespace zentpost::doctor::parity

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: doctor_side COUNT FILE\n";
    return 2;
  }
  std::ifstream in(argv[2], std::ios::binary);
  const auto count = static_cast<std::uint32_t>(std::atoi(argv[1]));
  zentpost::doctor::parity::Comparison comparison;
  int differences = 0;
  for (std::uint32_t seed = 1; seed <= count && differences < 10; ++seed) {
    differences += comparison.Compare(seed, in) ? 0 : 1;
  }
  const bool has_all = comparison.Sum(count);
  std::cout << differences << " differences\n";
  return differences == 0 && has_all ? 0 : 1;
}
