// Results of MAPI calls, and what is made of them.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"
#include "platform/status.h"
#include "platform/unique_handle.h"

namespace zentpost {

constexpr bool Failed(HRESULT result) {
  return result < 0;
}

// A result as the log shows it.
constexpr std::uint32_t CodeOf(HRESULT result) {
  return static_cast<std::uint32_t>(result);
}

// Empties an owner without giving back what it holds, or a pointer or number.
template <class Traits>
void Forget(platform::UniqueHandle<Traits>& owner) {
  static_cast<void>(owner.Detach());
}
template <class T>
void Forget(T& value) {
  value = T();
}

// The result of a call that was to fill `places`: owners, pointers or numbers. What a call that
// failed leaves in them is not the caller's and may be anything, so that it is forgotten. They may
// be empty after a success, too.
template <class... Places>
HRESULT ForgetOnFailure(HRESULT result, Places&... places) {
  if (Failed(result)) {
    (Forget(places), ...);
  }
  return result;
}

// The same for a call that was to hand something out, as an owner or a pointer: one that succeeded
// and handed out nothing has failed all the same.
template <class Owner>
HRESULT ResultOf(HRESULT result, Owner& handed_out) {
  return !Failed(result) && !handed_out ? MAPI_E_CALL_FAILED : ForgetOnFailure(result, handed_out);
}

// HRESULT_FROM_WIN32 (winerror.h) of a system error number other than 0.
constexpr HRESULT FromSystemError(platform::Status status) {
  return MakeResult(0x80070000U | (status & 0xFFFFU));
}

}  // namespace zentpost
