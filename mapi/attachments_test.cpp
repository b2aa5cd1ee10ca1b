#include "mapi/attachments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/attachment_file.h"
#include "mapi/text_buffer.h"
#include "platform/memory.h"
#include "testing/mapi_test.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::Lines;

constexpr char16_t kPath[] = u"C:\\docs\\fax.pdf";
constexpr HRESULT kFailure = MakeResult(0x80040115);
constexpr char kFailureCode[] = "log ERROR: Code 0x80040115 --> (CDO) A network error occured.";

// --- loading the document ---

class AttachmentFile : public platform::fake::MachineTest {
 protected:
  static std::string Loaded(const AttachmentFileData& data) {
    return {platform::BlockData<char>(data.data), data.size};
  }
  // The code and the text of a failure, when nothing is loaded.
  static std::string FailureOf(const AttachmentFileData& data) {
    EXPECT_FALSE(data.data);
    EXPECT_EQ(data.size, 0u);
    return std::to_string(data.errorCode) + " " + test::Readable(data.errorText);
  }
};

TEST_F(AttachmentFile, IsLoadedAsItIs) {
  const std::string bytes("%PDF\r\n\0\x1A\xFF", 9);
  machine_.SetFile(kPath, bytes);
  AttachmentFileData data;
  ASSERT_TRUE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(Loaded(data), bytes);
  EXPECT_EQ(data.errorCode, 0u);
  EXPECT_EQ(data.errorText, u"");
  EXPECT_EQ(machine_.FileBytes(kPath), bytes);
  EXPECT_EQ(machine_.Calls(),
            (std::vector<std::string>{"OpenFileAt(C:\\docs\\fax.pdf, kRead)",
                                      "QueryFileSize(C:\\docs\\fax.pdf)", "AllocateBlock(9)",
                                      "ReadBytes(C:\\docs\\fax.pdf, 9)",
                                      "ReadBytes(C:\\docs\\fax.pdf, 1)"}));
}

TEST_F(AttachmentFile, MayBeEmpty) {
  machine_.SetFile(kPath, "");
  AttachmentFileData data;
  ASSERT_TRUE(LoadAttachmentFile(data, kPath));
  EXPECT_TRUE(data.data);
  EXPECT_EQ(data.size, 0u);
}

TEST_F(AttachmentFile, NeedsAPath) {
  AttachmentFileData data;
  EXPECT_FALSE(LoadAttachmentFile(data, nullptr));
  EXPECT_EQ(FailureOf(data), "2147942487 The attachment path is NULL.");
  EXPECT_FALSE(LoadAttachmentFile(data, u""));
  EXPECT_EQ(FailureOf(data), "2147942487 The attachment path is empty.");
  EXPECT_EQ(machine_.Calls(), std::vector<std::string>());
}

TEST_F(AttachmentFile, ThatCannotBeOpenedGivesTheSystemsNumber) {
  AttachmentFileData data;
  machine_.AddFolder(u"C:\\docs");
  EXPECT_FALSE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(FailureOf(data), "2 The file cannot be loaded.");
  EXPECT_FALSE(LoadAttachmentFile(data, u"C:\\missing\\fax.pdf"));
  EXPECT_EQ(FailureOf(data), "3 The file cannot be loaded.");
  machine_.SetFile(kPath, "x");
  machine_.FailCallOf("OpenFileAt", 0, platform::kSharingViolation);
  EXPECT_FALSE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(FailureOf(data), "32 The file cannot be loaded.");
}

// It is not waited for.
TEST_F(AttachmentFile, MayBeNoPipe) {
  machine_.AddPipe(kPath);
  AttachmentFileData data;
  EXPECT_FALSE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(FailureOf(data), "5 The file cannot be loaded.");
}

TEST_F(AttachmentFile, NeedsMemory) {
  machine_.SetFile(kPath, "bytes");
  machine_.FailCallOf("AllocateBlock", 0, platform::kNotEnoughMemory);
  AttachmentFileData data;
  EXPECT_FALSE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(FailureOf(data), "2147942414 A memory error occurred.");
}

