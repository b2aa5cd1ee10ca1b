#include "addin/payload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "jobfile/commands.h"
#include "testing/allocation_faults.h"
#include "testing/expected_texts.h"
#include "testing/fake_platform/fixture.h"
#include "testing/log_lines.h"

namespace zentpost {
namespace {

using test::LogText;
using test::PayloadText;

class Payload : public platform::fake::MachineTest {};

// A job with something in every place, and in some that the payload has no use for.
JobParameters WholeJob() {
  JobParameters params;
  params.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  params.arguments.Add(u"jobname", u"C:\\jobs\\a.json");
  params.arguments.Add(u"preview", u"1");
  params.arguments.Add(u"subject", u"of the command line");
  for (const auto& [name, value] : std::vector<ParameterList::Entry>{{u"B", u"9600"},
                                                                     {u"C", u"1"},
                                                                     {u"E", u"Miller"},
                                                                     {u"K", u"A comment"},
                                                                     {u"N", u"7"},
                                                                     {u"O", u"out.json"},
                                                                     {u"P", u"1"},
                                                                     {u"S", u"A subject"},
                                                                     {u"U", u"Smith"},
                                                                     {u"Z", u"23:15"},
                                                                     {u"+FAX", u"0301234567"}}) {
    params.faxFields.Add(name, value);
  }
  return params;
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

JobParameters JobWith(std::u16string name, std::u16string value) {
  JobParameters params;
  params.faxFields.Add(std::move(name), std::move(value));
  return params;
}

TEST_F(Payload, AJobThatSaysNothingHasAllTenMembers) {
  EXPECT_EQ(CCommands::json({}),
            "{\n"
            "\t\"Parameters\":\t{\n"
            "\t\t\"Receiver\":\t\"\",\n"
            "\t\t\"RecipientName\":\t\"\",\n"
            "\t\t\"SenderName\":\t\"\",\n"
            "\t\t\"FileName\":\t\"\",\n"
            "\t\t\"AttachmentName\":\t\"\",\n"
            "\t\t\"Comment\":\t\"\",\n"
            "\t\t\"Subject\":\t\"\",\n"
            "\t\t\"SendTime\":\t\"\",\n"
            "\t\t\"ECM\":\ttrue,\n"
            "\t\t\"Preview\":\tfalse\n"
            "\t}\n"
            "}");
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, AWholeJobFillsEveryMemberInOrder) {
  EXPECT_EQ(CCommands::json(WholeJob()),
            "{\n"
            "\t\"Parameters\":\t{\n"
            "\t\t\"Receiver\":\t\"0301234567\",\n"
            "\t\t\"RecipientName\":\t\"Miller\",\n"
            "\t\t\"SenderName\":\t\"Smith\",\n"
            "\t\t\"FileName\":\t\"C:\\\\docs\\\\fax.pdf\",\n"
            "\t\t\"AttachmentName\":\t\"Letter.pdf\",\n"
            "\t\t\"Comment\":\t\"A comment\",\n"
            "\t\t\"Subject\":\t\"A subject\",\n"
            "\t\t\"SendTime\":\t\"23:15\",\n"
            "\t\t\"ECM\":\tfalse,\n"
            "\t\t\"Preview\":\ttrue\n"
            "\t}\n"
            "}");
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, TheOrderOfTheFieldsMakesNoDifference) {
  JobParameters params = WholeJob();
  ParameterList reversed;
  const auto& entries = params.faxFields.Entries();
  std::for_each(entries.rbegin(), entries.rend(), [&](const ParameterList::Entry& entry) {
    reversed.Add(entry.first, entry.second);
  });
  params.faxFields = reversed;
  EXPECT_EQ(CCommands::json(params), WholePayload().Bytes());
}

// The add-in expects the two switches so: they are not alike.
TEST_F(Payload, DeliberateEcmIsTrueAndPreviewIsFalseWithoutAField) {
  struct Case {
    const char* name;
    std::optional<std::u16string> value;
    bool ecm;
    bool preview;
  };
  const Case kCases[] = {
      {"missing", std::nullopt, true, false},
      {"hyphen", u"-", true, false},
      {"empty", u"", false, true},
      {"zero", u"0", false, true},
      {"one", u"1", false, true},
      {"two hyphens", u"--", false, true},
      {"hyphen and blank", u"- ", false, true},
      {"true", u"true", false, true},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    JobParameters ecm;
    JobParameters preview;
    if (test.value) {
      ecm = JobWith(u"C", *test.value);
      preview = JobWith(u"P", *test.value);
    }
    EXPECT_EQ(CCommands::json(ecm), PayloadText{.ecm = test.ecm}.Bytes());
    EXPECT_EQ(CCommands::json(preview), PayloadText{.preview = test.preview}.Bytes());
  }
}

TEST_F(Payload, TheFirstOfTwoEntriesCounts) {
  JobParameters params = JobWith(u"E", u"first");
  params.faxFields.Add(u"E", u"second");
  params.faxFields.Add(u"P", u"-");
  params.faxFields.Add(u"P", u"1");
  params.arguments.Add(u"filename", u"first.pdf");
  params.arguments.Add(u"filename", u"second.pdf");
  EXPECT_EQ(CCommands::json(params),
            (PayloadText{.recipient_name = "first", .file_name = "first.pdf"}.Bytes()));
}

TEST_F(Payload, NamesAreCaseSensitive) {
  JobParameters params = JobWith(u"e", u"x");
  for (const char16_t* name : {u"+fax", u"k", u"s", u"u", u"z", u"c", u"p"}) {
    params.faxFields.Add(name, u"x");
  }
  params.arguments.Add(u"FileName", u"x");
  params.arguments.Add(u"AttDisplayName", u"x");
  EXPECT_EQ(CCommands::json(params), PayloadText().Bytes());
}

TEST_F(Payload, EachListHasItsOwnEntries) {
  JobParameters params;
  for (const char16_t* name : {u"+FAX", u"E", u"K", u"S", u"U", u"Z", u"C", u"P"}) {
    params.arguments.Add(name, u"x");
  }
  params.faxFields.Add(u"filename", u"x");
  params.faxFields.Add(u"attdisplayname", u"x");
  EXPECT_EQ(CCommands::json(params), PayloadText().Bytes());
}

TEST_F(Payload, ValuesAreCopiedAsTheyAre) {
  EXPECT_EQ(CCommands::json(JobWith(u"+FAX", u"  +49 (30) 12/34-5 \t")),
            PayloadText{.receiver = "  +49 (30) 12/34-5 \\t"}.Bytes());
}

TEST_F(Payload, WhatJsonReservesIsEscapedAndNothingElse) {
  struct Case {
    const char16_t* text;
    const char* written;  // in the payload
  };
  const Case kCases[] = {
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
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.written);
    EXPECT_EQ(CCommands::json(JobWith(u"K", test.text)),
              PayloadText{.comment = test.written}.Bytes());
  }
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, ValuesThatCarryUtf8AlreadyAreNotEncodedTwice) {
  EXPECT_EQ(CCommands::json(JobWith(u"E", u"J\u00C3\u00A4ger")),
            PayloadText{.recipient_name = "J\xC3\xA4ger"}.Bytes());
}

TEST_F(Payload, AValueThatCannotBeConvertedIsEmpty) {
  JobParameters params = WholeJob();
  params.arguments.Clear();
  params.arguments.Add(u"filename", u"\u4E2D\u6587\u5B57");
  params.arguments.Add(u"attdisplayname", u"Letter.pdf");
  PayloadText payload = WholePayload();
  payload.file_name.clear();
  EXPECT_EQ(CCommands::json(params), payload.Bytes());
  EXPECT_EQ(LogText(),
            "ERROR: _utf8(): The utf-8 forward conversion failed.\n"
            "ERROR: Code 0x0000007a --> Unknown Error.\n");
}

TEST_F(Payload, EachValueFailsForItself) {
  std::string PayloadText::*const kInOrder[] = {
      &PayloadText::receiver,  &PayloadText::recipient_name,  &PayloadText::sender_name,
      &PayloadText::file_name, &PayloadText::attachment_name, &PayloadText::comment,
      &PayloadText::subject,   &PayloadText::send_time,
  };
  for (std::size_t i = 0; i < std::size(kInOrder); ++i) {
    SCOPED_TRACE(i);
    machine_.Reset();
    machine_.FailCallOf("WideToBytes", i, platform::kInvalidParameter);
    PayloadText payload = WholePayload();
    (payload.*kInOrder[i]).clear();
    EXPECT_EQ(CCommands::json(WholeJob()), payload.Bytes());
    EXPECT_EQ(LogText(),
              "ERROR: _utf8(): The utf-8 forward conversion failed.\n"
              "ERROR: Code 0x00000057 --> Unknown Error.\n");
  }
}

// A job without some of its content must not count as delivered.
TEST_F(Payload, AValueWithoutMemoryLeavesNoPayload) {
  for (std::size_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    machine_.Reset();
    machine_.FailCallOf("AllocateBlock", i, platform::kNotEnoughMemory);
    EXPECT_EQ(CCommands::json(WholeJob()), "");
    EXPECT_EQ(LogText(),
              "ERROR: _utf8(): A memory error occurred.\n"
              "ERROR: Code 0x00000008 --> Unknown Error.\n");
  }
}

TEST_F(Payload, NothingButConversionsIsAskedOfTheSystem) {
  EXPECT_EQ(CCommands::json(WholeJob()), WholePayload().Bytes());
  const std::vector<std::string> calls = machine_.Calls();
  EXPECT_EQ(calls.size(), 16u);
  for (const std::string& call : calls) {
    EXPECT_TRUE(call.starts_with("AllocateBlock(") || call.starts_with("WideToBytes(65001, "))
        << call;
  }
}

TEST_F(Payload, WithoutMemoryThereIsNoPayload) {
  const JobParameters job = WholeJob();
  test::SweepAllocations("payload", [&](test::AllocationFaults& faults) {
    machine_.Reset();
    std::string payload = "untouched";
    EXPECT_TRUE(faults.Run([&] { payload = CCommands::json(job); }));
    EXPECT_EQ(payload, faults.Taken() ? "" : WholePayload().Bytes());
    EXPECT_EQ(machine_.OpenHandles(), 0u);
  });
}

// --- the file ---

TEST_F(Payload, ABareNameIsWrittenToTheTemporaryFolder) {
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{u"C:\\Temp\\payload.json"});
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), WholePayload().Bytes());
  EXPECT_EQ(LogText(), "");
}

