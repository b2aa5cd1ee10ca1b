// sandbox_mapi_player LIBRARY: calls the library as a program that sends mail does, with the
// declarations of our own, and misbehaves where the play says so. For the library's tests.
//
// The play is a JSON file, named by the environment variable SANDBOX_MAPI_PLAY (the command line
// cannot hold every path): the message's texts and what to do. Prints each call's result, ends with
// 0 when it came to the end of the play.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "mapiload/extended_mapi.h"
#include "platform/modules.h"
#include "tools/sandbox_mapi/system.h"
#include "tools/sandbox_mapi/text.h"

namespace zentpost {
namespace {

struct JsonDeleter {
  void operator()(cJSON* json) const { cJSON_Delete(json); }
};

template <class Function>
Function* Find(const platform::Module& module, const char* name) {
  platform::Procedure procedure = nullptr;
  if (platform::FindProcedure(module.Get(), name, procedure) != platform::kSuccess) {
    std::printf("no %s\n", name);
    return nullptr;
  }
  return reinterpret_cast<Function*>(procedure);
}

struct Functions {
  explicit Functions(const platform::Module& module)
      : initialize(Find<HRESULT PLATFORM_STDCALL(void*)>(module, "MAPIInitialize")),
        logon(Find<HRESULT PLATFORM_STDCALL(std::uintptr_t, char16_t*, char16_t*, std::uint32_t,
                                            IMAPISession**)>(module, "MAPILogonEx")),
        open_form_manager(Find<HRESULT PLATFORM_STDCALL(IMAPISession*, IMAPIFormMgr**)>(
            module, "MAPIOpenFormMgr")),
        admin_profiles(Find<HRESULT PLATFORM_STDCALL(std::uint32_t, IProfAdmin**)>(
            module, "MAPIAdminProfiles")),
        query_all_rows(Find<HRESULT PLATFORM_STDCALL(IMAPITable*, SPropTagArray*, SRestriction*,
                                                     SSortOrderSet*, std::int32_t, SRowSet**)>(
            module, "HrQueryAllRows")),
        free_rows(Find<void PLATFORM_STDCALL(SRowSet*)>(module, "FreeProws")),
        allocate(Find<SCODE PLATFORM_STDCALL(std::uint32_t, void**)>(module, "MAPIAllocateBuffer")),
        free_list(Find<void PLATFORM_STDCALL(ADRLIST*)>(module, "FreePadrlist")),
        free(Find<std::uint32_t PLATFORM_STDCALL(void*)>(module, "MAPIFreeBuffer")) {}

  HRESULT PLATFORM_STDCALL (*initialize)(void*);
  HRESULT PLATFORM_STDCALL (*logon)(std::uintptr_t, char16_t*, char16_t*, std::uint32_t,
                                    IMAPISession**);
  HRESULT PLATFORM_STDCALL (*open_form_manager)(IMAPISession*, IMAPIFormMgr**);
  HRESULT PLATFORM_STDCALL (*admin_profiles)(std::uint32_t, IProfAdmin**);
  HRESULT PLATFORM_STDCALL (*query_all_rows)(IMAPITable*, SPropTagArray*, SRestriction*,
                                             SSortOrderSet*, std::int32_t, SRowSet**);
  void PLATFORM_STDCALL (*free_rows)(SRowSet*);
  SCODE PLATFORM_STDCALL (*allocate)(std::uint32_t, void**);
  void PLATFORM_STDCALL (*free_list)(ADRLIST*);
  std::uint32_t PLATFORM_STDCALL (*free)(void*);
};

class Play {
 public:
  Play(const platform::Module& module, const cJSON* play) : mapi_(module), play_(play) {}

  bool Run();

 private:
  [[nodiscard]] std::u16string Text(const char* name) const {
    const cJSON* const item = cJSON_GetObjectItemCaseSensitive(play_, name);
    return cJSON_IsString(item) ? sandbox_mapi::Utf16(item->valuestring) : std::u16string();
  }
  [[nodiscard]] bool Does(const char* what) const {
    const cJSON* const list = cJSON_GetObjectItemCaseSensitive(play_, "Do");
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, list) {
      if (std::string_view(item->valuestring) == what) {
        return true;
      }
    }
    return false;
  }

