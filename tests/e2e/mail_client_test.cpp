// The Extended MAPI route with a mail client: the sandbox's library writes down what reaches it,
// and keeps accounts of what the tool takes and gives back.
#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::e2e {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kDocumentSize = 1000;

// The document that the mail check expects: byte i is i * 7 + i / 256.
std::string Document(std::size_t size = kDocumentSize) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(i * 7 + (i >> 8)));
  }
  return bytes;
}

// The log of a sending, part by part.
std::string LoggedOn(const std::string& how = "") {
  return Info("SendMail(): Profile 'Sandbox' will be used.") +
         Info("SendMail(): MAPILogonEx with profile 'Sandbox'.") + how;
}

std::string Addressed(const std::string& recipient, const std::string& typed_address) {
  return Info("ProcessClientAddressAutomation(): The client address automation is turned off.") +
         Info("ProcessClientAddressAutomation(): " + recipient + " --> '" + typed_address + "'");
}

std::string Contents() {
  return Debug("SetMessageContents()") + Debug("  Sendername    : ") + Debug("  Subject       : ") +
         Debug("  Bodytext      : ");
}

std::string Attached(const std::string& document) {
  return Info("AddAttachment(): '" + document + "'") +
         Info("AddAttachment(): Attachment properties are set.") +
         Info("AddAttachment(): Attachment added successfully,") +
         Info("AddAttachment(): The attachment file was deleted successfully.");
}

// From the recipient's address to the attachment.
std::string Composed(const Job& job) {
  return Addressed(job.receiver, "SMTP:" + job.receiver) + Contents() + Attached(job.document);
}

std::string CleanedUp() {
  return Debug("SendMail(): cleanup.") + Info("DoMAPIFastShutdown(): Function in progress.") +
         Info("DoMAPIFastShutdown(): Function end.") + Debug("SendMail(): Function end.");
}

std::string Submitted() {
  return Info("SendMail(): Message sent successfully.") + CleanedUp();
}

const std::string kFormPrepared = Info("OpenMessageModal(): Dialog prepared.") +
                                  Info("OpenMessageModal(): Message status retrieval succeeded.");

std::string ShownModally() {
  return kFormPrepared + Info("SendMail(): Mail will be opened as modal window.") + CleanedUp();
}

// What a call logs that fails with this code.
constexpr std::int32_t kNoSupport = -2147221246;  // MAPI_E_NO_SUPPORT
std::string NoSupport(const std::string& message) {
  return Error(message) + Error("Code 0x80040102 --> (CDO) No support.");
}
std::string FailedToConnect(const std::string& message) {
  return Error(message) + Error("Code 0x8004011d --> (CDO) The provider failed to connect.");
}
constexpr char kNotOnline[] =
    "FindDefaultMsgStore(): The message store canot be opened as online mode.";

class MailClient : public JobTest {
 protected:
  static constexpr char kInOrder[] = "no leaks, no double frees, no overruns";

  void SetUp() override {
    if (!Machine::CanWrite(Hive::kLocalMachine)) {
      GTEST_SKIP() << "this user may not choose the machine's mail client";
    }
  }

  // Puts the job file and the document there.
  void Prepare(const Job& job, std::size_t size = kDocumentSize) {
    SetFile("job.json", job.File());
    fs::create_directories(PathOf(job.document).parent_path());
    SetFile(job.document, Document(size));
  }

  // One run of the tool with the sandbox as the default mail client, which has its orders from
  // `config`. What was the default mail client before is so again when it returns.
  ToolRun RunWithClient(const std::string& config = "{}",
                        const std::vector<std::string>& arguments = {"job.json"}) {
    Sandbox({"register"});
    ToolRun run = RunWithRegisteredClient(config, arguments);
    Sandbox({"unregister"});
    return run;
  }
  ToolRun RunWithRegisteredClient(const std::string& config = "{}",
                                  const std::vector<std::string>& arguments = {"job.json"}) {
    ProcessOptions options = machine_.Options();
    options.environment.emplace_back("SANDBOX_MAPI_FOLDER", Mail());
    options.environment.emplace_back("SANDBOX_MAPI_CONFIG", fs::path(config));
    return Run(arguments, options);
  }
  // A run of the job with a fresh client.
  ToolRun RunJob(const std::string& config = "{}") {
    fs::remove_all(Mail());
    Prepare(job_);
    return RunWithClient(config);
  }
  void Sandbox(const std::vector<std::string>& arguments) {
    const ProcessRun run = RunProcess(Setting("sandbox"), arguments, machine_.Options());
    ASSERT_EQ(run.exit_code, 0) << run.printed;
  }

