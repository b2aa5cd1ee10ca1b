#include "fake_mapi/interfaces.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <utility>

#include "fake_mapi/call.h"
#include "fake_mapi/record.h"

namespace zentpost::fake_mapi {
namespace {

// Published: the beginnings of the interfaces' identifiers.
constexpr std::uint32_t kIidUnknown = 0x00000000;
constexpr std::uint32_t kIidSession = 0x00020300;
constexpr std::uint32_t kIidTable = 0x00020301;
constexpr std::uint32_t kIidProp = 0x00020303;
constexpr std::uint32_t kIidStore = 0x00020306;
constexpr std::uint32_t kIidMessage = 0x00020307;
constexpr std::uint32_t kIidAttachment = 0x00020308;
constexpr std::uint32_t kIidAddressBook = 0x00020309;
constexpr std::uint32_t kIidContainer = 0x0002030B;
constexpr std::uint32_t kIidFolder = 0x0002030C;
constexpr std::uint32_t kIidProfileAdministration = 0x0002031C;
constexpr std::uint32_t kIidFormManager = 0x00020322;
constexpr std::uint32_t kIidClientShutdown = 0x00020397;

constexpr ULONG kFolderType = 3;  // MAPI_FOLDER (mapidefs.h)

std::string_view AsBytes(const void* data, std::size_t size) {
  return data == nullptr ? std::string_view()
                         : std::string_view(static_cast<const char*>(data), size);
}

// --- values ---

// With `bytes` in it, unless they are null.
void* NewPart(Accounting& accounting, void* whole, const void* bytes, std::size_t size) {
  void* const part = accounting.AllocatePart(size, whole);
  if (part == nullptr) {
    std::abort();
  }
  if (bytes != nullptr) {
    std::memcpy(part, bytes, size);
  }
  return part;
}

void Fill(Accounting& accounting, void* whole, SPropValue* values, const Properties& properties) {
  for (const Property& property : properties) {
    SPropValue& value = *values++;
    std::memset(&value, 0, sizeof value);
    value.ulPropTag = property.tag;
    if (property.has_null) {
      continue;
    }
    switch (TypeOf(property.tag)) {
      case kString8:
        value.Value.lpszA = static_cast<char*>(
            NewPart(accounting, whole, property.bytes.c_str(), property.bytes.size() + 1));
        break;
      case kUnicode:
        value.Value.lpszW =
            static_cast<WideChar*>(NewPart(accounting, whole, property.text.c_str(),
                                           (property.text.size() + 1) * sizeof(WideChar)));
        break;
      case kBinary:
        value.Value.bin.cb = static_cast<ULONG>(property.bytes.size());
        value.Value.bin.lpb = static_cast<unsigned char*>(
            NewPart(accounting, whole, property.bytes.data(), property.bytes.size()));
        break;
      case kBoolean:
        value.Value.b = static_cast<unsigned short>(property.number);
        break;
      default:
        value.Value.l = property.number;
    }
  }
}

SPropValue* NewValues(Accounting& accounting, const Properties& properties,
                      const std::string& origin) {
  void* const whole = accounting.Allocate(properties.size() * sizeof(SPropValue), origin);
  if (whole != nullptr) {
    Fill(accounting, whole, static_cast<SPropValue*>(whole), properties);
  }
  return static_cast<SPropValue*>(whole);
}

// The values as the mail client keeps them, without the bytes of a document; nothing, and the
// caller broke the contract, when one is of no use.
std::optional<Properties> FromValues(Call& call, ULONG count, const SPropValue* values) {
  Properties properties;
  for (ULONG i = 0; values != nullptr && i < count; ++i) {
    const auto& value = values[i].Value;
    Property& property = properties.emplace_back();
    property.tag = static_cast<std::uint32_t>(values[i].ulPropTag);
    bool is_value = true;
    switch (TypeOf(property.tag)) {
      case kLong:
        property.number = value.l;
        break;
      case kBoolean:
        property.number = value.b;
        break;
      case kUnicode:
        property.text = FromWide(value.lpszW);
        is_value = value.lpszW != nullptr;
        break;
      case kString8:
        property.bytes = value.lpszA == nullptr ? "" : value.lpszA;
        is_value = value.lpszA != nullptr;
        break;
      case kBinary:
        is_value = value.bin.lpb != nullptr || value.bin.cb == 0;
        if (property.tag != Tag(kIdAttachData, kBinary)) {
          property.bytes = AsBytes(value.bin.lpb, value.bin.cb);
        }
        break;
      default:
        is_value = false;
    }
    if (!is_value) {
      call.Breach("with a value that nothing can have, " + LowerHex(property.tag, 8));
      return std::nullopt;
    }
  }
  return properties;
}

Properties ChosenBy(const Client& client, const Properties& all, const SPropTagArray* tags,
                    std::uint32_t text_type, bool& has_errors) {
  has_errors = false;
  if (client.values_as_they_stand) {
    return all;
  }
  std::vector<std::uint32_t> wanted;
  if (tags != nullptr) {
    const auto* const first = static_cast<const ULONG*>(tags->aulPropTag);
    wanted.assign(first, first + tags->cValues);
  }
  return all.Select(tags == nullptr ? nullptr : &wanted, text_type, has_errors);
}

// --- what all interfaces have ---

IMAPIClientShutdown* NewClientShutdown(Accounting& accounting);

// Nobody has an object but its callers, and no object keeps another one alive: so the accounts show
// the callers' references and no others.
class InterfaceObject : public Object {
 public:
  InterfaceObject(std::string_view interface_called, std::string_view called,
                  std::initializer_list<std::uint32_t> identifiers)
      : Object(interface_called, called), identifiers_(identifiers) {
    identifiers_.push_back(kIidUnknown);
  }