// A document that is there but does not arrive whole: the code is negative, so that it is not taken
// for a success.
TEST_F(AttachmentFile, HasToArriveWhole) {
  const struct {
    const char* call;
    platform::Status status;
    std::uint64_t reported_size;
    const char* failure;
  } kCases[] = {
      {"QueryFileSize", platform::kGeneralFailure, 5, "2147942431 The file's size cannot be told."},
      {"ReadBytes", platform::kReadFault, 5, "2147942430 The file cannot be read."},
      {nullptr, 0, 6, "2147942430 The file cannot be read."},
      // It has grown since its size was told.
      {nullptr, 0, 4, "2147942430 The file cannot be read."},
      {nullptr, 0, 0, "2147942430 The file cannot be read."},
      {nullptr, 0, 0x100000000, "2147942623 The file is too large."},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.failure);
    machine_.Reset();
    machine_.SetFile(kPath, "bytes");
    machine_.SetReportedSize(kPath, test.reported_size);
    machine_.SetBytesBeforeFault(3);
    if (test.call != nullptr) {
      machine_.FailCallOf(test.call, 0, test.status);
    }
    AttachmentFileData data;
    EXPECT_FALSE(LoadAttachmentFile(data, kPath));
    EXPECT_EQ(FailureOf(data), test.failure);
  }
}

TEST_F(AttachmentFile, TheLargestSizeOf32BitsIsNotTooLarge) {
  machine_.SetFile(kPath, "bytes");
  machine_.SetReportedSize(kPath, 0xFFFFFFFF);
  AttachmentFileData data;
  EXPECT_FALSE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(FailureOf(data), "2147942414 A memory error occurred.");
}

TEST_F(AttachmentFile, AnEarlierContentIsGoneInAnyCase) {
  machine_.SetFile(kPath, "first");
  machine_.SetFile(u"C:\\docs\\other", "second document");
  AttachmentFileData data;
  ASSERT_TRUE(LoadAttachmentFile(data, kPath));
  ASSERT_TRUE(LoadAttachmentFile(data, u"C:\\docs\\other"));
  EXPECT_EQ(Loaded(data), "second document");
  EXPECT_EQ(machine_.OpenHandles(), 1u);
  EXPECT_FALSE(LoadAttachmentFile(data, nullptr));
  EXPECT_EQ(FailureOf(data), "2147942487 The attachment path is NULL.");
  EXPECT_EQ(machine_.OpenHandles(), 0u);
  ASSERT_TRUE(LoadAttachmentFile(data, kPath));
  EXPECT_EQ(Loaded(data), "first");
  EXPECT_EQ(data.errorCode, 0u);
  EXPECT_EQ(data.errorText, u"");
}

// --- the MIME type ---

class MimeTag : public platform::fake::MachineTest {
 protected:
  // The type of `extension` as "result type"; "untouched" where nothing was written.
  static std::string TagOf(const std::u16string& extension) {
    char16_t tag[kTextBufferSize];
    std::fill(std::begin(tag), std::end(tag), u'?');
    const HRESULT result = GetAttachmentMimeTag(extension.c_str(), tag);
    const bool untouched =
        std::all_of(std::begin(tag), std::end(tag), [](char16_t unit) { return unit == u'?'; });
    return std::to_string(result) + " " + (untouched ? "untouched" : test::Readable(tag));
  }
};

TEST_F(MimeTag, CommonTypesAreKnown) {
  EXPECT_EQ(TagOf(u".pdf"), "0 application/pdf");
  EXPECT_EQ(TagOf(u".tif"), "0 image/tiff");
  EXPECT_EQ(TagOf(u".tiff"), "0 image/tiff");
  EXPECT_EQ(TagOf(u".png"), "0 image/png");
  EXPECT_EQ(TagOf(u".mp3"), "0 audio/mpeg");
  EXPECT_EQ(TagOf(u".wav"), "0 audio/wav");
  EXPECT_EQ(machine_.Calls(), std::vector<std::string>());
}

