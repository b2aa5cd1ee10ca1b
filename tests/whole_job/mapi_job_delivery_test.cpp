// Whole jobs that reach the mail client: what of the job comes to stand where in the message, and
// what comes back as the job's outcome.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/application.h"
#include "mapi/job_processing.h"
#include "testing/expected_texts.h"
#include "testing/mapi_test.h"

namespace zentpost {
namespace {

using platform::Hive;

constexpr char16_t kJobName[] = u"C:\\jobs\\a.json";
constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";
constexpr char kJobFile[] =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\",\n"
    "\t\"Cmd\":\t{\n\t\t\"Receiver\":\t[\"0301234567\"]\n\t}\n}";

using Fields = std::vector<ParameterList::Entry>;

class JobDelivery : public test::MapiTest {
 protected:
  JobDelivery() { Furnish(); }

  void Furnish() {
    StartOver();
    machine_.SetFile(kJobName, kJobFile);
    machine_.SetFile(kDocument, "PDF");
  }

  static bool Process(const Fields& fields) {
    JobParameters params;
    params.fromJobFile = true;
    params.arguments.Add(u"jobname", kJobName);
    params.arguments.Add(u"filename", kDocument);
    params.arguments.Add(u"attdisplayname", u"Letter.pdf");
    for (const auto& [name, value] : fields) {
      params.faxFields.Add(name, value);
    }
    return ProcessToExtendedMapi(params);
  }

  // The whole program; gives its exit code.
  static int Run(const char16_t* command_line) {
    CAmbroluxPrintSendApp application;
    application.m_lpCmdLine = command_line;
    EXPECT_FALSE(application.InitInstance());
    return application.ExitInstance();
  }

  std::string JobFile() const { return machine_.FileBytes(kJobName).value_or("no job file"); }
  bool IsSubmitted() const { return !mapi_->CallsOf("IMessage::SubmitMessage").empty(); }
  bool IsShown() const { return !mapi_->CallsOf("IMAPISession::ShowForm").empty(); }
};

TEST_F(JobDelivery, EachFieldHasItsPlaceInTheMessage) {
  EXPECT_TRUE(Process({{u"+FAX", u"0301234567"},
                       {u"E", u"recipient"},
                       {u"U", u"sender"},
                       {u"K", u"comment"},
                       {u"S", u"subject"},
                       {u"Z", u"23:15"},
                       {u"C", u"1"}}));
  EXPECT_TRUE(IsSubmitted());
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
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(JobDelivery, AJobFileIsDeliveredAndItsDocumentDeleted) {
  EXPECT_EQ(Run(kJobName), 0);
  EXPECT_TRUE(IsSubmitted());
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{kJobName});
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(JobDelivery, ADocumentOnTheCommandLineIsDeliveredUnderNoName) {
  EXPECT_EQ(Run(u"C:\\docs\\fax.pdf \"0301234567;SHello\""), 0);
  EXPECT_TRUE(IsSubmitted());
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
  EXPECT_FALSE(machine_.FileBytes(kDocument));
  EXPECT_EQ(JobFile(), kJobFile);
}

TEST_F(JobDelivery, WhatFailsIsTheJobsResult) {
  const struct {
    const char* call;
    std::uint32_t code;
    std::int32_t in_job_file;
  } kCases[] = {
      {"MAPILogonEx", 0x80040111, -2147221231},
      {"IMAPISession::OpenAddressBook", 0x8004010F, -2147221233},
      {"IAttach::SaveChanges", 0x8004010D, -2147221235},
      {"IMessage::SubmitMessage", 0x80040115, -2147221227},
      // The reason for not starting is only in the log.
      {"MAPIInitialize", 0x80040110, -2147467259},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.call);
    Furnish();
    mapi_->Plan({.call = test.call, .from = true, .code = MakeResult(test.code)});
    EXPECT_EQ(Run(kJobName), 1);
    EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, test.in_job_file, "MAPI Error"));
  }
}

