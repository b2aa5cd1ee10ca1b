// The Extended MAPI route with a mail client: the sandbox stands in for one, writes down what
// reaches it, and keeps accounts of what the tool takes and gives back.
#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <utility>

#include "testing/end_to_end/job_test.h"
#include "testing/end_to_end/sample_job.h"
#include "testing/end_to_end/settings.h"
#include "testing/expected_texts.h"

namespace zentpost::e2e {
namespace {

namespace fs = std::filesystem;

// A fax job with a job file. Texts are UTF-8, and stand in JSON as they are: no quotes in them.
struct Fax {
  std::string receiver = "0301234567";
  std::string recipient_name = "Erika Example";
  std::string sender = "Sam Sender";
  std::string comment = "Line one, line two";
  std::string subject = "Your order";
  std::optional<std::string> preview = {};
  std::optional<std::string> output = {};  // diverts the job
  std::string document = "letter.pdf";     // in the machine's folder
  std::string display_name = "Letter 7.pdf";
  std::size_t size = 1000;  // of the document, in bytes
};

// In the layout in which it is written back.
std::string JobFileOf(const Fax& fax) {
  const auto text = [](const std::string& value) {
    return '"' + Replaced(value, "\\", "\\\\") + '"';
  };
  std::string commands;
  const auto add_command = [&](const char* name, const std::optional<std::string>& value) {
    if (value) {
      commands +=
          (commands.empty() ? "" : ",\n") + std::string("\t\t\t\"") + name + "\":\t" + text(*value);
    }
  };
  add_command("P", fax.preview);
  add_command("O", fax.output);
  return "{\n\t\"FilePath\":\t" + text(fax.document) + ",\n\t\"SourceFileName\":\t" +
         text(fax.display_name) + ",\n\t\"Cmd\":\t{\n\t\t\"Parameters\":\t{\n" +
         "\t\t\t\"RecipientName\":\t" + text(fax.recipient_name) + ",\n" + "\t\t\t\"Comment\":\t" +
         text(fax.comment) + ",\n" + "\t\t\t\"Subject\":\t" + text(fax.subject) + ",\n" +
         "\t\t\t\"UserName\":\t" + text(fax.sender) + "\n\t\t},\n" +
         (commands.empty() ? "" : "\t\t\"Commands\":\t{\n" + commands + "\n\t\t},\n") +
         "\t\t\"Receiver\":\t[" + (fax.receiver.empty() ? "" : text(fax.receiver)) + "]\n\t}\n}";
}

// The document that the mail check expects: byte i is i * 7 + i / 256.
std::string Document(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(i * 7 + (i >> 8)));
  }
  return bytes;
}

MapiJob LoggedJob(const Fax& fax) {
  return {.receiver = fax.receiver,
          .recipient = fax.recipient_name,
          .sender = fax.sender,
          .comment = fax.comment,
          .subject = fax.subject,
          .attachment = fax.document,
          .attachment_name = fax.display_name,
          .preview = fax.preview && *fax.preview != "-" ? "True" : "False",
          .is_sent = false};
}

std::string LoggedOn() {
  return Info("SendMail(): Profile 'Sandbox' will be used.") +
         Info("SendMail(): MAPILogonEx with profile 'Sandbox'.");
}