TEST_F(MimeTag, CaseAndAMissingDotDoNotMatter) {
  EXPECT_EQ(TagOf(u".PDF"), "0 application/pdf");
  EXPECT_EQ(TagOf(u"pdf"), "0 application/pdf");
  EXPECT_EQ(TagOf(u"TiFF"), "0 image/tiff");
  EXPECT_EQ(TagOf(u".WAV"), "0 audio/wav");
}

TEST_F(MimeTag, NothingElseIsInTheTable) {
  for (const char16_t* const extension :
       {u".pd", u".pdfx", u"..pdf", u"x.pdf", u".tifff", u".jpg", u"."}) {
    EXPECT_EQ(TagOf(extension), "0 untouched") << test::Readable(extension);
  }
}

TEST_F(MimeTag, TheRegistryKnowsMore) {
  machine_.SetString(Hive::kClassesRoot, u".doc", u"Content Type", u"application/msword");
  EXPECT_EQ(TagOf(u".doc"), "0 application/msword");
  EXPECT_EQ(TagOf(u"doc"), "0 application/msword");
  EXPECT_EQ(machine_.Calls(), (std::vector<std::string>{
                                  "OpenKey(HKCR, .doc, 0x1)", "QueryValue(Content Type, 2048)",
                                  "OpenKey(HKCR, .doc, 0x1)", "QueryValue(Content Type, 2048)"}));
}

TEST_F(MimeTag, TheTableComesFirst) {
  machine_.SetString(Hive::kClassesRoot, u".pdf", u"Content Type", u"x/y");
  EXPECT_EQ(TagOf(u".pdf"), "0 application/pdf");
}