  // Prints the result; whether the call has succeeded.
  static bool Said(const char* call, HRESULT result) {
    std::printf("%s 0x%08X\n", call, static_cast<unsigned>(result));
    std::fflush(stdout);
    return result >= 0;
  }

  template <std::size_t Count>
  static SPropTagArray* Tags(SizedSPropTagArray<Count>& tags) {
    return reinterpret_cast<SPropTagArray*>(&tags);
  }

  template <class Type>
  void Drop(Type*& object) {
    if (object != nullptr) {
      object->Release();
      object = nullptr;
    }
  }

  bool FindProfile(std::u16string& name);
  bool OpenStore();
  bool OpenOutbox();
  bool AddRecipient();
  bool SetContents();
  bool Attach();
  bool Finish();
  // Prints a call's result and what it left in the places for it.
  template <class... Places>
  static void SayLeft(const char* call, HRESULT result, const Places&... places) {
    Said(call, result);
    std::printf("left");
    const auto say = [](auto place) {
      std::uintptr_t left = 0;
      if constexpr (std::is_pointer_v<decltype(place)>) {
        left = reinterpret_cast<std::uintptr_t>(place);
      } else {
        left = place;
      }
      std::printf(" 0x%llX", static_cast<unsigned long long>(left));
    };
    (say(places), ...);
    std::printf("\n");
  }
  void SayWhatFailuresLeave();
  void Misbehave();
  void Leave();

  Functions mapi_;
  const cJSON* play_;
  IMAPISession* session_ = nullptr;
  IMsgStore* store_ = nullptr;
  IMAPIFolder* outbox_ = nullptr;
  IMessage* message_ = nullptr;
  SPropValue* store_values_ = nullptr;
  SPropValue sent_items_ = {};
};

SPropValue TextValue(std::uint32_t tag, std::u16string& text) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.lpszW = text.data();
  return value;
}

SPropValue NumberValue(std::uint32_t tag, std::int32_t number) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.l = number;
  return value;
}

bool Play::FindProfile(std::u16string& name) {
  IProfAdmin* admin = nullptr;
  if (!Said("MAPIAdminProfiles", mapi_.admin_profiles(0, &admin)) || admin == nullptr) {
    return false;
  }
  IMAPITable* table = nullptr;
  bool is_good = Said("GetProfileTable", admin->GetProfileTable(0, &table)) && table != nullptr;
  SRowSet* rows = nullptr;
  SizedSPropTagArray<2> tags = {2, {PR_DEFAULT_PROFILE, PR_DISPLAY_NAME_A}};
  is_good =
      is_good &&
      Said("HrQueryAllRows", mapi_.query_all_rows(table, Tags(tags), nullptr, nullptr, 0, &rows)) &&
      rows != nullptr;
  if (is_good && rows->cRows == 1 && rows->aRow[0].lpProps[0].Value.b != 0 &&
      rows->aRow[0].lpProps[1].ulPropTag == PR_DISPLAY_NAME_A) {
    name = sandbox_mapi::FromWindows1252(rows->aRow[0].lpProps[1].Value.lpszA);
  }
  std::printf("profile %s\n", sandbox_mapi::Utf8(name).c_str());
  mapi_.free_rows(rows);
  Drop(table);
  Drop(admin);
  return is_good;
}

bool Play::OpenStore() {
  IMAPITable* table = nullptr;
  if (!Said("GetMsgStoresTable", session_->GetMsgStoresTable(0, &table)) || table == nullptr) {
    return false;
  }
  SizedSPropTagArray<2> tags = {2, {PR_DEFAULT_STORE, PR_ENTRYID}};
  SRowSet* rows = nullptr;
  bool is_good =
      Said("HrQueryAllRows", mapi_.query_all_rows(table, Tags(tags), nullptr, nullptr, 0, &rows)) &&
      rows != nullptr && rows->cRows == 1 && rows->aRow[0].lpProps[0].Value.b == 1;
  if (is_good) {
    const SBinary& entry = rows->aRow[0].lpProps[1].Value.bin;
    is_good = Said("OpenMsgStore", session_->OpenMsgStore(
                                       0, entry.cb, reinterpret_cast<ENTRYID*>(entry.lpb), nullptr,
                                       MDB_ONLINE | MAPI_DEFERRED_ERRORS | MDB_WRITE, &store_));
  }
  mapi_.free_rows(rows);
  Drop(table);
  return is_good && store_ != nullptr;
}

