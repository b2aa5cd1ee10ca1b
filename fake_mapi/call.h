// One call of the mail client: tells of itself, finds out how it is to behave, holds the caller to
// the contract, and hands out the results.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include "fake_mapi/client.h"
#include "fake_mapi/codes.h"
#include "tools/support/text.h"

namespace zentpost::fake_mapi {

using support::FromWide;
using support::LowerHex;

// One call works at a time. The standard library's mutex would bring all of its errors' texts into
// every program and library that has the client: 50 KB.
class SpinLock {
 public:
  void lock() noexcept {
    while (is_taken_.test_and_set(std::memory_order_acquire)) {
      std::this_thread::yield();
    }
  }
  void unlock() noexcept { is_taken_.clear(std::memory_order_release); }

 private:
  std::atomic_flag is_taken_;
};

struct Client::State {
  explicit State(std::unique_ptr<Storage> where) : storage(std::move(where)) {}

  SpinLock lock;
  std::unique_ptr<Storage> storage;
  Accounting accounting;
  std::vector<RecordedCall> calls;
  struct Planned {
    Behaviour behaviour;
    bool was_met = false;
  };
  std::vector<Planned> planned;
  std::vector<std::shared_ptr<Message>> messages;
  std::map<std::uintptr_t, std::shared_ptr<Message>> forms;  // by token; null: shown already
  std::vector<std::string> one_offs;                         // that were handed out
};

class Call {
 public:
  using Arguments = std::initializer_list<std::string>;

  // An argument as a number.
  template <class Argument>
  static std::string Raw(Argument argument) {
    if constexpr (std::is_pointer_v<Argument>) {
      return LowerHex(reinterpret_cast<std::uintptr_t>(argument));
    } else {
      return LowerHex(static_cast<std::make_unsigned_t<Argument>>(argument));
    }
  }

  // A function, or a method of the object, whose end is noticed.
  explicit Call(const char* function);
  Call(Object& object, const char* method);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call();

  // Tells of the call, which must be done first. Whether `can_fail` or not, it may be one that has
  // a behaviour.
  void Record(Arguments arguments, bool can_fail = true);
  // The same for one that gives no result that could tell of a failure.
  void RecordInfallible(Arguments arguments) { Record(arguments, false); }

  // Whether it is done; otherwise it gives a failure, and nothing may be changed.
  [[nodiscard]] bool Works() const { return !is_planned_ && result_ >= 0; }

  // Makes a call that works fail.
  void Refuse(std::int32_t code);
  // The same, for a caller that broke the contract: "NAME WHAT" is a finding.
  void Breach(std::string_view what, std::int32_t code = kInvalidParameter,
              FindingKind kind = FindingKind::kOther);
  void AllowFlags(std::uint32_t flags, std::uint32_t allowed);
  // The argument that must not be null.
  void Need(const void* argument, const char* what);
  // So many bytes at `bytes`.
  void NeedBytes(std::uint32_t size, const void* bytes);
  // An object of the client's that was not released; null when it is none.
  Object* NeedObject(const void* address, std::string_view interface_name);

  // Hands out what `make` gives to a call that works: `make` gives null when memory runs out. Any
  // other gets null or garbage. Without a place the caller broke the contract. Both give Result().
  template <class Type, class Make>
  std::int32_t Give(Type** place, const Make& make) {
    if (place == nullptr) {
      Breach(kNoPlace);
      return Result();
    }
    const bool leaves_garbage = LeavesGarbage();
    *place = nullptr;
    if ((Works() && gives_) || leaves_garbage) {
      *place = make();
      if (*place == nullptr) {
        Refuse(kNotEnoughMemory);
      } else if (leaves_garbage) {
        Accounts().MakeGarbage(*place);
      }
    }
    return Result();
  }
  template <class Number>
  std::int32_t GiveNumber(void* place, Number number) {
    constexpr int kGarbageByte = 0xDD;
    if (place == nullptr) {
      Breach(kNoPlace);
    } else if (Works() && gives_) {
      std::memcpy(place, &number, sizeof number);
    } else {
      std::memset(place, LeavesGarbage() ? kGarbageByte : 0, sizeof number);
    }
    return Result();
  }

  // A success of its own.
  void Succeed(std::int32_t code) { own_success_ = code; }
  // What the call gives.
  std::int32_t Result();
  std::uint32_t Count(std::uint32_t count);

  [[nodiscard]] Client& Of() const { return client_; }
  [[nodiscard]] Client::State& Inside() const { return client_.Inside(); }
  [[nodiscard]] Accounting& Accounts() const { return client_.Inside().accounting; }

 private:
  static constexpr char kNoPlace[] = "without a place for its result";

  struct HookScope {
    explicit HookScope(CallHook& of) : hook(of) { hook.CallBegins(); }
    HookScope(const HookScope&) = delete;
    HookScope& operator=(const HookScope&) = delete;
    ~HookScope() { hook.CallEnds(); }
    CallHook& hook;
  };

  [[nodiscard]] bool LeavesGarbage() const { return client_.failures_leave_garbage && result_ < 0; }

  Client& client_;
  HookScope hook_;  // first in and last out: everything else here is the client's doing
  const std::lock_guard<SpinLock> lock_;
  RecordedCall record_;
  std::string name_;
  std::int32_t result_ = 0;
  std::int32_t own_success_ = 0;
  std::optional<std::int32_t> success_ = {};  // that a behaviour gives
  bool is_planned_ = false;                   // whether it is not done, whatever its result is
  bool gives_ = true;
};

}  // namespace zentpost::fake_mapi