std::string Automation(const std::string& recipient, const std::string& typed_address) {
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

std::string Submitted() {
  return Info("SendMail(): Message sent successfully.");
}

std::string ShownModally() {
  return Info("OpenMessageModal(): Dialog prepared.") +
         Info("OpenMessageModal(): Message status retrieval succeeded.") +
         Info("SendMail(): Mail will be opened as modal window.");
}

std::string Code(const std::string& code_and_text) {
  return Error("Code " + code_and_text);
}

std::string CleanedUp() {
  return Debug("SendMail(): cleanup.") + Info("DoMAPIFastShutdown(): Function in progress.") +
         Info("DoMAPIFastShutdown(): Function end.") + Debug("SendMail(): Function end.");
}

class MailClient : public JobTest {
 protected:
  void SetUp() override {
    if (!Machine::CanWrite(Hive::kLocalMachine)) {
      GTEST_SKIP() << "this user may not choose the machine's mail client";
    }
  }

  // Puts the job file and the document there.
  void Prepare(const Fax& fax) {
    SetFile("job.json", JobFileOf(fax));
    fs::create_directories(PathOf(fax.document).parent_path());
    SetFile(fax.document, Document(fax.size));
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
  ToolRun RunWithRegisteredClient(const std::string& config,
                                  const std::vector<std::string>& arguments = {"job.json"}) {
    ProcessOptions options = machine_.Options();
    options.environment.emplace_back("SANDBOX_MAPI_FOLDER", Mail());
    options.environment.emplace_back("SANDBOX_MAPI_CONFIG", fs::path(config));
    return Run(arguments, options);
  }
  void Sandbox(const std::vector<std::string>& arguments) {
    const ProcessRun run = RunProcess(Setting("sandbox"), arguments, machine_.Options());
    ASSERT_EQ(run.exit_code, 0) << run.printed;
  }

  // The job is delivered, with this log; the client's accounts are in order.
  void ExpectDelivered(const Fax& fax, const ToolRun& run, const std::string& log) {
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_TRUE(Same(test::WithSuccess(JobFileOf(fax)), FileBytes("job.json")));
    ExpectLog(fax, run, log);
  }

  // The job has failed with `code`, and the client's accounts are in order.
  void ExpectFailed(const Fax& fax, const ToolRun& run, std::int32_t code, const std::string& log) {
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(
        Same(test::WithResult(JobFileOf(fax), 1, code, "MAPI Error"), FileBytes("job.json")));
    ExpectLog(fax, run, log);
  }

  [[nodiscard]] std::string Report() const {
    return ReadBytes(Mail() / "report.txt").value_or("no report");
  }

  void ExpectAccountsInOrder(const char* result = "no leaks, no double frees, no overruns") {
    const std::string report = Report();
    EXPECT_NE(report.find("result: " + std::string(result) + "\n"), std::string::npos) << report;
  }

  bool CanRemoveReadOnlyFiles() {
    SetFile("probe", "");
    const ReadOnly read_only(PathOf("probe"));
    std::error_code error;
    return fs::remove(PathOf("probe"), error);
  }

  void ExpectDocumentKept(const Fax& fax) {
    EXPECT_TRUE(Same(Document(fax.size), FileBytes(fax.document)));
  }

  // Keeps the mail for the check by another mail parser, with what it has to be. The type and the
  // address are those that the client got.
  void KeepMail(const Fax& fax, const fs::path& mail, const std::string& type,
                const std::string& address) {
    ASSERT_TRUE(fs::exists(mail)) << mail;
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    fs::path folder;
    for (int number = 1; number == 1 || fs::exists(folder); ++number) {
      folder =
          Setting("samples") / "mail" / (std::string(test->name()) + "-" + std::to_string(number));
    }
    fs::create_directories(folder);
    fs::rename(mail, folder / "message.eml");
    std::string play = R"({"Subject": ")" + fax.subject + R"(", "Body": ")" + fax.comment +
                       R"(", "Sender": ")" + fax.sender + '"';
    if (!address.empty()) {
      play += R"(, "Name": ")" + (fax.recipient_name.empty() ? address : fax.recipient_name) +
              R"(", "AddressType": ")" + type + R"(", "Address": ")" + address + '"';
    }
    play += R"(, "AttachmentName": ")" + fax.display_name.substr(fax.display_name.rfind('/') + 1) +
            R"(", "AttachmentSize": )" + std::to_string(fax.size) + "}";
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

 private:
  static void ExpectLog(const Fax& fax, const ToolRun& run, const std::string& log) {
    EXPECT_TRUE(Same(Info("StartZentpost(): job.json") + MapiLines(LoggedJob(fax)) + log, run.log));
  }
};

TEST_F(MailClient, SendsTheJobAndDeletesTheDocument) {
  SwitchLogOn();
  const Fax fax;
  Prepare(fax);

  const ToolRun run = RunWithClient();

  ExpectDelivered(fax, run,
                  LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                      Attached("letter.pdf") + Submitted() + CleanedUp());
  ExpectAccountsInOrder();
  EXPECT_FALSE(FileExists("letter.pdf"));
  EXPECT_TRUE(IsEmpty(Outbox()));
  EXPECT_TRUE(IsEmpty(Drafts()));
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
  KeepJobFile(FileBytes("job.json"));
}

