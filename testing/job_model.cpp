#include "testing/job_model.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "app/registry_names.h"
#include "mapiload/extended_mapi.h"
#include "platform/call.h"
#include "testing/expected_texts.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"
#include "tools/support/text.h"

namespace zentpost::test {

using platform::Hive;
using platform::fake::FakePlatform;
using platform::fake::FaultMode;
using platform::fake::Peer;

namespace {

constexpr std::uint16_t kPort = 5000;
constexpr std::size_t kSendWindow = 100;
constexpr char kLogPath[] = "C:\\AppData\\VORNA\\Client\\Log\\zentpost.log";
constexpr char kLogInTemporaryFolder[] = "C:\\Temp\\zentpost.log";
constexpr char kNoFolderLog[] = "zentpost.log";
constexpr char kDivertedName[] = "a payload of its own.json";
constexpr char kSubject[] = "A subject of some length";
constexpr char kComment[] = "A comment of some length";
constexpr char kSender[] = "Somebody who sends";

constexpr std::uint32_t kFaultAsResult = 0x80070000 | kFault;  // HRESULT_FROM_WIN32
constexpr HRESULT kMapiFault = MakeResult(kFaultAsResult);
constexpr HRESULT kNoRecipients = MakeResult(0x80040607);  // MAPI_E_NO_RECIPIENTS (mapicode.h)

// A job file as it is read and written: its own members, and what is added behind them.
class JobFile {
 public:
  using Members = std::vector<std::pair<std::string, std::string>>;  // name and JSON

  explicit JobFile(const Situation& situation)
      : start_(
            "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n"
            "\t\"SourceFileName\":\t\"" +
            std::string(situation.source_name) +
            "\",\n\t\"Cmd\":\t{\n"
            "\t\t\"Parameters\":\t{\n"
            "\t\t\t\"RecipientName\":\t\"" +
            situation.recipient + "\",\n" +
            (situation.preview ? "\t\t\t\"Preview\":\t\"1\",\n" : "") + "\t\t\t\"Subject\":\t\"" +
            kSubject +
            "\"\n\t\t},\n"
            "\t\t\"Commands\":\t{\n"
            "\t\t\t\"C\":\t\"1\",\n" +
            (situation.diverted ? "\t\t\t\"O\":\t\"" + std::string(kDivertedName) + "\",\n" : "") +
            "\t\t\t\"U\":\t\"" + kSender + "\",\n\t\t\t\"K\":\t\"" + kComment +
            "\"\n\t\t},\n\t\t\"Receiver\":\t[\"" + situation.receiver + "\"]\n\t}") {
    if (situation.has_result) {
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

// What stands behind the last of `separators`, where separators at the very end do not count.
std::string LastToken(std::string_view text, std::string_view separators) {
  text = text.substr(0, text.find_last_not_of(separators) + 1);
  return std::string(text.substr(text.find_last_of(separators) + 1));
}

// Backslashes are the only characters here that JSON writes otherwise.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char unit : text) {
    escaped += unit == '\\' ? "\\\\" : std::string(1, unit);
  }
  return escaped;
}

// UTF-8 whose bytes were read as characters of their number and encoded once more. Below 0xA0 the
// ANSI code page has characters of its own; no text here has these bytes.
std::string EncodedTwice(const std::string& utf8) {
  std::u16string characters;
  for (const char unit : utf8) {
    characters += static_cast<unsigned char>(unit);
  }
  return support::Utf8(characters);
}

}  // namespace

const char16_t* CommandLineOf(const Situation& situation) {
  return situation.on_command_line ? u"C:\\docs\\fax.pdf \"0301234567 and an extension;"
                                     u"SA subject of some length;KA comment of some length;"
                                     u"EJ\u00E4ger and Company;c1\" /x"
                                   : kJobPath;
}

std::string JobFileOf(const Situation& situation) {
  return JobFile(situation).Bytes();
}

void SetUpMachine(const Situation& situation) {
  FakePlatform& fake = platform::fake::TheFakePlatform();
  fake.SetFile(kDocumentPath, kDocumentBytes);
  if (!situation.on_command_line) {
    fake.SetFile(kJobPath, JobFileOf(situation));
  }
  fake.AddFolder(u"C:\\AppData\\VORNA\\Client\\Log");
  for (const auto& [hive, name, number] :
       {std::tuple{Hive::kCurrentUser, registry::kLogLevel, situation.user_log_level},
        std::tuple{Hive::kLocalMachine, registry::kLogLevel, situation.machine_log_level},
        std::tuple{Hive::kCurrentUser, registry::kSkipExtendedMapi, situation.user_skip}}) {
    fake.SetDword(hive, registry::kFaxClientKey, name, number);
  }
  for (const std::uint32_t code : {std::uint32_t{kFault}, kFaultAsResult}) {
    fake.SetSystemMessage(code, u"\tA device failed.\r\n");
  }
  fake.SetSendWindow(kSendWindow);
  if (situation.has_port) {
    fake.SetString(Hive::kCurrentUser, registry::kAddinKey, registry::kAddinPort, u"5000");
  }
  if (situation.peer) {
    fake.Listen(kPort, *situation.peer, situation.connections);
  }
  if (situation.is_automatic) {
    for (const auto& [name, text] : {std::pair{registry::kAddressAutomation, u"1"},
                                     std::pair{registry::kAddressPrefix, u"[FAX:"},
                                     std::pair{registry::kAddressPostfix, u"] and so on"}}) {
      fake.SetString(Hive::kCurrentUser, registry::kAddinKey, name, text);
    }
  }
  if (situation.has_file_type) {
    fake.AddKey(Hive::kClassesRoot, u".xyz");
  }
}

std::vector<std::string> StepsOfTheJob() {
  constexpr std::string_view kOutput = "WriteDebugOutput(";
  std::vector<std::string> steps;
  for (const std::string& call : platform::fake::TheFakePlatform().Calls()) {
    if (call.starts_with(kOutput)) {
      if (call != "WriteDebugOutput(\n)") {
        steps.push_back("log " + LevelAndMessage(std::string_view(call).substr(
                                     kOutput.size(), call.size() - kOutput.size() - 1)));
      }
    } else if (!call.starts_with("SecondsSinceEpoch(")) {
      steps.push_back(call.substr(0, call.find('(')));
    }
  }
  return steps;
}

class JobModel::Run {
 public:
  Run(JobModel& model, const Situation& situation, std::optional<FaultMode> mode,
      std::size_t fault_index)
      : model_(model),
        situation_(situation),
        mode_(mode),
        fault_index_(fault_index),
        job_file_(situation) {
    model_.files[Readable(kDocumentPath)] = kDocumentBytes;
    if (!situation.on_command_line) {
      model_.files[Readable(kJobPath)] = job_file_.Bytes();
    }
  }