  // The job has ended so, with this log behind that of its fields, and so have the client's
  // accounts. A code of 0 is a success.
  void ExpectEnd(const Job& job, const ToolRun& run, std::int32_t code, const std::string& log,
                 const char* accounts = kInOrder) {
    EXPECT_EQ(run.exit_code, code == 0 ? 0 : 1);
    ExpectOutcome(job, code);
    ExpectLog(run, Started() + test::MapiJobLog(job.Mapi()) + log);
    ExpectAccounts(accounts);
  }
  void ExpectOutcome(const Job& job, std::int32_t code) {
    ExpectJobFile(code == 0 ? test::WithSuccess(job.File())
                            : test::WithResult(job.File(), 1, code, "MAPI Error"));
  }
  // `job` is submitted as it is, and its document deleted.
  void ExpectSubmitted(const Job& job, std::size_t size = kDocumentSize) {
    Prepare(job, size);
    ExpectEnd(job, RunWithClient(), 0, LoggedOn() + Composed(job) + Submitted());
    EXPECT_FALSE(FileExists(job.document));
    EXPECT_TRUE(IsEmpty(Outbox()));
    EXPECT_TRUE(IsEmpty(Drafts()));
    KeepSent(job, size);
  }
  static void ExpectInLog(const ToolRun& run, const std::string& lines) {
    EXPECT_NE(run.log.find(lines), std::string::npos) << run.log;
  }

  [[nodiscard]] std::string Report() const {
    return ReadBytes(Mail() / "report.txt").value_or("no report");
  }
  void ExpectAccounts(const char* result = kInOrder) {
    const std::string report = Report();
    EXPECT_NE(report.find("result: " + std::string(result) + "\n"), std::string::npos) << report;
  }
  void ExpectDocumentKept() { EXPECT_TRUE(Same(Document(), FileBytes(job_.document))); }

  void KeepSent(const Job& job, std::size_t size = kDocumentSize) {
    KeepMail(job, Sent() / "0001.eml", "SMTP", job.receiver, size);
  }
  // Keeps the mail for the check by another mail parser, with what it has to be. The type and the
  // address are those that the client got.
  void KeepMail(const Job& job, const fs::path& mail, const std::string& type,
                const std::string& address, std::size_t size = kDocumentSize) {
    ASSERT_TRUE(fs::exists(mail)) << mail;
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    fs::path folder;
    for (int number = 1; number == 1 || fs::exists(folder); ++number) {
      folder =
          Setting("samples") / "mail" / (std::string(test->name()) + "-" + std::to_string(number));
    }
    fs::create_directories(folder);
    fs::rename(mail, folder / "message.eml");
    std::string play = R"({"Subject": ")" + job.subject + R"(", "Body": ")" + job.comment +
                       R"(", "Sender": ")" + job.sender + '"';
    if (!address.empty()) {
      play += R"(, "Name": ")" + (job.recipient.empty() ? address : job.recipient) +
              R"(", "AddressType": ")" + type + R"(", "Address": ")" + address + '"';
    }
    play += R"(, "AttachmentName": ")" + job.name + R"(", "AttachmentSize": )" +
            std::to_string(size) + "}";
    WriteBytes(folder / "play.json", play);
  }

  // The client's folders.
  [[nodiscard]] fs::path Mail() const { return machine_.Folder() / "mail"; }
  [[nodiscard]] fs::path Sent() const { return Mail() / "Store" / "Sent Items"; }
  [[nodiscard]] fs::path Outbox() const { return Mail() / "Store" / "Outbox"; }
  [[nodiscard]] fs::path Drafts() const { return Mail() / "Drafts"; }
  [[nodiscard]] static bool IsEmpty(const fs::path& folder) {
    return !fs::exists(folder) || fs::is_empty(folder);
  }

  Job job_ = {.document = "letter.pdf",
              .name = "Letter 7.pdf",
              .receiver = "0301234567",
              .recipient = "Erika Example",
              .sender = "Sam Sender",
              .comment = "Line one, line two",
              .subject = "Your order"};
};

