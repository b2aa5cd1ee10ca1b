// The Extended MAPI route with every call failing, one after the other: those to the system and
// those to the mail client's library. What is expected of such a run is not recorded but worked
// out: ExpectedDelivery goes through the job once more in its own words, asks at every call whether
// it is the one that fails, and says what then happens and what is left behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/application.h"
#include "mapi/job_processing.h"
#include "mapi/send_mail.h"
#include "mapiload/process_state.h"
#include "platform/call.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_mapi.h"
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
using test::FakeMapi;

constexpr char16_t kAddinKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";
constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";
constexpr char kDocumentBytes[] = "%PDF-1.4\nnothing of it is JSON\n";
constexpr char kJobFile[] = "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\"\n}";

// What the faults give: a number of the system's and what a MAPI call makes of it.
constexpr platform::Status kFailure = platform::kGeneralFailure;
constexpr std::int32_t kSystemCode = 0x1F;
constexpr HRESULT kMapiCode = MakeResult(0x8007001F);
constexpr HRESULT kNoRecipients = MakeResult(0x80040607);  // what a client says to such a message
constexpr char16_t kFailureMessage[] = u"\tA device failed.\r\n";

struct Scenario {
  const char* name;
  bool preview = false;
  const char16_t* recipient = u"0301234567";
  bool automatic = false;  // wrapped into "[FAX:" and "]", without a type
  const char16_t* attachment_name = u"Letter.pdf";
  bool has_file_type = false;  // the registry knows ".xyz", without a MIME type
  bool has_shutdown = true;
  bool is_online = true;  // else the default store can only be opened normally
};

const Scenario kScenarios[] = {
    {.name = "submitted"},
    {.name = "submitted with address automation", .automatic = true},
    {.name = "submitted with an unusual document",
     .attachment_name = u"Letter.xyz",
     .has_file_type = true},
    {.name = "submitted to a plain client", .has_shutdown = false, .is_online = false},
    {.name = "shown", .preview = true},
    {.name = "shown without a recipient", .recipient = u""},
};

// What a job in its scenario does and leaves behind when the fallible call at `fault_index` fails.
class ExpectedDelivery {
 public:
  // Without a mode nothing fails.
  explicit ExpectedDelivery(const Scenario& scenario, std::optional<FaultMode> mode = {},
                            std::size_t fault_index = 0)
      : scenario_(scenario), mode_(mode), fault_index_(fault_index) {
    delivered = Run();
    for (const Block& block : blocks_) {
      accounts += block.freed ? "" : block.name + ": not freed\n";
    }
  }

  // The functions called, to the system and to the library, and the log's lines, in order.
  std::vector<std::string> steps;
  std::string job_file = kJobFile;
  bool document_is_there = true;
  bool delivered = false;
  std::string accounts;
  std::size_t fallible_calls = 0;

 private:
  struct Block {
    std::string name;
    bool freed = false;
  };

  // --- calls ---

  // Every call that can fail asks here first.
  bool Works(const std::string& function) {
    const std::size_t index = fallible_calls++;
    steps.push_back(function);
    return !mode_ || (*mode_ == FaultMode::kOnce ? index != fault_index_ : index < fault_index_);
  }

  void Note(const std::string& step) { steps.push_back(step); }

  // A method of one of the library's interfaces.
  HRESULT Method(const std::string& name) { return Works(name) ? S_OK : kMapiCode; }

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

  // --- the search for the library, on a machine whose registry and installer know of none ---

  bool Search() {
    for (int attached = 0; attached < 2; ++attached) {
      if (HasModuleHandleEx()) {
        Works("GetModuleHandleExW");
      } else {
        Works("FindLoadedModule");
      }
    }
    Works("OpenKey");
    Works("QueryValue");
    AskInstaller();
    Works("QueryValue");
    const bool has_path = Works("SystemDirectory");
    library_is_installed_ = Works("LoadModule") && has_path;
    if (library_is_installed_) {
      AskInstaller();
    }
    return library_is_installed_;
  }

