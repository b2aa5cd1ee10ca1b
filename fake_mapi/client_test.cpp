// What the fake mail client notices of its callers, and what no test of the product would tell of:
// that it refuses what a mail client refuses, and tells calls as they were.
#include "fake_mapi/client.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fake_mapi/codes.h"
#include "fake_mapi/functions.h"
#include "fake_mapi/interfaces.h"
#include "mapiload/entry_points.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi {
namespace {

// The functions as a program finds them in a library.
template <class Result, class... Arguments>
auto WithConvention(Result (*)(Arguments...)) -> Result(PLATFORM_STDCALL*)(Arguments...);

template <class Signature>
auto Exported(const char* name) {
  return reinterpret_cast<decltype(WithConvention(std::declval<Signature*>()))>(
      Functions().at(name));
}
const auto logon = Exported<decltype(MAPILogonEx)>("MAPILogonEx");
const auto open_form_manager = Exported<decltype(MAPIOpenFormMgr)>("MAPIOpenFormMgr");
const auto admin_profiles = Exported<decltype(MAPIAdminProfiles)>("MAPIAdminProfiles");
const auto query_all_rows = Exported<decltype(HrQueryAllRows)>("HrQueryAllRows");
const auto free_rows = Exported<decltype(FreeProws)>("FreeProws");
const auto free_list = Exported<decltype(FreePadrlist)>("FreePadrlist");
const auto allocate = Exported<decltype(MAPIAllocateBuffer)>("MAPIAllocateBuffer");
const auto free_buffer = Exported<decltype(MAPIFreeBuffer)>("MAPIFreeBuffer");

SPropValue LongValue(std::uint32_t tag, std::int32_t number) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.l = number;
  return value;
}
SPropValue WideValue(std::uint32_t tag, const char16_t* text) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.lpszW = const_cast<char16_t*>(text);
  return value;
}
SPropValue BytesValue(std::uint32_t tag, const void* bytes, std::size_t size) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.bin.cb = static_cast<std::uint32_t>(size);
  value.Value.bin.lpb = static_cast<std::uint8_t*>(const_cast<void*>(bytes));
  return value;
}

void* Allocate(std::uint32_t size) {
  void* block = nullptr;
  EXPECT_EQ(allocate(size, &block), S_OK);
  return block;
}

// A list of one recipient, each part in a block of its own.
ADRLIST* NewList(const std::vector<SPropValue>& values) {
  auto* const list = static_cast<ADRLIST*>(Allocate(sizeof(ADRLIST)));
  const auto size = static_cast<std::uint32_t>(values.size() * sizeof(SPropValue));
  list->cEntries = 1;
  list->aEntries[0] = {0, static_cast<std::uint32_t>(values.size()),
                       static_cast<SPropValue*>(Allocate(size))};
  std::memcpy(list->aEntries[0].rgPropVals, values.data(), size);
  return list;
}

class FullDisk : public Storage {
 public:
  bool Create(Message& message) override { return works && Storage::Create(message); }
  bool KeepDocument(const Message&, const Attachment&, std::string_view, Property&) override {
    return works;
  }
  bool Save(const Message&) override { return works; }
  bool Send(const Message&, bool) override { return works; }
  bool Show(const Message&) override { return works; }
  void Discard(const Message&) override { ++discarded; }

  bool works = true;
  int discarded = 0;
};

// Objects for a call, all given back at the end, whatever the test has done to them, and places for
// the results of calls that fail.
class ClientTest : public testing::Test {
 protected:
  ClientTest() { StartOver(); }