TEST_F(Payload, APathIsTakenAsItIs) {
  struct Case {
    const char16_t* path;
    const char16_t* file;
  };
  const Case kCases[] = {
      {u"C:/out/payload.json", u"C:\\out\\payload.json"},
      {u"C:\\out\\payload.json", u"C:\\out\\payload.json"},
      {u"out\\payload.json", u"out\\payload.json"},
      {u"out/payload.json", u"out\\payload.json"},
      {u".\\payload.json", u"payload.json"},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(testing::PrintToString(std::u16string(test.path)));
    machine_.Reset();
    machine_.AddFolder(u"C:\\out");
    machine_.AddFolder(u"out");
    machine_.AddFolder(u".");
    EXPECT_EQ(WriteAddinJsonFile(WholeJob(), test.path), PayloadFile::kWritten);
    EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{test.file});
    EXPECT_EQ(machine_.FileBytes(test.file), WholePayload().Bytes());
    EXPECT_EQ(machine_.CallsOf("TemporaryFolder"), std::vector<std::string>());
  }
}

TEST_F(Payload, TheFileIsOpenedBeforeThePayloadIsBuilt) {
  EXPECT_EQ(WriteAddinJsonFile(JobWith(u"S", u"x"), u"payload.json"), PayloadFile::kWritten);
  const std::size_t size = PayloadText{.subject = "x"}.Bytes().size();
  EXPECT_EQ(machine_.Calls(),
            (std::vector<std::string>{
                "TemporaryFolder(260)", "IdentifyFile(C:\\Temp\\payload.json)",
                "OpenFileAt(C:\\Temp\\payload.json, kRewrite)", "AllocateBlock(4)",
                "WideToBytes(65001, 1, 4)",
                "WriteBytes(C:\\Temp\\payload.json, " + std::to_string(size) + ")"}));
}