  // Whether the library can be bound from the system directory, which is asked for once.
  bool LoadFromSystem() {
    if (!system_directory_works_) {
      system_directory_works_ = Works("SystemDirectory");
    }
    return Works("LoadModule") && *system_directory_works_;
  }

  bool HasModuleHandleEx() {
    if (module_handle_is_bound_) {
      return true;
    }
    has_kernel_ = has_kernel_ || LoadFromSystem();
    module_handle_is_bound_ = has_kernel_ && Works("FindProcedure");
    return module_handle_is_bound_;
  }

  // Six kinds of installation, with two names each; there is no installer.
  void AskInstaller() {
    for (int question = 0; question < 12; ++question) {
      LoadFromSystem();
    }
  }

  // --- the job ---

  bool Run() {
    const std::string tag = "ProcessToExtendedMapi(): ";
    Log("INFO", tag + "Processing single job to extended MAPI.");
    Log("INFO", tag + "Parameters :");
    Log("INFO", tag + "Receiver   : " + Recipient());
    Log("INFO", tag + "Recipient  : Smith");
    Log("INFO", tag + "Sendername : Jones");
    Log("INFO", tag + "Comment    : A note");
    Log("INFO", tag + "Subject    : Hello");
    Log("INFO", tag + "SendTime   : ");
    Log("INFO", tag + "Attachment : C:\\docs\\fax.pdf");
    Log("INFO", tag + "Attach Name: " + test::Readable(scenario_.attachment_name));
    Log("INFO", tag + "ECM        : True");
    Log("INFO", tag + std::string("Preview    : ") + (scenario_.preview ? "True" : "False"));
    AskForClientNumber();
    const HRESULT result = SendMail();
    WriteOutcome(result < 0 ? 1 : 0, result < 0 ? result : 0, result < 0 ? "MAPI Error" : "");
    return result >= 0;
  }

  std::string Recipient() const { return test::Readable(scenario_.recipient); }
  bool IsShown() const { return scenario_.preview || Recipient().empty(); }

  // --- the send flow ---

  HRESULT SendMail() {
    if (const HRESULT result = Function("MAPIInitialize"); result < 0) {
      LogWithCode("ERROR", result, "SendMail(): MAPIInititialize failed.");
      return MAPI_E_CALL_FAILED;
    }
    const HRESULT result = Deliver();
    CleanUp();
    return result;
  }

