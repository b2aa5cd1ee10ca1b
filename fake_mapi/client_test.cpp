// What the fake mail client notices of its callers, how it tells of their calls, and how its own
// behaviour is ordered.
#include "fake_mapi/client.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "fake_mapi/codes.h"
#include "fake_mapi/functions.h"
#include "fake_mapi/interfaces.h"
#include "fake_mapi/text.h"
#include "mapiload/entry_points.h"

namespace zentpost::fake_mapi {
namespace {

using Lines = std::vector<std::string>;
using Kind = Behaviour::Kind;

// The functions as a program finds them in a library.
template <class Result, class... Arguments>
auto WithConvention(Result (*)(Arguments...)) -> Result(PLATFORM_STDCALL*)(Arguments...);

template <class Signature>
auto Exported(std::string_view name) {
  for (const Function& function : Functions()) {
    if (function.name == name) {
      return reinterpret_cast<decltype(WithConvention(std::declval<Signature*>()))>(
          function.procedure);
    }
  }
  throw std::logic_error("there is no such function");
}
const auto initialize = Exported<decltype(MAPIInitialize)>("MAPIInitialize");
const auto logon = Exported<decltype(MAPILogonEx)>("MAPILogonEx");
const auto open_form_manager = Exported<decltype(MAPIOpenFormMgr)>("MAPIOpenFormMgr");
const auto admin_profiles = Exported<decltype(MAPIAdminProfiles)>("MAPIAdminProfiles");
const auto query_all_rows = Exported<decltype(HrQueryAllRows)>("HrQueryAllRows");
const auto free_rows = Exported<decltype(FreeProws)>("FreeProws");
const auto free_list = Exported<decltype(FreePadrlist)>("FreePadrlist");
const auto allocate = Exported<decltype(MAPIAllocateBuffer)>("MAPIAllocateBuffer");
const auto free_buffer = Exported<decltype(MAPIFreeBuffer)>("MAPIFreeBuffer");

template <class Type>
Type* Pointer(std::uintptr_t number) {
  return reinterpret_cast<Type*>(number);
}

SPropValue LongValue(std::uint32_t tag, std::int32_t number) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.l = number;
  return value;
}
SPropValue WideValue(std::uint32_t tag, char16_t* text) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.lpszW = text;
  return value;
}
SPropValue BytesValue(std::uint32_t tag, const void* bytes, std::size_t size) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.bin.cb = static_cast<std::uint32_t>(size);
  value.Value.bin.lpb = static_cast<std::uint8_t*>(const_cast<void*>(bytes));
  return value;
}

// Objects for a call, all given back at the end, whatever the test has done to them.
class ClientTest : public testing::Test {
 protected:
  ClientTest() { StartOver(); }

  void StartOver() {
    client_.reset();
    client_ = std::make_unique<Client>();
    client_->is_initialized = true;
    session_ = NewSession(*client_);
    administration_ = NewProfileAdministration(*client_);
    store_ = NewStore(*client_);
    outbox_ = NewOutbox(*client_);
    message_ = NewMessage(*client_);
  }

  // The findings, with everything given back that the fixture has.
  std::string Settle() {
    for (IUnknown* object :
         {static_cast<IUnknown*>(session_), static_cast<IUnknown*>(administration_),
          static_cast<IUnknown*>(store_), static_cast<IUnknown*>(outbox_),
          static_cast<IUnknown*>(message_)}) {
      object->Release();
    }
    return client_->Accounts();
  }

  static void* Allocate(std::uint32_t size) {
    void* block = nullptr;
    EXPECT_EQ(allocate(size, &block), S_OK);
    return block;
  }

  // A list of one recipient, each part in a block of its own.
  static ADRLIST* NewList(const std::vector<SPropValue>& values) {
    auto* const list = static_cast<ADRLIST*>(Allocate(sizeof(ADRLIST)));
    const auto size = static_cast<std::uint32_t>(values.size() * sizeof(SPropValue));
    list->cEntries = 1;
    list->aEntries[0] = {0, static_cast<std::uint32_t>(values.size()),
                         static_cast<SPropValue*>(Allocate(size))};
    std::memcpy(list->aEntries[0].rgPropVals, values.data(), size);
    return list;
  }

  std::string LastCall() const { return client_->RecordedCalls().back().Line(); }

  std::unique_ptr<Client> client_;
  IMAPISession* session_ = nullptr;
  IProfAdmin* administration_ = nullptr;
  IMsgStore* store_ = nullptr;
  IMAPIFolder* outbox_ = nullptr;
  IMessage* message_ = nullptr;
};

// --- the contract ---

