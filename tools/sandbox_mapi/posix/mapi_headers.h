// MAPI on a system that has no headers for it: the tool's own declarations under the published
// names that the library's sources use. Places of the tables of methods that nobody calls keep what
// extended_mapi.h has put there.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"
#include "platform/call.h"

using zentpost::HRESULT;
using zentpost::SCODE;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using LPVOID = void*;
using LPSTR = char*;
using LPTSTR = char16_t*;

using zentpost::GUID;
using IID = GUID;
using REFIID = const IID&;
using LPCIID = const IID*;

using zentpost::ADRENTRY;
using zentpost::ADRLIST;
using zentpost::ENTRYID;
using zentpost::SBinary;
using zentpost::SPropProblemArray;
using zentpost::SPropTagArray;
using zentpost::SPropValue;
using zentpost::SRestriction;
using zentpost::SRow;
using zentpost::SRowSet;
using zentpost::SSortOrderSet;
using LPADRLIST = ADRLIST*;
using LPENTRYID = ENTRYID*;
using LPSPropProblemArray = SPropProblemArray*;
using LPSPropTagArray = SPropTagArray*;
using LPSPropValue = SPropValue*;
using LPSRestriction = SRestriction*;
using LPSRowSet = SRowSet*;
using LPSSortOrderSet = SSortOrderSet*;

using zentpost::IAddrBook;
using zentpost::IAttach;
using zentpost::IMAPIClientShutdown;
using zentpost::IMAPIFolder;
using zentpost::IMAPIFormMgr;
using zentpost::IMAPISession;
using zentpost::IMAPITable;
using zentpost::IMessage;
using zentpost::IMsgStore;
using zentpost::IProfAdmin;
using zentpost::IUnknown;
using LPADRBOOK = IAddrBook*;
using LPATTACH = IAttach*;
using LPMAPIFOLDER = IMAPIFolder*;
using LPMAPIFORMMGR = IMAPIFormMgr*;
using LPMAPISESSION = IMAPISession*;
using LPMAPITABLE = IMAPITable*;
using LPMDB = IMsgStore*;
using LPMESSAGE = IMessage*;
using LPPROFADMIN = IProfAdmin*;
using LPUNKNOWN = IUnknown*;

namespace zentpost::sandbox_mapi {

// As wide as a pointer in these declarations, and 32 bits in others: the library uses 32 bits.
using FormToken = std::uintptr_t;

// What NotifyProcessShutdown gives: nobody calls it here.
using NotifyResult = void;

// The interfaces with all their methods implemented that the library does not implement itself.
using AddrBookBase = IAddrBook;
using AttachBase = IAttach;
using ClientShutdownBase = IMAPIClientShutdown;
using FolderBase = IMAPIFolder;
using FormMgrBase = IMAPIFormMgr;
using MessageBase = IMessage;
using MsgStoreBase = IMsgStore;
using ProfAdminBase = IProfAdmin;
using SessionBase = IMAPISession;
using TableBase = IMAPITable;

}  // namespace zentpost::sandbox_mapi