TEST_F(MailClient, SendsTheDocumentOfACommandLine) {
  Fax fax = {.recipient_name = "", .sender = "", .comment = "", .subject = "Order 7"};
  Prepare(fax);

  const ToolRun run =
      RunWithClient("{}", {"letter.pdf", "0301234567;SOrder 7", "/attdisplayname", "Letter 7.pdf"});

  EXPECT_EQ(run.exit_code, 0);
  // What the reader says of a file that is no JSON depends on its bytes.
  EXPECT_NE(run.log.find(MapiLines(LoggedJob(fax)) + LoggedOn() +
                         Automation("0301234567", "SMTP:0301234567") + Contents() +
                         Attached("letter.pdf") + Submitted() + CleanedUp()),
            std::string::npos)
      << run.log;
  ExpectAccountsInOrder();
  EXPECT_FALSE(FileExists("letter.pdf"));
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
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
    JobTest::ExpectDelivered(
        addin, Payload({.receiver = "0301234567", .file = document.name, .subject = "Order 7"}));
    EXPECT_NE(run.log.find(kNoJobFile), std::string::npos) << run.log;
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
    EXPECT_NE(run.log.find(kNoJobFile), std::string::npos) << run.log;
    EXPECT_TRUE(run.log.ends_with(Attached(document.name) + Submitted() + CleanedUp())) << run.log;
    ExpectAccountsInOrder();
    EXPECT_FALSE(FileExists(document.name));
    const std::string mail = ReadBytes(Sent() / "0001.eml").value_or("no mail");
    EXPECT_NE(mail.find("filename=\"" + std::string(document.name) + "\""), std::string::npos)
        << mail;
    EXPECT_NE(mail.find("\r\n\r\n" + std::string(document.base64) + "\r\n--"), std::string::npos)
        << mail;
  }
}

TEST_F(MailClient, AJobWithoutARecipientIsShown) {
  Fax fax;
  fax.receiver = "";
  Prepare(fax);

  const ToolRun run = RunWithClient(R"({"ShowForm": "cancelled"})");

  ExpectDelivered(fax, run,
                  LoggedOn() + Contents() + Attached("letter.pdf") + ShownModally() + CleanedUp());
  ExpectAccountsInOrder();
  EXPECT_TRUE(IsEmpty(Sent()));
  KeepMail(fax, Drafts() / "0001.eml", "", "");
}

TEST_F(MailClient, APreviewIsShownAndWhatTheUserDoesWithItIsHisBusiness) {
  for (const char* answer : {"sent", "cancelled"}) {
    SCOPED_TRACE(answer);
    fs::remove_all(Mail());
    Fax fax;
    fax.preview = "1";
    Prepare(fax);

    const ToolRun run = RunWithClient(R"({"ShowForm": ")" + std::string(answer) + "\"}");

    ExpectDelivered(fax, run,
                    LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                        Attached("letter.pdf") + ShownModally() + CleanedUp());
    ExpectAccountsInOrder();
    EXPECT_EQ(fs::exists(Sent() / "0001.eml"), std::string_view(answer) == "sent");
    KeepMail(fax, Drafts() / "0001.eml", "SMTP", "0301234567");
  }
}

TEST_F(MailClient, AFormThatCannotBeShownFailsTheJob) {
  Fax fax;
  fax.preview = "1";
  Prepare(fax);

  const ToolRun run = RunWithClient(R"({"ShowForm": "0x80040102"})");

  ExpectFailed(fax, run, -2147221246,
               LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                   Attached("letter.pdf") + Info("OpenMessageModal(): Dialog prepared.") +
                   Info("OpenMessageModal(): Message status retrieval succeeded.") +
                   Error("OpenMessageModal(): The form cannot be shown.") +
                   Code("0x80040102 --> (CDO) No support.") +
                   Error("SendMail(): Message cannot be opened modally.") +
                   Code("0x80040102 --> (CDO) No support.") + CleanedUp());
  ExpectAccountsInOrder();
  // The document went into the attachment, and the message is still there.
  EXPECT_FALSE(FileExists("letter.pdf"));
  EXPECT_FALSE(IsEmpty(Outbox()));
}

