#include "mapi/profiles_and_stores.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

#include "testing/mapi_test.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using test::Bytes;
using test::Lines;
using test::Number;
using test::ProfileRow;
using test::Row;
using test::StoreRow;
using test::Text;

constexpr HRESULT kFailure = MakeResult(0x80040115);

// A buffer for a profile's name that shows what was written into it.
class NameBuffer {
 public:
  NameBuffer() { std::fill(std::begin(units_), std::end(units_), kUntouched); }

  char16_t* Get() { return units_; }
  [[nodiscard]] bool IsUntouched(std::size_t from = 0) const {
    return std::all_of(units_ + from, std::end(units_),
                       [](char16_t unit) { return unit == kUntouched; });
  }
  [[nodiscard]] std::u16string Text() const {
    const auto* const end = std::find(std::begin(units_), std::end(units_), u'\0');
    EXPECT_NE(end, std::end(units_)) << "no terminator";
    return {std::begin(units_), end};
  }

 private:
  static constexpr char16_t kUntouched = u'\u2205';
  char16_t units_[kProfileNameSize];
};

// --- the default profile ---

class DefaultProfile : public test::MapiTest {
 protected:
  // The name that `rows` give; the query is a success.
  std::u16string NameOf(std::vector<Row> rows) {
    StartOver();
    mapi_->values_as_they_stand = true;
    mapi_->profiles = std::move(rows);
    EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
    return name_.Text();
  }

  // The same of rows without a name to copy.
  bool LeavesTheBufferAlone(std::vector<Row> rows) {
    StartOver();
    mapi_->values_as_they_stand = true;
    mapi_->profiles = std::move(rows);
    EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
    return name_.IsUntouched();
  }

  NameBuffer name_;
};

TEST_F(DefaultProfile, IsFoundInTheTableOfProfiles) {
  EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
  EXPECT_EQ(name_.Text(), u"Outlook");
  EXPECT_EQ(Trace(),
            Lines({"MAPIAdminProfiles(0x0)", "IProfAdmin::GetProfileTable(0x0)",
                   "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)",
                   "FreeProws(rows of the profile table)", "IMAPITable::Release()",
                   "IProfAdmin::Release()"}));
}

TEST_F(DefaultProfile, IsTheOneThatIsMarked) {
  EXPECT_EQ(NameOf({ProfileRow(false, "One"), ProfileRow(true, "Two"), ProfileRow(false, "Three")}),
            u"Two");
}

TEST_F(DefaultProfile, DeliberateTheLastOfSeveralCounts) {
  EXPECT_EQ(NameOf({ProfileRow(true, "One"), ProfileRow(true, "Two"), ProfileRow(false, "Three")}),
            u"Two");
}

TEST_F(DefaultProfile, AnyNumberButZeroMarksIt) {
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 2), Bytes(PR_DISPLAY_NAME_A, "Two")}}), u"Two");
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 0xFFFF), Bytes(PR_DISPLAY_NAME_A, "All")}}),
            u"All");
}

TEST_F(DefaultProfile, OnlyTheExactTagMarksIt) {
  EXPECT_TRUE(LeavesTheBufferAlone({
      {Number(PR_DEFAULT_STORE, 1), Bytes(PR_DISPLAY_NAME_A, "Store")},
      {Number(0x3D040003, 1), Bytes(PR_DISPLAY_NAME_A, "Number")},
      {Number(0x3D04000A, 1), Bytes(PR_DISPLAY_NAME_A, "Error")},
      {Bytes(PR_DISPLAY_NAME_A, "Turned round"), Number(PR_DEFAULT_PROFILE, 1)},
  }));
}

TEST_F(DefaultProfile, ItsNameMayBeWide) {
  EXPECT_EQ(
      NameOf({{Number(PR_DEFAULT_PROFILE, 1), Text(PR_DISPLAY_NAME_W, u"J\u00E4ger \u4E2D")}}),
      u"J\u00E4ger \u4E2D");
}

TEST_F(DefaultProfile, AnEightBitNameIsInTheCodePageOfTheSystem) {
  EXPECT_EQ(NameOf({ProfileRow(true, "J\xE4ger \x80")}), u"J\u00E4ger \u20AC");
  // In the system's code page (0), whatever the thread's is.
  EXPECT_EQ(machine_.CallsOf("BytesToWide"), std::vector<std::string>{"BytesToWide(0, 7, 256)"});
}

TEST_F(DefaultProfile, OnlyTheTypeOfTheNamesTagCounts) {
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 1), Text(PR_SUBJECT_W, u"Other")}}), u"Other");
}

TEST_F(DefaultProfile, AnEmptyNameIsAName) {
  EXPECT_EQ(NameOf({ProfileRow(true, "")}), u"");
  EXPECT_TRUE(name_.IsUntouched(1)) << "more than the terminator";
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 1), Text(PR_DISPLAY_NAME_W, u"")}}), u"");
}

