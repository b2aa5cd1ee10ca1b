// MAPI as the tool declares it. Places of the tables of methods that the tool does not call keep
// what extended_mapi.h has put there.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"
#include "platform/call.h"

namespace zentpost::fake_mapi {

using ULONG = std::uint32_t;
using LONG = std::int32_t;
using ULONG_PTR = std::uintptr_t;
using WideChar = char16_t;
using FormToken = std::uintptr_t;
// What NotifyProcessShutdown gives: nobody calls it here.
using NotifyResult = void;

// Interfaces of which only the methods are missing that the mail client implements.
using AddrBookBase = IAddrBook;
using AttachBase = IAttach;
using FolderBase = IMAPIFolder;
using FormMgrBase = IMAPIFormMgr;
using MessageBase = IMessage;
using MsgStoreBase = IMsgStore;
using ProfAdminBase = IProfAdmin;
using SessionBase = IMAPISession;
using TableBase = IMAPITable;

}  // namespace zentpost::fake_mapi
