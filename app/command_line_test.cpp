#include "app/command_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fixture.h"

namespace zentpost {
namespace {

using Entry = ParameterList::Entry;
using Entries = std::vector<Entry>;
using Tokens = std::vector<std::u16string>;

// The longest command line that the tool promises to take.
constexpr std::size_t kLongLine = 32000;

// On the machine in memory because the first token is offered to the job file reader.
class CommandLine : public platform::fake::MachineTest {};

struct SplitCase {
  const char* name;
  const char16_t* text;
  Tokens tokens;
};

void ExpectTokens(const std::vector<SplitCase>& cases, char16_t separator) {
  for (const SplitCase& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(SplitQuoted(test.text, separator), test.tokens);
  }
}

// The grammar once more, unit by unit as one would do it by hand, for comparison.
Tokens SplitByHand(const std::u16string& text, char16_t separator) {
  Tokens tokens;
  if (text.empty()) {
    return tokens;
  }
  std::u16string token;
  bool quoted = false;
  const auto finish = [&] {
    const std::u16string white = u" \t\n\v\f\r";
    while (!token.empty() && white.find(token.front()) != std::u16string::npos) {
      token.erase(0, 1);
    }
    while (!token.empty() && white.find(token.back()) != std::u16string::npos) {
      token.pop_back();
    }
    std::u16string unquoted;
    for (const char16_t unit : token) {
      if (unit != u'"' && unit != u'\'') {
        unquoted += unit;
      }
    }
    tokens.push_back(unquoted);
    token.clear();
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'"' || text[i] == u'\'') {
      if (!quoted) {
        quoted = true;
      } else if (i == text.size() - 1 || text[i + 1] == u' ') {
        quoted = false;
      }
    }
    if (text[i] == separator && !quoted) {
      finish();
    } else {
      token += text[i];
    }
  }
  finish();
  return tokens;
}

TEST_F(CommandLine, BlanksSeparateTokens) {
  ExpectTokens(
      {
          {"empty text", u"", {}},
          {"one token", u"a", {u"a"}},
          {"two tokens", u"a b", {u"a", u"b"}},
          {"adjacent separators", u"a  b", {u"a", u"", u"b"}},
          {"three adjacent separators", u"a   b", {u"a", u"", u"", u"b"}},
          {"leading separator", u" a", {u"", u"a"}},
          {"trailing separator", u"a ", {u"a", u""}},
          {"separator alone", u" ", {u"", u""}},
          {"two separators alone", u"  ", {u"", u"", u""}},
          {"another separator is an ordinary character", u"a;b c;d", {u"a;b", u"c;d"}},
          {"beyond ASCII",
           u"\u00E4 \u4E2D\u6587 \U0001F4E0",
           {u"\u00E4", u"\u4E2D\u6587", u"\U0001F4E0"}},
      },
      u' ');
}

TEST_F(CommandLine, TokensAreTrimmedOfWhiteSpace) {
  ExpectTokens(
      {
          {"a tab does not separate", u"a\tb", {u"a\tb"}},
          {"tabs at the ends", u"\ta\t b", {u"a", u"b"}},
          {"a tab alone is an empty token", u"a \t b", {u"a", u"", u"b"}},
          {"all kinds", u"\t\n\v\f\ra\r\f\v\n\t b", {u"a", u"b"}},
          {"inside it stays", u"a\r\nb c", {u"a\r\nb", u"c"}},
      },
      u' ');
}

TEST_F(CommandLine, QuotesKeepSeparatorsTogether) {
  ExpectTokens(
      {
          {"double quotes", u"\"c:\\my docs\\a.json\"", {u"c:\\my docs\\a.json"}},
          {"double quotes, then more", u"\"a b\" c", {u"a b", u"c"}},
          {"apostrophes", u"'a b' c", {u"a b", u"c"}},
          {"two quoted tokens", u"\"a b\" 'c d'", {u"a b", u"c d"}},
          {"opened inside a token", u"a\"b c\" d", {u"ab c", u"d"}},
          {"adjacent separators in quotes", u"\"a  b\" c", {u"a  b", u"c"}},
          {"empty quotes", u"\"\"", {u""}},
          {"empty quotes, then more", u"\"\" a", {u"", u"a"}},
          {"empty apostrophes between", u"a '' b", {u"a", u"", u"b"}},
          {"quotes around nothing but a blank", u"\" \" a", {u" ", u"a"}},
          {"quotes side by side", u"\"a\"\"b\" c", {u"ab", u"c"}},
      },
      u' ');
}

TEST_F(CommandLine, AQuoteClosesOnlyAtTheEndOrBeforeABlank) {
  ExpectTokens(
      {
          {"a letter follows", u"\"a b\"c d", {u"a bc d"}},
          {"a tab follows", u"\"a b\"\tc d", {u"a b\tc d"}},
          {"a semicolon follows", u"\"a b\";c d", {u"a b;c d"}},
          {"the next one before a blank closes", u"\"a b\"c\" d", {u"a bc", u"d"}},
          {"an apostrophe inside a word", u"\"it's here\" x", {u"its here", u"x"}},
      },
      u' ');
}

TEST_F(CommandLine, EitherKindOfQuoteClosesTheOther) {
  ExpectTokens(
      {
          {"apostrophe closes", u"\"a' b", {u"a", u"b"}},
          {"double quote closes", u"'a\" b", {u"a", u"b"}},
          {"the rest opens anew", u"\"a' b\" c", {u"a", u"b c"}},
          {"at the end", u"\"a b'", {u"a b"}},
      },
      u' ');
}

TEST_F(CommandLine, AnUnbalancedQuoteMakesTheRestOneToken) {
  ExpectTokens(
      {
          {"apostrophe in a name", u"c:\\o'brien.pdf x", {u"c:\\obrien.pdf x"}},
          {"in the middle", u"a b\"c d e", {u"a", u"bc d e"}},
          {"alone", u"\"", {u""}},
          {"at the end", u"a b\"", {u"a", u"b"}},
          {"before a blank it opens", u"\" a b", {u" a b"}},
          {"trailing blanks are trimmed", u"\"a  ", {u"a"}},
      },
      u' ');
}

// Programs that start the tool pad paths inside the quotes and rely on getting the blanks back.
TEST_F(CommandLine, DeliberateBlanksInsideQuotesSurviveTheTrimming) {
  ExpectTokens(
      {
          {"both ends", u"\" a \" b", {u" a ", u"b"}},
          {"outside they go", u"\t\"a \"\t b", {u"a \t b"}},
      },
      u' ');
}

TEST_F(CommandLine, SemicolonsSeparateFaxFields) {
  ExpectTokens(
      {
          {"three fields", u"0301234567;Nexample;Shello", {u"0301234567", u"Nexample", u"Shello"}},
          {"a blank does not separate", u"030 12;N a b", {u"030 12", u"N a b"}},
          {"fields are trimmed", u" 030 ; N ", {u"030", u"N"}},
          {"empty fields", u";;a;", {u"", u"", u"a", u""}},
          {"semicolon alone", u";", {u"", u""}},
          {"quoted to the end", u"030;K\"a;b\"", {u"030", u"Ka;b"}},
          {"quoted up to a blank", u"030;K\"a;b\" ;Sx", {u"030", u"Ka;b", u"Sx"}},
          {"after the blank the field goes on", u"030;K\"a;b\" c;Sx", {u"030", u"Ka;b c", u"Sx"}},
      },
      u';');
}

// Fax applications write a quote before a semicolon as part of the text: only a blank closes.
TEST_F(CommandLine, DeliberateAQuoteDoesNotCloseBeforeASemicolon) {
  ExpectTokens({{"the rest is one field", u"030;K\"a;b\";Sx", {u"030", u"Ka;b;Sx"}}}, u';');
}

TEST_F(CommandLine, EveryShortTextIsSplitByTheGrammar) {
  constexpr std::u16string_view kUnits = u"a \"';\t";
  constexpr std::size_t kLongest = 6;
  std::size_t count = 0;
  std::vector<std::u16string> texts = {u""};
  for (std::size_t length = 0; length <= kLongest; ++length) {
    std::vector<std::u16string> longer;
    for (const std::u16string& text : texts) {
      for (const char16_t separator : {u' ', u';'}) {
        ASSERT_EQ(SplitQuoted(text, separator), SplitByHand(text, separator))
            << testing::PrintToString(text);
      }
      ++count;
      for (const char16_t unit : kUnits) {
        longer.push_back(text + unit);
      }
    }
    texts = std::move(longer);
  }
  EXPECT_EQ(count, 55987u);  // 6^0 + ... + 6^6
}

TEST_F(CommandLine, NoTokenEverHoldsAQuote) {
  const std::u16string text = u"'\"a' b\"'' \"c'd\"e ' f\"\"";
  for (std::size_t first = 0; first <= text.size(); ++first) {
    for (const char16_t separator : {u' ', u';'}) {
      for (const std::u16string& token : SplitQuoted(text.substr(first), separator)) {
        EXPECT_EQ(token.find_first_of(u"\"'"), std::u16string::npos)
            << testing::PrintToString(token);
      }
    }
  }
}

TEST_F(CommandLine, LongTextsAreSplitWhole) {
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u'a'), u' '),
            Tokens{std::u16string(kLongLine, u'a')});
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u' '), u' '), Tokens(kLongLine + 1));
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u'"'), u' '), Tokens(1));
  EXPECT_EQ(SplitQuoted(u'"' + std::u16string(kLongLine - 2, u' ') + u'"', u' '),
            Tokens{std::u16string(kLongLine - 2, u' ')});
  std::u16string pairs;
  for (std::size_t i = 0; i < kLongLine / 2; ++i) {
    pairs += u"a ";
  }
  Tokens tokens(kLongLine / 2, u"a");
  tokens.emplace_back();
  EXPECT_EQ(SplitQuoted(pairs, u' '), tokens);
}