TEST_F(MailClient, SendsTheJobAndDeletesTheDocument) {
  SwitchLogOn();
  ExpectSubmitted(job_);
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(MailClient, SendsTheDocumentOfACommandLine) {
  job_.recipient = job_.sender = job_.comment = "";
  Prepare(job_);

  const ToolRun run = RunWithClient(
      "{}", {"letter.pdf", "0301234567;SYour order", "/attdisplayname", "Letter 7.pdf"});

  EXPECT_EQ(run.exit_code, 0);
  // What the reader says of a file that is no JSON depends on its bytes.
  ExpectInLog(run, test::MapiJobLog(job_.Mapi()) + LoggedOn() + Composed(job_) + Submitted());
  ExpectAccounts();
  EXPECT_FALSE(FileExists("letter.pdf"));
  KeepSent(job_);
}

// Documents that are texts, of which the JSON library takes something for a value or nearly so. In
// the mail they stand as base64, in lines of 76 characters.
constexpr struct {
  const char* name;
  const char* bytes;
  const char* base64;
} kTextDocuments[] = {
    {"list.csv", "1,2,3\r\n4,5,6\r\n", "MSwyLDMNCjQsNSw2DQo="},
    {"page.ps",
     "%!PS-Adobe-3.0\n/Helvetica findfont 12 scalefont setfont\n"
     "72 720 moveto (Dear Sir) show\nshowpage\n",
     "JSFQUy1BZG9iZS0zLjAKL0hlbHZldGljYSBmaW5kZm9udCAxMiBzY2FsZWZvbnQgc2V0Zm9udAo3\r\n"
     "MiA3MjAgbW92ZXRvIChEZWFyIFNpcikgc2hvdwpzaG93cGFnZQo="},
    {"letter.rtf", "{\\rtf1\\ansi Dear Sir,\\par yours faithfully}\r\n",
     "e1xydGYxXGFuc2kgRGVhciBTaXIsXHBhciB5b3VycyBmYWl0aGZ1bGx5fQ0K"},
};
constexpr char kFaxCommand[] = "0301234567;SOrder 7";
constexpr char kNoJobFile[] = "ReadFromFile(): Parse JSON failed with error '";

TEST_F(MailClient, ATextDocumentGoesToTheAddinByItsNameAndStays) {
  for (const auto& document : kTextDocuments) {
    SCOPED_TRACE(document.name);
    Addin addin;
    SetAddinPort(addin);
    SetFile(document.name, document.bytes);

    const ToolRun run = RunWithClient("{}", {document.name, kFaxCommand});

    EXPECT_EQ(run.exit_code, 0);
    ExpectReceived(
        addin,
        Payload({.receiver = "0301234567", .file_name = document.name, .subject = "Order 7"}));
    ExpectInLog(run, kNoJobFile);
    EXPECT_TRUE(Same(document.bytes, FileBytes(document.name)));
    EXPECT_FALSE(fs::exists(Mail()));
  }
}

TEST_F(MailClient, ATextDocumentIsAttachedByteForByteAndDeleted) {
  for (const auto& document : kTextDocuments) {
    SCOPED_TRACE(document.name);
    fs::remove_all(Mail());
    SetFile(document.name, document.bytes);

    const ToolRun run =
        RunWithClient("{}", {document.name, kFaxCommand, "/attdisplayname", document.name});

    EXPECT_EQ(run.exit_code, 0);
    ExpectInLog(run, kNoJobFile);
    EXPECT_TRUE(run.log.ends_with(Attached(document.name) + Submitted())) << run.log;
    ExpectAccounts();
    EXPECT_FALSE(FileExists(document.name));
    const std::string mail = ReadBytes(Sent() / "0001.eml").value_or("no mail");
    EXPECT_NE(mail.find("filename=\"" + std::string(document.name) + "\""), std::string::npos)
        << mail;
    EXPECT_NE(mail.find("\r\n\r\n" + std::string(document.base64) + "\r\n--"), std::string::npos)
        << mail;
  }
}

TEST_F(MailClient, AJobWithoutARecipientIsShown) {
  job_.receiver = "";
  const ToolRun run = RunJob(R"({"ShowForm": "cancelled"})");

  ExpectEnd(job_, run, 0, LoggedOn() + Contents() + Attached("letter.pdf") + ShownModally());
  EXPECT_TRUE(IsEmpty(Sent()));
  KeepMail(job_, Drafts() / "0001.eml", "", "");
}

TEST_F(MailClient, APreviewIsShownAndWhatTheUserDoesWithItIsHisBusiness) {
  job_.preview = "1";
  for (const std::string answer : {"sent", "cancelled"}) {
    SCOPED_TRACE(answer);
    const ToolRun run = RunJob(R"({"ShowForm": ")" + answer + "\"}");

    ExpectEnd(job_, run, 0, LoggedOn() + Composed(job_) + ShownModally());
    EXPECT_EQ(fs::exists(Sent() / "0001.eml"), answer == "sent");
    KeepMail(job_, Drafts() / "0001.eml", "SMTP", job_.receiver);
  }
}

