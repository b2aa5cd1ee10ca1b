#include "app/command_line.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testing/fake_platform/fixture.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using test::Readable;
using Calls = std::vector<std::string>;
using Entries = std::vector<ParameterList::Entry>;
using Tokens = std::vector<std::u16string>;

// The longest command line that the tool promises to take.
constexpr std::size_t kLongLine = 32000;

// On the fake platform because the first token is offered to the job file reader.
using CommandLine = platform::fake::FakePlatformTest;

// Tokens and entries in brackets: "[a][b]" and "[filename=a.pdf][x=1]".
std::string InBrackets(const Tokens& tokens) {
  std::string text;
  for (const std::u16string& token : tokens) {
    text += "[" + Readable(token) + "]";
  }
  return text;
}

std::string InBrackets(const ParameterList& list) {
  Tokens tokens;
  for (const auto& [name, value] : list.Entries()) {
    tokens.push_back(name + u"=" + value);
  }
  return InBrackets(tokens);
}

using Case = std::pair<std::u16string, std::string>;

void ExpectTokens(const std::vector<Case>& cases, char16_t separator = u' ') {
  for (const auto& [text, tokens] : cases) {
    EXPECT_EQ(InBrackets(SplitQuoted(text, separator)), tokens) << Readable(text);
  }
}

void ExpectFields(const std::vector<Case>& cases) {
  ExpectTokens(cases, u';');
}

// The grammar once more, unit by unit as one would do it by hand, for comparison.
Tokens SplitByHand(const std::u16string& text, char16_t separator) {
  constexpr std::u16string_view kWhite = u" \t\n\v\f\r";
  Tokens tokens;
  std::u16string token;
  bool quoted = false;
  for (std::size_t i = 0; !text.empty() && i <= text.size(); ++i) {
    if (i == text.size() || (text[i] == separator && !quoted)) {
      while (!token.empty() && kWhite.find(token.front()) != kWhite.npos) {
        token.erase(0, 1);
      }
      while (!token.empty() && kWhite.find(token.back()) != kWhite.npos) {
        token.pop_back();
      }
      std::erase(token, u'"');
      std::erase(token, u'\'');
      tokens.push_back(std::exchange(token, {}));
      continue;
    }
    if (text[i] == u'"' || text[i] == u'\'') {
      if (!quoted) {
        quoted = true;
      } else if (i == text.size() - 1 || text[i + 1] == u' ') {
        quoted = false;
      }
    }
    token += text[i];
  }
  return tokens;
}

TEST_F(CommandLine, BlanksSeparateTokens) {
  ExpectTokens({
      {u"", ""},
      {u"a b", "[a][b]"},
      {u"a   b", "[a][][][b]"},
      {u" a", "[][a]"},
      {u"a ", "[a][]"},
      {u"a;b c;d", "[a;b][c;d]"},
      {u"\u00E4 \u4E2D\u6587 \U0001F4E0", "[\u00E4][\u4E2D\u6587][\U0001F4E0]"},
      // Tokens are trimmed of white space; a tab does not separate.
      {u"a\tb", "[a\tb]"},
      {u"\t\n\v\f\ra\r\f\v\n\t b", "[a][b]"},
      {u"a\r\nb c", "[a\r\nb][c]"},
  });
}

TEST_F(CommandLine, QuotesKeepSeparatorsTogether) {
  ExpectTokens({
      {u"\"c:\\my docs\\a.json\"", "[c:\\my docs\\a.json]"},
      {u"\"a b\" 'c d'", "[a b][c d]"},
      {u"a\"b c\" d", "[ab c][d]"},
      {u"\"\" a ''", "[][a][]"},
      {u"\" \" a", "[ ][a]"},
      {u"\"a\"\"b\" c", "[ab][c]"},
      // A quote closes only at the end or before a blank.
      {u"\"a b\"\tc d", "[a b\tc d]"},
      {u"\"a b\";c d", "[a b;c d]"},
      {u"\"a b\"c\" d", "[a bc][d]"},
      {u"\"it's here\" x", "[its here][x]"},
      // Either kind closes the other.
      {u"\"a' b\" c", "[a][b c]"},
      {u"\"a b'", "[a b]"},
      // One that nothing closes makes the rest one token.
      {u"c:\\o'brien.pdf x", "[c:\\obrien.pdf x]"},
      {u"a b\"c d e", "[a][bc d e]"},
      {u"\" a b", "[ a b]"},
      {u"\"a  ", "[a]"},
  });
}