// --- the fax command ---

TEST_F(CommandLine, AFaxCommandIsANumberAndFieldsOfALetterAndAValue) {
  struct Case {
    const char* name;
    const char16_t* text;
    Entries fields;
  };
  const Case kCases[] = {
      {"number and fields",
       u"0301234567;Nexample;Shello",
       {{u"+FAX", u"0301234567"}, {u"N", u"example"}, {u"S", u"hello"}}},
      {"number alone", u"0301234567", {{u"+FAX", u"0301234567"}}},
      {"empty text", u"", {}},
      {"blanks alone", u" \t ", {}},
      {"trimmed as a whole", u"\t 030;Sx \t", {{u"+FAX", u"030"}, {u"S", u"x"}}},
      {"empty number", u";Sx", {{u"+FAX", u""}, {u"S", u"x"}}},
      {"empty quotes as a number", u"\"\" ;Sx", {{u"+FAX", u""}, {u"S", u"x"}}},
      {"semicolon alone", u";", {{u"+FAX", u""}}},
      {"empty fields are skipped", u"030;;Sx; ;", {{u"+FAX", u"030"}, {u"S", u"x"}}},
      {"a field of quotes alone is empty", u"030;\"\" ;Sx", {{u"+FAX", u"030"}, {u"S", u"x"}}},
      {"letter without a value", u"030;P;S", {{u"+FAX", u"030"}, {u"P", u""}, {u"S", u""}}},
      {"lower-case letters", u"030;sabc;pX", {{u"+FAX", u"030"}, {u"S", u"abc"}, {u"P", u"X"}}},
      {"both letter cases", u"030;Na;nb", {{u"+FAX", u"030"}, {u"N", u"a"}, {u"N", u"b"}}},
      {"a blank behind the letter", u"030; S  x y ", {{u"+FAX", u"030"}, {u"S", u"  x y"}}},
      {"other characters as names", u"030;1x;=y", {{u"+FAX", u"030"}, {u"1", u"x"}, {u"=", u"y"}}},
      {"a number that looks like a field", u"Sx;Sy", {{u"+FAX", u"Sx"}, {u"S", u"y"}}},
      {"quotes", u"030;K\"a;b\" ;S'c d'", {{u"+FAX", u"030"}, {u"K", u"a;b"}, {u"S", u"c d"}}},
      {"letter in quotes", u"030;\"kx\"", {{u"+FAX", u"030"}, {u"K", u"x"}}},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    ParameterList fields;
    fields.Add(u"E", u"from before");
    ParseFaxCommand(fields, test.text);
    EXPECT_EQ(fields.Entries(), test.fields);
  }
}