TEST_F(MailClient, ADivertedOrASkippedJobDoesNotReachIt) {
  for (const bool is_skipped : {false, true}) {
    SCOPED_TRACE(is_skipped);
    if (is_skipped) {
      SkipSending();
    }
    job_.output = is_skipped ? std::nullopt : std::optional("payload.json");
    const ToolRun run = RunJob();

    EXPECT_EQ(run.exit_code, 0);
    ExpectOutcome(job_, 0);
    ExpectLog(run, Started() + test::MapiJobLog(job_.Mapi()));
    EXPECT_EQ(fs::remove(machine_.TemporaryFolder() / "payload.json"), !is_skipped);
    EXPECT_FALSE(fs::exists(Mail()));
    ExpectDocumentKept();
  }
}

TEST_F(MailClient, AddressesFollowTheUsersSettings) {
  const struct {
    const char* enabled;
    const char* prefix;
    const char* suffix;
    const char* receiver;
    const char* type;
    const char* address;
  } cases[] = {
      {"1", "[FAX:", "]", "erika@example.com", "SMTP", "erika@example.com"},
      {"1", "fax=", "@gate.example.com", "0301", "SMTP", "fax=0301@gate.example.com"},
      {"1", "[FAX", "]", "0301", "FAX", "0301"},
      {"1", "[FAX:", "]", "0301", "", "[FAX:0301]"},
      {"", "[FAX", "]", "0301", "SMTP", "0301"},
      {"1 ", "[FAX", "]", "erika@example.com", "FAX", "erika@example.com"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.receiver) + " with " + each.prefix + " and " + each.suffix);
    for (const auto& [name, text] : {std::pair(registry::kAddressAutomation, each.enabled),
                                     std::pair(registry::kAddressPrefix, each.prefix),
                                     std::pair(registry::kAddressPostfix, each.suffix)}) {
      machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, name, text);
    }
    job_.receiver = each.receiver;
    const ToolRun run = RunJob();

    const std::string tag = "ProcessClientAddressAutomation(): ";
    const bool is_on = std::string_view(each.enabled) == "1";
    ExpectEnd(
        job_, run, 0,
        LoggedOn() +
            Info(tag + "The client address automation is turned " + (is_on ? "on:" : "off.")) +
            (is_on ? Info(tag + "Address Prefix: '" + each.prefix + "'") +
                         Info(tag + "Address Suffix: '" + each.suffix + "'")
                   : "") +
            Info(tag + each.receiver + " --> '" + each.type + ":" + each.address + "'") +
            Contents() + Attached("letter.pdf") + Submitted());
    KeepMail(job_, Sent() / "0001.eml", each.type, each.address);
  }
}

