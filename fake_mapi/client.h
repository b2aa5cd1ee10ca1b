// A fake mail client, as it is behind Extended MAPI: what it is prepares with, how its calls
// behave, what was called, and what is wrong with what it handed out. Free of MAPI's types.
//
// Its functions (functions.h) and the objects that they hand out work on TheClient(). Any thread
// may call: one call works at a time. Members are set before, or between calls.
//
// Every call is told as a text, arguments as they came and without the places for results:
//   MAPILogonEx(0, "Outlook", null, 0x80000029)
//   IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0x10c)
//   IMessage::SetProps(2, [0x001a001f "IPM.Note", 0x0e0a0102 4 bytes 0a0b0c0d], null)
//   HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)
//   MAPIFreeBuffer(block 3)      FreeProws(rows of the store table)
// Of a long text or a long run of bytes only the beginning is told, with "..." behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fake_mapi/accounting.h"
#include "fake_mapi/properties.h"

namespace zentpost::fake_mapi {

struct RecordedCall {
  // "9 #3 IMAPISession::GetMsgStoresTable(0x0) = 0x00000000"
  [[nodiscard]] std::string Line() const;

  std::size_t number = 0;  // among all calls, from 1
  std::size_t object = 0;  // which object; 0: a function
  std::string text;
  std::string result;  // "0x80004005"; of AddRef and Release a count; empty where there is none
};

// Who is told of each call, on the thread that makes it.
class CallHook {
 public:
  virtual ~CallHook() = default;

  // Before a call does anything at all, and when it has done everything.
  virtual void CallBegins() noexcept {}
  virtual void CallEnds() noexcept {}
  // A call that can fail does nothing but to give what this returns, when that is a failure.
  virtual std::int32_t CallIsRecorded(const std::string& /*text*/, bool /*can_fail*/) { return 0; }
  virtual void CallHasResult(const RecordedCall& /*call*/) {}
};

// Where messages are kept: in memory, unless a derived class does something else. Functions that
// return bool give false when something cannot be written.
class Storage {
 public:
  virtual ~Storage() = default;

  // What MAPIInitialize gives.
  [[nodiscard]] virtual std::int32_t Start() { return 0; }
  // Gives a new message its name and its entry identifier.
  [[nodiscard]] virtual bool Create(Message& message);
  // Keeps the bytes of an attached document, in `value` or elsewhere. They are the caller's.
  [[nodiscard]] virtual bool KeepDocument(const Message& message, const Attachment& attachment,
                                          std::string_view bytes, Property& value);
  // Writes down a message in the Outbox.
  [[nodiscard]] virtual bool Save(const Message& /*message*/) { return true; }
  // Moves it to where sent messages are, or lets it stay in the Outbox.
  [[nodiscard]] virtual bool Send(const Message& /*message*/, bool /*stays_in_outbox*/) {
    return true;
  }
  // Shows it in the form.
  [[nodiscard]] virtual bool Show(const Message& /*message*/) { return true; }
  // Forgets a message that was never saved.
  virtual void Discard(const Message& /*message*/) {}

 private:
  std::size_t messages_ = 0;
};

// How one call, or a call and all later ones of its name, behaves unusually.
struct Behaviour {
  enum class Kind {
    kFail,         // does nothing but to give `code`, whatever that is, and hands out null
    kSucceed,      // does what it always does, and gives `code` where it would give a success
    kGiveNothing,  // does what it always does, but hands out null
  };

  std::string call;    // "IMAPISession::OpenMsgStore" or "MAPIInitialize"
  std::size_t at = 1;  // which call of that name from now on, from 1
  bool from = false;   // also all later ones
  Kind kind = Kind::kFail;
  std::int32_t code = 0;
};

// Whether there is such a call that can have a behaviour: all but AddRef, Release, and functions
// that give nothing.
[[nodiscard]] bool CanHaveBehaviour(std::string_view call);

class Client {
 public:
  // The latest client is the one that lives in this process' memory, see TheClient.
  explicit Client(std::unique_ptr<Storage> storage = std::make_unique<Storage>());
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client();
  [[nodiscard]] static Client* Latest();

  // --- what it is prepares with ---

  std::vector<Properties> profiles = {ProfileRow(true, "Outlook")};
  std::vector<Properties> stores = {StoreRow(true, "\x01\x02\x03\x04")};
  // Where it tells no Outbox or no folder for sent messages there is none.
  Properties store_values = {Text(Tag(kIdDisplayName, kUnicode), u"Mailbox"),
                             Bytes(Tag(kIdOutboxEntryId, kBinary), "out!"),
                             Bytes(Tag(kIdSentItemsEntryId, kBinary), "sent")};
  // What messages have that nobody has set. Without PR_ENTRYID it is the storage's.
  Properties message_values = {};
  // Whether tables and properties are handed out as they are prepares, whatever was asked for.
  bool values_as_they_stand = false;
  bool rows_lack_values = false;  // whether rows tell how many they have, and have none
  std::int32_t message_status = 0;
  std::uintptr_t form_token = 1;  // the first; later ones count on
  // Whether only the token's lower 32 bits are written, as libraries do that know no wider one.
  bool has_narrow_token = false;
  // What the user does in the form: 0 sends the message, anything else is what ShowForm gives.
  std::int32_t form_answer = 0;
  bool has_shutdown = true;            // whether the session knows IMAPIClientShutdown
  bool needs_recipients = true;        // for SubmitMessage
  std::optional<std::string> one_off;  // what CreateOneOff gives; else the published form
  // Whether a resolved entry of an address list comes in a block of its own.
  bool resolving_moves_entries = false;
  // Whether a failing call leaves garbage in the places for its results, instead of null: objects
  // that were released and blocks that were freed before anybody got them, and great numbers.
  bool failures_leave_garbage = false;
  // Whether MAPIInitialize was called.
  bool is_initialized = false;
  // Whether the functions look into nothing: they record what they got as numbers, places included
  // ("MAPIFreeBuffer(0xa0)"), and give what the behaviours say, or 0.
  bool is_inert = false;

  // --- how it behaves ---

  void Plan(Behaviour behaviour);
  // The call at `index` among those of that name, from 0, gives `code`: a failure does nothing.
  void Answer(std::string_view call, std::size_t index, std::int32_t code);
  // It succeeds without handing out what it was called for.
  void GiveNothing(std::string_view call, std::size_t index = 0);
  void SetHook(CallHook& hook) { hook_ = &hook; }

  // --- what has happened ---

  [[nodiscard]] std::vector<RecordedCall> RecordedCalls() const;
  [[nodiscard]] std::vector<std::string> Calls() const;  // their texts
  [[nodiscard]] std::vector<std::string> CallsOf(std::string_view name) const;
  [[nodiscard]] std::vector<Finding> Findings() const;
  // The findings, one on each line; empty when everything is in order.
  [[nodiscard]] std::string Accounts() const;
  // The documents that are kept in memory of the attachments that were saved.
  [[nodiscard]] std::vector<std::string> SavedAttachments() const;

  // Breaks a rule that no call can break.
  void AddProblem(std::string text);

  struct State;  // for this folder's own files
  [[nodiscard]] State& Inside() { return *state_; }
  [[nodiscard]] CallHook& Hook() const { return *hook_; }

 private:
  std::unique_ptr<State> state_;
  CallHook no_hook_;
  CallHook* hook_ = &no_hook_;
};

// The client that functions and objects work on. Linked with them: in a process' memory it is the
// latest (in_process.cpp), a library that is loaded makes its own at the first call.
[[nodiscard]] Client& TheClient();

}  // namespace zentpost::fake_mapi
