// The doctor's program on a real machine: what it prints, that it changes nothing, and that it says
// what the tool then does.

#include <cjson/cJSON.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <thread>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"
#include "tools/doctor/report_samples.h"
#include "tools/support/files.h"

namespace zentpost::doctor {
namespace {

using e2e::Hive;
namespace fs = std::filesystem;

constexpr char kDocument[] = "%PDF-1.4 of a test";

struct TreeDeleter {
  void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

std::string TextOf(const cJSON* object, const char* name) {
  const cJSON* const member = cJSON_GetObjectItemCaseSensitive(object, name);
  return cJSON_IsString(member) != 0 ? member->valuestring : "";
}

// The report that a run has printed.
class PrintedReport {
 public:
  explicit PrintedReport(const std::string& json) : tree_(cJSON_Parse(json.c_str())) {
    EXPECT_NE(tree_, nullptr) << json;
    KeepReport(json);
  }

  [[nodiscard]] const cJSON* Member(const char* name) const {
    return cJSON_GetObjectItemCaseSensitive(tree_.get(), name);
  }
  [[nodiscard]] const cJSON* Rehearsal(const char* name) const {
    return cJSON_GetObjectItemCaseSensitive(Member("rehearsal"), name);
  }
  [[nodiscard]] std::string Route() const { return TextOf(Member("verdict"), "route"); }
  [[nodiscard]] int ExitCode() const {
    return cJSON_GetObjectItemCaseSensitive(Member("verdict"), "exit_code")->valueint;
  }

  // "D05! D03 D06-": errors marked by "!", notes by "-"; without those that a machine has by
  // itself: D24 (a test may run as root) and D22.
  [[nodiscard]] std::string Codes() const {
    std::string codes;
    const cJSON* finding = nullptr;
    cJSON_ArrayForEach(finding, Member("findings")) {
      const std::string code = TextOf(finding, "code");
      const std::string severity = TextOf(finding, "severity");
      if (code != "D24" && code != "D22") {
        codes.append(codes.empty() ? "" : " ").append(code);
        codes += severity == "error" ? "!" : severity == "note" ? "-" : "";
      }
    }
    return codes;
  }

  [[nodiscard]] bool Assumes(std::string_view what) const {
    const cJSON* text = nullptr;
    cJSON_ArrayForEach(text, Member("assumed")) {
      if (std::string_view(text->valuestring).find(what) != std::string_view::npos) {
        return true;
      }
    }
    return false;
  }

  // The lines of the log, as ToolRun::log has them.
  [[nodiscard]] std::string Log() const {
    std::string log;
    const cJSON* line = nullptr;
    cJSON_ArrayForEach(line, Rehearsal("log")) {
      log.append(line->valuestring).append("\n");
    }
    return log;
  }

 private:
  Tree tree_;
};

// All that a run could change: the files with their bytes and times, and the registry.
std::map<std::string, std::string> Contents(const e2e::Machine& machine) {
  std::map<std::string, std::string> contents;
  for (const fs::path& folder : {machine.Folder(), machine.LogFolder()}) {
    if (!fs::exists(folder)) {
      continue;
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
      contents[support::PathText(entry.path())] =
          entry.is_regular_file()
              ? std::to_string(entry.last_write_time().time_since_epoch().count()) +
                    support::ReadBytes(entry.path()).value_or("unreadable")
              : "no file";
    }
  }
  contents["the registry"] = machine.RegistryContents();
  return contents;
}

class DoctorProgram : public e2e::JobTest {
 protected:
  DoctorProgram() { ExpectLogFile(LogFile::kUnchecked); }

  // Runs the doctor; nothing changes meanwhile.
  e2e::ProcessRun Doctor(const std::vector<std::string>& arguments) {
    const auto before = Contents(machine_);
    e2e::ProcessRun run = e2e::RunProcess(e2e::Setting("doctor"), arguments, machine_.Options());
    EXPECT_TRUE(Contents(machine_) == before);
    EXPECT_EQ(run.debug_output, "");
    return run;
  }