TEST_F(ClientTest, WhoBreaksTheContractIsRefusedAndFound) {
  static char16_t text[] = u"text";
  static IMAPISession* other = nullptr;
  static IMAPIFormMgr* manager = nullptr;
  static std::uint32_t number = 0;
  static IMAPITable* table = nullptr;
  static SRowSet* rows = nullptr;
  static void* buffer = nullptr;
  static IMsgStore* opened = nullptr;
  static IUnknown* entry = nullptr;
  static ENTRYID* entry_id = nullptr;
  static SPropValue* values = nullptr;
  static std::uintptr_t token = 0;
  static SizedSPropTagArray<1> no_tags = {0, {}};
  static SPropValue odd_type = LongValue(0x00370014, 1);
  static SPropValue no_text = WideValue(PR_SUBJECT_W, nullptr);
  static SPropValue no_bytes = BytesValue(PR_ENTRYID, nullptr, 3);
  static char message_class[] = "IPM.Note";
  auto* const no_tag = reinterpret_cast<SPropTagArray*>(&no_tags);
  const struct {
    const char* finding;
    std::function<HRESULT()> call;
    HRESULT code = kInvalidParameter;
  } cases[] = {
      // places for results
      {"MAPILogonEx without a place for its result",
       [] { return logon(0, nullptr, nullptr, 0, nullptr); }},
      {"MAPIOpenFormMgr without a place for its result",
       [&] { return open_form_manager(session_, nullptr); }},
      {"MAPIAdminProfiles without a place for its result",
       [] { return admin_profiles(0, nullptr); }},
      {"HrQueryAllRows without a place for its result",
       [&] {
         EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK);
         const HRESULT result = query_all_rows(table, nullptr, nullptr, nullptr, 0, nullptr);
         table->Release();
         return result;
       }},
      {"MAPIAllocateBuffer without a place for its result", [] { return allocate(1, nullptr); }},
      {"IProfAdmin::GetProfileTable without a place for its result",
       [&] { return administration_->GetProfileTable(0, nullptr); }},
      {"IMAPISession::QueryInterface without a place for its result",
       [&] { return session_->QueryInterface(IID_IUnknown, nullptr); }},
      {"IMAPISession::GetMsgStoresTable without a place for its result",
       [&] { return session_->GetMsgStoresTable(0, nullptr); }},
      {"IMAPISession::OpenMsgStore without a place for its result",
       [&] { return session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, nullptr); }},
      {"IMAPISession::OpenAddressBook without a place for its result",
       [&] { return session_->OpenAddressBook(0, nullptr, 0, nullptr); }},
      {"IMAPISession::PrepareForm without a place for its result",
       [&] { return session_->PrepareForm(nullptr, message_, nullptr); }},
      {"IMsgStore::GetProps without a place for its result",
       [&] { return store_->GetProps(nullptr, 0, nullptr, &values); }},
      {"IMsgStore::GetProps without a place for its result",
       [&] { return store_->GetProps(nullptr, 0, &number, nullptr); }},
      {"IMsgStore::OpenEntry without a place for its result",
       [&] { return store_->OpenEntry(0, nullptr, nullptr, 0, nullptr, &entry); }},
      {"IMAPIFolder::CreateMessage without a place for its result",
       [&] { return outbox_->CreateMessage(nullptr, 0, nullptr); }},
      {"IMAPIFolder::GetMessageStatus without a place for its result",
       [&] { return outbox_->GetMessageStatus(0, nullptr, 0, nullptr); }},
      {"IMessage::CreateAttach without a place for its result",
       [&] { return message_->CreateAttach(nullptr, 0, &number, nullptr); }},
      // flags
      {"MAPILogonEx with unknown flags 0x4", [] { return logon(0, nullptr, nullptr, 0x4, &other); },
       kUnknownFlags},
      {"IMAPISession::GetMsgStoresTable with unknown flags 0x1",
       [&] { return session_->GetMsgStoresTable(1, &table); }, kUnknownFlags},
      {"IMAPISession::OpenMsgStore with unknown flags 0x200",
       [&] { return session_->OpenMsgStore(0, 0, nullptr, nullptr, 0x20C, &opened); },
       kUnknownFlags},
      {"IMessage::SaveChanges with unknown flags 0x10", [&] { return message_->SaveChanges(0x12); },
       kUnknownFlags},
      {"IMsgStore::GetProps with unknown flags 0x1",
       [&] { return store_->GetProps(nullptr, 0x80000001, &number, &values); }, kUnknownFlags},
      {"IMessage::SubmitMessage with unknown flags 0x2", [&] { return message_->SubmitMessage(2); },
       kUnknownFlags},
      {"IMAPISession::Logoff with unknown flags 0x4", [&] { return session_->Logoff(0, 4, 0); },
       kUnknownFlags},
      {"IMAPISession::Logoff with a reserved number", [&] { return session_->Logoff(0, 0, 1); }},
      // sizes and pointers
      {"IMAPISession::OpenMsgStore with 4 bytes at null",
       [&] { return session_->OpenMsgStore(0, 4, nullptr, nullptr, 0, &opened); }},
      {"IMsgStore::OpenEntry with 4 bytes at null",
       [&] { return store_->OpenEntry(4, nullptr, nullptr, 0, &number, &entry); }},
      {"IMAPIFolder::GetMessageStatus with 4 bytes at null",
       [&] { return outbox_->GetMessageStatus(4, nullptr, 0, &number); }},
      {"IMessage::SetProps without values",
       [&] { return message_->SetProps(1, nullptr, nullptr); }},
      {"IMessage::SetProps without values",
       [&] { return message_->SetProps(0, &no_text, nullptr); }},
      {"IMessage::ModifyRecipients without a list",
       [&] { return message_->ModifyRecipients(MODRECIP_ADD, nullptr); }},
      {"IAddrBook::ResolveName without a list",
       [&] {
         IAddrBook* book = nullptr;
         EXPECT_EQ(session_->OpenAddressBook(0, nullptr, 0, &book), S_OK);
         const HRESULT result = book->ResolveName(0, 0, nullptr, nullptr);
         book->Release();
         return result;
       }},
      {"IAddrBook::CreateOneOff without an address",
       [&] {
         IAddrBook* book = nullptr;
         EXPECT_EQ(session_->OpenAddressBook(0, nullptr, 0, &book), S_OK);
         const HRESULT result =
             book->CreateOneOff(text, text, nullptr, MAPI_UNICODE, &number, &entry_id);
         book->Release();
         return result;
       }},
      {"HrQueryAllRows for a negative number of rows",
       [&] {
         EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK);
         const HRESULT result = query_all_rows(table, nullptr, nullptr, nullptr, -1, &rows);
         table->Release();
         return result;
       }},
      // tags and values
      {"IMsgStore::GetProps for no tag at all",
       [&] { return store_->GetProps(no_tag, 0, &number, &values); }},
      {"IMessage::SetProps with a value that nothing can have, 0x00370014",
       [&] { return message_->SetProps(1, &odd_type, nullptr); }},
      {"IMessage::SetProps with a value that nothing can have, 0x0037001f",
       [&] { return message_->SetProps(1, &no_text, nullptr); }},
      {"IMessage::SetProps with a value that nothing can have, 0x0fff0102",
       [&] { return message_->SetProps(1, &no_bytes, nullptr); }},
      {"IMessage::ModifyRecipients with a recipient that lacks its name or its type",
       [&] {
         ADRLIST list = {1, {{0, 1, nullptr}}};
         SPropValue name = WideValue(PR_DISPLAY_NAME_W, text);
         list.aEntries[0].rgPropVals = &name;
         return message_->ModifyRecipients(MODRECIP_ADD, &list);
       }},
      {"IMessage::SubmitMessage of a message whose PR_SENTMAIL_ENTRYID is no folder's",
       [&] {
         client_->needs_recipients = false;
         SPropValue folder = BytesValue(PR_SENTMAIL_ENTRYID, "none", 4);
         EXPECT_EQ(message_->SetProps(1, &folder, nullptr), S_OK);
         return message_->SubmitMessage(0);
       },
       kInvalidEntryId},
      // objects
      {"MAPIOpenFormMgr with null where an IMAPISession has to be",
       [] { return open_form_manager(nullptr, &manager); }},
      {"HrQueryAllRows with session where an IMAPITable has to be",
       [&] {
         return query_all_rows(reinterpret_cast<IMAPITable*>(session_), nullptr, nullptr, nullptr,
                               0, &rows);
       }},
      {"IMAPISession::PrepareForm with an unknown object where an IMessage has to be",
       [&] { return session_->PrepareForm(nullptr, Pointer<IMessage>(8), &token); }},
      {"IMAPISession::ShowForm without a message class",
       [&] {
         EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
         return session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, 0, 0, 0,
                                   nullptr);
       }},
      {"IMAPISession::ShowForm with outbox where an IMsgStore has to be",
       [&] {
         EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
         return session_->ShowForm(0, reinterpret_cast<IMsgStore*>(outbox_), outbox_, nullptr,
                                   token, nullptr, 0, 0, 0, 0, message_class);
       }},
      {"IMAPITable::QueryInterface on the released store table",
       [&] {
         EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK);
         table->Release();
         return table->QueryInterface(IID_IUnknown, &buffer);
       },
       kInvalidObject},
      {"HrQueryAllRows with the released store table",
       [&] {
         EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK);
         table->Release();
         return query_all_rows(table, nullptr, nullptr, nullptr, 0, &rows);
       }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.finding);
    StartOver();
    EXPECT_EQ(test.call(), test.code);
    const std::string findings = Settle();
    EXPECT_TRUE(findings.starts_with(std::string(test.finding) + "\n")) << findings;
  }
}