TEST_F(MimeTag, AnUnknownTypeLeavesTheBufferAlone) {
  EXPECT_EQ(TagOf(u".xyz"), "0 untouched");
  machine_.AddKey(Hive::kClassesRoot, u".xyz");
  machine_.FailCallOf("OpenKey", 0, platform::kAccessDenied);
  EXPECT_EQ(TagOf(u".xyz"), "0 untouched");
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(MimeTag, ATypeWithoutItsMimeTypeIsMadeUp) {
  machine_.AddKey(Hive::kClassesRoot, u".xyz");
  EXPECT_EQ(TagOf(u".xyz"), "1168 application/xyz");
  EXPECT_EQ(TagOf(u"xyz"), "1168 application/xyz");
  machine_.AddKey(Hive::kClassesRoot, u"a.b");
  EXPECT_EQ(TagOf(u"a.b"), "1168 application/.b");
}

TEST_F(MimeTag, AMimeTypeThatDoesNotFitIsMadeUpToo) {
  machine_.SetString(Hive::kClassesRoot, u".xyz", u"Content Type", std::u16string(1023, u't'));
  EXPECT_EQ(TagOf(u".xyz"), "0 " + std::string(1023, 't'));
  machine_.SetString(Hive::kClassesRoot, u".xyz", u"Content Type", std::u16string(1024, u't'));
  EXPECT_EQ(TagOf(u".xyz"), "1168 application/xyz");
}

TEST_F(MimeTag, AMimeTypeMayLackItsTerminator) {
  machine_.SetValue(Hive::kClassesRoot, u".xyz", u"Content Type", platform::kRegSz,
                    std::string("a\0/\0b\0", 6));
  EXPECT_EQ(TagOf(u".xyz"), "0 a/b");
  machine_.SetValue(Hive::kClassesRoot, u".xyz", u"Content Type", platform::kRegSz, [] {
    std::string bytes;
    for (int i = 0; i < 1024; ++i) {
      bytes += std::string("t\0", 2);
    }
    return bytes;
  }());
  EXPECT_EQ(TagOf(u".xyz"), "0 " + std::string(1023, 't'));
}

TEST_F(MimeTag, LongExtensionsAreCutOff) {
  const std::u16string extension = u"." + std::u16string(1100, u'e');
  machine_.AddKey(Hive::kClassesRoot, extension.substr(0, 1023));
  EXPECT_EQ(TagOf(extension), "1168 application/" + std::string(1011, 'e'));
}

TEST_F(MimeTag, ArgumentsAreCheckedInTheirOrder) {
  char16_t tag[kTextBufferSize] = u"as it was";
  EXPECT_EQ(GetAttachmentMimeTag(nullptr, nullptr), E_INVALIDARG);
  EXPECT_EQ(GetAttachmentMimeTag(u"", nullptr), E_INVALIDARG);
  EXPECT_EQ(GetAttachmentMimeTag(u".pdf", nullptr), E_INVALIDARG);
  EXPECT_EQ(GetAttachmentMimeTag(nullptr, tag), E_INVALIDARG);
  EXPECT_EQ(GetAttachmentMimeTag(u"", tag), E_INVALIDARG);
  EXPECT_EQ(std::u16string(tag), u"as it was");
  EXPECT_EQ(test::LogText(),
            "ERROR: GetAttachmentMimeTag(): The output parameter is invalid.\n"
            "ERROR: GetAttachmentMimeTag(): The output parameter is invalid.\n"
            "ERROR: GetAttachmentMimeTag(): The output parameter is invalid.\n"
            "ERROR: GetAttachmentMimeTag(): The extension parameter is NULL.\n"
            "ERROR: GetAttachmentMimeTag(): The extension parameter is empty.\n");
}

// --- the attachment ---

const std::string kAllocate = "MAPIAllocateBuffer(" + std::to_string(12 * sizeof(SPropValue)) + ")";
constexpr char kOpen[] = "OpenFileAt(C:\\docs\\fax.pdf, kRead)";
constexpr char kSize[] = "QueryFileSize(C:\\docs\\fax.pdf)";
constexpr char kRead[] = "ReadBytes(C:\\docs\\fax.pdf, 3)";
constexpr char kReadOn[] = "ReadBytes(C:\\docs\\fax.pdf, 1)";
constexpr char kRemove[] = "RemoveFile(C:\\docs\\fax.pdf)";
constexpr char kCreate[] = "IMessage::CreateAttach(null, 0x8)";
constexpr char kSave[] = "IAttach::SaveChanges(0x0)";
constexpr char kRelease[] = "IAttach::Release()";
constexpr char kFree[] = "MAPIFreeBuffer(block 1)";
constexpr char kStart[] = "log INFO: AddAttachment(): 'C:\\docs\\fax.pdf'";
constexpr char kIsSet[] = "log INFO: AddAttachment(): Attachment properties are set.";
constexpr char kIsAdded[] = "log INFO: AddAttachment(): Attachment added successfully,";
constexpr char kIsDeleted[] =
    "log INFO: AddAttachment(): The attachment file was deleted successfully.";
constexpr char kNoMimeTag[] = "log WARNING: AddAttachment(): The mime tag cannot be retrieved.";
constexpr char kInvalid[] = "Code 0x80070057 --> (CDO) Invalid Parameter.";

// The values of an attachment that holds "PDF".
std::string SetProps(const std::string& extension, const std::string& name,
                     const std::string& bytes = "3 bytes 504446") {
  return "IAttach::SetProps(9, [0x37050003 1, 0x370b0003 -1, 0x37010102 " + bytes +
         ", 0x3703001f \"" + extension + "\", 0x3704001f \"" + name + "\", 0x3707001f \"" + name +
         "\", 0x37140003 0, 0x3001001f \"" + name + "\", 0x7ffa0003 0], null)";
}

class AttachmentOfMessage : public test::MapiTest {
 protected:
  AttachmentOfMessage() { Furnish(); }

  void Furnish(const std::vector<std::string>& without = {}) {
    StartOver(without);
    machine_.SetFile(kPath, "PDF");
  }

  HRESULT Add(const char16_t* name, const char16_t* path = kPath) {
    IMessage* const message = mapi_->OpenMessage();
    const HRESULT result = AddAttachment(message, path, 0, name);
    trace_ = Trace();
    message->Release();
    return result;
  }

  // How a document is attached whose name is `name`.
  std::string AttachedAs(const char16_t* name) {
    Furnish();
    EXPECT_EQ(Add(name), S_OK);
    EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
    EXPECT_FALSE(IsThere());
    const std::vector<std::string> calls = mapi_->CallsOf("IAttach::SetProps");
    return calls.size() == 1 ? calls[0] : "no single call";
  }

  bool IsThere() const {
    const std::optional<std::string> bytes = machine_.FileBytes(kPath);
    EXPECT_EQ(bytes.value_or("PDF"), "PDF");
    return bytes.has_value();
  }

  std::string trace_;
};

TEST_F(AttachmentOfMessage, TakesTheDocumentAndDeletesIt) {
  EXPECT_EQ(Add(u"Letter.pdf"), S_OK);
  EXPECT_EQ(trace_, Lines({kStart, kAllocate, kOpen, kSize, kRead, kReadOn, kCreate,
                           SetProps(".pdf", "Letter.pdf"), kIsSet, kSave, kIsAdded, kRemove,
                           kIsDeleted, kRelease, kFree}));
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
  EXPECT_FALSE(IsThere());
}

TEST_F(AttachmentOfMessage, IsNamedByItsNameAndNeverByItsPath) {
  EXPECT_EQ(AttachedAs(u"Letter.tif"), SetProps(".tif", "Letter.tif"));
  EXPECT_EQ(AttachedAs(u"Letter.PDF"), SetProps(".PDF", "Letter.PDF"));
  EXPECT_EQ(AttachedAs(u"a.b.c"), SetProps(".c", "a.b.c"));
  EXPECT_EQ(AttachedAs(u"C:\\x\\Letter.pdf"), SetProps(".pdf", "Letter.pdf"));
  EXPECT_EQ(AttachedAs(u"x/y/Letter.pdf"), SetProps(".pdf", "Letter.pdf"));
  EXPECT_EQ(AttachedAs(u"x/y\\Letter.pdf"), SetProps(".pdf", "Letter.pdf"));
  EXPECT_EQ(AttachedAs(u"J\u00E4ger \U0001D11E.pdf"),
            SetProps(".pdf", "J\xC3\xA4ger \xF0\x9D\x84\x9E.pdf"));
}

TEST_F(AttachmentOfMessage, DeliberateWithoutADotTheWholeNameIsTheExtension) {
  EXPECT_EQ(AttachedAs(u"Letter"), SetProps(".Letter", "Letter"));
  EXPECT_EQ(AttachedAs(u"C:\\x\\Letter"), SetProps(".C:\\x\\Letter", "Letter"));
}

TEST_F(AttachmentOfMessage, DeliberateADotInAFolderBeginsTheExtension) {
  EXPECT_EQ(AttachedAs(u"C:\\x.y\\Letter"), SetProps(".y\\Letter", "Letter"));
  EXPECT_EQ(AttachedAs(u"x.y/z/Letter"), SetProps(".y/z/Letter", "Letter"));
}

// What a separator at the end does: the text is read from its end, and separators in front of the
// first token do not count.
TEST_F(AttachmentOfMessage, SeparatorsAtTheEndAreSkipped) {
  EXPECT_EQ(AttachedAs(u"Letter.pdf."), SetProps(".pdf", "Letter.pdf."));
  EXPECT_EQ(AttachedAs(u"Letter."), SetProps(".Letter", "Letter."));
  EXPECT_EQ(AttachedAs(u"x\\Letter.pdf\\/"), SetProps(".pdf\\/", "Letter.pdf"));
}

TEST_F(AttachmentOfMessage, WithoutANameAllItsNamesAreEmpty) {
  for (const char16_t* const name : {u"", static_cast<const char16_t*>(nullptr)}) {
    Furnish();
    EXPECT_EQ(Add(name), S_OK);
    EXPECT_EQ(trace_,
              Lines({kStart, "log ERROR: GetAttachmentMimeTag(): The extension parameter is empty.",
                     kNoMimeTag, std::string("log WARNING: ") + kInvalid, kAllocate, kOpen, kSize,
                     kRead, kReadOn, kCreate, SetProps("", ""), kIsSet, kSave, kIsAdded, kRemove,
                     kIsDeleted, kRelease, kFree}));
    EXPECT_FALSE(IsThere());
  }
}

TEST_F(AttachmentOfMessage, LongNamesHaveACutOffExtension) {
  const std::u16string name = u"x." + std::u16string(1100, u'e');
  EXPECT_EQ(AttachedAs(name.c_str()),
            SetProps("." + std::string(1021, 'e'), "x." + std::string(1100, 'e')));
}

TEST_F(AttachmentOfMessage, TheMimeTypeIsLookedUpAndLeftOut) {
  EXPECT_EQ(AttachedAs(u"Letter.doc"), SetProps(".doc", "Letter.doc"));
  EXPECT_EQ(machine_.CallsOf("OpenKey").at(2), "OpenKey(HKCR, .doc, 0x1)");
  EXPECT_EQ(test::LogText().find("WARNING"), std::string::npos);
  Furnish();
  machine_.AddKey(Hive::kClassesRoot, u".doc");
  EXPECT_EQ(Add(u"Letter.doc"), S_OK);
  EXPECT_EQ(test::LogText().find("WARNING"), std::string::npos);
}

TEST_F(AttachmentOfMessage, OfAnEmptyDocumentHasNoBytes) {
  machine_.SetFile(kPath, "");
  EXPECT_EQ(Add(u"Letter.pdf"), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IAttach::SetProps"),
            std::vector<std::string>{SetProps(".pdf", "Letter.pdf", "0 bytes")});
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{""});
  EXPECT_FALSE(machine_.FileBytes(kPath));
}

