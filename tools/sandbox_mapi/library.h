// The library's state in this process: its folder, its orders, its accounts. Made by the first
// call.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "mapi_headers.h"
#include "tools/sandbox_mapi/accounting.h"
#include "tools/sandbox_mapi/config.h"
#include "tools/sandbox_mapi/mailbox.h"
#include "tools/sandbox_mapi/message.h"

namespace zentpost::sandbox_mapi {

// A message that interfaces and the form share.
struct OpenMessage {
  Message message;
  bool is_saved = false;
  bool is_sent = false;
};

struct Library {
  Library();

  // Writes the report, at the end of the process.
  void Report();

  Config config;
  std::string config_error;  // Not empty: the orders cannot be used.
  Accounting accounting;
  Mailbox mailbox;
  bool is_initialized = false;
  std::map<std::uint32_t, std::shared_ptr<OpenMessage>> forms;  // By the token of PrepareForm.

 private:
  std::filesystem::path unfinished_report_;
};

[[nodiscard]] Library& TheLibrary();

// One call of a function or method: counts it, looks whether it is to fail, and notes it with its
// arguments and its result.
class Call {
 public:
  explicit Call(std::string name, const void* object = nullptr);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  Call& Arg(const char* name, const std::string& value);
  Call& Hex(const char* name, std::uint64_t value);
  Call& Text(const char* name, std::u16string_view value);
  Call& Bytes(const char* name, std::string_view entry_id);
  Call& Object(const char* name, const void* object);

  // A place for a result, null when the caller gave none. A call that fails leaves garbage in it
  // where that is ordered.
  template <class Type>
  Call& Out(Type* place) {
    if (place != nullptr) {
      // NOLINTNEXTLINE(bugprone-sizeof-expression): many places are for pointers
      places_.push_back({place, sizeof(Type)});
    }
    return *this;
  }

  // Whether the call is to fail as it was ordered, or cannot be done because its object is gone.
  [[nodiscard]] bool Fails();
  // Makes the call one that fails, with this code.
  bool FailWith(HRESULT code) {
    failure_ = code;
    return true;
  }
  // Notes the result of a call that Fails, and gives it.
  HRESULT Failure() { return Return(failure_); }

  HRESULT Return(HRESULT result);
  void ReturnNothing();
  ULONG ReturnCount(ULONG count);

 private:
  [[nodiscard]] std::string NumberOfObject() const;

  std::string name_;
  const void* object_;
  std::string arguments_;
  HRESULT failure_ = 0;
  struct Place {
    void* address;
    std::size_t size;
  };
  std::vector<Place> places_;
};

// Published in winerror.h and mapicode.h.
constexpr HRESULT Code(std::uint32_t code) {
  return static_cast<HRESULT>(code);
}
inline constexpr HRESULT kOk = 0;
inline constexpr HRESULT kErrorsReturned = Code(0x00040380);
inline constexpr HRESULT kCallFailed = Code(0x80004005);
inline constexpr HRESULT kNoInterface = Code(0x80004002);
inline constexpr HRESULT kNotEnoughMemory = Code(0x8007000E);
inline constexpr HRESULT kInvalidParameter = Code(0x80070057);
inline constexpr HRESULT kNoSupport = Code(0x80040102);
inline constexpr HRESULT kInvalidEntryId = Code(0x80040107);
inline constexpr HRESULT kInvalidObject = Code(0x80040108);
inline constexpr HRESULT kNotFound = Code(0x8004010F);
inline constexpr HRESULT kLogonFailed = Code(0x80040111);
inline constexpr HRESULT kUserCancel = Code(0x80040113);
inline constexpr HRESULT kDiskError = Code(0x80040116);
inline constexpr HRESULT kUnconfigured = Code(0x8004011C);
inline constexpr HRESULT kEndOfSession = Code(0x80040200);
inline constexpr HRESULT kNotInitialized = Code(0x80040605);
inline constexpr HRESULT kNoRecipients = Code(0x80040607);

// Published in mapidefs.h.
inline constexpr std::uint32_t kUnicodeFlag = 0x80000000;
inline constexpr std::int32_t kMessageFlagUnsent = 0x8;
inline constexpr std::int32_t kMessageFlagSubmit = 0x4;
inline constexpr std::int32_t kAccessAll = 0x7;  // MAPI_ACCESS_MODIFY, _READ, _DELETE
inline constexpr std::uint32_t kObjectFolder = 3;

// A value as this tool keeps it; false when its type is none that this tool knows. A binary value's
// bytes are left out and stay the caller's with `with_bytes` false.
[[nodiscard]] bool FromMapi(const SPropValue& value, bool with_bytes, Property& property);

// The properties with the wanted tags, in their order, each missing one as a PT_ERROR value; all of
// them, texts as `text_type`, when `tags` is null. Memory of MAPI with the values; kErrorsReturned
// when one is missing.
[[nodiscard]] HRESULT ToMapi(const Properties& properties, const SPropTagArray* tags,
                             std::uint32_t text_type, BufferKind kind, ULONG& count,
                             LPSPropValue& values);

// A copy of `bytes` in memory of MAPI; null when there is none.
[[nodiscard]] void* CopyToBuffer(std::string_view bytes, BufferKind kind);

[[nodiscard]] inline std::string_view AsBytes(const void* data, std::size_t size) {
  return data == nullptr ? std::string_view()
                         : std::string_view(static_cast<const char*>(data), size);
}

// Sends the message away: into the folder that it names.
[[nodiscard]] HRESULT SendMessageAway(OpenMessage& open);

}  // namespace zentpost::sandbox_mapi
