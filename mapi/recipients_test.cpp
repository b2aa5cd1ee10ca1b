#include "mapi/recipients.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/text_buffer.h"
#include "testing/mapi_test.h"
#include "testing/text_printers.h"

namespace zentpost {
namespace {

using platform::Hive;
using test::Lines;

constexpr char16_t kAddinKey[] = u"Software\\Sollvex\\OutlookAddin";
constexpr char kOpenKey[] = "OpenKey(HKCU, Software\\Sollvex\\OutlookAddin, 0x2001f)";

// --- address automation ---

class AddressAutomation : public test::MapiTest {
 protected:
  void Set(const char16_t* name, std::u16string_view text, std::uint32_t type = platform::kRegSz) {
    fake_.SetString(Hive::kCurrentUser, kAddinKey, name, text, type);
  }
  void TurnOn(std::u16string_view prefix, std::u16string_view suffix,
              std::u16string_view enabled = u"1") {
    Set(u"AddrExtFaxEnabled", enabled);
    Set(u"AddrExtFaxPrefix", prefix);
    Set(u"AddrExtFaxPostfix", suffix);
  }

  // "type:address" of a recipient.
  std::string AddressOf(const std::u16string& recipient) {
    std::fill(std::begin(address_), std::end(address_), u'?');
    std::fill(std::begin(type_), std::end(type_), u'?');
    EXPECT_EQ(ProcessClientAddressAutomation(recipient.c_str(), address_, 0xFFFFFFFF, type_), S_OK);
    return test::Readable(type_) + ":" + test::Readable(address_);
  }

