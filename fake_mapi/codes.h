// What the mail client's calls give, and the flags that they take, as they are published in
// winerror.h, mapicode.h, mapidefs.h, mapix.h and mapiform.h.
#pragma once

#include <cstdint>

namespace zentpost::fake_mapi {

constexpr std::int32_t Code(std::uint32_t code) {
  return static_cast<std::int32_t>(code);
}
inline constexpr std::int32_t kOk = 0;
inline constexpr std::int32_t kErrorsReturned = Code(0x00040380);
inline constexpr std::int32_t kCallFailed = Code(0x80004005);
inline constexpr std::int32_t kNoInterface = Code(0x80004002);
inline constexpr std::int32_t kNotEnoughMemory = Code(0x8007000E);
inline constexpr std::int32_t kInvalidParameter = Code(0x80070057);
inline constexpr std::int32_t kNoSupport = Code(0x80040102);
inline constexpr std::int32_t kUnknownFlags = Code(0x80040106);
inline constexpr std::int32_t kInvalidEntryId = Code(0x80040107);
inline constexpr std::int32_t kInvalidObject = Code(0x80040108);
inline constexpr std::int32_t kNotFound = Code(0x8004010F);
inline constexpr std::int32_t kLogonFailed = Code(0x80040111);
inline constexpr std::int32_t kUserCancel = Code(0x80040113);
inline constexpr std::int32_t kDiskError = Code(0x80040116);
inline constexpr std::int32_t kUnconfigured = Code(0x8004011C);
inline constexpr std::int32_t kEndOfSession = Code(0x80040200);
inline constexpr std::int32_t kNotInitialized = Code(0x80040605);
inline constexpr std::int32_t kNoRecipients = Code(0x80040607);

inline constexpr std::uint32_t kUnicodeFlag = 0x80000000;
inline constexpr std::uint32_t kModifyRecipientsAdd = 2;
inline constexpr std::int32_t kMessageFlagUnsent = 0x8;
inline constexpr std::int32_t kMessageFlagSubmit = 0x4;
inline constexpr std::int32_t kAccessAll = 0x7;  // MAPI_ACCESS_MODIFY, _READ, _DELETE

// All flags that a call may be given.
inline constexpr std::uint32_t kNoFlags = 0;
inline constexpr std::uint32_t kLogonFlags = 0x0013B07B | kUnicodeFlag;
inline constexpr std::uint32_t kOpenStoreFlags = 0x1BD;
inline constexpr std::uint32_t kAddressBookFlags = 0x41;
inline constexpr std::uint32_t kLogoffFlags = 0x3;
inline constexpr std::uint32_t kShowFormFlags = 0x1;
inline constexpr std::uint32_t kSaveFlags = 0xF;
inline constexpr std::uint32_t kOpenEntryFlags = 0x19 | 0x200;
inline constexpr std::uint32_t kCreateMessageFlags = 0x48;
inline constexpr std::uint32_t kCreateAttachFlags = 0x8;
inline constexpr std::uint32_t kModifyRecipientsFlags = 0xE;
inline constexpr std::uint32_t kSubmitFlags = 0x1;
inline constexpr std::uint32_t kOneOffFlags = 0x10000 | kUnicodeFlag;
inline constexpr std::uint32_t kResolveNameFlags = 0x4048 | kUnicodeFlag;

}  // namespace zentpost::fake_mapi