  HRESULT Deliver() {
    HRESULT result = LogOn();
    if (result < 0) {
      return result;
    }
    has_session_ = true;
    result = OpenDefaultStore();
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): The default message store cannot be found.");
      return result;
    }
    has_store_ = true;
    result = Method("IMsgStore::GetProps");
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): The store properties cannot be obtained.");
      return result;
    }
    store_values_ = NewBlock("IMsgStore::GetProps");
    result = Method("IMsgStore::OpenEntry");
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): The outbox folder cannot be opened.");
      return result;
    }
    has_outbox_ = true;
    result = Method("IMAPIFolder::CreateMessage");
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): A new message cannot be created.");
      return result;
    }
    has_message_ = true;
    if (!Recipient().empty()) {
      const bool has_type = ComputesType();
      result = AddRecipient(has_type);
      if (result < 0) {
        Log("ERROR", "SendMail(): The recipient '" + Recipient() + "' cannot be added.");
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
    result = Function("MAPILogonEx");
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): MAPILogonEx failed.");
    }
    return result;
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
    HRESULT result = Method("IMAPISession::GetMsgStoresTable");
    if (result < 0) {
      LogWithCode("ERROR", result, "FindDefaultMsgStore(): There are no message stores found.");
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
    if (result >= 0 && !scenario_.is_online) {
      result = MAPI_E_NOT_FOUND;
    }
    if (result >= 0) {
      return result;
    }
    LogWithCode("ERROR", result,
                "FindDefaultMsgStore(): The message store canot be opened as online mode.");
    result = Method("IMAPISession::OpenMsgStore");
    if (result < 0) {
      LogWithCode("ERROR", result, "FindDefaultMsgStore(): The message store canot be opened.");
    }
    return result;
  }

  // The address automation; gives whether the address has a type.
  bool ComputesType() {
    const std::string tag = "ProcessClientAddressAutomation(): ";
    const bool is_on = ReadsSetting();
    const std::string prefix = ReadsSetting() ? "[FAX:" : "";
    const std::string suffix = ReadsSetting() ? "]" : "";
    std::string type = "SMTP";
    std::string address = Recipient();
    if (is_on) {
      Log("INFO", tag + "The client address automation is turned on:");
      Log("INFO", tag + "Address Prefix: '" + prefix + "'");
      Log("INFO", tag + "Address Suffix: '" + suffix + "'");
      type = "";
      address = prefix + address + suffix;
    } else {
      Log("INFO", tag + "The client address automation is turned off.");
    }
    Log("INFO", tag + Recipient() + " --> '" + type + ":" + address + "'");
    return !type.empty();
  }

  bool ReadsSetting() { return Works("OpenKey") && scenario_.automatic && Works("QueryValue"); }

  HRESULT AddRecipient(bool has_type) {
    const std::string tag = "AddRecipientAddress(): ";
    HRESULT result = Method("IMAPISession::OpenAddressBook");
    if (result < 0) {
      LogWithCode("ERROR", result, tag + "The address book cannot be opened.");
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
      HRESULT result = Method("IAddrBook::CreateOneOff");
      if (result < 0) {
        LogWithCode("ERROR", result, tag + "The ONE OFF address creation failed.");
        return result;
      }
      one_off = NewBlock("IAddrBook::CreateOneOff");
      result = Method("IAddrBook::ResolveName");
      if (result < 0) {
        LogWithCode("ERROR", result, tag + "The address list resolution failed.");
        return result;
      }
    }
    HRESULT result = Method("IMessage::ModifyRecipients");
    if (result < 0) {
      LogWithCode("ERROR", result, tag + "The recipient cannot be added.");
      return result;
    }
    has_recipient_ = true;
    result = Method("IMessage::SaveChanges");
    if (result < 0) {
      LogWithCode("ERROR", result, tag + "The message cannot be saved.");
    }
    return result;
  }

  HRESULT SetContents() {
    Log("DEBUG", "SetMessageContents()");
    Log("DEBUG", "  Sendername    : ");
    Log("DEBUG", "  Subject       : ");
    Log("DEBUG", "  Bodytext      : ");
    HRESULT result = Method("IMessage::SetProps");
    if (result < 0) {
      LogWithCode("ERROR", result, "SetMessageContents(): Setting properties failed.");
      return result;
    }
    result = Method("IMessage::SaveChanges");
    if (result < 0) {
      LogWithCode("ERROR", result, "SetMessageContents(): Saving properties failed.");
    }
    return result;
  }

  HRESULT AddAttachment() {
    Log("INFO", "AddAttachment(): 'C:\\docs\\fax.pdf'");
    if (scenario_.has_file_type && Works("OpenKey")) {
      // Without a MIME type there is one made up, so that nothing is missing.
      Works("QueryValue");
    }
    HRESULT result = Function("MAPIAllocateBuffer");
    if (result < 0) {
      LogWithCode("ERROR", result,
                  "AddAttachment(): The attachment property tag memory is not available.");
      return result;
    }
    const std::size_t values = NewBlock("MAPIAllocateBuffer");
    result = LoadDocument();
    if (result != S_OK) {
      LogWithCode("ERROR", result, "AddAttachment(): The attachment path cannot be read.");
    } else {
      result = Method("IMessage::CreateAttach");
      if (result < 0) {
        LogWithCode("ERROR", result, "AddAttachment(): An attachment could not been created.");
      } else {
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
      return kSystemCode;
    }
    if (!Works("QueryFileSize")) {
      return kMapiCode;
    }
    if (!Works("AllocateBlock")) {
      return MAPI_E_NOT_ENOUGH_MEMORY;
    }
    // What is there, and that there is no more.
    return Works("ReadBytes") && Works("ReadBytes") ? S_OK : kMapiCode;
  }

  HRESULT FillAttachment() {
    HRESULT result = Method("IAttach::SetProps");
    if (result < 0) {
      LogWithCode("ERROR", result,
                  "AddAttachment(): The properties of the attachment could not been set.");
      return result;
    }
    Log("INFO", "AddAttachment(): Attachment properties are set.");
    result = Method("IAttach::SaveChanges");
    if (result < 0) {
      LogWithCode("ERROR", result,
                  "AddAttachment(): The attachment cannot be saved. The attachment is corrupt.");
      return result;
    }
    Log("INFO", "AddAttachment(): Attachment added successfully,");
    if (Works("RemoveFile")) {
      document_is_there = false;
      Log("INFO", "AddAttachment(): The attachment file was deleted successfully.");
    } else {
      LogWithCode("WARNING", kSystemCode,
                  "AddAttachment(): The attachment file cannot be deleted.");
    }
    return S_OK;
  }

  HRESULT Submit() {
    HRESULT result = Method("IMessage::SubmitMessage");
    if (result >= 0 && !has_recipient_) {
      result = kNoRecipients;
    }
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): Submit message failed.");
    } else {
      Log("INFO", "SendMail(): Message sent successfully.");
    }
    return result;
  }

  HRESULT Show() {
    HRESULT result = Function("MAPIOpenFormMgr");
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): Form manager cannot be opened.");
      return result;
    }
    has_form_manager_ = true;
    result = Method("IMessage::GetProps");
    if (result < 0) {
      LogWithCode("ERROR", result, "OpenMessageModal(): Getting properties failed.");
    } else {
      const std::size_t values = NewBlock("IMessage::GetProps");
      result = ShowForm();
      Free("MAPIFreeBuffer", {values});
    }
    if (result < 0) {
      LogWithCode("ERROR", result, "SendMail(): Message cannot be opened modally.");
    } else {
      Log("INFO", "SendMail(): Mail will be opened as modal window.");
    }
    return result;
  }

  HRESULT ShowForm() {
    HRESULT result = Method("IMAPISession::PrepareForm");
    if (result < 0) {
      LogWithCode("ERROR", result, "OpenMessageModal(): Dialog preparation failed.");
      return result;
    }
    Log("INFO", "OpenMessageModal(): Dialog prepared.");
    result = Method("IMAPIFolder::GetMessageStatus");
    if (result < 0) {
      LogWithCode("ERROR", result, "OpenMessageModal(): Dialog message status retrieval failed.");
      return result;
    }
    Log("INFO", "OpenMessageModal(): Message status retrieval succeeded.");
    result = Method("IMAPISession::ShowForm");
    if (result < 0) {
      LogWithCode("ERROR", result, "OpenMessageModal(): The form cannot be shown.");
    }
    return result;
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
    Log("INFO", "DoMAPIFastShutdown(): Function in progress.");
    if (Works("IMAPISession::QueryInterface") && scenario_.has_shutdown) {
      if (Works("IMAPIClientShutdown::QueryFastShutdown") &&
          !Works("IMAPIClientShutdown::DoFastShutdown")) {
        LogWithCode("DEBUG", kMapiCode, "DoMAPIFastShutdown(): Fast shutdown failed.");
      }
      Note("IMAPIClientShutdown::Release");
    }
    Log("INFO", "DoMAPIFastShutdown(): Function end.");
  }

  // --- the job file ---

  void WriteOutcome(std::int32_t status, std::int32_t code, const std::string& text) {
    if (!Works("OpenFileAt") || !Works("QueryFileSize") || !Works("AllocateBlock") ||
        !Works("ReadBytes")) {
      LogParseError();
      return;
    }
    const std::optional<std::string> converted = Converted(text);
    if (!converted) {
      return;
    }
    // Its own name, then those of its three members. What cannot be named is missing.
    bool is_whole = true;
    for (int name = 0; name < 4; ++name) {
      is_whole = NameIsNarrowed() && is_whole;
    }
    if (is_whole && Works("OpenFileAt")) {
      job_file = Works("WriteBytes") ? test::WithResult(kJobFile, status, code, *converted) : "";
    }
  }

  // The size first, then the bytes.
  bool NameIsNarrowed() { return Works("WideToBytes") && Works("WideToBytes"); }

  // To UTF-8; a failure is logged. Nothing when there is no memory.
  std::optional<std::string> Converted(const std::string& text) {
    if (text.empty()) {
      return "";
    }
    if (!Works("AllocateBlock")) {
      LogWithCode("ERROR", kSystemCode, "_utf8(): A memory error occurred.");
      return std::nullopt;
    }
    if (!Works("WideToBytes")) {
      LogWithCode("ERROR", kSystemCode, "_utf8(): The utf-8 forward conversion failed.");
      return "";
    }
    return text;
  }

  // --- the log ---

  // A number of the fax client's; there are no keys.
  void AskForClientNumber() {
    Works("OpenKey");
    Works("OpenKey");
  }

  // The position, though there is none, is converted where it comes to stand.
  void LogParseError() {
    AskForClientNumber();
    Works("BreakIntoLocalTime");
    Works("BytesToWide");
    Note("log ERROR: WriteJobFileResult(): Parse JSON failed with error ''");
  }

  void Log(const std::string& level, const std::string& message) {
    AskForClientNumber();
    Works("BreakIntoLocalTime");
    Note("log " + level + ": " + message);
  }

  void LogWithCode(const std::string& level, HRESULT code, const std::string& message) {
    Log(level, message);
    std::string text = "A general not more specified error occurred.";
    if (code == MAPI_E_NOT_FOUND) {
      text = "(CDO) The value was not found.";
    } else if (code == kNoRecipients) {
      text = "(CDO) No recipients.";
    } else if (code == MAPI_E_NOT_ENOUGH_MEMORY) {
      text = "(CDO) Not enough memory available.";
    } else if (code != MAPI_E_CALL_FAILED) {
      text = Works("SystemMessage") ? "A device failed." : "Unknown Error.";
    }
    char number[16];
    static_cast<void>(
        std::snprintf(number, sizeof(number), "0x%.8x", static_cast<std::uint32_t>(code)));
    Log(level, std::string("Code ") + number + " --> " + text);
  }

  const Scenario& scenario_;
  std::optional<FaultMode> mode_;
  std::size_t fault_index_;
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
  bool has_recipient_ = false;
  bool has_form_manager_ = false;
};

