// The whole job with every call to the system failing, one after the other. What is expected of
// such a run is not recorded but worked out: ExpectedJob goes through the job once more in its own
// words, asks at every call whether it is the one that fails, and says what is then left behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/application.h"
#include "mapiload/process_state.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fake_platform.h"
#include "testing/fake_platform/fault_sweep.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using platform::fake::FaultMode;
using platform::fake::FaultRun;
using platform::fake::Machine;
using platform::fake::Peer;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kPortKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr std::uint16_t kPort = 5000;
constexpr std::size_t kSendWindow = 100;

constexpr char kJobName[] = "C:\\jobs\\a.json";
constexpr char kDocument[] = "C:\\docs\\fax.pdf";
constexpr char kDocumentBytes[] = "%PDF-1.4\nnothing of it is JSON\n";
constexpr char kLogPath[] = "C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";

constexpr platform::Status kFailure = platform::kGeneralFailure;
constexpr char16_t kFailureMessage[] = u"\tA device failed.\r\n";

constexpr std::int32_t kMapiMissing = -2147467259;  // 0x80004005
constexpr std::int32_t kOutOfMemory = -2147024882;  // 0x8007000E

// A job file up to its last member, in the layout in which it is written back. Its texts are in the
// fields by which ExpectedJob knows them.
std::string JobFileStart(bool diverted) {
  return "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\",\n"
         "\t\"Cmd\":\t{\n"
         "\t\t\"Parameters\":\t{\n"
         "\t\t\t\"RecipientName\":\t\"J\xC3\xA4ger\",\n"
         "\t\t\t\"Subject\":\t\"Hello\"\n"
         "\t\t},\n"
         "\t\t\"Commands\":\t{\n"
         "\t\t\t\"C\":\t\"1\",\n" +
         std::string(diverted ? "\t\t\t\"O\":\t\"payload.json\",\n" : "") +
         "\t\t\t\"K\":\t\"A note\"\n"
         "\t\t},\n"
         "\t\t\"Receiver\":\t[\"0301234567\"]\n"
         "\t}";
}

struct Scenario {
  const char* name;
  bool on_command_line = false;  // the document and a fax command, no job file
  bool diverted = false;
  bool has_result = false;  // the job file holds one from before
  bool has_port = true;
  std::optional<Peer> peer = Peer::kAccept;  // none: nothing listens
  unsigned connections = Machine::kUnlimited;
  std::uint32_t user_log_level = 0;
  std::uint32_t machine_log_level = 0;
  std::uint32_t user_skip = 0;
};

const Scenario kScenarios[] = {
    {.name = "the add-in takes it", .user_log_level = 1},
    {.name = "the add-in takes it, unlogged", .has_result = true},
    {.name = "the add-in refuses after the probe", .connections = 1, .machine_log_level = 1},
    {.name = "the peer resets", .peer = Peer::kReset},
    {.name = "the peer never reads", .peer = Peer::kNeverRead},
    {.name = "diverted", .diverted = true},
    {.name = "diverted without an add-in", .diverted = true, .has_port = false},
    {.name = "no port", .has_port = false, .user_log_level = 1},
    {.name = "no port, a result from before", .has_result = true, .has_port = false},
    {.name = "nothing listens", .peer = std::nullopt},
    {.name = "sending is skipped", .has_port = false, .user_skip = 1},
    {.name = "on the command line", .on_command_line = true, .user_log_level = 1},
    {.name = "on the command line, no port", .on_command_line = true, .has_port = false},
};

const char16_t* CommandLineOf(const Scenario& scenario) {
  return scenario.on_command_line
             ? u"C:\\docs\\fax.pdf \"0301234567;SHello;KA note;EJ\u00E4ger;c1\" /x"
             : u"C:\\jobs\\a.json";
}

// A job file as it is read and written: its own members, and what is added behind them.
class JobFile {
 public:
  using Members = std::vector<std::pair<std::string, std::string>>;  // name and JSON