// --- the command line ---

struct LineCase {
  const char* name;
  const char16_t* line;
  Entries arguments;
  Entries fields;
};

void ExpectParsed(const std::vector<LineCase>& cases, bool from_job_file) {
  for (const LineCase& test : cases) {
    SCOPED_TRACE(test.name);
    JobParameters params;
    ParseCommandLine(params, test.line);
    EXPECT_EQ(params.arguments.Entries(), test.arguments);
    EXPECT_EQ(params.faxFields.Entries(), test.fields);
    EXPECT_EQ(params.fromJobFile, from_job_file);
  }
}

TEST_F(CommandLine, AnEmptyCommandLineGivesNothing) {
  ExpectParsed({{"empty", u"", {}, {}}, {"blanks", u"  ", {}, {}}, {"tabs", u"\t\r\n", {}, {}}},
               false);
  EXPECT_EQ(machine_.Calls(), std::vector<std::string>());
}

TEST_F(CommandLine, AnEmptyCommandLineClearsNothingButTheArguments) {
  JobParameters params;
  params.arguments.Add(u"filename", u"from before");
  params.faxFields.Add(u"S", u"from before");
  ParseCommandLine(params, u"");
  EXPECT_EQ(params.arguments.Entries(), Entries());
  EXPECT_EQ(params.faxFields.Entries(), (Entries{{u"S", u"from before"}}));
  EXPECT_FALSE(params.fromJobFile);
}

