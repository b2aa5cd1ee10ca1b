#include "mapi/recipients.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "mapi/text_buffer.h"
#include "testing/mapi_test.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::Lines;

constexpr char16_t kAddinKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr HRESULT kFailure = MakeResult(0x80040115);
constexpr char kFailureCode[] = "log ERROR: Code 0x80040115 --> (CDO) A network error occured.";

// --- address automation ---

class AddressAutomation : public test::MapiTest {
 protected:
  void Set(const char16_t* name, std::u16string_view text, std::uint32_t type = platform::kRegSz) {
    machine_.SetString(Hive::kCurrentUser, kAddinKey, name, text, type);
  }
  void TurnOn(std::u16string_view prefix, std::u16string_view suffix) {
    Set(u"AddrExtFaxEnabled", u"1");
    Set(u"AddrExtFaxPrefix", prefix);
    Set(u"AddrExtFaxPostfix", suffix);
  }

  // "type:address" of a recipient.
  std::string AddressOf(const std::u16string& recipient) {
    std::fill(std::begin(address_), std::end(address_), u'?');
    std::fill(std::begin(type_), std::end(type_), u'?');
    EXPECT_EQ(ProcessClientAddressAutomation(recipient.c_str(), address_, 0, type_), S_OK);
    return test::Readable(type_) + ":" + test::Readable(address_);
  }

  char16_t address_[kTextBufferSize];
  char16_t type_[kTextBufferSize];
};

TEST_F(AddressAutomation, IsOffAtFirst) {
  EXPECT_EQ(AddressOf(u"0301234567"), "SMTP:0301234567");
  EXPECT_EQ(test::LogText(),
            "INFO: ProcessClientAddressAutomation(): The client address automation is turned off.\n"
            "INFO: ProcessClientAddressAutomation(): 0301234567 --> 'SMTP:0301234567'\n");
}

TEST_F(AddressAutomation, DeliberateTypesAreTheOtherWayRoundWhenItIsOff) {
  EXPECT_EQ(AddressOf(u"someone"), "SMTP:someone");
  EXPECT_EQ(AddressOf(u"someone@example.com"), "FAX:someone@example.com");
  EXPECT_EQ(AddressOf(u"@"), "FAX:@");
}