// What the caller may ask for, and does not get.
TEST_F(ClientTest, WhatCannotBeDoneIsRefusedWithTheCodeOfItsOwn) {
  static std::uint32_t number = 0;
  static IUnknown* entry = nullptr;
  static IMsgStore* opened = nullptr;
  static IMAPISession* other = nullptr;
  static IProfAdmin* administration = nullptr;
  static void* found = nullptr;
  static std::uintptr_t token = 0;
  static char16_t name[] = u"nobody";
  static char message_class[] = "IPM.Note";
  ENTRYID foreign = {};
  const struct {
    const char* what;
    HRESULT code;
    std::function<HRESULT()> call;
  } cases[] = {
      {"MAPI before MAPIInitialize", kNotInitialized,
       [&] {
         client_->is_initialized = false;
         return admin_profiles(0, &administration);
       }},
      {"a logon before MAPIInitialize", kNotInitialized,
       [&] {
         client_->is_initialized = false;
         return logon(0, nullptr, nullptr, MAPI_UNICODE, &other);
       }},
      {"an unknown profile", kLogonFailed,
       [&] { return logon(0, name, nullptr, MAPI_UNICODE, &other); }},
      {"an unknown store", kInvalidEntryId,
       [&] { return session_->OpenMsgStore(0, 4, &foreign, nullptr, 0, &opened); }},
      {"an unknown folder", kInvalidEntryId,
       [&] { return store_->OpenEntry(4, &foreign, nullptr, 0, &number, &entry); }},
      {"the root folder", kInvalidEntryId,
       [&] { return store_->OpenEntry(0, nullptr, nullptr, 0, &number, &entry); }},
      {"the status of an unknown message", kInvalidEntryId,
       [&] { return outbox_->GetMessageStatus(4, &foreign, 0, &number); }},
      {"a foreign interface", kNoInterface,
       [&] { return store_->QueryInterface(IID_IMAPIClientShutdown, &found); }},
      {"a fast shutdown where there is none", kNoInterface,
       [&] {
         client_->has_shutdown = false;
         return session_->QueryInterface(IID_IMAPIClientShutdown, &found);
       }},
      {"a message without a recipient", kNoRecipients, [&] { return message_->SubmitMessage(0); }},
      {"a message that is sent already", kInvalidObject,
       [&] {
         client_->needs_recipients = false;
         EXPECT_EQ(message_->SubmitMessage(0), S_OK);
         return message_->SubmitMessage(0);
       }},
      {"a save after the sending", kInvalidObject,
       [&] {
         client_->needs_recipients = false;
         EXPECT_EQ(message_->SubmitMessage(0), S_OK);
         return message_->SaveChanges(0);
       }},
      {"changing a recipient", kNoSupport,
       [&] {
         ADRLIST list = {0, {}};
         return message_->ModifyRecipients(4, &list);
       }},
      {"a form for a token of nobody's", kInvalidParameter,
       [&] {
         return session_->ShowForm(0, store_, outbox_, nullptr, 77, nullptr, 0, 0, 0, 0,
                                   message_class);
       }},
      {"a second form for a token", kInvalidParameter,
       [&] {
         client_->form_answer = kUserCancel;
         EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
         EXPECT_EQ(session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, 0, 0, 0,
                                      message_class),
                   kUserCancel);
         return session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, 0, 0, 0,
                                   message_class);
       }},
      {"a session after its end", kEndOfSession,
       [&] {
         EXPECT_EQ(session_->Logoff(0, 0, 0), S_OK);
         return session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, &opened);
       }},
  };
  for (const auto& test : cases) {
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
  EXPECT_EQ(message_->Release(), 0u);
  session_->Release();
  administration_->Release();
  store_->Release();
  outbox_->Release();
  EXPECT_EQ(client_->Accounts(),
            "IMessage::SubmitMessage on the released message\n"
            "IMessage::AddRef on the released message\n"
            "IMessage::Release on the released message\n");
}