  PrintedReport Report(const std::vector<std::string>& line = {}) {
    std::vector<std::string> arguments = {"--json"};
    arguments.insert(arguments.end(), line.begin(), line.end());
    const e2e::ProcessRun run = Doctor(arguments);
    PrintedReport report(run.printed);
    const bool is_well = report.ExitCode() == 0 && report.Codes().find('!') == std::string::npos;
    EXPECT_EQ(run.exit_code, is_well ? 0 : 1);
    return report;
  }

  // Wrong use: one line that names `word`.
  void ExpectWrongUse(const std::vector<std::string>& arguments, const std::string& word) {
    const e2e::ProcessRun run = Doctor(arguments);
    EXPECT_EQ(run.exit_code, 2) << word;
    EXPECT_NE(run.printed.find(word), std::string::npos) << run.printed;
    EXPECT_EQ(std::count(run.printed.begin(), run.printed.end(), '\n'), 1) << run.printed;
  }

  void PrepareJob() {
    SetFile("a.pdf", kDocument);
    SetFile("job.json", e2e::Job{.receiver = "0301", .subject = "Invoice"}.File());
  }
};

TEST_F(DoctorProgram, PrintsWhatItIsAskedFor) {
  const e2e::ProcessRun help = Doctor({"--help"});
  EXPECT_EQ(help.exit_code, 0);
  EXPECT_EQ(help.printed.substr(0, 29), "Usage: zentpost_doctor [--jso");
  const e2e::ProcessRun version = Doctor({"--version"});
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_EQ(version.printed.substr(0, 16), "zentpost_doctor ");
  const e2e::ProcessRun explained = Doctor({"--explain", "D13"});
  EXPECT_EQ(explained.exit_code, 0);
  EXPECT_EQ(Doctor({"--explain", "d13"}).printed, explained.printed);
}

TEST_F(DoctorProgram, NamesTheArgumentThatIsWrong) {
  ExpectWrongUse({"--explain", "D36"}, "D36");
  ExpectWrongUse({"--explain"}, "--explain");
  ExpectWrongUse({"--frobnicate"}, "--frobnicate");
  ExpectWrongUse({"--help", "--json"}, "--help");
  ExpectWrongUse({"--json", "--version"}, "--version");
  ExpectWrongUse({"--version", "job.json"}, "--version");
  ExpectWrongUse({"--out"}, "--out");
  ExpectWrongUse({"--out", "a", "--out", "b"}, "--out");
  ExpectWrongUse({"--out\x07"}, "--out<U+0007>");
  ExpectWrongUse({"--out", "nowhere/report.txt"}, "nowhere/report.txt");
  ExpectWrongUse({"--out", "temporary"}, "temporary");
}

TEST_F(DoctorProgram, DoesNotReplaceAFileThatMayNotBeWritten) {
  SetFile("report.txt", "kept");
  const e2e::ReadOnly read_only(PathOf("report.txt"));
  ExpectWrongUse({"--out", "report.txt"}, "report.txt");
  ExpectWrongUse({"--out", "/dev/null"}, "/dev/null");
  EXPECT_EQ(FileBytes("report.txt"), "kept");
}

TEST_F(DoctorProgram, WritesTheReportIntoAFile) {
  PrepareJob();
  const e2e::ProcessRun run = e2e::RunProcess(
      e2e::Setting("doctor"), {"--json", "--out", "a report.txt", "job.json"}, machine_.Options());
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_EQ(run.printed, "");
  EXPECT_EQ(PrintedReport(FileBytes("a report.txt")).Route(), "none");
}

TEST_F(DoctorProgram, ReplacesNoFileOfTheJob) {
  PrepareJob();
  machine_.AddLogFolder();
  SetFile("library.dll", "no library");
  machine_.SetDefaultMailClient("Test Client");
  machine_.SetMailClientText("Test Client", u"DllPathEx", support::PathText(PathOf("library.dll")));
  for (const std::string file :
       {"job.json", "a.pdf", "./job.json", "temporary/../a.pdf", "library.dll"}) {
    ExpectWrongUse({"--out", file, "job.json"}, file);
  }
  const std::string log = support::PathText(machine_.LogFile());
  ExpectWrongUse({"--out", log}, log);
  ExpectWrongUse({"--out", "out.json", "a.pdf", "0301;O./out.json"}, "out.json");
  EXPECT_FALSE(FileExists("out.json"));
}

TEST_F(DoctorProgram, MakesNoFileThroughALinkToNowhere) {
  std::error_code error;
  fs::create_symlink(PathOf("missing.pdf"), PathOf("link"), error);
  if (error) {
    GTEST_SKIP() << "there are no links here";
  }
  ExpectWrongUse({"--out", "link", "missing.pdf"}, "link");
  EXPECT_FALSE(FileExists("missing.pdf"));
}

TEST_F(DoctorProgram, PrintsTextWithTheVerdictInFrontInEightyColumns) {
  PrepareJob();
  const e2e::ProcessRun run = Doctor({"job.json"});
  const std::string first_line = run.printed.substr(0, run.printed.find('\n'));
  EXPECT_TRUE(first_line.starts_with("Reported as ")) << first_line;
  EXPECT_NE(first_line.find(" (D"), std::string::npos) << first_line;
  std::size_t start = 0;
  for (std::size_t end = run.printed.find('\n'); end != std::string::npos;
       end = run.printed.find('\n', start)) {
    EXPECT_LE(end - start, 80u) << run.printed.substr(start, end - start);
    start = end + 1;
  }
}

TEST_F(DoctorProgram, ConnectsToTheAddinOnlyWhenItIsTold) {
  PrepareJob();
  e2e::Addin addin;
  SetAddinPort(addin);
  const PrintedReport report = Report({"job.json"});
  EXPECT_EQ(report.Route(), "addin");
  EXPECT_EQ(report.Codes().find("D03"), std::string::npos);
  const e2e::ProcessRun run = Doctor({"--json", "--connect", "job.json"});
  EXPECT_EQ(PrintedReport(run.printed).Route(), "addin");
  // One connection, without a byte.
  EXPECT_EQ(Ends(addin.Finish()), "probe");
}

TEST_F(DoctorProgram, TellsThatNobodyListens) {
  SetAddinPort(std::to_string(e2e::PortWithoutListener()));
  for (const char* const option : {"--json", "--connect"}) {
    const PrintedReport report(Doctor({"--json", option}).printed);
    EXPECT_NE(report.Codes().find("D03"), std::string::npos) << report.Codes();
  }
}

TEST_F(DoctorProgram, NeverLoadsACandidate) {
  if (!e2e::Machine::CanWrite(Hive::kLocalMachine)) {
    GTEST_SKIP() << "this user may not choose the machine's mail client";
  }
  PrepareJob();
  machine_.SetVariable("TRACE_LIBRARY_FILE", PathOf("loaded"));
  machine_.SetDefaultMailClient("Test Client");
  machine_.SetMailClientText("Test Client", u"DllPathEx",
                             support::PathText(e2e::Setting("trace-library")));
  const PrintedReport report = Report({"job.json"});
  EXPECT_NE(report.Codes().find("D14!"), std::string::npos) << report.Codes();
  EXPECT_FALSE(FileExists("loaded"));
  // The tool does.
  Run({"job.json"});
  EXPECT_TRUE(FileExists("loaded"));
}

// One job on one machine, made of a number: what is usual, and what goes wrong every day.
class RandomJobs : public DoctorProgram {
 protected:
  void SetUp() override {
    if (!e2e::Machine::CanWrite(Hive::kLocalMachine)) {
      GTEST_SKIP() << "this user may not choose the machine's mail client";
    }
  }