  void WholeJob() {
    Works("InitializeCommonControls");
    sockets_started_ = Works("StartSockets");
    const std::string first = Readable(situation_.on_command_line ? kDocumentPath : kJobPath);
    if (ReadFromFile(first)) {
      job_name_ = first;
    } else {
      file_name_ = first;
    }
    if (situation_.on_command_line) {
      fields_ = {{"+FAX", "0301234567 and an extension"},
                 {"S", kSubject},
                 {"K", kComment},
                 {"E", "J\xC3\xA4ger and Company"},
                 {"C", "1"}};
    }
    Log("INFO", "StartZentpost(): " + Readable(CommandLineOf(situation_)));
    const bool by_addin = AddinPort() && Connect() && AddinRoute();
    model_.exit_code = by_addin || MapiRoute() ? 0 : 1;
    if (sockets_started_) {
      Note("EndSockets");
    }
    for (const Block& block : blocks_) {
      model_.accounts += block.freed ? "" : block.name + ": not freed\n";
    }
  }

 private:
  // --- calls ---

  // Every call that can fail asks here first.
  bool Works(const std::string& function) {
    const std::size_t index = model_.fallible_calls++;
    model_.steps.push_back(function);
    return !mode_ || (*mode_ == FaultMode::kOnce ? index != fault_index_ : index < fault_index_);
  }

  void Note(const std::string& step) { model_.steps.push_back(step); }

  // --- the routes ---

  bool AddinRoute() {
    LogLines(kAddinStartLog);
    const std::string payload = Payload().value_or("");
    if (payload.empty() || !Works("BytesToWide")) {
      return Fail(kNoPayload);
    }
    const std::string widened = EncodedTwice(payload);
    Log("INFO", "ProcessToOutlookClient(): Created JSON:\r\n" + widened + "\r\n");
    if (fields_.contains("O")) {
      return WritePayload(fields_["O"]) ? Outcome(0, 0, "") : Fail(kNoPayload);
    }
    if (!AddinPort()) {
      return Fail(kNoPort);
    }
    if (!Connect()) {
      return Fail(kNotConnected);
    }
    // A conversion that fails leaves nothing to send; one without memory is a failed send.
    if (!Works("AllocateBlock") || !Send(Works("WideToBytes") ? widened : "")) {
      return Fail(kNotSent);
    }
    LogLines(kAddinSentLog);
    return Outcome(0, 0, "");
  }