// What first failures leave behind is not used.
TEST_F(MailClient, AFailedLogonAndAFailedOpeningAreTriedOtherwise) {
  const ToolRun run = RunJob(
      R"({"Garbage": true, "Fail": [{"Call": "MAPILogonEx", "Code": "0x8004011D"},
          {"Call": "IMAPISession::OpenMsgStore", "Code": "0x8004011D"}]})");

  ExpectEnd(job_, run, 0,
            LoggedOn(Info("SendMail(): MAPILogonEx with profile 'Sandbox' and Logon UI.")) +
                FailedToConnect(kNotOnline) + Composed(job_) + Submitted());
  EXPECT_FALSE(FileExists("letter.pdf"));
  KeepSent(job_);
}

TEST_F(MailClient, AFailureOfTheClientIsThatOfTheJob) {
  const struct {
    const char* preview;
    const char* call;
    std::string log;
    bool keeps_document;
  } cases[] = {
      {"-", "IMessage::SubmitMessage",
       Composed(job_) + NoSupport("SendMail(): Submit message failed."), false},
      // The document went into the attachment, and the message is still there.
      {"1", "IMAPISession::ShowForm",
       Composed(job_) + kFormPrepared + NoSupport("OpenMessageModal(): The form cannot be shown.") +
           NoSupport("SendMail(): Message cannot be opened modally."),
       false},
      {"-", "IAttach::SaveChanges",
       Addressed("0301234567", "SMTP:0301234567") + Contents() +
           Info("AddAttachment(): 'letter.pdf'") +
           Info("AddAttachment(): Attachment properties are set.") +
           NoSupport(
               "AddAttachment(): The attachment cannot be saved. The attachment is corrupt.") +
           Error("SendMail(): The attachment cannot be added."),
       true},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.call);
    job_.preview = each.preview;
    const ToolRun run = RunJob(R"({"Fail": [{"Call": ")" + std::string(each.call) +
                               R"(", "Code": "0x80040102"}]})");

    ExpectEnd(job_, run, kNoSupport, LoggedOn() + each.log + CleanedUp());
    EXPECT_EQ(FileExists("letter.pdf"), each.keeps_document);
    EXPECT_TRUE(IsEmpty(Sent()));
    EXPECT_FALSE(IsEmpty(Outbox()));
  }
}

TEST_F(MailClient, DeliberateTheRowsOfAStoreThatCannotBeOpenedAreKept) {
  const ToolRun run = RunJob(
      R"({"Fail": [{"Call": "IMAPISession::OpenMsgStore", "Code": "0x8004011D", "From": true}]})");

  ExpectEnd(job_, run, -2147221219,
            LoggedOn() + FailedToConnect(kNotOnline) +
                FailedToConnect("FindDefaultMsgStore(): The message store canot be opened.") +
                FailedToConnect("SendMail(): The default message store cannot be found.") +
                CleanedUp(),
            "1 leak, no double frees, no overruns");
  ExpectDocumentKept();
}

// The calls of a report, in their order, as "IMessage::SaveChanges" and how many of that name they
// are. What gives back has no result to fail with.
std::vector<std::pair<std::string, int>> CallsThatCanFail(std::string_view report) {
  std::vector<std::pair<std::string, int>> calls;
  std::map<std::string, int> counts;
  for (std::size_t at = report.find("calls:\n"); at < report.size();) {
    const std::size_t end = std::min(report.find('\n', at), report.size());
    std::string_view line = report.substr(at, end - at);
    at = end + 1;
    const std::size_t bracket = line.find('(');
    if (!line.starts_with("  ") || bracket == std::string_view::npos) {
      continue;
    }
    line = line.substr(0, bracket);
    const std::string name(line.substr(line.rfind(' ') + 1));
    if (name.ends_with("::Release") || name.ends_with("::AddRef") || name.starts_with("Free") ||
        name == "MAPIFreeBuffer") {
      continue;
    }
    calls.emplace_back(name, ++counts[name]);
  }
  return calls;
}

