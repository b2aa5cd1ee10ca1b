#include "mapi/recipients.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "app/registry_names.h"
#include "diag/log_file.h"
#include "mapi/owners.h"
#include "mapi/property_values.h"
#include "mapi/results.h"
#include "mapi/text_buffer.h"
#include "platform/memory_failure.h"
#include "platform/registry.h"

namespace zentpost {
namespace {

constexpr std::uint32_t kEntryValues = 20;

// A setting of the mail client's add-in, as text whatever its type; empty when it cannot be read.
// Throws std::bad_alloc when memory runs out: the number must not go out under another address.
std::u16string ReadSetting(const char16_t* value_name) {
  platform::RegistryKey key;
  if (platform::ThrowWithoutMemory(platform::OpenKey(
          platform::Hive::kCurrentUser, registry::kAddinKey, platform::kKeyReadWrite, key)) !=
      platform::kSuccess) {
    return {};
  }
  constexpr std::size_t kStep = 255;
  std::u16string text;
  platform::Status status = platform::kMoreData;
  std::uint32_t size = 0;
  while (status == platform::kMoreData) {
    text.resize(text.size() + kStep);
    size = static_cast<std::uint32_t>(text.size() * sizeof(char16_t));
    status = platform::QueryValue(key, value_name, nullptr, text.data(), size);
  }
  if (platform::ThrowWithoutMemory(status) != platform::kSuccess) {
    return {};
  }
  text.resize(std::min(text.size(), size / sizeof(char16_t)));
  // The value may have been stored with a terminator, or with several.
  text.resize(std::min(text.size(), text.find(u'\0')));
  return text;
}

struct Address {
  std::u16string text;
  const char16_t* type;
};

Address AutomaticAddress(const std::u16string& recipient, const std::u16string& prefix,
                         const std::u16string& suffix) {
  if (recipient.find(u'@') != std::u16string::npos) {
    return {recipient, u"SMTP"};
  }
  if (suffix.find(u'@') != std::u16string::npos) {
    return {prefix + recipient + suffix, u"SMTP"};
  }
  // These two select the type instead of wrapping the number.
  if (prefix == u"[FAX" && suffix == u"]") {
    return {recipient, u"FAX"};
  }
  return {prefix + recipient + suffix, u""};
}

// Without automation the types are assigned the other way round, on purpose.
Address PlainAddress(const std::u16string& recipient) {
  return {recipient, recipient.find(u'@') == std::u16string::npos ? u"SMTP" : u"FAX"};
}

}  // namespace

bool IsAddressAutomatic() {
  return ReadSetting(registry::kAddressAutomation) == u"1";
}

HRESULT ProcessClientAddressAutomation(const char16_t* recipient, char16_t* address,
                                       std::uint32_t /*reserved*/, char16_t* addressType) try {
  const bool is_automatic = IsAddressAutomatic();
  const std::u16string prefix = ReadSetting(registry::kAddressPrefix);
  const std::u16string suffix = ReadSetting(registry::kAddressPostfix);
  if (recipient == nullptr) {
    LogError(u"ProcessClientAddressAutomation(): The recipient address is NULL.");
    return E_INVALIDARG;
  }
  if (*recipient == u'\0') {
    LogError(u"ProcessClientAddressAutomation(): The recipient address is empty.");
    return E_INVALIDARG;
  }
  if (address == nullptr) {
    LogError(
        u"ProcessClientAddressAutomation(): The output buffer for the address calculation is "
        u"invalid.");
    return E_INVALIDARG;
  }
  if (addressType == nullptr) {
    LogError(
        u"ProcessClientAddressAutomation(): The output buffer for the address type is invalid.");
    return E_INVALIDARG;
  }
  Address computed;
  if (is_automatic) {
    LogInfo(u"ProcessClientAddressAutomation(): The client address automation is turned on:");
    LogInfo(u"ProcessClientAddressAutomation(): Address Prefix: '%s'", prefix);
    LogInfo(u"ProcessClientAddressAutomation(): Address Suffix: '%s'", suffix);
    computed = AutomaticAddress(recipient, prefix, suffix);
  } else {
    LogInfo(u"ProcessClientAddressAutomation(): The client address automation is turned off.");
    computed = PlainAddress(recipient);
  }
  CopyText(computed.text, address, kTextBufferSize);
  CopyText(computed.type, addressType, kTextBufferSize);
  LogInfo(u"ProcessClientAddressAutomation(): %s --> '%s:%s'", recipient, addressType, address);
  return S_OK;
} catch (...) {
  return MAPI_E_NOT_ENOUGH_MEMORY;
}

HRESULT AddRecipientAddress(IMAPISession* session, IMessage* message, const char16_t* address,
                            const char16_t* displayName, const char16_t* addressType) {
  if (address == nullptr) {
    LogError(u"AddRecipientAddress(): The recipient address is NULL.");
    return E_INVALIDARG;
  }
  if (*address == u'\0') {
    LogError(u"AddRecipientAddress(): The recipient address is empty.");
    return E_INVALIDARG;
  }
  if (message == nullptr) {
    LogError(u"AddRecipientAddress(): The message interface is NULL.");
    return E_INVALIDARG;
  }
  MapiReference<IAddrBook> address_book;
  HRESULT result =
      ResultOf(session->OpenAddressBook(0, nullptr, 0, address_book.Put()), address_book);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"AddRecipientAddress(): The address book cannot be opened.");
    return result;
  }
  // Freed after the list, which may still refer to it.
  MapiBuffer<ENTRYID> one_off;
  MapiAddressList list;
  void* block = nullptr;
  if (Failed(AllocateZeroed(sizeof(ADRLIST), block))) {
    // The line carries the result that is returned, and that is still the address book's.
    LogErrorWithCode(CodeOf(result),
                     u"AddRecipientAddress(): The address list cannot be allocated.");
    return result;
  }
  list.Reset(static_cast<ADRLIST*>(block));
  list.Get()->cEntries = 1;
  ADRENTRY& entry = list.Get()->aEntries[0];
  result = AllocateZeroed(kEntryValues * sizeof(SPropValue), block);
  if (Failed(result)) {
    return result;
  }
  entry.rgPropVals = static_cast<SPropValue*>(block);

  char16_t name[kTextBufferSize] = {};
  CopyText(displayName != nullptr && *displayName != u'\0' ? displayName : address, name,
           kTextBufferSize);
  char16_t type[kTextBufferSize] = {};
  CopyText(addressType != nullptr ? addressType : u"", type, kTextBufferSize);
  const bool has_type = type[0] != u'\0';

  SPropValue* next = entry.rgPropVals;
  *next++ = TextProperty(PR_DISPLAY_NAME_W, name);
  if (has_type) {
    *next++ = TextProperty(PR_ADDRTYPE_W, type);
  }
  *next++ = TextProperty(PR_EMAIL_ADDRESS_W, address);
  *next++ = NumberProperty(PR_RECIPIENT_TYPE, MAPI_TO);
  entry.cValues = static_cast<std::uint32_t>(next - entry.rgPropVals);
  // The next value is there already, and counts once it has been filled in.
  next->ulPropTag = PR_ENTRYID;
  if (has_type) {
    SBinary& entry_id = next->Value.bin;
    result =
        ForgetOnFailure(address_book.Get()->CreateOneOff(name, type, const_cast<char16_t*>(address),
                                                         MAPI_UNICODE, &entry_id.cb, one_off.Put()),
                        entry_id.cb, one_off);
    if (Failed(result)) {
      LogErrorWithCode(CodeOf(result),
                       u"AddRecipientAddress(): The ONE OFF address creation failed.");
      return result;
    }
    entry_id.lpb = reinterpret_cast<std::uint8_t*>(one_off.Get());
    if (!one_off) {
      entry_id.cb = 0;
    }
    ++entry.cValues;
    result = address_book.Get()->ResolveName(0, MAPI_UNICODE, nullptr, list.Get());
    if (Failed(result)) {
      LogErrorWithCode(CodeOf(result),
                       u"AddRecipientAddress(): The address list resolution failed.");
      return result;
    }
  }
  result = message->ModifyRecipients(MODRECIP_ADD, list.Get());
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"AddRecipientAddress(): The recipient cannot be added.");
    return result;
  }
  result = message->SaveChanges(KEEP_OPEN_READWRITE);
  if (Failed(result)) {
    LogErrorWithCode(CodeOf(result), u"AddRecipientAddress(): The message cannot be saved.");
  }
  return result;
}

}  // namespace zentpost