  bool Fail(const AddinFailure& failure) {
    LogLines(failure.log);
    return Outcome(1, failure.code, failure.text);
  }

  bool MapiRoute() {
    LogLines(MapiJobLog({.receiver = Field("+FAX"),
                         .recipient = Field("E"),
                         .sender = Field("U"),
                         .comment = Field("K"),
                         .subject = Field("S"),
                         .send_time = Field("Z"),
                         .attachment = file_name_,
                         .attachment_name = attachment_name_,
                         .ecm = !IsOn("C"),
                         .preview = IsOn("P")}));
    HRESULT result = S_OK;
    if (fields_.contains("O")) {
      result = WritePayload(fields_["O"]) ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
    } else if (ClientNumber(situation_.user_skip, 0) == 0) {
      result = SendMail();
    }
    return result < 0 ? Outcome(1, result, "MAPI Error") : Outcome(0, 0, "");
  }

  // --- the add-in ---

  bool HasAddinKey() const { return situation_.has_port || situation_.is_automatic; }

  bool AddinPort() {
    return Works("OpenKey") && HasAddinKey() && Works("QueryValue") && situation_.has_port;
  }

  bool Connect() {
    if (!Works("Create") || !sockets_started_) {
      return false;
    }
    if (!Works("Connect") || !situation_.peer ||
        model_.connections.size() >= situation_.connections) {
      return false;
    }
    model_.connections.emplace_back();
    return true;
  }

  bool Send(const std::string& bytes) {
    model_.watchdog = model_.fallible_calls;
    const bool watched = Works("StartWorker");
    bool sent = Works("Send");
    if (sent) {
      std::size_t taken = bytes.size();
      if (situation_.peer == Peer::kReset || (situation_.peer == Peer::kNeverRead && !watched)) {
        // An unwatched send lasts as long as its peer lives: the sweep lets it die.
        taken /= 2;
        sent = false;
      } else if (situation_.peer == Peer::kNeverRead && taken > kSendWindow) {
        taken = kSendWindow;
        model_.waits = 10000;
        sent = false;
      }
      model_.connections.back() = bytes.substr(0, taken);
    }
    if (watched) {
      Works("WaitForWorker");
    }
    return sent;
  }

  // Nothing when there is no memory for one of its values.
  std::optional<std::string> Payload() {
    PayloadText payload;
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
    if (model_.files.contains(path)) {
      for (const std::string& own : {file_name_, job_name_}) {
        if (!own.empty()) {
          Works("IdentifyFile");
        }
      }
    }
    if (!Works("OpenFileAt")) {
      return true;
    }
    model_.files[path].clear();
    const std::optional<std::string> payload = Payload();
    if (payload && Works("WriteBytes")) {
      model_.files[path] = *payload;
    }
    return payload.has_value();
  }

  // --- the job file ---

  struct Document {
    bool parsed = false;
    std::string error;  // what the parser stopped at
  };

  Document Load(const std::string& path) {
    if (!Works("OpenFileAt") || !Works("QueryFileSize") || !Works("AllocateBlock") ||
        !Works("ReadBytes")) {
      return {};
    }
    const std::string& bytes = model_.files[path];
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
      LogLines(kNoFilePathLog);
      return true;
    }
    const std::string path_in_file = FromUtf8(Readable(kDocumentPath));
    if (!NameIsNarrowed()) {
      LogLines(kNoSourceFileNameLog);
      return true;
    }
    const std::string source_name = FromUtf8(situation_.source_name);
    attachment_name_ = source_name + (source_name.find(".pdf") == std::string::npos ? ".pdf" : "");
    file_name_ = path_in_file;
    ReadField("B", {}, {});
    ReadField("C", {}, "1");
    ReadField("E", situation_.recipient, {});
    ReadField("K", {}, kComment);
    ReadField("N", {}, {});
    if (NameIsNarrowed() && situation_.diverted) {  // has no long name
      fields_["O"] = FromUtf8(kDivertedName);
    }
    ReadField("P", situation_.preview ? std::optional("1") : std::nullopt, {});
    ReadField("S", kSubject, {});
    ReadField("U", {}, kSender);
    ReadField("Z", {}, {});
    fields_["+FAX"] = FromUtf8(situation_.receiver);
    return true;
  }