  void StartOver() {
    client_.reset();
    auto disk = std::make_unique<FullDisk>();
    disk_ = disk.get();
    client_ = std::make_unique<Client>(std::move(disk));
    client_->is_initialized = true;
    session_ = NewSession(*client_);
    administration_ = NewProfileAdministration(*client_);
    store_ = NewStore(*client_);
    outbox_ = NewOutbox(*client_);
    message_ = NewMessage(*client_);
    EXPECT_EQ(session_->OpenAddressBook(0, nullptr, 0, &book_), S_OK);
    EXPECT_EQ(session_->GetMsgStoresTable(0, &table_), S_OK);
    EXPECT_EQ(message_->CreateAttach(nullptr, 0, &number_, &attachment_), S_OK);
    EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token_), S_OK);
  }

  // The findings, with everything given back that the fixture has.
  std::string Settle() {
    const std::initializer_list<IUnknown*> objects = {
        session_, administration_, store_, outbox_, message_, book_, table_, attachment_};
    for (IUnknown* const object : objects) {
      object->Release();
    }
    return client_->Accounts();
  }

  HRESULT Query(IMAPITable* table, std::int32_t most = 0) {
    return query_all_rows(table, nullptr, nullptr, nullptr, most, &rows_);
  }
  HRESULT Set(const SPropValue& value) {
    SPropValue copy = value;
    return message_->SetProps(1, &copy, nullptr);
  }
  HRESULT ShowForm(IMsgStore* store, char* message_class) {
    return session_->ShowForm(0, store, outbox_, nullptr, token_, nullptr, 0, 0, 0, 0,
                              message_class);
  }
  HRESULT Submit() {
    client_->needs_recipients = false;
    return message_->SubmitMessage(0);
  }

  FullDisk* disk_ = nullptr;
  std::unique_ptr<Client> client_;
  IMAPISession* session_ = nullptr;
  IProfAdmin* administration_ = nullptr;
  IMsgStore* store_ = nullptr;
  IMAPIFolder* outbox_ = nullptr;
  IMessage* message_ = nullptr;
  IAddrBook* book_ = nullptr;
  IMAPITable* table_ = nullptr;
  IAttach* attachment_ = nullptr;
  std::uintptr_t token_ = 0;

  std::uint32_t number_ = 0;
  SRowSet* rows_ = nullptr;
  IMsgStore* opened_ = nullptr;
  IUnknown* entry_ = nullptr;
  SPropValue* values_ = nullptr;
  void* place_ = nullptr;
  char16_t name_[7] = u"nobody";
  char message_class_[9] = "IPM.Note";
};

struct Case {
  const char* what;
  std::function<HRESULT()> call;
  HRESULT code = kInvalidParameter;
};

// --- the contract ---

TEST_F(ClientTest, WhoBreaksTheContractIsRefusedAndFound) {
  SizedSPropTagArray<1> no_tags = {0, {}};
  auto* const no_tag = reinterpret_cast<SPropTagArray*>(&no_tags);
  SPropValue name = WideValue(PR_DISPLAY_NAME_W, name_);
  ADRLIST nameless = {1, {{0, 1, &name}}};
  auto* const unknown = reinterpret_cast<IMessage*>(std::uintptr_t{8});
  IMAPISession* other = nullptr;
  IMAPIFormMgr* manager = nullptr;
  IMAPITable* table = nullptr;
  ENTRYID* made = nullptr;
  const Case cases[] = {
      {"MAPILogonEx without a place for its result",
       [] { return logon(0, nullptr, nullptr, 0, nullptr); }},
      {"IMAPISession::QueryInterface without a place for its result",
       [&] { return session_->QueryInterface(IID_IUnknown, nullptr); }},
      {"IMsgStore::GetProps without a place for its result",
       [&] { return store_->GetProps(nullptr, 0, nullptr, &values_); }},
      {"MAPILogonEx with unknown flags 0x4",
       [&] { return logon(0, nullptr, nullptr, 0x4, &other); }, kUnknownFlags},
      {"IMAPISession::GetMsgStoresTable with unknown flags 0x1",
       [&] { return session_->GetMsgStoresTable(1, &table); }, kUnknownFlags},
      {"IMAPISession::OpenMsgStore with unknown flags 0x200",
       [&] { return session_->OpenMsgStore(0, 0, nullptr, nullptr, 0x20C, &opened_); },
       kUnknownFlags},
      {"IMessage::SaveChanges with unknown flags 0x10", [&] { return message_->SaveChanges(0x12); },
       kUnknownFlags},
      {"IMAPISession::Logoff with a reserved number", [&] { return session_->Logoff(0, 0, 1); }},
      {"IMAPISession::OpenMsgStore with 4 bytes at null",
       [&] { return session_->OpenMsgStore(0, 4, nullptr, nullptr, 0, &opened_); }},
      {"IMessage::SetProps without values",
       [&] { return message_->SetProps(1, nullptr, nullptr); }},
      {"IMessage::SetProps without values", [&] { return message_->SetProps(0, &name, nullptr); }},
      {"IMessage::ModifyRecipients without a list",
       [&] { return message_->ModifyRecipients(MODRECIP_ADD, nullptr); }},
      {"IAddrBook::ResolveName without a list",
       [&] { return book_->ResolveName(0, 0, nullptr, nullptr); }},
      {"IAddrBook::CreateOneOff without an address",
       [&] { return book_->CreateOneOff(name_, name_, nullptr, MAPI_UNICODE, &number_, &made); }},
      {"HrQueryAllRows for a negative number of rows", [&] { return Query(table_, -1); }},
      {"IMsgStore::GetProps for no tag at all",
       [&] { return store_->GetProps(no_tag, 0, &number_, &values_); }},
      {"IMessage::SetProps with a value that nothing can have, 0x00370014",
       [&] { return Set(LongValue(0x00370014, 1)); }},
      {"IMessage::SetProps with a value that nothing can have, 0x0037001f",
       [&] { return Set(WideValue(PR_SUBJECT_W, nullptr)); }},
      {"IMessage::SetProps with a value that nothing can have, 0x0fff0102",
       [&] { return Set(BytesValue(PR_ENTRYID, nullptr, 3)); }},
      {"IMessage::ModifyRecipients with a recipient that lacks its name or its type",
       [&] { return message_->ModifyRecipients(MODRECIP_ADD, &nameless); }},
      {"IAddrBook::ResolveName with values that have no block of their own",
       [&] { return book_->ResolveName(0, 0, nullptr, &nameless); }},
      {"IMessage::SubmitMessage of a message whose PR_SENTMAIL_ENTRYID is no folder's",
       [&] {
         EXPECT_EQ(Set(BytesValue(PR_SENTMAIL_ENTRYID, "none", 4)), S_OK);
         return Submit();
       },
       kInvalidEntryId},
      {"MAPIOpenFormMgr with null where an IMAPISession has to be",
       [&] { return open_form_manager(nullptr, &manager); }},
      {"HrQueryAllRows with session where an IMAPITable has to be",
       [&] { return Query(reinterpret_cast<IMAPITable*>(session_)); }},
      {"IMAPISession::PrepareForm with an unknown object where an IMessage has to be",
       [&] { return session_->PrepareForm(nullptr, unknown, &token_); }},
      {"IMAPISession::ShowForm without a message class", [&] { return ShowForm(store_, nullptr); }},
      {"IMAPITable::QueryInterface on the released store table",
       [&] {
         table_->Release();
         return table_->QueryInterface(IID_IUnknown, &place_);
       },
       kInvalidObject},
      {"HrQueryAllRows with the released store table",
       [&] {
         table_->Release();
         return Query(table_);
       }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.what);
    StartOver();
    EXPECT_EQ(test.call(), test.code);
    const std::string findings = Settle();
    EXPECT_TRUE(findings.starts_with(std::string(test.what) + "\n")) << findings;
  }
}

