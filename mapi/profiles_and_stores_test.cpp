#include "mapi/profiles_and_stores.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "testing/mapi_test.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::kFailure;
using test::kFailureCode;
using test::Lines;
using test::Number;
using test::ProfileRow;
using test::Row;
using test::StoreRow;
using test::Text;

// --- the default profile ---

constexpr char kUntouched[] = "untouched";

class DefaultProfile : public test::MapiTest {
 protected:
  // The name that comes with `result`. What stands behind its terminator is left alone.
  static std::string Name(HRESULT result = S_OK) {
    char16_t units[kProfileNameSize];
    std::fill(std::begin(units), std::end(units), u'\u2205');
    EXPECT_EQ(GetDefaultProfile(units), result);
    const auto* const end = std::find(std::begin(units), std::end(units), u'\0');
    const auto* const behind = end == std::end(units) ? std::begin(units) : end + 1;
    EXPECT_TRUE(std::all_of(behind, std::cend(units), [](char16_t unit) {
      return unit == u'\u2205';
    })) << "more than the name and its terminator";
    return end == std::end(units) ? kUntouched : test::Readable({std::begin(units), end});
  }
  // The name that `rows` give.
  std::string NameOf(std::vector<Row> rows) {
    StartOver();
    mapi_->values_as_they_stand = true;
    mapi_->profiles = std::move(rows);
    return Name();
  }
  // The name of the default profile that has these columns behind its mark.
  std::string NameOf(const test::Property& name) {
    return NameOf({{Number(PR_DEFAULT_PROFILE, 1), name}});
  }
};

TEST_F(DefaultProfile, IsFoundInTheTableOfProfiles) {
  EXPECT_EQ(Name(), "Outlook");
  EXPECT_EQ(Trace(),
            Lines({"MAPIAdminProfiles(0x0)", "IProfAdmin::GetProfileTable(0x0)",
                   "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)",
                   "FreeProws(rows of the profile table)", "IMAPITable::Release()",
                   "IProfAdmin::Release()"}));
}

TEST_F(DefaultProfile, IsTheOneThatIsMarked) {
  EXPECT_EQ(NameOf({ProfileRow(false, "One"), ProfileRow(true, "Two"), ProfileRow(false, "Three")}),
            "Two");
  // Any number but zero marks it, and only under the exact tag.
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 2), Bytes(PR_DISPLAY_NAME_A, "Two")}}), "Two");
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 0xFFFF), Bytes(PR_DISPLAY_NAME_A, "All")}}), "All");
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_STORE, 1), Bytes(PR_DISPLAY_NAME_A, "Store")},
                    {Number(0x3D040003, 1), Bytes(PR_DISPLAY_NAME_A, "Number")},
                    {Number(0x3D04000A, 1), Bytes(PR_DISPLAY_NAME_A, "Error")},
                    {Bytes(PR_DISPLAY_NAME_A, "Turned round"), Number(PR_DEFAULT_PROFILE, 1)}}),
            kUntouched);
  EXPECT_EQ(NameOf({ProfileRow(false, "One"), ProfileRow(false, "Two")}), kUntouched);
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(DefaultProfile, DeliberateTheLastOfSeveralCounts) {
  EXPECT_EQ(NameOf({ProfileRow(true, "One"), ProfileRow(true, "Two"), ProfileRow(false, "Three")}),
            "Two");
}

TEST_F(DefaultProfile, ItsNameMayBeWideOrInTheCodePageOfTheSystem) {
  EXPECT_EQ(NameOf(Text(PR_DISPLAY_NAME_W, u"J\u00E4ger \u4E2D")), "J\xC3\xA4ger \xE4\xB8\xAD");
  EXPECT_EQ(NameOf(Bytes(PR_DISPLAY_NAME_A, "J\xE4ger \x80")), "J\xC3\xA4ger \xE2\x82\xAC");
  // In the system's code page (0), whatever the thread's is.
  EXPECT_EQ(fake_.CallsOf("BytesToWide"), std::vector<std::string>{"BytesToWide(0, 7, 256)"});
  // Only the type of the name's tag counts.
  EXPECT_EQ(NameOf(Text(PR_SUBJECT_W, u"Other")), "Other");
  EXPECT_EQ(NameOf(Bytes(PR_DISPLAY_NAME_A, "")), "");
  EXPECT_EQ(NameOf(Text(PR_DISPLAY_NAME_W, u"")), "");
}

