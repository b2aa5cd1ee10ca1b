#include "testing/fake_mapi.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "testing/text_printers.h"

namespace zentpost::test {

namespace {

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer sees more than guards and kept blocks would.
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Stands on both sides of a block; room enough keeps the block aligned for any type.
constexpr std::size_t kGuardSize = kSanitized ? 0 : alignof(std::max_align_t);
constexpr unsigned char kGuardByte = 0xA5;
constexpr unsigned char kFreshByte = 0xCD;
constexpr unsigned char kFreedByte = 0xDD;

constexpr char kPart[] = "a part of ";

constexpr char16_t kLibraryPath[] = u"C:\\Windows\\system32\\mapi32.dll";
constexpr std::uint32_t kFolderType = 3;  // MAPI_FOLDER (mapidefs.h)

struct Block {
  std::string name;
  std::string origin;
  std::size_t size = 0;
  bool is_rows = false;
  bool freed = false;
  std::vector<void*> parts{};  // blocks that end with this one
  std::size_t place = 0;       // among all blocks, in the order in which they came
};

// An interface of the library's as the books know it. It exists as long as the library, so that a
// call on one that was released is a complaint and nothing worse.
struct Object {
  Object(MapiState& of, std::string_view interface, std::string_view called)
      : state(of), interface_name(interface), name(called) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  MapiState& state;
  std::string interface_name;
  std::string name;
  std::uint32_t references = 1;
  const void* address = nullptr;  // as the code under test knows it
};

struct PlannedAnswer {
  std::string name;
  std::size_t calls_before;
  HRESULT result;
  bool gives;
  FakeMapi::FaultMode mode;
};

}  // namespace

struct MapiState {
  explicit MapiState(FakeMapi& furnished) : fake(furnished) {}

  FakeMapi& fake;
  std::vector<std::unique_ptr<Object>> objects;
  std::map<void*, Block> blocks;
  std::size_t last_block = 0;  // its number
  std::size_t last_place = 0;
  std::vector<PlannedAnswer> answers;
  std::vector<std::string> calls;
  std::vector<std::string> complaints;
  std::vector<std::string> saved_attachments;

  void Complain(const std::string& complaint) { complaints.push_back(complaint); }
};

namespace {

MapiState* library = nullptr;

// --- texts ---

std::string Hex(std::uint64_t number) {
  char text[24];
  static_cast<void>(
      std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(number)));
  return text;
}

std::string TagText(std::uint32_t tag) {
  char text[16];
  static_cast<void>(std::snprintf(text, sizeof(text), "0x%08x", tag));
  return text;
}

std::string WideText(const char16_t* text) {
  return text == nullptr ? "null" : "\"" + Readable(text) + "\"";
}

std::string NarrowText(const char* text) {
  return text == nullptr ? "null" : "\"" + std::string(text) + "\"";
}

std::string BinaryText(std::uint32_t size, const void* bytes) {
  std::string text = std::to_string(size) + " bytes";
  if (bytes == nullptr) {
    return text + " at null";
  }
  if (size > 0) {
    text += " ";
  }
  for (std::uint32_t i = 0; i < size; ++i) {
    char digits[4];
    static_cast<void>(
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<const unsigned char*>(bytes)[i]));
    text += digits;
  }
  return text;
}

std::string PropertyText(const SPropValue& value) {
  const std::string tag = TagText(value.ulPropTag) + " ";
  switch (PROP_TYPE(value.ulPropTag)) {
    case PT_LONG:
      return tag + std::to_string(value.Value.l);
    case PT_BOOLEAN:
      return tag + std::to_string(value.Value.b);
    case PT_ERROR:
      return tag + Hex(static_cast<std::uint32_t>(value.Value.err));
    case PT_STRING8:
      return tag + NarrowText(value.Value.lpszA);
    case PT_UNICODE:
      return tag + WideText(value.Value.lpszW);
    case PT_BINARY:
      return tag + BinaryText(value.Value.bin.cb, value.Value.bin.lpb);
    default:
      return tag + "of another type";
  }
}

std::string ValuesText(std::uint32_t count, const SPropValue* values) {
  if (values == nullptr) {
    return "null";
  }
  std::string text = "[";
  for (std::uint32_t i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ", ") + PropertyText(values[i]);
  }
  return text + "]";
}

std::string TagsText(const SPropTagArray* tags) {
  if (tags == nullptr) {
    return "null";
  }
  // More of them than the published type says stand behind the first.
  const auto* numbers = reinterpret_cast<const std::uint32_t*>(tags);
  std::string text = "[";
  for (std::uint32_t i = 0; i < numbers[0]; ++i) {
    text += (i == 0 ? "" : ", ") + TagText(numbers[1 + i]);
  }
  return text + "]";
}

