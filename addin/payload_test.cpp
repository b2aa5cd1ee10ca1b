#include "addin/payload.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using test::LogText;
using test::PayloadText;
using Entries = std::vector<ParameterList::Entry>;
using Calls = std::vector<std::string>;
using Paths = std::vector<std::u16string>;

constexpr char16_t kFile[] = u"C:\\Temp\\payload.json";
constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";

class Payload : public platform::fake::FakePlatformTest {};

JobParameters JobOf(const Entries& arguments, const Entries& fields = {}) {
  JobParameters job;
  for (const auto& [name, value] : arguments) {
    job.arguments.Add(name, value);
  }
  for (const auto& [name, value] : fields) {
    job.faxFields.Add(name, value);
  }
  return job;
}

// An entry of some value for each name.
Entries EachOf(const std::vector<std::u16string>& names) {
  Entries entries;
  for (const std::u16string& name : names) {
    entries.emplace_back(name, u"x");
  }
  return entries;
}

// A job with something in every place, and in some that the payload has no use for.
const Entries kArguments = {{u"filename", kDocument},
                            {u"attdisplayname", u"Letter.pdf"},
                            {u"jobname", u"C:\\jobs\\a.json"},
                            {u"preview", u"1"},
                            {u"subject", u"of the command line"}};
const Entries kFields = {{u"B", u"9600"},
                         {u"C", u"1"},
                         {u"E", u"Miller"},
                         {u"K", u"A comment"},
                         {u"N", u"7"},
                         {u"O", u"out.json"},
                         {u"P", u"1"},
                         {u"S", u"A subject"},
                         {u"U", u"Smith"},
                         {u"Z", u"23:15"},
                         {u"+FAX", u"0301234567"}};

JobParameters WholeJob() {
  return JobOf(kArguments, kFields);
}

PayloadText WholePayload() {
  return {.receiver = "0301234567",
          .recipient_name = "Miller",
          .sender_name = "Smith",
          .file_name = "C:\\\\docs\\\\fax.pdf",
          .attachment_name = "Letter.pdf",
          .comment = "A comment",
          .subject = "A subject",
          .send_time = "23:15",
          .ecm = false,
          .preview = true};
}

TEST_F(Payload, AJobThatSaysNothingHasAllTenMembers) {
  EXPECT_EQ(CCommands::json({}), PayloadText().Bytes());
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, AWholeJobFillsEveryMemberWhateverTheOrderOfItsFields) {
  const std::string payload = WholePayload().Bytes();
  EXPECT_EQ(CCommands::json(WholeJob()), payload);
  // Nothing but conversions is asked of the system.
  const Calls calls = fake_.Calls();
  EXPECT_EQ(calls.size(), 16u);
  for (const std::string& call : calls) {
    EXPECT_TRUE(call.starts_with("AllocateBlock(") || call.starts_with("WideToBytes(65001, "))
        << call;
  }
  EXPECT_EQ(CCommands::json(JobOf(kArguments, Entries(kFields.rbegin(), kFields.rend()))), payload);
  EXPECT_EQ(LogText(), "");
}

// The add-in expects the two switches so: they are not alike.
TEST_F(Payload, DeliberateEcmIsTrueAndPreviewIsFalseWithoutAField) {
  EXPECT_EQ(CCommands::json(JobOf({}, {{u"C", u"-"}, {u"P", u"-"}})), PayloadText().Bytes());
  for (const char16_t* value : {u"", u"0", u"1", u"--", u"- ", u"true"}) {
    EXPECT_EQ(CCommands::json(JobOf({}, {{u"C", value}})), PayloadText{.ecm = false}.Bytes());
    EXPECT_EQ(CCommands::json(JobOf({}, {{u"P", value}})), PayloadText{.preview = true}.Bytes());
  }
}