TEST_F(CommandLine, ArgumentsFromBeforeAreCleared) {
  JobParameters params;
  params.arguments.Add(u"filename", u"from before");
  ParseCommandLine(params, u"a.pdf");
  EXPECT_EQ(params.arguments.Entries(), (Entries{{u"filename", u"a.pdf"}}));
}

TEST_F(CommandLine, TheFirstTokenIsTheDocument) {
  ExpectParsed(
      {
          {"alone", u"a.pdf", {{u"filename", u"a.pdf"}}, {}},
          {"trimmed", u"\t  a.pdf  \r\n", {{u"filename", u"a.pdf"}}, {}},
          {"quoted", u"\"c:\\my docs\\a.pdf\"", {{u"filename", u"c:\\my docs\\a.pdf"}}, {}},
          {"a slash makes no option of it", u"/preview", {{u"filename", u"/preview"}}, {}},
          {"empty quotes", u"\"\"", {{u"filename", u""}}, {}},
          {"an apostrophe that nothing closes",
           u"c:\\o'brien.pdf x",
           {{u"filename", u"c:\\obrien.pdf x"}},
           {}},
      },
      false);
}

TEST_F(CommandLine, SecondTokenWithoutSlashIsTheFaxCommand) {
  ExpectParsed(
      {
          {"number and fields",
           u"a.pdf 0301234567;Nexample;Shello",
           {{u"filename", u"a.pdf"}, {u"faxcommand", u"0301234567;Nexample;Shello"}},
           {{u"+FAX", u"0301234567"}, {u"N", u"example"}, {u"S", u"hello"}}},
          {"quoted for its blanks",
           u"a.pdf \"030 12; S x\"",
           {{u"filename", u"a.pdf"}, {u"faxcommand", u"030 12; S x"}},
           {{u"+FAX", u"030 12"}, {u"S", u" x"}}},
          {"empty quotes", u"a.pdf \"\"", {{u"filename", u"a.pdf"}, {u"faxcommand", u""}}, {}},
          {"empty quotes, then an option",
           u"a.pdf '' /preview",
           {{u"filename", u"a.pdf"}, {u"faxcommand", u""}, {u"preview", u"1"}},
           {}},
      },
      false);
}