// --- what really happens ---

// The machine's calls in the form of ExpectedDelivery::steps.
std::vector<std::string> StepsOf(const Machine& machine) {
  constexpr std::string_view kOutput = "WriteDebugOutput(";
  std::vector<std::string> steps;
  std::size_t line = 0;
  const std::string log = test::LogText(machine);
  for (const std::string& call : machine.Calls()) {
    if (call.starts_with(kOutput)) {
      if (call != "WriteDebugOutput(\n)") {
        const std::size_t end = log.find('\n', line);
        steps.push_back("log " + log.substr(line, end - line));
        line = end + 1;
      }
    } else if (!call.starts_with("SecondsSinceEpoch(")) {
      steps.push_back(call.substr(0, call.find('(')));
    }
  }
  return steps;
}

class MapiFaultMatrix : public platform::fake::MachineTest {
 protected:
  ~MapiFaultMatrix() override { ForgetMapiLoading(); }

  // A fresh library on a machine that is fresh already.
  void Furnish(const Scenario& scenario) {
    ForgetMapiLoading();
    mapi_.reset();
    mapi_ = std::make_unique<FakeMapi>();
    mapi_->has_shutdown = scenario.has_shutdown;
    mapi_->failures_leave_garbage = failures_leave_garbage_;
    if (!scenario.is_online) {
      mapi_->Answer("IMAPISession::OpenMsgStore", 0, MAPI_E_NOT_FOUND);
    }
    FakeMapi::Install();
    machine_.SetFile(kJobName, kJobFile);
    machine_.SetFile(kDocument, kDocumentBytes);
    machine_.SetSystemMessage(kFailure, kFailureMessage);
    machine_.SetSystemMessage(static_cast<std::uint32_t>(kMapiCode), kFailureMessage);
    if (scenario.automatic) {
      machine_.SetString(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxEnabled", u"1");
      machine_.SetString(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPrefix", u"[FAX:");
      machine_.SetString(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPostfix", u"]");
    }
    if (scenario.has_file_type) {
      machine_.AddKey(Hive::kClassesRoot, u".xyz");
    }
  }

  static JobParameters Job(const Scenario& scenario) {
    JobParameters params;
    params.fromJobFile = true;
    params.arguments.Add(u"jobname", kJobName);
    params.arguments.Add(u"filename", kDocument);
    params.arguments.Add(u"attdisplayname", scenario.attachment_name);
    params.faxFields.Add(u"+FAX", scenario.recipient);
    params.faxFields.Add(u"E", u"Smith");
    params.faxFields.Add(u"U", u"Jones");
    params.faxFields.Add(u"K", u"A note");
    params.faxFields.Add(u"S", u"Hello");
    if (scenario.preview) {
      params.faxFields.Add(u"P", u"1");
    }
    return params;
  }

  // Whatever happened, the document is there byte for byte, or an attachment that was saved holds
  // it.
  void ExpectDocumentIsKept() const {
    const std::optional<std::string> bytes = machine_.FileBytes(kDocument);
    if (bytes) {
      EXPECT_EQ(*bytes, kDocumentBytes);
    } else {
      EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{kDocumentBytes});
    }
  }

  void ExpectOutcome(const ExpectedDelivery& expected, bool delivered) const {
    EXPECT_EQ(StepsOf(machine_), expected.steps);
    EXPECT_EQ(delivered, expected.delivered);
    EXPECT_EQ(machine_.FileBytes(kJobName), expected.job_file);
    EXPECT_EQ(machine_.FileBytes(kDocument).has_value(), expected.document_is_there);
    EXPECT_EQ(mapi_->Accounts(), expected.accounts);
    ExpectDocumentIsKept();
  }

  // Gives the number of runs with a fault.
  std::size_t Sweep(const Scenario& scenario) {
    SCOPED_TRACE(scenario.name);
    bool delivered = false;
    bool is_first = true;
    const platform::fake::FaultScenario in_sweep = {
        .prepare = [&] { Furnish(scenario); },
        .act =
            [&] {
              delivered = ProcessToExtendedMapi(Job(scenario));
              if (is_first) {
                const ExpectedDelivery faultless(scenario);
                ExpectOutcome(faultless, delivered);
                EXPECT_TRUE(delivered);
                EXPECT_EQ(machine_.FallibleCalls(), faultless.fallible_calls);
              }
              is_first = false;
            },
    };
    std::cout << scenario.name << (failures_leave_garbage_ ? ", garbage left behind: " : ": ");
    return platform::fake::SweepFaults(
        in_sweep,
        [&](const FaultRun& fault) {
          ExpectOutcome(ExpectedDelivery(scenario, fault.mode, fault.index), delivered);
        },
        kFailure);
  }

  std::unique_ptr<FakeMapi> mapi_;
  bool failures_leave_garbage_ = false;
};

TEST_F(MapiFaultMatrix, EveryFailureHasItsOutcome) {
  for (const bool leaves_garbage : {false, true}) {
    SCOPED_TRACE(leaves_garbage ? "with garbage" : "with null");
    failures_leave_garbage_ = leaves_garbage;
    std::size_t runs = 0;
    for (const Scenario& scenario : kScenarios) {
      runs += Sweep(scenario);
    }
    std::cout << "deliveries through MAPI with a fault that leaves "
              << (leaves_garbage ? "garbage" : "null") << " behind: " << runs << " runs\n";
  }
}

// --- other answers of the library ---

// The calls of the library in a delivery in which nothing fails, each with its place among those of
// its name.
struct NamedCall {
  std::string name;
  std::size_t index;
};

std::vector<NamedCall> NamedCalls(const std::vector<std::string>& calls) {
  std::map<std::string, std::size_t> counts;
  std::vector<NamedCall> named;
  for (const std::string& call : calls) {
    const std::string name = call.substr(0, call.find('('));
    named.push_back({name, counts[name]++});
  }
  return named;
}

TEST_F(MapiFaultMatrix, AnyResultThatIsNotNegativeIsASuccess) {
  std::size_t runs = 0;
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    machine_.Reset();
    Furnish(scenario);
    EXPECT_TRUE(ProcessToExtendedMapi(Job(scenario)));
    const std::vector<std::string> calls = mapi_->Calls();
    for (const NamedCall& call : NamedCalls(calls)) {
      if (!scenario.is_online && call.name == "IMAPISession::OpenMsgStore" && call.index == 0) {
        continue;  // has an answer of its own
      }
      SCOPED_TRACE(call.name + " " + std::to_string(call.index));
      machine_.Reset();
      Furnish(scenario);
      mapi_->Answer(call.name, call.index, 1);
      EXPECT_TRUE(ProcessToExtendedMapi(Job(scenario)));
      EXPECT_EQ(mapi_->Calls(), calls);
      EXPECT_EQ(machine_.FileBytes(kJobName), test::WithSuccess(kJobFile));
      EXPECT_EQ(mapi_->Accounts(), "");
      ++runs;
    }
  }
  std::cout << "deliveries with an unusual success: " << runs << " runs\n";
}

// The functions that hand something out without which the message cannot be made. Without anything
// from the others the job goes on.
constexpr std::string_view kHandOutWhatIsNeeded[] = {
    "IMAPISession::GetMsgStoresTable",
    "IMAPISession::OpenMsgStore",
    "IMsgStore::GetProps",
    "IMsgStore::OpenEntry",
    "IMAPIFolder::CreateMessage",
    "IMAPISession::OpenAddressBook",
    "IAddrBook::CreateOneOff",
    "IMessage::CreateAttach",
    "MAPIOpenFormMgr",
    "IMessage::GetProps",
    "IMAPISession::PrepareForm",
};

TEST_F(MapiFaultMatrix, ASuccessThatHandsOutNothingDoesNoHarm) {
  std::size_t runs = 0;
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    machine_.Reset();
    Furnish(scenario);
    EXPECT_TRUE(ProcessToExtendedMapi(Job(scenario)));
    const std::vector<NamedCall> calls = NamedCalls(mapi_->Calls());
    const auto query = std::count_if(calls.begin(), calls.end(), [](const NamedCall& call) {
      return call.name == "HrQueryAllRows";
    });
    EXPECT_EQ(query, 2);
    for (const NamedCall& call : calls) {
      if (!scenario.is_online && call.name == "IMAPISession::OpenMsgStore") {
        continue;
      }
      SCOPED_TRACE(call.name + " " + std::to_string(call.index));
      machine_.Reset();
      Furnish(scenario);
      mapi_->GiveNothing(call.name, call.index);
      const bool delivered = ProcessToExtendedMapi(Job(scenario));
      const bool has_recipient = *scenario.recipient != u'\0';
      const bool is_needed =
          std::find(std::begin(kHandOutWhatIsNeeded), std::end(kHandOutWhatIsNeeded), call.name) !=
              std::end(kHandOutWhatIsNeeded) ||
          // the rows of the stores; the recipient's values and the attachment's; and without the
          // recipient's list there is nobody to submit a message to
          (call.name == "HrQueryAllRows" && call.index == 1) ||
          (call.name == "MAPIAllocateBuffer" &&
           (call.index > 0 || !has_recipient || !scenario.preview));
      EXPECT_EQ(delivered, !is_needed);
      const std::string job_file = machine_.FileBytes(kJobName).value_or("no job file");
      EXPECT_EQ(job_file == test::WithSuccess(kJobFile), delivered);
      EXPECT_EQ(job_file.find("\"MAPI Error\"") != std::string::npos, !delivered);
      EXPECT_EQ(mapi_->Accounts(), "");
      ExpectDocumentIsKept();
      ++runs;
    }
  }
  std::cout << "deliveries in which nothing is handed out: " << runs << " runs\n";
}