TEST_F(ClientTest, BlocksAreFreedByTheFunctionThatIsForThem) {
  void* const block = Allocate(4);
  EXPECT_EQ(free_buffer(block), 0u);
  EXPECT_EQ(static_cast<HRESULT>(free_buffer(block)), kCallFailed);
  IMAPITable* table = nullptr;
  SRowSet* rows = nullptr;
  EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK);
  EXPECT_EQ(query_all_rows(table, nullptr, nullptr, nullptr, 0, &rows), S_OK);
  free_buffer(rows);
  free_buffer(rows->aRow[0].lpProps);
  free_rows(rows);
  table->Release();
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

TEST_F(ClientTest, ValuesToResolveMustHaveABlockOfTheirOwn) {
  IAddrBook* book = nullptr;
  EXPECT_EQ(session_->OpenAddressBook(0, nullptr, 0, &book), S_OK);
  SPropValue entry_id = BytesValue(PR_ENTRYID, "unknown", 7);
  ADRLIST list = {1, {{0, 1, &entry_id}}};
  EXPECT_EQ(book->ResolveName(0, 0, nullptr, &list), kInvalidParameter);
  ADRLIST* const good = NewList({entry_id});
  EXPECT_EQ(book->ResolveName(0, 0, nullptr, good), kNotFound);
  free_list(good);
  book->Release();
  EXPECT_EQ(Settle(), "IAddrBook::ResolveName with values that have no block of their own\n");
}

// --- what the client does ---