  explicit JobFile(const Scenario& scenario) : start_(JobFileStart(scenario.diverted)) {
    if (scenario.has_result) {
      added_.push_back({"Result",
                        {{"Status", "1"},
                         {"Extra", "\"kept\""},
                         {"ErrorCode", "1004"},
                         {"ErrorText", "\"from before\""}}});
    }
  }

  // The members of the object `name`; null when there is none.
  Members* Find(const std::string& name) {
    const auto found = std::find_if(added_.begin(), added_.end(),
                                    [&](const auto& object) { return object.first == name; });
    return found == added_.end() ? nullptr : &found->second;
  }

  void AddObject(const std::string& name) { added_.push_back({name, {}}); }

  static void Set(Members& members, const std::string& name, const std::string& json) {
    const auto found = std::find_if(members.begin(), members.end(),
                                    [&](const auto& member) { return member.first == name; });
    if (found == members.end()) {
      members.emplace_back(name, json);
    } else {
      found->second = json;
    }
  }

  static bool HoldAll(const Members& members, const Members& wanted) {
    return std::all_of(wanted.begin(), wanted.end(), [&](const auto& member) {
      return std::find(members.begin(), members.end(), member) != members.end();
    });
  }

  [[nodiscard]] std::string Bytes() const {
    std::string text = start_;
    for (const auto& [name, members] : added_) {
      text += ",\n\t\"" + name + "\":\t{\n";
      for (std::size_t i = 0; i < members.size(); ++i) {
        text += "\t\t\"" + members[i].first + "\":\t" + members[i].second +
                (i + 1 < members.size() ? ",\n" : "\n");
      }
      text += "\t}";
    }
    return text + "\n}";
  }

 private:
  std::string start_;
  std::vector<std::pair<std::string, Members>> added_;
};

// What a job in its scenario leaves behind when the fallible call at `fault_index` fails. All texts
// are UTF-8.
class ExpectedJob {
 public:
  // Without a mode nothing fails.
  explicit ExpectedJob(const Scenario& scenario, std::optional<FaultMode> mode = {},
                       std::size_t fault_index = 0)
      : scenario_(scenario), mode_(mode), fault_index_(fault_index), job_file_(scenario) {
    if (scenario.on_command_line) {
      files[kDocument] = kDocumentBytes;
    } else {
      files[kJobName] = job_file_.Bytes();
    }
    Run();
  }

  std::vector<std::string> calls;  // the functions that could have failed, in order
  std::string debug_output;
  std::map<std::string, std::string> files;
  std::vector<std::string> connections;
  std::size_t sockets_ended = 0;
  std::optional<std::uint64_t> waits;  // where the watchdog's number is certain
  int exit_code = 1;

 private:
  struct Document {
    bool parsed = false;
    std::string error;  // what the parser stopped at
  };

  // Every call asks here first.
  bool Works(const char* function) {
    const std::size_t index = calls.size();
    calls.emplace_back(function);
    return !mode_ || (*mode_ == FaultMode::kOnce ? index != fault_index_ : index < fault_index_);
  }

  void Run() {
    Works("InitializeCommonControls");
    sockets_started_ = Works("StartSockets");
    sockets_ended = sockets_started_ ? 1 : 0;
    const std::string first = scenario_.on_command_line ? kDocument : kJobName;
    if (ReadFromFile(first)) {
      job_name_ = first;
    } else {
      file_name_ = first;
    }
    if (scenario_.on_command_line) {
      fields_ = {{"+FAX", "0301234567"},
                 {"S", "Hello"},
                 {"K", "A note"},
                 {"E", "J\xC3\xA4ger"},
                 {"C", "1"}};
    }
    Log("INFO   ", "StartZentpost(): " + test::Readable(CommandLineOf(scenario_)));
    exit_code = Dispatch() ? 0 : 1;
  }

  // --- the routes ---

  bool Dispatch() {
    if (AddinPort() && Connect() && AddinRoute()) {
      return true;
    }
    return MapiRoute();
  }