TEST_F(MailClient, ADivertedJobDoesNotReachIt) {
  Fax fax;
  fax.output = "payload.json";
  Prepare(fax);

  const ToolRun run = RunWithClient();

  ExpectDelivered(fax, run, "");
  EXPECT_TRUE(fs::exists(machine_.TemporaryFolder() / "payload.json"));
  EXPECT_FALSE(fs::exists(Mail()));
  ExpectDocumentKept(fax);
}

TEST_F(MailClient, ASkippedJobDoesNotReachIt) {
  for (const Hive hive : {Hive::kCurrentUser, Hive::kLocalMachine}) {
    Machine machine;  // without the former case's value
    machine.SetNumber(hive, registry::kFaxClientKey, registry::kSkipExtendedMapi, 1);
    const Fax fax;
    Prepare(fax);
    WriteBytes(machine.Folder() / "job.json", JobFileOf(fax));
    WriteBytes(machine.Folder() / "letter.pdf", Document(fax.size));

    ProcessOptions options = machine.Options();
    options.environment.emplace_back("SANDBOX_MAPI_FOLDER", Mail());
    ASSERT_EQ(RunProcess(Setting("sandbox"), {"register"}, options).exit_code, 0);
    const ToolRun run = Run({"job.json"}, options);
    ASSERT_EQ(RunProcess(Setting("sandbox"), {"unregister"}, options).exit_code, 0);

    EXPECT_EQ(run.exit_code, 0);
    EXPECT_FALSE(fs::exists(Mail()));
    EXPECT_TRUE(
        Same(Document(fax.size), ReadBytes(machine.Folder() / "letter.pdf").value_or("missing")));
    EXPECT_TRUE(Same(test::WithSuccess(JobFileOf(fax)),
                     ReadBytes(machine.Folder() / "job.json").value_or("missing")));
  }
}

TEST_F(MailClient, AddressesFollowTheUsersSettings) {
  const struct {
    const char* enabled;  // null: the value is missing
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
      {nullptr, "[FAX", "]", "0301", "SMTP", "0301"},
      {"1 ", "[FAX", "]", "erika@example.com", "FAX", "erika@example.com"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(std::string(each.receiver) + " with " + each.prefix + " and " + each.suffix);
    fs::remove_all(Mail());
    const bool is_on = each.enabled != nullptr && std::string_view(each.enabled) == "1";
    if (each.enabled != nullptr) {
      machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation,
                       each.enabled);
    } else {
      machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressAutomation, "");
    }
    machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressPrefix,
                     each.prefix);
    machine_.SetText(Hive::kCurrentUser, registry::kAddinKey, registry::kAddressPostfix,
                     each.suffix);
    Fax fax;
    fax.receiver = each.receiver;
    Prepare(fax);

    const ToolRun run = RunWithClient();

    const std::string computed = Info("ProcessClientAddressAutomation(): " + fax.receiver +
                                      " --> '" + each.type + ":" + each.address + "'");
    std::string automation =
        Info("ProcessClientAddressAutomation(): The client address automation is turned off.");
    if (is_on) {
      const std::string start = "ProcessClientAddressAutomation(): ";
      automation = Info(start + "The client address automation is turned on:")
                       .append(Info(start + "Address Prefix: '" + each.prefix + "'"))
                       .append(Info(start + "Address Suffix: '" + each.suffix + "'"));
    }
    std::string log = LoggedOn();
    log.append(automation).append(computed).append(Contents()).append(Attached("letter.pdf"));
    log.append(Submitted()).append(CleanedUp());
    ExpectDelivered(fax, run, log);
    ExpectAccountsInOrder();
    KeepMail(fax, Sent() / "0001.eml", each.type, each.address);
  }
}

TEST_F(MailClient, AStoreThatCannotBeOpenedOnlineIsOpenedOtherwise) {
  const Fax fax;
  Prepare(fax);

  const ToolRun run =
      RunWithClient(R"({"Fail": [{"Call": "IMAPISession::OpenMsgStore", "Code": "0x8004011D"}]})");

  ExpectDelivered(
      fax, run,
      LoggedOn() +
          Error("FindDefaultMsgStore(): The message store canot be opened as online mode.") +
          Code("0x8004011d --> (CDO) The provider failed to connect.") +
          Automation("0301234567", "SMTP:0301234567") + Contents() + Attached("letter.pdf") +
          Submitted() + CleanedUp());
  ExpectAccountsInOrder();
}