std::string ListText(const ADRLIST* list) {
  if (list == nullptr) {
    return "null";
  }
  std::string text = "[";
  for (std::uint32_t i = 0; i < list->cEntries; ++i) {
    const ADRENTRY& entry = list->aEntries[i];
    text += (i == 0 ? "" : ", ") + std::to_string(entry.cValues) + " " +
            ValuesText(entry.cValues, entry.rgPropVals);
  }
  return text + "]";
}

std::string InterfaceIdText(const GUID* id) {
  if (id == nullptr) {
    return "null";
  }
  return *id == IID_IMAPIClientShutdown ? "IMAPIClientShutdown" : "another interface";
}

std::string NullOr(const void* pointer) {
  return pointer == nullptr ? "null" : "not null";
}

std::string ObjectText(const MapiState& state, const void* interface) {
  if (interface == nullptr) {
    return "null";
  }
  for (const auto& object : state.objects) {
    if (object->address == interface) {
      return object->name + (object->references == 0 ? " (released)" : "");
    }
  }
  return "an unknown object";
}

std::string BlockText(const MapiState& state, const void* block) {
  if (block == nullptr) {
    return "null";
  }
  const auto found = state.blocks.find(const_cast<void*>(block));
  return found == state.blocks.end() ? "an unknown block" : found->second.name;
}

// Puts what was just handed out among what is gone, as whoever uses it then learns.
void TurnIntoGarbage(MapiState& state, void* address);

// --- one call ---

class Call {
 public:
  explicit Call(std::string_view function) : state_(*library), name_(function) {}

  Call(Object& object, std::string_view method)
      : state_(object.state), name_(object.interface_name) {
    name_.append("::").append(method);
    if (object.references == 0) {
      state_.Complain(name_ + " on the released " + object.name);
    }
  }

  // Records it as one that cannot fail.
  void Record(std::initializer_list<std::string> arguments) {
    const std::string text = CallText(arguments);
    state_.calls.push_back(text);
    call_.Record(text);
  }

  // Records it as one that can. True: it is to do nothing but give Result.
  bool Fails(std::initializer_list<std::string> arguments) {
    const std::string text = CallText(arguments);
    state_.calls.push_back(text);
    const platform::Status fault = call_.RecordFallible(text);
    for (PlannedAnswer& answer : state_.answers) {
      if (answer.name != name_) {
        continue;
      }
      const bool is_meant =
          answer.calls_before == 0 ||
          (answer.calls_before == kTaken && answer.mode == FakeMapi::FaultMode::kFromThere);
      if (is_meant) {
        result_ = answer.result;
        gives_ = answer.gives;
        answer.calls_before = kTaken;
      } else if (answer.calls_before != kTaken) {
        --answer.calls_before;
      }
    }
    if (fault != platform::kSuccess) {
      constexpr std::uint32_t kFailureBit = 0x80000000;
      constexpr std::uint32_t kFromWin32 = 0x80070000;
      result_ = MakeResult((fault & kFailureBit) != 0 ? fault : kFromWin32 | (fault & 0xffff));
    }
    return result_ < 0;
  }

  [[nodiscard]] HRESULT Result() const { return result_; }

  // Whether there is something to hand out, and a place for it.
  [[nodiscard]] bool GivesTo(const void* place) {
    if (place == nullptr) {
      state_.Complain(name_ + " without a place for its result");
    }
    return gives_ && place != nullptr;
  }

  // Hands out what `make` gives, or null; a failing call garbage of the same kind, or nothing.
  template <class Place, class Make>
  void Give(Place** place, const Make& make) {
    if (result_ < 0) {
      if (LeavesGarbageIn(place)) {
        const std::size_t last_block = state_.last_block;
        *place = make();
        TurnIntoGarbage(state_, *place);
        state_.last_block = last_block;
      }
    } else if (GivesTo(place)) {
      *place = make();
    } else if (place != nullptr) {
      *place = nullptr;
    }
  }

  // Gives `number`; a failing call garbage, or nothing.
  template <class Number>
  void GiveNumber(void* place, Number number) {
    if (result_ < 0) {
      if (LeavesGarbageIn(place)) {
        std::memset(place, kFreedByte, sizeof(number));
      }
    } else if (GivesTo(place)) {
      std::memcpy(place, &number, sizeof(number));
    }
  }

  // Makes a call that has not failed yet fail after all, without anything to hand out.
  void Refuse(void** place, HRESULT result) {
    if (result_ >= 0) {
      *place = nullptr;
      result_ = result;
    }
  }

