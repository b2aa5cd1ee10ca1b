#include "tools/doctor/report.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "tools/doctor/report_parts.h"
#include "tools/doctor/report_samples.h"
#include "tools/support/text.h"
#include "tools/support/wrap.h"

namespace zentpost::doctor {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

class ReportWriters : public testing::Test {
 protected:
  // Of a report that is as the schema wants it.
  static std::string Json(const Report& report) {
    std::string json = ReportAsJson(report);
    KeepReport(json);
    return json;
  }
};

// A job that goes to the mail client, on a machine with a bit of everything.
Report MailReport() {
  Report report;
  report.version = "1.1.0";
  report.bitness = 64;
  report.time = "2026-11-21T15:04:05";
  report.verdict = {Route::kMapi, true, 0,
                    u"would be handed to the mail client through C:\\mail\\olmapi32.dll, with the "
                    u"document attached"};
  report.findings = {
      {"D03", Severity::kWarning, {u"TolvanAddinPort = \"5000\" (REG_SZ)", u"no listener"}},
      {"D06", Severity::kNote, {}}};
  report.settings = {
      {u"TolvanAddinPort", u"HKCU", u"REG_SZ", u"5000 ", u"the add-in listens on port 5000"},
      {u"LogLevel", u"HKLM", u"4711", u"", u"the log file is off"}};
  report.candidates = {
      {u"C:\\mail\\olmapi32.dll", "DllPathEx", CandidateState::kUsable, 64, 8, {"FreeProws"}},
      {std::nullopt, "installer", CandidateState::kUnknown, std::nullopt, std::nullopt, {}}};
  Rehearsal& job = report.rehearsal.emplace();
  job.job_file = u"C:\\fax\\job.json";
  job.document = u"C:\\fax\\a.pdf";
  job.document_fate = DocumentFate::kDeleted;
  job.result = {0, 0, u""};
  job.fields = {{u"+FAX", u"0301"}, {u"S", u"Invoice"}, {u"+FAX", u"0302"}};
  job.message = Message{u"Invoice", u"Dear Sir,\r\nhere it is", u"M\u00FCller",
                        Message::Recipient{u"0301", u"SMTP", u"B\u00E4cker"},
                        Message::Attachment{u"a.pdf", 12345}};
  job.log = {LogLine{u"INFO: StartZentpost(): C:\\fax\\job.json"}};
  job.steps = {u"reads the job file", u"logs on"};
  report.assumed = {u"the logon succeeds"};
  return report;
}

// One that the add-in gets.
Report AddinReport(std::string payload) {
  Report report;
  report.version = "1.1.0";
  report.bitness = 32;
  report.time = "2026-11-21T15:04:05";
  report.verdict = {Route::kAddin, true, 0, u"would be handed to the add-in on port 5000"};
  report.rehearsal.emplace().payload = std::move(payload);
  return report;
}

TEST_F(ReportWriters, JsonHasItsMembersInTheirOrder) {
  EXPECT_EQ(Json(MailReport()), R"json({
	"version":	"1.1.0",
	"bitness":	64,
	"time":	"2026-11-21T15:04:05",
	"verdict":	{
		"route":	"mapi",
		"delivered":	true,
		"exit_code":	0,
		"text":	"would be handed to the mail client through C:\\mail\\olmapi32.dll, with the document attached"
	},
	"findings":	[{
			"code":	"D03",
			"severity":	"warning",
			"title":	"Nothing listens on the add-in's port",
			"seen":	["TolvanAddinPort = \"5000\" (REG_SZ)", "no listener"],
			"remedy":	"Start the mail client, then send again. If that does not help, check that the add-in is switched on (in Outlook: File, Options, Add-ins) and that it uses the port that TolvanAddinPort in HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin names."
		}, {
			"code":	"D06",
			"severity":	"note",
			"title":	"The log file is off",
			"seen":	[],
			"remedy":	"Create the DWORD value LogLevel with 1 in HKEY_CURRENT_USER\\Software\\Sollvex\\FaxClient, send again, and read %LOCALAPPDATA%\\VORNA\\Client\\Log\\zentpost.log. It holds fax numbers and texts: delete it when it is not needed any more."
		}],
	"settings":	[{
			"name":	"TolvanAddinPort",
			"hive":	"HKCU",
			"type":	"REG_SZ",
			"value":	"5000 ",
			"effect":	"the add-in listens on port 5000"
		}, {
			"name":	"LogLevel",
			"hive":	"HKLM",
			"type":	"4711",
			"value":	"",
			"effect":	"the log file is off"
		}],
	"candidates":	[{
			"path":	"C:\\mail\\olmapi32.dll",
			"source":	"DllPathEx",
			"state":	"usable",
			"bitness":	64,
			"exports":	8,
			"missing_exports":	["FreeProws"]
		}, {
			"path":	null,
			"source":	"installer",
			"state":	"unknown",
			"bitness":	null,
			"exports":	null,
			"missing_exports":	[]
		}],
	"rehearsal":	{
		"job_file":	"C:\\fax\\job.json",
		"document":	"C:\\fax\\a.pdf",
		"document_fate":	"deleted",
		"result":	{
			"Status":	0,
			"ErrorCode":	0,
			"ErrorText":	""
		},
		"fields":	{
			"+FAX":	"0301",
			"S":	"Invoice"
		},
		"payload":	null,
		"message":	{
			"subject":	"Invoice",
			"body":	"Dear Sir,\r\nhere it is",
			"sender":	"Müller",
			"recipient":	{
				"address":	"0301",
				"type":	"SMTP",
				"name":	"Bäcker"
			},
			"attachment":	{
				"name":	"a.pdf",
				"size":	12345
			}
		},
		"log":	["INFO: StartZentpost(): C:\\fax\\job.json"],
		"steps":	["reads the job file", "logs on"]
	},
	"assumed":	["the logon succeeds"]
}
)json");
}

