#include "tools/sandbox_mapi/eml.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

constexpr std::chrono::sys_seconds kDate{std::chrono::seconds{1795163109}};

Property TextOf(std::uint32_t id, std::u16string text) {
  return Text(Tag(id, kUnicode), std::move(text));
}

std::string Repeated(const char* text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) {
    result += text;
  }
  return result;
}

std::string Written(const Message& message, bool is_unsent = false) {
  std::ostringstream out;
  return WriteEml(message, {kDate, "unique", is_unsent}, out) ? out.str() : "not written";
}

// Of lines that end in CRLF.
std::size_t LongestLine(const std::string& text) {
  std::istringstream lines(text);
  std::size_t longest = 0;
  for (std::string line; std::getline(lines, line);) {
    longest = std::max(longest, line.size() - 1);
  }
  return longest;
}

TEST(Eml, AddressesAreReadableAddrSpecsWhateverTheirType) {
  const struct {
    const char16_t* type;
    std::u16string address;
    std::string expected;
  } cases[] = {
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
      {u"FAX", std::u16string(236, u'7'),
       "FAX=" + std::string(236, '7') + "@typed.sandbox.invalid"},
      {u"FAX", std::u16string(237, u'7'), "long=@typed.sandbox.invalid"},
      {u"", u"[FAX:0301]", "%5BFAX%3A0301%5D@untyped.sandbox.invalid"},
      {u"", u"", "empty=@untyped.sandbox.invalid"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(AddressSpec(one.type, one.address), one.expected);
  }
}

TEST(Eml, HeadersAreFoldedOrEncoded) {
  const std::string words = " one two three four five six seven eight nine ten eleven twelve";
  const std::string encoded = " =?UTF-8?B?" + Repeated("4oKs", 10) + "?=\r\n";
  const std::pair<std::u16string, std::string> cases[] = {
      {u"short", " short\r\n"},
      {u"one two three four five six seven eight nine ten eleven twelve thirteen fourteen",
       words + "\r\n thirteen fourteen\r\n"},
      {u"\u00FC", " =?UTF-8?B?w7w=?=\r\n"},
      // 30 bytes are 10 such characters, none of them torn apart.
      {std::u16string(20, u'\u20AC'), encoded + encoded},
      // Each of these would be changed by folding or taken for something else.
      {u"two  blanks", " =?UTF-8?B?dHdvICBibGFua3M=?=\r\n"},
      {u" first", " =?UTF-8?B?IGZpcnN0?=\r\n"},
      {u"last ", " =?UTF-8?B?bGFzdCA=?=\r\n"},
      {u"=?UTF-8?B?YQ==?=", " =?UTF-8?B?PT9VVEYtOD9CP1lRPT0/PQ==?=\r\n"},
      {std::u16string(57, u'x'),
       " =?UTF-8?B?" + Repeated("eHh4", 10) + "?=\r\n =?UTF-8?B?" + Repeated("eHh4", 9) + "?=\r\n"},
      // A line's end cannot make a new header.
      {u"a\rBcc: x\x7F!", " a Bcc: x !\r\n"},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(TextHeader("Subject", value), "Subject:" + expected);
  }
}

TEST(Eml, QuotedPrintableKeepsBlanksAndLineEnds) {
  const std::string full = Repeated("=3D", 25);
  const std::pair<std::u16string, std::string> cases[] = {
      {u"a\nb\rc\r\nd", "a\r\nb\r\nc\r\nd"},
      {u"a \nb\t", "a=20\r\nb=09"},
      {u"1=2 \u20AC", "1=3D2 =E2=82=AC"},
      {u".x\nFrom", "=2Ex\r\n=46rom"},
      {u"", ""},
      {u"a\n", "a\r\n"},
      // Short lines, and no escape torn apart.
      {std::u16string(60, u'='), full + "=\r\n" + full + "=\r\n" + Repeated("=3D", 10)},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(QuotedPrintable(text), expected);
  }
}

TEST(Eml, WholeMessageWithoutDocument) {
  Message message;
  message.properties.Set(TextOf(kIdSubject, u"Invoice 42"));
  message.properties.Set(TextOf(kIdBody, u"Hello"));
  message.properties.Set(TextOf(kIdSentRepresentingName, u"A \"B\" C"));
  message.recipients = {{TextOf(kIdDisplayName, u"Jane"), TextOf(kIdAddressType, u"FAX"),
                         TextOf(kIdEmailAddress, u"030")}};
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
  const support::TemporaryFolder folder;
  const std::filesystem::path file = folder.Path() / "data.bin";
  Message message;
  for (const bool saved : {true, false}) {
    Attachment& attachment = message.attachments.emplace_back();
    attachment.saved = saved;
    attachment.properties = {
        TextOf(kIdAttachLongFilename, saved ? u"a\"\\.PDF" : u"b.pdf"),
        {.tag = Tag(kIdAttachData, kBinary), .spool = Spool{support::PathText(file), 8}}};
  }
  Attachment& other = message.attachments.emplace_back();
  other.saved = true;
  other.properties = {TextOf(kIdAttachFilename, u"x" + std::u16string(12, u'\u00E4')),
                      Bytes(Tag(kIdAttachData, kBinary), std::string(58, 'd'))};
  message.attachments.push_back(
      {.saved = true, .properties = {TextOf(kIdAttachFilename, std::u16string(9, u'\u00E4'))}});
  EXPECT_EQ(Written(message), "not written") << "the file is missing";
  support::WriteBytes(file, "short");
  EXPECT_EQ(Written(message), "not written");
  support::WriteBytes(file, "document");
  const std::string text = Written(message);
  EXPECT_NE(text.find("\r\nContent-Type: application/pdf\r\n"
                      "Content-Transfer-Encoding: base64\r\n"
                      "Content-Disposition: attachment;\r\n filename=\"a\\\"\\\\.PDF\"\r\n\r\n"
                      "ZG9jdW1lbnQ=\r\n--"),
            std::string::npos)
      << text;
  EXPECT_NE(
      text.find("\r\nContent-Type: application/octet-stream\r\n"
                "Content-Transfer-Encoding: base64\r\nContent-Disposition: attachment;\r\n"
                " filename*0*=UTF-8''x" +
                Repeated("%C3%A4", 8) +
                "%C3;\r\n"
                " filename*1*=%A4" +
                Repeated("%C3%A4", 3) + "\r\n\r\n" + Repeated("ZGRk", 19) + "\r\nZA==\r\n--=_"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find(";\r\n filename*=UTF-8''" + Repeated("%C3%A4", 9) + "\r\n\r\n--=_"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("b.pdf"), std::string::npos) << text;
}

TEST(Eml, NoLineIsLongerThanMailAllows) {
  Message message;
  message.properties = {TextOf(kIdSubject, std::u16string(2000, u's')),
                        TextOf(kIdBody, std::u16string(5000, u'\u00FC')),
                        TextOf(kIdSentRepresentingName, std::u16string(2000, u'n'))};
  message.recipients = {{TextOf(kIdDisplayName, std::u16string(1023, u'\u4E2D')),
                         TextOf(kIdAddressType, u"FAX"),
                         TextOf(kIdEmailAddress, std::u16string(1023, u' '))}};
  Attachment& attachment = message.attachments.emplace_back();
  attachment.saved = true;
  attachment.properties = {TextOf(kIdAttachFilename, std::u16string(1000, u'\u00E4')),
                           Bytes(Tag(kIdAttachData, kBinary), std::string(1000, 'd'))};
  EXPECT_LE(LongestLine(Written(message)), 78u);
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