  // A field that the job file holds under its long name, its letter, or neither.
  void ReadField(const std::string& letter, std::optional<const char*> by_name,
                 std::optional<const char*> by_letter) {
    if (NameIsNarrowed() && by_name) {
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
      model_.files[job_name_].clear();
      if (Works("WriteBytes")) {
        job_file_ = updated;
        model_.files[job_name_] = updated.Bytes();
      }
    }
    return status == 0;
  }

  // --- the mail client's library ---

  struct Block {
    std::string name;
    bool freed = false;
  };

  // A method of one of the library's interfaces.
  HRESULT Method(const std::string& name) { return Works(name) ? S_OK : kMapiFault; }

  // One of the nine functions. It is looked up once, and missing for good when that fails.
  bool IsBound(const std::string& name) {
    if (!library_is_installed_ && !Search()) {
      return false;
    }
    if (!bound_.contains(name)) {
      bound_[name] = Works("FindProcedure");
      if (PLATFORM_STDCALL_IS_DECORATED != 0 && !bound_[name]) {
        Works("FindProcedure");  // under the linker's name, which the library does not export
      }
    }
    return bound_[name];
  }

  HRESULT Function(const std::string& name) {
    return IsBound(name) ? Method(name) : MAPI_E_CALL_FAILED;
  }

  std::size_t NewBlock(const std::string& origin) {
    blocks_.push_back({"block " + std::to_string(++numbered_blocks_) + " of " + origin});
    return blocks_.size() - 1;
  }

  std::size_t NewRows(const std::string& table) {
    blocks_.push_back({"rows of the " + table + " of HrQueryAllRows"});
    return blocks_.size() - 1;
  }

  // What `function` frees stays where that is missing.
  void Free(const std::string& function, std::initializer_list<std::size_t> blocks) {
    if (!IsBound(function)) {
      return;
    }
    Note(function);
    for (const std::size_t block : blocks) {
      blocks_[block].freed = true;
    }
  }

  // The registry and the installer know of no library.
  bool Search() {
    for (int attached = 0; attached < 2; ++attached) {
      Works(HasModuleHandleEx() ? "GetModuleHandleExW" : "FindLoadedModule");
    }
    Works("OpenKey");
    Works("QueryValue");
    AskInstaller();
    Works("QueryValue");
    const bool has_path = Works("SystemDirectory");
    library_is_installed_ = Works("LoadModule") && has_path && situation_.has_mail_client;
    if (library_is_installed_) {
      AskInstaller();  // for the library's companion
    }
    return library_is_installed_;
  }

  // Whether a library can be loaded from the system directory, which is asked for once.
  bool LoadFromSystem() {
    if (!system_directory_works_) {
      system_directory_works_ = Works("SystemDirectory");
    }
    return Works("LoadModule") && *system_directory_works_;
  }

  bool HasModuleHandleEx() {
    if (!module_handle_is_bound_) {
      has_kernel_ = has_kernel_ || LoadFromSystem();
      module_handle_is_bound_ = has_kernel_ && Works("FindProcedure");
    }
    return module_handle_is_bound_;
  }

  // Six kinds of installation, with two names each; there is no installer.
  void AskInstaller() {
    for (int question = 0; question < 12; ++question) {
      LoadFromSystem();
    }
  }

  // --- the send flow ---

  bool IsShown() const { return IsOn("P") || Field("+FAX").empty(); }

  HRESULT SendMail() {
    if (const HRESULT result = Function("MAPIInitialize"); result < 0) {
      LogWithCode("ERROR", result, "SendMail(): MAPIInititialize failed.");
      return MAPI_E_CALL_FAILED;
    }
    const HRESULT result = Deliver();
    CleanUp();
    return result;
  }

  // Logs a failure with its code; gives `result`.
  HRESULT Logged(HRESULT result, const std::string& message) {
    if (result < 0) {
      LogWithCode("ERROR", result, message);
    }
    return result;
  }