// Its quotes are gone by the time the fax command is taken apart.
TEST_F(CommandLine, DeliberateQuotesDoNotReachTheFaxCommand) {
  ExpectParsed({{"the semicolon separates",
                 u"a.pdf 030;K\"a;Sb\" /x",
                 {{u"filename", u"a.pdf"}, {u"faxcommand", u"030;Ka;Sb"}, {u"x", u"1"}},
                 {{u"+FAX", u"030"}, {u"K", u"a"}, {u"S", u"b"}}}},
               false);
}

TEST_F(CommandLine, DeliberateTwoBlanksMakeAnEmptyFaxCommand) {
  ExpectParsed({{"the number becomes an option",
                 u"a.json  0301234",
                 {{u"filename", u"a.json"}, {u"faxcommand", u""}, {u"301234", u"1"}},
                 {}}},
               false);
}

TEST_F(CommandLine, SecondTokenWithSlashIsTheFirstOption) {
  ExpectParsed(
      {
          {"without a value",
           u"a.json /preview",
           {{u"filename", u"a.json"}, {u"preview", u"1"}},
           {}},
          {"with a value",
           u"a.json /Subject Hello",
           {{u"filename", u"a.json"}, {u"subject", u"Hello"}},
           {}},
          {"in quotes",
           u"a.json \"/Subject\" \"Hello you\"",
           {{u"filename", u"a.json"}, {u"subject", u"Hello you"}},
           {}},
      },
      false);
}

TEST_F(CommandLine, OptionsAreNamesAndValues) {
  const Entry document = {u"filename", u"a"};
  const Entry command = {u"faxcommand", u"1"};
  const Entries fields = {{u"+FAX", u"1"}};
  ExpectParsed(
      {
          {"the last may lack its value",
           u"a 1 /x y /z",
           {document, command, {u"x", u"y"}, {u"z", u"1"}},
           fields},
          {"names are lower-cased, values are not",
           u"a 1 /NaMe VaLuE",
           {document, command, {u"name", u"VaLuE"}},
           fields},
          {"an empty value",
           u"a 1 /x \"\" /y 2",
           {document, command, {u"x", u""}, {u"y", u"2"}},
           fields},
          {"a second blank is an empty value",
           u"a 1 /x  /y",
           {document, command, {u"x", u""}, {u"y", u"1"}},
           fields},
          {"a name twice is two entries",
           u"a 1 /x 1 /X 2",
           {document, command, {u"x", u"1"}, {u"x", u"2"}},
           fields},
          {"an option cannot hide what came before",
           u"a 1 /filename b /jobname c",
           {document, command, {u"filename", u"b"}, {u"jobname", u"c"}},
           fields},
          {"two slashes", u"a 1 //x y", {document, command, {u"/x", u"y"}}, fields},
          {"a slash alone", u"a 1 / y", {document, command, {u"", u"y"}}, fields},
          {"an empty token", u"a 1 \"\" y", {document, command, {u"", u"y"}}, fields},
          {"an empty last token", u"a 1 \"\"", {document, command, {u"", u"1"}}, fields},
      },
      false);
}

TEST_F(CommandLine, DeliberateAnOptionsValueMayLookLikeAnOption) {
  ExpectParsed({{"one option",
                 u"a.json 0301234;Nname /x /y",
                 {{u"filename", u"a.json"}, {u"faxcommand", u"0301234;Nname"}, {u"x", u"/y"}},
                 {{u"+FAX", u"0301234"}, {u"N", u"name"}}}},
               false);
}

TEST_F(CommandLine, DeliberateTheFirstCharacterOfAnOptionGoesUnseen) {
  ExpectParsed({{"no slash",
                 u"a 1 Xyz v -q",
                 {{u"filename", u"a"}, {u"faxcommand", u"1"}, {u"yz", u"v"}, {u"q", u"1"}},
                 {{u"+FAX", u"1"}}}},
               false);
}

