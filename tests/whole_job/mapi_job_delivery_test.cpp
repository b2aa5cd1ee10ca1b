// What of a job comes to stand where in the mail client's message.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mapi/job_processing.h"
#include "testing/expected_texts.h"
#include "testing/mapi_test.h"

namespace zentpost {
namespace {

constexpr char kJobFile[] =
    "{\n\t\"FilePath\":\t\"C:\\\\docs\\\\fax.pdf\",\n\t\"SourceFileName\":\t\"Letter\"\n}";

using Fields = std::vector<ParameterList::Entry>;

class JobDelivery : public test::MapiTest {
 protected:
  bool Process(const Fields& fields) {
    StartOver();
    fake_.SetFile(u"C:\\jobs\\a.json", kJobFile);
    fake_.SetFile(u"C:\\docs\\fax.pdf", "PDF");
    JobParameters params;
    params.fromJobFile = true;
    params.arguments.Add(u"jobname", u"C:\\jobs\\a.json");
    params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
    params.arguments.Add(u"attdisplayname", u"Letter.pdf");
    for (const auto& [name, value] : fields) {
      params.faxFields.Add(name, value);
    }
    return ProcessToExtendedMapi(params);
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
  EXPECT_EQ(fake_.FileBytes(u"C:\\jobs\\a.json"), test::WithSuccess(kJobFile));
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