 protected:
  // The methods of every interface. `own` is the object as its callers know it.
  HRESULT Query(const GUID& id, void** place, void* own) {
    Call call(*this, "QueryInterface");
    call.Record({InterfaceOf(&id)});
    const bool is_own =
        std::any_of(identifiers_.begin(), identifiers_.end(),
                    [&](std::uint32_t identifier) { return id == InterfaceId(identifier); });
    if (!is_own && !(IsClientShutdown(id) && HasShutdown(call.Of()))) {
      call.Refuse(kNoInterface);
    }
    return call.Give(place, [&]() -> void* {
      if (!is_own || !call.Works()) {
        return NewClientShutdown(call.Accounts());
      }
      ++references;
      return own;
    });
  }

  ULONG Add() {
    Call call(*this, "AddRef");
    call.RecordInfallible({});
    return call.Count(references == 0 ? 0 : ++references);
  }

  ULONG GiveBack() {
    Call call(*this, "Release");
    call.RecordInfallible({});
    if (references == 1) {
      OnLastRelease(call);
    }
    return call.Count(references == 0 ? 0 : --references);
  }

  [[nodiscard]] virtual bool HasShutdown(const Client& /*client*/) const { return false; }
  virtual void OnLastRelease(Call& /*call*/) {}

 private:
  std::vector<std::uint32_t> identifiers_;
};

// `Methods` is what does not depend on the interface.
template <class Base, class Methods = InterfaceObject>
class ObjectOf : public Base, public Methods {
 public:
  ObjectOf(std::string_view interface_called, std::string_view called,
           std::initializer_list<std::uint32_t> identifiers)
      : Methods(interface_called, called, identifiers) {
    this->address = static_cast<IUnknown*>(static_cast<Base*>(this));
  }

  HRESULT PLATFORM_STDCALL QueryInterface(const GUID& id, void** place) override {
    return this->Query(id, place, static_cast<Base*>(this));
  }
  ULONG PLATFORM_STDCALL AddRef() override { return this->Add(); }
  ULONG PLATFORM_STDCALL Release() override { return this->GiveBack(); }
};

template <class Type, class... Arguments>
Type* New(Accounting& accounting, Arguments&&... arguments) {
  auto object = std::make_unique<Type>(std::forward<Arguments>(arguments)...);
  Type* const raw = object.get();
  accounting.Add(std::move(object));
  return raw;
}

class ClientShutdown final : public ObjectOf<IMAPIClientShutdown> {
 public:
  ClientShutdown() : ObjectOf("IMAPIClientShutdown", "client shutdown", {kIidClientShutdown}) {}

  HRESULT PLATFORM_STDCALL QueryFastShutdown() override { return Done("QueryFastShutdown"); }
  HRESULT PLATFORM_STDCALL DoFastShutdown() override { return Done("DoFastShutdown"); }
  NotifyResult PLATFORM_STDCALL NotifyProcessShutdown() override {
    return static_cast<NotifyResult>(Done("NotifyProcessShutdown"));
  }