TEST_F(CommandLine, AJobFileIsTheJobsNameBehindWhatItSays) {
  machine_.SetFile(u"C:\\my jobs\\a.json",
                   R"({"FilePath": "C:\\d\\fax.pdf", "SourceFileName": "Letter",
                       "Cmd": {"Receiver": ["0301"], "Parameters": {"Subject": "Hello"}}})");
  const Entry document = {u"filename", u"C:\\d\\fax.pdf"};
  const Entry name = {u"attdisplayname", u"Letter.pdf"};
  const Entry job = {u"jobname", u"C:\\my jobs\\a.json"};
  const Entries fields = {{u"S", u"Hello"}, {u"+FAX", u"0301"}};
  ExpectParsed(
      {
          {"alone", u"\"C:\\my jobs\\a.json\"", {document, name, job}, fields},
          {"an option keeps its fields",
           u"\"C:\\my jobs\\a.json\" /preview",
           {document, name, job, {u"preview", u"1"}},
           fields},
          {"a fax command replaces them all",
           u"\"C:\\my jobs\\a.json\" 0302;EMiller",
           {document, name, job, {u"faxcommand", u"0302;EMiller"}},
           {{u"+FAX", u"0302"}, {u"E", u"Miller"}}},
          {"an empty fax command, too",
           u"\"C:\\my jobs\\a.json\" \"\"",
           {document, name, job, {u"faxcommand", u""}},
           {}},
      },
      true);
}

TEST_F(CommandLine, AJobFileWithoutADocumentIsAJobFile) {
  machine_.SetFile(u"a.json", "{}");
  ExpectParsed(
      {{"no document", u"a.json /preview", {{u"jobname", u"a.json"}, {u"preview", u"1"}}, {}}},
      true);
}

TEST_F(CommandLine, AFileThatIsNotJsonIsTheDocument) {
  machine_.SetFile(u"a.pdf", "%PDF-1.4\n");
  ExpectParsed({{"no JSON",
                 u"a.pdf 030",
                 {{u"filename", u"a.pdf"}, {u"faxcommand", u"030"}},
                 {{u"+FAX", u"030"}}}},
               false);
}

TEST_F(CommandLine, OnlyTheFirstTokenIsOfferedToTheJobFileReader) {
  machine_.SetFile(u"a.json", "{}");
  JobParameters params;
  ParseCommandLine(params, u"x.pdf a.json /a.json a.json");
  EXPECT_EQ(machine_.CallsOf("OpenFileAt"), std::vector<std::string>{"OpenFileAt(x.pdf, kRead)"});
  EXPECT_FALSE(params.fromJobFile);
}

TEST_F(CommandLine, ALineOf32000CharactersIsTakenWhole) {
  const std::u16string path = u"C:\\" + std::u16string(15000, u'd') + u".pdf";
  const std::u16string comment(kLongLine - path.size() - 8, u'k');
  const std::u16string line = u'"' + path + u"\" 030;K" + comment;
  ASSERT_EQ(line.size(), kLongLine);
  JobParameters params;
  ParseCommandLine(params, line);
  EXPECT_EQ(params.arguments.Entries(),
            (Entries{{u"filename", path}, {u"faxcommand", u"030;K" + comment}}));
  EXPECT_EQ(params.faxFields.Entries(), (Entries{{u"+FAX", u"030"}, {u"K", comment}}));
}

TEST_F(CommandLine, ALineOf32000CharactersOfOptionsIsTakenWhole) {
  std::u16string line = u"a.pdf 030";
  Entries arguments = {{u"filename", u"a.pdf"}, {u"faxcommand", u"030"}};
  while (line.size() + 6 <= kLongLine) {
    line += u" /X vV";
    arguments.emplace_back(u"x", u"vV");
  }
  const std::u16string rest(kLongLine - line.size(), u'V');
  line += rest;
  arguments.back().second += rest;
  ASSERT_EQ(line.size(), kLongLine);
  JobParameters params;
  ParseCommandLine(params, line);
  EXPECT_EQ(params.arguments.Entries(), arguments);
}

}  // namespace
}  // namespace zentpost