  bool AddinRoute() {
    const std::string tag = "ProcessToOutlookClient(): ";
    Log("INFO   ", tag + "Processing job to Ambrolux.OutlookClient.");
    const std::string payload = Payload().value_or("");
    if (payload.empty() || !Works("BytesToWide")) {
      return NoPayload();
    }
    const std::string widened = EncodedTwice(payload);
    Log("INFO   ", tag + "Created JSON:\r\n" + widened + "\r\n");
    if (fields_.contains("O")) {
      return WritePayload(fields_["O"]) ? Outcome(0, 0, "") : NoPayload();
    }
    if (!AddinPort()) {
      Log("ERROR  ", tag + "The communication port is not valid.");
      return Outcome(1, 1002, "OutlookClient: Unknown destination.");
    }
    if (!Connect()) {
      Log("ERROR  ", tag + "The client connection to 127.0.0.1:5000 cannot be established.");
      return Outcome(1, 1004, "OutlookClient: Connection cannot be established.");
    }
    // A conversion that fails leaves nothing to send; one without memory is a failed send.
    if (!Works("AllocateBlock") || !Send(Works("WideToBytes") ? widened : "")) {
      Log("ERROR  ", tag + "The sending failed.");
      return Outcome(1, 1003, "OutlookClient: Transmission failure.");
    }
    Log("INFO   ", tag + "The JSON payload successfully sent.");
    return Outcome(0, 0, "");
  }

  bool NoPayload() {
    Log("ERROR  ", "ProcessToOutlookClient(): The JSON creation failed.");
    return Outcome(1, 1000, "Outlook: Data encoding failure.");
  }

  bool MapiRoute() {
    const std::string tag = "ProcessToExtendedMapi(): ";
    Log("INFO   ", tag + "Processing single job to extended MAPI.");
    Log("INFO   ", tag + "Parameters :");
    Log("INFO   ", tag + "Receiver   : " + Field("+FAX"));
    Log("INFO   ", tag + "Recipient  : " + Field("E"));
    Log("INFO   ", tag + "Sendername : " + Field("U"));
    Log("INFO   ", tag + "Comment    : " + Field("K"));
    Log("INFO   ", tag + "Subject    : " + Field("S"));
    Log("INFO   ", tag + "SendTime   : " + Field("Z"));
    Log("INFO   ", tag + "Attachment : " + file_name_);
    Log("INFO   ", tag + "Attach Name: " + attachment_name_);
    Log("INFO   ", tag + "ECM        : " + (IsOn("C") ? "False" : "True"));
    Log("INFO   ", tag + "Preview    : " + (IsOn("P") ? "True" : "False"));
    if (fields_.contains("O")) {
      if (!WritePayload(fields_["O"])) {
        return Outcome(1, kOutOfMemory, "MAPI Error");
      }
    } else if (ClientNumber(scenario_.user_skip, 0) == 0) {
      if (const std::int32_t result = SendMail(); result < 0) {
        return Outcome(1, result, "MAPI Error");
      }
    }
    return Outcome(0, 0, "");
  }

  // There is no MAPI on this machine: whatever fails in the search for it, nothing is found.
  std::int32_t SendMail() {
    LookForMapi();
    Log("ERROR  ", "SendMail(): MAPIInititialize failed.");
    Log("ERROR  ", "Code 0x80004005 --> A general not more specified error occurred.");
    return kMapiMissing;
  }

  void LookForMapi() {
    // Outlook's library and that of older clients, were they loaded already.
    const bool has_system_directory = Works("SystemDirectory");
    bool can_ask = false;
    bool has_kernel = false;
    for (int library = 0; library < 2; ++library) {
      has_kernel = has_kernel || (Works("LoadModule") && has_system_directory);
      can_ask = can_ask || (has_kernel && Works("FindProcedure"));
      Works(can_ask ? "GetModuleHandleExW" : "FindLoadedModule");
    }
    // The mail clients' key is missing, and its values are asked for nevertheless.
    Works("OpenKey");
    Works("QueryValue");
    // The installer's library, for each category and both qualifiers.
    for (int question = 0; question < 12; ++question) {
      Works("LoadModule");
    }
    Works("QueryValue");
    Works("SystemDirectory");
    Works("LoadModule");
  }