 private:
  HRESULT Done(const char* method) {
    Call call(*this, method);
    call.Record({});
    return call.Result();
  }
};

IMAPIClientShutdown* NewClientShutdown(Accounting& accounting) {
  return New<ClientShutdown>(accounting);
}

// What all objects with properties have.
class ObjectWithProperties : public InterfaceObject {
 public:
  using InterfaceObject::InterfaceObject;

 protected:
  HRESULT Save(ULONG flags) {
    Call call(*this, "SaveChanges");
    call.Record({LowerHex(flags)});
    call.AllowFlags(flags, kSaveFlags);
    if (call.Works()) {
      OnSave(call, flags);
    }
    return call.Result();
  }

  HRESULT Get(SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** values) {
    Call call(*this, "GetProps");
    call.Record({TagsOf(tags), LowerHex(flags)});
    call.AllowFlags(flags, kUnicodeFlag);
    NeedTags(call, tags);
    Properties chosen;
    if (call.Works()) {
      bool has_errors = false;
      chosen = ChosenBy(call.Of(), Current(call.Of()), tags,
                        (flags & kUnicodeFlag) != 0 ? kUnicode : kString8, has_errors);
      call.Succeed(has_errors ? kErrorsReturned : kOk);
    }
    call.GiveNumber(count, static_cast<ULONG>(chosen.size()));
    return call.Give(
        values, [&] { return NewValues(call.Accounts(), chosen, interface_name + "::GetProps"); });
  }

  HRESULT SetAll(ULONG count, SPropValue* values, SPropProblemArray** problems) {
    Call call(*this, "SetProps");
    call.Record({std::to_string(count), ValuesOf(count, values), NullOr(problems)});
    call.Need(count == 0 ? nullptr : values, "values");
    const std::optional<Properties> properties = FromValues(call, count, values);
    if (call.Works()) {
      for (ULONG i = 0; i < count; ++i) {
        Set(call, (*properties)[i], values[i]);
      }
    }
    if (problems != nullptr) {
      *problems = nullptr;
    }
    return call.Result();
  }

  // All that GetProps can give.
  [[nodiscard]] virtual Properties Current(const Client& /*client*/) const { return {}; }
  virtual void OnSave(Call& call, ULONG /*flags*/) { call.Refuse(kNoSupport); }
  // `value` has what `property` lacks: a document's bytes.
  virtual void Set(Call& call, const Property& /*property*/, const SPropValue& /*value*/) {
    call.Refuse(kNoSupport);
  }
};

template <class Base>
class PropertyObject : public ObjectOf<Base, ObjectWithProperties> {
 public:
  using ObjectOf<Base, ObjectWithProperties>::ObjectOf;

  HRESULT PLATFORM_STDCALL SaveChanges(ULONG flags) override { return this->Save(flags); }
  HRESULT PLATFORM_STDCALL GetProps(SPropTagArray* tags, ULONG flags, ULONG* count,
                                    SPropValue** values) override {
    return this->Get(tags, flags, count, values);
  }
  HRESULT PLATFORM_STDCALL SetProps(ULONG count, SPropValue* values,
                                    SPropProblemArray** problems) override {
    return this->SetAll(count, values, problems);
  }
};

// --- tables, profiles ---

class Table final : public ObjectOf<TableBase> {
 public:
  Table(std::string_view called, std::vector<Properties> holding)
      : ObjectOf("IMAPITable", called, {kIidTable}), rows(std::move(holding)) {}

  const std::vector<Properties> rows;
};

class ProfileAdministration final : public ObjectOf<ProfAdminBase> {
 public:
  ProfileAdministration()
      : ObjectOf("IProfAdmin", "profile administration", {kIidProfileAdministration}) {}