TEST_F(ClientTest, TablesAndPropertiesAreGivenAsTheyAreAskedFor) {
  IMAPITable* table = nullptr;
  SRowSet* rows = nullptr;
  SizedSPropTagArray<3> columns = {3, {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DEFAULT_PROFILE}};
  client_->profiles = {ProfileRow(false, "x"), ProfileRow(true, "J\xE4ger")};
  EXPECT_EQ(administration_->GetProfileTable(0, &table), S_OK);
  EXPECT_EQ(
      query_all_rows(table, reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 0, &rows),
      S_OK);
  ASSERT_EQ(rows->cRows, 2u);
  const SRow& row = *(&rows->aRow[0] + 1);
  EXPECT_EQ(std::u16string(row.lpProps[0].Value.lpszW), u"J\u00E4ger");
  EXPECT_EQ(row.lpProps[1].ulPropTag, 0x0FFF000Au);
  EXPECT_EQ(row.lpProps[1].Value.err, MAPI_E_NOT_FOUND);
  EXPECT_EQ(row.lpProps[2].Value.b, 1);
  free_rows(rows);
  client_->values_as_they_stand = true;
  EXPECT_EQ(
      query_all_rows(table, reinterpret_cast<SPropTagArray*>(&columns), nullptr, nullptr, 1, &rows),
      S_OK);
  EXPECT_EQ(rows->cRows, 1u);
  EXPECT_EQ(rows->aRow[0].lpProps[0].ulPropTag, PR_DEFAULT_PROFILE);
  free_rows(rows);
  table->Release();

  client_->values_as_they_stand = false;
  SizedSPropTagArray<2> tags = {2, {PR_DISPLAY_NAME_A, PR_SUBJECT_W}};
  std::uint32_t count = 0;
  SPropValue* values = nullptr;
  EXPECT_EQ(store_->GetProps(reinterpret_cast<SPropTagArray*>(&tags), 0, &count, &values),
            kErrorsReturned);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(std::string(values[0].Value.lpszA), "Mailbox");
  free_buffer(values);
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, AMessageHasWhatWasSetAndWhatTheClientKnowsOfIt) {
  IMessage* message = nullptr;
  std::uint32_t number = 0;
  SPropValue* values = nullptr;
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &message), S_OK);
  char16_t subject[] = u"first";
  SPropValue value = WideValue(PR_SUBJECT_W, subject);
  EXPECT_EQ(message->SetProps(1, &value, nullptr), S_OK);
  subject[0] = u'F';
  EXPECT_EQ(message->SetProps(1, &value, nullptr), S_OK);
  SizedSPropTagArray<3> tags = {3, {PR_SUBJECT_W, PR_MESSAGE_FLAGS, PR_ENTRYID}};
  auto* const asked = reinterpret_cast<SPropTagArray*>(&tags);
  EXPECT_EQ(message->GetProps(asked, MAPI_UNICODE, &number, &values), kErrorsReturned)
      << "it has no identifier yet";
  EXPECT_EQ(std::u16string(values[0].Value.lpszW), u"First");
  EXPECT_EQ(values[1].Value.l, 8);
  free_buffer(values);
  EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
  EXPECT_EQ(message->GetProps(asked, MAPI_UNICODE, &number, &values), S_OK);
  EXPECT_EQ(
      outbox_->GetMessageStatus(values[2].Value.bin.cb,
                                reinterpret_cast<ENTRYID*>(values[2].Value.bin.lpb), 0, &number),
      S_OK);
  free_buffer(values);
  message->Release();
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, ARecipientIsResolvedByTheEntryThatTheBookHasMade) {
  IAddrBook* book = nullptr;
  EXPECT_EQ(session_->OpenAddressBook(0, nullptr, 0, &book), S_OK);
  for (const bool moves : {false, true}) {
    client_->resolving_moves_entries = moves;
    std::uint32_t size = 0;
    ENTRYID* entry_id = nullptr;
    char16_t name[] = u"Erika";
    char16_t type[] = u"FAX";
    EXPECT_EQ(book->CreateOneOff(name, type, name, MAPI_UNICODE, &size, &entry_id), S_OK);
    const std::optional<OneOff> one_off =
        ReadOneOff({reinterpret_cast<const char*>(entry_id), size});
    ASSERT_TRUE(one_off);
    EXPECT_EQ(one_off->address_type, u"FAX");
    ADRLIST* const list =
        NewList({BytesValue(PR_ENTRYID, entry_id, size), LongValue(PR_RECIPIENT_TYPE, MAPI_TO),
                 WideValue(PR_DISPLAY_NAME_W, name)});
    const SPropValue* const before = list->aEntries[0].rgPropVals;
    EXPECT_EQ(book->ResolveName(0, MAPI_UNICODE, nullptr, list), S_OK);
    EXPECT_EQ(list->aEntries[0].rgPropVals != before, moves);
    EXPECT_EQ(message_->ModifyRecipients(MODRECIP_ADD, list), S_OK);
    free_list(list);
    free_buffer(entry_id);
  }
  EXPECT_EQ(message_->SubmitMessage(0), S_OK);
  book->Release();
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, ADocumentIsKeptWithTheAttachmentThatWasSaved) {
  for (const bool saves : {true, false}) {
    std::uint32_t number = 77;
    IAttach* attachment = nullptr;
    EXPECT_EQ(message_->CreateAttach(nullptr, MAPI_DEFERRED_ERRORS, &number, &attachment), S_OK);
    EXPECT_EQ(number, saves ? 0u : 1u);
    SPropValue data = BytesValue(PR_ATTACH_DATA_BIN, "PDF", 3);
    EXPECT_EQ(attachment->SetProps(1, &data, nullptr), S_OK);
    EXPECT_EQ(saves ? attachment->SaveChanges(0) : S_OK, S_OK);
    attachment->Release();
  }
  EXPECT_EQ(client_->SavedAttachments(), Lines{"PDF"});
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, TheFormsTokenIsAsWideAsTheClientKnowsIt) {
  client_->form_token = UINTPTR_MAX;
  std::uintptr_t token = 0;
  EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
  EXPECT_EQ(token, UINTPTR_MAX);
  client_->has_narrow_token = true;
  client_->form_token = 0x89ABCDEF;
  token = 0;
  EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
  EXPECT_EQ(token, 0x89ABCDF0u) << "the second one";
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, TheUserAnswersTheFormAsHeIsTold) {
  for (const std::int32_t answer : {0, kUserCancel, kNotFound, 1}) {
    StartOver();
    client_->form_answer = answer;
    std::uintptr_t token = 0;
    char message_class[] = "IPM.Note";
    EXPECT_EQ(session_->PrepareForm(nullptr, message_, &token), S_OK);
    EXPECT_EQ(
        session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, 0, 0, 0, message_class),
        answer);
    EXPECT_EQ(message_->SaveChanges(0), answer == 0 ? kInvalidObject : S_OK);
    EXPECT_EQ(Settle(), "");
  }
}

// --- how it tells of the calls ---