  HRESULT Deliver() {
    HRESULT result = LogOn();
    if (result < 0) {
      return result;
    }
    has_session_ = true;
    result = Logged(OpenDefaultStore(), "SendMail(): The default message store cannot be found.");
    if (result < 0) {
      return result;
    }
    has_store_ = true;
    result = Logged(Method("IMsgStore::GetProps"),
                    "SendMail(): The store properties cannot be obtained.");
    if (result < 0) {
      return result;
    }
    store_values_ = NewBlock("IMsgStore::GetProps");
    result =
        Logged(Method("IMsgStore::OpenEntry"), "SendMail(): The outbox folder cannot be opened.");
    if (result < 0) {
      return result;
    }
    has_outbox_ = true;
    result = Logged(Method("IMAPIFolder::CreateMessage"),
                    "SendMail(): A new message cannot be created.");
    if (result < 0) {
      return result;
    }
    has_message_ = true;
    if (!Field("+FAX").empty()) {
      const bool has_type = ComputesType();
      result = AddRecipient(has_type);
      if (result < 0) {
        Log("ERROR", "SendMail(): The recipient '" + Field("+FAX") + "' cannot be added.");
        return result;
      }
    }
    result = SetContents();
    if (result < 0) {
      Log("ERROR", "SendMail(): Message content cannot be set.");
      return result;
    }
    result = AddAttachment();
    if (result < 0) {
      Log("ERROR", "SendMail(): The attachment cannot be added.");
      return result;
    }
    return IsShown() ? Show() : Submit();
  }