 private:
  static constexpr std::size_t kTaken = static_cast<std::size_t>(-1);

  [[nodiscard]] bool LeavesGarbageIn(const void* place) const {
    return state_.fake.failures_leave_garbage && place != nullptr;
  }

  std::string CallText(std::initializer_list<std::string> arguments) const {
    std::string text = name_ + "(";
    const char* separator = "";
    for (const std::string& argument : arguments) {
      text += separator + argument;
      separator = ", ";
    }
    return text + ")";
  }

  // First in and last out: everything else here is the library's doing.
  platform::fake::LibraryCall call_;
  MapiState& state_;
  std::string name_;
  HRESULT result_ = S_OK;
  bool gives_ = true;
};

// --- blocks ---

unsigned char* Start(void* block) {
  return static_cast<unsigned char*>(block) - kGuardSize;
}

void* NewBlock(MapiState& state, std::size_t size, std::string name, std::string origin) {
  auto* start =
      static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(size + 2 * kGuardSize, 1)));
  if (start == nullptr) {
    std::abort();
  }
  std::memset(start, kGuardByte, kGuardSize);
  std::memset(start + kGuardSize, kFreshByte, size);
  std::memset(start + kGuardSize + size, kGuardByte, kGuardSize);
  void* const block = start + kGuardSize;
  state.blocks[block] = {.name = std::move(name),
                         .origin = std::move(origin),
                         .size = size,
                         .place = ++state.last_place};
  return block;
}

void* NewNumberedBlock(MapiState& state, std::size_t size, std::string_view origin) {
  return NewBlock(state, size, "block " + std::to_string(++state.last_block), std::string(origin));
}

void* NewPart(MapiState& state, void* whole, const void* bytes, std::size_t size) {
  const Block& of = state.blocks[whole];
  const std::string name = kPart + of.name;
  void* const part = NewBlock(state, size, name, of.origin);
  if (size > 0) {
    std::memcpy(part, bytes, size);
  }
  state.blocks[whole].parts.push_back(part);
  return part;
}

bool IsAll(const unsigned char* bytes, std::size_t size, unsigned char expected) {
  return std::all_of(bytes, bytes + size, [&](unsigned char byte) { return byte == expected; });
}

void CheckGuards(MapiState& state, void* address, const Block& block) {
  const unsigned char* const start = Start(address);
  if (!IsAll(start, kGuardSize, kGuardByte)) {
    state.Complain(block.name + " of " + block.origin + ": written before its beginning");
  }
  if (!IsAll(start + kGuardSize + block.size, kGuardSize, kGuardByte)) {
    state.Complain(block.name + " of " + block.origin + ": written beyond its end");
  }
}

// Frees a block that stands alone or is a part of another.
void EndBlock(MapiState& state, void* address) {
  Block& block = state.blocks[address];
  CheckGuards(state, address, block);
  for (void* const part : block.parts) {
    EndBlock(state, part);
  }
  block.freed = true;
  if (kSanitized) {
    std::free(Start(address));
  } else {
    // Kept until the end, so that nobody gets it again and late writing is seen.
    std::memset(address, kFreedByte, block.size);
  }
}

void FreeBlock(MapiState& state, void* address, std::string_view function, bool as_rows = false) {
  if (address == nullptr) {
    return;
  }
  const auto found = state.blocks.find(address);
  const std::string by = std::string(function);
  if (found == state.blocks.end()) {
    state.Complain(by + " of a block that is not the library's");
  } else if (found->second.freed) {
    state.Complain(by + " of " + found->second.name + ", which is freed already");
  } else if (found->second.is_rows != as_rows || found->second.name.starts_with(kPart)) {
    state.Complain(by + " of " + found->second.name);
  } else {
    EndBlock(state, address);
  }
}

void TurnIntoGarbage(MapiState& state, void* address) {
  if (state.blocks.contains(address)) {
    Block& block = state.blocks[address];
    block.name = "garbage of " + block.origin;
    EndBlock(state, address);
  } else {
    Object& object = *state.objects.back();
    object.name = "garbage " + object.name;
    object.references = 0;
  }
}

void FillValues(MapiState& state, void* whole, SPropValue* values, const Row& row) {
  for (const Property& property : row) {
    SPropValue& value = *values++;
    value.ulPropTag = property.tag;
    value.dwAlignPad = 0;
    if (property.has_null) {
      value.Value = {};
      continue;
    }
    switch (PROP_TYPE(property.tag)) {
      case PT_STRING8:
        value.Value.lpszA = static_cast<char*>(
            NewPart(state, whole, property.bytes.c_str(), property.bytes.size() + 1));
        break;
      case PT_UNICODE:
        value.Value.lpszW = static_cast<char16_t*>(NewPart(
            state, whole, property.text.c_str(), (property.text.size() + 1) * sizeof(char16_t)));
        break;
      case PT_BINARY:
        value.Value.bin.cb = static_cast<std::uint32_t>(property.bytes.size());
        value.Value.bin.lpb = static_cast<std::uint8_t*>(
            NewPart(state, whole, property.bytes.data(), property.bytes.size()));
        break;
      case PT_BOOLEAN:
        value.Value.b = static_cast<std::uint16_t>(property.number);
        break;
      default:
        value.Value.l = property.number;
    }
  }
}

