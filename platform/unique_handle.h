// The one owner for everything that the operating system hands out and wants back: registry keys,
// files, modules, threads. Each kind is an alias with its own traits, so that two kinds cannot be
// mixed up.
#pragma once

#include <utility>

namespace platform {

// Traits give `Value` (the raw handle), `kNone` (the value that owns nothing) and `Close(Value)`,
// which is called once for every owned value and whose failure is never fatal.
template <class Traits>
class UniqueHandle {
 public:
  using Value = typename Traits::Value;

  UniqueHandle() = default;
  explicit UniqueHandle(Value value) : value_(value) {}
  UniqueHandle(UniqueHandle&& other) noexcept : value_(other.Detach()) {}
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) {
      Reset(other.Detach());
    }
    return *this;
  }
  ~UniqueHandle() { Reset(); }

  explicit operator bool() const { return value_ != Traits::kNone; }
  Value Get() const { return value_; }

  // Closes what is held, then holds `value`.
  void Reset(Value value = Traits::kNone) noexcept {
    const Value held = std::exchange(value_, value);
    if (held != Traits::kNone) {
      Traits::Close(held);
    }
  }

  // Closes what is held, then gives the address for an out-parameter.
  Value* Put() noexcept {
    Reset();
    return &value_;
  }

  // Hands the value on; the caller owns it from now on.
  [[nodiscard]] Value Detach() noexcept { return std::exchange(value_, Traits::kNone); }

 private:
  Value value_ = Traits::kNone;
};

}  // namespace platform