TEST_F(MailClient, WhatAFirstLogonAndAFirstOpeningLeaveBehindIsNotUsed) {
  const Fax fax;
  Prepare(fax);

  const ToolRun run = RunWithClient(
      R"({"Garbage": true, "Fail": [{"Call": "MAPILogonEx", "Code": "0x8004011D"},
          {"Call": "IMAPISession::OpenMsgStore", "Code": "0x8004011D"}]})");

  ExpectDelivered(
      fax, run,
      LoggedOn() + Info("SendMail(): MAPILogonEx with profile 'Sandbox' and Logon UI.") +
          Error("FindDefaultMsgStore(): The message store canot be opened as online mode.") +
          Code("0x8004011d --> (CDO) The provider failed to connect.") +
          Automation("0301234567", "SMTP:0301234567") + Contents() + Attached("letter.pdf") +
          Submitted() + CleanedUp());
  ExpectAccountsInOrder();
  EXPECT_FALSE(FileExists("letter.pdf"));
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

TEST_F(MailClient, DeliberateTheRowsOfAStoreThatCannotBeOpenedAreKept) {
  const Fax fax;
  Prepare(fax);

  const ToolRun run = RunWithClient(
      R"({"Fail": [{"Call": "IMAPISession::OpenMsgStore", "Code": "0x8004011D", "From": true}]})");

  const std::string code = Code("0x8004011d --> (CDO) The provider failed to connect.");
  ExpectFailed(
      fax, run, -2147221219,
      LoggedOn() +
          Error("FindDefaultMsgStore(): The message store canot be opened as online mode.") + code +
          Error("FindDefaultMsgStore(): The message store canot be opened.") + code +
          Error("SendMail(): The default message store cannot be found.") + code + CleanedUp());
  ExpectAccountsInOrder("1 leak, no double frees, no overruns");
  ExpectDocumentKept(fax);
}

TEST_F(MailClient, AMessageThatCannotBeSubmittedStaysInTheOutbox) {
  const Fax fax;
  Prepare(fax);

  const ToolRun run =
      RunWithClient(R"({"Fail": [{"Call": "IMessage::SubmitMessage", "Code": "0x80040102"}]})");

  ExpectFailed(fax, run, -2147221246,
               LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                   Attached("letter.pdf") + Error("SendMail(): Submit message failed.") +
                   Code("0x80040102 --> (CDO) No support.") + CleanedUp());
  ExpectAccountsInOrder();
  EXPECT_TRUE(IsEmpty(Sent()));
  EXPECT_FALSE(IsEmpty(Outbox()));
}

