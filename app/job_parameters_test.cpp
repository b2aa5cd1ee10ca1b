#include "app/job_parameters.h"

#include <gtest/gtest.h>

namespace zentpost {
namespace {

using Entry = ParameterList::Entry;

TEST(JobParameters, AnEmptyListFindsNothing) {
  const ParameterList list;
  EXPECT_EQ(list.Find(u"S"), Entry());
  EXPECT_FALSE(list.Contains(u"S"));
  EXPECT_TRUE(list.Entries().empty());
}

TEST(JobParameters, AddKeepsTheOrderAndNeverReplaces) {
  ParameterList list;
  list.Add(u"S", u"first");
  list.Add(u"E", u"other");
  list.Add(u"S", u"second");
  EXPECT_EQ(list.Entries(),
            (std::vector<Entry>{{u"S", u"first"}, {u"E", u"other"}, {u"S", u"second"}}));
}

TEST(JobParameters, FindGivesTheFirstEntryOfTheName) {
  ParameterList list;
  list.Add(u"E", u"other");
  list.Add(u"S", u"first");
  list.Add(u"S", u"second");
  EXPECT_EQ(list.Find(u"S"), Entry(u"S", u"first"));
  EXPECT_TRUE(list.Contains(u"S"));
}

TEST(JobParameters, NamesAreComparedUnitForUnit) {
  ParameterList list;
  list.Add(u"S", u"capital");
  list.Add(u"\u00E4", u"one unit");
  list.Add(u"ab", u"longer");
  for (const std::u16string name : {u"s", u"S ", u" S", u"a\u0308", u"a", u"abc"}) {
    SCOPED_TRACE(testing::PrintToString(name));
    EXPECT_EQ(list.Find(name), Entry());
    EXPECT_FALSE(list.Contains(name));
  }
}

TEST(JobParameters, AnEntryWithAnEmptyValueIsFound) {
  ParameterList list;
  list.Add(u"P", u"");
  EXPECT_EQ(list.Find(u"P"), Entry(u"P", u""));
  EXPECT_TRUE(list.Contains(u"P"));
}

TEST(JobParameters, AnEmptyNameFindsNothingEvenWhereAnEntryHasIt) {
  ParameterList list;
  list.Add(u"", u"value");
  EXPECT_EQ(list.Find(u""), Entry());
  EXPECT_FALSE(list.Contains(u""));
  EXPECT_FALSE(list.Contains({}));
  EXPECT_EQ(list.Entries(), (std::vector<Entry>{{u"", u"value"}}));
}

TEST(JobParameters, ClearRemovesAllEntries) {
  ParameterList list;
  list.Add(u"S", u"first");
  list.Add(u"S", u"second");
  list.Clear();
  EXPECT_TRUE(list.Entries().empty());
  EXPECT_FALSE(list.Contains(u"S"));
}

TEST(JobParameters, ACopyDoesNotFollowItsOriginal) {
  JobParameters original;
  original.arguments.Add(u"jobname", u"a.json");
  original.faxFields.Add(u"S", u"subject");
  original.fromJobFile = true;
  const JobParameters copy = original;
  original.arguments.Clear();
  original.faxFields.Add(u"E", u"later");
  original.fromJobFile = false;
  EXPECT_EQ(copy.arguments.Entries(), (std::vector<Entry>{{u"jobname", u"a.json"}}));
  EXPECT_EQ(copy.faxFields.Entries(), (std::vector<Entry>{{u"S", u"subject"}}));
  EXPECT_TRUE(copy.fromJobFile);
}

TEST(JobParameters, ANewJobIsNotFromAJobFile) {
  EXPECT_FALSE(JobParameters().fromJobFile);
}

TEST(JobParameters, OnlyAMissingEntryAndAHyphenSwitchOff) {
  struct Case {
    const char* name;
    std::vector<Entry> entries;
    bool on;
  };
  const Case kCases[] = {
      {"missing", {}, false},
      {"hyphen", {{u"P", u"-"}}, false},
      {"one", {{u"P", u"1"}}, true},
      {"zero", {{u"P", u"0"}}, true},
      {"empty", {{u"P", u""}}, true},
      {"hyphen and more", {{u"P", u"--"}}, true},
      {"hyphen with a blank", {{u"P", u" -"}}, true},
      {"other letter case", {{u"p", u"1"}}, false},
      {"the first one counts, on", {{u"P", u"1"}, {u"P", u"-"}}, true},
      {"the first one counts, off", {{u"P", u"-"}, {u"P", u"1"}}, false},
  };
  for (const Case& test : kCases) {
    SCOPED_TRACE(test.name);
    ParameterList list;
    for (const auto& [name, value] : test.entries) {
      list.Add(name, value);
    }
    EXPECT_EQ(IsPresentAndNotMinus(list, u"P"), test.on);
  }
}

}  // namespace
}  // namespace zentpost