  // What was asked of the registry for the settings.
  std::vector<std::string> Asked(const std::string& function, const std::string& subject) const {
    std::vector<std::string> calls;
    for (const std::string& call : fake_.CallsOf(function)) {
      if (call.find(subject) != std::string::npos) {
        calls.push_back(call);
      }
    }
    return calls;
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

TEST_F(AddressAutomation, WrapsANumberAndLeavesItsTypeEmpty) {
  TurnOn(u"[FAX:", u"]");
  EXPECT_EQ(AddressOf(u"030"), ":[FAX:030]");
  EXPECT_EQ(test::LogText(),
            "INFO: ProcessClientAddressAutomation(): The client address automation is turned on:\n"
            "INFO: ProcessClientAddressAutomation(): Address Prefix: '[FAX:'\n"
            "INFO: ProcessClientAddressAutomation(): Address Suffix: ']'\n"
            "INFO: ProcessClientAddressAutomation(): 030 --> ':[FAX:030]'\n");
}

TEST_F(AddressAutomation, DeliberateTheFaxBracketsAreATypeAndNoWrapping) {
  TurnOn(u"[FAX", u"]");
  EXPECT_EQ(AddressOf(u"030"), "FAX:030");
}

TEST_F(AddressAutomation, DependsOnPrefixSuffixAndRecipient) {
  const struct {
    const char16_t* prefix;
    const char16_t* suffix;
    const char16_t* recipient;
    const char* address;
  } kCases[] = {
      {u"", u"", u"030", ":030"},
      // The brackets that are a type have to be exact.
      {u"[fax", u"]", u"030", ":[fax030]"},
      {u"[FAX", u"", u"030", ":[FAX030"},
      {u"[FAX", u"]]", u"030", ":[FAX030]]"},
      {u"[FAX ", u"]", u"030", ":[FAX 030]"},
      {u"", u"]", u"030", ":030]"},
      // An at sign in the suffix makes a mail address, one in the prefix does not.
      {u"fax-", u"@gateway.example", u"030", "SMTP:fax-030@gateway.example"},
      {u"", u"@", u"030", "SMTP:030@"},
      {u"a@", u"b", u"030", ":a@030b"},
      // A mail address is never wrapped.
      {u"fax-", u"@gateway.example", u"a@example.com", "SMTP:a@example.com"},
      {u"[FAX", u"]", u"a@example.com", "SMTP:a@example.com"},
      {u"x", u"y", u"a@example.com", "SMTP:a@example.com"},
      {u"%s", u"%d", u"%n", ":%s%n%d"},
  };
  for (const auto& test : kCases) {
    TurnOn(test.prefix, test.suffix);
    EXPECT_EQ(AddressOf(test.recipient), test.address);
  }
}

TEST_F(AddressAutomation, IsOnOnlyWithExactlyTheTextOne) {
  for (const char16_t* const off : {u"", u"0", u"1 ", u" 1", u"01", u"true", u"11"}) {
    TurnOn(u"p", u"s", off);
    EXPECT_EQ(AddressOf(u"030"), "SMTP:030") << test::Readable(off);
  }
  Set(u"AddrExtFaxEnabled", u"1", platform::kRegExpandSz);
  EXPECT_EQ(AddressOf(u"030"), ":p030s");
  fake_.SetDword(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxEnabled", 1);
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
}

TEST_F(AddressAutomation, ReadsValuesOfEveryTypeAsTextWithAndWithoutTerminator) {
  TurnOn(u"", u"");
  fake_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPrefix", platform::kRegBinary,
                 std::string("p\0q\0", 4));
  fake_.SetDword(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPostfix", '@');
  EXPECT_EQ(AddressOf(u"030"), "SMTP:pq030@");
  fake_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPrefix", platform::kRegSz, "");
  fake_.SetValue(Hive::kCurrentUser, kAddinKey, u"AddrExtFaxPostfix", platform::kRegExpandSz,
                 std::string("s\0t\0u", 5));  // half a unit does not count
  EXPECT_EQ(AddressOf(u"030"), ":030st");
}

TEST_F(AddressAutomation, ReadsTextsOfAnyLengthInGrowingSteps) {
  for (const std::size_t length : {253u, 254u, 255u, 256u, 510u, 700u}) {
    TurnOn(std::u16string(length, u'p'), u"s");
    EXPECT_EQ(AddressOf(u"030"), ":" + std::string(length, 'p') + "030s");
  }
  TurnOn(std::u16string(600, u'p'), u"");
  fake_.ClearCalls();
  AddressOf(u"030");
  EXPECT_EQ(Asked("QueryValue", "AddrExtFax"),
            (std::vector<std::string>{
                "QueryValue(AddrExtFaxEnabled, 510)", "QueryValue(AddrExtFaxPrefix, 510)",
                "QueryValue(AddrExtFaxPrefix, 1020)", "QueryValue(AddrExtFaxPrefix, 1530)",
                "QueryValue(AddrExtFaxPostfix, 510)"}));
}

TEST_F(AddressAutomation, IsReadAfreshFromTheUsersHiveAloneWithAKeyForEachValue) {
  fake_.SetString(Hive::kLocalMachine, kAddinKey, u"AddrExtFaxEnabled", u"1");
  fake_.ClearCalls();
  EXPECT_EQ(AddressOf(u"030"), "SMTP:030");
  EXPECT_EQ(Asked("OpenKey", "OutlookAddin"), std::vector<std::string>(3, kOpenKey));
  TurnOn(u"p", u"s");
  EXPECT_EQ(AddressOf(u"030"), ":p030s");
}

TEST_F(AddressAutomation, ASettingThatCannotBeReadIsEmpty) {
  for (const char* const call : {"OpenKey", "QueryValue"}) {
    std::size_t setting = 0;
    for (const char* const address : {"SMTP:030", ":030s", ":p030"}) {
      StartOver();
      TurnOn(u"p", u"s");
      fake_.FailCallOf(call, setting++, platform::kAccessDenied);
      EXPECT_EQ(AddressOf(u"030"), address) << call;
      EXPECT_TRUE(fake_.FaultTaken());
    }
  }
}

// Otherwise the number would go out under an address that the user's settings do not give it.
TEST_F(AddressAutomation, SettingsWithoutMemoryForThemAreAFailure) {
  TurnOn(u"[FAX:", u"]");
  for (const char* call : {"OpenKey", "QueryValue"}) {
    for (std::size_t setting = 0; setting < 3; ++setting) {
      fake_.FailCallOf(call, setting, platform::kNotEnoughMemory);
      EXPECT_EQ(ProcessClientAddressAutomation(u"030", address_, 0, type_),
                MAPI_E_NOT_ENOUGH_MEMORY);
    }
  }
  EXPECT_EQ(test::LogText(), "");
}

TEST_F(AddressAutomation, WhatDoesNotFitIsCutOff) {
  EXPECT_EQ(AddressOf(std::u16string(1023, u'1')), "SMTP:" + std::string(1023, '1'));
  EXPECT_EQ(AddressOf(std::u16string(1024, u'1')), "SMTP:" + std::string(1023, '1'));
  TurnOn(std::u16string(900, u'p'), std::u16string(900, u's'));
  EXPECT_EQ(AddressOf(u"030"), ":" + std::string(900, 'p') + "030" + std::string(120, 's'));
}

TEST_F(AddressAutomation, ArgumentsAreCheckedInTheirOrderAfterTheSettingsAreRead) {
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
    EXPECT_EQ(Trace(),
              Lines({kOpenKey, kOpenKey, kOpenKey,
                     std::string("log ERROR: ProcessClientAddressAutomation(): ") + test.log}));
  }
}

// --- the message's recipient ---

constexpr char kOpenBook[] = "IMAPISession::OpenAddressBook(0, null, 0x0)";
constexpr char kReleaseBook[] = "IAddrBook::Release()";
constexpr char kFreeList[] = "FreePadrlist(block 1)";
constexpr char kSave[] = "IMessage::SaveChanges(0x2)";
const std::string kAllocateList = "MAPIAllocateBuffer(" + std::to_string(sizeof(ADRLIST)) + ")";
const std::string kAllocateEntry =
    "MAPIAllocateBuffer(" + std::to_string(20 * sizeof(SPropValue)) + ")";

class RecipientAddress : public test::MapiTest {
 protected:
  HRESULT Add(const char16_t* address = u"030", const char16_t* name = u"J\u00E4ger",
              const char16_t* type = u"SMTP") {
    return AddRecipientAddress(Session(), Message(), address, name, type);
  }
  // What is put on the message when all goes well.
  std::string Added(const char16_t* address, const char16_t* name, const char16_t* type) {
    StartOver();
    EXPECT_EQ(Add(address, name, type), S_OK);
    return CallOf("IMessage::ModifyRecipients");
  }
};

TEST_F(RecipientAddress, WithATypeItIsAResolvedEntryOfItsOwn) {
  const std::string entry =
      "[5 [0x3001001f \"J\xC3\xA4ger\", 0x3002001f \"SMTP\", 0x3003001f \"030\", 0x0c150003 1, "
      "0x0fff0102 7 bytes 6f6e652d6f6666]])";
  for (const bool is_moved : {false, true}) {  // by the library, when it resolves it
    StartOver();
    mapi_->resolving_moves_entries = is_moved;
    EXPECT_EQ(Add(), S_OK);
    EXPECT_EQ(Trace(),
              Lines({kOpenBook, kAllocateList, kAllocateEntry,
                     "IAddrBook::CreateOneOff(\"J\xC3\xA4ger\", \"SMTP\", \"030\", 0x80000000)",
                     "IAddrBook::ResolveName(0, 0x80000000, null, " + entry,
                     "IMessage::ModifyRecipients(0x2, " + entry, kSave, kFreeList,
                     "MAPIFreeBuffer(block 3)", kReleaseBook}));
  }
}

TEST_F(RecipientAddress, DeliberateWithoutATypeThereIsNoEntryOfItsOwn) {
  const std::string modified =
      "IMessage::ModifyRecipients(0x2, [3 [0x3001001f \"J\xC3\xA4ger\", 0x3003001f "
      "\"[FAX:030]\", 0x0c150003 1]])";
  for (const char16_t* const type : {u"", static_cast<const char16_t*>(nullptr)}) {
    StartOver();
    EXPECT_EQ(Add(u"[FAX:030]", u"J\u00E4ger", type), S_OK);
    EXPECT_EQ(Trace(), Lines({kOpenBook, kAllocateList, kAllocateEntry, modified, kSave, kFreeList,
                              kReleaseBook}));
  }
}

TEST_F(RecipientAddress, WithoutANameItIsShownAsTheAddress) {
  for (const char16_t* const name : {u"", static_cast<const char16_t*>(nullptr)}) {
    EXPECT_EQ(Added(u"030", name, u"FAX"),
              "IMessage::ModifyRecipients(0x2, [5 [0x3001001f \"030\", 0x3002001f \"FAX\", "
              "0x3003001f \"030\", 0x0c150003 1, 0x0fff0102 7 bytes 6f6e652d6f6666]])");
    EXPECT_EQ(CallOf("IAddrBook::CreateOneOff"),
              "IAddrBook::CreateOneOff(\"030\", \"FAX\", \"030\", 0x80000000)");
  }
}

TEST_F(RecipientAddress, TheNameIsCutOffWhereItsBufferEnds) {
  EXPECT_EQ(Added(u"030", std::u16string(1100, u'n').c_str(), u""),
            "IMessage::ModifyRecipients(0x2, [3 [0x3001001f \"" + std::string(1023, 'n') +
                "\", 0x3003001f \"030\", 0x0c150003 1]])");
}

TEST_F(RecipientAddress, ArgumentsAreCheckedInTheirOrder) {
  const struct {
    bool has_message;
    const char16_t* address;
    const char* log;
  } kCases[] = {
      {false, nullptr, "The recipient address is NULL."},
      {true, nullptr, "The recipient address is NULL."},
      {false, u"", "The recipient address is empty."},
      {true, u"", "The recipient address is empty."},
      {false, u"030", "The message interface is NULL."},
  };
  for (const auto& test : kCases) {
    StartOver();
    EXPECT_EQ(AddRecipientAddress(Session(), test.has_message ? Message() : nullptr, test.address,
                                  u"n", u"SMTP"),
              E_INVALIDARG);
    EXPECT_EQ(Trace(), std::string("log ERROR: AddRecipientAddress(): ") + test.log + "\n");
  }
}

TEST_F(RecipientAddress, DeliberateWithoutAListTheRecipientIsMissingAndNothingFails) {
  fake_.SetSystemMessage(1, u"One.");
  mapi_->Answer("IMAPISession::OpenAddressBook", 0, 1);
  mapi_->Answer("MAPIAllocateBuffer", 0, MAPI_E_NOT_ENOUGH_MEMORY);
  // The line's code is the result that is returned.
  EXPECT_EQ(Add(), 1);
  EXPECT_EQ(Trace(),
            Lines({kOpenBook, kAllocateList,
                   "log ERROR: AddRecipientAddress(): The address list cannot be allocated.",
                   "SystemMessage(0x1)", "log ERROR: Code 0x00000001 --> One.", kReleaseBook}));
}

TEST_F(RecipientAddress, WhatIsNotHandedOutIsAFailureButForTheList) {
  mapi_->GiveNothing("MAPIAllocateBuffer", 0);
  EXPECT_EQ(Add(), S_OK);
  EXPECT_EQ(Trace(),
            Lines({kOpenBook, kAllocateList,
                   "log ERROR: AddRecipientAddress(): The address list cannot be allocated.",
                   kReleaseBook}));

  StartOver();
  mapi_->GiveNothing("MAPIAllocateBuffer", 1);
  EXPECT_EQ(Add(), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(Trace(), Lines({kOpenBook, kAllocateList, kAllocateEntry, kFreeList, kReleaseBook}));

  StartOver();
  mapi_->GiveNothing("IMAPISession::OpenAddressBook");
  EXPECT_EQ(Add(), E_FAIL);
  EXPECT_EQ(
      Trace(),
      Lines({kOpenBook, "log ERROR: AddRecipientAddress(): The address book cannot be opened.",
             "log ERROR: Code 0x80004005 --> A general not more specified error occurred."}));
}

TEST_F(RecipientAddress, TheLastSuccessIsGivenBackUnchanged) {
  mapi_->Answer("IMessage::SaveChanges", 0, 3);
  EXPECT_EQ(Add(), 3);
}

}  // namespace
}  // namespace zentpost
