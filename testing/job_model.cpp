#include "testing/job_model.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <set>
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

// A job file as it is read and written: its own members, and the outcome behind them.
struct JobFile {
  using Members = std::vector<std::pair<std::string, std::string>>;  // name and JSON

  explicit JobFile(const Situation& situation)
      : start(
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
      result = {{"Status", "1"},
                {"Extra", "\"kept\""},
                {"ErrorCode", "1004"},
                {"ErrorText", "\"from before\""}};
    }
  }

  void SetInResult(const std::string& name, const std::string& json) {
    const auto found = std::find_if(result->begin(), result->end(),
                                    [&](const auto& member) { return member.first == name; });
    if (found == result->end()) {
      result->emplace_back(name, json);
    } else {
      found->second = json;
    }
  }

  [[nodiscard]] bool HasAll(const Members& outcome) const {
    return result && std::all_of(outcome.begin(), outcome.end(), [&](const auto& member) {
             return std::find(result->begin(), result->end(), member) != result->end();
           });
  }

  [[nodiscard]] std::string Bytes() const {
    std::string text = start;
    if (result) {
      text += ",\n\t\"Result\":\t{";
      for (const auto& [name, json] : *result) {
        text += (text.back() == '{' ? "\n" : ",\n") + ("\t\t\"" + name) + "\":\t" + json;
      }
      text += "\n\t}";
    }
    return text + "\n}";
  }

  std::string start;
  std::optional<Members> result;
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
  if (!situation.on_command_line) {
    return kJobPath;
  }
  return situation.preview ? u"C:\\docs\\fax.pdf \"0301234567 and an extension;"
                             u"SA subject of some length;KA comment of some length;"
                             u"EJ\u00E4ger and Company;c1;P1\" /x"
                           : u"C:\\docs\\fax.pdf \"0301234567 and an extension;"
                             u"SA subject of some length;KA comment of some length;"
                             u"EJ\u00E4ger and Company;c1\" /x";
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
      if (situation_.preview) {
        fields_["P"] = "1";
      }
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

  // Reads a file that has to be JSON. Nothing of any other text can be parsed.
  bool Parse(const std::string& path, const std::string& routine) {
    std::string rest;
    if (Works("OpenFileAt") && Works("QueryFileSize") && Works("AllocateBlock") &&
        Works("ReadBytes")) {
      rest = model_.files[path];
      if (rest.starts_with("{")) {
        return true;
      }
    }
    Log("ERROR", routine + "(): Parse JSON failed with error '", &rest, "'");
    return false;
  }

  bool ReadFromFile(const std::string& path) {
    if (!Parse(path, "ReadFromFile")) {
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
    if (!job_name_.empty() && Parse(job_name_, "WriteJobFileResult")) {
      WriteOutcome(status, code, Converted(text));
    }
    return status == 0;
  }

  // Where it cannot be told whole the job file stays as it is.
  void WriteOutcome(std::int32_t status, std::int32_t code,
                    const std::optional<std::string>& text) {
    if (!text) {
      return;
    }
    const JobFile::Members outcome = {{"Status", std::to_string(status)},
                                      {"ErrorCode", std::to_string(code)},
                                      {"ErrorText", "\"" + *text + "\""}};
    JobFile updated = job_file_;
    if (!updated.result && NameIsNarrowed()) {
      updated.result.emplace();
    }
    for (const auto& [name, json] : outcome) {
      // Where not even "Result" could be named, its members go nowhere.
      if (NameIsNarrowed() && updated.result) {
        updated.SetInResult(name, json);
      }
    }
    if (updated.HasAll(outcome) && Works("OpenFileAt")) {
      model_.files[job_name_].clear();
      if (Works("WriteBytes")) {
        job_file_ = updated;
        model_.files[job_name_] = updated.Bytes();
      }
    }
  }

  // --- the mail client's library ---

  struct Block {
    std::string name;
    bool freed = false;
  };

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

  // A call of the library: of one of its functions, or of a method of one of its interfaces. One
  // that works gives `answer`. A failure is logged when there is a message for it.
  bool Does(const std::string& name, const std::string& message = "", HRESULT answer = S_OK) {
    if (name.find("::") == std::string::npos && !IsBound(name)) {
      result_ = MAPI_E_CALL_FAILED;
    } else {
      result_ = Works(name) ? answer : kMapiFault;
    }
    if (result_ < 0) {
      return !message.empty() && Fails(message);
    }
    succeeded_.insert(name);
    return true;
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

  // Its steps give whether the sending goes on. When it does not, `result_` is its result.
  HRESULT SendMail() {
    if (!Does("MAPIInitialize", "SendMail(): MAPIInititialize failed.")) {
      return MAPI_E_CALL_FAILED;
    }
    const bool is_sent = Deliver();
    CleanUp();
    return is_sent ? S_OK : result_;
  }

  bool Tells(const std::string& message) {
    Log("INFO", message);
    return true;
  }
  bool Fails(const std::string& message) {
    LogWithCode("ERROR", result_, message);
    return false;
  }
  bool FailsWithoutCode(const std::string& message) {
    Log("ERROR", message);
    return false;
  }

  bool Deliver() {
    if (!LogOn() ||
        !(OpenDefaultStore() || Fails("SendMail(): The default message store cannot be found.")) ||
        !Does("IMsgStore::GetProps", "SendMail(): The store properties cannot be obtained.")) {
      return false;
    }
    store_values_ = NewBlock("IMsgStore::GetProps");
    const std::string number = Field("+FAX");
    return Does("IMsgStore::OpenEntry", "SendMail(): The outbox folder cannot be opened.") &&
           Does("IMAPIFolder::CreateMessage", "SendMail(): A new message cannot be created.") &&
           (number.empty() || AddRecipient(ComputesType()) ||
            FailsWithoutCode("SendMail(): The recipient '" + number + "' cannot be added.")) &&
           (SetContents() || FailsWithoutCode("SendMail(): Message content cannot be set.")) &&
           (AddAttachment() || FailsWithoutCode("SendMail(): The attachment cannot be added.")) &&
           (IsShown() ? Show() : Submit());
  }

  bool LogOn() {
    std::string profile;
    if (FindProfile(profile)) {
      Log("INFO", "SendMail(): Profile '" + profile + "' will be used.");
    } else {
      Fails("SendMail(): The default profile cannot be obtained.");
    }
    if (profile.empty()) {
      Log("INFO", "SendMail(): MAPILogonEx without profile and Logon UI.");
    } else {
      const std::string attempt = "SendMail(): MAPILogonEx with profile '" + profile + "'";
      Log("INFO", attempt + ".");
      if (Does("MAPILogonEx")) {
        return true;
      }
      Log("INFO", attempt + " and Logon UI.");
    }
    return Does("MAPILogonEx", "SendMail(): MAPILogonEx failed.");
  }

  bool FindProfile(std::string& profile) {
    if (!Does("MAPIAdminProfiles")) {
      return false;
    }
    bool has_rows = false;
    if (Does("IProfAdmin::GetProfileTable")) {
      has_rows = Does("HrQueryAllRows");
      if (has_rows) {
        const std::size_t rows = NewRows("profile table");
        profile = Works("BytesToWide") ? "Outlook" : "";
        Free("FreeProws", {rows});
      }
      Note("IMAPITable::Release");
    }
    Note("IProfAdmin::Release");
    return has_rows;
  }

  bool OpenDefaultStore() {
    if (!Does("IMAPISession::GetMsgStoresTable",
              "FindDefaultMsgStore(): There are no message stores found.")) {
      return false;
    }
    bool is_open = false;
    if (Does("HrQueryAllRows")) {
      const std::size_t rows = NewRows("store table");
      is_open = Does("IMAPISession::OpenMsgStore",
                     "FindDefaultMsgStore(): The message store canot be opened as online mode.",
                     situation_.is_online ? S_OK : MAPI_E_NOT_FOUND) ||
                Does("IMAPISession::OpenMsgStore",
                     "FindDefaultMsgStore(): The message store canot be opened.");
      if (is_open) {
        Free("FreeProws", {rows});
      }
    }
    Note("IMAPITable::Release");
    return is_open;
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

  bool AddRecipient(bool has_type) {
    if (!Does("IMAPISession::OpenAddressBook",
              "AddRecipientAddress(): The address book cannot be opened.")) {
      return false;
    }
    const bool is_added = AddListedRecipient(has_type);
    Note("IAddrBook::Release");
    return is_added;
  }

  bool AddListedRecipient(bool has_type) {
    if (!Does("MAPIAllocateBuffer")) {
      // Nothing fails. The code would be that of the address book, a success.
      Log("ERROR", "AddRecipientAddress(): The address list cannot be allocated.");
      return true;
    }
    const std::size_t list = NewBlock("MAPIAllocateBuffer");
    if (!Does("MAPIAllocateBuffer")) {
      Free("FreePadrlist", {list});
      return false;
    }
    const std::size_t entry = NewBlock("MAPIAllocateBuffer");
    std::optional<std::size_t> one_off;
    const bool is_put = PutOnMessage(has_type, one_off);
    Free("FreePadrlist", {list, entry});
    if (one_off) {
      Free("MAPIFreeBuffer", {*one_off});
    }
    return is_put;
  }

  bool PutOnMessage(bool has_type, std::optional<std::size_t>& one_off) {
    const std::string tag = "AddRecipientAddress(): ";
    if (has_type) {
      if (!Does("IAddrBook::CreateOneOff", tag + "The ONE OFF address creation failed.")) {
        return false;
      }
      one_off = NewBlock("IAddrBook::CreateOneOff");
      if (!Does("IAddrBook::ResolveName", tag + "The address list resolution failed.")) {
        return false;
      }
    }
    return Does("IMessage::ModifyRecipients", tag + "The recipient cannot be added.") &&
           Does("IMessage::SaveChanges", tag + "The message cannot be saved.");
  }

  bool SetContents() {
    for (const char* const line : {"SetMessageContents()", "  Sendername    : ",
                                   "  Subject       : ", "  Bodytext      : "}) {
      Log("DEBUG", line);
    }
    return Does("IMessage::SetProps", "SetMessageContents(): Setting properties failed.") &&
           Does("IMessage::SaveChanges", "SetMessageContents(): Saving properties failed.");
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

  bool AddAttachment() {
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
      result_ = E_INVALIDARG;
      return false;
    }
    if (!Does("MAPIAllocateBuffer", tag + "The attachment property tag memory is not available.")) {
      return false;
    }
    const std::size_t values = NewBlock("MAPIAllocateBuffer");
    result_ = LoadDocument();
    bool is_attached = result_ >= 0;
    if (result_ != S_OK) {
      Fails(tag + "The attachment path cannot be read.");
    } else {
      is_attached = Does("IMessage::CreateAttach", tag + "An attachment could not been created.");
      if (is_attached) {
        is_attached = FillAttachment();
        Note("IAttach::Release");
      }
    }
    Free("MAPIFreeBuffer", {values});
    return is_attached;
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

  bool FillAttachment() {
    const std::string tag = "AddAttachment(): ";
    if (!Does("IAttach::SetProps", tag + "The properties of the attachment could not been set.") ||
        !Tells(tag + "Attachment properties are set.") ||
        !Does("IAttach::SaveChanges",
              tag + "The attachment cannot be saved. The attachment is corrupt.")) {
      return false;
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
    return true;
  }

  // The mail client sends nothing to nobody.
  bool Submit() {
    return Does("IMessage::SubmitMessage", "SendMail(): Submit message failed.",
                succeeded_.contains("IMessage::ModifyRecipients") ? S_OK : kNoRecipients) &&
           Tells("SendMail(): Message sent successfully.");
  }

  bool Show() {
    return Does("MAPIOpenFormMgr", "SendMail(): Form manager cannot be opened.") &&
           (OpenModally() || Fails("SendMail(): Message cannot be opened modally.")) &&
           Tells("SendMail(): Mail will be opened as modal window.");
  }

  bool OpenModally() {
    const std::string tag = "OpenMessageModal(): ";
    if (!Does("IMessage::GetProps", tag + "Getting properties failed.")) {
      return false;
    }
    const std::size_t values = NewBlock("IMessage::GetProps");
    const bool is_shown =
        Does("IMAPISession::PrepareForm", tag + "Dialog preparation failed.") &&
        Tells(tag + "Dialog prepared.") &&
        Does("IMAPIFolder::GetMessageStatus", tag + "Dialog message status retrieval failed.") &&
        Tells(tag + "Message status retrieval succeeded.") &&
        Does("IMAPISession::ShowForm", tag + "The form cannot be shown.");
    Free("MAPIFreeBuffer", {values});
    return is_shown;
  }

  void CleanUp() {
    Log("DEBUG", "SendMail(): cleanup.");
    for (const auto& [origin, release] :
         {std::pair("IMAPIFolder::CreateMessage", "IMessage::Release"),
          std::pair("MAPIOpenFormMgr", "IMAPIFormMgr::Release"),
          std::pair("IMsgStore::OpenEntry", "IMAPIFolder::Release")}) {
      if (succeeded_.contains(origin)) {
        Note(release);
      }
    }
    if (store_values_) {
      Free("MAPIFreeBuffer", {*store_values_});
    }
    if (succeeded_.contains("IMAPISession::OpenMsgStore")) {
      Note("IMsgStore::Release");
    }
    if (succeeded_.contains("MAPILogonEx")) {
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

  HRESULT result_ = S_OK;            // of the latest call of the library
  std::set<std::string> succeeded_;  // its calls that did
  std::optional<std::size_t> store_values_;
};

JobModel::JobModel(const Situation& situation, std::optional<FaultMode> mode,
                   std::size_t fault_index) {
  Run(*this, situation, mode, fault_index).WholeJob();
}

}  // namespace zentpost::test