// Programs that start the tool pad paths inside the quotes and rely on getting the blanks back.
TEST_F(CommandLine, DeliberateBlanksInsideQuotesSurviveTheTrimming) {
  ExpectTokens({{u"\" a \" b", "[ a ][b]"}, {u"\t\"a \"\t b", "[a \t b]"}});
}

TEST_F(CommandLine, TokensCanBeTakenAsTheyStand) {
  const struct {
    std::u16string_view text;
    Tokens tokens;
    bool is_open;
  } kCases[] = {
      {u"'a b' \"c\" \td  e'f'", {u"'a b'", u"\"c\"", u"d", u"", u"e'f'"}, false},
      {u"a b\"c d", {u"a", u"b\"c d"}, true},
      {u"a b\"", {u"a", u"b\""}, true},
      {u"a ", {u"a", u""}, false},
  };
  for (const auto& test : kCases) {
    std::u16string_view rest = test.text;
    for (const std::u16string& token : test.tokens) {
      const RawToken raw = TakeToken(rest, u' ');
      const bool is_last = &token == &test.tokens.back();
      EXPECT_EQ(Readable(raw.text), Readable(token));
      EXPECT_EQ(raw.is_last, is_last) << Readable(test.text);
      EXPECT_EQ(raw.is_open, is_last && test.is_open) << Readable(test.text);
    }
    EXPECT_TRUE(rest.empty());
  }
}

TEST_F(CommandLine, SemicolonsSeparateFaxFields) {
  ExpectFields({
      {u"0301234567;Nexample;Shello", "[0301234567][Nexample][Shello]"},
      {u" 030 ; N ", "[030][N]"},
      {u";;a;", "[][][a][]"},
      {u"030;K\"a;b\"", "[030][Ka;b]"},
      {u"030;K\"a;b\" ;Sx", "[030][Ka;b][Sx]"},
      {u"030;K\"a;b\" c;Sx", "[030][Ka;b c][Sx]"},
  });
}

// Fax applications write a quote before a semicolon as part of the text: only a blank closes.
TEST_F(CommandLine, DeliberateAQuoteDoesNotCloseBeforeASemicolon) {
  ExpectFields({{u"030;K\"a;b\";Sx", "[030][Ka;b;Sx]"}});
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

TEST_F(CommandLine, LongTextsAreSplitWhole) {
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u'a'), u' '),
            Tokens{std::u16string(kLongLine, u'a')});
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u' '), u' '), Tokens(kLongLine + 1));
  EXPECT_EQ(SplitQuoted(std::u16string(kLongLine, u'"'), u' '), Tokens(1));
  EXPECT_EQ(SplitQuoted(u'"' + std::u16string(kLongLine - 2, u' ') + u'"', u' '),
            Tokens{std::u16string(kLongLine - 2, u' ')});
}

// --- the fax command ---

TEST_F(CommandLine, AFaxCommandIsANumberAndFieldsOfALetterAndAValue) {
  const Case cases[] = {
      {u"0301234567;Nexample;Shello", "[+FAX=0301234567][N=example][S=hello]"},
      {u"0301234567", "[+FAX=0301234567]"},
      {u"", ""},
      {u" \t ", ""},
      {u"\t 030;Sx \t", "[+FAX=030][S=x]"},
      {u";Sx", "[+FAX=][S=x]"},
      {u"\"\" ;Sx", "[+FAX=][S=x]"},
      {u";", "[+FAX=]"},
      // Empty fields are skipped.
      {u"030;;Sx; ;", "[+FAX=030][S=x]"},
      {u"030;\"\" ;Sx", "[+FAX=030][S=x]"},
      {u"030;P;S", "[+FAX=030][P=][S=]"},
      // Letters become capitals.
      {u"030;sabc;pX", "[+FAX=030][S=abc][P=X]"},
      {u"030;Na;nb", "[+FAX=030][N=a][N=b]"},
      {u"030; S  x y ", "[+FAX=030][S=  x y]"},
      {u"030;1x;=y", "[+FAX=030][1=x][==y]"},
      {u"Sx;Sy", "[+FAX=Sx][S=y]"},
      {u"030;K\"a;b\" ;S'c d'", "[+FAX=030][K=a;b][S=c d]"},
      {u"030;\"kx\"", "[+FAX=030][K=x]"},
  };
  for (const auto& [text, expected] : cases) {
    ParameterList fields;
    fields.Add(u"E", u"from before");
    ParseFaxCommand(fields, text);
    EXPECT_EQ(InBrackets(fields), expected) << Readable(text);
  }
}

// --- the command line ---

// The arguments, " / " and the fields.
std::string Parsed(const std::u16string& line) {
  JobParameters job;
  ParseCommandLine(job, line);
  return InBrackets(job.arguments) + " / " + InBrackets(job.faxFields) +
         (job.fromJobFile ? " from a job file" : "");
}

void ExpectParsed(const std::vector<Case>& cases) {
  for (const auto& [line, job] : cases) {
    EXPECT_EQ(Parsed(line), job) << Readable(line);
  }
}

TEST_F(CommandLine, AnEmptyCommandLineGivesNothing) {
  ExpectParsed({{u"", " / "}, {u"  ", " / "}, {u"\t\r\n", " / "}});
  EXPECT_EQ(fake_.Calls(), Calls());
}

TEST_F(CommandLine, ArgumentsFromBeforeAreCleared) {
  JobParameters job;
  job.arguments.Add(u"filename", u"from before");
  job.faxFields.Add(u"S", u"from before");
  ParseCommandLine(job, u"a.pdf");
  EXPECT_EQ(InBrackets(job.arguments), "[filename=a.pdf]");
  ParseCommandLine(job, u"");
  EXPECT_EQ(InBrackets(job.arguments), "");
  EXPECT_EQ(InBrackets(job.faxFields), "[S=from before]");
}

TEST_F(CommandLine, TheFirstTokenIsTheDocument) {
  ExpectParsed({
      {u"a.pdf", "[filename=a.pdf] / "},
      {u"\t  a.pdf  \r\n", "[filename=a.pdf] / "},
      {u"\"c:\\my docs\\a.pdf\"", "[filename=c:\\my docs\\a.pdf] / "},
      {u"/preview", "[filename=/preview] / "},
      {u"\"\"", "[filename=] / "},
      {u"c:\\o'brien.pdf x", "[filename=c:\\obrien.pdf x] / "},
  });
}

TEST_F(CommandLine, SecondTokenWithoutSlashIsTheFaxCommand) {
  ExpectParsed({
      {u"a.pdf 030;Nexample;Shello",
       "[filename=a.pdf][faxcommand=030;Nexample;Shello] / [+FAX=030][N=example][S=hello]"},
      {u"a.pdf \"030 12; S x\"", "[filename=a.pdf][faxcommand=030 12; S x] / [+FAX=030 12][S= x]"},
      {u"a.pdf \"\"", "[filename=a.pdf][faxcommand=] / "},
      {u"a.pdf '' /preview", "[filename=a.pdf][faxcommand=][preview=1] / "},
  });
}

// Its quotes are gone by the time the fax command is taken apart.
TEST_F(CommandLine, DeliberateQuotesDoNotReachTheFaxCommand) {
  EXPECT_EQ(Parsed(u"a.pdf 030;K\"a;Sb\" /x"),
            "[filename=a.pdf][faxcommand=030;Ka;Sb][x=1] / [+FAX=030][K=a][S=b]");
}