SPropValue* NewValues(MapiState& state, const Row& row, std::string_view origin) {
  void* const whole = NewNumberedBlock(state, row.size() * sizeof(SPropValue), origin);
  FillValues(state, whole, static_cast<SPropValue*>(whole), row);
  return static_cast<SPropValue*>(whole);
}

SRowSet* NewRows(MapiState& state, const std::vector<Row>& rows, const std::string& table) {
  void* const whole = NewBlock(
      state, offsetof(SRowSet, aRow) + std::max<std::size_t>(rows.size(), 1) * sizeof(SRow),
      "rows of the " + table, "HrQueryAllRows");
  state.blocks[whole].is_rows = true;
  auto* const set = static_cast<SRowSet*>(whole);
  set->cRows = static_cast<std::uint32_t>(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::vector<unsigned char> room(rows[i].size() * sizeof(SPropValue));
    void* const values = NewPart(state, whole, room.data(), room.size());
    FillValues(state, whole, static_cast<SPropValue*>(values), rows[i]);
    set->aRow[i] = {0, static_cast<std::uint32_t>(rows[i].size()),
                    static_cast<SPropValue*>(values)};
  }
  return set;
}

// The value as tests write it down.
Property CopyOf(const SPropValue& value) {
  Property copy = {.tag = value.ulPropTag};
  switch (PROP_TYPE(value.ulPropTag)) {
    case PT_STRING8:
      copy.bytes = value.Value.lpszA;
      break;
    case PT_UNICODE:
      copy.text = value.Value.lpszW;
      break;
    case PT_BINARY:
      copy.bytes.assign(reinterpret_cast<const char*>(value.Value.bin.lpb), value.Value.bin.cb);
      break;
    case PT_BOOLEAN:
      copy.number = value.Value.b;
      break;
    default:
      copy.number = value.Value.l;
  }
  return copy;
}

// --- interfaces ---

// An object of the library with the interface `Interface`.
template <class Interface>
class ObjectOf : public Interface, public Object {
 public:
  ObjectOf(MapiState& of, std::string_view interface, std::string_view called)
      : Object(of, interface, called) {
    address = static_cast<IUnknown*>(this);
  }

  HRESULT PLATFORM_STDCALL QueryInterface(const GUID& id, void** place) override {
    Call call(*this, "QueryInterface");
    call.Fails({InterfaceIdText(&id)});
    return OtherInterface(call, id, place);
  }

  std::uint32_t PLATFORM_STDCALL AddRef() override {
    Call call(*this, "AddRef");
    call.Record({});
    return ++references;
  }

  std::uint32_t PLATFORM_STDCALL Release() override {
    Call call(*this, "Release");
    call.Record({});
    return references == 0 ? 0 : --references;
  }

 protected:
  virtual HRESULT OtherInterface(Call& call, const GUID& /*id*/, void** place) {
    call.Refuse(place, E_NOINTERFACE);
    return call.Result();
  }
};

template <class Class, class... Arguments>
Class* NewObject(MapiState& state, Arguments&&... arguments) {
  auto object = std::make_unique<Class>(state, std::forward<Arguments>(arguments)...);
  Class* const raw = object.get();
  state.objects.push_back(std::move(object));
  return raw;
}

class Table final : public ObjectOf<IMAPITable> {
 public:
  Table(MapiState& of, std::string_view called, const std::vector<Row>& holding)
      : ObjectOf(of, "IMAPITable", called), rows(holding) {}

  const std::vector<Row>& rows;
};

class FormManager final : public ObjectOf<IMAPIFormMgr> {
 public:
  explicit FormManager(MapiState& of) : ObjectOf(of, "IMAPIFormMgr", "form manager") {}
};

// What all property objects share.
template <class Interface>
class PropertyObject : public ObjectOf<Interface> {
 public:
  using ObjectOf<Interface>::ObjectOf;