TEST_F(ReportWriters, WhatIsNotThereIsNullOrEmpty) {
  EXPECT_EQ(ReportAsJson({}), R"({
	"version":	"",
	"bitness":	0,
	"time":	"",
	"verdict":	{
		"route":	"none",
		"delivered":	false,
		"exit_code":	1,
		"text":	""
	},
	"findings":	[],
	"settings":	[],
	"candidates":	[],
	"assumed":	[]
}
)");
  Report report = AddinReport("{}");
  EXPECT_NE(Json(report).find(R"(
	"rehearsal":	{
		"job_file":	null,
		"document":	null,
		"document_fate":	"none",
		"result":	null,
		"fields":	{
		},
		"payload":	{
		},
		"message":	null,
		"log":	[],
		"steps":	[]
	},
)"),
            std::string::npos);
  report.verdict.route = Route::kMapi;
  report.rehearsal->payload.reset();
  report.rehearsal->message.emplace();
  EXPECT_NE(Json(report).find(R"(
		"payload":	null,
		"message":	{
			"subject":	"",
			"body":	"",
			"sender":	"",
			"recipient":	null,
			"attachment":	null
		},
)"),
            std::string::npos);
}

TEST_F(ReportWriters, ValuesHaveTheirWords) {
  const auto expect = [](const Report& report, const std::string& member) {
    EXPECT_NE(Json(report).find("\t" + member), std::string::npos) << member;
  };
  for (const auto& [route, word] :
       {std::pair(Route::kAddin, "addin"), std::pair(Route::kMapi, "mapi"),
        std::pair(Route::kFile, "file"), std::pair(Route::kSkipped, "skipped"),
        std::pair(Route::kNone, "none")}) {
    Report report = MailReport();
    report.verdict.route = route;
    report.rehearsal.reset();
    expect(report, "\"route\":\t\"" + std::string(word) + "\"");
  }
  for (const auto& [severity, word] :
       {std::pair(Severity::kError, "error"), std::pair(Severity::kWarning, "warning"),
        std::pair(Severity::kNote, "note")}) {
    Report report = MailReport();
    report.findings = {{"D03", severity, {}}};
    expect(report, "\"severity\":\t\"" + std::string(word) + "\"");
  }
  for (const auto& [state, word] : {std::pair(CandidateState::kUsable, "usable"),
                                    std::pair(CandidateState::kMissing, "missing"),
                                    std::pair(CandidateState::kOtherBitness, "other bitness"),
                                    std::pair(CandidateState::kLacksExports, "lacks exports"),
                                    std::pair(CandidateState::kNoLibrary, "no library"),
                                    std::pair(CandidateState::kUnknown, "unknown")}) {
    Report report = MailReport();
    report.candidates.resize(1);
    report.candidates[0].state = state;
    if (state == CandidateState::kUnknown) {
      report.candidates[0].path.reset();
    }
    expect(report, "\"state\":\t\"" + std::string(word) + "\"");
  }
  for (const auto& [fate, word] :
       {std::pair(DocumentFate::kNone, "none"), std::pair(DocumentFate::kKept, "kept"),
        std::pair(DocumentFate::kDeleted, "deleted")}) {
    Report report = MailReport();
    report.rehearsal->document_fate = fate;
    expect(report, "\"document_fate\":\t\"" + std::string(word) + "\"");
  }
}