TEST_F(CommandLine, DeliberateTwoBlanksMakeAnEmptyFaxCommand) {
  EXPECT_EQ(Parsed(u"a.json  0301234"), "[filename=a.json][faxcommand=][301234=1] / ");
}

// The second token is the first of them when it has a slash.
TEST_F(CommandLine, OptionsAreNamesAndValues) {
  ExpectParsed({
      {u"a.json /preview", "[filename=a.json][preview=1] / "},
      {u"a.json /Subject Hello", "[filename=a.json][subject=Hello] / "},
      {u"a.json \"/Subject\" \"Hello you\"", "[filename=a.json][subject=Hello you] / "},
      {u"a /x y /z", "[filename=a][x=y][z=1] / "},
      // Names are lower-cased, values are not.
      {u"a /NaMe VaLuE", "[filename=a][name=VaLuE] / "},
      {u"a /x \"\" /y 2", "[filename=a][x=][y=2] / "},
      {u"a /x  /y", "[filename=a][x=][y=1] / "},
      {u"a /x 1 /X 2", "[filename=a][x=1][x=2] / "},
      {u"a /filename b /jobname c", "[filename=a][filename=b][jobname=c] / "},
      {u"a //x y", "[filename=a][/x=y] / "},
      {u"a / y", "[filename=a][=y] / "},
      {u"a /x 1 \"\" y", "[filename=a][x=1][=y] / "},
      {u"a /x 1 \"\"", "[filename=a][x=1][=1] / "},
  });
}

TEST_F(CommandLine, DeliberateAnOptionsValueMayLookLikeAnOption) {
  EXPECT_EQ(Parsed(u"a.json 030;Nname /x /y"),
            "[filename=a.json][faxcommand=030;Nname][x=/y] / [+FAX=030][N=name]");
}

TEST_F(CommandLine, DeliberateTheFirstCharacterOfAnOptionGoesUnseen) {
  EXPECT_EQ(Parsed(u"a 1 Xyz v -q"), "[filename=a][faxcommand=1][yz=v][q=1] / [+FAX=1]");
}

TEST_F(CommandLine, AJobFileIsTheJobsNameBehindWhatItSays) {
  fake_.SetFile(u"C:\\my jobs\\a.json",
                R"({"FilePath": "C:\\d\\fax.pdf", "SourceFileName": "Letter",
                       "Cmd": {"Receiver": ["0301"], "Parameters": {"Subject": "Hello"}}})");
  const std::u16string path = u"\"C:\\my jobs\\a.json\"";
  const std::string job =
      "[filename=C:\\d\\fax.pdf][attdisplayname=Letter.pdf][jobname=C:\\my jobs\\a.json]";
  ExpectParsed({
      {path, job + " / [S=Hello][+FAX=0301] from a job file"},
      {path + u" /preview", job + "[preview=1] / [S=Hello][+FAX=0301] from a job file"},
      // A fax command replaces all of its fields, an empty one, too.
      {path + u" 0302;EMiller",
       job + "[faxcommand=0302;EMiller] / [+FAX=0302][E=Miller] from a job file"},
      {path + u" \"\"", job + "[faxcommand=] /  from a job file"},
  });
}

TEST_F(CommandLine, OnlyTheFirstTokenIsOfferedToTheJobFileReader) {
  fake_.SetFile(u"a.json", "{}");
  fake_.SetFile(u"a.pdf", "%PDF-1.4\n");
  EXPECT_EQ(Parsed(u"a.json /preview"), "[jobname=a.json][preview=1] /  from a job file");
  fake_.ClearCalls();
  EXPECT_EQ(Parsed(u"a.pdf a.json /a.json a.json"),
            "[filename=a.pdf][faxcommand=a.json][a.json=a.json] / [+FAX=a.json]");
  EXPECT_EQ(fake_.CallsOf("OpenFileAt"), Calls{"OpenFileAt(a.pdf, kRead)"});
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
