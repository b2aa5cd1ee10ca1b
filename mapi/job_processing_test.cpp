#include "mapi/job_processing.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/steps.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::LogText;
using test::PayloadText;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kSkip[] = u"SkipExtendedMapi";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";

const std::string kJobFile =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

class JobProcessing : public platform::fake::MachineTest {
 protected:
  void SetUp() override {
    MachineTest::SetUp();
    Furnish();
  }

  // A fresh machine with a job file and without MAPI.
  void Furnish() {
    machine_.Reset();
    machine_.SetFile(kJobName, kJobFile);
  }

  std::string JobFile() const { return machine_.FileBytes(kJobName).value_or("no job file"); }
};

JobParameters Job() {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  params.arguments.Add(u"jobname", kJobName);
  params.fromJobFile = true;
  return params;
}

JobParameters JobWith(const std::vector<ParameterList::Entry>& fields) {
  JobParameters params = Job();
  for (const auto& [name, value] : fields) {
    params.faxFields.Add(name, value);
  }
  return params;
}

// The values that the log shows of a job.
struct LoggedJob {
  std::string receiver{};
  std::string recipient{};
  std::string sender_name{};
  std::string comment{};
  std::string subject{};
  std::string send_time{};
  std::string attachment = "C:\\docs\\fax.pdf";
  std::string attach_name = "Letter.pdf";
  std::string ecm = "True";
  std::string preview = "False";

  [[nodiscard]] std::string Lines() const {
    const std::string start = "INFO: ProcessToExtendedMapi(): ";
    return start + "Processing single job to extended MAPI.\n" +  //
           start + "Parameters :\n" +                             //
           start + "Receiver   : " + receiver + "\n" +            //
           start + "Recipient  : " + recipient + "\n" +           //
           start + "Sendername : " + sender_name + "\n" +         //
           start + "Comment    : " + comment + "\n" +             //
           start + "Subject    : " + subject + "\n" +             //
           start + "SendTime   : " + send_time + "\n" +           //
           start + "Attachment : " + attachment + "\n" +          //
           start + "Attach Name: " + attach_name + "\n" +         //
           start + "ECM        : " + ecm + "\n" +                 //
           start + "Preview    : " + preview + "\n";
  }

  // The same of a job that goes on to SendMail.
  [[nodiscard]] std::string LinesAndNoMapi() const { return Lines() + test::kNoMapiLog; }
};

TEST_F(JobProcessing, AJobThatSaysNothingIsLoggedWithEmptyValues) {
  EXPECT_FALSE(ProcessToExtendedMapi({}));
  EXPECT_EQ(LogText(),
            "INFO: ProcessToExtendedMapi(): Processing single job to extended MAPI.\n"
            "INFO: ProcessToExtendedMapi(): Parameters :\n"
            "INFO: ProcessToExtendedMapi(): Receiver   : \n"
            "INFO: ProcessToExtendedMapi(): Recipient  : \n"
            "INFO: ProcessToExtendedMapi(): Sendername : \n"
            "INFO: ProcessToExtendedMapi(): Comment    : \n"
            "INFO: ProcessToExtendedMapi(): Subject    : \n"
            "INFO: ProcessToExtendedMapi(): SendTime   : \n"
            "INFO: ProcessToExtendedMapi(): Attachment : \n"
            "INFO: ProcessToExtendedMapi(): Attach Name: \n"
            "INFO: ProcessToExtendedMapi(): ECM        : True\n"
            "INFO: ProcessToExtendedMapi(): Preview    : False\n" +
                std::string(test::kNoMapiLog));
}

TEST_F(JobProcessing, EachValueIsLoggedInItsLine) {
  EXPECT_FALSE(ProcessToExtendedMapi(JobWith({{u"B", u"9600"},
                                              {u"C", u"1"},
                                              {u"E", u"J\u00E4ger"},
                                              {u"K", u"100 %s"},
                                              {u"N", u"7"},
                                              {u"P", u"1"},
                                              {u"S", u"A subject"},
                                              {u"U", u"Smith"},
                                              {u"Z", u"23:15"},
                                              {u"+FAX", u"0301234567"},
                                              {u"S", u"a second subject"}})));
  EXPECT_EQ(LogText(), (LoggedJob{.receiver = "0301234567",
                                  .recipient = "J\xC3\xA4ger",
                                  .sender_name = "Smith",
                                  .comment = "100 %s",
                                  .subject = "A subject",
                                  .send_time = "23:15",
                                  .ecm = "False",
                                  .preview = "True"}
                            .LinesAndNoMapi()));
}