// Otherwise the number would go out under an address that the user's settings do not give it.
TEST_F(AddressAutomation, SettingsWithoutMemoryForThemAreAFailure) {
  TurnOn(u"[FAX:", u"]");
  for (const char* call : {"OpenKey", "QueryValue"}) {
    for (std::size_t setting = 0; setting < 3; ++setting) {
      machine_.FailCallOf(call, setting, platform::kNotEnoughMemory);
      EXPECT_EQ(ProcessClientAddressAutomation(u"030", address_, 0, type_),
                MAPI_E_NOT_ENOUGH_MEMORY);
    }
  }
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(AddressAutomation, PrefixAndSuffixCountOnlyWhenItIsOn) {
  TurnOn(u"[FAX:", u"]");
  Set(u"AddrExtFaxEnabled", u"0");
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
}

TEST_F(AddressAutomation, WrapsANumberAndLeavesItsTypeEmpty) {
  TurnOn(u"[FAX:", u"]");
  EXPECT_EQ(AddressOf(u"030"), ":[FAX:030]");
  EXPECT_EQ(test::LogText(),
            "INFO: ProcessClientAddressAutomation(): The client address automation is turned on:\n"
            "INFO: ProcessClientAddressAutomation(): Address Prefix: '[FAX:'\n"
            "INFO: ProcessClientAddressAutomation(): Address Suffix: ']'\n"
            "INFO: ProcessClientAddressAutomation(): 030 --> ':[FAX:030]'\n");
}

TEST_F(AddressAutomation, WithoutPrefixAndSuffixTheTypeIsEmptyToo) {
  Set(u"AddrExtFaxEnabled", u"1");
  EXPECT_EQ(AddressOf(u"030"), ":030");
}

TEST_F(AddressAutomation, DeliberateTheFaxBracketsAreATypeAndNoWrapping) {
  TurnOn(u"[FAX", u"]");
  EXPECT_EQ(AddressOf(u"030"), "FAX:030");
}

TEST_F(AddressAutomation, TheFaxBracketsHaveToBeExact) {
  for (const auto& [prefix, suffix, address] :
       {std::tuple(u"[fax", u"]", ":[fax030]"), std::tuple(u"[FAX", u"", ":[FAX030"),
        std::tuple(u"[FAX", u"]]", ":[FAX030]]"), std::tuple(u"[FAX ", u"]", ":[FAX 030]"),
        std::tuple(u"", u"]", ":030]")}) {
    TurnOn(prefix, suffix);
    EXPECT_EQ(AddressOf(u"030"), address);
  }
}

TEST_F(AddressAutomation, ASuffixWithAnAtSignMakesAMailAddress) {
  TurnOn(u"fax-", u"@gateway.example");
  EXPECT_EQ(AddressOf(u"030"), "SMTP:fax-030@gateway.example");
  TurnOn(u"", u"@");
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030@");
}

TEST_F(AddressAutomation, AnAtSignInThePrefixAloneMakesNone) {
  TurnOn(u"a@", u"b");
  EXPECT_EQ(AddressOf(u"030"), ":a@030b");
}

TEST_F(AddressAutomation, AMailAddressIsNeverWrapped) {
  for (const auto& [prefix, suffix] :
       {std::pair(u"fax-", u"@gateway.example"), std::pair(u"[FAX", u"]"), std::pair(u"x", u"y")}) {
    TurnOn(prefix, suffix);
    EXPECT_EQ(AddressOf(u"someone@example.com"), "SMTP:someone@example.com");
  }
}

TEST_F(AddressAutomation, PercentSignsAreJustCharacters) {
  TurnOn(u"%s", u"%d");
  EXPECT_EQ(AddressOf(u"%n"), ":%s%n%d");
}

TEST_F(AddressAutomation, IsOnOnlyWithExactlyTheTextOne) {
  for (const char16_t* const off : {u"", u"0", u"1 ", u" 1", u"01", u"true", u"11"}) {
    SCOPED_TRACE(test::Readable(off));
    TurnOn(u"p", u"s");
    Set(u"AddrExtFaxEnabled", off);
    EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
  }
  Set(u"AddrExtFaxEnabled", u"1", platform::kRegExpandSz);
  EXPECT_EQ(AddressOf(u"030"), ":p030s");
}

TEST_F(AddressAutomation, ANumberInTheRegistryIsNoText) {
  TurnOn(u"p", u"s");
  machine_.SetDword(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxEnabled", 1);
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
}

TEST_F(AddressAutomation, EveryTypeIsReadAsText) {
  TurnOn(u"", u"");
  machine_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPrefix", platform::kRegBinary,
                    std::string("p\0q\0", 4));
  machine_.SetDword(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPostfix", '@');
  EXPECT_EQ(AddressOf(u"030"), "SMTP:pq030@");
}

TEST_F(AddressAutomation, ValuesOfNoLengthAndWithoutTerminatorAreTaken) {
  TurnOn(u"p", u"s");
  machine_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPrefix", platform::kRegSz, "");
  machine_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPostfix", platform::kRegExpandSz,
                    std::string("s\0t\0", 4));
  EXPECT_EQ(AddressOf(u"030"), ":030st");
}

TEST_F(AddressAutomation, TextsAreReadAtAnyLength) {
  for (const std::size_t length : {std::size_t{253}, std::size_t{254}, std::size_t{255},
                                   std::size_t{256}, std::size_t{510}, std::size_t{700}}) {
    SCOPED_TRACE(length);
    TurnOn(std::u16string(length, u'p'), u"s");
    EXPECT_EQ(AddressOf(u"030"), ":" + std::string(length, 'p') + "030s");
  }
}

TEST_F(AddressAutomation, TheRoomGrowsInSteps) {
  TurnOn(std::u16string(600, u'p'), u"");
  machine_.ClearCalls();
  AddressOf(u"030");
  EXPECT_EQ(machine_.CallsOf("QueryValue(AddrExtFaxPrefix"), std::vector<std::string>());
  std::vector<std::string> reads;
  for (const std::string& call : machine_.CallsOf("QueryValue")) {
    if (call.find("AddrExtFax") != std::string::npos) {
      reads.push_back(call);
    }
  }
  EXPECT_EQ(reads, (std::vector<std::string>{
                       "QueryValue(AddrExtFaxEnabled, 510)", "QueryValue(AddrExtFaxPrefix, 510)",
                       "QueryValue(AddrExtFaxPrefix, 1020)", "QueryValue(AddrExtFaxPrefix, 1530)",
                       "QueryValue(AddrExtFaxPostfix, 510)"}));
}

TEST_F(AddressAutomation, IsReadFromTheUsersHiveAloneWithAKeyForEachValue) {
  machine_.SetString(Hive::kLocalMachine, kAddinKey, u"AddrExtFaxEnabled", u"1");
  machine_.ClearCalls();
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
  std::vector<std::string> keys;
  for (const std::string& call : machine_.CallsOf("OpenKey")) {
    if (call.find("OutlookAddin") != std::string::npos) {
      keys.push_back(call);
    }
  }
  EXPECT_EQ(keys,
            std::vector<std::string>(3, "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)"));
}

TEST_F(AddressAutomation, IsReadAfreshEveryTime) {
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
  TurnOn(u"p", u"s");
  EXPECT_EQ(AddressOf(u"030"), ":p030s");
}

TEST_F(AddressAutomation, ASettingThatCannotBeReadIsEmpty) {
  const struct {
    const char* call;
    std::size_t index;
    const char* address;
  } kCases[] = {
      {"OpenKey", 0, "SMTP:030"},    {"OpenKey", 1, ":030s"},    {"OpenKey", 2, ":p030"},
      {"QueryValue", 0, "SMTP:030"}, {"QueryValue", 1, ":030s"}, {"QueryValue", 2, ":p030"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(std::string(test.call) + " " + std::to_string(test.index));
    StartOver();
    TurnOn(u"p", u"s");
    machine_.FailCallOf(test.call, test.index, platform::kAccessDenied);
    EXPECT_EQ(AddressOf(u"030"), test.address);
    EXPECT_TRUE(machine_.FaultTaken());
  }
}

TEST_F(AddressAutomation, WhatDoesNotFitIsCutOff) {
  EXPECT_EQ(AddressOf(std::u16string(1023, u'1')), "SMTP:" + std::string(1023, '1'));
  EXPECT_EQ(AddressOf(std::u16string(1024, u'1')), "SMTP:" + std::string(1023, '1'));
  TurnOn(std::u16string(900, u'p'), std::u16string(900, u's'));
  EXPECT_EQ(AddressOf(u"030"), ":" + std::string(900, 'p') + "030" + std::string(120, 's'));
}

TEST_F(AddressAutomation, ArgumentsAreCheckedInTheirOrder) {
  const struct {
    const char16_t* recipient;
    char16_t* address;
    char16_t* type;
    const char* log;
  } kCases[] = {
      {nullptr, nullptr, nullptr, "The recipient address is NULL."},
      {nullptr, address_, type_, "The recipient address is NULL."},
      {u"", nullptr, nullptr, "The recipient address is empty."},
      {u"", address_, type_, "The recipient address is empty."},
      {u"030", nullptr, nullptr, "The output buffer for the address calculation is invalid."},
      {u"030", nullptr, type_, "The output buffer for the address calculation is invalid."},
      {u"030", address_, nullptr, "The output buffer for the address type is invalid."},
  };
  for (const auto& test : kCases) {
    StartOver();
    EXPECT_EQ(ProcessClientAddressAutomation(test.recipient, test.address, 0, test.type),
              E_INVALIDARG);
    EXPECT_EQ(test::LogText(),
              std::string("ERROR: ProcessClientAddressAutomation(): ") + test.log + "\n");
  }
}

TEST_F(AddressAutomation, TheSettingsAreReadBeforeAnythingIsChecked) {
  EXPECT_EQ(ProcessClientAddressAutomation(nullptr, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(Trace(), Lines({"OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
                            "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
                            "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)",
                            "log ERROR: ProcessClientAddressAutomation(): The recipient address is "
                            "NULL."}));
}

TEST_F(AddressAutomation, TheReservedNumberIsIgnored) {
  EXPECT_EQ(ProcessClientAddressAutomation(u"030", address_, 0xFFFFFFFF, type_), S_OK);
  EXPECT_EQ(std::u16string(address_), u"030");
}

// --- the message's recipient ---

constexpr char kOpenBook[] = "IMAPISession::OpenAddressBook(0, null, 0x0)";
constexpr char kReleaseBook[] = "IAddrBook::Release()";
constexpr char kFreeList[] = "FreePadrlist(block 1)";
constexpr char kFreeOneOff[] = "MAPIFreeBuffer(block 3)";

const std::string kAllocateList = "MAPIAllocateBuffer(" + std::to_string(sizeof(ADRLIST)) + ")";
const std::string kAllocateEntry =
    "MAPIAllocateBuffer(" + std::to_string(20 * sizeof(SPropValue)) + ")";

constexpr char kCreateOneOff[] =
    "IAddrBook::CreateOneOff(\"J\xC3\xA4ger\", \"SMTP\", \"030\", 0x80000000)";
constexpr char kResolve[] =
    "IAddrBook::ResolveName(0, 0x80000000, null, [5 [0x3001001f \"J\xC3\xA4ger\", 0x3002001f "
    "\"SMTP\", 0x3003001f \"030\", 0x0c150003 1, 0x0fff0102 7 bytes 6f6e652d6f6666]])";
constexpr char kModify[] =
    "IMessage::ModifyRecipients(0x2, [5 [0x3001001f \"J\xC3\xA4ger\", 0x3002001f \"SMTP\", "
    "0x3003001f \"030\", 0x0c150003 1, 0x0fff0102 7 bytes 6f6e652d6f6666]])";
constexpr char kModifyWithoutType[] =
    "IMessage::ModifyRecipients(0x2, [3 [0x3001001f \"J\xC3\xA4ger\", 0x3003001f "
    "\"[FAX:030]\", 0x0c150003 1]])";
constexpr char kSave[] = "IMessage::SaveChanges(0x2)";

class RecipientAddress : public test::MapiTest {
 protected:
  // Adds a recipient to a message of a session, both of which are given back.
  HRESULT Add(const char16_t* address = u"030", const char16_t* name = u"J\u00E4ger",
              const char16_t* type = u"SMTP") {
    IMAPISession* const session = mapi_->OpenSession();
    IMessage* const message = mapi_->OpenMessage();
    const HRESULT result = AddRecipientAddress(session, message, address, name, type);
    trace_ = Trace();
    message->Release();
    session->Release();
    return result;
  }

  std::string trace_;
};

TEST_F(RecipientAddress, WithATypeItIsAResolvedEntryOfItsOwn) {
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(trace_, Lines({kOpenBook, kAllocateList, kAllocateEntry, kCreateOneOff, kResolve,
                           kModify, kSave, kFreeList, kFreeOneOff, kReleaseBook}));
}

TEST_F(RecipientAddress, DeliberateWithoutATypeThereIsNoEntryOfItsOwn) {
  for (const char16_t* const type : {u"", static_cast<const char16_t*>(nullptr)}) {
    StartOver();
    EXPECT_EQ(Add(u"[FAX:030]", u"J\u00E4ger", type), S_OK);
    EXPECT_EQ(trace_, Lines({kOpenBook, kAllocateList, kAllocateEntry, kModifyWithoutType, kSave,
                             kFreeList, kReleaseBook}));
  }
}

TEST_F(RecipientAddress, WithoutANameItIsShownAsTheAddress) {
  for (const char16_t* const name : {u"", static_cast<const char16_t*>(nullptr)}) {
    StartOver();
    EXPECT_EQ(Add(u"030", name, u"FAX"), S_OK);
    EXPECT_EQ(
        mapi_->CallsOf("IAddrBook::CreateOneOff"),
        std::vector<std::string>{"IAddrBook::CreateOneOff(\"030\", \"FAX\", \"030\", 0x80000000)"});
    EXPECT_EQ(mapi_->CallsOf("IMessage::ModifyRecipients"),
              std::vector<std::string>{
                  "IMessage::ModifyRecipients(0x2, [5 [0x3001001f \"030\", 0x3002001f \"FAX\", "
                  "0x3003001f \"030\", 0x0c150003 1, 0x0fff0102 7 bytes 6f6e652d6f6666]])"});
  }
}

TEST_F(RecipientAddress, TheNameIsCutOffWhereItsBufferEnds) {
  const std::u16string name(1100, u'n');
  EXPECT_EQ(Add(u"030", name.c_str(), u""), S_OK);
  EXPECT_EQ(
      mapi_->CallsOf("IMessage::ModifyRecipients"),
      std::vector<std::string>{"IMessage::ModifyRecipients(0x2, [3 [0x3001001f \"" +
                               std::string(1023, 'n') + "\", 0x3003001f \"030\", 0x0c150003 1]])"});
}

TEST_F(RecipientAddress, TheLibraryMayMoveTheResolvedEntry) {
  mapi_->resolving_moves_entries = true;
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(trace_, Lines({kOpenBook, kAllocateList, kAllocateEntry, kCreateOneOff, kResolve,
                           kModify, kSave, kFreeList, kFreeOneOff, kReleaseBook}));
}

TEST_F(RecipientAddress, ArgumentsAreCheckedInTheirOrder) {
  IMAPISession* const session = mapi_->OpenSession();
  IMessage* const message = mapi_->OpenMessage();
  const struct {
    IMessage* message;
    const char16_t* address;
    const char* log;
  } kCases[] = {
      {nullptr, nullptr, "The recipient address is NULL."},
      {message, nullptr, "The recipient address is NULL."},
      {nullptr, u"", "The recipient address is empty."},
      {message, u"", "The recipient address is empty."},
      {nullptr, u"030", "The message interface is NULL."},
  };
  std::string log;
  for (const auto& test : kCases) {
    EXPECT_EQ(AddRecipientAddress(session, test.message, test.address, u"n", u"SMTP"),
              E_INVALIDARG);
    log += std::string("log ERROR: AddRecipientAddress(): ") + test.log + "\n";
  }
  EXPECT_EQ(Trace(), log);
  message->Release();
  session->Release();
}

TEST_F(RecipientAddress, EveryFailureIsLoggedAndGivenBack) {
  const std::vector<std::string> calls = {kOpenBook, kAllocateList, kAllocateEntry, kCreateOneOff,
                                          kResolve,  kModify,       kSave};
  const struct {
    const char* call;
    std::size_t index;
    std::size_t calls_done;  // the failing one included
    const char* log;
    std::vector<std::string> cleanup;
  } kCases[] = {
      {"IMAPISession::OpenAddressBook", 0, 1, "The address book cannot be opened.", {}},
      {"MAPIAllocateBuffer", 1, 3, nullptr, {kFreeList, kReleaseBook}},
      {"IAddrBook::CreateOneOff",
       0,
       4,
       "The ONE OFF address creation failed.",
       {kFreeList, kReleaseBook}},
      {"IAddrBook::ResolveName",
       0,
       5,
       "The address list resolution failed.",
       {kFreeList, kFreeOneOff, kReleaseBook}},
      {"IMessage::ModifyRecipients",
       0,
       6,
       "The recipient cannot be added.",
       {kFreeList, kFreeOneOff, kReleaseBook}},
      {"IMessage::SaveChanges",
       0,
       7,
       "The message cannot be saved.",
       {kFreeList, kFreeOneOff, kReleaseBook}},
  };
  for (const bool leaves_garbage : {false, true}) {
    for (const auto& test : kCases) {
      SCOPED_TRACE(std::string(test.call) + (leaves_garbage ? " with garbage" : ""));
      StartOver();
      mapi_->failures_leave_garbage = leaves_garbage;
      mapi_->Answer(test.call, test.index, kFailure);
      EXPECT_EQ(Add(), kFailure);
      std::vector<std::string> expected(
          calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(test.calls_done));
      if (test.log != nullptr) {
        expected.push_back(std::string("log ERROR: AddRecipientAddress(): ") + test.log);
        expected.emplace_back(kFailureCode);
      }
      expected.insert(expected.end(), test.cleanup.begin(), test.cleanup.end());
      EXPECT_EQ(trace_, Lines(expected));
    }
  }
}

TEST_F(RecipientAddress, DeliberateWithoutAListTheRecipientIsMissingAndNothingFails) {
  const std::vector<std::string> trace = {
      kOpenBook, kAllocateList,
      "log ERROR: AddRecipientAddress(): The address list cannot be allocated.", kReleaseBook};
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(trace_, Lines(trace));

  StartOver();
  mapi_->GiveNothing("MAPIAllocateBuffer");
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(trace_, Lines(trace));

  StartOver();
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(trace_, Lines(trace));

  // The line's code is the result that is returned.
  StartOver();
  machine_.SetSystemMessage(1, u"One.");
  mapi_->Answer("IMAPISession::OpenAddressBook", 0, 1);
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Add(), 1);
  EXPECT_EQ(trace_,
            Lines({kOpenBook, kAllocateList,
                   "log ERROR: AddRecipientAddress(): The address list cannot be allocated.",
                   "SystemMessage(0x1)", "log ERROR: Code 0x00000001 --> One.", kReleaseBook}));
}

TEST_F(RecipientAddress, AnEntryWithoutABlockIsAFailure) {
  mapi_->GiveNothing("MAPIAllocateBuffer", 1);
  EXPECT_EQ(Add(), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(trace_, Lines({kOpenBook, kAllocateList, kAllocateEntry, kFreeList, kReleaseBook}));
}

TEST_F(RecipientAddress, AnAddressBookThatIsNotHandedOutIsAFailure) {
  mapi_->GiveNothing("IMAPISession::OpenAddressBook");
  EXPECT_EQ(Add(), E_FAIL);
  EXPECT_EQ(
      trace_,
      Lines({kOpenBook, "log ERROR: AddRecipientAddress(): The address book cannot be opened.",
             "log ERROR: Code 0x80004005 --> A general not more specified error occurred."}));
}

TEST_F(RecipientAddress, TheLastSuccessIsGivenBackUnchanged) {
  mapi_->Answer("IMessage::SaveChanges", 0, 3);
  EXPECT_EQ(Add(), 3);
}

TEST_F(RecipientAddress, AMissingFunctionShowsInItsOwnWay) {
  StartOver({"MAPIAllocateBuffer"});
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(
      trace_,
      Lines({kOpenBook, "log ERROR: AddRecipientAddress(): The address list cannot be allocated.",
             kReleaseBook}));

  StartOver({"FreePadrlist"});
  EXPECT_EQ(Add(), S_OK);
  SettleAccounts(
      "block 1 of MAPIAllocateBuffer: not freed\nblock 2 of MAPIAllocateBuffer: not freed\n");
}

TEST_F(RecipientAddress, WithoutMapiFreeBufferTheEntryIdentifierStays) {
  StartOver({"MAPIFreeBuffer"});
  EXPECT_EQ(Add(), S_OK);
  SettleAccounts("block 3 of IAddrBook::CreateOneOff: not freed\n");
}

}  // namespace
}  // namespace zentpost
