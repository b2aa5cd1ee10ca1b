// Our own declarations, which know nothing of the published headers.
#include <cstddef>
#include <cstdint>

#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"
#include "tests/abi/facts.h"
#include "tests/abi/shape.h"

namespace zentpost::abi {
namespace {

std::string Bytes(const void* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += std::to_string(static_cast<const unsigned char*>(data)[i]) + " ";
  }
  return text;
}

// An entry point's type without the promise that it throws nothing.
template <class Result, class... Parameters>
auto WithoutNoexcept(Result(PLATFORM_STDCALL*)(Parameters...) noexcept) {
  return static_cast<Result(PLATFORM_STDCALL*)(Parameters...)>(nullptr);
}

}  // namespace

Facts OurFacts() {
  Facts facts;
#define FUNCTION_OF(name) WithoutNoexcept(static_cast<decltype(&(name))>(nullptr))
#define UNUSED_NAME(name) Unused##name
#include "tests/abi/fact_macros.h"
#include "tests/abi/facts.inc"
  return facts;
}

std::vector<std::string> CallThroughOurs() {
  std::vector<std::string> lines;
  const auto record = [&lines](const char* name, auto result) {
    lines.push_back(std::string(name) + " called " + LastMethod() + ", result " +
                    std::to_string(result) + " of " + std::to_string(CallCount()));
  };
// Our interface on a recorder.
#define ON(type) static_cast<type*>(Recorder(#type))
#define CALL(type, method, ...) record(#type "::" #method, ON(type)->method(__VA_ARGS__))
  CALL(IMAPITable, QueryInterface, IID_IUnknown, nullptr);
  CALL(IMAPITable, AddRef);
  CALL(IMAPITable, Release);
  CALL(IMAPIFormMgr, Release);
  CALL(IAttach, SaveChanges, 1);
  CALL(IAttach, SetProps, 1, nullptr, nullptr);
  CALL(IAttach, Release);
  CALL(IMessage, SaveChanges, 1);
  CALL(IMessage, GetProps, nullptr, 1, nullptr, nullptr);
  CALL(IMessage, SetProps, 1, nullptr, nullptr);
  CALL(IMessage, CreateAttach, nullptr, 1, nullptr, nullptr);
  CALL(IMessage, ModifyRecipients, 1, nullptr);
  CALL(IMessage, SubmitMessage, 1);
  CALL(IMessage, Release);
  CALL(IMAPIFolder, CreateMessage, nullptr, 1, nullptr);
  CALL(IMAPIFolder, GetMessageStatus, 1, nullptr, 1, nullptr);
  CALL(IMAPIFolder, Release);
  CALL(IMsgStore, GetProps, nullptr, 1, nullptr, nullptr);
  CALL(IMsgStore, OpenEntry, 1, nullptr, nullptr, 1, nullptr, nullptr);
  CALL(IMsgStore, Release);
  CALL(IAddrBook, CreateOneOff, nullptr, nullptr, nullptr, 1, nullptr, nullptr);
  CALL(IAddrBook, ResolveName, 1, 1, nullptr, nullptr);
  CALL(IAddrBook, Release);
  CALL(IMAPISession, QueryInterface, IID_IMAPIClientShutdown, nullptr);
  CALL(IMAPISession, GetMsgStoresTable, 1, nullptr);
  CALL(IMAPISession, OpenMsgStore, 1, 1, nullptr, nullptr, 1, nullptr);
  CALL(IMAPISession, OpenAddressBook, 1, nullptr, 1, nullptr);
  CALL(IMAPISession, Logoff, 1, 1, 1);
  CALL(IMAPISession, ShowForm, 1, nullptr, nullptr, nullptr, 1, nullptr, 1, 1, 1, 1, nullptr);
  CALL(IMAPISession, PrepareForm, nullptr, nullptr, nullptr);
  CALL(IMAPISession, Release);
  CALL(IProfAdmin, GetProfileTable, 1, nullptr);
  CALL(IProfAdmin, Release);
  return lines;
}

}  // namespace zentpost::abi