  // Compares what the doctor says with what the tool does; false for a difference.
  void RunOne(std::uint32_t seed) {
    SCOPED_TRACE("job " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto one_in = [&](std::uint32_t count) { return random() % count == 0; };
    const auto pick = [&](std::vector<std::string> texts) {
      return texts[random() % texts.size()];
    };
    e2e::Machine machine;
    const auto file = [&](const std::string& name, const std::string& bytes) {
      support::WriteBytes(machine.Folder() / support::Path(name), bytes);
    };

    std::unique_ptr<e2e::Addin> addin;
    if (one_in(2)) {
      addin = std::make_unique<e2e::Addin>();
      machine.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort,
                      std::to_string(addin->port()) + (one_in(4) ? " " : ""));
    } else if (one_in(3)) {
      machine.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort,
                      pick({"0", "port", std::to_string(e2e::PortWithoutListener())}));
    }
    if (one_in(3)) {
      machine.SetNumber(Hive::kCurrentUser, registry::kFaxClientKey, registry::kSkipExtendedMapi,
                        1);
    }
    if (one_in(3)) {
      machine.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, "1");
      machine.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressPostfix,
                      pick({"", "@fax.invalid", "]"}));
    }
    const bool has_client = !one_in(3);
    if (has_client) {
      EXPECT_EQ(e2e::RunProcess(e2e::Setting("sandbox"), {"register"}, machine.Options()).exit_code,
                0);
    } else if (one_in(2)) {
      machine.SetDefaultMailClient("Test Client");
      machine.SetMailClientText("Test Client", u"DllPathEx",
                                support::PathText(machine.Folder() / "library.dll"));
      if (one_in(2)) {
        file("library.dll", pick({"", "MZ", "no library"}));
      }
    }

