#include "tools/sandbox_mapi/eml.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "fake_mapi/text.h"
#include "tools/sandbox_mapi/sha256.h"
#include "tools/sandbox_mapi/test_folder.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

Property TextOf(std::uint32_t id, std::u16string text) {
  return Text(Tag(id, kUnicode), std::move(text));
}

constexpr std::chrono::sys_seconds kDate{std::chrono::seconds{1795163109}};

std::string Written(const Message& message, bool is_unsent = false) {
  std::ostringstream out;
  EXPECT_TRUE(WriteEml(message, {kDate, "unique", is_unsent}, out));
  return out.str();
}

std::size_t LongestLine(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    longest = std::max(longest, end);
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return longest;
}

TEST(Eml, AddressesAreReadableAddrSpecsWhateverTheirType) {
  struct Case {
    const char16_t* type;
    const char16_t* address;
    const char* expected;
  };
  const Case cases[] = {
      {u"SMTP", u"fax.49301234@gateway.example", "fax.49301234@gateway.example"},
      {u"SMTP", u"+49@b.example", "+49@b.example"},
      {u"SMTP", u"0301234567", "SMTP=0301234567@typed.sandbox.invalid"},
      {u"SMTP", u"a b@c", "SMTP=a%20b%40c@typed.sandbox.invalid"},
      {u"SMTP", u"a..b@c", "SMTP=a%2E%2Eb%40c@typed.sandbox.invalid"},
      {u"SMTP", u"@c", "SMTP=%40c@typed.sandbox.invalid"},
      {u"SMTP", u"a@", "SMTP=a%40@typed.sandbox.invalid"},
      {u"SMTP", u"\u00FC@c", "SMTP=%C3%BC%40c@typed.sandbox.invalid"},
      {u"FAX", u"+49 30 1", "FAX=+49%2030%201@typed.sandbox.invalid"},
      {u"FAX", u"a@b", "FAX=a%40b@typed.sandbox.invalid"},
      {u"", u"[FAX:0301]", "%5BFAX%3A0301%5D@untyped.sandbox.invalid"},
      {u"", u"", "empty=@untyped.sandbox.invalid"},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(AddressSpec(one.type, one.address), one.expected);
  }
}

TEST(Eml, AddressThatNoLineCanHoldIsToldByItsHash) {
  const std::u16string digits(1023, u'7');
  EXPECT_EQ(AddressSpec(u"FAX", digits),
            "sha256=" + Sha256Of(std::string(1023, '7')) + "@typed.sandbox.invalid");
}

TEST(Eml, PlainHeadersAreFoldedAtBlanks) {
  EXPECT_EQ(TextHeader("Subject", u"short"), "Subject: short\r\n");
  const std::string folded =
      TextHeader("Subject",
                 u"one two three four five six seven eight nine ten eleven twelve "
                 u"thirteen fourteen");
  EXPECT_EQ(folded,
            "Subject: one two three four five six seven eight nine ten eleven twelve\r\n"
            " thirteen fourteen\r\n");
}

TEST(Eml, HeadersThatCannotStandAsTheyAreAreEncoded) {
  EXPECT_EQ(TextHeader("Subject", u"\u00FC"), "Subject: =?UTF-8?B?w7w=?=\r\n");
  // Each of these would be changed by folding or taken for something else.
  for (const char16_t* text : {u"two  blanks", u" first", u"last ", u"=?UTF-8?B?YQ==?="}) {
    EXPECT_TRUE(TextHeader("Subject", text).starts_with("Subject: =?UTF-8?B?")) << Utf8(text);
  }
  EXPECT_TRUE(TextHeader("Subject", std::u16string(200, u'x')).starts_with("Subject: =?UTF-8?B?"));
}

TEST(Eml, LineEndsCannotMakeANewHeader) {
  EXPECT_EQ(TextHeader("Subject", u"a\r\nBcc: x"), TextHeader("Subject", u"a  Bcc: x"));
}

TEST(Eml, EncodedWordsTearNoCharacterApart) {
  const std::string header = TextHeader("Subject", std::u16string(100, u'\u20AC'));
  EXPECT_LE(LongestLine(header), 76u);
  // 30 bytes are 10 such characters, all of them whole.
  std::string word;
  for (int i = 0; i < 10; ++i) {
    word += "4oKs";
  }
  EXPECT_TRUE(header.starts_with("Subject: =?UTF-8?B?" + word + "?=\r\n")) << header;
}

TEST(Eml, QuotedPrintableKeepsBlanksAndLineEnds) {
  EXPECT_EQ(QuotedPrintable(u"a\nb\rc\r\nd"), "a\r\nb\r\nc\r\nd");
  EXPECT_EQ(QuotedPrintable(u"a \nb\t"), "a=20\r\nb=09");
  EXPECT_EQ(QuotedPrintable(u"1=2 \u20AC"), "1=3D2 =E2=82=AC");
  EXPECT_EQ(QuotedPrintable(u".x\nFrom"), "=2Ex\r\n=46rom");
  EXPECT_EQ(QuotedPrintable(u""), "");
  EXPECT_EQ(QuotedPrintable(u"a\n"), "a\r\n");
}

TEST(Eml, QuotedPrintableLinesAreShortAndTearNoEscapeApart) {
  const std::string text = QuotedPrintable(std::u16string(100, u'='));
  EXPECT_LE(LongestLine(text), 76u);
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    expected += i > 0 && i % 25 == 0 ? "=\r\n=3D" : "=3D";
  }
  EXPECT_EQ(text, expected);
}

