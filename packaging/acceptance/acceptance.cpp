// Runs the tests that make sense on a real Windows machine, and leaves one report of them.
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "packaging/acceptance/child.h"
#include "packaging/acceptance/saved_machine.h"
#include "packaging/acceptance/test_output.h"
#include "tools/support/files.h"
#include "tools/support/program.h"
#include "tools/support/text.h"

namespace zentpost {

const bool kToolWritesLineFeeds = false;

namespace acceptance {
namespace {

namespace fs = std::filesystem;
using std::chrono::minutes;
using Texts = std::vector<std::string>;

// Exit codes.
constexpr int kAllPassed = 0;
constexpr int kSomethingFailed = 1;
constexpr int kNothingRun = 2;

// The mail client's registration may have 129 characters, and is told the path of a library below
// the folder of a bitness.
constexpr std::size_t kLongestFolder =
    129 - std::string_view("\\x64\\decorated\\sandbox_mapi.dll").size();

constexpr char kUsage[] =
    "Usage: run.cmd [/y] [/quick] [/only NAME]\n"
    "\n"
    "Runs Zentpost's tests on this machine and leaves report.txt beside run.cmd.\n"
    "\n"
    "  /y          do not ask\n"
    "  /quick      a selection, within a minute or two\n"
    "  /only NAME  one of the test programs that the report names: \"end to end\"\n"
    "\n"
    "Exit code: 0 all passed; 1 something failed; 2 nothing was run.\n";

constexpr char kNoTemporaryFolder[] =
    "The folder for temporary files cannot be used: let the variables TEMP and TMP name one\n"
    "that can, and start run.cmd again.\n";

// A test program, in the folder of its bitness.
struct Program {
  const char* name;
  const wchar_t* file;
  std::vector<std::wstring> arguments;
  const wchar_t* quick;     // what /quick selects of it
  const wchar_t* left_out;  // always
};

const std::vector<Program>& Programs() {
  static const std::vector<Program> programs = {
      {"platform contract",
       L"platform_native_contract.exe",
       {},
       L"RegistryContract.*:SystemContract.*:TextCodecContract.*",
       L""},
      {"Windows layer",
       L"platform_windows_test.exe",
       {},
       L"CompletePath.*:LookBeforeOpening.*:TextCodec.*:TryToConnect.*",
       L""},
      {"Windows sockets", L"platform_windows_sockets_test.exe", {}, L"*", L""},
      {"binary interface", L"mapi_abi_test.exe", {L"extended_mapi.h"}, L"*", L""},
      {"entry point", L"entry_point_test.exe", {}, L"*", L""},
      // Not what registers components with the Windows Installer, nor what an installed Outlook
      // changes, which the installer knows.
      {"search for MAPI",
       L"mapiload_e2e.exe",
       {L"--mapi-search=mapi_search.exe", L"--libraries=fake_libraries"},
       L"Search.FindsTheDefault*:Search.TakesALibrary*:Installation.*",
       L"InstallerSearch.*:Search.PrefersTheSources*:Search.EndsAtTheSystems*:"
       L"Search.ExpandsVariables*:Search.DoesWithoutAnExpansion*:Search.AsksEitherStub*"},
      {"end to end",
       L"e2e_tests.exe",
       {L"--tool=zentpost.exe", L"--log-writer=log_writer.exe", L"--sandbox=sandbox_mapi.exe"},
       L"Delivery.*:MailRoute.LogsTheJobAndFails:MailClient.SendsTheJob*",
       L""},
  };
  return programs;
}

struct Options {
  bool is_confirmed = false;
  bool is_quick = false;
  std::string only;  // the name of a program; empty for all
};

struct Result {
  std::string bitness;
  std::string name;
  enum class Verdict { kPassed, kFailed, kSkipped } verdict = Verdict::kFailed;
  std::string remark;
  TestOutput output;
};

const char* Word(Result::Verdict verdict) {
  switch (verdict) {
    case Result::Verdict::kPassed:
      return "passed";
    case Result::Verdict::kSkipped:
      return "skipped";
    case Result::Verdict::kFailed:
      break;
  }
  return "FAILED";
}

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

// The folder of run.cmd: this program is in one below it.
fs::path OwnFolder() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return fs::path(path).parent_path().parent_path();
}

// Empty when the variables name none.
fs::path TemporaryFolder() {
  std::error_code ignored;
  return fs::temp_directory_path(ignored);
}

std::string Variable(const wchar_t* name) {
  std::wstring value(32768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return support::PathText(value);
}

std::string Seconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds);
  return text;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

bool IsAdministrator() {
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  PSID administrators = nullptr;
  BOOL is_member = FALSE;
  if (AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS,
                               0, 0, 0, 0, 0, 0, &administrators) != 0) {
    CheckTokenMembership(nullptr, administrators, &is_member);
    FreeSid(administrators);
  }
  return is_member != FALSE;
}

template <class Function>
Function FunctionOf(const wchar_t* library, const char* name) {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)));
}

// The numbers are the true ones, where GetVersionEx tells older programs an older one.
std::string WindowsVersion() {
  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (auto* const get =
          FunctionOf<LONG(WINAPI*)(OSVERSIONINFOEXW*)>(L"ntdll.dll", "RtlGetVersion")) {
    get(&version);
  }
  std::string text = "Windows " + std::to_string(version.dwMajorVersion) + "." +
                     std::to_string(version.dwMinorVersion) + "." +
                     std::to_string(version.dwBuildNumber);
  text += version.wProductType == VER_NT_WORKSTATION ? "" : " Server";
  text += sizeof(void*) == 8 ? ", 64-bit" : ", 32-bit";
  if (auto* const get = FunctionOf<const char*(CDECL*)()>(L"ntdll.dll", "wine_get_version")) {
    text.append(", which is Wine ").append(get());
  }
  return text;
}

std::string Now() {
  const std::time_t now = std::time(nullptr);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", std::localtime(&now));
  return text;
}

// What a program printed, as UTF-8: its lines are that already, or in the ANSI code page.
std::string Utf8Lines(const std::string& printed) {
  std::string result;
  for (std::size_t begin = 0; begin < printed.size();) {
    const std::string line =
        printed.substr(begin, std::min(printed.find('\n', begin), printed.size() - 1) + 1 - begin);
    begin += line.size();
    const int size = static_cast<int>(line.size());
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, line.data(), size, nullptr, 0) > 0) {
      result += line;
      continue;
    }
    std::wstring wide(line.size(), L'\0');
    wide.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_ACP, 0, line.data(), size, wide.data(), size)));
    result += support::Utf8(support::FromWide(wide.c_str()));
  }
  return result;
}

// The long and the short form of a path that is there.
std::vector<fs::path> BothForms(const fs::path& path) {
  std::vector<fs::path> forms = {path};
  for (auto* const get : {GetLongPathNameW, GetShortPathNameW}) {
    std::wstring form(32768, L'\0');
    form.resize(get(path.c_str(), form.data(), static_cast<DWORD>(form.size())));
    forms.emplace_back(form);
  }
  return forms;
}

// What a report that is sent away does not tell.
std::vector<std::pair<std::string, std::string>> PrivateNames(const fs::path& folder,
                                                              const fs::path& temporary) {
  std::vector<std::pair<std::string, std::string>> names;
  // A shorter one may be any word.
  const auto add_word = [&](std::string name, const char* shown) {
    if (name.size() >= 3) {
      names.emplace_back(std::move(name), shown);
    }
  };
  const fs::path profile = support::Path(Variable(L"USERPROFILE"));
  for (const auto& [path, shown] :
       {std::pair(folder, "<acceptance>"), std::pair(profile, "<profile>"),
        std::pair(temporary, "<temp>")}) {
    for (const fs::path& form : BothForms(path)) {
      // A drive says nothing.
      if (form.has_filename()) {
        names.emplace_back(support::PathText(form), shown);
      }
    }
  }
  for (const fs::path& form : BothForms(profile)) {
    add_word(support::PathText(form.filename()), "<user>");
  }
  for (const auto& [variable, shown] :
       {std::pair(L"COMPUTERNAME", "<computer>"), std::pair(L"USERDOMAIN", "<domain>"),
        std::pair(L"USERNAME", "<user>")}) {
    add_word(Variable(variable), shown);
  }
  return names;
}

bool IsProgram(const std::string& name) {
  const auto& programs = Programs();
  return std::any_of(programs.begin(), programs.end(),
                     [&](const Program& program) { return program.name == name; });
}

std::optional<Options> ReadOptions(const Texts& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "/y" || arguments[i] == "/Y") {
      options.is_confirmed = true;
    } else if (arguments[i] == "/quick") {
      options.is_quick = true;
    } else if (arguments[i] == "/only" && i + 1 < arguments.size() && IsProgram(arguments[i + 1])) {
      options.only = arguments[++i];
    } else {
      return std::nullopt;
    }
  }
  return options;
}

bool Ask() {
  Print("Run them now? (y/n) ");
  char answer[16] = {};
  return std::fgets(answer, sizeof answer, stdin) != nullptr &&
         (answer[0] == 'y' || answer[0] == 'Y');
}

class Run {
 public:
  Run(fs::path folder, Options options) : folder_(std::move(folder)), options_(options) {}

  int Perform() {
    if (!IsPlaceRight() || !IsFormerRunPutBack() || !AreFoldersUsable() || !IsWanted() ||
        !IsPrepared()) {
      RemoveEmptyFolder(saved_);
      return kNothingRun;
    }
    // A 32-bit program sees, and saves, no more of the registry than others of its kind.
    if (sizeof(void*) == 8) {
      RunBitness(L"x64");
    }
    RunBitness(L"x86");
    Tell(PutMachineBack(saved_), "");
    return Finish();
  }

 private:
  bool IsPlaceRight() const {
    if (folder_.native().size() > kLongestFolder) {
      Print(
          "The path of this folder is too long for the tests: copy all of it to one whose path\n"
          "has at most " +
          std::to_string(kLongestFolder) + " characters, and start run.cmd there.\n");
      return false;
    }
    std::error_code error;
    fs::create_directories(saved_, error);
    if (error) {
      Print(
          "This folder cannot be written: copy all of it to a folder of your own, and start\n"
          "run.cmd there.\n");
    }
    return !error;
  }

  bool IsFormerRunPutBack() {
    if (IsSaved(saved_)) {
      Tell(PutMachineBack(saved_), "An earlier run was cut short. ");
      RemoveWorkFolder();
    }
    return !IsSaved(saved_);
  }

  // What is not this program's own it neither writes over nor removes.
  bool AreFoldersUsable() const {
    if (!HoldsOnlySaved(saved_)) {
      Print(
          "The folder \"saved by run.cmd\" beside run.cmd holds something that is not run.cmd's:\n"
          "move that elsewhere, and start run.cmd again.\n");
      return false;
    }
    if (!work_.is_absolute()) {
      Print(kNoTemporaryFolder);
      return false;
    }
    return true;
  }

  bool IsWanted() const {
    Print("Zentpost " ZENTPOST_VERSION
          ", tests for this machine.\n\n"
          "They change for a while, and put back at the end:\n");
    for (const std::string& thing : ThingsThatAreChanged()) {
      Print("  - " + thing + "\n");
    }
    Print(
        "What is there now is saved in the folder \"saved by run.cmd\" first. No mail is\n"
        "sent, and nothing leaves this machine. Close the fax application and the mail\n"
        "client.\n"
        "Ctrl-C stops the tests and puts everything back; so does the next start when\n"
        "this one is cut short.\n");
    if (!IsAdministrator()) {
      Print(
          "\nYou are no administrator: what has to change the machine's mail client is skipped.\n");
    }
    Print("\n");
    if (options_.is_confirmed || Ask()) {
      return true;
    }
    Print("Nothing was run.\n");
    return false;
  }

  bool IsPrepared() const {
    RemoveWorkFolder();
    std::error_code error;
    if (!fs::create_directory(work_, error)) {
      Print(kNoTemporaryFolder);
      return false;
    }
    if (!SaveMachine(saved_)) {
      Print(
          "What the tests change cannot be saved, so nothing was run: see whether this user\n"
          "may read the registry keys above, and start run.cmd again.\n");
      RemoveWorkFolder();
      return false;
    }
    SetEnvironmentVariableW(L"TEMP", work_.c_str());
    SetEnvironmentVariableW(L"TMP", work_.c_str());
    SetEnvironmentVariableW(L"ZENTPOST_TEST_REAL_MACHINE", L"1");
    return true;
  }

  void RemoveWorkFolder() const {
    // In the current folder there is none of this program's.
    if (work_.is_absolute()) {
      std::error_code ignored;
      fs::remove_all(work_, ignored);
    }
  }

  void RunBitness(const std::wstring& bitness) {
    const fs::path folder = folder_ / bitness;
    const std::string name = support::PathText(bitness);
    // It needs nothing and changes nothing.
    const ChildEnd probe = Child(folder, L"zentpost_doctor.exe", {L"--version"});
    if (IsInterrupted()) {
      return;
    }
    const bool is_started = probe.how != ChildEnd::How::kNotStarted;
    const bool has_ended = probe.how == ChildEnd::How::kEnded && probe.code == 0;
    // A 64-bit Wine without the 32-bit part ends such a program at once with 0.
    if (!is_started || (has_ended && Printed().empty())) {
      AddForAll(name, Result::Verdict::kSkipped,
                "this system does not run them" +
                    (is_started ? std::string() : " (error " + std::to_string(probe.code) + ")"));
      return;
    }
    if (!has_ended) {
      AddForAll(name, Result::Verdict::kFailed,
                "not run: zentpost_doctor --version " +
                    (probe.how == ChildEnd::How::kTimedOut
                         ? std::string("does not end")
                         : "ends with exit code " + support::Hex(probe.code)));
      return;
    }
    Child(folder, L"zentpost_doctor.exe", {});
    doctor_reports_.emplace_back(name, Printed());
    for (const Program& program : Programs()) {
      if (IsInterrupted()) {
        return;
      }
      if (!options_.only.empty() && options_.only != program.name) {
        continue;
      }
      Print(Padded(name, 5) + Padded(program.name, 20));
      results_.push_back(RunProgram(folder, name, program));
      Print(std::string(Word(results_.back().verdict)) + "  " + results_.back().remark + "\n");
    }
  }

  void AddForAll(const std::string& bitness, Result::Verdict verdict, const std::string& remark) {
    results_.push_back({bitness, "all programs", verdict, remark, ReadTestOutput(Printed())});
    Show(results_.back());
  }

  Result RunProgram(const fs::path& folder, const std::string& bitness, const Program& program) {
    std::vector<std::wstring> arguments = program.arguments;
    const std::wstring filter = options_.is_quick ? program.quick : L"*";
    arguments.push_back(L"--gtest_filter=" + filter + L"-" + program.left_out);
    const ChildEnd end = Child(folder, program.file, arguments);
    Result result{bitness, program.name, Result::Verdict::kFailed, "", ReadTestOutput(Printed())};
    const TestOutput& output = result.output;
    const bool has_run = output.passed + output.failed + output.skipped > 0;
    if (end.how == ChildEnd::How::kEnded && end.code == 0 && output.failed == 0 && has_run) {
      result.verdict = output.passed == 0 ? Result::Verdict::kSkipped : Result::Verdict::kPassed;
    }
    result.remark = std::to_string(output.passed) + " passed, " + std::to_string(output.failed) +
                    " failed, " + std::to_string(output.skipped) + " skipped, " +
                    Seconds(end.seconds);
    if (end.how == ChildEnd::How::kNotStarted) {
      result.remark = "not started (error " + std::to_string(end.code) + ")";
    } else if (end.how == ChildEnd::How::kTimedOut) {
      result.remark += ", ended after too long a time";
    } else if (end.how == ChildEnd::How::kInterrupted) {
      result.remark += ", stopped by the user";
    } else if (end.code > 1) {
      result.remark += ", exit code " + support::Hex(end.code);
    } else if (!has_run) {
      result.remark = "no test was run";
    }
    return result;
  }

  ChildEnd Child(const fs::path& folder, const wchar_t* file,
                 const std::vector<std::wstring>& arguments) {
    return RunChild(folder / file, arguments, folder, work_ / "output.txt", minutes(30));
  }
  std::string Printed() const {
    return Utf8Lines(support::ReadBytes(work_ / "output.txt").value_or(""));
  }

  static void Show(const Result& result) {
    Print(Padded(result.bitness, 5) + Padded(result.name, 20) + Word(result.verdict) + "  " +
          result.remark + "\n");
  }

  // What was put back, for the user and for the report.
  void Tell(const PutBack& put_back, const std::string& before) {
    if (put_back.restored.empty() && put_back.failed.empty()) {
      notes_ += before + "Everything is as it was.\n";
    }
    for (const std::string& each : put_back.restored) {
      notes_ += before + "Put back by run.cmd: " + each + "\n";
    }
    for (const std::string& each : put_back.failed) {
      notes_ += before + "COULD NOT BE PUT BACK: " + each +
                "; what it held is in the folder \"saved by run.cmd\"\n";
    }
    is_left_changed_ = is_left_changed_ || !put_back.failed.empty();
    Print(notes_.substr(told_));
    told_ = notes_.size();
  }

  int Finish() {
    int passed = 0;
    int failed = 0;
    for (const Result& result : results_) {
      passed += result.verdict == Result::Verdict::kPassed ? 1 : 0;
      failed += result.verdict == Result::Verdict::kFailed ? 1 : 0;
    }
    std::string text = "Zentpost " ZENTPOST_VERSION ", acceptance report\n\n";
    text += "time             " + Now() + "\n";
    text += "system           " + WindowsVersion() + "\n";
    text += "code pages       ANSI " + std::to_string(GetACP()) + ", OEM " +
            std::to_string(GetOEMCP()) + "\n";
    text += std::string("administrator    ") + (IsAdministrator() ? "yes" : "no") + "\n";
    text += std::string("selection        ") + (options_.is_quick ? "quick" : "all") + "\n";
    const std::string summary = std::to_string(passed) + " programs passed, " +
                                std::to_string(failed) + " failed" +
                                (IsInterrupted() ? "; stopped by the user" : "");
    text += "result           " + summary + "\n\n";
    for (const Result& result : results_) {
      text += Padded(result.bitness, 5) + Padded(result.name, 20) +
              Padded(Word(result.verdict), 9) + result.remark + "\n";
    }
    text += "\n" + notes_;
    for (const Result& result : results_) {
      for (const std::string& failure : result.output.failures) {
        text += "\n== failed: " + result.bitness + ", " + result.name + ", " + failure;
      }
      if (result.verdict == Result::Verdict::kFailed && result.output.failures.empty()) {
        text += "\n== the end of the output: " + result.bitness + ", " + result.name + "\n" +
                result.output.end;
      }
    }
    for (const Result& result : results_) {
      for (const std::string& skip : result.output.skips) {
        text += "\n== skipped: " + result.bitness + ", " + result.name + ", " + skip;
      }
    }
    for (const auto& [bitness, report] : doctor_reports_) {
      text += "\n== zentpost_doctor, " + bitness + "\n" + report;
    }
    std::erase(text, '\r');
    std::string lines;
    for (const char each : WithoutNames(text, PrivateNames(folder_, work_.parent_path()))) {
      lines += each == '\n' ? std::string("\r\n") : std::string(1, each);
    }
    // The mark tells editors that it is UTF-8.
    const bool is_written = support::WriteBytes(report_, "\xEF\xBB\xBF" + lines);
    RemoveWorkFolder();
    Print(summary + "\n" +
          (is_written ? "The report is in " + support::PathText(report_) + "\n"
                      : "report.txt cannot be written\n"));
    if (failed > 0 || is_left_changed_ || !is_written || IsInterrupted()) {
      return kSomethingFailed;
    }
    return passed > 0 ? kAllPassed : kNothingRun;
  }

  const fs::path folder_;
  const Options options_;
  const fs::path report_ = folder_ / "report.txt";
  const fs::path saved_ = folder_ / "saved by run.cmd";
  const fs::path work_ = TemporaryFolder() / "zentpost-acceptance";
  std::vector<Result> results_;
  std::vector<std::pair<std::string, std::string>> doctor_reports_;
  std::string notes_;
  std::size_t told_ = 0;
  bool is_left_changed_ = false;
};

}  // namespace
}  // namespace acceptance

int RunTool(const std::vector<std::string>& arguments) {
  using namespace acceptance;
  const std::optional<Options> options = ReadOptions(arguments);
  if (!options) {
    Print(kUsage);
    return kNothingRun;
  }
  TakeInterrupts();
  const int exit_code = Run(OwnFolder(), *options).Perform();
  FinishAfterInterrupt();
  if (!options->is_confirmed && !IsInterrupted()) {
    // Started with a double click, the window would close.
    Print("Press Enter to end.\n");
    static_cast<void>(std::getchar());
  }
  return exit_code;
}

}  // namespace zentpost