TEST_F(DefaultProfile, ANameThatIsAnErrorLeavesTheBufferAlone) {
  EXPECT_TRUE(LeavesTheBufferAlone(
      {{Number(PR_DEFAULT_PROFILE, 1), Number(0x3001000A, MAPI_E_NOT_FOUND)}}));
  EXPECT_TRUE(
      LeavesTheBufferAlone({{Number(PR_DEFAULT_PROFILE, 1), Number(PR_RECIPIENT_TYPE, 5)}}));
  EXPECT_TRUE(LeavesTheBufferAlone({{Number(PR_DEFAULT_PROFILE, 1)}}));
  EXPECT_TRUE(LeavesTheBufferAlone({Row{}}));
}

TEST_F(DefaultProfile, ARowWithoutItsValuesLeavesTheBufferAlone) {
  mapi_->rows_lack_values = true;
  EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
  EXPECT_TRUE(name_.IsUntouched());
}

TEST_F(DefaultProfile, ANameThatIsNullLeavesTheBufferAlone) {
  for (const std::uint32_t tag : {PR_DISPLAY_NAME_A, PR_DISPLAY_NAME_W}) {
    test::Property name;
    name.tag = tag;
    name.has_null = true;
    EXPECT_TRUE(LeavesTheBufferAlone({{Number(PR_DEFAULT_PROFILE, 1), name}}));
  }
}

TEST_F(DefaultProfile, LongNamesAreCutOff) {
  const std::u16string wide(400, u'w');
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 1), Text(PR_DISPLAY_NAME_W, wide)}}),
            wide.substr(0, 259));
  EXPECT_EQ(NameOf({{Number(PR_DEFAULT_PROFILE, 1), Text(PR_DISPLAY_NAME_W, wide.substr(0, 259))}}),
            wide.substr(0, 259));
}

TEST_F(DefaultProfile, OfALongEightBitNameNoMoreThan256BytesCount) {
  EXPECT_EQ(NameOf({ProfileRow(true, std::string(255, 'n'))}), std::u16string(255, u'n'));
  EXPECT_EQ(NameOf({ProfileRow(true, std::string(256, 'n'))}), std::u16string(256, u'n'));
  EXPECT_EQ(NameOf({ProfileRow(true, std::string(257, 'n'))}), std::u16string(256, u'n'));
  EXPECT_EQ(NameOf({ProfileRow(true, std::string(1000, 'n'))}), std::u16string(256, u'n'));
}

TEST_F(DefaultProfile, ANameThatCannotBeConvertedIsNoFailure) {
  machine_.FailCallOf("BytesToWide", 0, platform::kGeneralFailure);
  EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
  EXPECT_TRUE(machine_.FaultTaken());
  EXPECT_TRUE(name_.IsUntouched());
}

TEST_F(DefaultProfile, WithoutADefaultTheBufferStaysAsItIs) {
  EXPECT_TRUE(LeavesTheBufferAlone({ProfileRow(false, "One"), ProfileRow(false, "Two")}));
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(DefaultProfile, WithoutProfilesThereIsALineInTheLog) {
  mapi_->profiles.clear();
  EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
  EXPECT_TRUE(name_.IsUntouched());
  EXPECT_EQ(Trace(),
            Lines({"MAPIAdminProfiles(0x0)", "IProfAdmin::GetProfileTable(0x0)",
                   "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)",
                   "log ERROR: GetDefaultProfile(): There are no profiles.",
                   "FreeProws(rows of the profile table)", "IMAPITable::Release()",
                   "IProfAdmin::Release()"}));
}

TEST_F(DefaultProfile, EveryFailureIsGivenBackUnchanged) {
  const std::string administration = "MAPIAdminProfiles(0x0)\n";
  const std::string table = administration + "IProfAdmin::GetProfileTable(0x0)\n";
  const std::string rows =
      table + "HrQueryAllRows(profile table, [0x3d04000b, 0x3001001e], null, null, 0)\n";
  const struct {
    const char* call;
    std::string trace;
  } kCases[] = {
      {"MAPIAdminProfiles", administration},
      {"IProfAdmin::GetProfileTable", table + "IProfAdmin::Release()\n"},
      {"HrQueryAllRows", rows + "IMAPITable::Release()\nIProfAdmin::Release()\n"},
  };
  for (const bool leaves_garbage : {false, true}) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(std::string(test.call) + (leaves_garbage ? " with garbage" : ""));
      StartOver();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->Answer(test.call, 0, kFailure);
      EXPECT_EQ(GetDefaultProfile(name_.Get()), kFailure);
      EXPECT_EQ(Trace(), test.trace);

      // A success that hands out nothing is still a success, and there is nothing to go on with.
      StartOver();
      mapi_->GiveNothing(test.call);
      EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
      EXPECT_EQ(Trace(), test.trace);
    }
  }
  EXPECT_TRUE(name_.IsUntouched());
}

