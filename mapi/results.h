// Results of MAPI calls, and what is made of them.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"
#include "platform/status.h"

namespace zentpost {

constexpr bool Failed(HRESULT result) {
  return result < 0;
}

// A result as the log shows it.
constexpr std::uint32_t CodeOf(HRESULT result) {
  return static_cast<std::uint32_t>(result);
}

// The result of a call that was to hand something out: one that succeeded and handed out nothing
// has failed all the same.
template <class Owner>
HRESULT ResultOf(HRESULT result, const Owner& handed_out) {
  return !Failed(result) && !handed_out ? MAPI_E_CALL_FAILED : result;
}

// HRESULT_FROM_WIN32 (winerror.h) of a system error number other than 0.
constexpr HRESULT FromSystemError(platform::Status status) {
  return MakeResult(0x80070000U | (status & 0xFFFFU));
}

}  // namespace zentpost