    const std::string document = pick({"a.pdf", "a.pdf", "B\xC3\xA4rte 1.pdf", "noname"});
    if (!one_in(8)) {
      file(document, one_in(8) ? "" : kDocument);
    }
    e2e::Job job = {.document = document,
                    .name = pick({"invoice", "B\xC3\xA4r", "100 \xE2\x82\xAC"}),
                    .receiver = pick({"0301", "0301", "", "a@b.invalid"}),
                    .recipient = pick({"", "Erika", "\xE6\x97\xA5\xE6\x9C\xAC"}),
                    .subject = pick({"", "Invoice", "\xC3\xA4\xE2\x82\xAC"})};
    if (one_in(6)) {
      job.preview = pick({"1", "-", ""});
    }
    if (one_in(8)) {
      job.output = pick({"./out.json", "out.json", "./job.json", "./nowhere/out.json"});
    }
    std::string text = job.File();
    switch (random() % 12) {
      case 0:
        text = e2e::Replaced(text, "FilePath", "Filepaht");
        break;
      case 1:
        text = e2e::Replaced(text, "\"Cmd\"", "\"cmd\"");
        break;
      case 2:
        text.insert(text.rfind('}'), ",");
        break;
      case 3:
        text = "\xEF\xBB\xBF" + text;
        break;
      default:
        break;
    }
    file("job.json", text);
    std::vector<std::string> line = {"job.json"};
    if (one_in(3)) {
      line = {document, pick({"0301;SInvoice", "0301", ";SInvoice", "0301;S\xC3\xA4;P"})};
      if (one_in(4)) {
        line.insert(line.end(), {pick({"/attdisplayname", "/x"}), "Letter"});
      }
    }
    Compare(machine, line, addin.get());
    if (has_client) {
      EXPECT_EQ(
          e2e::RunProcess(e2e::Setting("sandbox"), {"unregister"}, machine.Options()).exit_code, 0);
    }
  }

 private:
  // The file of the field O, and the mail client's of the message.
  static void CompareNewFiles(const e2e::Machine& machine,
                              const std::map<std::string, std::string>& before,
                              const PrintedReport& report) {
    bool has_message = false;
    for (const auto& [name, contents] : Contents(machine)) {
      const fs::path path = support::Path(name);
      const bool is_new = !before.contains(name) && contents != "no file";
      has_message |= is_new && path.extension() == ".eml";
      if (is_new && path.filename() == "out.json") {
        const Tree tree(cJSON_Parse(support::ReadBytes(path).value_or("").c_str()));
        EXPECT_NE(cJSON_Compare(report.Rehearsal("payload"), tree.get(), 1), 0) << contents;
      }
    }
    EXPECT_EQ(cJSON_IsObject(report.Rehearsal("message")) != 0, has_message);
  }