TEST_F(DefaultProfile, TheQuerysSuccessIsGivenBackUnchanged) {
  mapi_->Answer("HrQueryAllRows", 0, 1);
  EXPECT_EQ(GetDefaultProfile(name_.Get()), 1);
  EXPECT_EQ(name_.Text(), u"Outlook");
}

TEST_F(DefaultProfile, AMissingFunctionIsAFailure) {
  StartOver({"MAPIAdminProfiles"});
  EXPECT_EQ(GetDefaultProfile(name_.Get()), E_FAIL);
  EXPECT_EQ(Trace(), "");

  StartOver({"HrQueryAllRows"});
  EXPECT_EQ(GetDefaultProfile(name_.Get()), E_FAIL);
  EXPECT_EQ(Trace(), Lines({"MAPIAdminProfiles(0x0)", "IProfAdmin::GetProfileTable(0x0)",
                            "IMAPITable::Release()", "IProfAdmin::Release()"}));
  EXPECT_TRUE(name_.IsUntouched());

  StartOverWithoutLibrary();
  EXPECT_EQ(GetDefaultProfile(name_.Get()), E_FAIL);
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(DefaultProfile, WithoutFreeProwsTheRowsStay) {
  StartOver({"FreeProws"});
  EXPECT_EQ(GetDefaultProfile(name_.Get()), S_OK);
  EXPECT_EQ(name_.Text(), u"Outlook");
  SettleAccounts("rows of the profile table of HrQueryAllRows: not freed\n");
}

// --- the default store ---

class DefaultStore : public test::MapiTest {
 protected:
  // Opens the default store of the session, which is given back.
  HRESULT Find() {
    IMAPISession* const session = mapi_->OpenSession();
    store_ = nullptr;
    const HRESULT result = FindDefaultMsgStore(session, &store_);
    trace_ = Trace();
    session->Release();
    has_store_ = store_ != nullptr;
    if (has_store_) {
      store_->Release();
    }
    return result;
  }

  IMsgStore* store_ = nullptr;
  bool has_store_ = false;
  std::string trace_;
};

constexpr char kTable[] = "IMAPISession::GetMsgStoresTable(0x0)";
constexpr char kQuery[] = "HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)";
constexpr char kOnline[] = "IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0x10c)";
constexpr char kNormal[] = "IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0xc)";
constexpr char kNotOnline[] =
    "log ERROR: FindDefaultMsgStore(): The message store canot be opened as online mode.";
constexpr char kFreeRows[] = "FreeProws(rows of the store table)";
constexpr char kReleaseTable[] = "IMAPITable::Release()";

TEST_F(DefaultStore, IsOpenedOnline) {
  EXPECT_EQ(Find(), S_OK);
  EXPECT_TRUE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, IsTheFirstThatIsMarked) {
  mapi_->stores = {StoreRow(false, "nope"), StoreRow(true, "\x01\x02\x03\x04"),
                   StoreRow(true, "none")};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, OnlyTheNumberOneMarksIt) {
  mapi_->stores = {{Number(PR_DEFAULT_STORE, 2), Bytes(PR_ENTRYID, "two!")},
                   {Number(PR_DEFAULT_STORE, 0xFFFF), Bytes(PR_ENTRYID, "all!")},
                   {Number(PR_DEFAULT_STORE, 0x101), Bytes(PR_ENTRYID, "low!")},
                   StoreRow(true, "\x01\x02\x03\x04")};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, DeliberateTheTagOfTheMarkDoesNotCount) {
  mapi_->stores = {{Number(0x3400000A, 1), Bytes(PR_ENTRYID, "\x01\x02\x03\x04")}};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, TheIdentifierIsHandedOnAsItIs) {
  mapi_->stores = {StoreRow(true, std::string("a\0b\0\xff", 5))};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_EQ(mapi_->CallsOf("IMAPISession::OpenMsgStore"),
            std::vector<std::string>{"IMAPISession::OpenMsgStore(0, 5 bytes 61006200ff, null, "
                                     "0x10c)"});
}

TEST_F(DefaultStore, AnIdentifierThatIsAnErrorIsNoneAndIsTriedAllTheSame) {
  mapi_->stores = {{Number(PR_DEFAULT_STORE, 1), Number(0x0FFF000A, MAPI_E_NOT_FOUND)}};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_EQ(
      mapi_->CallsOf("IMAPISession::OpenMsgStore"),
      std::vector<std::string>{"IMAPISession::OpenMsgStore(0, 0 bytes at null, null, 0x10c)"});
}

TEST_F(DefaultStore, NoneIsMarked) {
  mapi_->values_as_they_stand = true;
  mapi_->stores = {StoreRow(false, "one!"), StoreRow(false, "two!"), Row{},
                   Row{Number(PR_DEFAULT_STORE, 1)}};
  EXPECT_EQ(Find(), S_OK);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, ThereAreNoStores) {
  mapi_->stores.clear();
  EXPECT_EQ(Find(), S_OK);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery,
                           "log ERROR: FindDefaultMsgStore(): There are no message stores found.",
                           kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, WithoutItsTableThereAreNoStores) {
  mapi_->Answer("IMAPISession::GetMsgStoresTable", 0, kFailure);
  EXPECT_EQ(Find(), kFailure);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_,
            Lines({kTable, "log ERROR: FindDefaultMsgStore(): There are no message stores found.",
                   "log ERROR: Code 0x80040115 --> (CDO) A network error occured."}));
}