TEST(Eml, DatesAreThoseOfMail) {
  EXPECT_EQ(MailDate(kDate), "Fri, 20 Nov 2026 08:25:09 +0000");
  EXPECT_EQ(MailDate(std::chrono::sys_seconds{}), "Thu, 01 Jan 1970 00:00:00 +0000");
}

TEST(Eml, WholeMessageWithoutDocument) {
  Message message;
  message.properties.Set(TextOf(kIdSubject, u"Invoice 42"));
  message.properties.Set(TextOf(kIdBody, u"Hello"));
  message.properties.Set(TextOf(kIdSentRepresentingName, u"A \"B\" C"));
  Properties& recipient = message.recipients.emplace_back();
  recipient.Set(TextOf(kIdDisplayName, u"Jane"));
  recipient.Set(TextOf(kIdAddressType, u"FAX"));
  recipient.Set(TextOf(kIdEmailAddress, u"030"));
  EXPECT_EQ(Written(message),
            "From: \"A \\\"B\\\" C\" <sender@sandbox.invalid>\r\n"
            "To: \"Jane\" <FAX=030@typed.sandbox.invalid>\r\n"
            "Subject: Invoice 42\r\n"
            "Date: Fri, 20 Nov 2026 08:25:09 +0000\r\n"
            "Message-ID: <unique@sandbox.invalid>\r\n"
            "X-Mailer: sandbox_mapi\r\n"
            "X-Sandbox-Recipient: FAX:030\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-Type: text/plain; charset=\"utf-8\"\r\n"
            "Content-Transfer-Encoding: quoted-printable\r\n"
            "\r\n"
            "Hello");
}

TEST(Eml, MessageWithNothingInItIsStillOne) {
  const std::string sent = Written(Message{});
  EXPECT_TRUE(
      sent.starts_with("From: \"Sandbox User\" <sender@sandbox.invalid>\r\n"
                       "To: undisclosed-recipients:;\r\nDate: "))
      << sent;
  EXPECT_EQ(sent.find("X-Unsent"), std::string::npos);
  const std::string draft = Written(Message{}, true);
  EXPECT_NE(draft.find("\r\nX-Unsent: 1\r\n"), std::string::npos) << draft;
  EXPECT_EQ(draft.find("To:"), std::string::npos) << draft;
}

TEST(Eml, DocumentsComeFromTheirFilesAndOnlySavedOnes) {
  const TestFolder folder;
  const std::filesystem::path file = folder.Path() / "data.bin";
  WriteBytes(file, "document");
  Message message;
  for (const bool saved : {true, false}) {
    Attachment& attachment = message.attachments.emplace_back();
    attachment.saved = saved;
    attachment.properties.Set(TextOf(kIdAttachLongFilename, saved ? u"a\"\\.PDF" : u"b.pdf"));
    attachment.properties.Set({.tag = Tag(kIdAttachData, kBinary), .spool = Spool{file, 8, ""}});
  }
  const std::string text = Written(message);
  EXPECT_NE(text.find("\r\nContent-Type: application/pdf\r\n"
                      "Content-Transfer-Encoding: base64\r\n"
                      "Content-Disposition: attachment;\r\n filename=\"a\\\"\\\\.PDF\"\r\n\r\n"
                      "ZG9jdW1lbnQ=\r\n--"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("b.pdf"), std::string::npos) << text;
}

TEST(Eml, DocumentThatIsShorterThanItWasIsAFailure) {
  const TestFolder folder;
  Message message;
  Attachment& attachment = message.attachments.emplace_back();
  attachment.saved = true;
  attachment.properties.Set(
      {.tag = Tag(kIdAttachData, kBinary), .spool = Spool{folder.Path() / "data.bin", 8, ""}});
  std::ostringstream out;
  EXPECT_FALSE(WriteEml(message, {kDate, "unique", false}, out)) << "the file is missing";
  WriteBytes(folder.Path() / "data.bin", "short");
  EXPECT_FALSE(WriteEml(message, {kDate, "unique", false}, out));
  WriteBytes(folder.Path() / "data.bin", "enough!!");
  EXPECT_TRUE(WriteEml(message, {kDate, "unique", false}, out));
}

TEST(Eml, NoLineIsLongerThanMailAllows) {
  Message message;
  message.properties.Set(TextOf(kIdSubject, std::u16string(2000, u's')));
  message.properties.Set(TextOf(kIdBody, std::u16string(5000, u'\u00FC')));
  message.properties.Set(TextOf(kIdSentRepresentingName, std::u16string(2000, u'n')));
  Properties& recipient = message.recipients.emplace_back();
  recipient.Set(TextOf(kIdDisplayName, std::u16string(1023, u'\u4E2D')));
  recipient.Set(TextOf(kIdAddressType, u"FAX"));
  recipient.Set(TextOf(kIdEmailAddress, std::u16string(1023, u' ')));
  Attachment& attachment = message.attachments.emplace_back();
  attachment.saved = true;
  attachment.properties.Set(TextOf(kIdAttachFilename, std::u16string(1000, u'\u00E4')));
  attachment.properties.Set(Bytes(Tag(kIdAttachData, kBinary), std::string(1000, 'd')));
  // An address is one word: it alone may be longer than the 78 characters of the others.
  EXPECT_LE(LongestLine(Written(message)), 110u);
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
