#include "tests/abi/published_objects.h"

#include <windows.h>
// After windows.h, whose types they use.
#include <mapix.h>
// Needs the types of the one above.
#include <mapiform.h>

#include <type_traits>
#include <utility>

// The methods that nobody is to call have arguments all the same.
#pragma GCC diagnostic ignored "-Wunused-parameter"

namespace zentpost::abi {
namespace {

Call last_call;
HRESULT next_result = 0x1000;

template <class Argument>
std::uintptr_t Word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return reinterpret_cast<std::uintptr_t>(argument);
  } else {
    return static_cast<std::uintptr_t>(argument);
  }
}

// Every call gives another result.
template <class... Arguments>
HRESULT Note(const char* method, Arguments... arguments) {
  last_call = {method, {Word(arguments)...}, ++next_result};
  return last_call.result;
}

// Ends a declaration of the published lists of methods.
#define UNUSED \
  { return {}; }

// Lets an object be called by IUnknown's methods too.
#define NOTE_UNKNOWN                                                            \
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override { \
    return Note("QueryInterface", &id, object);                                 \
  }                                                                             \
  ULONG STDMETHODCALLTYPE AddRef() override {                                   \
    return static_cast<ULONG>(Note("AddRef"));                                  \
  }                                                                             \
  ULONG STDMETHODCALLTYPE Release() override {                                  \
    return static_cast<ULONG>(Note("Release"));                                 \
  }

// The same for the methods of IMAPIProp that are in use.
#define NOTE_PROPERTIES                                                               \
  HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override {                       \
    return Note("SaveChanges", flags);                                                \
  }                                                                                   \
  HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count, \
                                     LPSPropValue* values) override {                 \
    return Note("GetProps", tags, flags, count, values);                              \
  }                                                                                   \
  HRESULT STDMETHODCALLTYPE SetProps(ULONG count, LPSPropValue values,                \
                                     LPSPropProblemArray* problems) override {        \
    return Note("SetProps", count, values, problems);                                 \
  }

// All methods of each interface, and what makes the ones in use tell of their calls.

struct IgnoringSession : IMAPISession {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPISESSION_METHODS(UNUSED)
};
struct Session final : IgnoringSession {
  NOTE_UNKNOWN
  HRESULT STDMETHODCALLTYPE GetMsgStoresTable(ULONG flags, LPMAPITABLE* table) override {
    return Note("GetMsgStoresTable", flags, table);
  }
  HRESULT STDMETHODCALLTYPE OpenMsgStore(ULONG_PTR window, ULONG size, LPENTRYID entry, LPCIID id,
                                         ULONG flags, LPMDB* store) override {
    return Note("OpenMsgStore", window, size, entry, id, flags, store);
  }
  HRESULT STDMETHODCALLTYPE OpenAddressBook(ULONG_PTR window, LPCIID id, ULONG flags,
                                            LPADRBOOK* book) override {
    return Note("OpenAddressBook", window, id, flags, book);
  }
  HRESULT STDMETHODCALLTYPE Logoff(ULONG_PTR window, ULONG flags, ULONG reserved) override {
    return Note("Logoff", window, flags, reserved);
  }
  HRESULT STDMETHODCALLTYPE ShowForm(ULONG_PTR window, LPMDB store, LPMAPIFOLDER folder, LPCIID id,
                                     ULONG token, LPMESSAGE sent, ULONG flags, ULONG status,
                                     ULONG message_flags, ULONG access,
                                     LPSTR message_class) override {
    return Note("ShowForm", window, store, folder, id, token, sent, flags, status, message_flags,
                access, message_class);
  }
  HRESULT STDMETHODCALLTYPE PrepareForm(LPCIID id, LPMESSAGE message, ULONG* token) override {
    *token = 0x89ABCDEF;
    return Note("PrepareForm", id, message, token);
  }
};

struct IgnoringProfileAdministration : IProfAdmin {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IPROFADMIN_METHODS(UNUSED)
};
struct ProfileAdministration final : IgnoringProfileAdministration {
  NOTE_UNKNOWN
  HRESULT STDMETHODCALLTYPE GetProfileTable(ULONG flags, LPMAPITABLE* table) override {
    return Note("GetProfileTable", flags, table);
  }
};