  HRESULT LogOn() {
    std::string profile;
    HRESULT result = FindProfile(profile);
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): The default profile cannot be obtained.");
    } else {
      Log("INFO", "SendMail(): Profile '" + profile + "' will be used.");
    }
    if (!profile.empty()) {
      Log("INFO", "SendMail(): MAPILogonEx with profile '" + profile + "'.");
      result = Function("MAPILogonEx");
      if (result >= 0) {
        return result;
      }
      Log("INFO", "SendMail(): MAPILogonEx with profile '" + profile + "' and Logon UI.");
    } else {
      Log("INFO", "SendMail(): MAPILogonEx without profile and Logon UI.");
    }
    return Logged(Function("MAPILogonEx"), "SendMail(): MAPILogonEx failed.");
  }

  HRESULT FindProfile(std::string& profile) {
    HRESULT result = Function("MAPIAdminProfiles");
    if (result < 0) {
      return result;
    }
    result = Method("IProfAdmin::GetProfileTable");
    if (result >= 0) {
      result = Function("HrQueryAllRows");
      if (result >= 0) {
        const std::size_t rows = NewRows("profile table");
        profile = Works("BytesToWide") ? "Outlook" : "";
        Free("FreeProws", {rows});
      }
      Note("IMAPITable::Release");
    }
    Note("IProfAdmin::Release");
    return result;
  }

  HRESULT OpenDefaultStore() {
    HRESULT result = Logged(Method("IMAPISession::GetMsgStoresTable"),
                            "FindDefaultMsgStore(): There are no message stores found.");
    if (result < 0) {
      return result;
    }
    result = Function("HrQueryAllRows");
    if (result >= 0) {
      const std::size_t rows = NewRows("store table");
      result = OpenStore();
      if (result >= 0) {
        Free("FreeProws", {rows});
      }
    }
    Note("IMAPITable::Release");
    return result;
  }

  HRESULT OpenStore() {
    HRESULT result = Method("IMAPISession::OpenMsgStore");
    if (result >= 0 && !situation_.is_online) {
      result = MAPI_E_NOT_FOUND;
    }
    if (result >= 0) {
      return result;
    }
    LogWithCode("ERROR", result,
                "FindDefaultMsgStore(): The message store canot be opened as online mode.");
    return Logged(Method("IMAPISession::OpenMsgStore"),
                  "FindDefaultMsgStore(): The message store canot be opened.");
  }

  // The address automation; gives whether the address has a type.
  bool ComputesType() {
    const std::string tag = "ProcessClientAddressAutomation(): ";
    const bool is_on = ReadsSetting();
    const std::string prefix = ReadsSetting() ? "[FAX:" : "";
    const std::string suffix = ReadsSetting() ? "] and so on" : "";
    std::string type = "SMTP";
    std::string address = Field("+FAX");
    if (is_on) {
      Log("INFO", tag + "The client address automation is turned on:");
      Log("INFO", tag + "Address Prefix: '" + prefix + "'");
      Log("INFO", tag + "Address Suffix: '" + suffix + "'");
      type = "";
      address = prefix + address + suffix;
    } else {
      Log("INFO", tag + "The client address automation is turned off.");
    }
    Log("INFO", tag + Field("+FAX") + " --> '" + type + ":" + address + "'");
    return !type.empty();
  }

  bool ReadsSetting() {
    return Works("OpenKey") && HasAddinKey() && Works("QueryValue") && situation_.is_automatic;
  }

  HRESULT AddRecipient(bool has_type) {
    const std::string tag = "AddRecipientAddress(): ";
    HRESULT result =
        Logged(Method("IMAPISession::OpenAddressBook"), tag + "The address book cannot be opened.");
    if (result < 0) {
      return result;
    }
    if (Function("MAPIAllocateBuffer") < 0) {
      // The code would be that of the address book, a success.
      Log("ERROR", tag + "The address list cannot be allocated.");
      Note("IAddrBook::Release");
      return S_OK;
    }
    const std::size_t list = NewBlock("MAPIAllocateBuffer");
    result = Function("MAPIAllocateBuffer");
    if (result < 0) {
      Free("FreePadrlist", {list});
      Note("IAddrBook::Release");
      return result;
    }
    const std::size_t entry = NewBlock("MAPIAllocateBuffer");
    std::optional<std::size_t> one_off;
    result = PutOnMessage(has_type, one_off);
    Free("FreePadrlist", {list, entry});
    if (one_off) {
      Free("MAPIFreeBuffer", {*one_off});
    }
    Note("IAddrBook::Release");
    return result;
  }

  HRESULT PutOnMessage(bool has_type, std::optional<std::size_t>& one_off) {
    const std::string tag = "AddRecipientAddress(): ";
    if (has_type) {
      HRESULT result =
          Logged(Method("IAddrBook::CreateOneOff"), tag + "The ONE OFF address creation failed.");
      if (result < 0) {
        return result;
      }
      one_off = NewBlock("IAddrBook::CreateOneOff");
      result =
          Logged(Method("IAddrBook::ResolveName"), tag + "The address list resolution failed.");
      if (result < 0) {
        return result;
      }
    }
    const HRESULT result =
        Logged(Method("IMessage::ModifyRecipients"), tag + "The recipient cannot be added.");
    has_recipient_ = result >= 0;
    return result < 0
               ? result
               : Logged(Method("IMessage::SaveChanges"), tag + "The message cannot be saved.");
  }

  HRESULT SetContents() {
    for (const char* const line : {"SetMessageContents()", "  Sendername    : ",
                                   "  Subject       : ", "  Bodytext      : "}) {
      Log("DEBUG", line);
    }
    const HRESULT result =
        Logged(Method("IMessage::SetProps"), "SetMessageContents(): Setting properties failed.");
    return result < 0 ? result
                      : Logged(Method("IMessage::SaveChanges"),
                               "SetMessageContents(): Saving properties failed.");
  }

  // Looks for the type of the document's contents, of which only the warnings come.
  void LookForContentType(const std::string& extension) {
    constexpr std::array<std::string_view, 6> kKnown = {".pdf", ".tif", ".tiff",
                                                        ".png", ".mp3", ".wav"};
    if (extension.empty()) {
      Log("ERROR", "GetAttachmentMimeTag(): The extension parameter is empty.");
      LogWithCode("WARNING", E_INVALIDARG, "AddAttachment(): The mime tag cannot be retrieved.");
    } else if (std::find(kKnown.begin(), kKnown.end(), extension) == kKnown.end() &&
               Works("OpenKey") && situation_.has_file_type) {
      // Without a MIME type there is one made up, so that nothing is missing.
      Works("QueryValue");
    }
  }

  HRESULT AddAttachment() {
    const std::string tag = "AddAttachment(): ";
    Log("INFO", tag + "'" + file_name_ + "'");
    std::string extension;
    if (file_name_.empty()) {
      Log("ERROR", "GetAttachmentExtension(): The file path parameter is empty.");
      LogWithCode("WARNING", E_INVALIDARG, tag + "The extension cannot be retrieved.");
    } else if (!attachment_name_.empty()) {
      extension = "." + LastToken(attachment_name_, ".");
    }
    LookForContentType(extension);
    if (file_name_.empty()) {
      Log("ERROR", "GetAttachmentFilename(): The file path parameter is empty.");
      LogWithCode("WARNING", E_INVALIDARG, tag + "The mime tag cannot be retrieved.");
      return E_INVALIDARG;
    }
    HRESULT result = Logged(Function("MAPIAllocateBuffer"),
                            tag + "The attachment property tag memory is not available.");
    if (result < 0) {
      return result;
    }
    const std::size_t values = NewBlock("MAPIAllocateBuffer");
    result = LoadDocument();
    if (result != S_OK) {
      LogWithCode("ERROR", result, tag + "The attachment path cannot be read.");
    } else {
      result =
          Logged(Method("IMessage::CreateAttach"), tag + "An attachment could not been created.");
      if (result >= 0) {
        result = FillAttachment();
        Note("IAttach::Release");
      }
    }
    Free("MAPIFreeBuffer", {values});
    return result;
  }

  // The system's own number where a document cannot be had; a failure where it is there and does
  // not arrive, or there is no memory for it.
  HRESULT LoadDocument() {
    if (!Works("OpenFileAt")) {
      return static_cast<HRESULT>(kFault);
    }
    if (!Works("QueryFileSize")) {
      return kMapiFault;
    }
    if (!Works("AllocateBlock")) {
      return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    // What is there, and that there is no more.
    return Works("ReadBytes") && Works("ReadBytes") ? S_OK : kMapiFault;
  }

  HRESULT FillAttachment() {
    const std::string tag = "AddAttachment(): ";
    HRESULT result = Logged(Method("IAttach::SetProps"),
                            tag + "The properties of the attachment could not been set.");
    if (result < 0) {
      return result;
    }
    Log("INFO", tag + "Attachment properties are set.");
    result = Logged(Method("IAttach::SaveChanges"),
                    tag + "The attachment cannot be saved. The attachment is corrupt.");
    if (result < 0) {
      return result;
    }
    model_.attachments.push_back(model_.files[file_name_]);
    Log("INFO", tag + "Attachment added successfully,");
    if (Works("RemoveFile")) {
      model_.files.erase(file_name_);
      Log("INFO", tag + "The attachment file was deleted successfully.");
    } else {
      LogWithCode("WARNING", static_cast<HRESULT>(kFault),
                  tag + "The attachment file cannot be deleted.");
    }
    return S_OK;
  }

  // The mail client sends nothing to nobody.
  HRESULT Submit() {
    HRESULT result = Method("IMessage::SubmitMessage");
    if (result >= 0 && !has_recipient_) {
      result = kNoRecipients;
    }
    if (Logged(result, "SendMail(): Submit message failed.") >= 0) {
      Log("INFO", "SendMail(): Message sent successfully.");
    }
    return result;
  }

  HRESULT Show() {
    HRESULT result =
        Logged(Function("MAPIOpenFormMgr"), "SendMail(): Form manager cannot be opened.");
    if (result < 0) {
      return result;
    }
    has_form_manager_ = true;
    result = Logged(Method("IMessage::GetProps"), "OpenMessageModal(): Getting properties failed.");
    if (result >= 0) {
      const std::size_t values = NewBlock("IMessage::GetProps");
      result = ShowForm();
      Free("MAPIFreeBuffer", {values});
    }
    result = Logged(result, "SendMail(): Message cannot be opened modally.");
    if (result >= 0) {
      Log("INFO", "SendMail(): Mail will be opened as modal window.");
    }
    return result;
  }

  HRESULT ShowForm() {
    const std::string tag = "OpenMessageModal(): ";
    HRESULT result =
        Logged(Method("IMAPISession::PrepareForm"), tag + "Dialog preparation failed.");
    if (result < 0) {
      return result;
    }
    Log("INFO", tag + "Dialog prepared.");
    result = Logged(Method("IMAPIFolder::GetMessageStatus"),
                    tag + "Dialog message status retrieval failed.");
    if (result < 0) {
      return result;
    }
    Log("INFO", tag + "Message status retrieval succeeded.");
    return Logged(Method("IMAPISession::ShowForm"), tag + "The form cannot be shown.");
  }

  void CleanUp() {
    Log("DEBUG", "SendMail(): cleanup.");
    if (has_message_) {
      Note("IMessage::Release");
    }
    if (has_form_manager_) {
      Note("IMAPIFormMgr::Release");
    }
    if (has_outbox_) {
      Note("IMAPIFolder::Release");
    }
    if (store_values_) {
      Free("MAPIFreeBuffer", {*store_values_});
    }
    if (has_store_) {
      Note("IMsgStore::Release");
    }
    if (has_session_) {
      ShutDown();
      Works("IMAPISession::Logoff");
      Note("IMAPISession::Release");
    }
    Log("DEBUG", "SendMail(): Function end.");
  }

  void ShutDown() {
    const std::string tag = "DoMAPIFastShutdown(): ";
    Log("INFO", tag + "Function in progress.");
    if (Works("IMAPISession::QueryInterface") && situation_.has_shutdown) {
      if (Works("IMAPIClientShutdown::QueryFastShutdown") &&
          !Works("IMAPIClientShutdown::DoFastShutdown")) {
        LogWithCode("DEBUG", kMapiFault, tag + "Fast shutdown failed.");
      }
      Note("IMAPIClientShutdown::Release");
    }
    Log("INFO", tag + "Function end.");
  }

  // --- texts ---

  // The size first, then the bytes.
  bool NameIsNarrowed() { return Works("WideToBytes") && Works("WideToBytes"); }

  std::string FromUtf8(const std::string& text) { return Works("BytesToWide") ? text : ""; }

  // To UTF-8; a failure is logged. Nothing when there is no memory.
  std::optional<std::string> Converted(const std::string& text) {
    if (text.empty()) {
      return "";
    }
    const bool has_memory = Works("AllocateBlock");
    if (has_memory && Works("WideToBytes")) {
      return text;
    }
    LogWithCode("ERROR", static_cast<HRESULT>(kFault), has_memory ? kUtf8Failed : kUtf8NoMemory);
    return has_memory ? std::optional<std::string>("") : std::nullopt;
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

  // Lines as the table of expected texts has them: level, colon and message.
  void LogLines(const std::string& lines) {
    for (std::size_t at = 0, end = 0; at < lines.size(); at = end + 1) {
      end = lines.find('\n', at);
      const std::size_t colon = lines.find(": ", at);
      Log(lines.substr(at, colon - at), lines.substr(colon + 2, end - colon - 2));
    }
  }

  void LogParseError(const std::string& message, const Document& document) {
    Log("ERROR", message, &document.error, "'");
  }

  // A text from outside is converted where it comes to stand.
  void Log(const std::string& level, const std::string& message, const std::string* utf8 = nullptr,
           const std::string& end = "") {
    const bool to_file = ClientNumber(situation_.user_log_level, situation_.machine_log_level) != 0;
    const std::string_view time = Works("BreakIntoLocalTime") ? kLogTime : kNoLogTime;
    const std::string text = message + (utf8 != nullptr ? FromUtf8(*utf8) : "") + end;
    Note("log " + level + ": " + text);
    const std::string padding(7 - level.size(), ' ');
    const std::string line = std::string(time) + " - " + level + padding + ": " + text + "\n";
    model_.debug_output += line;
    if (!to_file || !Works("WideToBytes")) {
      return;
    }
    const bool has_temporary_folder = Works("TemporaryFolder");
    const bool has_application_data = Works("LocalApplicationDataFolder");
    if (Works("AppendToFile")) {
      std::string& bytes = model_.files[has_application_data   ? kLogPath
                                        : has_temporary_folder ? kLogInTemporaryFolder
                                                               : kNoFolderLog];
      for (const char unit : line) {
        bytes += unit == '\n' ? "\r\n" : std::string(1, unit);
      }
    }
  }

  void LogWithCode(const std::string& level, HRESULT code, const std::string& message) {
    Log(level, message);
    const std::pair<HRESULT, const char*> kTexts[] = {
        {MAPI_E_CALL_FAILED, "A general not more specified error occurred."},
        {MAPI_E_NOT_FOUND, "(CDO) The value was not found."},
        {MAPI_E_NOT_ENOUGH_MEMORY, "(CDO) Not enough memory available."},
        {E_INVALIDARG, "(CDO) Invalid Parameter."},
        {kNoRecipients, "(CDO) No recipients."},
    };
    const auto* const known = std::find_if(std::begin(kTexts), std::end(kTexts),
                                           [&](const auto& each) { return each.first == code; });
    const std::string text = known != std::end(kTexts) ? known->second
                             : Works("SystemMessage")  ? "A device failed."
                                                       : "Unknown Error.";
    Log(level, "Code " + support::LowerHex(static_cast<std::uint32_t>(code), 8) + " --> " + text);
  }

  JobModel& model_;
  const Situation& situation_;
  std::optional<FaultMode> mode_;
  std::size_t fault_index_;

  bool sockets_started_ = false;
  JobFile job_file_;
  std::string job_name_;
  std::string file_name_;
  std::string attachment_name_;
  std::map<std::string, std::string> fields_;

  std::vector<Block> blocks_;
  std::size_t numbered_blocks_ = 0;
  std::map<std::string, bool> bound_;
  bool library_is_installed_ = false;
  std::optional<bool> system_directory_works_;
  bool has_kernel_ = false;
  bool module_handle_is_bound_ = false;
  bool has_session_ = false;
  bool has_store_ = false;
  std::optional<std::size_t> store_values_;
  bool has_outbox_ = false;
  bool has_message_ = false;
  bool has_form_manager_ = false;
  bool has_recipient_ = false;
};

JobModel::JobModel(const Situation& situation, std::optional<FaultMode> mode,
                   std::size_t fault_index) {
  Run(*this, situation, mode, fault_index).WholeJob();
}

}  // namespace zentpost::test