bool Play::OpenOutbox() {
  std::uint32_t count = 0;
  if (!Said("IMsgStore::GetProps",
            store_->GetProps(nullptr, MAPI_UNICODE, &count, &store_values_)) ||
      store_values_ == nullptr) {
    return false;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    SPropValue& value = store_values_[i];
    if (value.ulPropTag == PR_IPM_OUTBOX_ENTRYID) {
      std::uint32_t type = 0;
      IUnknown* opened = nullptr;
      Said("IMsgStore::OpenEntry",
           store_->OpenEntry(value.Value.bin.cb, reinterpret_cast<ENTRYID*>(value.Value.bin.lpb),
                             nullptr, MAPI_BEST_ACCESS, &type, &opened));
      outbox_ = static_cast<IMAPIFolder*>(opened);
    } else if (value.ulPropTag == PR_IPM_SENTMAIL_ENTRYID) {
      sent_items_ = value;
      sent_items_.ulPropTag = PR_SENTMAIL_ENTRYID;
    }
  }
  return outbox_ != nullptr;
}

bool Play::AddRecipient() {
  std::u16string address = Text("Address");
  if (address.empty()) {
    return true;
  }
  std::u16string name = Text("Name");
  std::u16string type = Text("AddressType");
  IAddrBook* book = nullptr;
  if (!Said("OpenAddressBook", session_->OpenAddressBook(0, nullptr, 0, &book)) ||
      book == nullptr) {
    return false;
  }
  ADRLIST* list = nullptr;
  bool is_good =
      Said("MAPIAllocateBuffer", mapi_.allocate(sizeof(ADRLIST), reinterpret_cast<void**>(&list)));
  SPropValue* values = nullptr;
  is_good =
      is_good && Said("MAPIAllocateBuffer",
                      mapi_.allocate(20 * sizeof(SPropValue), reinterpret_cast<void**>(&values)));
  ENTRYID* entry = nullptr;
  if (is_good) {
    std::memset(values, 0, 20 * sizeof(SPropValue));
    list->cEntries = 1;
    ADRENTRY& only = list->aEntries[0];
    only.ulReserved1 = 0;
    only.cValues = 0;
    only.rgPropVals = values;
    values[only.cValues++] = TextValue(PR_DISPLAY_NAME_W, name);
    if (!type.empty()) {
      values[only.cValues++] = TextValue(PR_ADDRTYPE_W, type);
    }
    values[only.cValues++] = TextValue(PR_EMAIL_ADDRESS_W, address);
    values[only.cValues++] = NumberValue(PR_RECIPIENT_TYPE, MAPI_TO);
    if (!type.empty()) {
      SPropValue& value = values[only.cValues];
      value.ulPropTag = PR_ENTRYID;
      is_good = Said("CreateOneOff", book->CreateOneOff(name.data(), type.data(), address.data(),
                                                        MAPI_UNICODE, &value.Value.bin.cb, &entry));
      value.Value.bin.lpb = reinterpret_cast<std::uint8_t*>(entry);
      only.cValues += is_good && !Does("leave the entry out") ? 1 : 0;
      is_good = is_good && Said("ResolveName", book->ResolveName(0, MAPI_UNICODE, nullptr, list));
    }
    is_good = is_good && Said("ModifyRecipients", message_->ModifyRecipients(MODRECIP_ADD, list)) &&
              Said("IMessage::SaveChanges", message_->SaveChanges(KEEP_OPEN_READWRITE));
  }
  mapi_.free(entry);
  mapi_.free_list(list);
  Drop(book);
  return is_good;
}

