#include "tools/addin_listener/payload_check.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace zentpost::addin_listener {
namespace {

using Strings = std::vector<std::string>;

constexpr char kGood[] =
    "{\n\t\"Parameters\":\t{\n"
    "\t\t\"Receiver\":\t\"+49 30 1234\",\n"
    "\t\t\"RecipientName\":\t\"Smith\",\n"
    "\t\t\"SenderName\":\t\"\",\n"
    "\t\t\"FileName\":\t\"C:\\\\new\\\\a.pdf\",\n"
    "\t\t\"AttachmentName\":\t\"a.pdf\",\n"
    "\t\t\"Comment\":\t\"one\\r\\ntwo\",\n"
    "\t\t\"Subject\":\t\"\",\n"
    "\t\t\"SendTime\":\t\"\",\n"
    "\t\t\"ECM\":\ttrue,\n"
    "\t\t\"Preview\":\tfalse\n"
    "\t}\n}";

// kGood with the first `from` replaced.
std::string With(std::string_view from, std::string_view to) {
  std::string text = kGood;
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(PayloadCheck, UndoesTheConversionOfEachByteThatDiffersFromLatin1) {
  // What the bytes 80 to 9F are in Windows-1252, in UTF-8.
  const char* const characters[32] = {
      "\u20AC",   "\xC2\x81", "\u201A", "\u0192", "\u201E", "\u2026",   "\u2020", "\u2021",
      "\u02C6",   "\u2030",   "\u0160", "\u2039", "\u0152", "\xC2\x8D", "\u017D", "\xC2\x8F",
      "\xC2\x90", "\u2018",   "\u2019", "\u201C", "\u201D", "\u2022",   "\u2013", "\u2014",
      "\u02DC",   "\u2122",   "\u0161", "\u203A", "\u0153", "\xC2\x9D", "\u017E", "\u0178"};
  for (unsigned i = 0; i < 32; ++i) {
    SCOPED_TRACE(i);
    // The byte continues the lead byte C3, which is sent as C3 83.
    EXPECT_EQ(CheckPayload(std::string("\xC3\x83") + characters[i]).json_utf8,
              std::string("\xC3") + static_cast<char>(0x80 + i));
  }
}

TEST(PayloadCheck, UndoesTheConversionOfTextsInEveryUtf8Length) {
  const struct {
    const char* name;
    const char* wire;
    const char* json;
  } cases[] = {
      {"ASCII", "{\"a\":\t1}\x7F", "{\"a\":\t1}\x7F"},
      {"a-umlaut", "\xC3\x83\xC2\xA4", "\xC3\xA4"},
      {"euro", "\xC3\xA2\xE2\x80\x9A\xC2\xAC", "\xE2\x82\xAC"},
      {"an ideograph", "\xC3\xA4\xC2\xB8\xC2\xAD", "\xE4\xB8\xAD"},
      {"an emoji", "\xC3\xB0\xC5\xB8\xCB\x9C\xE2\x82\xAC", "\xF0\x9F\x98\x80"},
      {"the last character", "\xC3\xB4\xC2\x8F\xC2\xBF\xC2\xBF", "\xF4\x8F\xBF\xBF"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(CheckPayload(item.wire).json_utf8, item.json);
  }
}

TEST(PayloadCheck, SaysWhatCannotBeUndoneAndWhere) {
  const std::string hint = "; was the text sent as plain UTF-8, without the conversion?";
  const struct {
    const char* name;
    std::string wire;
    std::string problem;
  } cases[] = {
      {"a lone lead byte", "ab\xC3", "byte 2 on the wire: ill-formed UTF-8 (C3)"},
      {"a lead byte before ASCII", "ab\xC3(", "byte 2 on the wire: ill-formed UTF-8 (C3)"},
      {"a lone continuation byte", "a\x80", "byte 1 on the wire: ill-formed UTF-8 (80)"},
      {"an overlong form", "\xC0\x80", "byte 0 on the wire: ill-formed UTF-8 (C0)"},
      {"an overlong form of three", "\xE0\x80\xAF", "byte 0 on the wire: ill-formed UTF-8 (E0)"},
      {"a surrogate", "\xED\xA0\x80", "byte 0 on the wire: ill-formed UTF-8 (ED)"},
      {"above the last character", "\xF4\x90\x80\x80", "byte 0 on the wire: ill-formed UTF-8 (F4)"},
      {"no lead byte at all", "\xFF", "byte 0 on the wire: ill-formed UTF-8 (FF)"},
      {"outside the code page", "a\xE4\xB8\xAD",
       "byte 1 on the wire: character U+4E2D has no byte in Windows-1252" + hint},
      {"beyond the first plane", "\xF0\x9F\x98\x80",
       "byte 0 on the wire: character U+1F600 has no byte in Windows-1252" + hint},
      {"a control character that no byte is read as", "\xC2\x80",
       "byte 0 on the wire: character U+0080 has no byte in Windows-1252" + hint},
      {"plain UTF-8",
       "ab\xC3\xA4"
       "c",
       "byte 2 of the text: not UTF-8 once the conversion is undone (E4)" + hint},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    const PayloadReport report = CheckPayload(item.wire);
    EXPECT_EQ(report.json_utf8, "");
    EXPECT_EQ(report.problems, Strings{item.problem});
  }
}

TEST(PayloadCheck, TakesThePayloadAsItIsSent) {
  const PayloadReport report = CheckPayload(kGood);
  EXPECT_EQ(report.problems, Strings{});
  EXPECT_TRUE(report.valid());
  EXPECT_EQ(report.json_utf8, kGood);
  ASSERT_EQ(report.members.size(), 10u);
  EXPECT_EQ(report.members[0].name, "Receiver");
  EXPECT_EQ(report.members[0].value_utf8, "+49 30 1234");
  EXPECT_EQ(report.members[3].value_utf8, "C:\\new\\a.pdf");
  EXPECT_EQ(report.members[9].name, "Preview");
  EXPECT_EQ(report.members[9].value_utf8, "false");
}

TEST(PayloadCheck, LayoutOfTheJsonDoesNotMatter) {
  std::string text = kGood;
  std::erase_if(text, [](char c) { return c == '\n' || c == '\t'; });
  EXPECT_EQ(CheckPayload(text).problems, Strings{});
  EXPECT_EQ(CheckPayload(" " + text + "\r\n ").problems, Strings{});
}

TEST(PayloadCheck, NamesEachDeviation) {
  const struct {
    const char* name;
    std::string text;
    Strings problems;
  } cases[] = {
      {"a missing member",
       With("\t\t\"Subject\":\t\"\",\n", ""),
       {"member \"Subject\" is missing"}},
      {"a member too many",
       With("\"ECM\":", "\"BaudRate\":\t\"\",\n\t\t\"ECM\":"),
       {"unknown member \"BaudRate\""}},
      {"another case",
       With("SenderName", "sendername"),
       {"unknown member \"sendername\": the name is \"SenderName\"",
        "member \"SenderName\" is missing"}},
      {"a member twice",
       With("\"Subject\":", "\"Receiver\":\t\"\",\n\t\t\"Subject\":"),
       {"member \"Receiver\" stands more than once"}},
      {"two members exchanged",
       With("\"ECM\":\ttrue,\n\t\t\"Preview\":\tfalse", "\"Preview\":\tfalse,\n\t\t\"ECM\":\ttrue"),
       {"member \"ECM\" stands after \"Preview\", not before it"}},
      {"a string for a boolean",
       With("\ttrue", "\t\"true\""),
       {"member \"ECM\" is a string, not a boolean"}},
      {"a number for a boolean",
       With("\tfalse", "\t0"),
       {"member \"Preview\" is a number, not a boolean"}},
      {"a boolean for a string",
       With("\"Subject\":\t\"\"", "\"Subject\":\ttrue"),
       {"member \"Subject\" is a boolean, not a string"}},
      {"null for a string",
       With("\"Subject\":\t\"\"", "\"Subject\":\tnull"),
       {"member \"Subject\" is null, not a string"}},
      {"an array for a string",
       With("\"Subject\":\t\"\"", "\"Subject\":\t[]"),
       {"member \"Subject\" is an array, not a string"}},
      {"an object for a string",
       With("\"Subject\":\t\"\"", "\"Subject\":\t{}"),
       {"member \"Subject\" is an object, not a string"}},
      {"a member beside Parameters",
       With("{\n\t\"Parameters\"", "{\n\t\"Version\":\t1,\n\t\"Parameters\""),
       {"unknown member \"Version\" beside \"Parameters\""}},
      {"Parameters in another case",
       With("Parameters", "parameters"),
       {"unknown member \"parameters\" beside \"Parameters\"", "member \"Parameters\" is missing"}},
      {"Parameters twice",
       With("{\n\t\"Parameters\"", "{\"Parameters\":{},\n\t\"Parameters\""),
       {"member \"Parameters\" stands more than once", "member \"Receiver\" is missing",
        "member \"RecipientName\" is missing", "member \"SenderName\" is missing",
        "member \"FileName\" is missing", "member \"AttachmentName\" is missing",
        "member \"Comment\" is missing", "member \"Subject\" is missing",
        "member \"SendTime\" is missing", "member \"ECM\" is missing",
        "member \"Preview\" is missing"}},
      {"Parameters is an array",
       "{\"Parameters\":[]}",
       {"member \"Parameters\" is an array, not an object"}},
      {"an empty object", "{}", {"member \"Parameters\" is missing"}},
      {"an array", "[1]", {"the document is an array, not an object"}},
      {"a number", "5", {"the document is a number, not an object"}},
      {"null", "null", {"the document is null, not an object"}},
      {"nothing but blanks", "  ", {"byte 2 of the text: no JSON from here on"}},
      {"no JSON", "{\"Parameters\":?}", {"byte 14 of the text: no JSON from here on"}},
      {"more after the document", "{} {}", {"byte 3 of the text: no JSON from here on"}},
      {"a NUL and more", std::string("{}\0{}", 5), {"byte 3 of the text: no JSON from here on"}},
      {"a NUL at the end",
       kGood + std::string(1, '\0'),
       {"byte " + std::to_string(sizeof kGood - 1) +
        " of the text: control character 00 where JSON allows none"}},
      {"a form feed between members",
       "{\f" + std::string(kGood + 1),
       {"byte 1 of the text: control character 0C where JSON allows none"}},
      {"an escaped NUL",
       With("Smith", "Sm\\u0000ith"),
       {"byte 70 of the text: the escape \\u0000 cuts its text short"}},
      {"a line feed without escape",
       With("Smith", "Sm\nith"),
       {"byte 70 of the text: control character 0A where JSON allows none"}},
      {"a byte order mark",
       "\xC3\xAF\xC2\xBB\xC2\xBF" + std::string(kGood),
       {"the text begins with a byte order mark"}},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    const PayloadReport report = CheckPayload(item.text);
    EXPECT_EQ(report.problems, item.problems);
    EXPECT_FALSE(report.valid());
    EXPECT_NE(report.json_utf8, "");
  }
}

TEST(PayloadCheck, EscapedBackslashBeforeZerosIsNoEscapedNul) {
  EXPECT_EQ(CheckPayload(With("Smith", "\\\\u0000 \\\"x\\\"")).problems, Strings{});
}

TEST(PayloadCheck, TruncatedPayloadIsNotValidAtAnyLength) {
  const std::string_view good = kGood;
  for (std::size_t length = 0; length < good.size(); ++length) {
    SCOPED_TRACE(length);
    EXPECT_EQ(CheckPayload(good.substr(0, length)).problems.size(), 1u);
  }
}

TEST(PayloadCheck, DeepNestingIsRefused) {
  const std::string text = std::string(100000, '[') + std::string(100000, ']');
  const PayloadReport report = CheckPayload(text);
  ASSERT_EQ(report.problems.size(), 1u);
  EXPECT_NE(report.problems[0].find("no JSON from here on"), std::string::npos);
}

TEST(PayloadCheck, MembersAreShownBelowEachOther) {
  EXPECT_EQ(FormatMembers(CheckPayload(kGood).members),
            "  Receiver:       +49 30 1234\n"
            "  RecipientName:  Smith\n"
            "  SenderName:\n"
            "  FileName:       C:\\new\\a.pdf\n"
            "  AttachmentName: a.pdf\n"
            "  Comment:        one\n"
            "                  two\n"
            "  Subject:\n"
            "  SendTime:\n"
            "  ECM:            true\n"
            "  Preview:        false\n");
}

TEST(PayloadCheck, ShownValuesCannotCommandTheTerminal) {
  const struct {
    const char* name;
    PayloadMember member;
    const char* line;
  } cases[] = {
      {"escape", {"A", "x\x1B[31m\x7F"}, "  A: x<U+001B>[31m<U+007F>\n"},
      {"control above ASCII",
       {"A",
        "\xC2\x9B"
        "1m"},
       "  A: <U+009B>1m\n"},
      {"tab", {"A", "a\tb"}, "  A: a\tb\n"},
      {"name", {"A\n\x1B", "b"}, "  A<U+000A><U+001B>: b\n"},
      {"other text", {"A", "\xC3\xA4\xE2\x82\xAC"}, "  A: \xC3\xA4\xE2\x82\xAC\n"},
      {"each kind of line break",
       {"A", "1\n2\r3\r\n4\n\r5"},
       "  A: 1\n     2\n     3\n     4\n\n     5\n"},
      {"line break at the end", {"A", "1\n"}, "  A: 1\n\n"},
      {"line break alone", {"A", "\n"}, "  A:\n\n"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(FormatMembers({item.member}), item.line);
  }
  EXPECT_EQ(FormatMembers({}), "");
}

}  // namespace
}  // namespace zentpost::addin_listener
