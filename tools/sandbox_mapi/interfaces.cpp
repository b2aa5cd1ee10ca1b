#include "tools/sandbox_mapi/interfaces.h"

#include <cstring>
#include <initializer_list>
#include <utility>

#include "tools/sandbox_mapi/text.h"

namespace zentpost::sandbox_mapi {
namespace {

// Published: the interfaces' identifiers are these with their own first part.
IID Identifier(std::uint32_t first) {
  return IID{first, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
}
constexpr std::uint32_t kIidUnknown = 0x00000000;
constexpr std::uint32_t kIidSession = 0x00020300;
constexpr std::uint32_t kIidTable = 0x00020301;
constexpr std::uint32_t kIidProp = 0x00020303;
constexpr std::uint32_t kIidStore = 0x00020306;
constexpr std::uint32_t kIidMessage = 0x00020307;
constexpr std::uint32_t kIidAttachment = 0x00020308;
constexpr std::uint32_t kIidAddrBook = 0x00020309;
constexpr std::uint32_t kIidFolder = 0x0002030C;
constexpr std::uint32_t kIidContainer = 0x0002030B;
constexpr std::uint32_t kIidProfAdmin = 0x0002031C;
constexpr std::uint32_t kIidFormMgr = 0x00020322;
constexpr std::uint32_t kIidClientShutdown = 0x00020397;

std::string IdentifierText(REFIID iid) {
  return Hex(iid.Data1);
}

// What all interfaces have. Nobody has the object but its callers, and no object keeps another one
// alive: so the accounts show the callers' references and no others.
template <class Base>
class Object : public Base {
 public:
  Object(const char* type, std::initializer_list<std::uint32_t> identifiers)
      : type_(type), identifiers_(identifiers) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  HRESULT PLATFORM_STDCALL QueryInterface(REFIID riid, LPVOID* ppvObj) override {
    Call call(Name("QueryInterface"), this);
    call.Arg("iid", IdentifierText(riid)).Out(ppvObj);
    if (ppvObj == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *ppvObj = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    for (const std::uint32_t identifier : identifiers_) {
      if (riid == Identifier(identifier)) {
        static_cast<void>(TheLibrary().accounting.AddRef(this));
        *ppvObj = this;
        return call.Return(kOk);
      }
    }
    return call.Return(Other(riid, ppvObj));
  }

  ULONG PLATFORM_STDCALL AddRef() override {
    Call call(Name("AddRef"), this);
    return call.ReturnCount(TheLibrary().accounting.AddRef(this));
  }

  ULONG PLATFORM_STDCALL Release() override {
    Call call(Name("Release"), this);
    const bool was_alive = TheLibrary().accounting.IsReferenced(this);
    const std::uint32_t count = TheLibrary().accounting.Release(this);
    if (was_alive && count == 0) {
      OnLastRelease();
    }
    return call.ReturnCount(count);
  }

 protected:
  [[nodiscard]] std::string Name(const char* method) const {
    return std::string(type_) + "::" + method;
  }

  // Another interface than the object's own.
  virtual HRESULT Other(REFIID, LPVOID*) { return kNoInterface; }
  virtual void OnLastRelease() {}

 private:
  const char* type_;
  std::vector<std::uint32_t> identifiers_;
};

// Makes an object known to the accounts.
template <class Type, class... Arguments>
Type* New(const char* type, Arguments&&... arguments) {
  auto* const object = new Type(type, std::forward<Arguments>(arguments)...);
  TheLibrary().accounting.AddObject(object, type, [object] { delete object; });
  return object;
}

// What all objects with properties have.
template <class Base>
class PropObject : public Object<Base> {
 public:
  using Object<Base>::Object;

  HRESULT PLATFORM_STDCALL SaveChanges(ULONG ulFlags) override {
    Call call(this->Name("SaveChanges"), this);
    call.Hex("flags", ulFlags);
    return call.Fails() ? call.Failure() : call.Return(Save(ulFlags));
  }

  HRESULT PLATFORM_STDCALL GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                    LPSPropValue* lppPropArray) override {
    Call call(this->Name("GetProps"), this);
    std::string tags = "all";
    if (lpPropTagArray != nullptr) {
      tags.clear();
      for (ULONG i = 0; i < lpPropTagArray->cValues; ++i) {
        tags += (i > 0 ? " " : "") + Hex(lpPropTagArray->aulPropTag[i]);
      }
    }
    call.Arg("tags", tags).Hex("flags", ulFlags).Out(lpcValues).Out(lppPropArray);
    if (lpcValues == nullptr || lppPropArray == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lpcValues = 0;
    *lppPropArray = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    return call.Return(ToMapi(Current(), lpPropTagArray,
                              (ulFlags & kUnicodeFlag) != 0 ? kUnicode : kString8,
                              BufferKind::kPropertyValues, *lpcValues, *lppPropArray));
  }

  HRESULT PLATFORM_STDCALL SetProps(ULONG cValues, LPSPropValue lpPropArray,
                                    LPSPropProblemArray* lppProblems) override {
    Call call(this->Name("SetProps"), this);
    call.Out(lppProblems);
    if (lppProblems != nullptr) {
      *lppProblems = nullptr;
    }
    if (lpPropArray == nullptr) {
      return call.Return(kInvalidParameter);
    }
    std::string tags;
    for (ULONG i = 0; i < cValues; ++i) {
      tags += (i > 0 ? " " : "") + Hex(lpPropArray[i].ulPropTag);
    }
    call.Arg("tags", tags);
    if (call.Fails()) {
      return call.Failure();
    }
    for (ULONG i = 0; i < cValues; ++i) {
      if (const HRESULT result = SetProp(lpPropArray[i]); result != kOk) {
        return call.Return(result);
      }
    }
    return call.Return(kOk);
  }

 protected:
  // All that GetProps can give.
  [[nodiscard]] virtual Properties Current() const = 0;
  virtual HRESULT Save(ULONG) { return kNoSupport; }
  virtual HRESULT SetProp(const SPropValue&) { return kNoSupport; }
};

Property NumberProperty(std::uint32_t id, std::uint32_t type, std::int64_t number) {
  Property property;
  property.tag = Tag(id, type);
  property.number = number;
  return property;
}
Property TextProperty(std::uint32_t id, std::uint32_t type, std::u16string text) {
  Property property;
  property.tag = Tag(id, type);
  property.text = std::move(text);
  return property;
}
Property BytesProperty(std::uint32_t id, std::string bytes) {
  Property property;
  property.tag = Tag(id, kBinary);
  property.bytes = std::move(bytes);
  return property;
}

constexpr char kStoreName[] = "Sandbox";

class Table final : public Object<TableBase> {
 public:
  Table(const char* type, std::vector<Properties> rows)
      : Object(type, {kIidUnknown, kIidTable}), rows_(std::move(rows)) {}

  [[nodiscard]] const std::vector<Properties>& Rows() const { return rows_; }

 private:
  std::vector<Properties> rows_;
};

class ProfAdmin final : public Object<ProfAdminBase> {
 public:
  explicit ProfAdmin(const char* type) : Object(type, {kIidUnknown, kIidProfAdmin}) {}

  HRESULT PLATFORM_STDCALL GetProfileTable(ULONG ulFlags, LPMAPITABLE* lppTable) override {
    Call call(Name("GetProfileTable"), this);
    call.Hex("flags", ulFlags).Out(lppTable);
    if (lppTable == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppTable = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    const Config& config = TheLibrary().config;
    Properties row;
    row.Set(NumberProperty(kIdDefaultProfile, kBoolean, config.default_profile ? 1 : 0));
    row.Set(TextProperty(kIdDisplayName, kString8, config.profile_name));
    *lppTable = NewTable({row});
    return call.Return(kOk);
  }
};

class FormMgr final : public Object<FormMgrBase> {
 public:
  explicit FormMgr(const char* type) : Object(type, {kIidUnknown, kIidFormMgr}) {}
};

class Attach final : public PropObject<AttachBase> {
 public:
  Attach(const char* type, std::shared_ptr<OpenMessage> open, std::size_t index)
      : PropObject(type, {kIidUnknown, kIidProp, kIidAttachment}),
        open_(std::move(open)),
        index_(index) {}

 private:
  [[nodiscard]] Attachment& Data() const { return open_->message.attachments[index_]; }
  [[nodiscard]] Properties Current() const override { return Data().properties; }

  HRESULT Save(ULONG flags) override {
    open_->message.flags.push_back("IAttach::SaveChanges " + Hex(flags));
    Data().saved = true;
    return kOk;
  }

  HRESULT SetProp(const SPropValue& value) override {
    // A document is large: it goes to its file right away, and no copy stays in memory.
    const bool is_document = IdOf(value.ulPropTag) == kIdAttachData;
    Property property;
    if (!FromMapi(value, !is_document, property)) {
      return kInvalidParameter;
    }
    if (is_document && TypeOf(value.ulPropTag) == kBinary) {
      property.spool.emplace();
      if (!TheLibrary().mailbox.Keep(open_->message, Data().number,
                                     AsBytes(value.Value.bin.lpb, value.Value.bin.cb),
                                     *property.spool)) {
        return kDiskError;
      }
    }
    Data().properties.Set(std::move(property));
    return kOk;
  }

  std::shared_ptr<OpenMessage> open_;
  std::size_t index_;
};

class MessageObject final : public PropObject<MessageBase> {
 public:
  MessageObject(const char* type, std::shared_ptr<OpenMessage> open)
      : PropObject(type, {kIidUnknown, kIidProp, kIidMessage}), open_(std::move(open)) {}

  [[nodiscard]] const std::shared_ptr<OpenMessage>& Open() const { return open_; }

  HRESULT PLATFORM_STDCALL CreateAttach(LPCIID, ULONG ulFlags, ULONG* lpulAttachmentNum,
                                        LPATTACH* lppAttach) override {
    Call call(Name("CreateAttach"), this);
    call.Hex("flags", ulFlags).Out(lpulAttachmentNum).Out(lppAttach);
    if (lpulAttachmentNum == nullptr || lppAttach == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppAttach = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    Message& message = open_->message;
    Attachment attachment;
    attachment.number = static_cast<std::uint32_t>(message.attachments.size());
    attachment.create_flags = ulFlags;
    message.attachments.push_back(std::move(attachment));
    *lpulAttachmentNum = static_cast<ULONG>(message.attachments.size() - 1);
    *lppAttach = New<Attach>("IAttach", open_, message.attachments.size() - 1);
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) override {
    Call call(Name("ModifyRecipients"), this);
    call.Hex("flags", ulFlags);
    if (lpMods == nullptr) {
      return call.Return(kInvalidParameter);
    }
    call.Arg("entries", std::to_string(lpMods->cEntries));
    if (call.Fails()) {
      return call.Failure();
    }
    constexpr ULONG kAdd = 2;
    if (ulFlags != 0 && ulFlags != kAdd) {
      return call.Return(kNoSupport);
    }
    std::vector<Properties> recipients;
    for (ULONG i = 0; i < lpMods->cEntries; ++i) {
      const ADRENTRY& entry = lpMods->aEntries[i];
      Properties& recipient = recipients.emplace_back();
      for (ULONG j = 0; j < entry.cValues; ++j) {
        Property property;
        if (entry.rgPropVals == nullptr || !FromMapi(entry.rgPropVals[j], true, property)) {
          return call.Return(kInvalidParameter);
        }
        recipient.Set(std::move(property));
      }
      call.Text("address", recipient.Text(kIdAddressType) + u":" + recipient.Text(kIdEmailAddress));
    }
    Message& message = open_->message;
    message.flags.push_back("IMessage::ModifyRecipients " + Hex(ulFlags));
    if (ulFlags == 0) {
      message.recipients.clear();
    }
    message.recipients.insert(message.recipients.end(), recipients.begin(), recipients.end());
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL SubmitMessage(ULONG ulFlags) override {
    Call call(Name("SubmitMessage"), this);
    call.Hex("flags", ulFlags);
    if (call.Fails()) {
      return call.Failure();
    }
    if (open_->message.recipients.empty()) {
      return call.Return(kNoRecipients);
    }
    if (open_->is_sent) {
      return call.Return(kInvalidObject);
    }
    open_->message.flags.push_back("IMessage::SubmitMessage " + Hex(ulFlags));
    return call.Return(SendMessageAway(*open_));
  }

 private:
  [[nodiscard]] Properties Current() const override {
    Properties properties = open_->message.properties;
    if (open_->is_saved) {
      properties.Set(BytesProperty(kIdEntryId, EntryId({'M', open_->message.name})));
    }
    const auto set_missing = [&properties](std::uint32_t id, std::int32_t number) {
      if (properties.Find(id) == nullptr) {
        properties.Set(NumberProperty(id, kLong, number));
      }
    };
    set_missing(kIdMessageFlags, open_->is_sent ? kMessageFlagSubmit : kMessageFlagUnsent);
    set_missing(kIdMessageStatus, 0);
    set_missing(kIdAccess, kAccessAll);
    return properties;
  }

  HRESULT Save(ULONG flags) override {
    if (open_->is_sent) {
      return kInvalidObject;
    }
    open_->message.flags.push_back("IMessage::SaveChanges " + Hex(flags));
    if (!TheLibrary().mailbox.Save(open_->message)) {
      return kDiskError;
    }
    open_->is_saved = true;
    return kOk;
  }

  HRESULT SetProp(const SPropValue& value) override {
    Property property;
    if (!FromMapi(value, true, property)) {
      return kInvalidParameter;
    }
    open_->message.properties.Set(std::move(property));
    return kOk;
  }

  // What was never saved is gone with its last reference.
  void OnLastRelease() override {
    if (!open_->is_saved && !open_->is_sent) {
      TheLibrary().mailbox.Discard(open_->message);
    }
  }

  std::shared_ptr<OpenMessage> open_;
};

class Folder final : public PropObject<FolderBase> {
 public:
  Folder(const char* type, std::string name)
      : PropObject(type, {kIidUnknown, kIidProp, kIidContainer, kIidFolder}),
        name_(std::move(name)) {}

  HRESULT PLATFORM_STDCALL CreateMessage(LPCIID, ULONG ulFlags, LPMESSAGE* lppMessage) override {
    Call call(Name("CreateMessage"), this);
    call.Hex("flags", ulFlags).Out(lppMessage);
    if (lppMessage == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppMessage = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    if (name_ != kOutbox) {
      return call.Return(kNoSupport);
    }
    auto open = std::make_shared<OpenMessage>();
    if (!TheLibrary().mailbox.Reserve(open->message.name)) {
      return call.Return(kDiskError);
    }
    open->message.flags.push_back("IMAPIFolder::CreateMessage " + Hex(ulFlags));
    call.Arg("name", open->message.name);
    *lppMessage = New<MessageObject>("IMessage", std::move(open));
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags,
                                            ULONG* lpulMessageStatus) override {
    Call call(Name("GetMessageStatus"), this);
    const std::string_view bytes = AsBytes(lpEntryID, cbEntryID);
    call.Bytes("entry", bytes).Hex("flags", ulFlags).Out(lpulMessageStatus);
    if (lpulMessageStatus == nullptr) {
      return call.Return(kInvalidParameter);
    }
    if (call.Fails()) {
      return call.Failure();
    }
    const std::optional<Entry> entry = ReadEntryId(bytes);
    if (!entry || entry->kind != 'M') {
      return call.Return(kInvalidEntryId);
    }
    if (!TheLibrary().mailbox.Has(name_, entry->name)) {
      return call.Return(kNotFound);
    }
    *lpulMessageStatus = 0;
    return call.Return(kOk);
  }

 private:
  [[nodiscard]] Properties Current() const override {
    Properties properties;
    properties.Set(TextProperty(kIdDisplayName, kUnicode, Utf16(name_)));
    properties.Set(BytesProperty(kIdEntryId, EntryId({'F', name_})));
    return properties;
  }

  std::string name_;
};

class MsgStore final : public PropObject<MsgStoreBase> {
 public:
  explicit MsgStore(const char* type) : PropObject(type, {kIidUnknown, kIidProp, kIidStore}) {}

  HRESULT PLATFORM_STDCALL OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID, ULONG ulFlags,
                                     ULONG* lpulObjType, LPUNKNOWN* lppUnk) override {
    Call call(Name("OpenEntry"), this);
    const std::string_view bytes = AsBytes(lpEntryID, cbEntryID);
    call.Bytes("entry", bytes).Hex("flags", ulFlags).Out(lpulObjType).Out(lppUnk);
    if (lpulObjType == nullptr || lppUnk == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppUnk = nullptr;
    if (call.Fails()) {
      return call.Failure();
    }
    const std::optional<Entry> entry = ReadEntryId(bytes);
    if (!entry || !IsFolder(*entry)) {
      return call.Return(kInvalidEntryId);
    }
    *lpulObjType = kObjectFolder;
    *lppUnk = New<Folder>("IMAPIFolder", entry->name);
    return call.Return(kOk);
  }

 private:
  [[nodiscard]] Properties Current() const override {
    const Config& config = TheLibrary().config;
    Properties properties;
    properties.Set(TextProperty(kIdDisplayName, kUnicode, Utf16(kStoreName)));
    properties.Set(BytesProperty(kIdEntryId, EntryId({'S', kStoreName})));
    properties.Set(NumberProperty(kIdDefaultStore, kBoolean, config.default_store ? 1 : 0));
    if (config.outbox) {
      properties.Set(BytesProperty(kIdOutboxEntryId, EntryId({'F', kOutbox})));
    }
    if (config.sent_items) {
      properties.Set(BytesProperty(kIdSentItemsEntryId, EntryId({'F', kSentItems})));
    }
    return properties;
  }
};

class AddrBook final : public PropObject<AddrBookBase> {
 public:
  explicit AddrBook(const char* type) : PropObject(type, {kIidUnknown, kIidProp, kIidAddrBook}) {}

  HRESULT PLATFORM_STDCALL CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress,
                                        ULONG ulFlags, ULONG* lpcbEntryID,
                                        LPENTRYID* lppEntryID) override {
    Call call(Name("CreateOneOff"), this);
    call.Hex("flags", ulFlags).Out(lpcbEntryID).Out(lppEntryID);
    if (lpszAdrType == nullptr || lpszAddress == nullptr || lpcbEntryID == nullptr ||
        lppEntryID == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lpcbEntryID = 0;
    *lppEntryID = nullptr;
    const bool is_wide = (ulFlags & kUnicodeFlag) != 0;
    const auto text = [is_wide](LPTSTR given) {
      if (is_wide || given == nullptr) {
        return FromWide(given);
      }
      return FromWindows1252(reinterpret_cast<const char*>(given));
    };
    const OneOff one_off{text(lpszName), text(lpszAdrType), text(lpszAddress)};
    call.Text("name", one_off.name);
    call.Text("address", one_off.address_type + u":" + one_off.address);
    if (call.Fails()) {
      return call.Failure();
    }
    const std::string bytes = OneOffEntryId(one_off);
    *lppEntryID = static_cast<LPENTRYID>(CopyToBuffer(bytes, BufferKind::kEntryId));
    if (*lppEntryID == nullptr) {
      return call.Return(kNotEnoughMemory);
    }
    *lpcbEntryID = static_cast<ULONG>(bytes.size());
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL ResolveName(ULONG_PTR, ULONG ulFlags, LPTSTR,
                                       LPADRLIST lpAdrList) override {
    Call call(Name("ResolveName"), this);
    call.Hex("flags", ulFlags);
    if (lpAdrList == nullptr) {
      return call.Return(kInvalidParameter);
    }
    call.Arg("entries", std::to_string(lpAdrList->cEntries));
    if (call.Fails()) {
      return call.Failure();
    }
    // The book is empty: it knows who comes with an entry identifier, and nobody else.
    for (ULONG i = 0; i < lpAdrList->cEntries; ++i) {
      const ADRENTRY& entry = lpAdrList->aEntries[i];
      bool is_resolved = false;
      for (ULONG j = 0; j < entry.cValues; ++j) {
        const SPropValue& value = entry.rgPropVals[j];
        is_resolved = is_resolved || (value.ulPropTag == Tag(kIdEntryId, kBinary) &&
                                      ReadOneOff(AsBytes(value.Value.bin.lpb, value.Value.bin.cb)));
      }
      if (!is_resolved) {
        return call.Return(kNotFound);
      }
    }
    return call.Return(kOk);
  }

 private:
  [[nodiscard]] Properties Current() const override { return {}; }
};

class ClientShutdown final : public Object<ClientShutdownBase> {
 public:
  explicit ClientShutdown(const char* type) : Object(type, {kIidUnknown, kIidClientShutdown}) {}

  HRESULT PLATFORM_STDCALL QueryFastShutdown() override { return Done("QueryFastShutdown"); }
  HRESULT PLATFORM_STDCALL DoFastShutdown() override { return Done("DoFastShutdown"); }
  NotifyResult PLATFORM_STDCALL NotifyProcessShutdown() override {
    return static_cast<NotifyResult>(Done("NotifyProcessShutdown"));
  }

 private:
  HRESULT Done(const char* method) {
    Call call(Name(method), this);
    return call.Fails() ? call.Failure() : call.Return(kOk);
  }
};

class Session final : public Object<SessionBase> {
 public:
  explicit Session(const char* type) : Object(type, {kIidUnknown, kIidSession}) {}

  HRESULT PLATFORM_STDCALL GetMsgStoresTable(ULONG ulFlags, LPMAPITABLE* lppTable) override {
    Call call(Name("GetMsgStoresTable"), this);
    call.Hex("flags", ulFlags).Out(lppTable);
    if (lppTable == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppTable = nullptr;
    if (Fails(call)) {
      return call.Failure();
    }
    Properties row;
    row.Set(NumberProperty(kIdDefaultStore, kBoolean, TheLibrary().config.default_store ? 1 : 0));
    row.Set(BytesProperty(kIdEntryId, EntryId({'S', kStoreName})));
    row.Set(TextProperty(kIdDisplayName, kUnicode, Utf16(kStoreName)));
    *lppTable = NewTable({row});
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL OpenMsgStore(ULONG_PTR, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID,
                                        ULONG ulFlags, LPMDB* lppMDB) override {
    Call call(Name("OpenMsgStore"), this);
    const std::string_view bytes = AsBytes(lpEntryID, cbEntryID);
    call.Bytes("entry", bytes).Hex("flags", ulFlags).Out(lppMDB);
    if (lppMDB == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppMDB = nullptr;
    if (Fails(call)) {
      return call.Failure();
    }
    const std::optional<Entry> entry = ReadEntryId(bytes);
    if (!entry || entry->kind != 'S') {
      return call.Return(kInvalidEntryId);
    }
    *lppMDB = New<MsgStore>("IMsgStore");
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL OpenAddressBook(ULONG_PTR, LPCIID, ULONG ulFlags,
                                           LPADRBOOK* lppAdrBook) override {
    Call call(Name("OpenAddressBook"), this);
    call.Hex("flags", ulFlags).Out(lppAdrBook);
    if (lppAdrBook == nullptr) {
      return call.Return(kInvalidParameter);
    }
    *lppAdrBook = nullptr;
    if (Fails(call)) {
      return call.Failure();
    }
    *lppAdrBook = New<AddrBook>("IAddrBook");
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL Logoff(ULONG_PTR, ULONG ulFlags, ULONG) override {
    Call call(Name("Logoff"), this);
    call.Hex("flags", ulFlags);
    if (Fails(call)) {
      return call.Failure();
    }
    is_logged_off_ = true;
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL PrepareForm(LPCIID, LPMESSAGE lpMessage,
                                       FormToken* lpulMessageToken) override {
    Call call(Name("PrepareForm"), this);
    call.Object("message", lpMessage).Out(lpulMessageToken);
    if (lpMessage == nullptr || lpulMessageToken == nullptr) {
      return call.Return(kInvalidParameter);
    }
    if (Fails(call)) {
      return call.Failure();
    }
    Library& library = TheLibrary();
    if (!library.accounting.IsOfType(lpMessage, "IMessage") ||
        !library.accounting.IsAlive(lpMessage, Name("PrepareForm"))) {
      return call.Return(kInvalidParameter);
    }
    const auto token = static_cast<std::uint32_t>(library.forms.size() + 1);
    library.forms[token] = static_cast<MessageObject*>(lpMessage)->Open();
    // 32 bits of it, however much room there is: the headers that mail clients are built with
    // declare it so.
    std::memcpy(lpulMessageToken, &token, sizeof token);
    call.Hex("token", token);
    return call.Return(kOk);
  }

  HRESULT PLATFORM_STDCALL ShowForm(ULONG_PTR, LPMDB lpMsgStore, LPMAPIFOLDER lpParentFolder,
                                    LPCIID, FormToken ulMessageToken, LPMESSAGE lpMessageSent,
                                    ULONG ulFlags, ULONG ulMessageStatus, ULONG ulMessageFlags,
                                    ULONG ulAccess, LPSTR lpszMessageClass) override {
    Call call(Name("ShowForm"), this);
    call.Object("store", lpMsgStore)
        .Object("folder", lpParentFolder)
        .Hex("token", ulMessageToken)
        .Object("sent", lpMessageSent)
        .Hex("flags", ulFlags)
        .Hex("status", ulMessageStatus)
        .Hex("message-flags", ulMessageFlags)
        .Hex("access", ulAccess)
        .Arg("class", lpszMessageClass == nullptr ? "null" : lpszMessageClass);
    if (Fails(call)) {
      return call.Failure();
    }
    Library& library = TheLibrary();
    const bool has_objects = library.accounting.IsOfType(lpMsgStore, "IMsgStore") &&
                             library.accounting.IsOfType(lpParentFolder, "IMAPIFolder");
    // Compared in its whole width: a caller must have cleared the bits that nobody wrote.
    const auto form = ulMessageToken <= 0xFFFFFFFF
                          ? library.forms.find(static_cast<std::uint32_t>(ulMessageToken))
                          : library.forms.end();
    if (!has_objects || lpszMessageClass == nullptr || form == library.forms.end() ||
        form->second == nullptr) {
      return call.Return(kInvalidParameter);
    }
    // A token is good for one form.
    const std::shared_ptr<OpenMessage> open = std::exchange(form->second, nullptr);
    open->message.flags.push_back("IMAPISession::ShowForm " + sandbox_mapi::Hex(ulFlags));
    if (!library.mailbox.WriteDraft(open->message)) {
      return call.Return(kDiskError);
    }
    switch (library.config.form_answer) {
      case FormAnswer::kSent:
        return call.Return(SendMessageAway(*open));
      case FormAnswer::kCancelled:
        return call.Return(kUserCancel);
      case FormAnswer::kFailed:
        break;
    }
    return call.Return(Code(library.config.form_code));
  }

 private:
  [[nodiscard]] bool Fails(Call& call) const {
    if (call.Fails()) {
      return true;
    }
    return is_logged_off_ && call.FailWith(kEndOfSession);
  }

  HRESULT Other(REFIID riid, LPVOID* ppvObj) override {
    if (riid == Identifier(kIidClientShutdown) && TheLibrary().config.client_shutdown) {
      *ppvObj = static_cast<IMAPIClientShutdown*>(New<ClientShutdown>("IMAPIClientShutdown"));
      return kOk;
    }
    return kNoInterface;
  }

  bool is_logged_off_ = false;
};

}  // namespace

IMAPISession* NewSession() {
  return New<Session>("IMAPISession");
}
IProfAdmin* NewProfAdmin() {
  return New<ProfAdmin>("IProfAdmin");
}
IMAPIFormMgr* NewFormMgr() {
  return New<FormMgr>("IMAPIFormMgr");
}
IMAPITable* NewTable(std::vector<Properties> rows) {
  return New<Table>("IMAPITable", std::move(rows));
}

const std::vector<Properties>* RowsOf(IMAPITable* table) {
  Accounting& accounting = TheLibrary().accounting;
  if (!accounting.IsOfType(table, "IMAPITable") || !accounting.IsAlive(table, "HrQueryAllRows")) {
    return nullptr;
  }
  return &static_cast<Table*>(table)->Rows();
}

}  // namespace zentpost::sandbox_mapi