TEST_F(JobProcessing, NamesAreCaseSensitiveAndOfTheirList) {
  JobParameters params = JobWith(
      {{u"e", u"x"}, {u"k", u"x"}, {u"p", u"x"}, {u"c", u"x"}, {u"o", u"x"}, {u"filename", u"x"}});
  params.arguments.Add(u"+FAX", u"x");
  params.arguments.Add(u"O", u"x");
  params.arguments.Add(u"P", u"x");
  EXPECT_FALSE(ProcessToExtendedMapi(params));
  EXPECT_EQ(LogText(), LoggedJob().LinesAndNoMapi());
}

TEST_F(JobProcessing, PreviewIsAnythingButAHyphen) {
  for (const auto& [value, shown] : std::vector<std::pair<std::u16string, std::string>>{
           {u"-", "False"}, {u"", "True"}, {u"1", "True"}, {u"0", "True"}, {u"--", "True"}}) {
    SCOPED_TRACE(testing::PrintToString(value));
    Furnish();
    EXPECT_FALSE(ProcessToExtendedMapi(JobWith({{u"P", value}})));
    EXPECT_EQ(LogText(), LoggedJob{.preview = shown}.LinesAndNoMapi());
  }
}

TEST_F(JobProcessing, DeliberateTheEcmLineTellsTheOpposite) {
  for (const auto& [value, shown] : std::vector<std::pair<std::u16string, std::string>>{
           {u"-", "True"}, {u"", "False"}, {u"1", "False"}, {u"0", "False"}, {u"--", "False"}}) {
    SCOPED_TRACE(testing::PrintToString(value));
    Furnish();
    EXPECT_FALSE(ProcessToExtendedMapi(JobWith({{u"C", value}})));
    EXPECT_EQ(LogText(), LoggedJob{.ecm = shown}.LinesAndNoMapi());
  }
}

TEST_F(JobProcessing, AFailedSendingIsTheJobsResult) {
  EXPECT_FALSE(ProcessToExtendedMapi(Job()));
  EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, -2147467259, "MAPI Error"));
}

TEST_F(JobProcessing, AJobWithoutAJobFileFailsAllTheSame) {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  EXPECT_FALSE(ProcessToExtendedMapi(params));
  EXPECT_EQ(LogText(), LoggedJob{.attach_name = ""}.LinesAndNoMapi());
  EXPECT_EQ(JobFile(), kJobFile);
}

TEST_F(JobProcessing, AJobFileThatCannotBeRewrittenChangesNoOutcome) {
  machine_.SetReadOnly(kJobName, true);
  EXPECT_FALSE(ProcessToExtendedMapi(Job()));
  machine_.SetDword(Hive::kCurrentUser, kClientKey, kSkip, 1);
  EXPECT_TRUE(ProcessToExtendedMapi(Job()));
  EXPECT_EQ(JobFile(), kJobFile);
}

TEST_F(JobProcessing, AnEarlierResultIsReplaced) {
  machine_.SetFile(kJobName, test::WithResult(kJobFile, 1, 1004,
                                              "OutlookClient: Connection cannot be established."));
  EXPECT_FALSE(ProcessToExtendedMapi(Job()));
  EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
}

// --- left out ---

TEST_F(JobProcessing, EitherHiveMayLeaveTheSendingOut) {
  struct Case {
    const char* name;
    std::optional<std::uint32_t> user;
    std::optional<std::uint32_t> machine;
    bool skipped;
  };
  const Case kCases[] = {
      {"neither", std::nullopt, std::nullopt, false},
      {"user 0, machine missing", 0, std::nullopt, false},
      {"user missing, machine 0", std::nullopt, 0, false},
      {"both 0", 0, 0, false},
      {"user 0, machine 1", 0, 1, true},
      {"user missing, machine 1", std::nullopt, 1, true},
      {"user 1, machine missing", 1, std::nullopt, true},
      {"user 1, machine 0", 1, 0, true},
      {"user 2", 2, std::nullopt, true},
      {"machine with the highest bit", std::nullopt, 0x80000000, true},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    Furnish();
    if (test.user) {
      machine_.SetDword(Hive::kCurrentUser, kClientKey, kSkip, *test.user);
    }
    if (test.machine) {
      machine_.SetDword(Hive::kLocalMachine, kClientKey, kSkip, *test.machine);
    }
    EXPECT_EQ(ProcessToExtendedMapi(Job()), test.skipped);
    EXPECT_EQ(JobFile(),
              test.skipped ? test::WithSuccess(kJobFile) : test::WithMapiError(kJobFile));
    // Nothing in the log tells of the skipping.
    EXPECT_EQ(LogText(), test.skipped ? LoggedJob().Lines() : LoggedJob().LinesAndNoMapi());
  }
}

