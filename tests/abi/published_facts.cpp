// The headers that come with the compiler, which know nothing of ours.
#include <initguid.h>
#include <mapiform.h>
#include <mapiutil.h>
#include <mapix.h>

#include <cstddef>

#include "tests/abi/facts.h"
#include "tests/abi/shape.h"

// What these headers do not have; their own macros make it up.
#define PR_ATTACH_FLAGS PROP_TAG(PT_LONG, 0x3714)
#define PR_ATTACHMENT_LINKID PROP_TAG(PT_LONG, 0x7FFA)
DEFINE_OLEGUID(IID_IMAPIClientShutdown, 0x00020397, 0, 0);

namespace zentpost::abi {
namespace {

std::string g_last_method;
int g_call_count = 0;

// What every method gives, whatever its type.
struct Result {
  template <class Integer>
  operator Integer() const {  // NOLINT(google-explicit-constructor): that is what it is for
    return static_cast<Integer>(g_call_count);
  }
};

Result Called(const char* method) {
  g_last_method = method;
  ++g_call_count;
  return {};
}

std::string Bytes(const void* data, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += std::to_string(static_cast<const unsigned char*>(data)[i]) + " ";
  }
  return text;
}

// The headers list each interface's methods in a macro, to be ended by whoever declares them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#define RECORD \
  { return Called(__func__); }

struct RecordingTable final : IMAPITable {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPITABLE_METHODS(RECORD)
};
struct RecordingFormManager final : IMAPIFormMgr {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_GETLASTERROR_METHOD(RECORD)
  MAPI_IMAPIFORMMGR_METHODS(RECORD)
};
struct RecordingAttachment final : IAttach {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPIPROP_METHODS(RECORD)
};
struct RecordingMessage final : IMessage {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPIPROP_METHODS(RECORD)
  MAPI_IMESSAGE_METHODS(RECORD)
};
struct RecordingFolder final : IMAPIFolder {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPIPROP_METHODS(RECORD)
  MAPI_IMAPICONTAINER_METHODS(RECORD)
  MAPI_IMAPIFOLDER_METHODS(RECORD)
};
struct RecordingStore final : IMsgStore {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPIPROP_METHODS(RECORD)
  MAPI_IMSGSTORE_METHODS(RECORD)
};
struct RecordingBook final : IAddrBook {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPIPROP_METHODS(RECORD)
  MAPI_IADDRBOOK_METHODS(RECORD)
};
struct RecordingSession final : IMAPISession {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IMAPISESSION_METHODS(RECORD)
};
struct RecordingAdmin final : IProfAdmin {
  MAPI_IUNKNOWN_METHODS(RECORD)
  MAPI_IPROFADMIN_METHODS(RECORD)
};

#pragma GCC diagnostic pop

}  // namespace

Facts PublishedFacts() {
  Facts facts;
#define FUNCTION_OF(name) static_cast<decltype(&(name))>(nullptr)
#define UNUSED_NAME(name) name
#include "tests/abi/fact_macros.h"
#include "tests/abi/facts.inc"
  return facts;
}

void* Recorder(const std::string& interface_name) {
  static RecordingTable table;
  static RecordingFormManager form_manager;
  static RecordingAttachment attachment;
  static RecordingMessage message;
  static RecordingFolder folder;
  static RecordingStore store;
  static RecordingBook book;
  static RecordingSession session;
  static RecordingAdmin admin;
  const std::map<std::string, void*> recorders = {
      {"IMAPITable", &table}, {"IMAPIFormMgr", &form_manager}, {"IAttach", &attachment},
      {"IMessage", &message}, {"IMAPIFolder", &folder},        {"IMsgStore", &store},
      {"IAddrBook", &book},   {"IMAPISession", &session},      {"IProfAdmin", &admin}};
  return recorders.at(interface_name);
}

std::string LastMethod() {
  return g_last_method;
}

int CallCount() {
  return g_call_count;
}

}  // namespace zentpost::abi