TEST_F(AttachmentOfMessage, ADocumentThatCannotBeDeletedStays) {
  machine_.SetReadOnly(kPath, true);
  machine_.SetSystemMessage(platform::kAccessDenied, u"Access is denied.\r\n");
  EXPECT_EQ(Add(u"Letter.pdf"), S_OK);
  EXPECT_EQ(trace_, Lines({kStart, kAllocate, kOpen, kSize, kRead, kReadOn, kCreate,
                           SetProps(".pdf", "Letter.pdf"), kIsSet, kSave, kIsAdded, kRemove,
                           "log WARNING: AddAttachment(): The attachment file cannot be deleted.",
                           "SystemMessage(0x5)",
                           "log WARNING: Code 0x00000005 --> Access is denied.", kRelease, kFree}));
  EXPECT_TRUE(IsThere());
}

TEST_F(AttachmentOfMessage, NeedsAMessage) {
  EXPECT_EQ(AddAttachment(nullptr, kPath, 0, u"Letter.pdf"), E_INVALIDARG);
  EXPECT_EQ(Trace(), Lines({kStart, "log ERROR: AddAttachment(): The message interface is NULL."}));
  EXPECT_EQ(AddAttachment(nullptr, nullptr, 0, u"Letter.pdf"), E_INVALIDARG);
  EXPECT_TRUE(IsThere());
}