TEST_F(ClientTest, CallsAreToldWithTheirArguments) {
  char16_t name[] = u"J\u00E4ger\n";
  char narrow[] = "8 bit \xE4";
  SPropValue values[] = {WideValue(PR_SUBJECT_W, name),
                         WideValue(PR_BODY_W, nullptr),
                         LongValue(PR_RENDERING_POSITION, -1),
                         LongValue(0x0FFF000A, MAPI_E_NOT_FOUND),
                         LongValue(PR_DEFAULT_STORE, 1),
                         LongValue(PR_DISPLAY_NAME_A, 0),
                         BytesValue(PR_ENTRYID, "\x01\xAB", 2),
                         BytesValue(PR_ENTRYID, nullptr, 0),
                         LongValue(0x12340014, 5)};
  values[5].Value.lpszA = narrow;
  message_->SetProps(9, values, Pointer<SPropProblemArray*>(0));
  EXPECT_EQ(LastCall(),
            "1 #5 IMessage::SetProps(9, [0x0037001f \"J\u00E4ger\\u000a\", 0x1000001f null, "
            "0x370b0003 -1, 0x0fff000a 0x8004010f, 0x3400000b 1, 0x3001001e \"8 bit \u00E4\", "
            "0x0fff0102 2 bytes 01ab, 0x0fff0102 0 bytes at null, 0x12340014 of another type], "
            "null) = 0x80070057");
  const std::u16string long_text(3000, u'x');
  const std::string long_bytes(300, '\x7F');
  SPropValue longer[] = {WideValue(PR_SUBJECT_W, const_cast<char16_t*>(long_text.c_str())),
                         BytesValue(PR_ENTRYID, long_bytes.data(), long_bytes.size())};
  message_->SetProps(2, longer, nullptr);
  EXPECT_EQ(LastCall(), "2 #5 IMessage::SetProps(2, [0x0037001f \"" + std::string(2000, 'x') +
                            "\"..., 0x0fff0102 300 bytes " +
                            "7f7f7f7f7f7f7f7f7f7f7f7f7f7f7f7f...], null) = 0x00000000");
  ADRLIST* const list = NewList({LongValue(PR_RECIPIENT_TYPE, MAPI_TO)});
  message_->ModifyRecipients(MODRECIP_ADD, list);
  EXPECT_EQ(LastCall(), "5 #5 IMessage::ModifyRecipients(0x2, [1 [0x0c150003 1]]) = 0x80070057");
  free_list(list);
  EXPECT_EQ(LastCall(), "6 FreePadrlist(block 1)");
  ENTRYID entry = {{1, 2, 3, 4}, {5}};
  IMsgStore* opened = nullptr;
  session_->OpenMsgStore(7, 4, &entry, &IID_IUnknown, 0x10C, &opened);
  EXPECT_EQ(LastCall(),
            "7 #1 IMAPISession::OpenMsgStore(7, 4 bytes 01020304, another interface, 0x10c) = "
            "0x00000000");
  EXPECT_EQ(opened->AddRef(), 2u);
  EXPECT_EQ(LastCall(), "8 #6 IMsgStore::AddRef() = 2");
  SizedSPropTagArray<2> tags = {2, {PR_ENTRYID, PR_SUBJECT_W}};
  std::uint32_t count = 0;
  SPropValue* given = nullptr;
  opened->GetProps(reinterpret_cast<SPropTagArray*>(&tags), 0, &count, &given);
  EXPECT_EQ(LastCall(), "9 #6 IMsgStore::GetProps([0x0fff0102, 0x0037001f], 0x0) = 0x00040380");
  free_buffer(given);
  opened->Release();
  opened->Release();
  char16_t profile[] = u"Outlook";
  IMAPISession* session = nullptr;
  logon(0, profile, nullptr, 0x80000029, &session);
  EXPECT_EQ(LastCall(), "13 MAPILogonEx(0, \"Outlook\", null, 0x80000029) = 0x00000000");
  session->Release();
  EXPECT_EQ(client_->CallsOf("IMsgStore::Release"),
            (Lines{"IMsgStore::Release()", "IMsgStore::Release()"}));
  EXPECT_EQ(client_->Calls().size(), 14u);
}

class RecordingHook : public CallHook {
 public:
  void CallBegins() noexcept override { steps += "begins, "; }
  void CallEnds() noexcept override { steps += "ends; "; }
  std::int32_t CallIsRecorded(const std::string& text, bool can_fail) override {
    steps += text + (can_fail ? " can fail, " : " cannot, ");
    return fault;
  }
  void CallHasResult(const RecordedCall& call) override { steps += call.result + ", "; }

  std::string steps;
  std::int32_t fault = 0;
};

TEST_F(ClientTest, AHookIsToldOfEachCallAndCanMakeItFail) {
  RecordingHook hook;
  client_->SetHook(&hook);
  void* block = Allocate(4);
  free_buffer(block);
  hook.fault = kNotFound;
  EXPECT_EQ(allocate(4, &block), kNotFound);
  client_->SetHook(nullptr);
  EXPECT_EQ(hook.steps,
            "begins, MAPIAllocateBuffer(4) can fail, 0x00000000, ends; "
            "begins, MAPIFreeBuffer(block 1) cannot, 0x00000000, ends; "
            "begins, MAPIAllocateBuffer(4) can fail, 0x8004010f, ends; ");
  EXPECT_EQ(Settle(), "");
}

// --- its behaviour ---