TEST_F(JobProcessing, TheMachinesValueIsAskedForOnlyWhenTheUsersIsZero) {
  machine_.SetDword(Hive::kCurrentUser, kClientKey, kSkip, 0);
  machine_.SetDword(Hive::kLocalMachine, kClientKey, kSkip, 1);
  EXPECT_TRUE(ProcessToExtendedMapi(Job()));
  EXPECT_EQ(machine_.CallsOf("QueryValue"), [] {
    // Each of the twelve lines asks both hives for the log's own value.
    std::vector<std::string> calls(24, "QueryValue(LogLevel, 4)");
    calls.insert(calls.end(), 2, "QueryValue(SkipExtendedMapi, 4)");
    return calls;
  }());
  for (const std::string& call : machine_.CallsOf("OpenKey")) {
    EXPECT_TRUE(call == "OpenKey(HKCU, Software\\Sollvex\\FaxClient, 0x20019)" ||
                call == "OpenKey(HKLM, Software\\Sollvex\\FaxClient, 0x20019)")
        << call;
  }

  machine_.SetDword(Hive::kCurrentUser, kClientKey, kSkip, 1);
  machine_.ClearCalls();
  EXPECT_TRUE(ProcessToExtendedMapi(Job()));
  EXPECT_EQ(machine_.CallsOf("QueryValue").size(), 25u);
}

// --- diverted into a file ---

TEST_F(JobProcessing, ADivertedJobIsWrittenAndNotSent) {
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"+FAX", u"030"}, {u"O", u"payload.json"}})));
  EXPECT_EQ(
      machine_.FileBytes(u"C:\\Temp\\payload.json"),
      (PayloadText{
          .receiver = "030", .file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"}
           .Bytes()));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), LoggedJob{.receiver = "030"}.Lines());
}

TEST_F(JobProcessing, ADivertedJobDoesNotAskWhetherToSkip) {
  machine_.AddKey(Hive::kCurrentUser, kClientKey);
  machine_.AddKey(Hive::kLocalMachine, kClientKey);
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"O", u"C:\\Temp\\x\\..\\payload.json"}})));
  for (const std::string& call : machine_.CallsOf("QueryValue")) {
    EXPECT_EQ(call, "QueryValue(LogLevel, 4)");
  }
}

TEST_F(JobProcessing, StepsFollowOneAnother) {
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"O", u"payload.json"}})));
  std::vector<std::string> steps = test::Steps();
  ASSERT_GT(steps.size(), 12u);
  EXPECT_EQ(steps[0], "log INFO: ProcessToExtendedMapi(): Processing single job to extended MAPI.");
  EXPECT_EQ(steps[11], "log INFO: ProcessToExtendedMapi(): Preview    : False");
  steps.erase(steps.begin(), steps.begin() + 12);
  const PayloadText payload = {.file_name = "C:\\\\docs\\\\fax.pdf",
                               .attachment_name = "Letter.pdf"};
  EXPECT_EQ(steps, (std::vector<std::string>{
                       "TemporaryFolder(260)", "IdentifyFile(C:\\Temp\\payload.json)",
                       "OpenFileAt(C:\\Temp\\payload.json, kRewrite)",
                       "WriteBytes(C:\\Temp\\payload.json, " +
                           std::to_string(payload.Bytes().size()) + ")",
                       "OpenFileAt(C:\\jobs\\a.json, kRead)", "QueryFileSize(C:\\jobs\\a.json)",
                       "ReadBytes(C:\\jobs\\a.json, " + std::to_string(kJobFile.size()) + ")",
                       "OpenFileAt(C:\\jobs\\a.json, kRewrite)",
                       "WriteBytes(C:\\jobs\\a.json, " +
                           std::to_string(test::WithSuccess(kJobFile).size()) + ")"}));
}

TEST_F(JobProcessing, DeliberateADivertedJobCountsAsDeliveredWhateverBecomesOfItsFile) {
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"O", u"C:\\missing\\payload.json"}})));
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{kJobName});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(JobProcessing, TheCallersJobStaysAsItIs) {
  const JobParameters params = JobWith({{u"S", u"x"}});
  EXPECT_FALSE(ProcessToExtendedMapi(params));
  EXPECT_EQ(params.arguments.Entries(), Job().arguments.Entries());
  EXPECT_EQ(params.faxFields.Entries(), (std::vector<ParameterList::Entry>{{u"S", u"x"}}));
}

}  // namespace
}  // namespace zentpost