TEST_F(ReportWriters, EveryCodeHasItsTexts) {
  Report report = MailReport();
  report.findings.clear();
  for (const CodeText& texts : CodeTexts()) {
    report.findings.push_back({texts.code, Severity::kError, {u"seen"}});
  }
  const std::string json = Json(report);
  const std::string text = ReportAsText(report);
  for (const CodeText& texts : CodeTexts()) {
    EXPECT_NE(json.find("\"code\":\t\"" + std::string(texts.code)), std::string::npos);
    EXPECT_NE(
        text.find("\n\n" + std::string(texts.code) + ", error: " + std::string(texts.title) + "\n"),
        std::string::npos);
  }
  report.findings = {{"D99", Severity::kNote, {}}};
  EXPECT_NE(ReportAsJson(report).find("\"title\":\t\"\""), std::string::npos);
}

TEST_F(ReportWriters, NumbersAreExact) {
  Report report = MailReport();
  report.verdict = {Route::kMapi, false, 1, u"would fail"};
  report.rehearsal->result = {1, -2147467259, u"MAPI Error"};
  for (const auto& [size, digits] :
       {std::pair(std::uint64_t{0}, "0"), std::pair(std::uint64_t{0x1'0000'0000}, "4294967296"),
        std::pair(UINT64_MAX, "18446744073709551615")}) {
    report.rehearsal->message->attachment->size = size;
    const std::string json = Json(report);
    EXPECT_NE(json.find("\"size\":\t" + std::string(digits) + "\n"), std::string::npos) << digits;
    EXPECT_NE(json.find("\"ErrorCode\":\t-2147467259,"), std::string::npos);
    EXPECT_NE(json.find("\"delivered\":\tfalse,\n\t\t\"exit_code\":\t1,"), std::string::npos);
  }
}

