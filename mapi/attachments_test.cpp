#include "mapi/attachments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
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
constexpr char kOpen[] = "OpenFileAt(C:\\docs\\fax.pdf, kRead)";
constexpr char kSize[] = "QueryFileSize(C:\\docs\\fax.pdf)";
constexpr char kReadOn[] = "ReadBytes(C:\\docs\\fax.pdf, 1)";

// --- loading the document ---

class AttachmentFile : public platform::fake::FakePlatformTest {
 protected:
  // What is loaded, or the code and the text of the failure.
  std::string Load(const char16_t* path = kPath) {
    if (LoadAttachmentFile(data_, path)) {
      EXPECT_TRUE(data_.data);
      EXPECT_EQ(data_.errorCode, 0u);
      EXPECT_EQ(data_.errorText, u"");
      return {platform::BlockData<char>(data_.data), data_.size};
    }
    EXPECT_FALSE(data_.data);
    EXPECT_EQ(data_.size, 0u);
    return std::to_string(data_.errorCode) + " " + test::Readable(data_.errorText);
  }
  void TearDown() override {
    data_ = {};
    FakePlatformTest::TearDown();
  }

  AttachmentFileData data_;
};

constexpr char kNull[] = "2147942487 The attachment path is NULL.";
constexpr char kNoMemory[] = "2147942414 A memory error occurred.";
constexpr char kUnread[] = "2147942430 The file cannot be read.";

TEST_F(AttachmentFile, IsLoadedAsItIs) {
  const std::string bytes("%PDF\r\n\0\x1A\xFF", 9);
  fake_.SetFile(kPath, bytes);
  EXPECT_EQ(Load(), bytes);
  EXPECT_EQ(fake_.FileBytes(kPath), bytes);
  EXPECT_EQ(fake_.Calls(), (std::vector<std::string>{kOpen, kSize, "AllocateBlock(9)",
                                                     "ReadBytes(C:\\docs\\fax.pdf, 9)", kReadOn}));
  fake_.SetFile(kPath, "");
  EXPECT_EQ(Load(), "");
}

TEST_F(AttachmentFile, NeedsAPath) {
  EXPECT_EQ(Load(nullptr), kNull);
  EXPECT_EQ(Load(u""), "2147942487 The attachment path is empty.");
  EXPECT_EQ(fake_.Calls(), std::vector<std::string>());
}

TEST_F(AttachmentFile, ThatCannotBeOpenedGivesTheSystemsNumber) {
  fake_.AddFolder(u"C:\\docs");
  EXPECT_EQ(Load(), "2 The file cannot be loaded.");
  EXPECT_EQ(Load(u"C:\\missing\\fax.pdf"), "3 The file cannot be loaded.");
  fake_.AddPipe(u"C:\\docs\\pipe");  // which is not waited for
  EXPECT_EQ(Load(u"C:\\docs\\pipe"), "5 The file cannot be loaded.");
  fake_.SetFile(kPath, "x");
  fake_.FailCallOf("OpenFileAt", 0, platform::kSharingViolation);
  EXPECT_EQ(Load(), "32 The file cannot be loaded.");
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
      {"ReadBytes", platform::kReadFault, 5, kUnread},
      {"OpenFileAt", platform::kNotEnoughMemory, 5, kNoMemory},
      {"QueryFileSize", platform::kNotEnoughMemory, 5, kNoMemory},
      {"AllocateBlock", platform::kNotEnoughMemory, 5, kNoMemory},
      {"ReadBytes", platform::kNotEnoughMemory, 5, kNoMemory},
      {nullptr, 0, 6, kUnread},
      // It has grown since its size was told.
      {nullptr, 0, 4, kUnread},
      {nullptr, 0, 0, kUnread},
      {nullptr, 0, 0xFFFFFFFF, kNoMemory},
      {nullptr, 0, 0x100000000, "2147942623 The file is too large."},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.failure);
    fake_.Reset();
    fake_.SetFile(kPath, "bytes");
    fake_.SetReportedSize(kPath, test.reported_size);
    fake_.SetBytesBeforeFault(3);
    if (test.call != nullptr) {
      fake_.FailCallOf(test.call, 0, test.status);
    }
    EXPECT_EQ(Load(), test.failure);
  }
}

TEST_F(AttachmentFile, AnEarlierContentIsGoneInAnyCase) {
  fake_.SetFile(kPath, "first");
  fake_.SetFile(u"C:\\docs\\other", "second document");
  EXPECT_EQ(Load(), "first");
  EXPECT_EQ(Load(u"C:\\docs\\other"), "second document");
  EXPECT_EQ(fake_.OpenHandles(), 1u);
  EXPECT_EQ(Load(nullptr), kNull);
  EXPECT_EQ(fake_.OpenHandles(), 0u);
  EXPECT_EQ(Load(), "first");
}