TEST_F(DefaultProfile, ANameThatIsNoneLeavesTheBufferAlone) {
  test::Property null_bytes = Bytes(PR_DISPLAY_NAME_A, "");
  test::Property null_text = Text(PR_DISPLAY_NAME_W, u"");
  null_bytes.has_null = true;
  null_text.has_null = true;
  for (const test::Property& name : {Number(0x3001000A, MAPI_E_NOT_FOUND),
                                     Number(PR_RECIPIENT_TYPE, 5), null_bytes, null_text}) {
    EXPECT_EQ(NameOf(name), kUntouched) << std::hex << name.tag;
  }
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 1)}, Row{}}), kUntouched);
  StartOver();
  mapi_->rows_lack_values = true;
  EXPECT_EQ(Name(), kUntouched);
}

TEST_F(DefaultProfile, LongNamesAreCutOff) {
  for (const std::size_t length : {259u, 260u, 400u}) {
    EXPECT_EQ(NameOf(Text(PR_DISPLAY_NAME_W, std::u16string(length, u'w'))), std::string(259, 'w'));
  }
  // Of an 8-bit name no more than 256 bytes count.
  for (const std::size_t length : {255u, 256u, 257u, 1000u}) {
    EXPECT_EQ(NameOf(Bytes(PR_DISPLAY_NAME_A, std::string(length, 'n'))),
              std::string(std::min<std::size_t>(length, 256), 'n'));
  }
}

TEST_F(DefaultProfile, ANameThatCannotBeConvertedIsNoFailure) {
  fake_.FailCallOf("BytesToWide", 0, platform::kGeneralFailure);
  EXPECT_EQ(Name(), kUntouched);
  EXPECT_TRUE(fake_.FaultTaken());
}

TEST_F(DefaultProfile, WithoutProfilesThereIsALineInTheLog) {
  EXPECT_EQ(NameOf(std::vector<Row>()), kUntouched);
  EXPECT_EQ(test::LogText(), "ERROR: GetDefaultProfile(): There are no profiles.\n");
}

// A success that hands out nothing is still a success, and there is nothing to go on with.
TEST_F(DefaultProfile, TheLastResultIsGivenBackUnchanged) {
  for (const char* const call :
       {"MAPIAdminProfiles", "IProfAdmin::GetProfileTable", "HrQueryAllRows"}) {
    SCOPED_TRACE(call);
    StartOver();
    mapi_->GiveNothing(call);
    EXPECT_EQ(Name(), kUntouched);
    StartOver();
    mapi_->Answer(call, 0, kFailure);
    EXPECT_EQ(Name(kFailure), kUntouched);
    EXPECT_EQ(test::LogText(), "");
  }
  StartOver();
  mapi_->Answer("HrQueryAllRows", 0, 1);
  EXPECT_EQ(Name(1), "Outlook");
}

// --- the default store ---

class DefaultStore : public test::MapiTest {
 protected:
  // Opens the default store of the session, which is given back.
  HRESULT Find() {
    IMsgStore* store = nullptr;
    const HRESULT result = FindDefaultMsgStore(Session(), &store);
    trace_ = Trace();
    has_store_ = store != nullptr;
    if (has_store_) {
      store->Release();
    }
    return result;
  }
  // How the store is opened that the rows give.
  std::string Opened(std::vector<Row> stores) {
    StartOver();
    mapi_->stores = std::move(stores);
    EXPECT_EQ(Find(), S_OK);
    EXPECT_TRUE(has_store_);
    return CallOf("IMAPISession::OpenMsgStore");
  }

  bool has_store_ = false;
  std::string trace_;
};

constexpr char kTable[] = "IMAPISession::GetMsgStoresTable(0x0)";
constexpr char kQuery[] = "HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)";
constexpr char kFreeRows[] = "FreeProws(rows of the store table)";
constexpr char kReleaseTable[] = "IMAPITable::Release()";
constexpr char kNone[] = "log ERROR: FindDefaultMsgStore(): There are no message stores found.";

