#include "mapi/job_processing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::LogText;
using test::MapiJobText;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kSkip[] = u"SkipExtendedMapi";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";

constexpr char kJobFile[] =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

// There is no MAPI.
class JobProcessing : public platform::fake::FakePlatformTest {
 protected:
  JobProcessing() { Prepare(); }

  void Prepare() {
    fake_.Reset();
    fake_.SetFile(kJobName, kJobFile);
  }

  std::string JobFile() const { return fake_.FileBytes(kJobName).value_or("no job file"); }
};

using Fields = std::vector<ParameterList::Entry>;

JobParameters JobWith(const Fields& fields) {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  params.arguments.Add(u"jobname", kJobName);
  params.fromJobFile = true;
  for (const auto& [name, value] : fields) {
    params.faxFields.Add(name, value);
  }
  return params;
}

// What is logged of JobWith's job.
std::string LogOf(MapiJobText job, bool is_sent = true) {
  job.attachment = "C:\\docs\\fax.pdf";
  job.attachment_name = "Letter.pdf";
  return MapiJobLog(job) + (is_sent ? test::kNoMapiLog : "");
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
  EXPECT_EQ(LogText(), LogOf({.receiver = "0301234567",
                              .recipient = "J\xC3\xA4ger",
                              .sender = "Smith",
                              .comment = "100 %s",
                              .subject = "A subject",
                              .send_time = "23:15",
                              .ecm = false,
                              .preview = true}));
}

TEST_F(JobProcessing, NamesAreCaseSensitiveAndOfTheirList) {
  JobParameters params = JobWith(
      {{u"e", u"x"}, {u"k", u"x"}, {u"p", u"x"}, {u"c", u"x"}, {u"o", u"x"}, {u"filename", u"x"}});
  params.arguments.Add(u"+FAX", u"x");
  params.arguments.Add(u"O", u"x");
  params.arguments.Add(u"P", u"x");
  EXPECT_FALSE(ProcessToExtendedMapi(params));
  EXPECT_EQ(LogText(), LogOf({}));
}

const std::pair<const char16_t*, bool> kSwitches[] = {
    {u"-", false}, {u"", true}, {u"1", true}, {u"0", true}, {u"--", true}};

TEST_F(JobProcessing, PreviewIsAnythingButAHyphen) {
  for (const auto& [value, is_on] : kSwitches) {
    Prepare();
    EXPECT_FALSE(ProcessToExtendedMapi(JobWith({{u"P", value}})));
    EXPECT_EQ(LogText(), LogOf({.preview = is_on}));
  }
}

TEST_F(JobProcessing, DeliberateTheEcmLineTellsTheOpposite) {
  for (const auto& [value, is_on] : kSwitches) {
    Prepare();
    EXPECT_FALSE(ProcessToExtendedMapi(JobWith({{u"C", value}})));
    EXPECT_EQ(LogText(), LogOf({.ecm = !is_on}));
  }
}

TEST_F(JobProcessing, AJobWithoutAJobFileFailsAllTheSame) {
  EXPECT_FALSE(ProcessToExtendedMapi({}));
  EXPECT_EQ(LogText(), MapiJobLog(MapiJobText{}) + test::kNoMapiLog);
  EXPECT_EQ(JobFile(), kJobFile);
}

// --- left out ---

TEST_F(JobProcessing, EitherHiveMayLeaveTheSendingOut) {
  const struct {
    std::optional<std::uint32_t> user;
    std::optional<std::uint32_t> machine;
    bool skipped;
  } kCases[] = {
      {std::nullopt, std::nullopt, false},
      {0, std::nullopt, false},
      {std::nullopt, 0, false},
      {0, 0, false},
      {0, 1, true},
      {std::nullopt, 1, true},
      {1, std::nullopt, true},
      {1, 0, true},
      {2, std::nullopt, true},
      {std::nullopt, 0x80000000, true},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(testing::PrintToString(test.user) + ", " + testing::PrintToString(test.machine));
    Prepare();
    if (test.user) {
      fake_.SetDword(Hive::kCurrentUser, kClientKey, kSkip, *test.user);
    }
    if (test.machine) {
      fake_.SetDword(Hive::kLocalMachine, kClientKey, kSkip, *test.machine);
    }
    EXPECT_EQ(ProcessToExtendedMapi(JobWith({})), test.skipped);
    EXPECT_EQ(JobFile(),
              test.skipped ? test::WithSuccess(kJobFile) : test::WithMapiError(kJobFile));
    // Nothing in the log tells of the skipping.
    EXPECT_EQ(LogText(), LogOf({}, !test.skipped));
    // The machine's value is asked for only when the user's is zero.
    const std::vector<std::string> queries = fake_.CallsOf("QueryValue");
    if (test.user && test.machine) {
      EXPECT_EQ(std::count(queries.begin(), queries.end(), "QueryValue(SkipExtendedMapi, 4)"),
                *test.user == 0 ? 2 : 1);
    }
  }
}

