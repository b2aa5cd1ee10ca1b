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

namespace zentpost {
namespace {

using platform::Hive;
using test::LogText;
using test::MapiJobText;

constexpr char16_t kClientKey[] = u"Software\\Sollvex\\FaxClient";
constexpr char16_t kSkip[] = u"SkipExtendedMapi";
constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";

const std::string kJobFile =
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

JobParameters JobWith(const std::vector<ParameterList::Entry>& fields) {
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

// What is logged of a job, as it stands or with JobWith's document and attachment.
std::string LogOfAnyJob(const MapiJobText& job, bool is_sent = true) {
  std::string log;
  for (const std::string& line : MapiJobLines(job)) {
    log += "INFO: " + line + "\n";
  }
  return log + (is_sent ? test::kNoMapiLog : "");
}
std::string LogOf(MapiJobText job, bool is_sent = true) {
  job.attachment = "C:\\docs\\fax.pdf";
  job.attachment_name = "Letter.pdf";
  return LogOfAnyJob(job, is_sent);
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
  EXPECT_EQ(LogText(), LogOfAnyJob({}));
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

}  // namespace
}  // namespace zentpost