  void Compare(const e2e::Machine& machine, const std::vector<std::string>& line,
               e2e::Addin* addin) {
    const fs::path job_file = machine.Folder() / "job.json";
    const fs::path document = machine.Folder() / support::Path(line[0]);
    e2e::ProcessOptions options = machine.Options();
    options.environment.emplace_back("SANDBOX_MAPI_FOLDER", machine.Folder() / "mail");
    std::vector<std::string> arguments = {"--json"};
    arguments.insert(arguments.end(), line.begin(), line.end());
    const auto before = Contents(machine);
    const e2e::ProcessRun said = e2e::RunProcess(e2e::Setting("doctor"), arguments, options);
    EXPECT_TRUE(Contents(machine) == before);
    const PrintedReport report(said.printed);

    const e2e::ToolRun run = Run(line, options);
    // Wine's own library, where there is no other.
    if (report.Assumes("MAPIInitialize") &&
        run.log.find("MAPIInititialize failed") != std::string::npos) {
      ++unknown_;
      return;
    }
    EXPECT_EQ(report.ExitCode(), run.exit_code);
    // What the mail client calls its profile is its own affair.
    EXPECT_EQ(report.Log(), e2e::Replaced(run.log, "'Sandbox'", "'Outlook'"));
    const std::string fate = TextOf(report.Member("rehearsal"), "document_fate");
    const std::string told = TextOf(report.Member("rehearsal"), "document");
    if (!told.empty()) {
      const fs::path path = machine.Folder() / support::Path(told);
      const bool was_there = before.contains(support::PathText(path));
      EXPECT_EQ(fate == "deleted", was_there && !fs::exists(path)) << told;
    }
    CompareNewFiles(machine, before, report);
    const std::string written = support::ReadBytes(job_file).value_or("");
    const bool was_written = before.at(support::PathText(job_file)).ends_with(written) == false;
    const cJSON* const result = report.Rehearsal("result");
    EXPECT_EQ(cJSON_IsObject(result) != 0, was_written);
    if (was_written && cJSON_IsObject(result) != 0) {
      const Tree tree(cJSON_Parse(written.c_str()));
      const cJSON* const real = cJSON_GetObjectItem(tree.get(), "Result");
      EXPECT_NE(cJSON_Compare(result, real, 1), 0) << written;
    }
    std::string payload;
    if (addin != nullptr) {
      for (const addin_listener::Connection& connection : addin->Finish()) {
        payload += connection.wire;
      }
    }
    if (report.Route() == "addin") {
      // What the add-in makes of the bytes; each one that is no UTF-8 is told as U+FFFD.
      const std::string understood = support::Windows1252(support::Utf16(payload));
      const Tree tree(cJSON_Parse(support::Utf8(support::Utf16(understood)).c_str()));
      EXPECT_NE(cJSON_Compare(report.Rehearsal("payload"), tree.get(), 1), 0) << payload;
    } else {
      EXPECT_EQ(payload, "");
    }
  }

 protected:
  std::uint32_t unknown_ = 0;
};

TEST_F(RandomJobs, EndAsTheDoctorSays) {
  constexpr std::uint32_t kJobs = RANDOM_JOBS;
  for (std::uint32_t seed = 1; seed <= kJobs && !HasFailure(); ++seed) {
    RunOne(seed);
  }
  std::cout << kJobs << " jobs, " << unknown_ << " of them with what cannot be known\n";
}

TEST_F(DoctorProgram, WorksBesideOthersAndBesideTheTool) {
  PrepareJob();
  SkipSending();
  constexpr int kEach = 100;
  constexpr int kThreads = 10;
  const e2e::ProcessOptions options = machine_.Options();
  std::vector<std::thread> threads;
  std::vector<int> failures(kThreads * 2);
  for (int i = 0; i < kThreads * 2; ++i) {
    threads.emplace_back([&, i] {
      const bool is_doctor = i % 2 == 0;
      for (int run = 0; run < kEach / kThreads; ++run) {
        // The doctor finds that nobody gets the job, and the tool delivers it all the same.
        const int exit_code =
            is_doctor ? e2e::RunUnwatched(e2e::Setting("doctor"), {"a.pdf", "0301"}, options)
                      : e2e::RunUnwatched(e2e::Setting("tool"), {"a.pdf", "0301"}, options);
        failures[static_cast<std::size_t>(i)] += exit_code == (is_doctor ? 1 : 0) ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, std::vector<int>(kThreads * 2));
  EXPECT_EQ(FileBytes("a.pdf"), kDocument);
}

}  // namespace
}  // namespace zentpost::doctor