TEST_F(AttachmentOfMessage, NeedsAPath) {
  const auto log_of = [](const std::string& shown, const std::string& reason) {
    return Lines({"log INFO: AddAttachment(): '" + shown + "'",
                  "log ERROR: GetAttachmentExtension(): The file path parameter is " + reason + ".",
                  "log WARNING: AddAttachment(): The extension cannot be retrieved.",
                  std::string("log WARNING: ") + kInvalid,
                  "log ERROR: GetAttachmentMimeTag(): The extension parameter is empty.",
                  kNoMimeTag, std::string("log WARNING: ") + kInvalid,
                  "log ERROR: GetAttachmentFilename(): The file path parameter is " + reason + ".",
                  kNoMimeTag, std::string("log WARNING: ") + kInvalid});
  };
  EXPECT_EQ(Add(u"Letter.pdf", nullptr), E_INVALIDARG);
  EXPECT_EQ(trace_, log_of("(null)", "NULL"));
  StartOver();
  EXPECT_EQ(Add(u"Letter.pdf", u""), E_INVALIDARG);
  EXPECT_EQ(trace_, log_of("", "empty"));
}

// The extension is looked for in the first 1,023 characters; the name itself is not cut.
TEST_F(AttachmentOfMessage, ALongNameIsKeptAndItsExtensionLookedForAtItsBeginning) {
  const std::string stem(1018, 'n');
  for (const std::string ending : {".tiff", "n.tiff"}) {
    Furnish();
    const std::string name = stem + ending;
    EXPECT_EQ(Add(std::u16string(name.begin(), name.end()).c_str()), S_OK);
    const std::string extension = ending == ".tiff" ? ".tiff" : ".tif";
    EXPECT_NE(trace_.find(SetProps(extension, name)), std::string::npos);
  }
  Furnish();
  const std::string name = std::string(1100, 'n') + ".pdf";
  EXPECT_EQ(Add(std::u16string(name.begin(), name.end()).c_str()), S_OK);
  EXPECT_NE(trace_.find(SetProps("." + name.substr(0, 1023), name)), std::string::npos);
}