// --- the MIME type ---

class MimeTag : public platform::fake::FakePlatformTest {
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
  void Register(const char16_t* extension, const std::u16string& type) {
    fake_.SetString(Hive::kClassesRoot, extension, u"Content Type", type);
  }
};

// The case and a missing dot do not matter.
TEST_F(MimeTag, CommonTypesAreKnownWithoutAskingTheRegistry) {
  Register(u".pdf", u"x/y");
  const std::pair<const char16_t*, const char*> kCases[] = {
      {u".pdf", "application/pdf"}, {u".tif", "image/tiff"},     {u".tiff", "image/tiff"},
      {u".png", "image/png"},       {u".mp3", "audio/mpeg"},     {u".wav", "audio/wav"},
      {u".PDF", "application/pdf"}, {u"pdf", "application/pdf"}, {u"TiFF", "image/tiff"},
      {u".WAV", "audio/wav"},
  };
  for (const auto& [extension, type] : kCases) {
    EXPECT_EQ(TagOf(extension), std::string("0 ") + type);
  }
  EXPECT_EQ(fake_.Calls(), std::vector<std::string>());
}

TEST_F(MimeTag, AnUnknownTypeLeavesTheBufferAlone) {
  for (const char16_t* const extension :
       {u".pd", u".pdfx", u"..pdf", u"x.pdf", u".tifff", u".jpg", u"."}) {
    EXPECT_EQ(TagOf(extension), "0 untouched") << test::Readable(extension);
  }
  fake_.AddKey(Hive::kClassesRoot, u".xyz");
  fake_.FailCallOf("OpenKey", 0, platform::kAccessDenied);
  EXPECT_EQ(TagOf(u".xyz"), "0 untouched");
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(MimeTag, TheRegistryKnowsMore) {
  Register(u".doc", u"application/msword");
  for (const char16_t* const extension : {u".doc", u"doc"}) {
    fake_.ClearCalls();
    EXPECT_EQ(TagOf(extension), "0 application/msword");
    EXPECT_EQ(fake_.Calls(), (std::vector<std::string>{"OpenKey(HKCR, .doc, 0x1)",
                                                       "QueryValue(Content Type, 2048)"}));
  }
}

TEST_F(MimeTag, ATypeWithoutItsMimeTypeIsMadeUp) {
  fake_.AddKey(Hive::kClassesRoot, u".xyz");
  EXPECT_EQ(TagOf(u".xyz"), "1168 application/xyz");
  EXPECT_EQ(TagOf(u"xyz"), "1168 application/xyz");
  fake_.AddKey(Hive::kClassesRoot, u"a.b");
  EXPECT_EQ(TagOf(u"a.b"), "1168 application/.b");
  // One that does not fit is none.
  Register(u".xyz", std::u16string(1023, u't'));
  EXPECT_EQ(TagOf(u".xyz"), "0 " + std::string(1023, 't'));
  Register(u".xyz", std::u16string(1024, u't'));
  EXPECT_EQ(TagOf(u".xyz"), "1168 application/xyz");
}

TEST_F(MimeTag, AMimeTypeMayLackItsTerminator) {
  std::string longest;
  for (int i = 0; i < 1024; ++i) {
    longest += std::string("t\0", 2);
  }
  for (const auto& [bytes, type] : {std::pair(std::string("a\0/\0b\0", 6), std::string("a/b")),
                                    std::pair(longest, std::string(1023, 't'))}) {
    fake_.SetValue(Hive::kClassesRoot, u".xyz", u"Content Type", platform::kRegSz, bytes);
    EXPECT_EQ(TagOf(u".xyz"), "0 " + type);
  }
}

TEST_F(MimeTag, LongExtensionsAreCutOff) {
  const std::u16string extension = u"." + std::u16string(1100, u'e');
  fake_.AddKey(Hive::kClassesRoot, extension.substr(0, 1023));
  EXPECT_EQ(TagOf(extension), "1168 application/" + std::string(1011, 'e'));
}

TEST_F(MimeTag, ArgumentsAreCheckedInTheirOrder) {
  char16_t tag[kTextBufferSize] = u"as it was";
  const struct {
    const char16_t* extension;
    char16_t* tag;
    const char* log;
  } kCases[] = {
      {nullptr, nullptr, "The output parameter is invalid."},
      {u"", nullptr, "The output parameter is invalid."},
      {u".pdf", nullptr, "The output parameter is invalid."},
      {nullptr, tag, "The extension parameter is NULL."},
      {u"", tag, "The extension parameter is empty."},
  };
  for (const auto& test : kCases) {
    fake_.Reset();
    EXPECT_EQ(GetAttachmentMimeTag(test.extension, test.tag), E_INVALIDARG);
    EXPECT_EQ(test::LogText(), std::string("ERROR: GetAttachmentMimeTag(): ") + test.log + "\n");
  }
  EXPECT_EQ(std::u16string(tag), u"as it was");
}

// --- the attachment ---

const std::string kAllocate = "MAPIAllocateBuffer(" + std::to_string(12 * sizeof(SPropValue)) + ")";
constexpr char kRead[] = "ReadBytes(C:\\docs\\fax.pdf, 3)";
constexpr char kCreate[] = "IMessage::CreateAttach(null, 0x8)";
constexpr char kFree[] = "MAPIFreeBuffer(block 1)";
constexpr char kStart[] = "log INFO: AddAttachment(): 'C:\\docs\\fax.pdf'";
constexpr char kIsSet[] = "log INFO: AddAttachment(): Attachment properties are set.";
constexpr char kIsAdded[] = "log INFO: AddAttachment(): Attachment added successfully,";
constexpr char kNoMimeTag[] = "log WARNING: AddAttachment(): The mime tag cannot be retrieved.";
constexpr char kInvalid[] = "log WARNING: Code 0x80070057 --> (CDO) Invalid Parameter.";

// The values of an attachment.
std::string SetProps(const std::string& extension, const std::string& name,
                     const std::string& bytes = "3 bytes 504446") {
  return "IAttach::SetProps(9, [0x37050003 1, 0x370b0003 -1, 0x37010102 " + bytes +
         ", 0x3703001f \"" + extension + "\", 0x3704001f \"" + name + "\", 0x3707001f \"" + name +
         "\", 0x37140003 0, 0x3001001f \"" + name + "\", 0x7ffa0003 0], null)";
}

class AttachmentOfMessage : public test::MapiTest {
 protected:
  AttachmentOfMessage() { Prepare(); }

  void Prepare(const std::string& bytes = "PDF") {
    StartOver();
    fake_.SetFile(kPath, bytes);
  }

  HRESULT Add(const char16_t* name = u"Letter.pdf", const char16_t* path = kPath) {
    return AddAttachment(Message(), path, 0xFFFFFFFF, name);
  }

  // How a document is attached whose name is `name`.
  std::string AttachedAs(const std::u16string& name, const std::string& bytes = "PDF") {
    Prepare(bytes);
    EXPECT_EQ(Add(name.c_str()), S_OK);
    EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{bytes});
    EXPECT_FALSE(fake_.FileBytes(kPath));
    return CallOf("IAttach::SetProps");
  }
};