struct IgnoringAddressBook : IAddrBook {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPIPROP_METHODS(UNUSED)
  MAPI_IADDRBOOK_METHODS(UNUSED)
};
struct AddressBook final : IgnoringAddressBook {
  NOTE_UNKNOWN
  HRESULT STDMETHODCALLTYPE CreateOneOff(LPTSTR name, LPTSTR type, LPTSTR address, ULONG flags,
                                         ULONG* size, LPENTRYID* entry) override {
    return Note("CreateOneOff", name, type, address, flags, size, entry);
  }
  HRESULT STDMETHODCALLTYPE ResolveName(ULONG_PTR window, ULONG flags, LPTSTR title,
                                        LPADRLIST list) override {
    return Note("ResolveName", window, flags, title, list);
  }
};

struct IgnoringStore : IMsgStore {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPIPROP_METHODS(UNUSED)
  MAPI_IMSGSTORE_METHODS(UNUSED)
};
struct Store final : IgnoringStore {
  NOTE_UNKNOWN
  NOTE_PROPERTIES
  HRESULT STDMETHODCALLTYPE OpenEntry(ULONG size, LPENTRYID entry, LPCIID id, ULONG flags,
                                      ULONG* type, LPUNKNOWN* object) override {
    return Note("OpenEntry", size, entry, id, flags, type, object);
  }
};

struct IgnoringFolder : IMAPIFolder {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPIPROP_METHODS(UNUSED)
  MAPI_IMAPICONTAINER_METHODS(UNUSED)
  MAPI_IMAPIFOLDER_METHODS(UNUSED)
};
struct Folder final : IgnoringFolder {
  NOTE_UNKNOWN
  NOTE_PROPERTIES
  HRESULT STDMETHODCALLTYPE CreateMessage(LPCIID id, ULONG flags, LPMESSAGE* message) override {
    return Note("CreateMessage", id, flags, message);
  }
  HRESULT STDMETHODCALLTYPE GetMessageStatus(ULONG size, LPENTRYID entry, ULONG flags,
                                             ULONG* status) override {
    return Note("GetMessageStatus", size, entry, flags, status);
  }
};

struct IgnoringMessage : IMessage {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPIPROP_METHODS(UNUSED)
  MAPI_IMESSAGE_METHODS(UNUSED)
};
struct Message final : IgnoringMessage {
  NOTE_UNKNOWN
  NOTE_PROPERTIES
  HRESULT STDMETHODCALLTYPE CreateAttach(LPCIID id, ULONG flags, ULONG* number,
                                         LPATTACH* attachment) override {
    return Note("CreateAttach", id, flags, number, attachment);
  }
  HRESULT STDMETHODCALLTYPE ModifyRecipients(ULONG flags, LPADRLIST list) override {
    return Note("ModifyRecipients", flags, list);
  }
  HRESULT STDMETHODCALLTYPE SubmitMessage(ULONG flags) override {
    return Note("SubmitMessage", flags);
  }
};

struct IgnoringAttachment : IAttach {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPIPROP_METHODS(UNUSED)
};
struct Attachment final : IgnoringAttachment {
  NOTE_UNKNOWN
  NOTE_PROPERTIES
};

struct IgnoringTable : IMAPITable {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_IMAPITABLE_METHODS(UNUSED)
};
struct Table final : IgnoringTable {
  NOTE_UNKNOWN
};

struct IgnoringFormManager : IMAPIFormMgr {
  MAPI_IUNKNOWN_METHODS(UNUSED)
  MAPI_GETLASTERROR_METHOD(UNUSED)
  MAPI_IMAPIFORMMGR_METHODS(UNUSED)
};
struct FormManager final : IgnoringFormManager {
  NOTE_UNKNOWN
};

// As whoever gets the interface from the library would see the object.
template <class Interface, class Object>
void* TheObject() {
  static Object object;
  return static_cast<Interface*>(&object);
}

}  // namespace

Call TakeLastCall() {
  return std::exchange(last_call, {});
}

void* PublishedSession() {
  return TheObject<IMAPISession, Session>();
}
void* PublishedProfileAdministration() {
  return TheObject<IProfAdmin, ProfileAdministration>();
}
void* PublishedAddressBook() {
  return TheObject<IAddrBook, AddressBook>();
}
void* PublishedStore() {
  return TheObject<IMsgStore, Store>();
}
void* PublishedFolder() {
  return TheObject<IMAPIFolder, Folder>();
}
void* PublishedMessage() {
  return TheObject<IMessage, Message>();
}
void* PublishedAttachment() {
  return TheObject<IAttach, Attachment>();
}
void* PublishedTable() {
  return TheObject<IMAPITable, Table>();
}
void* PublishedFormManager() {
  return TheObject<IMAPIFormMgr, FormManager>();
}

}  // namespace zentpost::abi