TEST_F(DefaultStore, ATableThatIsNotHandedOutIsAFailure) {
  mapi_->GiveNothing("IMAPISession::GetMsgStoresTable");
  EXPECT_EQ(Find(), E_FAIL);
  EXPECT_FALSE(has_store_);
}

TEST_F(DefaultStore, AFailedQueryIsGivenBackUnchanged) {
  mapi_->Answer("HrQueryAllRows", 0, kFailure);
  EXPECT_EQ(Find(), kFailure);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kReleaseTable}));

  StartOver();
  mapi_->GiveNothing("HrQueryAllRows");
  EXPECT_EQ(Find(), S_OK);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kReleaseTable}));
}

TEST_F(DefaultStore, TheQuerysSuccessIsGivenBackUnchanged) {
  mapi_->Answer("HrQueryAllRows", 0, 1);
  mapi_->stores = {StoreRow(false, "one!")};
  EXPECT_EQ(Find(), 1);
  EXPECT_FALSE(has_store_);

  StartOver();
  mapi_->Answer("HrQueryAllRows", 0, 1);
  mapi_->stores.clear();
  EXPECT_EQ(Find(), 1);

  StartOver();
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, 2);
  EXPECT_EQ(Find(), 2);
  EXPECT_TRUE(has_store_);
}

TEST_F(DefaultStore, AStoreThatIsNotOnlineIsOpenedNormally) {
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  EXPECT_EQ(Find(), S_OK);
  EXPECT_TRUE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kNotOnline,
                           "log ERROR: Code 0x80040115 --> (CDO) A network error occured.", kNormal,
                           kFreeRows, kReleaseTable}));
}

TEST_F(DefaultStore, DeliberateTheRowsStayWhenItCannotBeOpenedAtAll) {
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  mapi_->Answer("IMAPISession::OpenMsgStore", 1, MAPI_E_NOT_FOUND);
  EXPECT_EQ(Find(), MAPI_E_NOT_FOUND);
  EXPECT_FALSE(has_store_);
  EXPECT_EQ(trace_, Lines({kTable, kQuery, kOnline, kNotOnline,
                           "log ERROR: Code 0x80040115 --> (CDO) A network error occured.", kNormal,
                           "log ERROR: FindDefaultMsgStore(): The message store canot be opened.",
                           "log ERROR: Code 0x8004010f --> (CDO) The value was not found.",
                           kReleaseTable}));
  SettleAccounts("rows of the store table of HrQueryAllRows: not freed\n");
}

TEST_F(DefaultStore, WhatAFailedCallLeavesBehindIsNotUsed) {
  for (const char* const call : {"IMAPISession::GetMsgStoresTable", "HrQueryAllRows"}) {
    SCOPED_TRACE(call);
    StartOver();
    mapi_->failures_leave_garbage = true;
    mapi_->Answer(call, 0, kFailure);
    EXPECT_EQ(Find(), kFailure);
    EXPECT_FALSE(has_store_);
  }
  StartOver();
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  EXPECT_EQ(Find(), S_OK);
  EXPECT_TRUE(has_store_);

  StartOver();
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, kFailure);
  mapi_->Answer("IMAPISession::OpenMsgStore", 1, MAPI_E_NOT_FOUND);
  EXPECT_EQ(Find(), MAPI_E_NOT_FOUND);
  EXPECT_FALSE(has_store_);
  SettleAccounts("rows of the store table of HrQueryAllRows: not freed\n");
}

TEST_F(DefaultStore, AMissingFunctionIsAFailure) {
  StartOver({"HrQueryAllRows"});
  EXPECT_EQ(Find(), E_FAIL);
  EXPECT_EQ(trace_, Lines({kTable, kReleaseTable}));

  StartOver({"FreeProws"});
  EXPECT_EQ(Find(), S_OK);
  EXPECT_TRUE(has_store_);
  SettleAccounts("rows of the store table of HrQueryAllRows: not freed\n");
}

}  // namespace
}  // namespace zentpost