TEST_F(Payload, TheFileIsReplaced) {
  machine_.SetFile(u"C:\\Temp\\payload.json", std::string(5000, 'x'));
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), WholePayload().Bytes());
}

TEST_F(Payload, TheFileHoldsPlainUtf8) {
  EXPECT_EQ(WriteAddinJsonFile(JobWith(u"E", u"J\u00E4ger"), u"payload.json"),
            PayloadFile::kWritten);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"),
            PayloadText{.recipient_name = "J\xC3\xA4ger"}.Bytes());
}

TEST_F(Payload, AFileThatCannotBeOpenedIsGivenUpSilently) {
  machine_.SetFile(u"C:\\Temp\\read-only.json", "before");
  machine_.SetReadOnly(u"C:\\Temp\\read-only.json", true);
  machine_.AddFolder(u"C:\\Temp\\folder");
  for (const std::u16string path :
       {u"C:\\missing\\payload.json", u"read-only.json", u"folder", u"", u"C:\\Temp\\"}) {
    SCOPED_TRACE(testing::PrintToString(path));
    EXPECT_EQ(WriteAddinJsonFile(WholeJob(), path), PayloadFile::kNotOpened);
  }
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{u"C:\\Temp\\read-only.json"});
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\read-only.json"), "before");
  EXPECT_EQ(LogText(), "");
}