  bool AddinPort() { return Works("OpenKey") && scenario_.has_port && Works("QueryValue"); }

  bool Connect() {
    if (!Works("Create") || !sockets_started_) {
      return false;
    }
    if (!Works("Connect") || !scenario_.peer || connections.size() >= scenario_.connections) {
      return false;
    }
    connections.emplace_back();
    return true;
  }

  bool Send(const std::string& bytes) {
    const bool watched = Works("StartWorker");
    bool sent = Works("Send");
    if (sent) {
      std::size_t taken = bytes.size();
      if (scenario_.peer == Peer::kReset || (scenario_.peer == Peer::kNeverRead && !watched)) {
        // An unwatched send lasts as long as its peer lives: FurnishRun lets it die.
        taken /= 2;
        sent = false;
      } else if (scenario_.peer == Peer::kNeverRead && taken > kSendWindow) {
        taken = kSendWindow;
        waits = 10000;
        sent = false;
      }
      connections.back() = bytes.substr(0, taken);
    }
    if (watched) {
      Works("WaitForWorker");
    }
    return sent;
  }

  // --- the payload ---

  // Nothing when there is no memory for one of its values.
  std::optional<std::string> Payload() {
    test::PayloadText payload;
    const std::pair<std::string*, std::string> kValues[] = {
        {&payload.receiver, Field("+FAX")},
        {&payload.recipient_name, Field("E")},
        {&payload.sender_name, Field("U")},
        {&payload.file_name, file_name_},
        {&payload.attachment_name, attachment_name_},
        {&payload.comment, Field("K")},
        {&payload.subject, Field("S")},
        {&payload.send_time, Field("Z")},
    };
    for (const auto& [member, value] : kValues) {
      const std::optional<std::string> converted = Converted(value);
      if (!converted) {
        return std::nullopt;
      }
      *member = Escaped(*converted);
    }
    payload.ecm = !IsOn("C");
    payload.preview = IsOn("P");
    return payload.Bytes();
  }

  // False when there is no memory for the payload.
  bool WritePayload(const std::string& name) {
    const std::string path = (Works("TemporaryFolder") ? "C:\\Temp\\" : "") + name;
    // What cannot be told from the job's own files is not written to. Without a name it is the
    // folder, which cannot be opened.
    if (!Works("IdentifyFile") || name.empty()) {
      return true;
    }
    if (files.contains(path)) {
      for (const std::string& own : {file_name_, job_name_}) {
        if (!own.empty()) {
          Works("IdentifyFile");
        }
      }
    }
    if (!Works("OpenFileAt")) {
      return true;
    }
    files[path].clear();
    const std::optional<std::string> payload = Payload();
    if (payload && Works("WriteBytes")) {
      files[path] = *payload;
    }
    return payload.has_value();
  }

  // --- the job file ---

  Document Load(const std::string& path) {
    if (!Works("OpenFileAt") || !Works("QueryFileSize") || !Works("AllocateBlock") ||
        !Works("ReadBytes")) {
      return {};
    }
    const std::string& bytes = files[path];
    if (bytes.starts_with("{")) {
      return {.parsed = true, .error = {}};
    }
    // Nothing of another text can be parsed.
    return {.parsed = false, .error = bytes};
  }

  bool ReadFromFile(const std::string& path) {
    const Document document = Load(path);
    if (!document.parsed) {
      LogParseError("ReadFromFile(): Parse JSON failed with error '", document);
      return false;
    }
    if (!NameIsNarrowed()) {
      Log("ERROR  ", "GetDocumentFromJson(): Filename not found");
      Log("ERROR  ", "ReadFromFile(): Read document failed");
      return true;
    }
    const std::string path_in_file = FromUtf8(kDocument);
    if (!NameIsNarrowed()) {
      Log("ERROR  ", "GetDocumentFromJson(): JobName not found");
      Log("ERROR  ", "ReadFromFile(): Read document failed");
      return true;
    }
    attachment_name_ = FromUtf8("Letter") + ".pdf";
    file_name_ = path_in_file;
    ReadField("B", true, {}, {});
    ReadField("C", true, {}, "1");
    ReadField("E", true, "J\xC3\xA4ger", {});
    ReadField("K", true, {}, "A note");
    ReadField("N", true, {}, {});
    ReadField("O", false, {}, scenario_.diverted ? std::optional("payload.json") : std::nullopt);
    ReadField("P", true, {}, {});
    ReadField("S", true, "Hello", {});
    ReadField("U", true, {}, {});
    ReadField("Z", true, {}, {});
    fields_["+FAX"] = FromUtf8("0301234567");
    return true;
  }