TEST_F(AttachmentOfMessage, EveryFailureKeepsTheDocument) {
  const std::vector<std::string> steps = {
      kStart, kAllocate, kOpen, kSize, kRead, kReadOn, kCreate, SetProps(".pdf", "Letter.pdf"),
      kIsSet, kSave};
  const struct {
    const char* call;
    std::ptrdiff_t steps_done;  // the failing one included
    const char* log;
    std::vector<std::string> cleanup;
  } kCases[] = {
      {"MAPIAllocateBuffer", 2, "The attachment property tag memory is not available.", {}},
      {"IMessage::CreateAttach", 7, "An attachment could not been created.", {kFree}},
      {"IAttach::SetProps",
       8,
       "The properties of the attachment could not been set.",
       {kRelease, kFree}},
      {"IAttach::SaveChanges",
       10,
       "The attachment cannot be saved. The attachment is corrupt.",
       {kRelease, kFree}},
  };
  for (const bool leaves_garbage : {false, true}) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(std::string(test.call) + (leaves_garbage ? " with garbage" : ""));
      Furnish();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->Answer(test.call, 0, kFailure);
      EXPECT_EQ(Add(u"Letter.pdf"), kFailure);
      std::vector<std::string> expected(steps.begin(), steps.begin() + test.steps_done);
      expected.push_back(std::string("log ERROR: AddAttachment(): ") + test.log);
      expected.emplace_back(kFailureCode);
      expected.insert(expected.end(), test.cleanup.begin(), test.cleanup.end());
      EXPECT_EQ(trace_, Lines(expected));
      EXPECT_TRUE(IsThere());
      EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>());
    }
  }
}

TEST_F(AttachmentOfMessage, WhatIsNotHandedOutIsAFailure) {
  mapi_->GiveNothing("MAPIAllocateBuffer");
  EXPECT_LT(Add(u"Letter.pdf"), 0);
  EXPECT_TRUE(IsThere());

  Furnish();
  mapi_->GiveNothing("IMessage::CreateAttach");
  EXPECT_LT(Add(u"Letter.pdf"), 0);
  EXPECT_TRUE(IsThere());
}

TEST_F(AttachmentOfMessage, ADocumentThatCannotBeLoadedGivesTheLoadersCode) {
  const struct {
    const char* call;
    std::vector<std::string> steps;
    const char* code;
    HRESULT result;
  } kCases[] = {
      {"OpenFileAt", {kOpen}, "0x00000020", 32},
      {"QueryFileSize", {kOpen, kSize}, "0x80070020", MakeResult(0x80070020)},
      {"ReadBytes", {kOpen, kSize, kRead}, "0x80070020", MakeResult(0x80070020)},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.call);
    Furnish();
    machine_.SetSystemMessage(0x20, u"It is in use.");
    machine_.SetSystemMessage(0x80070020, u"It is in use.");
    machine_.FailCallOf(test.call, 0, platform::kSharingViolation);
    // A machine with enough memory tells no other number than its own.
    const HRESULT result = Add(u"Letter.pdf");
    EXPECT_EQ(result, test.result);
    std::vector<std::string> expected = {kStart, kAllocate};
    expected.insert(expected.end(), test.steps.begin(), test.steps.end());
    expected.emplace_back("log ERROR: AddAttachment(): The attachment path cannot be read.");
    expected.push_back(std::string("SystemMessage(") + (test.result < 0 ? "0x80070020" : "0x20") +
                       ")");
    expected.push_back(std::string("log ERROR: Code ") + test.code + " --> It is in use.");
    expected.emplace_back(kFree);
    EXPECT_EQ(trace_, Lines(expected));
    EXPECT_TRUE(IsThere());
  }
}

