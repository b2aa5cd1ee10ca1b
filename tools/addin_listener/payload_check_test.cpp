#include "tools/addin_listener/payload_check.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zentpost::addin_listener {
namespace {

using Strings = std::vector<std::string>;

constexpr char kGood[] =
    R"({"Parameters":{"Receiver":"+49 30 1234","RecipientName":"Smith","SenderName":"",)"
    R"("FileName":"C:\\new\\a.pdf","AttachmentName":"a.pdf","Comment":"one\r\ntwo","Subject":"",)"
    R"("SendTime":"","ECM":true,"Preview":false}})";

// kGood with the first `from` replaced.
std::string With(std::string_view from, std::string_view to) {
  std::string text = kGood;
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

TEST(PayloadCheck, UndoesTheConversionOfTextsInEveryUtf8Length) {
  const std::pair<const char*, const char*> cases[] = {
      {"{\"a\":\t1}\x7F", "{\"a\":\t1}\x7F"},
      {"\xC3\x83\xC2\xA4\xC3\x83\xC2\x81", "\u00E4\u00C1"},
      {"\xC3\xA2\xE2\x80\x9A\xC2\xAC", "\u20AC"},
      {"\xC3\xA4\xC2\xB8\xC2\xAD", "\u4E2D"},
      {"\xC3\xB0\xC5\xB8\xCB\x9C\xE2\x82\xAC", "\U0001F600"},
      {"\xC3\xB4\xC2\x8F\xC2\xBF\xC2\xBF", "\U0010FFFF"},
  };
  for (const auto& [wire, json] : cases) {
    EXPECT_EQ(CheckPayload(wire).json_utf8, json);
  }
}

TEST(PayloadCheck, SaysWhatCannotBeUndoneAndWhere) {
  const std::string hint = "; was the text sent as plain UTF-8, without the conversion?";
  const std::string no_byte = " has no byte in Windows-1252" + hint;
  const std::pair<const char*, std::string> cases[] = {
      {"ab\xC3", "byte 2 on the wire: ill-formed UTF-8 (C3)"},
      {"\xFF", "byte 0 on the wire: ill-formed UTF-8 (FF)"},
      {"a\u4E2D", "byte 1 on the wire: character U+4E2D" + no_byte},
      {"\U0001F600", "byte 0 on the wire: character U+1F600" + no_byte},
      {"\xC2\x80", "byte 0 on the wire: character U+0080" + no_byte},
      {"ab\u00E4.", "byte 2 of the text: not UTF-8 once the conversion is undone (E4)" + hint},
  };
  for (const auto& [wire, problem] : cases) {
    const PayloadReport report = CheckPayload(wire);
    EXPECT_EQ(report.json_utf8, "");
    EXPECT_EQ(report.problems, Strings{problem});
  }
}

TEST(PayloadCheck, UndoesTheConversionOfOtherCodePages) {
  const CodePage polish(1250);
  EXPECT_EQ(CheckPayload("\u0139\u201A", polish).json_utf8, "\u0142");
  EXPECT_EQ(
      CheckPayload("\u4E2D", polish).problems,
      Strings{"byte 0 on the wire: character U+4E2D has no byte in Windows-1250; was the text "
              "sent as plain UTF-8, without the conversion?"});
  const CodePage japanese(932);
  EXPECT_EQ(CheckPayload("\uFF83\uFF64", japanese).json_utf8, "\u00E4");
  EXPECT_FALSE(CheckPayload("\u30FB", japanese).decodable);
  EXPECT_EQ(CheckPayload("\u30FB", japanese).problems,
            Strings{"byte 0 on the wire: character U+30FB has more than one origin in code page "
                    "932; code page 932 cannot carry every text"});
  // E2 82 AC and a quotation mark, of which the last two bytes were lost.
  EXPECT_EQ(
      CheckPayload("\u9225?", CodePage(936)).problems,
      Strings{"byte 0 of the text: not UTF-8 once the conversion is undone (E2); code page 936 "
              "cannot carry every text"});
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
  // Other layouts and escapes, one of which only looks like that of a zero.
  EXPECT_EQ(CheckPayload("\r\n\t " + With(",", " ,\r\n\t ") + " \n").problems, Strings{});
  EXPECT_EQ(CheckPayload(With("Smith", "\\\\u0000 \\\"x\\\"")).problems, Strings{});
}

TEST(PayloadCheck, NamesEachDeviation) {
  const std::string no_member = "member \"Parameters\" is missing";
  const std::pair<std::string, Strings> cases[] = {
      {With(R"("Subject":"",)", ""), {R"(member "Subject" is missing)"}},
      {With(R"("ECM")", R"("BaudRate":"","ECM")"), {R"(unknown member "BaudRate")"}},
      {With("SenderName", "sendername"),
       {R"(unknown member "sendername": the name is "SenderName")",
        R"(member "SenderName" is missing)"}},
      {With(R"("ECM")", R"("Receiver":"","ECM")"), {R"(member "Receiver" stands more than once)"}},
      {With(R"("ECM":true,"Preview":false)", R"("Preview":false,"ECM":true)"),
       {R"(member "ECM" stands after "Preview", not before it)"}},
      {With("true", R"("true")"), {R"(member "ECM" is a string, not a boolean)"}},
      {With("false", "0"), {R"(member "Preview" is a number, not a boolean)"}},
      {With(R"(t":"")", R"(t":true)"), {R"(member "Subject" is a boolean, not a string)"}},
      {With(R"(t":"")", R"(t":null)"), {R"(member "Subject" is null, not a string)"}},
      {With(R"(t":"")", R"(t":[])"), {R"(member "Subject" is an array, not a string)"}},
      {With(R"(t":"")", R"(t":{})"), {R"(member "Subject" is an object, not a string)"}},
      {With("{", R"({"Version":1,)"), {R"(unknown member "Version" beside "Parameters")"}},
      {With("Parameters", "parameters"),
       {R"(unknown member "parameters" beside "Parameters")", no_member}},
      {With("}}", R"(},"Parameters":{}})"), {R"(member "Parameters" stands more than once)"}},
      {R"({"Parameters":[]})", {R"(member "Parameters" is an array, not an object)"}},
      {"{}", {no_member}},
      {"[1]", {"the document is an array, not an object"}},
      {"5", {"the document is a number, not an object"}},
      {"null", {"the document is null, not an object"}},
      {"  ", {"byte 2 of the text: no JSON from here on"}},
      {R"({"Parameters":?})", {"byte 14 of the text: no JSON from here on"}},
      {"{} {}", {"byte 3 of the text: no JSON from here on"}},
      {std::string(100000, '['), {"byte 1000 of the text: no JSON from here on"}},
      {std::string("{}\0{}", 5), {"byte 3 of the text: no JSON from here on"}},
      {kGood + std::string(1, '\0'),
       {"byte " + std::to_string(sizeof kGood - 1) +
        " of the text: control character 00 where JSON allows none"}},
      {With("{", "{\f"), {"byte 1 of the text: control character 0C where JSON allows none"}},
      {With("Smith", R"(Sm\u0000ith)"),
       {"byte 59 of the text: the escape \\u0000 cuts its text short"}},
      {With("Smith", "Sm\nith"),
       {"byte 59 of the text: control character 0A where JSON allows none"}},
      {With("{", "\xC3\xAF\xC2\xBB\xC2\xBF{"), {"the text begins with a byte order mark"}},
  };
  for (const auto& [text, problems] : cases) {
    SCOPED_TRACE(text.substr(0, 300));
    const PayloadReport report = CheckPayload(text);
    EXPECT_EQ(report.problems, problems);
    EXPECT_FALSE(report.valid());
    EXPECT_NE(report.json_utf8, "");
  }
}

TEST(PayloadCheck, TruncatedPayloadIsNotValidAtAnyLength) {
  const std::string_view good = kGood;
  for (std::size_t length = 0; length < good.size(); ++length) {
    SCOPED_TRACE(length);
    EXPECT_EQ(CheckPayload(good.substr(0, length)).problems.size(), 1u);
  }
}

TEST(PayloadCheck, ShownValuesCannotCommandTheTerminal) {
  const std::pair<PayloadMember, const char*> cases[] = {
      {{"A", "x\x1B[31m\x7F"}, "  A: x<U+001B>[31m<U+007F>\n"},
      {{"A", "\u009B.m"}, "  A: <U+009B>.m\n"},
      {{"A", "a\tb"}, "  A: a\tb\n"},
      {{"A\n\x1B", "b"}, "  A<U+000A><U+001B>: b\n"},
      {{"A", "\u00E4\u20AC"}, "  A: \u00E4\u20AC\n"},
      {{"A", "1\n2\r3\r\n4\n\r5"}, "  A: 1\n     2\n     3\n     4\n\n     5\n"},
      {{"A", "1\n"}, "  A: 1\n\n"},
      {{"A", "\n"}, "  A:\n\n"},
  };
  for (const auto& [member, lines] : cases) {
    EXPECT_EQ(FormatMembers({member}), lines);
  }
  EXPECT_EQ(FormatMembers({}), "");
}

TEST(PayloadCheck, ShownValuesFitAConsoleAndCanBePutTogetherAgain) {
  const auto x = [](std::size_t count) { return std::string(count, 'x'); };
  const std::pair<std::string, std::string> cases[] = {
      {x(75), "  A: " + x(75) + "\n"},
      {x(76), "  A: " + x(75) + "\n   > x\n"},
      {x(160), "  A: " + x(75) + "\n   > " + x(75) + "\n   > " + x(10) + "\n"},
      {"one " + x(75), "  A: one\n   >  " + x(74) + "\n   > x\n"},
      {x(74) + " two", "  A: " + x(74) + "\n   >  two\n"},
      {x(75) + " two", "  A: " + x(75) + "\n   >  two\n"},
      {x(76) + "\nthree", "  A: " + x(75) + "\n   > x\n     three\n"},
      // 38 characters of two columns; a tab may take eight.
      {x(1) + "\u4E2D\u4E2D" + x(71), "  A: x\u4E2D\u4E2D" + x(70) + "\n   > x\n"},
      {x(70) + "\t", "  A: " + x(70) + "\n   > \t\n"},
  };
  for (const auto& [value, lines] : cases) {
    EXPECT_EQ(FormatMembers({{"A", value}}), lines);
  }
  EXPECT_EQ(FormatMembers({{x(90), "1"}, {"B", "2"}}),
            "  " + x(78) + "\n" + std::string(38, ' ') + "> " + x(12) +
                ": 1\n  B:" + std::string(36, ' ') + "2\n");
}

}  // namespace
}  // namespace zentpost::addin_listener