// What the tool can do without, or has another way for, is a first call of these. Without the
// buffer it is the recipient whom the message goes without.
bool IsNeeded(const std::string& call, int at) {
  static const std::set<std::string> kNotNeeded = {"MAPIAdminProfiles",
                                                   "IProfAdmin::GetProfileTable",
                                                   "HrQueryAllRows",
                                                   "MAPILogonEx",
                                                   "IMAPISession::OpenMsgStore",
                                                   "MAPIAllocateBuffer",
                                                   "IMAPISession::QueryInterface",
                                                   "IMAPIClientShutdown::QueryFastShutdown",
                                                   "IMAPIClientShutdown::DoFastShutdown",
                                                   "IMAPISession::Logoff"};
  return at != 1 || !kNotNeeded.contains(call);
}

TEST_F(MailClient, EveryCallThatFailsHasItsOutcomeAndLeavesTheAccountsInOrder) {
  Sandbox({"register"});
  for (const auto& [is_shown, leaves_garbage] : {std::pair(false, false), std::pair(false, true),
                                                 std::pair(true, false), std::pair(true, true)}) {
    job_.preview = is_shown ? "1" : "-";
    fs::remove_all(Mail());
    Prepare(job_);
    ASSERT_EQ(RunWithRegisteredClient().exit_code, 0);
    const std::vector<std::pair<std::string, int>> calls = CallsThatCanFail(Report());
    ASSERT_GT(calls.size(), 20u);
    for (const auto& [call, at] : calls) {
      SCOPED_TRACE(call + ", number " + std::to_string(at) + (is_shown ? ", shown" : "") +
                   (leaves_garbage ? ", with garbage" : ""));
      fs::remove_all(Mail());
      Prepare(job_);

      const ToolRun run = RunWithRegisteredClient(
          R"({"Garbage": )" + std::string(leaves_garbage ? "true" : "false") +
          R"(, "Fail": [{"Call": ")" + call + R"(", "At": )" + std::to_string(at) +
          R"(, "Code": "0x80040102"}]})");

      const std::int32_t code = call == "MAPIInitialize" ? -2147467259 : kNoSupport;
      // Without the recipient's entry the sandbox does not submit, and has a code of its own.
      const bool is_unaddressed = call == "MAPIAllocateBuffer" && at == 1 && !is_shown;
      const bool is_delivered = !IsNeeded(call, at) && !is_unaddressed;
      EXPECT_EQ(run.exit_code, is_delivered ? 0 : 1);
      ExpectOutcome(job_, is_delivered ? 0 : is_unaddressed ? -2147219961 : code);
      ExpectAccounts();
      const std::string report = Report();
      const std::size_t saved = report.find(" IAttach::SaveChanges(");
      if (saved != std::string::npos &&
          report.substr(saved, report.find('\n', saved) - saved).ends_with("= 0x00000000")) {
        EXPECT_FALSE(FileExists("letter.pdf"));
      } else {
        ExpectDocumentKept();
      }
    }
    std::cout << calls.size() << " calls of the mail client failed, one at a time, and left "
              << (leaves_garbage ? "garbage" : "null") << " behind\n";
  }
  Sandbox({"unregister"});
}

TEST_F(MailClient, AnEmptyDocumentIsAttached) {
  ExpectSubmitted(job_, 0);
}

TEST_F(MailClient, ADocumentOf256MiBIsAttachedToTheLastByte) {
  ExpectSubmitted(job_, std::size_t{256} << 20);
}