// --- running out of memory ---

// The calls with which the send flow lets go of all that it got in `calls`, the last first.
std::vector<std::string> CleanUpAfter(const std::vector<std::string>& calls,
                                      bool has_form_manager) {
  const auto has = [&](std::string_view start) {
    return std::any_of(calls.begin(), calls.end(),
                       [&](const std::string& call) { return call.starts_with(start); });
  };
  std::vector<std::string> cleanup;
  if (has("IMAPIFolder::CreateMessage(")) {
    cleanup.emplace_back("IMessage::Release()");
  }
  if (has_form_manager) {
    cleanup.emplace_back("IMAPIFormMgr::Release()");
  }
  if (has("IMsgStore::OpenEntry(")) {
    cleanup.emplace_back("IMAPIFolder::Release()");
  }
  if (has("IMsgStore::GetProps(")) {
    cleanup.emplace_back("MAPIFreeBuffer(block 1)");
  }
  if (has("IMAPISession::OpenMsgStore(")) {
    cleanup.emplace_back("IMsgStore::Release()");
  }
  if (has("MAPILogonEx(")) {
    for (const char* const call :
         {"IMAPISession::QueryInterface(IMAPIClientShutdown)",
          "IMAPIClientShutdown::QueryFastShutdown()", "IMAPIClientShutdown::DoFastShutdown()",
          "IMAPIClientShutdown::Release()", "IMAPISession::Logoff(0, 0x0, 0)",
          "IMAPISession::Release()"}) {
      cleanup.emplace_back(call);
    }
  }
  return cleanup;
}