// The document must not be overwritten by what is said about it.
TEST_F(Payload, TheJobsOwnFilesAreNotWrittenTo) {
  constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";
  constexpr char16_t kJobFile[] = u"C:\\Temp\\job.json";
  for (const std::u16string path :
       {u"C:\\docs\\fax.pdf", u"C:/docs//fax.pdf", u"C:\\docs\\link.pdf", u"C:\\Temp\\link.json",
        u"job.json", u"link.json"}) {
    SCOPED_TRACE(testing::PrintToString(path));
    machine_.Reset();
    machine_.SetFile(kDocument, "document");
    machine_.SetFile(kJobFile, "job");
    machine_.AddLink(kDocument, u"C:\\docs\\link.pdf");
    machine_.AddLink(kJobFile, u"C:\\Temp\\link.json");
    JobParameters job = WholeJob();
    job.arguments.Clear();
    job.arguments.Add(u"filename", kDocument);
    job.arguments.Add(u"jobname", kJobFile);
    EXPECT_EQ(WriteAddinJsonFile(job, path), PayloadFile::kNotOpened);
    EXPECT_EQ(machine_.FileBytes(kDocument), "document");
    EXPECT_EQ(machine_.FileBytes(kJobFile), "job");
    EXPECT_EQ(machine_.CallsOf("OpenFileAt"), std::vector<std::string>());
    EXPECT_EQ(LogText(), "");
  }
}

TEST_F(Payload, AnotherFileOfTheSameFolderIsWrittenTo) {
  machine_.SetFile(u"C:\\docs\\fax.pdf", "document");
  machine_.SetFile(u"C:\\docs\\fax.json", "before");
  JobParameters job = WholeJob();
  job.arguments.Clear();
  job.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  EXPECT_EQ(WriteAddinJsonFile(job, u"C:\\docs\\fax.json"), PayloadFile::kWritten);
  EXPECT_NE(machine_.FileBytes(u"C:\\docs\\fax.json"), "before");
  EXPECT_EQ(machine_.FileBytes(u"C:\\docs\\fax.pdf"), "document");
}

// A file that is there and cannot be told from the document is left alone; one of a file system
// that cannot tell files is told by its name.
TEST_F(Payload, WhatCannotBeIdentifiedMayBeTheDocument) {
  constexpr char16_t kDocument[] = u"C:\\docs\\fax.pdf";
  struct Case {
    const char16_t* path;
    std::size_t call;
    platform::Status status;
    PayloadFile result;
  };
  for (const Case& c :
       {Case{u"C:\\docs\\other", 0, platform::kAccessDenied, PayloadFile::kNotOpened},
        {u"C:\\docs\\other", 0, platform::kNotSupported, PayloadFile::kWritten},
        {kDocument, 0, platform::kNotSupported, PayloadFile::kNotOpened},
        {u"C:/docs/./FAX.pdf", 0, platform::kNotSupported, PayloadFile::kNotOpened},
        // The document cannot be found: then it is not this one.
        {u"C:\\docs\\other", 1, platform::kPathNotFound, PayloadFile::kWritten}}) {
    machine_.Reset();
    machine_.SetFile(kDocument, "document");
    machine_.SetFile(u"C:\\docs\\other", "before");
    machine_.FailCallOf("IdentifyFile", c.call, c.status);
    JobParameters job = WholeJob();
    job.arguments.Clear();
    job.arguments.Add(u"filename", kDocument);
    EXPECT_EQ(WriteAddinJsonFile(job, c.path), c.result);
    EXPECT_EQ(machine_.FileBytes(kDocument), "document");
    EXPECT_EQ(machine_.FileBytes(u"C:\\docs\\other") == "before",
              c.result == PayloadFile::kNotOpened);
  }
}