  // A field that the job file holds under its long name, its letter, or neither.
  void ReadField(const std::string& letter, bool has_long_name, std::optional<const char*> by_name,
                 std::optional<const char*> by_letter) {
    if (has_long_name && NameIsNarrowed() && by_name) {
      fields_[letter] = FromUtf8(*by_name);
    } else if (NameIsNarrowed() && by_letter) {
      fields_[letter] = FromUtf8(*by_letter);
    }
  }

  // Writes the outcome; gives whether it is a success.
  bool Outcome(std::int32_t status, std::int32_t code, const std::string& text) {
    if (job_name_.empty()) {
      return status == 0;
    }
    const Document document = Load(job_name_);
    if (!document.parsed) {
      LogParseError("WriteJobFileResult(): Parse JSON failed with error '", document);
      return status == 0;
    }
    const std::optional<std::string> converted = Converted(text);
    if (!converted) {
      return status == 0;
    }
    const JobFile::Members outcome = {{"Status", std::to_string(status)},
                                      {"ErrorCode", std::to_string(code)},
                                      {"ErrorText", "\"" + *converted + "\""}};
    JobFile updated = job_file_;
    if (updated.Find("Result") == nullptr && NameIsNarrowed()) {
      updated.AddObject("Result");
    }
    JobFile::Members* result = updated.Find("Result");
    for (const auto& [name, json] : outcome) {
      // Where not even "Result" could be named, its members go nowhere.
      if (NameIsNarrowed() && result != nullptr) {
        JobFile::Set(*result, name, json);
      }
    }
    if (result == nullptr || !JobFile::HoldAll(*result, outcome)) {
      return status == 0;  // the job file stays as it is
    }
    if (Works("OpenFileAt")) {
      files[job_name_].clear();
      if (Works("WriteBytes")) {
        job_file_ = updated;
        files[job_name_] = updated.Bytes();
      }
    }
    return status == 0;
  }

  // --- texts ---

  bool NameIsNarrowed() {
    // The size first, then the bytes.
    return Works("WideToBytes") && Works("WideToBytes");
  }

  std::string FromUtf8(const std::string& text) { return Works("BytesToWide") ? text : ""; }

  // To UTF-8; a failure is logged. Nothing when there is no memory.
  std::optional<std::string> Converted(const std::string& text) {
    if (text.empty()) {
      return "";
    }
    if (!Works("AllocateBlock")) {
      LogErrorWithCode("_utf8(): A memory error occurred.");
      return std::nullopt;
    }
    if (!Works("WideToBytes")) {
      LogErrorWithCode("_utf8(): The utf-8 forward conversion failed.");
      return "";
    }
    return text;
  }