TEST_F(JobDelivery, ASuccessIsAlwaysToldAsZero) {
  mapi_->Answer("IMessage::SubmitMessage", 0, 0x00040680);  // MAPI_W_PARTIAL_COMPLETION
  EXPECT_TRUE(Process({{u"+FAX", u"030"}}));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(JobDelivery, WithoutANumberTheMessageIsShown) {
  EXPECT_TRUE(Process({}));
  EXPECT_TRUE(IsShown());
  EXPECT_FALSE(IsSubmitted());
  EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients"), std::vector<std::string>());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));

  Furnish();
  EXPECT_TRUE(Process({{u"+FAX", u""}, {u"P", u"-"}}));
  EXPECT_TRUE(IsShown());
  EXPECT_FALSE(IsSubmitted());
}

TEST_F(JobDelivery, APreviewIsShown) {
  for (const auto& [value, shown] : std::vector<std::pair<std::u16string, bool>>{
           {u"-", false}, {u"", true}, {u"1", true}, {u"0", true}}) {
    Furnish();
    EXPECT_TRUE(Process({{u"+FAX", u"030"}, {u"P", value}}));
    EXPECT_EQ(IsShown(), shown);
    EXPECT_EQ(IsSubmitted(), !shown);
    EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients").size(), 1u);
  }
}

TEST_F(JobDelivery, AFormThatTheUserCancelsCountsAsDelivered) {
  mapi_->Answer("IMAPISession::ShowForm", 0, MAPI_E_USER_CANCEL);
  EXPECT_TRUE(Process({}));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

TEST_F(JobDelivery, AFormThatCannotBeShownIsAFailure) {
  mapi_->Answer("IMAPISession::ShowForm", 0, MAPI_E_NOT_FOUND);
  EXPECT_FALSE(Process({}));
  EXPECT_EQ(JobFile(), test::WithResult(kJobFile, 1, MAPI_E_NOT_FOUND, "MAPI Error"));
}

TEST_F(JobDelivery, WhatIsSkippedOrDivertedNeverReachesMapi) {
  ForgetMapiLoading();
  machine_.SetDword(Hive::kLocalMachine, u"Software\\Sollvex\\FaxClient", u"SkipExtendedMapi", 1);
  EXPECT_TRUE(Process({{u"+FAX", u"030"}}));
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));

  machine_.SetDword(Hive::kLocalMachine, u"Software\\Sollvex\\FaxClient", u"SkipExtendedMapi", 0);
  EXPECT_TRUE(Process({{u"+FAX", u"030"}, {u"O", u"payload.json"}}));

  EXPECT_EQ(mapi_->Calls(), std::vector<std::string>());
  EXPECT_EQ(machine_.CallsOf("LoadModule"), std::vector<std::string>());
  EXPECT_EQ(machine_.FileBytes(kDocument), "PDF");
}

TEST_F(JobDelivery, WithoutALibraryTheJobFails) {
  StartOverWithoutLibrary();
  machine_.SetFile(kJobName, kJobFile);
  machine_.SetFile(kDocument, "PDF");
  EXPECT_EQ(Run(kJobName), 1);
  EXPECT_EQ(JobFile(), test::WithMapiError(kJobFile));
  EXPECT_EQ(machine_.FileBytes(kDocument), "PDF");
}

TEST_F(JobDelivery, TakesOverWhenTheAddinRefuses) {
  machine_.SetString(Hive::kCurrentUser, u"Software\\Sollvex\\OutlookAddin", u"TolvanAddinPort",
                     u"5000");
  machine_.Listen(5000, platform::fake::Peer::kAccept, 1);  // for the probe alone
  EXPECT_EQ(Run(kJobName), 0);
  EXPECT_TRUE(IsSubmitted());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

// The code of a document that cannot be opened is the system's own, which is positive.
TEST_F(JobDelivery, DeliberateAMissingDocumentIsNoFailure) {
  machine_.Remove(kDocument);
  EXPECT_EQ(Run(kJobName), 0);
  EXPECT_TRUE(IsSubmitted());
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>());
  EXPECT_EQ(JobFile(), test::WithSuccess(kJobFile));
}

}  // namespace
}  // namespace zentpost