// --- diverted into a file ---

TEST_F(JobProcessing, ADivertedJobIsWrittenAndNotSent) {
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"+FAX", u"030"}, {u"O", u"payload.json"}})));
  const test::PayloadText payload = {
      .receiver = "030", .file_name = "C:\\\\docs\\\\fax.pdf", .attachment_name = "Letter.pdf"};
  EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\payload.json"), payload.Bytes());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
  EXPECT_EQ(LogText(), LogOf({.receiver = "030"}, false));
}

TEST_F(JobProcessing, DeliberateADivertedJobCountsAsDeliveredWhateverBecomesOfItsFile) {
  EXPECT_TRUE(ProcessToExtendedMapi(JobWith({{u"O", u"C:\\missing\\payload.json"}})));
  EXPECT_EQ(fake_.FilePaths(), std::vector<std::u16string>{kJobName});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

// --- with a mail client ---

class JobDelivery : public test::MapiTest {
 protected:
  bool Process(const Fields& fields) {
    StartOver();
    fake_.SetFile(kJobName, kJobFile);
    fake_.SetFile(u"C:\\docs\\fax.pdf", "PDF");
    return ProcessToExtendedMapi(JobWith(fields));
  }
};

TEST_F(JobDelivery, EachFieldHasItsPlaceInTheMessage) {
  EXPECT_TRUE(Process({{u"+FAX", u"0301234567"},
                       {u"E", u"recipient"},
                       {u"U", u"sender"},
                       {u"K", u"comment"},
                       {u"S", u"subject"},
                       {u"Z", u"23:15"},
                       {u"C", u"1"}}));
  EXPECT_EQ(mapi_->CallsOf("IMessage::SetProps"),
            std::vector<std::string>{
                "IMessage::SetProps(5, [0x001a001f \"IPM.Note\", 0x0037001f \"subject\", "
                "0x1000001f \"comment\", 0x0042001f \"sender\", 0x0e0a0102 4 bytes 73656e74], "
                "null)"});
  EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients"),
            std::vector<std::string>{
                "IMessage::ModifyRecipients(0x2, [5 [0x3001001f \"recipient\", 0x3002001f "
                "\"SMTP\", 0x3003001f \"0301234567\", 0x0c150003 1, 0x0fff0102 7 bytes "
                "6f6e652d6f6666]])"});
  EXPECT_EQ(mapi_->CallsOf("IAttach::SetProps"),
            std::vector<std::string>{
                "IAttach::SetProps(9, [0x37050003 1, 0x370b0003 -1, 0x37010102 3 bytes 504446, "
                "0x3703001f \".pdf\", 0x3704001f \"Letter.pdf\", 0x3707001f \"Letter.pdf\", "
                "0x37140003 0, 0x3001001f \"Letter.pdf\", 0x7ffa0003 0], null)"});
  EXPECT_EQ(fake_.FileBytes(kJobName), test::WithSuccess(kJobFile));
}

TEST_F(JobDelivery, APreviewOrAMessageWithoutANumberIsShown) {
  const struct {
    Fields fields;
    bool is_shown;
    bool has_recipient;
  } kCases[] = {
      {{}, true, false},
      {{{u"+FAX", u""}, {u"P", u"-"}}, true, false},
      {{{u"+FAX", u"030"}}, false, true},
      {{{u"+FAX", u"030"}, {u"P", u"-"}}, false, true},
      {{{u"+FAX", u"030"}, {u"P", u""}}, true, true},
      {{{u"+FAX", u"030"}, {u"P", u"1"}}, true, true},
      {{{u"+FAX", u"030"}, {u"P", u"0"}}, true, true},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(&test - kCases);
    EXPECT_TRUE(Process(test.fields));
    EXPECT_EQ(mapi_->CallsOf("IMAPISession::ShowForm").size(), test.is_shown ? 1u : 0u);
    EXPECT_EQ(mapi_->CallsOf("IMessage::SubmitMessage").size(), test.is_shown ? 0u : 1u);
    EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients").size(), test.has_recipient ? 1u : 0u);
  }
}

}  // namespace
}  // namespace zentpost