// What the caller may ask for, and does not get.
TEST_F(ClientTest, WhatCannotBeDoneIsRefusedWithTheCodeOfItsOwn) {
  ENTRYID foreign = {};
  ADRLIST nobody = {0, {}};
  IMAPISession* other = nullptr;
  IProfAdmin* administration = nullptr;
  const Case cases[] = {
      {"MAPI before MAPIInitialize",
       [&] {
         client_->is_initialized = false;
         return admin_profiles(0, &administration);
       },
       kNotInitialized},
      {"a logon before MAPIInitialize",
       [&] {
         client_->is_initialized = false;
         return logon(0, nullptr, nullptr, MAPI_UNICODE, &other);
       },
       kNotInitialized},
      {"an unknown profile", [&] { return logon(0, name_, nullptr, MAPI_UNICODE, &other); },
       kLogonFailed},
      {"an unknown store",
       [&] { return session_->OpenMsgStore(0, 4, &foreign, nullptr, 0, &opened_); },
       kInvalidEntryId},
      {"an unknown folder",
       [&] { return store_->OpenEntry(4, &foreign, nullptr, 0, &number_, &entry_); },
       kInvalidEntryId},
      {"the root folder",
       [&] { return store_->OpenEntry(0, nullptr, nullptr, 0, &number_, &entry_); },
       kInvalidEntryId},
      {"the status of an unknown message",
       [&] { return outbox_->GetMessageStatus(4, &foreign, 0, &number_); }, kInvalidEntryId},
      {"a foreign interface",
       [&] { return store_->QueryInterface(IID_IMAPIClientShutdown, &place_); }, kNoInterface},
      {"a fast shutdown where there is none",
       [&] {
         client_->has_shutdown = false;
         return session_->QueryInterface(IID_IMAPIClientShutdown, &place_);
       },
       kNoInterface},
      {"a message without a recipient", [&] { return message_->SubmitMessage(0); }, kNoRecipients},
      {"a message that is sent already",
       [&] {
         EXPECT_EQ(Submit(), S_OK);
         return Submit();
       },
       kInvalidObject},
      {"a save after the sending",
       [&] {
         EXPECT_EQ(Submit(), S_OK);
         return message_->SaveChanges(0);
       },
       kInvalidObject},
      {"changing a recipient", [&] { return message_->ModifyRecipients(4, &nobody); }, kNoSupport},
      {"somebody whom the book has not made",
       [&] {
         ADRLIST* const list = NewList({BytesValue(PR_ENTRYID, "unknown", 7)});
         const HRESULT result = book_->ResolveName(0, 0, nullptr, list);
         free_list(list);
         return result;
       },
       kNotFound},
      {"a form for a token of nobody's",
       [&] {
         ++token_;
         return ShowForm(store_, message_class_);
       },
       kInvalidParameter},
      {"a second form for a token",
       [&] {
         client_->form_answer = kUserCancel;
         EXPECT_EQ(ShowForm(store_, message_class_), kUserCancel);
         return ShowForm(store_, message_class_);
       },
       kInvalidParameter},
      {"a session after its end",
       [&] {
         EXPECT_EQ(session_->Logoff(0, 0, 0), S_OK);
         return session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, &opened_);
       },
       kEndOfSession},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.what);
    StartOver();
    EXPECT_EQ(test.call(), test.code);
    EXPECT_EQ(Settle(), "");
  }
}

