// Extended MAPI as far as the tool uses it: the types, numbers and interfaces that the mail
// client's library and the tool agree on. Declared here, so that every system sees the same.
//
// Names and numbers are the published ones of mapidefs.h, mapitags.h, mapicode.h, mapix.h,
// mapiutil.h and mapiform.h. Widths are those of Windows on every system: a ULONG, LONG, HRESULT or
// SCODE has 32 bits, a wide character is a UTF-16 unit. `char16_t*` stands where the publication
// has a text that is wide because the call's flags hold MAPI_UNICODE, or because no flags say
// otherwise and the tool is a wide program.
//
// Ownership: an interface that a call hands out has one reference, which its receiver gives back
// with Release. A buffer that a call hands out is freed with MAPIFreeBuffer, a row set with
// FreeProws, an address list with FreePadrlist. Arguments stay their caller's.
//
// Every interface belongs to the thread that got it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/call.h"

namespace zentpost {

using HRESULT = std::int32_t;  // negative: failed; 0 or positive: succeeded
using SCODE = std::int32_t;    // the same

// A code as it is published, in hexadecimal.
constexpr HRESULT MakeResult(std::uint32_t code) {
  return static_cast<HRESULT>(code);
}

// --- results (winerror.h, mapicode.h) ---

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_FAIL = MakeResult(0x80004005);
inline constexpr HRESULT E_NOINTERFACE = MakeResult(0x80004002);
inline constexpr HRESULT E_INVALIDARG = MakeResult(0x80070057);
inline constexpr HRESULT MAPI_E_CALL_FAILED = E_FAIL;
inline constexpr HRESULT MAPI_E_NOT_ENOUGH_MEMORY = MakeResult(0x8007000E);
inline constexpr HRESULT MAPI_E_NOT_FOUND = MakeResult(0x8004010F);
inline constexpr HRESULT MAPI_E_USER_CANCEL = MakeResult(0x80040113);

// --- flags ---

inline constexpr std::uint32_t MAPI_UNICODE = 0x80000000;
inline constexpr std::uint32_t MAPI_DEFERRED_ERRORS = 0x8;
inline constexpr std::uint32_t MAPI_BEST_ACCESS = 0x10;
// MAPILogonEx
inline constexpr std::uint32_t MAPI_LOGON_UI = 0x1;
inline constexpr std::uint32_t MAPI_NEW_SESSION = 0x2;
inline constexpr std::uint32_t MAPI_ALLOW_OTHERS = 0x8;
inline constexpr std::uint32_t MAPI_EXTENDED = 0x20;
// IMAPISession::OpenMsgStore
inline constexpr std::uint32_t MDB_WRITE = 0x4;
inline constexpr std::uint32_t MDB_ONLINE = 0x100;
// IMAPIProp::SaveChanges
inline constexpr std::uint32_t KEEP_OPEN_READWRITE = 0x2;
// IMessage::ModifyRecipients
inline constexpr std::uint32_t MODRECIP_ADD = 0x2;
// values of PR_RECIPIENT_TYPE and PR_ATTACH_METHOD
inline constexpr std::int32_t MAPI_TO = 1;
inline constexpr std::int32_t ATTACH_BY_VALUE = 1;

// --- property tags: a number in the upper 16 bits, a type in the lower ---

inline constexpr std::uint32_t PT_LONG = 0x0003;
inline constexpr std::uint32_t PT_ERROR = 0x000A;
inline constexpr std::uint32_t PT_BOOLEAN = 0x000B;
inline constexpr std::uint32_t PT_STRING8 = 0x001E;
inline constexpr std::uint32_t PT_UNICODE = 0x001F;
inline constexpr std::uint32_t PT_BINARY = 0x0102;

constexpr std::uint32_t PROP_TYPE(std::uint32_t tag) {
  return tag & 0xFFFF;
}

inline constexpr std::uint32_t PR_MESSAGE_CLASS_W = 0x001A001F;
inline constexpr std::uint32_t PR_SUBJECT_W = 0x0037001F;
inline constexpr std::uint32_t PR_SENT_REPRESENTING_NAME_W = 0x0042001F;
inline constexpr std::uint32_t PR_RECIPIENT_TYPE = 0x0C150003;
inline constexpr std::uint32_t PR_MESSAGE_FLAGS = 0x0E070003;
inline constexpr std::uint32_t PR_SENTMAIL_ENTRYID = 0x0E0A0102;
inline constexpr std::uint32_t PR_MSG_STATUS = 0x0E170003;
inline constexpr std::uint32_t PR_ACCESS = 0x0FF40003;
inline constexpr std::uint32_t PR_ENTRYID = 0x0FFF0102;
inline constexpr std::uint32_t PR_BODY_W = 0x1000001F;
inline constexpr std::uint32_t PR_DISPLAY_NAME_A = 0x3001001E;
inline constexpr std::uint32_t PR_DISPLAY_NAME_W = 0x3001001F;
inline constexpr std::uint32_t PR_ADDRTYPE_W = 0x3002001F;
inline constexpr std::uint32_t PR_EMAIL_ADDRESS_W = 0x3003001F;
inline constexpr std::uint32_t PR_DEFAULT_STORE = 0x3400000B;
inline constexpr std::uint32_t PR_IPM_OUTBOX_ENTRYID = 0x35E20102;
inline constexpr std::uint32_t PR_IPM_SENTMAIL_ENTRYID = 0x35E40102;
inline constexpr std::uint32_t PR_ATTACH_DATA_BIN = 0x37010102;
inline constexpr std::uint32_t PR_ATTACH_EXTENSION_W = 0x3703001F;
inline constexpr std::uint32_t PR_ATTACH_FILENAME_W = 0x3704001F;
inline constexpr std::uint32_t PR_ATTACH_METHOD = 0x37050003;
inline constexpr std::uint32_t PR_ATTACH_LONG_FILENAME_W = 0x3707001F;
inline constexpr std::uint32_t PR_RENDERING_POSITION = 0x370B0003;
inline constexpr std::uint32_t PR_ATTACH_FLAGS = 0x37140003;
inline constexpr std::uint32_t PR_DEFAULT_PROFILE = 0x3D04000B;
// Has no published name in mapitags.h. Always set to 0.
inline constexpr std::uint32_t PR_ATTACHMENT_LINKID = 0x7FFA0003;

// --- data ---

struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];

  friend constexpr bool operator==(const GUID& left, const GUID& right) {
    bool equal =
        left.Data1 == right.Data1 && left.Data2 == right.Data2 && left.Data3 == right.Data3;
    for (std::size_t i = 0; i < sizeof(Data4); ++i) {
      equal = equal && left.Data4[i] == right.Data4[i];
    }
    return equal;
  }
};