TEST_F(Payload, WhatAJobSaysIsTakenFromTheFirstEntryOfItsNameInItsList) {
  struct Case {
    const char* name;
    Entries arguments;
    Entries fields;
    PayloadText payload;
  };
  const Case cases[] = {
      {"the first of two entries",
       {{u"filename", u"first.pdf"}, {u"filename", u"second.pdf"}},
       {{u"E", u"first"}, {u"E", u"second"}, {u"P", u"-"}, {u"P", u"1"}},
       {.recipient_name = "first", .file_name = "first.pdf"}},
      {"names in another case",
       {{u"FileName", u"x"}, {u"AttDisplayName", u"x"}},
       EachOf({u"e", u"+fax", u"k", u"s", u"u", u"z", u"c", u"p"}),
       {}},
      {"names in the other list",
       EachOf({u"+FAX", u"E", u"K", u"S", u"U", u"Z", u"C", u"P"}),
       {{u"filename", u"x"}, {u"attdisplayname", u"x"}},
       {}},
      {"nothing is trimmed",
       {},
       {{u"+FAX", u"  +49 (30) 12/34-5 \t"}},
       {.receiver = "  +49 (30) 12/34-5 \\t"}},
      {"UTF-8 that was widened is not encoded twice",
       {},
       {{u"E", u"J\u00C3\u00A4ger"}},
       {.recipient_name = "J\xC3\xA4ger"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(CCommands::json(JobOf(c.arguments, c.fields)), c.payload.Bytes()) << c.name;
  }
}

TEST_F(Payload, WhatJsonReservesIsEscapedAndNothingElse) {
  // A text, and how it is written.
  const std::pair<const char16_t*, const char*> cases[] = {
      {u"a \"quoted\"\r\nline", "a \\\"quoted\\\"\\r\\nline"},
      {u"back\\slash / slash", "back\\\\slash / slash"},
      {u"\b\f\n\r\t", "\\b\\f\\n\\r\\t"},
      {u"\u0001\u0002\u0007\u000B\u000E\u001B\u001F",
       "\\u0001\\u0002\\u0007\\u000b\\u000e\\u001b\\u001f"},
      {u"\u007F'<>&%s", "\x7F'<>&%s"},
      {u"J\u00E4ger", "J\xC3\xA4ger"},
      {u"12 \u20AC", "12 \xE2\x82\xAC"},
      {u"\u4E2D\u6587", "\xE4\xB8\xAD\xE6\x96\x87"},
      {u"fax \U0001F4E0", "fax \xF0\x9F\x93\xA0"},
      {u"lone \xD83D", "lone \xEF\xBF\xBD"},
  };
  for (const auto& [text, written] : cases) {
    EXPECT_EQ(CCommands::json(JobOf({}, {{u"K", text}})), PayloadText{.comment = written}.Bytes());
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, AValueThatCannotBeConvertedIsEmpty) {
  EXPECT_EQ(CCommands::json(JobOf({{u"filename", u"\u4E2D\u6587\u5B57"}}, {{u"S", u"s"}})),
            PayloadText{.subject = "s"}.Bytes());
  EXPECT_EQ(LogText(), test::FailureLog(test::kUtf8Failed, "0000007a"));
}

// A job without the memory for some of its content must not count as delivered.
TEST_F(Payload, EachValueFailsForItself) {
  std::string PayloadText::*const kInOrder[] = {
      &PayloadText::receiver,  &PayloadText::recipient_name,  &PayloadText::sender_name,
      &PayloadText::file_name, &PayloadText::attachment_name, &PayloadText::comment,
      &PayloadText::subject,   &PayloadText::send_time,
  };
  for (std::size_t i = 0; i < std::size(kInOrder); ++i) {
    SCOPED_TRACE(i);
    fake_.Reset();
    fake_.FailCallOf("WideToBytes", i, platform::kInvalidParameter);
    PayloadText payload = WholePayload();
    (payload.*kInOrder[i]).clear();
    EXPECT_EQ(CCommands::json(WholeJob()), payload.Bytes());
    fake_.FailCallOf("AllocateBlock", i, platform::kNotEnoughMemory);
    EXPECT_EQ(CCommands::json(WholeJob()), "");
    EXPECT_EQ(LogText(), test::FailureLog(test::kUtf8Failed, "00000057") +
                             test::FailureLog(test::kUtf8NoMemory, "00000008"));
  }
}

TEST_F(Payload, WithoutMemoryThereIsNoPayloadNorAFileOfIt) {
  const JobParameters job = WholeJob();
  const std::u16string name = u"payload.json";
  test::SweepAllocations("payload", [&](test::AllocationFaults& faults) {
    std::string payload = "untouched";
    EXPECT_TRUE(faults.Run([&] { payload = CCommands::json(job); }));
    EXPECT_EQ(payload, faults.Taken() ? "" : WholePayload().Bytes());
  });
  test::SweepAllocations("payload file", [&](test::AllocationFaults& faults) {
    fake_.Reset();
    PayloadFile result{};
    EXPECT_TRUE(faults.Run([&] { result = WriteAddinJsonFile(job, name); }));
    EXPECT_EQ(result, faults.Taken() ? PayloadFile::kNoMemory : PayloadFile::kWritten);
    EXPECT_EQ(fake_.FileBytes(kFile).value_or(""), faults.Taken() ? "" : WholePayload().Bytes());
    EXPECT_EQ(fake_.OpenHandles(), 0u);
  });
}

// --- the file ---

TEST_F(Payload, ABareNameIsWrittenToTheTemporaryFolderAndAPathTakenAsItIs) {
  // A name, and the file that it names.
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"payload.json", kFile},
      {u"C:/out/payload.json", u"C:\\out\\payload.json"},
      {u"C:\\out\\payload.json", u"C:\\out\\payload.json"},
      {u"out\\payload.json", u"out\\payload.json"},
      {u"out/payload.json", u"out\\payload.json"},
      {u".\\payload.json", u"payload.json"},
  };
  for (const auto& [path, file] : cases) {
    SCOPED_TRACE(test::Readable(path));
    fake_.Reset();
    fake_.AddFolder(u"C:\\out");
    fake_.AddFolder(u"out");
    fake_.AddFolder(u".");
    EXPECT_EQ(WriteAddinJsonFile(WholeJob(), path), PayloadFile::kWritten);
    EXPECT_EQ(fake_.FilePaths(), Paths{file});
    EXPECT_EQ(fake_.FileBytes(file), WholePayload().Bytes());
    EXPECT_EQ(fake_.CallsOf("TemporaryFolder").empty(), file != kFile);
    EXPECT_EQ(LogText(), "");
  }
}

TEST_F(Payload, TheFileIsOpenedBeforeThePayloadIsBuiltAndReplaced) {
  fake_.SetFile(kFile, std::string(5000, 'x'));
  EXPECT_EQ(WriteAddinJsonFile(JobOf({}, {{u"S", u"\u00E4"}}), u"payload.json"),
            PayloadFile::kWritten);
  const std::string payload = PayloadText{.subject = "\xC3\xA4"}.Bytes();
  EXPECT_EQ(fake_.FileBytes(kFile), payload);
  EXPECT_EQ(fake_.Calls(),
            (Calls{"TemporaryFolder(260)", "IdentifyFile(C:\\Temp\\payload.json)",
                   "OpenFileAt(C:\\Temp\\payload.json, kRewrite)", "AllocateBlock(4)",
                   "WideToBytes(65001, 1, 4)",
                   "WriteBytes(C:\\Temp\\payload.json, " + std::to_string(payload.size()) + ")"}));
}

TEST_F(Payload, AFileThatCannotBeOpenedIsGivenUpSilently) {
  fake_.SetFile(u"C:\\Temp\\read-only.json", "before");
  fake_.SetReadOnly(u"C:\\Temp\\read-only.json", true);
  fake_.AddFolder(u"C:\\Temp\\folder");
  for (const char16_t* path :
       {u"C:\\missing\\payload.json", u"read-only.json", u"folder", u"", u"C:\\Temp\\"}) {
    EXPECT_EQ(WriteAddinJsonFile(WholeJob(), path), PayloadFile::kNotOpened);
  }
  EXPECT_EQ(fake_.FilePaths(), Paths{u"C:\\Temp\\read-only.json"});
  EXPECT_EQ(fake_.FileBytes(u"C:\\Temp\\read-only.json"), "before");
  EXPECT_EQ(LogText(), "");
}

// The document must not be overwritten by what is said about it.
TEST_F(Payload, TheJobsOwnFilesAreNotWrittenTo) {
  constexpr char16_t kJobFile[] = u"C:\\Temp\\job.json";
  for (const char16_t* path : {kDocument, u"C:/docs//fax.pdf", u"C:\\docs\\link.pdf",
                               u"C:\\Temp\\link.json", u"job.json", u"link.json"}) {
    SCOPED_TRACE(test::Readable(path));
    fake_.Reset();
    fake_.SetFile(kDocument, "document");
    fake_.SetFile(kJobFile, "job");
    fake_.AddLink(kDocument, u"C:\\docs\\link.pdf");
    fake_.AddLink(kJobFile, u"C:\\Temp\\link.json");
    EXPECT_EQ(WriteAddinJsonFile(JobOf({{u"filename", kDocument}, {u"jobname", kJobFile}}), path),
              PayloadFile::kNotOpened);
    EXPECT_EQ(fake_.FileBytes(kDocument), "document");
    EXPECT_EQ(fake_.FileBytes(kJobFile), "job");
    EXPECT_EQ(fake_.CallsOf("OpenFileAt"), Calls());
    EXPECT_EQ(LogText(), "");
  }
}

// A file that is there and cannot be told from the document is left alone; one of a file system
// that cannot tell files is told by its name.
TEST_F(Payload, WhatCannotBeIdentifiedMayBeTheDocument) {
  constexpr char16_t kOther[] = u"C:\\docs\\other";
  struct Case {
    const char16_t* path;
    std::size_t call;
    platform::Status status;
    PayloadFile result;
  };
  const Case cases[] = {
      {kOther, 2, platform::kAccessDenied, PayloadFile::kWritten},  // nothing fails
      {kOther, 0, platform::kAccessDenied, PayloadFile::kNotOpened},
      {kOther, 0, platform::kNotSupported, PayloadFile::kWritten},
      {kDocument, 0, platform::kNotSupported, PayloadFile::kNotOpened},
      {u"C:/docs/./FAX.pdf", 0, platform::kNotSupported, PayloadFile::kNotOpened},
      // The document cannot be found: then it is not this one.
      {kOther, 1, platform::kPathNotFound, PayloadFile::kWritten},
  };
  for (const Case& c : cases) {
    fake_.Reset();
    fake_.SetFile(kDocument, "document");
    fake_.SetFile(kOther, "before");
    fake_.FailCallOf("IdentifyFile", c.call, c.status);
    EXPECT_EQ(WriteAddinJsonFile(JobOf({{u"filename", kDocument}}), c.path), c.result);
    EXPECT_EQ(fake_.FileBytes(kDocument), "document");
    EXPECT_EQ(fake_.FileBytes(kOther) == "before", c.result == PayloadFile::kNotOpened);
  }
}

TEST_F(Payload, ASystemWithoutMemoryForTheFileIsNoFileThatCannotBeOpened) {
  fake_.SetFile(kDocument, "document");
  fake_.SetFile(kFile, "before");
  const std::pair<const char*, std::size_t> calls[] = {
      {"TemporaryFolder", 0}, {"IdentifyFile", 0}, {"IdentifyFile", 1}, {"OpenFileAt", 0}};
  for (const auto& [name, index] : calls) {
    fake_.FailCallOf(name, index, platform::kNotEnoughMemory);
    EXPECT_EQ(WriteAddinJsonFile(JobOf({{u"filename", kDocument}}), u"payload.json"),
              PayloadFile::kNoMemory)
        << name;
  }
  EXPECT_EQ(fake_.FileBytes(kFile), "before");
}

TEST_F(Payload, WithoutATemporaryFolderABareNameIsWrittenToTheCurrentFolder) {
  // Of 259 characters, which still fit, and of one more.
  for (const std::size_t length : {255U, 256U}) {
    const std::u16string folder = u"C:\\" + std::u16string(length, u't') + u"\\";
    fake_.Reset();
    fake_.AddFolder(folder);
    fake_.SetTemporaryFolder(folder);
    EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
    EXPECT_EQ(fake_.FilePaths(), Paths{(length == 255 ? folder : u"") + u"payload.json"});
  }
  fake_.FailCallOf("TemporaryFolder", 0, platform::kAccessDenied);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"failed.json"), PayloadFile::kWritten);
  EXPECT_EQ(fake_.FilePaths(), (Paths{u"failed.json", u"payload.json"}));
}

TEST_F(Payload, AFileThatCannotBeWrittenCountsAsWritten) {
  fake_.SetFile(kFile, "before");
  fake_.SetBytesBeforeFault(10);
  fake_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
  EXPECT_EQ(fake_.FileBytes(kFile), WholePayload().Bytes().substr(0, 10));
  EXPECT_EQ(LogText(), "");
}

}  // namespace
}  // namespace zentpost