  static std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char unit : text) {
      escaped += unit == '\\' ? "\\\\" : std::string(1, unit);
    }
    return escaped;
  }

  // UTF-8 whose bytes were read as characters of their number and encoded once more.
  static std::string EncodedTwice(const std::string& utf8) {
    std::string twice;
    for (const char unit : utf8) {
      const auto byte = static_cast<unsigned char>(unit);
      if (byte >= 0x80) {
        EXPECT_GE(byte, 0xA0) << "below, the ANSI code page has characters of its own";
        twice += static_cast<char>(0xC0 | byte >> 6);
        twice += static_cast<char>(0x80 | (byte & 0x3F));
      } else {
        twice += unit;
      }
    }
    return twice;
  }

  std::string Field(const std::string& name) const {
    const auto found = fields_.find(name);
    return found == fields_.end() ? "" : found->second;
  }
  bool IsOn(const std::string& name) const { return fields_.contains(name) && Field(name) != "-"; }

  // --- the log ---

  std::uint32_t ClientNumber(std::uint32_t user, std::uint32_t machine) {
    const bool opened = Works("OpenKey");
    if (opened && Works("QueryValue") && user != 0) {
      return user;
    }
    if (opened && !Works("CloseKey")) {
      return 0;
    }
    return Works("OpenKey") && Works("QueryValue") ? machine : 0;
  }

  void LogParseError(const std::string& message, const Document& document) {
    Log("ERROR  ", message, &document.error, "'");
  }

  // `level` as the line shows it, seven characters wide. A text from outside is converted where it
  // comes to stand.
  void Log(const std::string& level, const std::string& message, const std::string* utf8 = nullptr,
           const std::string& end = "") {
    const bool to_file = ClientNumber(scenario_.user_log_level, scenario_.machine_log_level) != 0;
    const std::string time =
        Works("BreakIntoLocalTime") ? std::string(test::kLogTime) : "0000/00/00 -01:-01:-01";
    const std::string line = time + " - " + level + ": " + message +
                             (utf8 != nullptr ? FromUtf8(*utf8) : "") + end + "\n";
    debug_output += line;
    if (!to_file || !Works("WideToBytes")) {
      return;
    }
    const bool has_temporary_folder = Works("TemporaryFolder");
    const bool has_application_data = Works("LocalApplicationDataFolder");
    const std::string path = has_application_data   ? kLogPath
                             : has_temporary_folder ? "C:\\Temp\\zentpost.log"
                                                    : "zentpost.log";
    if (Works("AppendToFile")) {
      std::string& bytes = files[path];
      for (const char unit : line) {
        bytes += unit == '\n' ? "\r\n" : std::string(1, unit);
      }
    }
  }

  void LogErrorWithCode(const std::string& message) {
    Log("ERROR  ", message);
    const std::string text = Works("SystemMessage") ? "A device failed." : "Unknown Error.";
    Log("ERROR  ", "Code 0x0000001f --> " + text);
  }

  const Scenario& scenario_;
  std::optional<FaultMode> mode_;
  std::size_t fault_index_;
  bool sockets_started_ = false;
  JobFile job_file_;
  std::string job_name_;
  std::string file_name_;
  std::string attachment_name_;
  std::map<std::string, std::string> fields_;
};

class JobFaultSweep : public platform::fake::MachineTest {};

void Furnish(Machine& machine, const Scenario& scenario) {
  if (scenario.on_command_line) {
    machine.SetFile(u"C:\\docs\\fax.pdf", kDocumentBytes);
  } else {
    machine.SetFile(u"C:\\jobs\\a.json", JobFile(scenario).Bytes());
  }
  machine.AddFolder(u"C:\\AppData\\VORNA\\Client\\Log");
  machine.SetDword(Hive::kCurrentUser, kClientKey, u"LogLevel", scenario.user_log_level);
  machine.SetDword(Hive::kLocalMachine, kClientKey, u"LogLevel", scenario.machine_log_level);
  machine.SetDword(Hive::kCurrentUser, kClientKey, u"SkipExtendedMapi", scenario.user_skip);
  machine.SetSystemMessage(kFailure, kFailureMessage);
  machine.SetSendWindow(kSendWindow);
  if (scenario.has_port) {
    machine.SetString(Hive::kCurrentUser, kPortKey, u"TolvanAddinPort", u"5000");
  }
  if (scenario.peer) {
    machine.Listen(kPort, *scenario.peer, scenario.connections);
  }
}

// The functions of the main thread's calls that could have failed, one on each line, so that a
// difference is easily seen.
std::string FallibleFunctions(const Machine& machine) {
  std::string functions;
  for (const std::string& call : machine.Calls()) {
    const std::string function = call.substr(0, call.find('('));
    if (function != "WriteDebugOutput" && function != "SecondsSinceEpoch" &&
        function != "EndSockets") {
      functions += function + "\n";
    }
  }
  return functions;
}