  HRESULT PLATFORM_STDCALL GetProfileTable(ULONG flags, IMAPITable** table) override {
    Call call(*this, "GetProfileTable");
    call.Record({LowerHex(flags)});
    call.AllowFlags(flags, kNoFlags);
    return call.Give(
        table, [&] { return New<Table>(call.Accounts(), "profile table", call.Of().profiles); });
  }
};

class FormManager final : public ObjectOf<FormMgrBase> {
 public:
  FormManager() : ObjectOf("IMAPIFormMgr", "form manager", {kIidFormManager}) {}
};

// --- messages ---

using SharedMessage = std::shared_ptr<Message>;

void Note(Message& message, const char* call, ULONG flags) {
  message.flags.push_back(std::string(call) + ' ' + LowerHex(flags, 8));
}

std::string EntryIdOf(const Client& client, const Message& message) {
  const Property* const prepares = client.message_values.Find(kIdEntryId);
  return prepares != nullptr ? prepares->bytes : message.entry_id;
}

enum class FolderKind { kOutbox, kSentItems };

std::optional<FolderKind> FolderOf(const Client& client, std::string_view entry_id) {
  for (const Property& property : client.store_values) {
    if (!entry_id.empty() && property.bytes == entry_id) {
      if (IdOf(property.tag) == kIdOutboxEntryId) {
        return FolderKind::kOutbox;
      }
      if (IdOf(property.tag) == kIdSentItemsEntryId) {
        return FolderKind::kSentItems;
      }
    }
  }
  return std::nullopt;
}

// Sends the message into the folder that it names. Without one it stays where it was.
void SendAway(Call& call, Message& message) {
  const Property* const named = message.properties.Find(kIdSentMailEntryId);
  const std::optional<FolderKind> folder =
      named == nullptr ? FolderKind::kOutbox : FolderOf(call.Of(), named->bytes);
  if (!folder) {
    call.Breach("of a message whose PR_SENTMAIL_ENTRYID is no folder's", kInvalidEntryId);
  } else if (!call.Inside().storage->Send(message, *folder == FolderKind::kOutbox)) {
    call.Refuse(kDiskError);
  } else {
    message.is_sent = true;
    message.is_in_outbox = *folder == FolderKind::kOutbox;
  }
}

class AttachmentObject final : public PropertyObject<AttachBase> {
 public:
  AttachmentObject(SharedMessage message, std::size_t index)
      : PropertyObject("IAttach", "attachment", {kIidProp, kIidAttachment}),
        message_(std::move(message)),
        index_(index) {}

 private:
  [[nodiscard]] Attachment& Data() const { return message_->attachments[index_]; }
  [[nodiscard]] Properties Current(const Client& /*client*/) const override {
    return Data().properties;
  }
  void OnSave(Call& /*call*/, ULONG flags) override {
    Note(*message_, "IAttach::SaveChanges", flags);
    Data().saved = true;
  }
  void Set(Call& call, const Property& property, const SPropValue& value) override {
    Property kept = property;
    if (property.tag == Tag(kIdAttachData, kBinary) &&
        !call.Inside().storage->KeepDocument(
            *message_, Data(), AsBytes(value.Value.bin.lpb, value.Value.bin.cb), kept)) {
      call.Refuse(kDiskError);
      return;
    }
    Data().properties.Set(std::move(kept));
  }

  SharedMessage message_;
  std::size_t index_;
};

class MessageObject final : public PropertyObject<MessageBase> {
 public:
  explicit MessageObject(SharedMessage data)
      : PropertyObject("IMessage", "message", {kIidProp, kIidMessage}), message(std::move(data)) {}

  HRESULT PLATFORM_STDCALL CreateAttach(const GUID* id, ULONG flags, ULONG* number,
                                        IAttach** attachment) override {
    Call call(*this, "CreateAttach");
    call.Record({InterfaceOf(id), LowerHex(flags)});
    call.AllowFlags(flags, kCreateAttachFlags);
    const std::size_t index = message->attachments.size();
    if (call.Works()) {
      message->attachments.push_back(
          {.number = static_cast<std::uint32_t>(index), .create_flags = flags});
    }
    call.GiveNumber(number, static_cast<ULONG>(index));
    return call.Give(attachment,
                     [&] { return New<AttachmentObject>(call.Accounts(), message, index); });
  }