inline constexpr GUID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID IID_IMAPIClientShutdown = {
    0x00020397, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The beginning of an entry identifier; as many bytes as the call beside it says.
struct ENTRYID {
  std::uint8_t abFlags[4];
  std::uint8_t ab[1];
};

struct SBinary {
  std::uint32_t cb;  // bytes
  std::uint8_t* lpb;
};

// Which member holds the value is told by the tag's type.
union SPropValueUnion {
  std::int32_t l;   // PT_LONG
  std::uint16_t b;  // PT_BOOLEAN
  char* lpszA;      // PT_STRING8, zero-terminated, in the system's ANSI code page
  char16_t* lpszW;  // PT_UNICODE, zero-terminated
  SBinary bin;      // PT_BINARY
  SCODE err;        // PT_ERROR
  std::int64_t li;  // the widest single value; gives the union its alignment
};

struct SPropValue {
  std::uint32_t ulPropTag;
  std::uint32_t dwAlignPad;
  SPropValueUnion Value;
};

// A column set: `Count` is what a caller makes space for; a library reads `cValues` of them.
template <std::size_t Count>
struct SizedSPropTagArray {
  std::uint32_t cValues;
  std::uint32_t aulPropTag[Count];
};
using SPropTagArray = SizedSPropTagArray<1>;

struct SRow {
  std::uint32_t ulAdrEntryPad;
  std::uint32_t cValues;
  SPropValue* lpProps;
};

struct SRowSet {
  std::uint32_t cRows;
  SRow aRow[1];  // cRows of them
};

struct ADRENTRY {
  std::uint32_t ulReserved1;
  std::uint32_t cValues;
  SPropValue* rgPropVals;
};

struct ADRLIST {
  std::uint32_t cEntries;
  ADRENTRY aEntries[1];  // cEntries of them
};

struct SPropProblemArray;
struct SRestriction;
struct SSortOrderSet;

// --- interfaces ---
//
// Each method stands in its published place of the table of methods. A place that the tool does not
// call is kept by a method without arguments under its published name; it is private, and cannot be
// called by mistake.

struct IUnknown {
  virtual HRESULT PLATFORM_STDCALL QueryInterface(const GUID& riid, void** ppvObj) = 0;
  virtual std::uint32_t PLATFORM_STDCALL AddRef() = 0;
  virtual std::uint32_t PLATFORM_STDCALL Release() = 0;

 protected:
  // Objects end with their last reference. Not virtual: the published table has no place for it.
  ~IUnknown() = default;
};

struct IMAPITable : IUnknown {};
struct IMAPIFormMgr : IUnknown {};

struct IMAPIProp : IUnknown {
 private:
  virtual void PLATFORM_STDCALL GetLastError() {}

 public:
  virtual HRESULT PLATFORM_STDCALL SaveChanges(std::uint32_t ulFlags) = 0;
  // Null tags ask for all properties. A property that cannot be had comes as a PT_ERROR value.
  virtual HRESULT PLATFORM_STDCALL GetProps(SPropTagArray* lpPropTagArray, std::uint32_t ulFlags,
                                            std::uint32_t* lpcValues,
                                            SPropValue** lppPropArray) = 0;

 private:
  virtual void PLATFORM_STDCALL GetPropList() {}
  virtual void PLATFORM_STDCALL OpenProperty() {}

 public:
  virtual HRESULT PLATFORM_STDCALL SetProps(std::uint32_t cValues, SPropValue* lpPropArray,
                                            SPropProblemArray** lppProblems) = 0;

 private:
  virtual void PLATFORM_STDCALL DeleteProps() {}
  virtual void PLATFORM_STDCALL CopyTo() {}
  virtual void PLATFORM_STDCALL CopyProps() {}
  virtual void PLATFORM_STDCALL GetNamesFromIDs() {}
  virtual void PLATFORM_STDCALL GetIDsFromNames() {}
};

struct IAttach : IMAPIProp {};

struct IMessage : IMAPIProp {
 private:
  virtual void PLATFORM_STDCALL GetAttachmentTable() {}
  virtual void PLATFORM_STDCALL OpenAttach() {}

 public:
  virtual HRESULT PLATFORM_STDCALL CreateAttach(const GUID* lpInterface, std::uint32_t ulFlags,
                                                std::uint32_t* lpulAttachmentNum,
                                                IAttach** lppAttach) = 0;

 private:
  virtual void PLATFORM_STDCALL DeleteAttach() {}
  virtual void PLATFORM_STDCALL GetRecipientTable() {}

 public:
  virtual HRESULT PLATFORM_STDCALL ModifyRecipients(std::uint32_t ulFlags, ADRLIST* lpMods) = 0;
  virtual HRESULT PLATFORM_STDCALL SubmitMessage(std::uint32_t ulFlags) = 0;

 private:
  virtual void PLATFORM_STDCALL SetReadFlag() {}
};

struct IMAPIContainer : IMAPIProp {
 private:
  virtual void PLATFORM_STDCALL GetContentsTable() {}
  virtual void PLATFORM_STDCALL GetHierarchyTable() {}
  virtual void PLATFORM_STDCALL OpenEntry() {}
  virtual void PLATFORM_STDCALL SetSearchCriteria() {}
  virtual void PLATFORM_STDCALL GetSearchCriteria() {}
};

struct IMAPIFolder : IMAPIContainer {
  virtual HRESULT PLATFORM_STDCALL CreateMessage(const GUID* lpInterface, std::uint32_t ulFlags,
                                                 IMessage** lppMessage) = 0;

 private:
  virtual void PLATFORM_STDCALL CopyMessages() {}
  virtual void PLATFORM_STDCALL DeleteMessages() {}
  virtual void PLATFORM_STDCALL CreateFolder() {}
  virtual void PLATFORM_STDCALL CopyFolder() {}
  virtual void PLATFORM_STDCALL DeleteFolder() {}
  virtual void PLATFORM_STDCALL SetReadFlags() {}

 public:
  virtual HRESULT PLATFORM_STDCALL GetMessageStatus(std::uint32_t cbEntryID, ENTRYID* lpEntryID,
                                                    std::uint32_t ulFlags,
                                                    std::uint32_t* lpulMessageStatus) = 0;

 private:
  virtual void PLATFORM_STDCALL SetMessageStatus() {}
  virtual void PLATFORM_STDCALL SaveContentsSort() {}
  virtual void PLATFORM_STDCALL EmptyFolder() {}
};

struct IMsgStore : IMAPIProp {
 private:
  virtual void PLATFORM_STDCALL Advise() {}
  virtual void PLATFORM_STDCALL Unadvise() {}
  virtual void PLATFORM_STDCALL CompareEntryIDs() {}

 public:
  virtual HRESULT PLATFORM_STDCALL OpenEntry(std::uint32_t cbEntryID, ENTRYID* lpEntryID,
                                             const GUID* lpInterface, std::uint32_t ulFlags,
                                             std::uint32_t* lpulObjType, IUnknown** lppUnk) = 0;

 private:
  virtual void PLATFORM_STDCALL SetReceiveFolder() {}
  virtual void PLATFORM_STDCALL GetReceiveFolder() {}
  virtual void PLATFORM_STDCALL GetReceiveFolderTable() {}
  virtual void PLATFORM_STDCALL StoreLogoff() {}
  virtual void PLATFORM_STDCALL AbortSubmit() {}
  virtual void PLATFORM_STDCALL GetOutgoingQueue() {}
  virtual void PLATFORM_STDCALL SetLockState() {}
  virtual void PLATFORM_STDCALL FinishedMsg() {}
  virtual void PLATFORM_STDCALL NotifyNewMail() {}
};

struct IAddrBook : IMAPIProp {
 private:
  virtual void PLATFORM_STDCALL OpenEntry() {}
  virtual void PLATFORM_STDCALL CompareEntryIDs() {}
  virtual void PLATFORM_STDCALL Advise() {}
  virtual void PLATFORM_STDCALL Unadvise() {}

 public:
  virtual HRESULT PLATFORM_STDCALL CreateOneOff(char16_t* lpszName, char16_t* lpszAdrType,
                                                char16_t* lpszAddress, std::uint32_t ulFlags,
                                                std::uint32_t* lpcbEntryID,
                                                ENTRYID** lppEntryID) = 0;

 private:
  virtual void PLATFORM_STDCALL NewEntry() {}

 public:
  virtual HRESULT PLATFORM_STDCALL ResolveName(std::uintptr_t ulUIParam, std::uint32_t ulFlags,
                                               char16_t* lpszNewEntryTitle, ADRLIST* lpAdrList) = 0;

 private:
  virtual void PLATFORM_STDCALL Address() {}
  virtual void PLATFORM_STDCALL Details() {}
  virtual void PLATFORM_STDCALL RecipOptions() {}
  virtual void PLATFORM_STDCALL QueryDefaultRecipOpt() {}
  virtual void PLATFORM_STDCALL GetPAB() {}
  virtual void PLATFORM_STDCALL SetPAB() {}
  virtual void PLATFORM_STDCALL GetDefaultDir() {}
  virtual void PLATFORM_STDCALL SetDefaultDir() {}
  virtual void PLATFORM_STDCALL GetSearchPath() {}
  virtual void PLATFORM_STDCALL SetSearchPath() {}
  virtual void PLATFORM_STDCALL PrepareRecips() {}
};

struct IProfAdmin : IUnknown {
 private:
  virtual void PLATFORM_STDCALL GetLastError() {}

 public:
  virtual HRESULT PLATFORM_STDCALL GetProfileTable(std::uint32_t ulFlags,
                                                   IMAPITable** lppTable) = 0;

 private:
  virtual void PLATFORM_STDCALL CreateProfile() {}
  virtual void PLATFORM_STDCALL DeleteProfile() {}
  virtual void PLATFORM_STDCALL ChangeProfilePassword() {}
  virtual void PLATFORM_STDCALL CopyProfile() {}
  virtual void PLATFORM_STDCALL RenameProfile() {}
  virtual void PLATFORM_STDCALL SetDefaultProfile() {}
  virtual void PLATFORM_STDCALL AdminServices() {}
};

struct IMAPISession : IUnknown {
 private:
  virtual void PLATFORM_STDCALL GetLastError() {}

 public:
  virtual HRESULT PLATFORM_STDCALL GetMsgStoresTable(std::uint32_t ulFlags,
                                                     IMAPITable** lppTable) = 0;
  virtual HRESULT PLATFORM_STDCALL OpenMsgStore(std::uintptr_t ulUIParam, std::uint32_t cbEntryID,
                                                ENTRYID* lpEntryID, const GUID* lpInterface,
                                                std::uint32_t ulFlags, IMsgStore** lppMDB) = 0;
  virtual HRESULT PLATFORM_STDCALL OpenAddressBook(std::uintptr_t ulUIParam,
                                                   const GUID* lpInterface, std::uint32_t ulFlags,
                                                   IAddrBook** lppAdrBook) = 0;

 private:
  virtual void PLATFORM_STDCALL OpenProfileSection() {}
  virtual void PLATFORM_STDCALL GetStatusTable() {}
  virtual void PLATFORM_STDCALL OpenEntry() {}
  virtual void PLATFORM_STDCALL CompareEntryIDs() {}
  virtual void PLATFORM_STDCALL Advise() {}
  virtual void PLATFORM_STDCALL Unadvise() {}
  virtual void PLATFORM_STDCALL MessageOptions() {}
  virtual void PLATFORM_STDCALL QueryDefaultMessageOpt() {}
  virtual void PLATFORM_STDCALL EnumAdrTypes() {}
  virtual void PLATFORM_STDCALL QueryIdentity() {}

 public:
  virtual HRESULT PLATFORM_STDCALL Logoff(std::uintptr_t ulUIParam, std::uint32_t ulFlags,
                                          std::uint32_t ulReserved) = 0;

 private:
  virtual void PLATFORM_STDCALL SetDefaultStore() {}
  virtual void PLATFORM_STDCALL AdminServices() {}

 public:
  // The token has 32 bits in some publications and a pointer's width in others. Whoever hands out
  // the wider variable, zeroed, suits both.
  virtual HRESULT PLATFORM_STDCALL ShowForm(std::uintptr_t ulUIParam, IMsgStore* lpMsgStore,
                                            IMAPIFolder* lpParentFolder, const GUID* lpInterface,
                                            std::uintptr_t ulMessageToken, IMessage* lpMessageSent,
                                            std::uint32_t ulFlags, std::uint32_t ulMessageStatus,
                                            std::uint32_t ulMessageFlags, std::uint32_t ulAccess,
                                            char* lpszMessageClass) = 0;
  virtual HRESULT PLATFORM_STDCALL PrepareForm(const GUID* lpInterface, IMessage* lpMessage,
                                               std::uintptr_t* lpulMessageToken) = 0;
};

// Published in the mail client's own documentation; older headers lack it.
struct IMAPIClientShutdown : IUnknown {
  virtual HRESULT PLATFORM_STDCALL QueryFastShutdown() = 0;

 private:
  virtual void PLATFORM_STDCALL NotifyProcessShutdown() {}

 public:
  virtual HRESULT PLATFORM_STDCALL DoFastShutdown() = 0;
};

}  // namespace zentpost