TEST_F(ClientTest, CallsBehaveAsPlanned) {
  const struct {
    const char* what;
    std::vector<Behaviour> plan;
    std::vector<HRESULT> results;  // of five initialisations
  } cases[] = {
      {"a failure", {{.call = "MAPIInitialize", .at = 2, .code = E_FAIL}}, {0, E_FAIL, 0, 0, 0}},
      {"a failure from there on",
       {{.call = "MAPIInitialize", .at = 3, .from = true, .code = E_FAIL}},
       {0, 0, E_FAIL, E_FAIL, E_FAIL}},
      {"two of them",
       {{.call = "MAPIInitialize", .at = 1, .code = 7},
        {.call = "MAPIInitialize", .at = 4, .kind = Kind::kSucceed, .code = 5}},
       {7, 0, 0, 5, 0}},
      {"another call", {{.call = "MAPILogonEx", .code = E_FAIL}}, {0, 0, 0, 0, 0}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    StartOver();
    for (const Behaviour& behaviour : test.plan) {
      client_->Plan(behaviour);
    }
    std::vector<HRESULT> results;
    for (int i = 0; i < 5; ++i) {
      results.push_back(initialize(nullptr));
    }
    EXPECT_EQ(results, test.results);
  }
}

TEST_F(ClientTest, EveryCallThatHasAResultCanBePlanned) {
  std::uint32_t number = 0;
  void* place = nullptr;
  SPropValue* values = nullptr;
  for (const std::string_view call : CallsWithBehaviour()) {
    client_->Plan({.call = std::string(call), .from = true, .code = MakeResult(0x80040123)});
  }
  IAddrBook* book = nullptr;
  const std::vector<HRESULT> results = {initialize(nullptr),
                                        session_->OpenAddressBook(0, nullptr, 0, &book),
                                        session_->QueryInterface(IID_IMAPIClientShutdown, &place),
                                        store_->GetProps(nullptr, 0, &number, &values),
                                        outbox_->SaveChanges(0),
                                        message_->SetProps(1, values, nullptr),
                                        message_->SubmitMessage(0),
                                        static_cast<HRESULT>(free_buffer(nullptr))};
  EXPECT_EQ(results, std::vector<HRESULT>(8, MakeResult(0x80040123)));
}

TEST_F(ClientTest, AFailureIsNotDoneAndHandsOutNothing) {
  client_->Plan({.call = "MAPIAllocateBuffer", .code = 1});
  client_->Answer("IMAPISession::Logoff", 0, E_FAIL);
  int untouched = 0;
  void* block = &untouched;
  EXPECT_EQ(allocate(4, &block), 1);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(session_->Logoff(0, 0, 0), E_FAIL);
  IMAPITable* table = nullptr;
  EXPECT_EQ(session_->GetMsgStoresTable(0, &table), S_OK) << "it is still there";
  table->Release();
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, ASuccessMayHandOutNothing) {
  client_->GiveNothing("MAPIAllocateBuffer");
  int untouched = 0;
  void* block = &untouched;
  EXPECT_EQ(allocate(4, &block), S_OK);
  EXPECT_EQ(block, nullptr);
  client_->GiveNothing("IMsgStore::GetProps");
  std::uint32_t count = 5;
  SPropValue* values = nullptr;
  EXPECT_EQ(store_->GetProps(nullptr, 0, &count, &values), S_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(values, nullptr);
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, AnUnusualSuccessIsStillDone) {
  client_->Answer("MAPIAllocateBuffer", 0, 5);
  void* block = nullptr;
  EXPECT_EQ(allocate(4, &block), 5);
  EXPECT_EQ(free_buffer(block), 0u);
  client_->Answer("IMessage::SubmitMessage", 0, 5);
  EXPECT_EQ(message_->SubmitMessage(0), kNoRecipients) << "and no success of what cannot be done";
  EXPECT_EQ(Settle(), "");
}

TEST_F(ClientTest, AFailureMayLeaveGarbageThatNobodyMayUse) {
  client_->failures_leave_garbage = true;
  client_->Answer("MAPIAllocateBuffer", 0, E_FAIL);
  void* block = nullptr;
  EXPECT_EQ(allocate(4, &block), E_FAIL);
  free_buffer(block);
  client_->Answer("IMsgStore::GetProps", 0, E_FAIL);
  std::uint32_t count = 0;
  SPropValue* values = nullptr;
  EXPECT_EQ(store_->GetProps(nullptr, 0, &count, &values), E_FAIL);
  EXPECT_EQ(count, 0xDDDDDDDDu);
  free_buffer(values);
  // A refusal leaves it too.
  IMsgStore* garbage = nullptr;
  EXPECT_EQ(session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, &garbage), kInvalidEntryId);
  garbage->Release();
  void* found = nullptr;
  EXPECT_EQ(store_->QueryInterface(IID_IMAPIClientShutdown, &found), kNoInterface);
  static_cast<IUnknown*>(found)->Release();
  EXPECT_EQ(Settle(),
            "MAPIFreeBuffer of garbage of MAPIAllocateBuffer, which is freed already\n"
            "MAPIFreeBuffer of garbage of IMsgStore::GetProps, which is freed already\n"
            "IMsgStore::Release on the released garbage store\n"
            "IMAPIClientShutdown::Release on the released garbage client shutdown\n");
}

TEST_F(ClientTest, AnInertClientLooksIntoNothing) {
  EXPECT_EQ(Settle(), "");
  client_ = std::make_unique<Client>();
  client_->is_inert = true;
  client_->Plan({.call = "MAPILogonEx", .from = true, .code = 77});
  client_->Answer("MAPIFreeBuffer", 0, MakeResult(0xFFFFFFFF));
  EXPECT_EQ(initialize(Pointer<void>(0x11)), S_OK);
  EXPECT_EQ(logon(0x21, Pointer<char16_t>(0x22), nullptr, 0x80000023, Pointer<IMAPISession*>(0x28)),
            77);
  EXPECT_EQ(open_form_manager(Pointer<IMAPISession>(0x30), Pointer<IMAPIFormMgr*>(0x38)), S_OK);
  EXPECT_EQ(admin_profiles(0x41, Pointer<IProfAdmin*>(0x48)), S_OK);
  EXPECT_EQ(query_all_rows(Pointer<IMAPITable>(0x50), Pointer<SPropTagArray>(0x54),
                           Pointer<SRestriction>(0x58), Pointer<SSortOrderSet>(0x5C), -1,
                           Pointer<SRowSet*>(0x60)),
            S_OK);
  free_rows(Pointer<SRowSet>(0x70));
  free_list(Pointer<ADRLIST>(0x80));
  EXPECT_EQ(allocate(0x91, Pointer<void*>(0x98)), S_OK);
  EXPECT_EQ(free_buffer(Pointer<void>(0xA0)), 0xFFFFFFFFu);
  EXPECT_EQ(
      client_->Calls(),
      (Lines{"MAPIInitialize(0x11)", "MAPILogonEx(0x21, 0x22, 0x0, 0x80000023, 0x28)",
             "MAPIOpenFormMgr(0x30, 0x38)", "MAPIAdminProfiles(0x41, 0x48)",
             "HrQueryAllRows(0x50, 0x54, 0x58, 0x5c, 0xffffffff, 0x60)", "FreeProws(0x70)",
             "FreePadrlist(0x80)", "MAPIAllocateBuffer(0x91, 0x98)", "MAPIFreeBuffer(0xa0)"}));
  EXPECT_EQ(client_->Accounts(), "");
}

// --- where messages are kept ---

class FullDisk : public Storage {
 public:
  bool Create(Message& message) override { return works && Storage::Create(message); }
  bool KeepDocument(const Message&, const Attachment&, std::string_view, Property&) override {
    return works;
  }
  bool Save(const Message&) override { return works; }
  bool Send(const Message&, bool stays_in_outbox) override {
    stays = stays_in_outbox;
    return works;
  }
  bool Show(const Message&) override { return works; }
  void Discard(const Message& message) override { discarded += message.name + ";"; }

  bool works = true;
  bool stays = false;
  std::string discarded;
};

TEST_F(ClientTest, WhatCannotBeWrittenIsAFailure) {
  EXPECT_EQ(Settle(), "");
  auto owned = std::make_unique<FullDisk>();
  FullDisk& disk = *owned;
  client_ = std::make_unique<Client>(std::move(owned));
  client_->needs_recipients = false;
  session_ = NewSession(*client_);
  store_ = NewStore(*client_);
  outbox_ = NewOutbox(*client_);
  IMessage* message = nullptr;
  IMessage* unsaved = nullptr;
  IAttach* attachment = nullptr;
  std::uint32_t number = 0;
  std::uintptr_t token = 0;
  char message_class[] = "IPM.Note";
  SPropValue data = BytesValue(PR_ATTACH_DATA_BIN, "PDF", 3);
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &message), S_OK);
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &unsaved), S_OK);
  EXPECT_EQ(message->CreateAttach(nullptr, 0, &number, &attachment), S_OK);
  EXPECT_EQ(message->SaveChanges(0), S_OK);
  EXPECT_EQ(session_->PrepareForm(nullptr, message, &token), S_OK);
  disk.works = false;
  IMessage* none = nullptr;
  EXPECT_EQ(outbox_->CreateMessage(nullptr, 0, &none), kDiskError);
  EXPECT_EQ(message->SaveChanges(0), kDiskError);
  EXPECT_EQ(attachment->SetProps(1, &data, nullptr), kDiskError);
  EXPECT_EQ(message->SubmitMessage(0), kDiskError);
  EXPECT_EQ(
      session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, 0, 0, 0, message_class),
      kDiskError);
  disk.works = true;
  EXPECT_EQ(message->SubmitMessage(0), S_OK);
  EXPECT_TRUE(disk.stays) << "it names no folder";
  for (IUnknown* object : {static_cast<IUnknown*>(attachment), static_cast<IUnknown*>(message),
                           static_cast<IUnknown*>(unsaved), static_cast<IUnknown*>(session_),
                           static_cast<IUnknown*>(store_), static_cast<IUnknown*>(outbox_)}) {
    object->Release();
  }
  EXPECT_EQ(disk.discarded, "message 2;") << "what was never saved";
  EXPECT_EQ(client_->Accounts(), "");
}

