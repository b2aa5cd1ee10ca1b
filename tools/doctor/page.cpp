#include "tools/doctor/page.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "tools/doctor/log_texts.h"
#include "tools/doctor/mapi_results.h"
#include "tools/doctor/texts.h"
#include "tools/support/text.h"

namespace zentpost::doctor {
namespace {

constexpr std::string_view kIntroduction = R"(# Nothing was sent

For those who help a user whose fax did not arrive: what the doctor finds, what each line of the log
means, and which number stands for which failure. Look for a code (D01 to D35), a line or a number as
it stands.

- [Running the doctor](#running-the-doctor)
- [The codes](#the-codes)
- [The log](#the-log)
- [MAPI results](#mapi-results)

## Running the doctor

`zentpost_doctor.exe` lies beside `zentpost.exe`. It changes nothing, sends nothing, and tells what the
tool would do on this computer and why. Run it as the user whose fax is missing, without "Run as
administrator".

| command | what it does |
|---|---|
| `zentpost_doctor` | examines this computer |
| `zentpost_doctor C:\fax\job.json` | tells as well what the tool would do with this line |
| `zentpost_doctor --out report.txt` | writes the report into a file |
| `zentpost_doctor --explain D13` | explains a code |

The report begins with what would become of a job. Read out the first finding: it is the most serious
one, with causes before what follows from them. An **error** means that the job would fail, or would
count as delivered without anybody getting all of it; a **warning**, that it works now or on the other
way, but that something is wrong; a **note**, how things are.

A job has two ways. Where the mail client's *add-in* listens on its port it gets the job. Otherwise the
tool goes *directly to the mail client* through its MAPI library.

Registry values are looked at with the registry editor: Windows key and R, `regedit`, Enter. Changes
under `HKEY_LOCAL_MACHINE` need an administrator.

## The codes
)";

constexpr std::string_view kLog = R"(
## The log

The log is `%LOCALAPPDATA%\VORNA\Client\Log\zentpost.log`, when it is on ([D06](#d06), [D07](#d07)).
Every text that the tool can write stands here, by the routine that writes it; `%s`, `%d` and `%.8x`
stand for what differs, `\r\n` for the end of a line. A line that begins with `Code` belongs to the
line before it.
)";

constexpr std::string_view kMapi = R"(
## MAPI results

What the mail client's library answers. The log has the number behind `Code`, the job file has it as
`ErrorCode`. The other numbers in the log are the system's own.

| result | in the log | in the job file | meaning |
|---|---|---|---|
)";

// As a code span shows it.
std::string Code(std::string_view text) {
  std::string code = "`";
  for (const char c : text) {
    switch (c) {
      case '\r':
        code += "\\r";
        break;
      case '\n':
        code += "\\n";
        break;
      default:
        code += c;
    }
  }
  return code += '`';
}

// "D03 D12" as links to the codes.
std::string Links(std::string_view codes) {
  std::string links;
  while (!codes.empty()) {
    const std::string_view code = codes.substr(0, codes.find(' '));
    codes.remove_prefix(std::min(code.size() + 1, codes.size()));
    links.append(links.empty() ? "[" : ", [").append(code).append("](#d").append(code.substr(1));
    links += ')';
  }
  return links;
}

// With what could be markup as it stands. A backslash before a letter is an ordinary character.
std::string Plain(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool is_escape = text.substr(i).starts_with("\\\\");
    if (is_escape || std::string_view("*<>`|").find(text[i]) != std::string_view::npos) {
      plain += '\\';
    }
    plain += text[i];
  }
  return plain;
}

void AppendCodes(std::string& page) {
  for (const CodeText& text : CodeTexts()) {
    page.append("\n### ").append(text.code).append("\n\n**").append(Plain(text.title));
    page.append(".** ").append(Plain(text.meaning)).append("\n\n*Cause:* ");
    page.append(Plain(text.cause)).append("\n\n*Remedy:* ").append(Plain(text.remedy)) += '\n';
  }
}

void AppendLog(std::string& page) {
  for (const LogRoutine& routine : LogRoutines()) {
    page.append("\n### ").append(Plain(routine.name)).append("\n\n").append(routine.task);
    page.append("\n\n| text | meaning | codes |\n|---|---|---|\n");
    for (const LogText& text : routine.texts) {
      page.append("| ").append(Code(text.text)).append(" | ").append(Plain(text.meaning));
      page.append(" | ").append(Links(text.codes)).append(" |\n");
    }
  }
}

void AppendMapiResults(std::string& page) {
  for (const MapiResult& result : MapiResults()) {
    page.append("| ").append(Code(result.symbol)).append(" | `");
    page.append(support::LowerHex(result.number, 8)).append("` | ");
    page.append(std::to_string(static_cast<std::int32_t>(result.number)));
    page.append(" | ").append(Plain(result.meaning)).append(" |\n");
  }
}

}  // namespace

std::string Page() {
  std::string page(kIntroduction);
  AppendCodes(page);
  page += kLog;
  AppendLog(page);
  page += kMapi;
  AppendMapiResults(page);
  return page;
}

}  // namespace zentpost::doctor