TEST_F(MailClient, TextsBeyondAsciiAndBeyondTheBasicPlaneArriveAsTheyAre) {
  ExpectSubmitted(
      {.document = "Gr\u00F6\u00DFe \u65E5\u672C/\U0001F4C4 a.pdf",
       .name = "\u00DCbersicht \u8CC7\u6599 \U0001F4C4.pdf",
       .receiver = "0301234567",
       .recipient = "J\u00FCrgen \u65E5\u672C \U0001F600",
       .sender = "Zo\u00EB \U0001F4E0",
       .comment = "Gr\u00FC\u00DFe, \u20AC 5, \U0001D11E",
       .subject =
           "\u00DCbung \u4E2D\u6587 \U0001F600 with a subject that needs more than one line"});
}

TEST_F(MailClient, AReadOnlyDocumentIsSentAndStays) {
  Prepare(job_);
  ToolRun run;
  {
    const ReadOnly read_only(PathOf("letter.pdf"));
    std::error_code error;
    if (fs::remove(PathOf("letter.pdf"), error)) {
      GTEST_SKIP() << "this system lets its users remove read-only files";
    }
    run = RunWithClient();
  }

  EXPECT_EQ(run.exit_code, 0);
  ExpectInLog(run, Info("AddAttachment(): Attachment added successfully,") +
                       Warning("AddAttachment(): The attachment file cannot be deleted.") +
                       "WARNING: Code 0x000000");
  ExpectAccounts();
  ExpectDocumentKept();
  KeepSent(job_);
}

// It must not go missing from a message that counts as delivered.
TEST_F(MailClient, ADocumentThatDoesNotFitIntoMemoryIsAFailure) {
  if (!LittleMemory::IsPossible()) {
    GTEST_SKIP() << "this system leaves a process as much memory as there is";
  }
  Prepare(job_);
  fs::resize_file(PathOf(job_.document), LittleMemory::kTooLarge);
  Sandbox({"register"});
  const ToolRun run = [&] {
    const LittleMemory little_memory;
    return RunWithRegisteredClient();
  }();
  Sandbox({"unregister"});

  EXPECT_EQ(run.exit_code, 1);
  ExpectOutcome(job_, -2147024882);
  EXPECT_EQ(fs::file_size(PathOf(job_.document)), LittleMemory::kTooLarge);
  ExpectInLog(run, Error("AddAttachment(): The attachment path cannot be read.") +
                       Error("Code 0x8007000e --> (CDO) Not enough memory available.") +
                       Error("SendMail(): The attachment cannot be added."));
  ExpectAccounts();
}

TEST_F(MailClient, DeliberateADocumentThatCannotBeOpenedGoesMissingWithoutAFailure) {
  SetFile("job.json", job_.File());

  const ToolRun run = RunWithClient();

  EXPECT_EQ(run.exit_code, 0);
  ExpectOutcome(job_, 0);
  // The system's own text follows the code.
  ExpectInLog(run, Error("AddAttachment(): The attachment path cannot be read.") +
                       "ERROR: Code 0x00000002 --> ");
  EXPECT_TRUE(run.log.ends_with(Submitted())) << run.log;
  ExpectAccounts();
  EXPECT_TRUE(fs::exists(Sent() / "0001.eml"));
}

// The add-in's failure was in the job file meanwhile; the last word is the mail client's.
TEST_F(MailClient, TakesOverFromAnAddinThatFailsAfterTheProbe) {
  Addin addin({.misbehaviour = Misbehaviour::kStopAfterProbe});
  SetAddinPort(addin);
  const ToolRun run = RunJob();

  EXPECT_EQ(run.exit_code, 0);
  ExpectOutcome(job_, 0);
  ExpectInLog(run, Error("ProcessToOutlookClient(): The client connection to 127.0.0.1:" +
                         std::to_string(addin.port()) + " cannot be established.") +
                       test::MapiJobLog(job_.Mapi()) + LoggedOn() + Composed(job_) + Submitted());
  ExpectAccounts();
  KeepSent(job_);
}

}  // namespace
}  // namespace zentpost::e2e