TEST_F(AttachmentOfMessage, TakesTheDocumentAndDeletesIt) {
  // The last success is given back as it is.
  mapi_->Answer("IAttach::SaveChanges", 0, 4);
  EXPECT_EQ(Add(), 4);
  EXPECT_EQ(Trace(),
            Lines({kStart, kAllocate, kOpen, kSize, kRead, kReadOn, kCreate,
                   SetProps(".pdf", "Letter.pdf"), kIsSet, "IAttach::SaveChanges(0x0)", kIsAdded,
                   "RemoveFile(C:\\docs\\fax.pdf)",
                   "log INFO: AddAttachment(): The attachment file was deleted successfully.",
                   "IAttach::Release()", kFree}));
  EXPECT_EQ(mapi_->SavedAttachments(), std::vector<std::string>{"PDF"});
  EXPECT_FALSE(fake_.FileBytes(kPath));
}

TEST_F(AttachmentOfMessage, IsNamedByItsNameAndNeverByItsPath) {
  const struct {
    const char16_t* name;
    const char* extension;
    const char* file_name;
  } kCases[] = {
      {u"Letter.tif", ".tif", "Letter.tif"},
      {u"Letter.PDF", ".PDF", "Letter.PDF"},
      {u"a.b.c", ".c", "a.b.c"},
      {u"C:\\x\\Letter.pdf", ".pdf", "Letter.pdf"},
      {u"x/y/Letter.pdf", ".pdf", "Letter.pdf"},
      {u"x/y\\Letter.pdf", ".pdf", "Letter.pdf"},
      {u"J\u00E4ger \U0001D11E.pdf", ".pdf", "J\xC3\xA4ger \xF0\x9D\x84\x9E.pdf"},
      // The text is read from its end, and separators in front of the first token do not count.
      {u"Letter.pdf.", ".pdf", "Letter.pdf."},
      {u"Letter.", ".Letter", "Letter."},
      {u"x\\Letter.pdf\\/", ".pdf\\/", "Letter.pdf"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(AttachedAs(test.name), SetProps(test.extension, test.file_name));
  }
}

TEST_F(AttachmentOfMessage, DeliberateWithoutADotTheWholeNameIsTheExtension) {
  EXPECT_EQ(AttachedAs(u"Letter"), SetProps(".Letter", "Letter"));
  EXPECT_EQ(AttachedAs(u"C:\\x\\Letter"), SetProps(".C:\\x\\Letter", "Letter"));
}

TEST_F(AttachmentOfMessage, DeliberateADotInAFolderBeginsTheExtension) {
  EXPECT_EQ(AttachedAs(u"C:\\x.y\\Letter"), SetProps(".y\\Letter", "Letter"));
  EXPECT_EQ(AttachedAs(u"x.y/z/Letter"), SetProps(".y/z/Letter", "Letter"));
}

TEST_F(AttachmentOfMessage, WithoutANameAllItsNamesAreEmpty) {
  for (const char16_t* const name : {u"", static_cast<const char16_t*>(nullptr)}) {
    Prepare();
    EXPECT_EQ(Add(name), S_OK);
    EXPECT_TRUE(Trace().starts_with(Lines(
        {kStart, "log ERROR: GetAttachmentMimeTag(): The extension parameter is empty.", kNoMimeTag,
         kInvalid, kAllocate, kOpen, kSize, kRead, kReadOn, kCreate, SetProps("", ""), kIsSet})))
        << Trace();
    EXPECT_FALSE(fake_.FileBytes(kPath));
  }
}

// The extension is looked for in the first 1,023 characters; the name itself is not cut.
TEST_F(AttachmentOfMessage, ALongNameIsKeptAndItsExtensionLookedForAtItsBeginning) {
  const std::string stem(1018, 'n');
  const std::string longer = std::string(1100, 'n') + ".pdf";
  for (const auto& [name, extension] :
       {std::pair(stem + ".tiff", std::string(".tiff")),
        std::pair(stem + "n.tiff", std::string(".tif")),
        std::pair(longer, "." + longer.substr(0, 1023)),
        std::pair("x." + std::string(1100, 'e'), "." + std::string(1021, 'e'))}) {
    EXPECT_EQ(AttachedAs(std::u16string(name.begin(), name.end())), SetProps(extension, name));
  }
}

TEST_F(AttachmentOfMessage, OfAnEmptyDocumentHasNoBytes) {
  EXPECT_EQ(AttachedAs(u"Letter.pdf", ""), SetProps(".pdf", "Letter.pdf", "0 bytes"));
}

TEST_F(AttachmentOfMessage, NeedsAMessage) {
  for (const char16_t* const path : {kPath, static_cast<const char16_t*>(nullptr)}) {
    Prepare();
    EXPECT_EQ(AddAttachment(nullptr, path, 0, u"Letter.pdf"), E_INVALIDARG);
    EXPECT_EQ(Trace(), Lines({path != nullptr ? kStart : "log INFO: AddAttachment(): '(null)'",
                              "log ERROR: AddAttachment(): The message interface is NULL."}));
    EXPECT_EQ(fake_.FileBytes(kPath), "PDF");
  }
}

TEST_F(AttachmentOfMessage, NeedsAPath) {
  for (const auto& [path, shown, reason] :
       {std::tuple(static_cast<const char16_t*>(nullptr), "(null)", "NULL."),
        std::tuple(u"", "", "empty.")}) {
    StartOver();
    EXPECT_EQ(Add(u"Letter.pdf", path), E_INVALIDARG);
    const std::string parameter = std::string("(): The file path parameter is ") + reason;
    EXPECT_EQ(
        Trace(),
        Lines({std::string("log INFO: AddAttachment(): '") + shown + "'",
               "log ERROR: GetAttachmentExtension" + parameter,
               "log WARNING: AddAttachment(): The extension cannot be retrieved.", kInvalid,
               "log ERROR: GetAttachmentMimeTag(): The extension parameter is empty.", kNoMimeTag,
               kInvalid, "log ERROR: GetAttachmentFilename" + parameter, kNoMimeTag, kInvalid}));
  }
}

}  // namespace
}  // namespace zentpost