TEST_F(ReportWriters, TextsAreCutAtTheLimitInCodePoints) {
  const std::u16string full(kTextLimit - 1, u'a');
  const std::string full8(kTextLimit - 1, 'a');
  const struct {
    std::u16string tail;
    std::string shown;
  } kCases[] = {
      {u"", ""},
      {u"b", "b"},
      {u"bc", "b... (4097 characters)"},
      {u"b\U0001F600d", "b... (4098 characters)"},
      {u"\u00FC", "\xC3\xBC"},
      // a pair in the last place, and one behind it
      {u"\U0001F600", "\xF0\x9F\x98\x80"},
      {u"\U0001F600\U0001F600", "\xF0\x9F\x98\x80... (4097 characters)"},
      // halves of pairs, also of one that the limit would part
      {u"\xD83D", kReplacement},
      {u"\xDE00", kReplacement},
      {u"\xDE00\xD83D", std::string(kReplacement) + "... (4097 characters)"},
      {{u"\0", 1}, kReplacement},
      {{u"\0b", 2}, std::string(kReplacement) + "... (4097 characters)"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(ReportText(full + test.tail), full8 + test.shown) << test.shown;
    // the same of UTF-8, where only NUL and pairs in full are
    if (test.shown.find(kReplacement) == std::string::npos) {
      EXPECT_EQ(ReportText(support::Utf8(full + test.tail)), full8 + test.shown) << test.shown;
    }
  }
  EXPECT_EQ(ReportText(full8 + "\xFF\xC3"), full8 + kReplacement + "... (4097 characters)");
  EXPECT_EQ(ReportText(std::string_view("a\0\xC3\xBC", 4)),
            "a" + std::string(kReplacement) + "\xC3\xBC");
}

// Whatever stands in a text, in whatever place.
TEST_F(ReportWriters, EveryTextIsCutAndWellFormed) {
  std::u16string text(kTextLimit + 10, u'x');
  text[0] = 0;
  text[1] = 0xDC00;
  text[2] = u'"';
  const std::string shown = std::string(kReplacement) + kReplacement + "\\\"" +
                            std::string(kTextLimit - 3, 'x') + "... (4106 characters)";
  Report report = MailReport();
  report.verdict.text = text;
  report.findings[0].seen = {text};
  report.settings[0].value = report.settings[0].effect = text;
  report.candidates[0].path = text;
  Rehearsal& job = *report.rehearsal;
  job.job_file = job.document = text;
  job.fields = {{text, text}};
  job.message =
      Message{text, text, text, Message::Recipient{text, text, text}, Message::Attachment{text, 1}};
  job.log = {LogLine{text}};
  job.steps = report.assumed = {text};
  const auto count = [&shown](const std::string& json) {
    int found = 0;
    for (std::size_t at = json.find(shown); at != std::string::npos;
         at = json.find(shown, at + 1)) {
      ++found;
    }
    return found;
  };
  EXPECT_EQ(count(Json(report)), 19);
  // The schema knows what these may be.
  report.settings[0].name = report.settings[0].hive = report.settings[0].type = text;
  report.candidates[0].missing_exports = {support::Utf8(text)};
  job.result->error_text = text;
  const std::string json = ReportAsJson(report);
  EXPECT_EQ(count(json), 24);
  const JsonTree tree(cJSON_Parse(json.c_str()));
  EXPECT_NE(tree, nullptr);
}

TEST_F(ReportWriters, ControlsAreEscapedInJson) {
  Report report = MailReport();
  report.assumed = {u"a\x1B[2J\t\x7F\u202E\u2028z"};
  EXPECT_NE(Json(report).find("[\"a\\u001b[2J\\t\x7F\xE2\x80\xAE\xE2\x80\xA8z\"]"),
            std::string::npos);
}

TEST_F(ReportWriters, FieldsHaveTheFirstOfEachName) {
  Report report = MailReport();
  report.rehearsal->fields = {{u"S", u"1"}, {u"s", u"2"},      {u"S", u"3"},
                              {u"", u"4"},  {u"\xD800", u"5"}, {u"\xDC00", u"6"}};
  EXPECT_NE(
      Json(report).find("\"fields\":\t{\n\t\t\t\"S\":\t\"1\",\n\t\t\t\"s\":\t\"2\",\n\t\t\t\"\":"
                        "\t\"4\",\n\t\t\t\"\xEF\xBF\xBD\":\t\"5\"\n\t\t},"),
      std::string::npos);
}

TEST_F(ReportWriters, PayloadStandsAsItIsOrAsText) {
  const std::string ten(10000, '[');
  const std::string text(kTextLimit, 'a');
  const std::string replacement(kReplacement);
  const std::pair<std::string, std::string> kCases[] = {
      {R"({"Parameters":{"A":"b","ECM":true,"n":null,"l":[1,"c",{}]}})",
       "{\n\t\t\t\"Parameters\":\t{\n\t\t\t\t\"A\":\t\"b\",\n\t\t\t\t\"ECM\":\ttrue,\n"
       "\t\t\t\t\"n\":\tnull,\n\t\t\t\t\"l\":\t[1, \"c\", {\n\t\t\t\t\t}]\n\t\t\t}\n\t\t}"},
      // texts and names as elsewhere in the report
      {R"({"a":")" + text + R"(bc"})",
       "{\n\t\t\t\"a\":\t\"" + text + "... (4098 characters)\"\n\t\t}"},
      {R"({")" + text + R"(b":1})", "{\n\t\t\t\"" + text + "... (4097 characters)\":\t1\n\t\t}"},
      {"{\"a\xFF\":\"b\xC3\"}",
       "{\n\t\t\t\"a" + replacement + "\":\t\"b" + replacement + "\"\n\t\t}"},
      {R"({"a\u0000b":"c\u0000d\\u0000"})",
       "{\n\t\t\t\"a" + replacement + "b\":\t\"c" + replacement + "d\\\\u0000\"\n\t\t}"},
      // no object
      {"", "\"\""},
      {"abc", "\"abc\""},
      {"{\"a\":1", "\"{\\\"a\\\":1\""},
      {"{} x", "\"{} x\""},
      {"[]", "\"[]\""},
      {"5", "\"5\""},
      {{"{\"a\0\":1}", 8}, "\"{\\\"a" + replacement + "\\\":1}\""},
      {"\xFF", "\"" + replacement + "\""},
      // deeper than the JSON library goes
      {"{\"a\":" + ten + "1" + std::string(10000, ']') + "}",
       "\"{\\\"a\\\":" + std::string(kTextLimit - 5, '[') + "... (20007 characters)\""},
  };
  for (const auto& [payload, shown] : kCases) {
    const std::string json = Json(AddinReport(payload));
    EXPECT_NE(json.find("\"payload\":\t" + shown + ",\n"), std::string::npos)
        << payload.substr(0, 80) << "\n"
        << json.substr(0, 2000);
  }
}

TEST_F(ReportWriters, DeepPayloadsAreWrittenAsDeepAsTheyAreRead) {
  std::string payload = "\"end\"";
  for (int depth = 0; depth < 999; ++depth) {
    payload = "{\"a\":" + payload + "}";
  }
  const Report report = AddinReport(payload);
  EXPECT_NE(ReportAsJson(report).find("\t\"a\":\t\"end\"\n"), std::string::npos);
  EXPECT_NE(ReportAsText(report).find("\n    a: end\n"), std::string::npos);
}

TEST_F(ReportWriters, TextOfAJobForTheMailClient) {
  EXPECT_EQ(ReportAsText(MailReport()),
            R"text(Reported as delivered, exit code 0 (D03): the job would be handed to the mail
  client through C:\mail\olmapi32.dll, with the document attached

D03, warning: Nothing listens on the add-in's port
  - TolvanAddinPort = "5000" (REG_SZ)
  - no listener
  Remedy: Start the mail client, then send again. If that does not help, check
    that the add-in is switched on (in Outlook: File, Options, Add-ins) and that
    it uses the port that TolvanAddinPort in
    HKEY_CURRENT_USER\Software\Sollvex\OutlookAddin names.

D06, note: The log file is off
  Remedy: Create the DWORD value LogLevel with 1 in
    HKEY_CURRENT_USER\Software\Sollvex\FaxClient, send again, and read
    %LOCALAPPDATA%\VORNA\Client\Log\zentpost.log. It holds fax numbers and
    texts: delete it when it is not needed any more.

Settings
  TolvanAddinPort = 5000<blank> (HKCU, REG_SZ)
    the add-in listens on port 5000
  LogLevel = (empty) (HKLM, 4711)
    the log file is off

MAPI libraries, in the order in which they are tried
  1. C:\mail\olmapi32.dll
    usable, 64-bit, 8 functions, from DllPathEx
    Without: FreeProws
  2. path not known
    unknown, from installer

What the tool would do with this job
  Document: C:\fax\a.pdf, deleted
  Job file: C:\fax\job.json
  Result in the job file: Status 0, ErrorCode 0
  Fields:
    +FAX: 0301
    S: Invoice
  Message:
    Subject: Invoice
    Sender: Müller
    Recipient: Bäcker, SMTP:0301
    Attachment: a.pdf, 12345 bytes
    Text: Dear Sir,<CR><LF>here it is

Its steps
  1. reads the job file
  2. logs on

Its log
  INFO: StartZentpost(): C:\fax\job.json

Assumed
  - the logon succeeds

zentpost_doctor 1.1.0, 64-bit, 2026-11-21T15:04:05
)text");
}

TEST_F(ReportWriters, TextOfAFailedJobForTheAddIn) {
  Report report =
      AddinReport(R"({"Parameters":{"Receiver":"0301","Comment":"","ECM":true,"Tries":[3,null]}})");
  report.verdict.delivered = false;
  report.verdict.exit_code = 1;
  report.rehearsal->result = {1, -2147467259, u"MAPI Error"};
  EXPECT_EQ(ReportAsText(report),
            R"text(Reported as failed, exit code 1: the job would be handed to the add-in on port
  5000

No findings

What the tool would do with this job
  Document: none
  Result in the job file: Status 1, ErrorCode -2147467259 (0x80004005), MAPI
      Error
  Payload, 75 bytes:
    Receiver: 0301
    ECM: true
    -: 3
    -: null

zentpost_doctor 1.1.0, 32-bit, 2026-11-21T15:04:05
)text");
}

TEST_F(ReportWriters, NothingEmptyIsPrinted) {
  Report report;
  report.version = "1.1.0";
  report.bitness = 32;
  report.time = "2026-11-21T15:04:05";
  report.verdict.text = u"would fail";
  constexpr char kEnd[] = "\n\nzentpost_doctor 1.1.0, 32-bit, 2026-11-21T15:04:05\n";
  constexpr char kStart[] = "Reported as failed, exit code 1: the job would fail\n\nNo findings";
  EXPECT_EQ(ReportAsText(report), std::string(kStart) + kEnd);
  report.rehearsal.emplace().message.emplace();
  EXPECT_EQ(ReportAsText(report), std::string(kStart) +
                                      "\n\nWhat the tool would do with this job\n  Document: none\n"
                                      "  Message:" +
                                      kEnd);
  report.rehearsal->message.reset();
  report.rehearsal->payload = "abc";
  EXPECT_EQ(ReportAsText(report), std::string(kStart) +
                                      "\n\nWhat the tool would do with this job\n  Document: none\n"
                                      "  Payload, 3 bytes:\n    abc" +
                                      kEnd);
}

TEST_F(ReportWriters, ATextLooksLikeNoOtherLine) {
  const std::pair<std::u16string, std::string> kCases[] = {
      {u"a\nb\r\nc\td", "a<LF>b<CR><LF>c<TAB>d"},
      {u"\x1B[2J\a", "<U+001B>[2J<U+0007>"},
      {u"\x7F\u009B\u00AD", "<U+007F><U+009B><U+00AD>"},
      {u"\u061C\u180E\u200B\u200F\u2028\u202E", "<U+061C><U+180E><U+200B><U+200F><U+2028><U+202E>"},
      {u"\u2060\u206F\uFEFF\uFFF9\U000E0001", "<U+2060><U+206F><U+FEFF><U+FFF9><U+E0001>"},
      {{u"\0", 1}, kReplacement},
      // blanks at the ends and in a row
      {u" a  b ", "<blank>a <blank>b<blank>"},
      {u"a b", "a b"},
      {u"", "(empty)"},
      {u" ", "<blank>"},
      // What stands beside those.
      {u"\u00A0\u00AC\u00AE\u200A\u2010\u2027\u202F\u205F\u2070\uFFFC\U000DFFFF",
       "\u00A0\u00AC\u00AE\u200A\u2010\u2027\u202F\u205F\u2070\uFFFC\U000DFFFF"},
  };
  for (const auto& [text, shown] : kCases) {
    Report report = MailReport();
    report.rehearsal->fields = {{u"K", text}};
    EXPECT_NE(ReportAsText(report).find("\n    K: " + shown + "\n"), std::string::npos) << shown;
  }
}

// The columns in which a long text goes on are none in which a line of its group begins.
TEST_F(ReportWriters, LinesHaveEightyColumnsAndATextGoesOnFurtherIn) {
  std::u16string text = u"f\u00FCrst";
  for (int i = 0; i < 40; ++i) {
    text += u" Remedy:\n<\u00FC>";
  }
  Report report = MailReport();
  report.verdict.text = text;
  report.findings[0].seen = {text, text};
  report.settings[0] = {text, text, text, text, text};
  report.candidates[0].path = text;
  report.candidates[0].missing_exports = std::vector<std::string>(30, "MAPIAllocateBuffer");
  Rehearsal& job = *report.rehearsal;
  job.job_file = job.document = text;
  job.result->error_text = text;
  job.fields = {{text, text}};
  job.payload = "{\"a\":\"" + support::Utf8(text).replace(0, 6, 60, ' ') + "\"}";
  job.message =
      Message{text, text, text, Message::Recipient{text, text, text}, Message::Attachment{text, 1}};
  job.log = {LogLine{text}};
  job.steps = report.assumed = {text};
  const std::string lines = ReportAsText(report);
  std::string group;
  int further_lines = 0;
  for (std::size_t start = 0; start < lines.size(); start = lines.find('\n', start) + 1) {
    const std::string line = lines.substr(start, lines.find('\n', start) - start);
    const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
    EXPECT_TRUE(support::Utf16(line).size() <= support::kConsoleColumns ||
                line.find(' ', begin) == std::string::npos)
        << line;
    if (begin == 0) {
      group = line;
    } else if (line.compare(begin, 11, "Remedy:<LF>") == 0) {
      ++further_lines;
      const bool has_list = group.starts_with("D03") || group == "Assumed";
      EXPECT_EQ(begin, group.starts_with("Reported") ? 2u : has_list ? 4u : 6u) << group;
    }
  }
  EXPECT_GT(further_lines, 100);
}

TEST_F(ReportWriters, MemoryThatRunsOutIsThrown) {
  const Report mail = MailReport();
  const Report addin =
      AddinReport(R"({"Parameters":{"Receiver":"\u00000301","ECM":true,"l":[1]}})");
  for (const Report* report : {&mail, &addin}) {
    for (const auto write : {ReportAsJson, ReportAsText}) {
      const std::string expected = write(*report);
      test::SweepAllocations("a report", [&](test::AllocationFaults& faults) {
        std::string written;
        const bool has_ended = faults.Run([&] { written = write(*report); });
        EXPECT_EQ(has_ended, !faults.Taken());
        EXPECT_EQ(written, has_ended ? expected : "");
      });
    }
  }
}

}  // namespace
}  // namespace zentpost::doctor