  HRESULT PLATFORM_STDCALL ModifyRecipients(ULONG flags, ADRLIST* list) override {
    Call call(*this, "ModifyRecipients");
    call.Record({LowerHex(flags), ListOf(list)});
    call.AllowFlags(flags, kModifyRecipientsFlags);
    call.Need(list, "a list");
    if ((flags & ~kModifyRecipientsAdd) != 0) {
      call.Refuse(kNoSupport);
    }
    std::vector<Properties> recipients;
    for (ULONG i = 0; call.Works() && i < list->cEntries; ++i) {
      const ADRENTRY& entry = list->aEntries[i];
      const std::optional<Properties> given = FromValues(call, entry.cValues, entry.rgPropVals);
      if (given &&
          (given->Find(kIdRecipientType) == nullptr || given->Find(kIdDisplayName) == nullptr)) {
        call.Breach("with a recipient that lacks its name or its type");
      }
      recipients.push_back(given.value_or(Properties()));
    }
    if (call.Works()) {
      Note(*message, "IMessage::ModifyRecipients", flags);
      if (flags == 0) {
        message->recipients.clear();
      }
      message->recipients.insert(message->recipients.end(), recipients.begin(), recipients.end());
    }
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL SubmitMessage(ULONG flags) override {
    Call call(*this, "SubmitMessage");
    call.Record({LowerHex(flags)});
    call.AllowFlags(flags, kSubmitFlags);
    if (message->recipients.empty() && call.Of().needs_recipients) {
      call.Refuse(kNoRecipients);
    }
    RefuseWhenSent(call);
    if (call.Works()) {
      Note(*message, "IMessage::SubmitMessage", flags);
      SendAway(call, *message);
    }
    return call.Result();
  }

  const SharedMessage message;

 private:
  [[nodiscard]] Properties Current(const Client& client) const override {
    if (client.values_as_they_stand) {
      return client.message_values;
    }
    Properties properties = message->properties;
    const auto add_missing = [&](const Property& property) {
      if (properties.Find(IdOf(property.tag)) == nullptr) {
        properties.push_back(property);
      }
    };
    for (const Property& property : client.message_values) {
      if (IdOf(property.tag) != kIdEntryId || message->is_saved) {
        add_missing(property);
      }
    }
    if (message->is_saved) {
      add_missing(Bytes(Tag(kIdEntryId, kBinary), message->entry_id));
    }
    add_missing(Number(Tag(kIdMessageFlags, kLong),
                       message->is_sent ? kMessageFlagSubmit : kMessageFlagUnsent));
    add_missing(Number(Tag(kIdMessageStatus, kLong), client.message_status));
    add_missing(Number(Tag(kIdAccess, kLong), kAccessAll));
    return properties;
  }

  void OnSave(Call& call, ULONG flags) override {
    RefuseWhenSent(call);
    if (call.Works()) {
      Note(*message, "IMessage::SaveChanges", flags);
      if (!call.Inside().storage->Save(*message)) {
        call.Refuse(kDiskError);
      } else {
        message->is_saved = true;
      }
    }
  }

  void Set(Call& /*call*/, const Property& property, const SPropValue& /*value*/) override {
    message->properties.Set(property);
  }

  // What was never saved is gone with its last reference.
  void OnLastRelease(Call& call) override {
    if (!message->is_saved && !message->is_sent) {
      call.Inside().storage->Discard(*message);
    }
  }

  void RefuseWhenSent(Call& call) const {
    if (message->is_sent) {
      call.Refuse(kInvalidObject);
    }
  }
};

// --- stores ---

class Folder final : public PropertyObject<FolderBase> {
 public:
  explicit Folder(FolderKind kind)
      : PropertyObject("IMAPIFolder", kind == FolderKind::kOutbox ? "outbox" : "sent items",
                       {kIidProp, kIidContainer, kIidFolder}),
        kind_(kind) {}

  HRESULT PLATFORM_STDCALL CreateMessage(const GUID* id, ULONG flags, IMessage** message) override {
    Call call(*this, "CreateMessage");
    call.Record({InterfaceOf(id), LowerHex(flags)});
    call.AllowFlags(flags, kCreateMessageFlags);
    if (kind_ != FolderKind::kOutbox) {
      call.Refuse(kNoSupport);
    }
    const auto created = std::make_shared<Message>();
    if (call.Works() && !call.Inside().storage->Create(*created)) {
      call.Refuse(kDiskError);
    }
    if (call.Works()) {
      Note(*created, "IMAPIFolder::CreateMessage", flags);
      call.Inside().messages.push_back(created);
    }
    return call.Give(message, [&] { return New<MessageObject>(call.Accounts(), created); });
  }