TEST_F(MailClient, AnAttachmentThatCannotBeSavedKeepsTheDocument) {
  const Fax fax;
  Prepare(fax);

  const ToolRun run =
      RunWithClient(R"({"Fail": [{"Call": "IAttach::SaveChanges", "Code": "0x80040102"}]})");

  ExpectFailed(
      fax, run, -2147221246,
      LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
          Info("AddAttachment(): 'letter.pdf'") +
          Info("AddAttachment(): Attachment properties are set.") +
          Error("AddAttachment(): The attachment cannot be saved. The attachment is corrupt.") +
          Code("0x80040102 --> (CDO) No support.") +
          Error("SendMail(): The attachment cannot be added.") + CleanedUp());
  ExpectAccountsInOrder();
  ExpectDocumentKept(fax);
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

// What the tool can do without, or has another way for.
bool IsNeeded(const std::string& call, int at) {
  const std::pair<std::string, int> kNotNeeded[] = {
      {"MAPIAdminProfiles", 1},
      {"IProfAdmin::GetProfileTable", 1},
      {"HrQueryAllRows", 1},
      {"MAPILogonEx", 1},
      {"IMAPISession::OpenMsgStore", 1},
      {"MAPIAllocateBuffer", 1},  // the recipient's: the message then goes without
      {"IMAPISession::QueryInterface", 1},
      {"IMAPIClientShutdown::QueryFastShutdown", 1},
      {"IMAPIClientShutdown::DoFastShutdown", 1},
      {"IMAPISession::Logoff", 1}};
  return std::find(std::begin(kNotNeeded), std::end(kNotNeeded), std::pair(call, at)) ==
         std::end(kNotNeeded);
}

TEST_F(MailClient, EveryCallThatFailsHasItsOutcomeAndLeavesTheAccountsInOrder) {
  Sandbox({"register"});
  for (const auto& [is_shown, leaves_garbage] : {std::pair(false, false), std::pair(false, true),
                                                 std::pair(true, false), std::pair(true, true)}) {
    Fax fax;
    if (is_shown) {
      fax.preview = "1";
    }
    fs::remove_all(Mail());
    Prepare(fax);
    ASSERT_EQ(RunWithRegisteredClient("{}").exit_code, 0);
    const std::vector<std::pair<std::string, int>> calls = CallsThatCanFail(Report());
    ASSERT_GT(calls.size(), 20u);
    for (const auto& [call, at] : calls) {
      SCOPED_TRACE(call + ", number " + std::to_string(at) + (is_shown ? ", shown" : "") +
                   (leaves_garbage ? ", with garbage" : ""));
      fs::remove_all(Mail());
      Prepare(fax);

      const ToolRun run = RunWithRegisteredClient(
          R"({"Garbage": )" + std::string(leaves_garbage ? "true" : "false") +
          R"(, "Fail": [{"Call": ")" + call + R"(", "At": )" + std::to_string(at) +
          R"(, "Code": "0x80040102"}]})");

      const std::int32_t code = call == "MAPIInitialize" ? -2147467259 : -2147221246;
      // Without the recipient's entry the sandbox does not submit, and has a code of its own.
      const bool is_unaddressed = call == "MAPIAllocateBuffer" && at == 1 && !is_shown;
      const bool is_delivered = !IsNeeded(call, at) && !is_unaddressed;
      EXPECT_EQ(run.exit_code, is_delivered ? 0 : 1);
      EXPECT_TRUE(Same(is_delivered ? test::WithSuccess(JobFileOf(fax))
                       : is_unaddressed
                           ? test::WithResult(JobFileOf(fax), 1, -2147219961, "MAPI Error")
                           : test::WithResult(JobFileOf(fax), 1, code, "MAPI Error"),
                       FileBytes("job.json")));
      ExpectAccountsInOrder();
      const std::string report = Report();
      const std::size_t saved = report.find(" IAttach::SaveChanges(");
      if (saved != std::string::npos &&
          report.substr(saved, report.find('\n', saved) - saved).ends_with("= 0x00000000")) {
        EXPECT_FALSE(FileExists("letter.pdf"));
      } else {
        ExpectDocumentKept(fax);
      }
    }
    std::cout << calls.size() << " calls of the mail client failed, one at a time, and left "
              << (leaves_garbage ? "garbage" : "null") << " behind\n";
  }
  Sandbox({"unregister"});
}

TEST_F(MailClient, AnEmptyDocumentIsAttached) {
  Fax fax;
  fax.size = 0;
  Prepare(fax);

  ExpectDelivered(fax, RunWithClient(),
                  LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                      Attached("letter.pdf") + Submitted() + CleanedUp());
  ExpectAccountsInOrder();
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

TEST_F(MailClient, ADocumentOf256MiBIsAttachedToTheLastByte) {
  Fax fax;
  fax.size = std::size_t{256} << 20;
  Prepare(fax);

  ExpectDelivered(fax, RunWithClient(),
                  LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                      Attached("letter.pdf") + Submitted() + CleanedUp());
  ExpectAccountsInOrder();
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

TEST_F(MailClient, TextsBeyondAsciiAndBeyondTheBasicPlaneArriveAsTheyAre) {
  Fax fax;
  fax.recipient_name = "J\u00FCrgen \u65E5\u672C \U0001F600";
  fax.sender = "Zo\u00EB \U0001F4E0";
  fax.comment = "Gr\u00FC\u00DFe, \u20AC 5, \U0001D11E";
  fax.subject = "\u00DCbung \u4E2D\u6587 \U0001F600 with a subject that needs more than one line";
  fax.document = "Gr\u00F6\u00DFe \u65E5\u672C/\U0001F4C4 a.pdf";
  fax.display_name = "\u00DCbersicht \u8CC7\u6599 \U0001F4C4.pdf";
  Prepare(fax);

  ExpectDelivered(fax, RunWithClient(),
                  LoggedOn() + Automation("0301234567", "SMTP:0301234567") + Contents() +
                      Attached(fax.document) + Submitted() + CleanedUp());
  ExpectAccountsInOrder();
  EXPECT_FALSE(FileExists(fax.document));
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

TEST_F(MailClient, AReadOnlyDocumentIsSentAndStays) {
  if (CanRemoveReadOnlyFiles()) {
    GTEST_SKIP() << "this system lets its users remove read-only files";
  }
  const Fax fax;
  Prepare(fax);
  ToolRun run;
  {
    const ReadOnly read_only(PathOf("letter.pdf"));
    run = RunWithClient();
  }

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_NE(run.log.find(Info("AddAttachment(): Attachment added successfully,") +
                         Warning("AddAttachment(): The attachment file cannot be deleted.") +
                         " - WARNING: Code 0x000000"),
            std::string::npos)
      << run.log;
  ExpectAccountsInOrder();
  ExpectDocumentKept(fax);
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

// It must not go missing from a message that counts as delivered.
TEST_F(MailClient, ADocumentThatDoesNotFitIntoMemoryIsAFailure) {
  if (!LittleMemory::IsPossible()) {
    GTEST_SKIP() << "this system leaves a process as much memory as there is";
  }
  const Fax fax;
  Prepare(fax);
  fs::resize_file(PathOf(fax.document), LittleMemory::kTooLarge);
  Sandbox({"register"});
  const ToolRun run = [&] {
    const LittleMemory little_memory;
    return RunWithRegisteredClient("{}");
  }();
  Sandbox({"unregister"});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(
      Same(test::WithResult(JobFileOf(fax), 1, -2147024882, "MAPI Error"), FileBytes("job.json")));
  EXPECT_EQ(fs::file_size(PathOf(fax.document)), LittleMemory::kTooLarge);
  EXPECT_NE(run.log.find(Error("AddAttachment(): The attachment path cannot be read.") +
                         Error("Code 0x8007000e --> (CDO) Not enough memory available.") +
                         Error("SendMail(): The attachment cannot be added.")),
            std::string::npos)
      << run.log;
  ExpectAccountsInOrder();
}

TEST_F(MailClient, DeliberateADocumentThatCannotBeOpenedGoesMissingWithoutAFailure) {
  const Fax fax;
  SetFile("job.json", JobFileOf(fax));

  const ToolRun run = RunWithClient();

  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(Same(test::WithSuccess(JobFileOf(fax)), FileBytes("job.json")));
  // The system's own text follows the code.
  EXPECT_NE(run.log.find(Error("AddAttachment(): The attachment path cannot be read.") +
                         " - ERROR  : Code 0x00000002 --> "),
            std::string::npos)
      << run.log;
  EXPECT_TRUE(run.log.ends_with(Submitted() + CleanedUp())) << run.log;
  ExpectAccountsInOrder();
  EXPECT_TRUE(fs::exists(Sent() / "0001.eml"));
}

TEST_F(MailClient, TakesOverFromAnAddinThatFailsAfterTheProbe) {
  Addin addin({.misbehaviour = Misbehaviour::kStopAfterProbe});
  SetAddinPort(addin);
  const Fax fax;
  Prepare(fax);

  const ToolRun run = RunWithClient();

  // The add-in's failure was in the job file meanwhile; the last word is the mail client's.
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(Same(test::WithSuccess(JobFileOf(fax)), FileBytes("job.json")));
  EXPECT_NE(run.log.find(Error("ProcessToOutlookClient(): The client connection to 127.0.0.1:" +
                               std::to_string(addin.port()) + " cannot be established.") +
                         MapiLines(LoggedJob(fax)) + LoggedOn() +
                         Automation("0301234567", "SMTP:0301234567") + Contents() +
                         Attached("letter.pdf") + Submitted() + CleanedUp()),
            std::string::npos)
      << run.log;
  ExpectAccountsInOrder();
  KeepMail(fax, Sent() / "0001.eml", "SMTP", "0301234567");
}

}  // namespace
}  // namespace zentpost::e2e
