// The least that a mail client's MAPI library must do with a message: it keeps nothing but the
// attachment's bytes, which it writes into the file named by MAIL_SINK_FILE straight from where the
// tool has them. Whole runs of the tool with this library are measured against bench/floor.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "mapiload/extended_mapi.h"

namespace zentpost {
namespace {

// One object of each kind, which lives as long as the process: references are not counted.
template <class Interface>
struct Object : Interface {
  HRESULT QueryInterface(const GUID& /*iid*/, void** /*object*/) override { return E_NOINTERFACE; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
};

template <class Interface>
struct PropertyObject : Object<Interface> {
  HRESULT SaveChanges(std::uint32_t /*flags*/) override { return S_OK; }
  HRESULT GetProps(SPropTagArray* /*tags*/, std::uint32_t /*flags*/, std::uint32_t* /*count*/,
                   SPropValue** /*values*/) override {
    return E_FAIL;
  }
  HRESULT SetProps(std::uint32_t /*count*/, SPropValue* /*values*/,
                   SPropProblemArray** /*problems*/) override {
    return S_OK;
  }
};

bool WriteAll(int file, const std::uint8_t* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, bytes, size);
    if (written <= 0) {
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

struct Attachment final : PropertyObject<IAttach> {
  HRESULT SetProps(std::uint32_t count, SPropValue* values,
                   SPropProblemArray** /*problems*/) override {
    for (std::uint32_t i = 0; i < count; ++i) {
      if (values[i].ulPropTag == PR_ATTACH_DATA_BIN) {
        const int file =
            open(std::getenv("MAIL_SINK_FILE"), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        const bool written = WriteAll(file, values[i].Value.bin.lpb, values[i].Value.bin.cb);
        close(file);
        return written ? S_OK : E_FAIL;
      }
    }
    return E_FAIL;
  }
} attachment;

struct Message final : PropertyObject<IMessage> {
  HRESULT CreateAttach(const GUID* /*iid*/, std::uint32_t /*flags*/, std::uint32_t* number,
                       IAttach** created) override {
    *number = 0;
    *created = &attachment;
    return S_OK;
  }
  HRESULT ModifyRecipients(std::uint32_t /*flags*/, ADRLIST* /*list*/) override { return S_OK; }
  HRESULT SubmitMessage(std::uint32_t /*flags*/) override { return S_OK; }
} message;

struct Folder final : PropertyObject<IMAPIFolder> {
  HRESULT CreateMessage(const GUID* /*iid*/, std::uint32_t /*flags*/, IMessage** created) override {
    *created = &message;
    return S_OK;
  }
  HRESULT GetMessageStatus(std::uint32_t /*size*/, ENTRYID* /*entry*/, std::uint32_t /*flags*/,
                           std::uint32_t* /*status*/) override {
    return E_FAIL;
  }
} outbox;

struct Store final : PropertyObject<IMsgStore> {
  HRESULT GetProps(SPropTagArray* /*tags*/, std::uint32_t /*flags*/, std::uint32_t* count,
                   SPropValue** values) override {
    static SPropValue outbox_entry = {};
    outbox_entry.ulPropTag = PR_IPM_OUTBOX_ENTRYID;
    *count = 1;
    *values = &outbox_entry;
    return S_OK;
  }
  HRESULT OpenEntry(std::uint32_t /*size*/, ENTRYID* /*entry*/, const GUID* /*iid*/,
                    std::uint32_t /*flags*/, std::uint32_t* /*type*/, IUnknown** opened) override {
    *opened = &outbox;
    return S_OK;
  }
} store;

struct Table final : Object<IMAPITable> {
} table;

struct AddressBook final : PropertyObject<IAddrBook> {
  HRESULT CreateOneOff(char16_t* /*name*/, char16_t* /*type*/, char16_t* /*address*/,
                       std::uint32_t /*flags*/, std::uint32_t* /*size*/,
                       ENTRYID** /*entry*/) override {
    return S_OK;
  }
  HRESULT ResolveName(std::uintptr_t /*ui*/, std::uint32_t /*flags*/, char16_t* /*title*/,
                      ADRLIST* /*list*/) override {
    return S_OK;
  }
} address_book;

struct Session final : Object<IMAPISession> {
  HRESULT GetMsgStoresTable(std::uint32_t /*flags*/, IMAPITable** opened) override {
    *opened = &table;
    return S_OK;
  }
  HRESULT OpenMsgStore(std::uintptr_t /*ui*/, std::uint32_t /*size*/, ENTRYID* /*entry*/,
                       const GUID* /*iid*/, std::uint32_t /*flags*/, IMsgStore** opened) override {
    *opened = &store;
    return S_OK;
  }
  HRESULT OpenAddressBook(std::uintptr_t /*ui*/, const GUID* /*iid*/, std::uint32_t /*flags*/,
                          IAddrBook** opened) override {
    *opened = &address_book;
    return S_OK;
  }
  HRESULT Logoff(std::uintptr_t /*ui*/, std::uint32_t /*flags*/,
                 std::uint32_t /*reserved*/) override {
    return S_OK;
  }
  HRESULT ShowForm(std::uintptr_t /*ui*/, IMsgStore* /*store*/, IMAPIFolder* /*folder*/,
                   const GUID* /*iid*/, std::uintptr_t /*token*/, IMessage* /*message*/,
                   std::uint32_t /*flags*/, std::uint32_t /*status*/,
                   std::uint32_t /*message_flags*/, std::uint32_t /*access*/,
                   char* /*message_class*/) override {
    return E_FAIL;
  }
  HRESULT PrepareForm(const GUID* /*iid*/, IMessage* /*message*/,
                      std::uintptr_t* /*token*/) override {
    return E_FAIL;
  }
} session;

}  // namespace

extern "C" {

PLATFORM_EXPORT HRESULT MAPIInitialize(void* /*init*/) {
  return S_OK;
}

PLATFORM_EXPORT HRESULT MAPILogonEx(std::uintptr_t /*ui*/, char16_t* /*profile*/,
                                    char16_t* /*password*/, std::uint32_t /*flags*/,
                                    IMAPISession** opened) {
  *opened = &session;
  return S_OK;
}

PLATFORM_EXPORT HRESULT MAPIAdminProfiles(std::uint32_t /*flags*/, IProfAdmin** /*admin*/) {
  return E_FAIL;
}

// One default store.
PLATFORM_EXPORT HRESULT HrQueryAllRows(IMAPITable* /*table*/, SPropTagArray* tags,
                                       SRestriction* /*restriction*/, SSortOrderSet* /*order*/,
                                       std::int32_t /*maximum*/, SRowSet** rows) {
  static SPropValue values[2] = {};
  static SRowSet row_set = {1, {{0, 2, values}}};
  values[0].ulPropTag = tags->aulPropTag[0];
  values[0].Value.b = 1;
  values[1].ulPropTag = PR_ENTRYID;
  *rows = &row_set;
  return S_OK;
}

PLATFORM_EXPORT void FreeProws(SRowSet* /*rows*/) {}

PLATFORM_EXPORT void FreePadrlist(ADRLIST* list) {
  std::free(list->aEntries[0].rgPropVals);
  std::free(list);
}

PLATFORM_EXPORT SCODE MAPIAllocateBuffer(std::uint32_t size, void** buffer) {
  *buffer = std::malloc(size);
  return *buffer == nullptr ? MAPI_E_NOT_ENOUGH_MEMORY : S_OK;
}

// Also called with the static store properties.
PLATFORM_EXPORT std::uint32_t MAPIFreeBuffer(void* /*buffer*/) {
  return 0;
}

}  // extern "C"

}  // namespace zentpost