  HRESULT PLATFORM_STDCALL SaveChanges(std::uint32_t flags) override {
    Call call(*this, "SaveChanges");
    if (!call.Fails({Hex(flags)})) {
      OnSaved();
    }
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL GetProps(SPropTagArray* tags, std::uint32_t flags, std::uint32_t* count,
                                    SPropValue** values) override {
    Call call(*this, "GetProps");
    call.Fails({TagsText(tags), Hex(flags)});
    const Row& own = Values();
    call.GiveNumber(count, static_cast<std::uint32_t>(own.size()));
    call.Give(values,
              [&] { return NewValues(this->state, own, this->interface_name + "::GetProps"); });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL SetProps(std::uint32_t count, SPropValue* values,
                                    SPropProblemArray** problems) override {
    Call call(*this, "SetProps");
    if (!call.Fails({std::to_string(count), ValuesText(count, values), NullOr(problems)})) {
      OnSet(count, values);
    }
    return call.Result();
  }

 protected:
  virtual const Row& Values() { return no_values_; }
  virtual void OnSaved() {}
  virtual void OnSet(std::uint32_t /*count*/, const SPropValue* /*values*/) {}

 private:
  Row no_values_;
};

class Attachment final : public PropertyObject<IAttach> {
 public:
  explicit Attachment(MapiState& of) : PropertyObject(of, "IAttach", "attachment") {}

 private:
  void OnSet(std::uint32_t count, const SPropValue* values) override {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (values[i].ulPropTag == PR_ATTACH_DATA_BIN) {
        content_ = CopyOf(values[i]).bytes;
      }
    }
  }
  void OnSaved() override { state.saved_attachments.push_back(content_); }

  std::string content_;
};

class Message final : public PropertyObject<IMessage> {
 public:
  explicit Message(MapiState& of) : PropertyObject(of, "IMessage", "message") {}