// --- threads ---

TEST_F(ClientTest, AnyThreadMayCall) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 100; ++round) {
        free_buffer(Allocate(10));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(client_->Calls().size(), 800u);
  EXPECT_EQ(Settle(), "");
}

// --- texts and identifiers ---

TEST(Text, Utf8AndUtf16GiveEachOtherBack) {
  const std::u16string text = u"a\u00FC\u20AC\U0001F600";
  EXPECT_EQ(Utf8(text), "a\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(Utf16(Utf8(text)), text);
}

TEST(Text, IllFormedTextBecomesReplacementCharacters) {
  const char16_t lone_high[] = {u'a', 0xD83D, u'b', 0};
  const char16_t lone_low[] = {0xDE00, 0};
  EXPECT_EQ(Utf8(lone_high), "a\xEF\xBF\xBD\x62");
  EXPECT_EQ(Utf8(lone_low), "\xEF\xBF\xBD");
  EXPECT_EQ(Utf16("a\x80z"), u"a\uFFFDz");
  EXPECT_EQ(Utf16("\xC3"), u"\uFFFD");
  EXPECT_EQ(Utf16("\xC0\x80"), u"\uFFFD\uFFFD") << "two bytes for what has one";
  EXPECT_EQ(Utf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD") << "half of a pair";
  EXPECT_EQ(Utf16("\xF5\x80\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(Text, Windows1252IsNotLatin1) {
  EXPECT_EQ(Windows1252(u"a\u20AC\u00FC\u4E2D"), "a\x80\xFC?");
  EXPECT_EQ(FromWindows1252("a\x80\xFC"), u"a\u20AC\u00FC");
}

TEST(Text, HexadecimalNumbersHaveTheirDigits) {
  EXPECT_EQ(Hex(0x37001F), "0x0037001F");
  EXPECT_EQ(Hex(0, 1), "0x0");
  EXPECT_EQ(LowerHex(0x37001F), "0x37001f");
  EXPECT_EQ(HexBytes(std::string_view("\x00\xFF\x1A", 3)), "00FF1A");
}

TEST(OneOffs, HaveThePublishedForm) {
  const std::string bytes = OneOffEntryId({u"N", u"FAX", u"1"});
  EXPECT_EQ(HexBytes(bytes),
            "00000000812B1FA4BEA310199D6E00DD010F5402"
            "00000180"
            "4E0000004600410058000000"
            "31000000");
  const std::optional<OneOff> read = ReadOneOff(bytes);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->name, u"N");
  EXPECT_EQ(read->address_type, u"FAX");
  EXPECT_EQ(read->address, u"1");
  EXPECT_FALSE(ReadOneOff(""));
  EXPECT_FALSE(ReadOneOff("x" + bytes));
  for (std::size_t size = 0; size + 1 < bytes.size(); ++size) {
    EXPECT_FALSE(ReadOneOff(std::string_view(bytes).substr(0, size))) << size;
  }
}

}  // namespace
}  // namespace zentpost::fake_mapi