// One with the entry identifier `entry`.
std::string OpenStore(const std::string& entry, const std::string& flags = "0x10c") {
  return "IMAPISession::OpenMsgStore(0, " + entry + ", null, " + flags + ")";
}

TEST_F(DefaultStore, IsOpenedOnline) {
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, 2);
  EXPECT_EQ(Find(), 2);
  EXPECT_TRUE(has_store_);
  EXPECT_EQ(trace_,
            Lines({kTable, kQuery, OpenStore("4 bytes 01020304"), kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, IsTheFirstThatIsMarkedWithTheNumberOne) {
  const struct {
    const char* name;
    std::vector<Row> stores;
    const char* entry;
  } kCases[] = {
      {"the first",
       {StoreRow(false, "nope"), StoreRow(true, "\x01\x02"), StoreRow(true, "none")},
       "2 bytes 0102"},
      {"the number one",
       {{Number(PR_DEFAULT_STORE, 2), Bytes(PR_ENTRYID, "two!")},
        {Number(PR_DEFAULT_STORE, 0xFFFF), Bytes(PR_ENTRYID, "all!")},
        {Number(PR_DEFAULT_STORE, 0x101), Bytes(PR_ENTRYID, "low!")},
        StoreRow(true, "\x01\x02")},
       "2 bytes 0102"},
      {"any identifier", {StoreRow(true, std::string("a\0b\0\xff", 5))}, "5 bytes 61006200ff"},
      {"an error is no identifier, which is tried all the same",
       {{Number(PR_DEFAULT_STORE, 1), Number(0x0FFF000A, MAPI_E_NOT_FOUND)}},
       "0 bytes at null"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(Opened(test.stores), OpenStore(test.entry)) << test.name;
  }
}

TEST_F(DefaultStore, DeliberateTheTagOfTheMarkDoesNotCount) {
  EXPECT_EQ(Opened({{Number(0x3400000A, 1), Bytes(PR_ENTRYID, "\x01")}}), OpenStore("1 bytes 01"));
}

TEST_F(DefaultStore, ThereIsNone) {
  mapi_->values_as_they_stand = true;
  mapi_->stores = {StoreRow(false, "one!"), StoreRow(false, "two!"), Row{},
                   Row{Number(PR_DEFAULT_STORE, 1)}};
  mapi_->Answer("HrQueryAllRows", 0, 1);
  EXPECT_EQ(Find(), 1);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kFreeRows, kReleaseTable}));

  StartOver();
  mapi_->stores.clear();
  mapi_->Answer("HrQueryAllRows", 0, 1);
  EXPECT_EQ(Find(), 1);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kNone, kFreeRows, kReleaseTable}));

  StartOver();
  mapi_->GiveNothing("HrQueryAllRows");
  EXPECT_EQ(Find(), S_OK);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kReleaseTable}));

  StartOver();
  mapi_->GiveNothing("IMAPISession::GetMsgStoresTable");
  EXPECT_EQ(Find(), E_FAIL);
  EXPECT_FALSE(has_store_);
}

TEST_F(DefaultStore, AStoreThatIsNotOnlineIsOpenedNormally) {
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  mapi_->Answer("IMAPISession::OpenMsgStore", 1, 2);
  EXPECT_EQ(Find(), 2);
  EXPECT_TRUE(has_store_);
  EXPECT_EQ(
      trace_,
      Lines({kTable, kQuery, OpenStore("4 bytes 01020304"),
             "log ERROR: FindDefaultMsgStore(): The message store canot be opened as online mode.",
             kFailureCode, OpenStore("4 bytes 01020304", "0xc"), kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, DeliberateTheRowsStayWhenItCannotBeOpenedAtAll) {
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  mapi_->Answer("IMAPISession::OpenMsgStore", 1, MAPI_E_NOT_FOUND);
  EXPECT_EQ(Find(), MAPI_E_NOT_FOUND);
  EXPECT_FALSE(has_store_);
  SettleAccounts("rows of the store table of HrQueryAllRows: not freed\n");
}

}  // namespace
}  // namespace zentpost