  HRESULT PLATFORM_STDCALL GetMessageStatus(ULONG size, ENTRYID* entry_id, ULONG flags,
                                            ULONG* status) override {
    Call call(*this, "GetMessageStatus");
    call.Record({BytesOf(size, entry_id), LowerHex(flags)});
    call.NeedBytes(size, entry_id);
    call.AllowFlags(flags, kNoFlags);
    if (!HasMessage(call, AsBytes(entry_id, size))) {
      call.Refuse(kInvalidEntryId);
    }
    return call.GiveNumber(status, static_cast<ULONG>(call.Of().message_status));
  }

 private:
  [[nodiscard]] bool HasMessage(Call& call, std::string_view entry_id) const {
    const auto& messages = call.Inside().messages;
    return std::any_of(messages.begin(), messages.end(), [&](const SharedMessage& message) {
      return message->is_saved && message->is_in_outbox == (kind_ == FolderKind::kOutbox) &&
             EntryIdOf(call.Of(), *message) == entry_id;
    });
  }

  FolderKind kind_;
};

class Store final : public PropertyObject<MsgStoreBase> {
 public:
  Store() : PropertyObject("IMsgStore", "store", {kIidProp, kIidStore}) {}

  HRESULT PLATFORM_STDCALL OpenEntry(ULONG size, ENTRYID* entry_id, const GUID* id, ULONG flags,
                                     ULONG* type, IUnknown** entry) override {
    Call call(*this, "OpenEntry");
    call.Record({BytesOf(size, entry_id), InterfaceOf(id), LowerHex(flags)});
    call.NeedBytes(size, entry_id);
    call.AllowFlags(flags, kOpenEntryFlags);
    const std::optional<FolderKind> folder = FolderOf(call.Of(), AsBytes(entry_id, size));
    if (!folder) {
      call.Refuse(kInvalidEntryId);
    }
    call.GiveNumber(type, kFolderType);
    return call.Give(entry, [&]() -> IMAPIFolder* {
      return New<Folder>(call.Accounts(), folder.value_or(FolderKind::kOutbox));
    });
  }

 private:
  [[nodiscard]] Properties Current(const Client& client) const override {
    return client.store_values;
  }
};

class AddressBook final : public PropertyObject<AddrBookBase> {
 public:
  AddressBook() : PropertyObject("IAddrBook", "address book", {kIidProp, kIidAddressBook}) {}

  HRESULT PLATFORM_STDCALL CreateOneOff(WideChar* display_name, WideChar* type,
                                        WideChar* mail_address, ULONG flags, ULONG* size,
                                        ENTRYID** entry_id) override {
    const bool is_wide = (flags & kUnicodeFlag) != 0;
    Call call(*this, "CreateOneOff");
    call.Record({TextOf(display_name, is_wide), TextOf(type, is_wide),
                 TextOf(mail_address, is_wide), LowerHex(flags)});
    call.Need(type, "a type");
    call.Need(mail_address, "an address");
    call.AllowFlags(flags, kOneOffFlags);
    const std::string bytes = call.Of().one_off.value_or(
        OneOffEntryId({FromText(display_name, is_wide), FromText(type, is_wide),
                       FromText(mail_address, is_wide)}));
    if (call.Works()) {
      call.Inside().one_offs.push_back(bytes);
    }
    call.GiveNumber(size, static_cast<ULONG>(bytes.size()));
    return call.Give(entry_id, [&] {
      void* const block = call.Accounts().Allocate(bytes.size(), "IAddrBook::CreateOneOff");
      if (block != nullptr) {
        std::memcpy(block, bytes.data(), bytes.size());
      }
      return static_cast<ENTRYID*>(block);
    });
  }