TEST_F(MapiFaultMatrix, WithoutMemoryTheSendFlowCleansUpAndSaysSo) {
  for (const bool is_shown : {false, true}) {
    const Scenario scenario = {.name = "send flow", .automatic = is_shown};
    std::size_t out_of_memory = 0;
    test::SweepAllocations(
        is_shown ? "a message is shown" : "a message is submitted",
        [&](test::AllocationFaults& faults) {
          machine_.Reset();
          Furnish(scenario);
          // Longer than what a string object holds without memory of its own.
          const std::u16string text = u"a text that needs memory of its own";
          const std::u16string path = kDocument;
          const std::u16string name = u"a document with a long name.and a long extension";
          const std::u16string recipient = u"030123456789 extension 12345";
          HRESULT result = 1;
          EXPECT_TRUE(faults.Run([&] {
            result =
                SendMail(text, text, is_shown ? 1 : 0, 1, 0, 0, recipient, text, path, name, text);
          })) << "an exception came out";
          ForgetMapiLoading();  // also what the process would keep
          EXPECT_EQ(mapi_->Accounts(), "");
          EXPECT_EQ(machine_.OpenHandles(), 0u);
          ExpectDocumentIsKept();
          const std::vector<std::string>& calls = mapi_->Calls();
          if (result == MAPI_E_CALL_FAILED) {
            // The search for the library went without the memory that it needs.
            EXPECT_EQ(calls, std::vector<std::string>());
            return;
          }
          const bool has_form_manager = !mapi_->CallsOf("MAPIOpenFormMgr").empty();
          const std::vector<std::string> cleanup = CleanUpAfter(calls, has_form_manager);
          ASSERT_GE(calls.size(), cleanup.size());
          EXPECT_EQ(std::vector<std::string>(
                        calls.end() - static_cast<std::ptrdiff_t>(cleanup.size()), calls.end()),
                    cleanup);
          const bool reaches_its_end = !mapi_->CallsOf("IMAPISession::ShowForm").empty() ||
                                       !mapi_->CallsOf("IMessage::SubmitMessage").empty();
          EXPECT_EQ(result, reaches_its_end ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY);
          out_of_memory += reaches_its_end ? 0 : 1;
        });
    EXPECT_GT(out_of_memory, 0u);
  }
}

}  // namespace
}  // namespace zentpost