bool Play::SetContents() {
  std::u16string message_class = u"IPM.Note";
  std::u16string subject = Text("Subject");
  std::u16string body = Text("Body");
  std::u16string sender = Text("Sender");
  std::vector<SPropValue> values = {TextValue(PR_MESSAGE_CLASS_W, message_class)};
  if (!subject.empty()) {
    values.push_back(TextValue(PR_SUBJECT_W, subject));
  }
  if (!body.empty()) {
    values.push_back(TextValue(PR_BODY_W, body));
  }
  if (!sender.empty()) {
    values.push_back(TextValue(PR_SENT_REPRESENTING_NAME_W, sender));
  }
  if (sent_items_.ulPropTag != 0) {
    values.push_back(sent_items_);
  }
  return Said("IMessage::SetProps", message_->SetProps(static_cast<std::uint32_t>(values.size()),
                                                       values.data(), nullptr)) &&
         Said("IMessage::SaveChanges", message_->SaveChanges(KEEP_OPEN_READWRITE));
}

bool Play::Attach() {
  const cJSON* const size = cJSON_GetObjectItemCaseSensitive(play_, "AttachmentSize");
  if (!cJSON_IsNumber(size)) {
    return true;
  }
  // A pattern that a test can make again.
  std::vector<std::uint8_t> data(static_cast<std::size_t>(size->valuedouble));
  for (std::size_t i = 0; i < data.size(); ++i) {
    data[i] = static_cast<std::uint8_t>(i * 7 + (i >> 8));
  }
  std::u16string name = Text("AttachmentName");
  std::u16string extension = name.substr(std::min(name.rfind(u'.'), name.size()));
  SPropValue bytes = {};
  bytes.ulPropTag = PR_ATTACH_DATA_BIN;
  bytes.Value.bin.cb = static_cast<std::uint32_t>(data.size());
  bytes.Value.bin.lpb = data.data();
  SPropValue values[] = {NumberValue(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                         NumberValue(PR_RENDERING_POSITION, -1),
                         bytes,
                         TextValue(PR_ATTACH_EXTENSION_W, extension),
                         TextValue(PR_ATTACH_FILENAME_W, name),
                         TextValue(PR_ATTACH_LONG_FILENAME_W, name),
                         NumberValue(PR_ATTACH_FLAGS, 0),
                         TextValue(PR_DISPLAY_NAME_W, name),
                         NumberValue(PR_ATTACHMENT_LINKID, 0)};
  std::uint32_t number = 0;
  IAttach* attach = nullptr;
  if (!Said("CreateAttach",
            message_->CreateAttach(nullptr, MAPI_DEFERRED_ERRORS, &number, &attach)) ||
      attach == nullptr) {
    return false;
  }
  bool is_good = Said("IAttach::SetProps", attach->SetProps(9, values, nullptr));
  // The library has its own copy by now.
  std::fill(data.begin(), data.end(), std::uint8_t{0});
  name.assign(name.size(), u'?');
  is_good = is_good && Said("IAttach::SaveChanges", attach->SaveChanges(0));
  Drop(attach);
  return is_good;
}

bool Play::Finish() {
  if (Does("stop before sending")) {
    return true;
  }
  if (Does("end at once")) {
    std::_Exit(3);
  }
  if (!Does("preview")) {
    return Said("SubmitMessage", message_->SubmitMessage(0));
  }
  IMAPIFormMgr* manager = nullptr;
  if (!Said("MAPIOpenFormMgr", mapi_.open_form_manager(session_, &manager)) || manager == nullptr) {
    return false;
  }
  SizedSPropTagArray<5> tags = {
      5, {PR_MESSAGE_FLAGS, PR_MESSAGE_CLASS_W, PR_ACCESS, PR_ENTRYID, PR_MSG_STATUS}};
  std::uint32_t count = 0;
  SPropValue* values = nullptr;
  // The bits beyond the 32 that the library writes are to stay as they are.
  std::uintptr_t token = 0;
  std::uint32_t status = 0;
  char message_class[] = "IPM.Note";
  bool is_good =
      Said("IMessage::GetProps", message_->GetProps(Tags(tags), MAPI_UNICODE, &count, &values)) &&
      count == 5;
  is_good = is_good && Said("PrepareForm", session_->PrepareForm(nullptr, message_, &token)) &&
            Said("GetMessageStatus",
                 outbox_->GetMessageStatus(values[3].Value.bin.cb,
                                           reinterpret_cast<ENTRYID*>(values[3].Value.bin.lpb), 0,
                                           &status));
  is_good = is_good &&
            Said("ShowForm",
                 session_->ShowForm(0, store_, outbox_, nullptr, token, nullptr, 0, status,
                                    static_cast<std::uint32_t>(values[0].Value.l),
                                    static_cast<std::uint32_t>(values[2].Value.l), message_class));
  mapi_.free(values);
  Drop(manager);
  return is_good;
}

// Each call that hands something out once more; all of them are to fail but the first two.
void Play::SayWhatFailuresLeave() {
  IProfAdmin* admin = nullptr;
  IMAPITable* profiles = nullptr;
  if (Said("MAPIAdminProfiles", mapi_.admin_profiles(0, &admin))) {
    SayLeft("GetProfileTable", admin->GetProfileTable(0, &profiles), profiles);
    Drop(admin);
  }
  IAddrBook* book = nullptr;
  if (Said("OpenAddressBook", session_->OpenAddressBook(0, nullptr, 0, &book))) {
    char16_t text[] = u"x";
    std::uint32_t size = 0;
    ENTRYID* one_off = nullptr;
    SayLeft("CreateOneOff", book->CreateOneOff(text, text, text, MAPI_UNICODE, &size, &one_off),
            size, one_off);
    Drop(book);
  }
  SayLeft("MAPIAdminProfiles", mapi_.admin_profiles(0, &admin), admin);
  IMAPISession* session = nullptr;
  SayLeft("MAPILogonEx", mapi_.logon(0, nullptr, nullptr, 0, &session), session);
  IMAPIFormMgr* manager = nullptr;
  SayLeft("MAPIOpenFormMgr", mapi_.open_form_manager(session_, &manager), manager);
  void* buffer = nullptr;
  SayLeft("MAPIAllocateBuffer", mapi_.allocate(8, &buffer), buffer);
  SizedSPropTagArray<1> tags = {1, {PR_ENTRYID}};
  SRowSet* rows = nullptr;
  SayLeft("HrQueryAllRows", mapi_.query_all_rows(nullptr, Tags(tags), nullptr, nullptr, 0, &rows),
          rows);
  IMAPITable* table = nullptr;
  SayLeft("GetMsgStoresTable", session_->GetMsgStoresTable(0, &table), table);
  IMsgStore* store = nullptr;
  SayLeft("OpenMsgStore", session_->OpenMsgStore(0, 0, nullptr, nullptr, 0, &store), store);
  SayLeft("OpenAddressBook", session_->OpenAddressBook(0, nullptr, 0, &book), book);
  void* shutdown = nullptr;
  SayLeft("QueryInterface", session_->QueryInterface(IID_IMAPIClientShutdown, &shutdown), shutdown);
  std::uintptr_t token = 0;
  SayLeft("PrepareForm", session_->PrepareForm(nullptr, message_, &token), token);
  std::uint32_t number = 0;
  SPropValue* values = nullptr;
  SayLeft("GetProps", store_->GetProps(nullptr, 0, &number, &values), number, values);
  number = 0;
  IUnknown* entry = nullptr;
  SayLeft("OpenEntry", store_->OpenEntry(0, nullptr, nullptr, 0, &number, &entry), number, entry);
  IMessage* message = nullptr;
  SayLeft("CreateMessage", outbox_->CreateMessage(nullptr, 0, &message), message);
  number = 0;
  SayLeft("GetMessageStatus", outbox_->GetMessageStatus(0, nullptr, 0, &number), number);
  number = 0;
  IAttach* attach = nullptr;
  SayLeft("CreateAttach", message_->CreateAttach(nullptr, 0, &number, &attach), number, attach);
}

void Play::Misbehave() {
  void* buffer = nullptr;
  if (Does("say what failures leave")) {
    SayWhatFailuresLeave();
  }
  if (Does("free what failures leave")) {
    SRowSet* rows = nullptr;
    mapi_.allocate(8, &buffer);
    mapi_.free(buffer);
    SizedSPropTagArray<1> tags = {1, {PR_ENTRYID}};
    mapi_.query_all_rows(nullptr, Tags(tags), nullptr, nullptr, 0, &rows);
    mapi_.free_rows(rows);
  }
  if (Does("leak a buffer")) {
    mapi_.allocate(24, &buffer);
  }
  if (Does("free twice")) {
    mapi_.allocate(25, &buffer);
    mapi_.free(buffer);
    std::printf("freed again 0x%08X\n", mapi_.free(buffer));
  }
  if (Does("write beyond")) {
    mapi_.allocate(26, &buffer);
    static_cast<volatile char*>(buffer)[26] = 1;
    mapi_.free(buffer);
  }
  if (Does("write after the free")) {
    mapi_.allocate(27, &buffer);
    mapi_.free(buffer);
    static_cast<volatile char*>(buffer)[3] = 1;
  }
  if (Does("free a foreign pointer")) {
    char foreign[8] = {};
    std::printf("freed 0x%08X\n", mapi_.free(foreign));
  }
  if (Does("release once too often")) {
    IProfAdmin* admin = nullptr;
    mapi_.admin_profiles(0, &admin);
    admin->Release();
    admin->Release();
  }
  if (Does("call after the release")) {
    IProfAdmin* admin = nullptr;
    IMAPITable* table = nullptr;
    mapi_.admin_profiles(0, &admin);
    admin->Release();
    Said("GetProfileTable", admin->GetProfileTable(0, &table));
  }
  if (Does("leak an interface")) {
    IProfAdmin* admin = nullptr;
    mapi_.admin_profiles(0, &admin);
    admin->AddRef();
  }
  if (Does("leak the rows")) {
    IMAPITable* table = nullptr;
    SRowSet* rows = nullptr;
    SizedSPropTagArray<1> tags = {1, {PR_ENTRYID}};
    session_->GetMsgStoresTable(0, &table);
    mapi_.query_all_rows(table, Tags(tags), nullptr, nullptr, 0, &rows);
    table->Release();
    mapi_.free(rows);  // Frees the set without its rows.
  }
}

void Play::Leave() {
  Drop(message_);
  Drop(outbox_);
  mapi_.free(store_values_);
  Drop(store_);
  if (session_ == nullptr) {
    return;
  }
  IMAPIClientShutdown* shutdown = nullptr;
  if (Said("QueryInterface", session_->QueryInterface(IID_IMAPIClientShutdown,
                                                      reinterpret_cast<void**>(&shutdown))) &&
      shutdown != nullptr) {
    if (Said("QueryFastShutdown", shutdown->QueryFastShutdown())) {
      Said("DoFastShutdown", shutdown->DoFastShutdown());
    }
    Drop(shutdown);
  }
  Said("Logoff", session_->Logoff(0, 0, 0));
  Drop(session_);
}

bool Play::Run() {
  std::u16string profile;
  bool is_good = Said("MAPIInitialize", mapi_.initialize(nullptr)) && FindProfile(profile);
  is_good = is_good &&
            Said("MAPILogonEx",
                 mapi_.logon(0, profile.data(), nullptr,
                             MAPI_UNICODE | MAPI_EXTENDED | MAPI_ALLOW_OTHERS | MAPI_LOGON_UI,
                             &session_)) &&
            session_ != nullptr;
  is_good = is_good && OpenStore() && OpenOutbox() &&
            Said("CreateMessage", outbox_->CreateMessage(nullptr, 0, &message_)) &&
            message_ != nullptr;
  is_good = is_good && AddRecipient() && SetContents() && Attach() && Finish();
  if (session_ != nullptr) {
    Misbehave();
  }
  Leave();
  return is_good;
}

}  // namespace
}  // namespace zentpost

int main(int argc, char** argv) {
  const auto path = zentpost::sandbox_mapi::EnvironmentVariable("SANDBOX_MAPI_PLAY");
  if (argc != 2 || !path) {
    std::fputs("usage: SANDBOX_MAPI_PLAY=FILE sandbox_mapi_player LIBRARY\n", stderr);
    return 2;
  }
  std::ifstream file(zentpost::sandbox_mapi::Path(*path), std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const std::unique_ptr<cJSON, zentpost::JsonDeleter> play(cJSON_Parse(text.c_str()));
  platform::Module module;
  const std::u16string library = zentpost::sandbox_mapi::Utf16(argv[1]);
  if (!play || platform::LoadModule(library.c_str(), module) != platform::kSuccess) {
    std::fputs("the play or the library cannot be read\n", stderr);
    return 2;
  }
  const bool is_good = zentpost::Play(module, play.get()).Run();
  // Never unloaded, as by the tool.
  static_cast<void>(module.Detach());
  return is_good ? 0 : 1;
}