  // The book is empty: it knows who comes with an entry that it has made, and nobody else.
  HRESULT PLATFORM_STDCALL ResolveName(ULONG_PTR window, ULONG flags, WideChar* title,
                                       ADRLIST* list) override {
    Call call(*this, "ResolveName");
    call.Record({std::to_string(window), LowerHex(flags),
                 TextOf(title, (flags & kUnicodeFlag) != 0), ListOf(list)});
    call.AllowFlags(flags, kResolveNameFlags);
    call.Need(list, "a list");
    for (ULONG i = 0; call.Works() && i < list->cEntries; ++i) {
      ADRENTRY& entry = list->aEntries[i];
      // They are the client's to replace.
      if (call.Accounts().SizeOf(entry.rgPropVals) < entry.cValues * sizeof(SPropValue)) {
        call.Breach("with values that have no block of their own");
      }
      const std::optional<Properties> values = FromValues(call, entry.cValues, entry.rgPropVals);
      const Property* const entry_id = values ? values->Find(kIdEntryId) : nullptr;
      const auto& known = call.Inside().one_offs;
      if (entry_id == nullptr ||
          std::find(known.begin(), known.end(), entry_id->bytes) == known.end()) {
        call.Refuse(kNotFound);
      } else if (call.Works() && call.Of().resolving_moves_entries) {
        SPropValue* const moved = NewValues(call.Accounts(), *values, "IAddrBook::ResolveName");
        call.Accounts().Free(entry.rgPropVals, "IAddrBook::ResolveName");
        entry.rgPropVals = moved;
      }
    }
    return call.Result();
  }
};

// --- the session ---

class Session final : public ObjectOf<SessionBase> {
 public:
  Session() : ObjectOf("IMAPISession", "session", {kIidSession}) {}

  HRESULT PLATFORM_STDCALL GetMsgStoresTable(ULONG flags, IMAPITable** table) override {
    Call call(*this, "GetMsgStoresTable");
    Record(call, {LowerHex(flags)});
    call.AllowFlags(flags, kUnicodeFlag);
    return call.Give(table,
                     [&] { return New<Table>(call.Accounts(), "store table", call.Of().stores); });
  }

  HRESULT PLATFORM_STDCALL OpenMsgStore(ULONG_PTR window, ULONG size, ENTRYID* entry_id,
                                        const GUID* id, ULONG flags, IMsgStore** store) override {
    Call call(*this, "OpenMsgStore");
    Record(call,
           {std::to_string(window), BytesOf(size, entry_id), InterfaceOf(id), LowerHex(flags)});
    call.NeedBytes(size, entry_id);
    call.AllowFlags(flags, kOpenStoreFlags);
    const auto& stores = call.Of().stores;
    if (std::none_of(stores.begin(), stores.end(), [&](const Properties& row) {
          const Property* const known = row.Find(kIdEntryId);
          return known != nullptr && known->bytes == AsBytes(entry_id, size);
        })) {
      call.Refuse(kInvalidEntryId);
    }
    return call.Give(store, [&] { return New<Store>(call.Accounts()); });
  }

  HRESULT PLATFORM_STDCALL OpenAddressBook(ULONG_PTR window, const GUID* id, ULONG flags,
                                           IAddrBook** book) override {
    Call call(*this, "OpenAddressBook");
    Record(call, {std::to_string(window), InterfaceOf(id), LowerHex(flags)});
    call.AllowFlags(flags, kAddressBookFlags);
    return call.Give(book, [&] { return New<AddressBook>(call.Accounts()); });
  }