TEST_F(ClientTest, EveryMethodOfAReleasedObjectIsAFinding) {
  message_->Release();
  EXPECT_EQ(message_->SubmitMessage(0), kInvalidObject);
  EXPECT_EQ(message_->AddRef(), 0u);
  EXPECT_EQ(Settle(),
            "IMessage::SubmitMessage on the released message\n"
            "IMessage::AddRef on the released message\n"
            "IMessage::Release on the released message\n");
}

TEST_F(ClientTest, BlocksAreFreedByTheFunctionThatIsForThem) {
  void* const block = Allocate(4);
  EXPECT_EQ(free_buffer(block), 0u);
  EXPECT_EQ(static_cast<HRESULT>(free_buffer(block)), kCallFailed);
  EXPECT_EQ(Query(table_), S_OK);
  free_buffer(rows_);
  free_buffer(rows_->aRow[0].lpProps);
  free_rows(rows_);
  ADRLIST* const list = NewList({LongValue(PR_RECIPIENT_TYPE, MAPI_TO)});
  free_list(list);
  free_list(list);
  free_rows(static_cast<SRowSet*>(Allocate(9)));
  free_rows(nullptr);
  free_list(nullptr);
  EXPECT_EQ(Settle(),
            "MAPIFreeBuffer of block 1, which is freed already\n"
            "MAPIFreeBuffer of rows of the store table\n"
            "MAPIFreeBuffer of a part of rows of the store table\n"
            "FreePadrlist of block 2, which is freed already\n"
            "FreeProws of block 4\nblock 4 of MAPIAllocateBuffer: not freed\n");
}

// --- how it tells of the calls ---

TEST_F(ClientTest, CallsAreToldWithTheirArguments) {
  char narrow[] = "8 bit \xE4";
  const std::u16string long_text(3000, u'x');
  const std::string long_bytes(300, '\x7F');
  SPropValue values[] = {WideValue(PR_SUBJECT_W, u"J\u00E4ger\n"),
                         WideValue(PR_BODY_W, nullptr),
                         WideValue(PR_BODY_W, long_text.c_str()),
                         LongValue(PR_RENDERING_POSITION, -1),
                         LongValue(0x0FFF000A, MAPI_E_NOT_FOUND),
                         LongValue(PR_DEFAULT_STORE, 1),
                         LongValue(PR_DISPLAY_NAME_A, 0),
                         BytesValue(PR_ENTRYID, "\x01\xAB", 2),
                         BytesValue(PR_ENTRYID, nullptr, 0),
                         BytesValue(PR_ENTRYID, long_bytes.data(), long_bytes.size()),
                         LongValue(0x12340014, 5)};
  values[6].Value.lpszA = narrow;
  message_->SetProps(11, values, nullptr);
  EXPECT_EQ(client_->RecordedCalls().back().Line(),
            "5 #5 IMessage::SetProps(11, [0x0037001f \"J\u00E4ger\\u000a\", 0x1000001f null, "
            "0x1000001f \"" +
                std::string(2000, 'x') +
                "\"..., "
                "0x370b0003 -1, 0x0fff000a 0x8004010f, 0x3400000b 1, 0x3001001e \"8 bit \u00E4\", "
                "0x0fff0102 2 bytes 01ab, 0x0fff0102 0 bytes at null, "
                "0x0fff0102 300 bytes 7f7f7f7f7f7f7f7f7f7f7f7f7f7f7f7f..., "
                "0x12340014 of another type], null) = 0x80070057");
  ENTRYID entry = {{1, 2, 3, 4}, {5}};
  session_->OpenMsgStore(7, 4, &entry, &IID_IUnknown, 0x10C, &opened_);
  opened_->AddRef();
  opened_->Release();
  opened_->Release();
  const std::vector<RecordedCall> calls = client_->RecordedCalls();
  EXPECT_EQ(calls[5].Line(),
            "6 #1 IMAPISession::OpenMsgStore(7, 4 bytes 01020304, another interface, 0x10c) = "
            "0x00000000");
  EXPECT_EQ(calls[6].Line(), "7 #9 IMsgStore::AddRef() = 2");
  free_buffer(nullptr);
  free_rows(nullptr);
  EXPECT_EQ(client_->RecordedCalls().back().Line(), "11 FreeProws(null)");
}