  HRESULT PLATFORM_STDCALL CreateAttach(const GUID* interface, std::uint32_t flags,
                                        std::uint32_t* number, IAttach** attachment) override {
    Call call(*this, "CreateAttach");
    call.Fails({InterfaceIdText(interface), Hex(flags)});
    call.GiveNumber(number, state.fake.attachment_number);
    call.Give(attachment, [&] { return NewObject<Attachment>(state); });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL ModifyRecipients(std::uint32_t flags, ADRLIST* list) override {
    Call call(*this, "ModifyRecipients");
    call.Fails({Hex(flags), ListText(list)});
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL SubmitMessage(std::uint32_t flags) override {
    Call call(*this, "SubmitMessage");
    call.Fails({Hex(flags)});
    return call.Result();
  }

 private:
  const Row& Values() override { return state.fake.message_values; }
};

class Outbox final : public PropertyObject<IMAPIFolder> {
 public:
  explicit Outbox(MapiState& of) : PropertyObject(of, "IMAPIFolder", "outbox") {}

  HRESULT PLATFORM_STDCALL CreateMessage(const GUID* interface, std::uint32_t flags,
                                         IMessage** message) override {
    Call call(*this, "CreateMessage");
    if (!call.Fails({InterfaceIdText(interface), Hex(flags)})) {
      call.Give(message, [&] { return NewObject<Message>(state); });
    }
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL GetMessageStatus(std::uint32_t size, ENTRYID* entry_id,
                                            std::uint32_t flags, std::uint32_t* status) override {
    Call call(*this, "GetMessageStatus");
    call.Fails({BinaryText(size, entry_id), Hex(flags)});
    call.GiveNumber(status, state.fake.message_status);
    return call.Result();
  }
};

class Store final : public PropertyObject<IMsgStore> {
 public:
  explicit Store(MapiState& of) : PropertyObject(of, "IMsgStore", "store") {}

  HRESULT PLATFORM_STDCALL OpenEntry(std::uint32_t size, ENTRYID* entry_id, const GUID* interface,
                                     std::uint32_t flags, std::uint32_t* type,
                                     IUnknown** entry) override {
    Call call(*this, "OpenEntry");
    call.Fails({BinaryText(size, entry_id), InterfaceIdText(interface), Hex(flags)});
    call.GiveNumber(type, kFolderType);
    call.Give(entry, [&] { return static_cast<IMAPIFolder*>(NewObject<Outbox>(state)); });
    return call.Result();
  }

 private:
  const Row& Values() override { return state.fake.store_values; }
};

class AddressBook final : public PropertyObject<IAddrBook> {
 public:
  explicit AddressBook(MapiState& of) : PropertyObject(of, "IAddrBook", "address book") {}

  HRESULT PLATFORM_STDCALL CreateOneOff(char16_t* display_name, char16_t* type,
                                        char16_t* mail_address, std::uint32_t flags,
                                        std::uint32_t* size, ENTRYID** entry_id) override {
    Call call(*this, "CreateOneOff");
    call.Fails({WideText(display_name), WideText(type), WideText(mail_address), Hex(flags)});
    const std::string& bytes = state.fake.one_off;
    call.GiveNumber(size, static_cast<std::uint32_t>(bytes.size()));
    call.Give(entry_id, [&] {
      void* const block = NewNumberedBlock(state, bytes.size(), "IAddrBook::CreateOneOff");
      std::memcpy(block, bytes.data(), bytes.size());
      return static_cast<ENTRYID*>(block);
    });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL ResolveName(std::uintptr_t window, std::uint32_t flags, char16_t* title,
                                       ADRLIST* list) override {
    Call call(*this, "ResolveName");
    if (call.Fails({std::to_string(window), Hex(flags), WideText(title), ListText(list)})) {
      return call.Result();
    }
    for (std::uint32_t i = 0; state.fake.resolving_moves_entries && i < list->cEntries; ++i) {
      ADRENTRY& entry = list->aEntries[i];
      Row row;
      for (std::uint32_t value = 0; value < entry.cValues; ++value) {
        row.push_back(CopyOf(entry.rgPropVals[value]));
      }
      SPropValue* const moved = NewValues(state, row, "IAddrBook::ResolveName");
      FreeBlock(state, entry.rgPropVals, "IAddrBook::ResolveName");
      entry.rgPropVals = moved;
    }
    return call.Result();
  }
};

class ProfileAdministration final : public ObjectOf<IProfAdmin> {
 public:
  explicit ProfileAdministration(MapiState& of)
      : ObjectOf(of, "IProfAdmin", "profile administration") {}

  HRESULT PLATFORM_STDCALL GetProfileTable(std::uint32_t flags, IMAPITable** table) override {
    Call call(*this, "GetProfileTable");
    call.Fails({Hex(flags)});
    call.Give(table, [&] { return NewObject<Table>(state, "profile table", state.fake.profiles); });
    return call.Result();
  }
};

class ClientShutdown final : public ObjectOf<IMAPIClientShutdown> {
 public:
  explicit ClientShutdown(MapiState& of) : ObjectOf(of, "IMAPIClientShutdown", "client shutdown") {}

  HRESULT PLATFORM_STDCALL QueryFastShutdown() override {
    Call call(*this, "QueryFastShutdown");
    call.Fails({});
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL DoFastShutdown() override {
    Call call(*this, "DoFastShutdown");
    call.Fails({});
    return call.Result();
  }
};

class Session final : public ObjectOf<IMAPISession> {
 public:
  explicit Session(MapiState& of) : ObjectOf(of, "IMAPISession", "session") {}

  HRESULT PLATFORM_STDCALL GetMsgStoresTable(std::uint32_t flags, IMAPITable** table) override {
    Call call(*this, "GetMsgStoresTable");
    call.Fails({Hex(flags)});
    call.Give(table, [&] { return NewObject<Table>(state, "store table", state.fake.stores); });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL OpenMsgStore(std::uintptr_t window, std::uint32_t size,
                                        ENTRYID* entry_id, const GUID* interface,
                                        std::uint32_t flags, IMsgStore** store) override {
    Call call(*this, "OpenMsgStore");
    call.Fails({std::to_string(window), BinaryText(size, entry_id), InterfaceIdText(interface),
                Hex(flags)});
    call.Give(store, [&] { return NewObject<Store>(state); });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL OpenAddressBook(std::uintptr_t window, const GUID* interface,
                                           std::uint32_t flags, IAddrBook** book) override {
    Call call(*this, "OpenAddressBook");
    call.Fails({std::to_string(window), InterfaceIdText(interface), Hex(flags)});
    call.Give(book, [&] { return NewObject<AddressBook>(state); });
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL Logoff(std::uintptr_t window, std::uint32_t flags,
                                  std::uint32_t reserved) override {
    Call call(*this, "Logoff");
    call.Fails({std::to_string(window), Hex(flags), std::to_string(reserved)});
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL ShowForm(std::uintptr_t window, IMsgStore* store, IMAPIFolder* folder,
                                    const GUID* interface, std::uintptr_t token, IMessage* sent,
                                    std::uint32_t flags, std::uint32_t message_status,
                                    std::uint32_t message_flags, std::uint32_t access,
                                    char* message_class) override {
    Call call(*this, "ShowForm");
    call.Fails({std::to_string(window), ObjectText(state, store), ObjectText(state, folder),
                InterfaceIdText(interface), Hex(token), ObjectText(state, sent), Hex(flags),
                Hex(message_status), Hex(message_flags), Hex(access), NarrowText(message_class)});
    return call.Result();
  }

  HRESULT PLATFORM_STDCALL PrepareForm(const GUID* interface, IMessage* message,
                                       std::uintptr_t* token) override {
    Call call(*this, "PrepareForm");
    call.Fails({InterfaceIdText(interface), ObjectText(state, message)});
    if (state.fake.has_narrow_token) {
      call.GiveNumber(token, static_cast<std::uint32_t>(state.fake.form_token));
    } else {
      call.GiveNumber(token, state.fake.form_token);
    }
    return call.Result();
  }

 private:
  HRESULT OtherInterface(Call& call, const GUID& id, void** place) override {
    if (!(id == IID_IMAPIClientShutdown) || !state.fake.has_shutdown) {
      call.Refuse(place, E_NOINTERFACE);
    }
    call.Give(place, [&]() -> void* {
      return static_cast<IMAPIClientShutdown*>(NewObject<ClientShutdown>(state));
    });
    return call.Result();
  }
};

// --- exports ---

HRESULT PLATFORM_STDCALL Initialize(void* init) {
  Call call("MAPIInitialize");
  call.Fails({NullOr(init)});
  return call.Result();
}

HRESULT PLATFORM_STDCALL LogonEx(std::uintptr_t window, char16_t* profile, char16_t* password,
                                 std::uint32_t flags, IMAPISession** session) {
  Call call("MAPILogonEx");
  call.Fails({std::to_string(window), WideText(profile), WideText(password), Hex(flags)});
  call.Give(session, [] { return NewObject<Session>(*library); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL OpenFormMgr(IMAPISession* session, IMAPIFormMgr** manager) {
  Call call("MAPIOpenFormMgr");
  call.Fails({ObjectText(*library, session)});
  call.Give(manager, [] { return NewObject<FormManager>(*library); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL AdminProfiles(std::uint32_t flags, IProfAdmin** administration) {
  Call call("MAPIAdminProfiles");
  call.Fails({Hex(flags)});
  call.Give(administration, [] { return NewObject<ProfileAdministration>(*library); });
  return call.Result();
}

HRESULT PLATFORM_STDCALL QueryAllRows(IMAPITable* table, SPropTagArray* tags,
                                      SRestriction* restriction, SSortOrderSet* order,
                                      std::int32_t maximum, SRowSet** rows) {
  Call call("HrQueryAllRows");
  call.Fails({ObjectText(*library, table), TagsText(tags), NullOr(restriction), NullOr(order),
              std::to_string(maximum)});
  call.Give(rows, [&] {
    const auto* const own = static_cast<Table*>(table);
    return NewRows(*library, own->rows, own->name);
  });
  return call.Result();
}

void PLATFORM_STDCALL FreeRows(SRowSet* rows) {
  Call call("FreeProws");
  call.Record({BlockText(*library, rows)});
  FreeBlock(*library, rows, "FreeProws", true);
}

void PLATFORM_STDCALL FreeAddressList(ADRLIST* list) {
  Call call("FreePadrlist");
  call.Record({BlockText(*library, list)});
  const auto found = library->blocks.find(list);
  if (list != nullptr && found != library->blocks.end() && !found->second.freed) {
    for (std::uint32_t i = 0; i < list->cEntries; ++i) {
      FreeBlock(*library, list->aEntries[i].rgPropVals, "FreePadrlist");
    }
  }
  FreeBlock(*library, list, "FreePadrlist");
}

SCODE PLATFORM_STDCALL AllocateBuffer(std::uint32_t size, void** buffer) {
  Call call("MAPIAllocateBuffer");
  call.Fails({std::to_string(size)});
  call.Give(buffer, [&] { return NewNumberedBlock(*library, size, "MAPIAllocateBuffer"); });
  return call.Result();
}

std::uint32_t PLATFORM_STDCALL FreeBuffer(void* buffer) {
  Call call("MAPIFreeBuffer");
  call.Record({BlockText(*library, buffer)});
  FreeBlock(*library, buffer, "MAPIFreeBuffer");
  return 0;
}

template <class Function>
platform::Procedure AsProcedure(Function* function) {
  return reinterpret_cast<platform::Procedure>(function);
}

}  // namespace

Property Number(std::uint32_t tag, std::int32_t number) {
  return {.tag = tag, .number = number};
}

Property Bytes(std::uint32_t tag, std::string bytes) {
  return {.tag = tag, .bytes = std::move(bytes)};
}

Property Text(std::uint32_t tag, std::u16string text) {
  return {.tag = tag, .text = std::move(text)};
}

Row ProfileRow(bool is_default, std::string name) {
  return {Number(PR_DEFAULT_PROFILE, is_default ? 1 : 0),
          Bytes(PR_DISPLAY_NAME_A, std::move(name))};
}

Row StoreRow(bool is_default, std::string entry_id) {
  return {Number(PR_DEFAULT_STORE, is_default ? 1 : 0), Bytes(PR_ENTRYID, std::move(entry_id))};
}

FakeMapi::FakeMapi()
    : profiles({ProfileRow(true, "Outlook")}),
      stores({StoreRow(true, "\x01\x02\x03\x04")}),
      store_values({Text(PR_DISPLAY_NAME_W, u"Mailbox"), Bytes(PR_IPM_OUTBOX_ENTRYID, "out!"),
                    Bytes(PR_IPM_SENTMAIL_ENTRYID, "sent")}),
      message_values({Number(PR_MESSAGE_FLAGS, 0x9), Text(PR_MESSAGE_CLASS_W, u"IPM.Note"),
                      Number(PR_ACCESS, 0x3f), Bytes(PR_ENTRYID, "msg!"),
                      Number(PR_MSG_STATUS, 0x77)}),
      state_(std::make_unique<MapiState>(*this)) {
  library = state_.get();
}

FakeMapi::~FakeMapi() {
  library = nullptr;
  for (const auto& [address, block] : state_->blocks) {
    if (!(kSanitized && block.freed)) {
      std::free(Start(address));
    }
  }
}

void FakeMapi::Install(const std::vector<std::string>& without) {
  platform::fake::Machine::Exports exports = {
      {"MAPIInitialize", AsProcedure(Initialize)},
      {"MAPILogonEx", AsProcedure(LogonEx)},
      {"MAPIOpenFormMgr", AsProcedure(OpenFormMgr)},
      {"MAPIAdminProfiles", AsProcedure(AdminProfiles)},
      {"HrQueryAllRows", AsProcedure(QueryAllRows)},
      {"FreeProws", AsProcedure(FreeRows)},
      {"FreePadrlist", AsProcedure(FreeAddressList)},
      {"MAPIAllocateBuffer", AsProcedure(AllocateBuffer)},
      {"MAPIFreeBuffer", AsProcedure(FreeBuffer)},
  };
  for (const std::string& name : without) {
    exports.erase(name);
  }
  platform::fake::TheMachine().AddModule(kLibraryPath, std::move(exports));
}

void FakeMapi::Answer(std::string_view name, std::size_t index, HRESULT result, FaultMode mode) {
  state_->answers.push_back({std::string(name), index, result, true, mode});
}

void FakeMapi::GiveNothing(std::string_view name, std::size_t index) {
  state_->answers.push_back({std::string(name), index, S_OK, false, FaultMode::kOnce});
}

const std::vector<std::string>& FakeMapi::Calls() const {
  return state_->calls;
}

std::vector<std::string> FakeMapi::CallsOf(std::string_view name) const {
  const std::string start = std::string(name) + "(";
  std::vector<std::string> calls;
  for (const std::string& call : state_->calls) {
    if (call.starts_with(start)) {
      calls.push_back(call);
    }
  }
  return calls;
}

const std::vector<std::string>& FakeMapi::SavedAttachments() const {
  return state_->saved_attachments;
}

std::string FakeMapi::Accounts() const {
  std::string text;
  for (const std::string& complaint : state_->complaints) {
    text += complaint + "\n";
  }
  for (const auto& object : state_->objects) {
    if (object->references != 0) {
      text += object->name + ": references left: " + std::to_string(object->references) + "\n";
    }
  }
  std::map<std::size_t, std::string> of_blocks;
  for (const auto& [address, block] : state_->blocks) {
    std::string& complaints = of_blocks[block.place];
    const std::string name = block.name + " of " + block.origin;
    if (!block.freed) {
      MapiState guards(state_->fake);
      CheckGuards(guards, address, block);
      for (const std::string& complaint : guards.complaints) {
        complaints += complaint + "\n";
      }
      complaints += block.name.starts_with(kPart) ? "" : name + ": not freed\n";
    } else if (!kSanitized && !IsAll(Start(address) + kGuardSize, block.size, kFreedByte)) {
      complaints += name + ": written after it was freed\n";
    }
  }
  for (const auto& [place, complaints] : of_blocks) {
    text += complaints;
  }
  return text;
}

IMAPISession* FakeMapi::OpenSession() {
  return NewObject<Session>(*state_);
}
IMsgStore* FakeMapi::OpenStore() {
  return NewObject<Store>(*state_);
}
IMAPIFolder* FakeMapi::OpenOutbox() {
  return NewObject<Outbox>(*state_);
}
IMessage* FakeMapi::OpenMessage() {
  return NewObject<Message>(*state_);
}

}  // namespace zentpost::test