  HRESULT PLATFORM_STDCALL Logoff(ULONG_PTR window, ULONG flags, ULONG reserved) override {
    Call call(*this, "Logoff");
    Record(call, {std::to_string(window), LowerHex(flags), std::to_string(reserved)});
    call.AllowFlags(flags, kLogoffFlags);
    if (reserved != 0) {
      call.Breach("with a reserved number");
    }
    is_logged_off_ = is_logged_off_ || call.Works();
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL PrepareForm(const GUID* id, IMessage* message,
                                       FormToken* token) override {
    Call call(*this, "PrepareForm");
    Record(call, {InterfaceOf(id), call.Accounts().NameOfObject(message)});
    const Object* const object = call.NeedObject(message, "IMessage");
    const Client& client = call.Of();
    auto& forms = call.Inside().forms;
    const auto wide = static_cast<FormToken>(client.form_token + forms.size());
    const auto narrow = static_cast<std::uint32_t>(wide);
    if (call.Works()) {
      forms[client.has_narrow_token ? narrow : wide] =
          static_cast<const MessageObject*>(object)->message;
    }
    if (client.has_narrow_token) {
      call.GiveNumber(token, narrow);
    } else {
      call.GiveNumber(token, wide);
    }
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL ShowForm(ULONG_PTR window, IMsgStore* store, IMAPIFolder* folder,
                                    const GUID* id, FormToken token, IMessage* sent, ULONG flags,
                                    ULONG message_status, ULONG message_flags, ULONG access,
                                    char* message_class) override {
    Call call(*this, "ShowForm");
    const Accounting& accounts = call.Accounts();
    Record(call, {std::to_string(window), accounts.NameOfObject(store),
                  accounts.NameOfObject(folder), InterfaceOf(id), LowerHex(token),
                  accounts.NameOfObject(sent), LowerHex(flags), LowerHex(message_status),
                  LowerHex(message_flags), LowerHex(access), TextOf(message_class)});
    call.NeedObject(store, "IMsgStore");
    call.NeedObject(folder, "IMAPIFolder");
    call.Need(message_class, "a message class");
    call.AllowFlags(flags, kShowFormFlags);
    // In its whole width: a caller must have cleared the bits that nobody wrote.
    const auto form = call.Inside().forms.find(token);
    if (form == call.Inside().forms.end() || form->second == nullptr) {
      call.Refuse(kInvalidParameter);
    }
    if (call.Works()) {
      // A token is good for one form.
      Show(call, *std::exchange(form->second, nullptr), flags);
    }
    return call.Result();
  }

 private:
  void Record(Call& call, Call::Arguments arguments) const {
    call.Record(arguments);
    if (is_logged_off_) {
      call.Refuse(kEndOfSession);
    }
  }

  static void Show(Call& call, Message& message, ULONG flags) {
    Note(message, "IMAPISession::ShowForm", flags);
    const std::int32_t answer = call.Of().form_answer;
    if (!call.Inside().storage->Show(message)) {
      call.Refuse(kDiskError);
    } else if (answer == 0) {
      SendAway(call, message);
    } else if (answer < 0) {
      call.Refuse(answer);
    } else {
      call.Succeed(answer);
    }
  }

  [[nodiscard]] bool HasShutdown(const Client& client) const override {
    return client.has_shutdown;
  }

  bool is_logged_off_ = false;
};

}  // namespace

IProfAdmin* NewProfileAdministration(Client& client) {
  return New<ProfileAdministration>(client.Inside().accounting);
}
IMAPISession* NewSession(Client& client) {
  return New<Session>(client.Inside().accounting);
}
IMAPIFormMgr* NewFormManager(Client& client) {
  return New<FormManager>(client.Inside().accounting);
}
IMsgStore* NewStore(Client& client) {
  return New<Store>(client.Inside().accounting);
}
IMAPIFolder* NewOutbox(Client& client) {
  return New<Folder>(client.Inside().accounting, FolderKind::kOutbox);
}
IMessage* NewMessage(Client& client) {
  auto message = std::make_shared<Message>();
  message->is_saved = client.Inside().storage->Create(*message);
  client.Inside().messages.push_back(message);
  return New<MessageObject>(client.Inside().accounting, std::move(message));
}

void NeedTags(Call& call, const SPropTagArray* tags) {
  if (tags != nullptr && tags->cValues == 0) {
    call.Breach("for no tag at all");
  }
}

SRowSet* NewRows(Call& call, const Object* table, const SPropTagArray* tags, std::size_t most) {
  const std::vector<Properties> no_rows;
  const auto& rows = call.Works() ? static_cast<const Table*>(table)->rows : no_rows;
  const std::size_t count = most != 0 ? std::min(most, rows.size()) : rows.size();
  Accounting& accounting = call.Accounts();
  void* const whole = accounting.AllocateRows(
      offsetof(SRowSet, aRow) + std::max<std::size_t>(count, 1) * sizeof(SRow),
      table != nullptr ? table->name : "table");
  if (whole == nullptr) {
    return nullptr;
  }
  auto* const set = static_cast<SRowSet*>(whole);
  set->cRows = static_cast<ULONG>(count);
  SRow* row = set->aRow;
  for (std::size_t i = 0; i < count; ++i, ++row) {
    bool has_errors = false;  // told by the values alone
    const Properties chosen = ChosenBy(call.Of(), rows[i], tags, kUnicode, has_errors);
    auto* const values = static_cast<SPropValue*>(
        NewPart(accounting, whole, nullptr, chosen.size() * sizeof(SPropValue)));
    Fill(accounting, whole, values, chosen);
    *row = {0, static_cast<ULONG>(chosen.size()), call.Of().rows_lack_values ? nullptr : values};
  }
  return set;
}

}  // namespace zentpost::fake_mapi