TEST_F(Payload, WithoutMemoryTheFileIsEmptyAndTheCallerKnows) {
  const JobParameters job = WholeJob();
  const std::u16string name = u"payload.json";
  test::SweepAllocations("payload file", [&](test::AllocationFaults& faults) {
    machine_.Reset();
    PayloadFile result{};
    EXPECT_TRUE(faults.Run([&] { result = WriteAddinJsonFile(job, name); }));
    EXPECT_EQ(result, faults.Taken() ? PayloadFile::kNoMemory : PayloadFile::kWritten);
    const std::string bytes = machine_.FileBytes(u"C:\\Temp\\payload.json").value_or("");
    EXPECT_EQ(bytes, faults.Taken() ? "" : WholePayload().Bytes());
    EXPECT_EQ(machine_.OpenHandles(), 0u);
  });
}

TEST_F(Payload, ASystemWithoutMemoryForTheFileIsNoFileThatCannotBeOpened) {
  machine_.SetFile(u"C:\\docs\\fax.pdf", "document");
  machine_.SetFile(u"C:\\Temp\\payload.json", "before");
  JobParameters job = WholeJob();
  job.arguments.Clear();
  job.arguments.Add(u"filename", u"C:\\docs\\fax.pdf");
  for (const char* call : {"TemporaryFolder", "IdentifyFile", "OpenFileAt"}) {
    SCOPED_TRACE(call);
    machine_.FailCallOf(call, 0, platform::kNotEnoughMemory);
    EXPECT_EQ(WriteAddinJsonFile(job, u"payload.json"), PayloadFile::kNoMemory);
  }
  machine_.FailCallOf("IdentifyFile", 1, platform::kNotEnoughMemory);
  EXPECT_EQ(WriteAddinJsonFile(job, u"payload.json"), PayloadFile::kNoMemory);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), "before");
}

TEST_F(Payload, ATemporaryFolderOf259CharactersStillFits) {
  const std::u16string folder = u"C:\\" + std::u16string(255, u't') + u"\\";
  ASSERT_EQ(folder.size(), 259u);
  machine_.AddFolder(folder);
  machine_.SetTemporaryFolder(folder);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
  EXPECT_EQ(machine_.FilePaths(), std::vector<std::u16string>{folder + u"payload.json"});
}

TEST_F(Payload, WithoutATemporaryFolderABareNameIsWrittenToTheCurrentFolder) {
  const std::u16string folder = u"C:\\" + std::u16string(256, u't') + u"\\";
  machine_.AddFolder(folder);
  machine_.SetTemporaryFolder(folder);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"too long.json"), PayloadFile::kWritten);
  machine_.FailCallOf("TemporaryFolder", 0, platform::kAccessDenied);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"failed.json"), PayloadFile::kWritten);
  EXPECT_EQ(machine_.FilePaths(), (std::vector<std::u16string>{u"failed.json", u"too long.json"}));
}

TEST_F(Payload, AFileThatCannotBeWrittenCountsAsWritten) {
  machine_.SetFile(u"C:\\Temp\\payload.json", "before");
  machine_.SetBytesBeforeFault(10);
  machine_.FailCallOf("WriteBytes", 0, platform::kDiskFull);
  EXPECT_EQ(WriteAddinJsonFile(WholeJob(), u"payload.json"), PayloadFile::kWritten);
  EXPECT_EQ(machine_.FileBytes(u"C:\\Temp\\payload.json"), WholePayload().Bytes().substr(0, 10));
  EXPECT_EQ(LogText(), "");
}

}  // namespace
}  // namespace zentpost