std::string Lines(const std::vector<std::string>& texts) {
  std::string lines;
  for (const std::string& text : texts) {
    lines += text + "\n";
  }
  return lines;
}

void ExpectOutcome(const Machine& machine, const ExpectedJob& expected, int exit_code) {
  EXPECT_EQ(exit_code, expected.exit_code);
  EXPECT_EQ(FallibleFunctions(machine), Lines(expected.calls));
  std::string debug_output;
  for (const std::u16string& text : machine.DebugOutput()) {
    debug_output += test::Readable(text);
  }
  EXPECT_EQ(debug_output, expected.debug_output);
  std::map<std::string, std::string> files;
  for (const std::u16string& path : machine.FilePaths()) {
    files[test::Readable(path)] = machine.FileBytes(path).value_or("");
  }
  EXPECT_EQ(files, expected.files);
  EXPECT_EQ(machine.Connections(), expected.connections);
  EXPECT_EQ(machine.CallsOf("EndSockets").size(), expected.sockets_ended);
  if (expected.waits) {
    EXPECT_EQ(machine.SleepCount(), *expected.waits);
  }
}

int RunJob(const Scenario& scenario) {
  CAmbroluxPrintSendApp application;
  application.m_lpCmdLine = CommandLineOf(scenario);
  EXPECT_FALSE(application.InitInstance());
  return application.ExitInstance();
}

// Gives the number of runs with a fault.
std::size_t Sweep(Machine& machine, const Scenario& scenario) {
  SCOPED_TRACE(scenario.name);
  const ExpectedJob faultless(scenario);
  // Without its watchdog a send to a peer that never reads lasts as long as that peer lives. In the
  // run in which the watchdog alone cannot be started, the peer therefore dies.
  const auto watchdog = std::find(faultless.calls.begin(), faultless.calls.end(), "StartWorker");
  const auto unwatched_run = static_cast<std::size_t>(1 + 2 * (watchdog - faultless.calls.begin()));
  std::size_t run = 0;
  int exit_code = 0;
  const platform::fake::FaultScenario in_sweep = {
      .prepare =
          [&] {
            ForgetMapiLoading();
            Furnish(machine, scenario);
            if (run == unwatched_run && scenario.peer == Peer::kNeverRead) {
              machine.Listen(kPort, Peer::kReset);
            }
            ++run;
          },
      .act =
          [&] {
            exit_code = RunJob(scenario);
            if (run == 1) {
              ExpectOutcome(machine, faultless, exit_code);
            }
          },
  };
  std::cout << scenario.name << ": ";
  return platform::fake::SweepFaults(
      in_sweep,
      [&](const FaultRun& fault) {
        ExpectOutcome(machine, ExpectedJob(scenario, fault.mode, fault.index), exit_code);
      },
      kFailure);
}

TEST_F(JobFaultSweep, EveryFailureOfTheSystemHasItsOutcome) {
  std::size_t runs = 0;
  for (const Scenario& scenario : kScenarios) {
    runs += Sweep(machine_, scenario);
  }
  std::cout << "whole jobs with a fault: " << runs << " runs\n";
}

// A write that stops half way leaves half a job file: it is rewritten in place, and what is lost
// then cannot be had back. Nothing of the old file is mixed into the new one.
TEST_F(JobFaultSweep, AJobFileIsNeverAMixtureOfOldAndNew) {
  const Scenario& scenario = kScenarios[0];
  const std::string whole = ExpectedJob(scenario).files.at(kJobName);
  for (const std::size_t written : {std::size_t{1}, whole.size() / 2, whole.size() - 1}) {
    machine_.Reset();
    Furnish(machine_, scenario);
    machine_.SetBytesBeforeFault(written);
    machine_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
    EXPECT_EQ(RunJob(scenario), 0);
    EXPECT_EQ(machine_.FileBytes(u"C:\\jobs\\a.json"), whole.substr(0, written));
  }
}

}  // namespace
}  // namespace zentpost