// --- its behaviour ---

TEST_F(ClientTest, WhatCannotBeWrittenIsAFailure) {
  SPropValue data = BytesValue(PR_ATTACH_DATA_BIN, "PDF", 3);
  IMessage* unsaved = nullptr;
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &unsaved), S_OK);
  unsaved->Release();
  EXPECT_EQ(disk_->discarded, 1);
  disk_->works = false;
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &unsaved), kDiskError);
  EXPECT_EQ(message_->SaveChanges(0), kDiskError);
  EXPECT_EQ(attachment_->SetProps(1, &data, nullptr), kDiskError);
  EXPECT_EQ(Submit(), kDiskError);
  EXPECT_EQ(ShowForm(store_, message_class_), kDiskError);
  disk_->works = true;
  EXPECT_EQ(Submit(), S_OK);
  EXPECT_EQ(Settle(), "");
  EXPECT_EQ(disk_->discarded, 1) << "only what was never saved";
}

TEST_F(ClientTest, AFailureIsNotDoneAndHandsOutNothing) {
  client_->Plan({.call = "MAPIAllocateBuffer", .code = 1});
  client_->Answer("IMAPISession::Logoff", 0, E_FAIL);
  void* block = this;
  EXPECT_EQ(allocate(4, &block), 1);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(session_->Logoff(0, 0, 0), E_FAIL);
  IMAPITable* table = nullptr;
  EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK) << "it is still there";
  table->Release();
  client_->Answer("IMessage::SubmitMessage", 0, 5);
  EXPECT_EQ(message_->SubmitMessage(0), kNoRecipients) << "no success of what cannot be done";
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, AFailureMayLeaveGarbageThatNobodyMayUse) {
  client_->failures_leave_garbage = true;
  client_->Answer("MAPIAllocateBuffer", 0, E_FAIL);
  EXPECT_EQ(allocate(4, &place_), E_FAIL);
  free_buffer(place_);
  client_->Answer("IMsgStore::GetProps", 0, E_FAIL);
  EXPECT_EQ(store_->GetProps(nullptr, 0, &number_, &values_), E_FAIL);
  EXPECT_EQ(number_, 0xDDDDDDDDu);
  free_buffer(values_);
  // A refusal leaves it too.
  EXPECT_EQ(session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, &opened_), kInvalidEntryId);
  opened_->Release();
  EXPECT_EQ(store_->QueryInterface(IID_IMAPIClientShutdown, &place_), kNoInterface);
  static_cast<IUnknown*>(place_)->Release();
  EXPECT_EQ(Settle(),
            "MAPIFreeBuffer of garbage of MAPIAllocateBuffer, which is freed already\n"
            "MAPIFreeBuffer of garbage of IMsgStore::GetProps, which is freed already\n"
            "IMsgStore::Release on the released garbage store\n"
            "IMAPIClientShutdown::Release on the released garbage client shutdown\n");
}

TEST(OneOffs, HaveThePublishedForm) {
  const std::string bytes = OneOffEntryId({u"N", u"FAX", u"1"});
  EXPECT_EQ(support::HexBytes(bytes),
            "00000000812B1FA4BEA310199D6E00DD010F5402"
            "00000180"
            "4E0000004600410058000000"
            "31000000");
  const std::optional<OneOff> read = ReadOneOff(bytes);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->name + u"," + read->address_type + u"," + read->address, u"N,FAX,1");
  EXPECT_FALSE(ReadOneOff("x" + bytes));
  for (std::size_t size = 0; size + 1 < bytes.size(); ++size) {
    EXPECT_FALSE(ReadOneOff(std::string_view(bytes).substr(0, size))) << size;
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi
