#include "tools/doctor/program.h"

#include <new>

#include "platform/files.h"
#include "platform/memory_failure.h"
#include "platform/reading.h"
#include "tools/doctor/examination.h"
#include "tools/doctor/options.h"
#include "tools/doctor/report.h"
#include "tools/doctor/report_parts.h"
#include "tools/doctor/texts.h"
#include "tools/support/text.h"

namespace zentpost::doctor {
namespace {

namespace reading = platform::reading;
using platform::Console;

constexpr int kWrongUse = 2;

constexpr std::string_view kHelp =
    R"(Usage: zentpost_doctor [--json] [--out FILE] [--connect] [LINE]
       zentpost_doctor --help | --version | --explain CODE

Tells what Zentpost would do on this machine, and why, without doing it: nothing
is written, sent or loaded.

  LINE            what stands behind "zentpost" in the fax application's command
                  line; it is rehearsed. Without it an ordinary job is.
  --json          print the report as JSON
  --out FILE      write the report to FILE instead
  --connect       make one connection to the add-in's port, as Zentpost does,
                  instead of looking for a listener in the system's tables
  --explain CODE  print what a code of the report means, and what helps
  --help          show this text
  --version       show the version

Exit code: 0 the job would be delivered, and nothing is wrong; 1 otherwise;
2 wrong use.
)";

int WrongUse(Console& console, const std::u16string& what) {
  console.Err("zentpost_doctor: " + Shown(what) + "\n");
  return kWrongUse;
}

int Print(Console& console, std::string_view text) {
  return console.Out(text) ? 0 : 1;
}

bool HasError(const Report& report) {
  for (const Finding& finding : report.findings) {
    if (finding.severity == Severity::kError) {
      return true;
    }
  }
  return false;
}

// Whether two paths lead to one file, whether or not it is there.
bool AreSameFile(const std::u16string& left, const std::u16string& right) {
  platform::FileIdentity left_file;
  platform::FileIdentity right_file;
  // The rehearsal's own opens no device.
  if (platform::ThrowWithoutMemory(platform::IdentifyFile(left, left_file)) == platform::kSuccess &&
      platform::ThrowWithoutMemory(platform::IdentifyFile(right, right_file)) ==
          platform::kSuccess) {
    return left_file == right_file;
  }
  std::u16string left_key;
  std::u16string right_key;
  return platform::ThrowWithoutMemory(reading::PathKey(left, left_key)) == platform::kSuccess &&
         platform::ThrowWithoutMemory(reading::PathKey(right, right_key)) == platform::kSuccess &&
         left_key == right_key;
}

int Run(const Options& options, Console& console) {
  if (!options.wrong.empty()) {
    return WrongUse(console, options.wrong);
  }
  switch (options.action) {
    case Options::Action::kHelp:
      return Print(console, kHelp);
    case Options::Action::kVersion:
      return Print(console, "zentpost_doctor " ZENTPOST_VERSION "\n");
    case Options::Action::kExplain: {
      const std::string text = Explain(support::Utf8(options.code));
      return text.empty() ? WrongUse(console, u"unknown code \"" + options.code + u"\"")
                          : Print(console, text);
    }
    case Options::Action::kExamine:
      break;
  }
  const auto [report, files] =
      Examine({.line = options.line, .connects = options.connects, .keeps_whole_log = false});
  const std::string text = options.is_json ? ReportAsJson(report) : ReportAsText(report);
  if (options.out) {
    for (const std::u16string& file : files) {
      if (AreSameFile(*options.out, file)) {
        return WrongUse(console,
                        u"the report may not replace a file of the job, the log or a "
                        u"library: \"" +
                            *options.out + u"\"");
      }
    }
    // A device might take the report and never end.
    if (platform::ThrowWithoutMemory(
            reading::WouldChange(*options.out, reading::Change::kRewrite)) != platform::kSuccess ||
        !console.WriteFile(*options.out, text)) {
      return WrongUse(console, u"cannot write \"" + *options.out + u"\"");
    }
  } else if (!console.Out(text)) {
    console.Err("zentpost_doctor: cannot write to standard output\n");
    return 1;
  }
  return report.verdict.delivered && !HasError(report) ? 0 : 1;
}

}  // namespace

int RunDoctor(std::u16string_view command_line, platform::Console& console) try {
  const Options options = ReadOptions(command_line);
  const int exit_code = Run(options, console);
  if (!options.is_json && !options.out) {
    console.AwaitReader();
  }
  return exit_code;
} catch (const std::bad_alloc&) {
  console.Err("zentpost_doctor: not enough memory\n");
  return 1;
}

}  // namespace zentpost::doctor