// Without it the message would go out as if it had been delivered whole.
TEST_F(AttachmentOfMessage, ADocumentWithoutMemoryForItIsAFailure) {
  const struct {
    const char* call;
    std::vector<std::string> steps;
  } kCases[] = {{"OpenFileAt", {kOpen}},
                {"QueryFileSize", {kOpen, kSize}},
                {"AllocateBlock", {kOpen, kSize}},
                {"ReadBytes", {kOpen, kSize, kRead}}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.call);
    Furnish();
    machine_.FailCallOf(test.call, 0, platform::kNotEnoughMemory);
    EXPECT_EQ(Add(u"Letter.pdf"), MAPI_E_NOT_ENOUGH_MEMORY);
    std::vector<std::string> expected = {kStart, kAllocate};
    expected.insert(expected.end(), test.steps.begin(), test.steps.end());
    expected.emplace_back("log ERROR: AddAttachment(): The attachment path cannot be read.");
    expected.emplace_back("log ERROR: Code 0x8007000e --> (CDO) Not enough memory available.");
    expected.emplace_back(kFree);
    EXPECT_EQ(trace_, Lines(expected));
    EXPECT_TRUE(IsThere());
  }
}

TEST_F(AttachmentOfMessage, ADocumentOf4GiBFailsBeforeThereIsAnAttachment) {
  machine_.SetReportedSize(kPath, 0x100000000);
  EXPECT_EQ(Add(u"Letter.pdf"), MakeResult(0x800700DF));
  EXPECT_EQ(mapi_->CallsOf("IMessage::CreateAttach"), std::vector<std::string>());
  EXPECT_NE(trace_.find("log ERROR: AddAttachment(): The attachment path cannot be read.\n"),
            std::string::npos);
  EXPECT_NE(trace_.find("Code 0x800700df --> "), std::string::npos);
  EXPECT_TRUE(IsThere());
}

TEST_F(AttachmentOfMessage, AMissingFunctionShowsInItsOwnWay) {
  Furnish({"MAPIAllocateBuffer"});
  EXPECT_EQ(Add(u"Letter.pdf"), E_FAIL);
  EXPECT_EQ(trace_,
            Lines({kStart,
                   "log ERROR: AddAttachment(): The attachment property tag memory is not "
                   "available.",
                   "log ERROR: Code 0x80004005 --> A general not more specified error occurred."}));
  EXPECT_TRUE(IsThere());

  Furnish({"MAPIFreeBuffer"});
  EXPECT_EQ(Add(u"Letter.pdf"), S_OK);
  EXPECT_FALSE(IsThere());
  SettleAccounts("block 1 of MAPIAllocateBuffer: not freed\n");
}

TEST_F(AttachmentOfMessage, TheLastSuccessIsGivenBackUnchanged) {
  mapi_->Answer("IAttach::SaveChanges", 0, 4);
  EXPECT_EQ(Add(u"Letter.pdf"), 4);
  EXPECT_FALSE(IsThere());
}

TEST_F(AttachmentOfMessage, TheReservedNumberIsIgnored) {
  IMessage* const message = mapi_->OpenMessage();
  EXPECT_EQ(AddAttachment(message, kPath, 0xFFFFFFFF, u"Letter.pdf"), S_OK);
  message->Release();
}

}  // namespace
}  // namespace zentpost
