#include "app/job_parameters.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zentpost {
namespace {

using Entry = ParameterList::Entry;
using Entries = std::vector<Entry>;

ParameterList ListOf(const Entries& entries) {
  ParameterList list;
  for (const auto& [name, value] : entries) {
    list.Add(name, value);
  }
  return list;
}

TEST(JobParameters, AddKeepsTheOrderAndFindGivesTheFirst) {
  const Entries entries = {{u"E", u"other"}, {u"S", u"first"}, {u"S", u"second"}, {u"P", u""}};
  ParameterList list = ListOf(entries);
  EXPECT_EQ(list.Entries(), entries);
  EXPECT_EQ(list.Find(u"S"), Entry(u"S", u"first"));
  EXPECT_TRUE(list.Contains(u"S"));
  EXPECT_EQ(list.Find(u"P"), Entry(u"P", u""));
  EXPECT_TRUE(list.Contains(u"P"));
  list.Clear();
  EXPECT_EQ(list.Entries(), Entries());
  EXPECT_FALSE(list.Contains(u"S"));
}

// And an empty name finds nothing even where an entry has it.
TEST(JobParameters, NamesAreComparedUnitForUnit) {
  const ParameterList list =
      ListOf({{u"S", u"s"}, {u"\u00E4", u"one"}, {u"ab", u"l"}, {u"", u"e"}});
  for (const std::u16string name : {u"s", u"S ", u" S", u"a\u0308", u"a", u"abc", u""}) {
    EXPECT_EQ(list.Find(name), Entry()) << testing::PrintToString(name);
    EXPECT_FALSE(list.Contains(name));
  }
  EXPECT_FALSE(ParameterList().Contains(u"S"));
}

TEST(JobParameters, ANewJobIsNotFromAJobFile) {
  EXPECT_FALSE(JobParameters().fromJobFile);
}

TEST(JobParameters, OnlyAMissingEntryAndAHyphenSwitchOff) {
  const auto is_on = [](const Entries& entries) {
    return IsPresentAndNotMinus(ListOf(entries), u"P");
  };
  for (const char16_t* value : {u"1", u"0", u"", u"--", u" -"}) {
    EXPECT_TRUE(is_on({{u"P", value}}));
  }
  EXPECT_FALSE(is_on({}));
  EXPECT_FALSE(is_on({{u"P", u"-"}}));
  EXPECT_FALSE(is_on({{u"p", u"1"}}));
  // The first one counts.
  EXPECT_TRUE(is_on({{u"P", u"1"}, {u"P", u"-"}}));
  EXPECT_FALSE(is_on({{u"P", u"-"}, {u"P", u"1"}}));
}

}  // namespace
}  // namespace zentpost
