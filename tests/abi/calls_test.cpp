// Calls objects and functions that were made from the published declarations, through the tool's
// own ones.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"
#include "mapiload/library.h"
#include "platform/modules.h"
#include "tests/abi/paths.h"
#include "tests/abi/published_library.h"
#include "tests/abi/published_objects.h"

namespace zentpost::abi {
namespace {

// Where the stack stands at a call from the caller.
__attribute__((noinline)) std::uintptr_t StackPlace() {
  const auto place = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  asm volatile("" ::: "memory");
  return place;
}

// Stands for an object or a variable that is passed on without being used.
template <class Type>
Type* Pointer(std::uintptr_t number) {
  return reinterpret_cast<Type*>(number * 0x10010);
}

template <class Argument>
std::uintptr_t Word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return reinterpret_cast<std::uintptr_t>(argument);
  } else {
    return static_cast<std::uintptr_t>(argument);
  }
}

// A reference is passed as the pointer that `argument` is.
template <class Parameter, class Argument>
Parameter Passed(Argument argument) {
  if constexpr (std::is_reference_v<Parameter>) {
    return *argument;
  } else {
    return static_cast<Parameter>(argument);
  }
}

// Calls the method and looks at what arrived there, at what came back, and at the stack: a callee
// that takes off more or less than its caller put on would make it drift.
template <class Interface, class Result, class... Parameters, class... Arguments>
void ExpectCall(const std::string& name, void* object,
                Result (PLATFORM_STDCALL Interface::*method)(Parameters...),
                Arguments... arguments) {
  auto& called = *static_cast<Interface*>(object);
  std::uintptr_t first_place = 0;
  for (int round = 0; round < 3; ++round) {
    const std::uintptr_t place = StackPlace();
    const Result result = (called.*method)(Passed<Parameters>(arguments)...);
    const Call call = TakeLastCall();
    EXPECT_EQ(call.method, name);
    EXPECT_EQ(call.arguments, std::vector<std::uintptr_t>{Word(arguments)...}) << name;
    EXPECT_EQ(call.result, static_cast<std::int32_t>(result)) << name;
    EXPECT_EQ(place, round == 0 ? place : first_place) << name;
    first_place = place;
  }
  EXPECT_EQ(StackPlace(), first_place) << name;
}

template <class Interface>
void ExpectUnknown(void* object) {
  ExpectCall("QueryInterface", object, &Interface::QueryInterface, &IID_IUnknown,
             Pointer<void*>(1));
  ExpectCall("AddRef", object, &Interface::AddRef);
  ExpectCall("Release", object, &Interface::Release);
}

template <class Interface>
void ExpectProperties(void* object) {
  ExpectCall("SaveChanges", object, &Interface::SaveChanges, KEEP_OPEN_READWRITE);
  ExpectCall("GetProps", object, &Interface::GetProps, Pointer<SPropTagArray>(1), MAPI_UNICODE,
             Pointer<std::uint32_t>(2), Pointer<SPropValue*>(3));
  ExpectCall("SetProps", object, &Interface::SetProps, 7u, Pointer<SPropValue>(1),
             Pointer<SPropProblemArray*>(2));
}

const GUID* const kIdentifier = Pointer<const GUID>(40);
constexpr std::uintptr_t kWindow = 0x0BADCAFE;

TEST(PublishedObjects, Session) {
  void* const session = PublishedSession();
  ExpectUnknown<IMAPISession>(session);
  ExpectCall("GetMsgStoresTable", session, &IMAPISession::GetMsgStoresTable, 0x80000001u,
             Pointer<IMAPITable*>(1));
  ExpectCall("OpenMsgStore", session, &IMAPISession::OpenMsgStore, kWindow, 24u,
             Pointer<ENTRYID>(1), kIdentifier, MDB_WRITE | MDB_ONLINE, Pointer<IMsgStore*>(2));
  ExpectCall("OpenAddressBook", session, &IMAPISession::OpenAddressBook, kWindow, kIdentifier, 3u,
             Pointer<IAddrBook*>(1));
  ExpectCall("Logoff", session, &IMAPISession::Logoff, kWindow, 4u, 5u);
  ExpectCall("ShowForm", session, &IMAPISession::ShowForm, kWindow, Pointer<IMsgStore>(1),
             Pointer<IMAPIFolder>(2), kIdentifier, std::uintptr_t{0x89ABCDEF}, Pointer<IMessage>(3),
             11u, 12u, 13u, 14u, Pointer<char>(4));
}

// The published token is written into the lower half of ours.
TEST(PublishedObjects, SessionHandsOutTheFormsToken) {
  std::uintptr_t token = 0;
  ExpectCall("PrepareForm", PublishedSession(), &IMAPISession::PrepareForm, kIdentifier,
             Pointer<IMessage>(1), &token);
  EXPECT_EQ(token, 0x89ABCDEFu);
}

TEST(PublishedObjects, ProfileAdministration) {
  ExpectUnknown<IProfAdmin>(PublishedProfileAdministration());
  ExpectCall("GetProfileTable", PublishedProfileAdministration(), &IProfAdmin::GetProfileTable, 1u,
             Pointer<IMAPITable*>(1));
}

TEST(PublishedObjects, AddressBook) {
  void* const book = PublishedAddressBook();
  ExpectUnknown<IAddrBook>(book);
  ExpectCall("CreateOneOff", book, &IAddrBook::CreateOneOff, Pointer<char16_t>(1),
             Pointer<char16_t>(2), Pointer<char16_t>(3), MAPI_UNICODE, Pointer<std::uint32_t>(4),
             Pointer<ENTRYID*>(5));
  ExpectCall("ResolveName", book, &IAddrBook::ResolveName, kWindow, MAPI_UNICODE,
             Pointer<char16_t>(1), Pointer<ADRLIST>(2));
}

TEST(PublishedObjects, Store) {
  void* const store = PublishedStore();
  ExpectUnknown<IMsgStore>(store);
  ExpectProperties<IMsgStore>(store);
  ExpectCall("OpenEntry", store, &IMsgStore::OpenEntry, 24u, Pointer<ENTRYID>(1), kIdentifier,
             MAPI_BEST_ACCESS, Pointer<std::uint32_t>(2), Pointer<IUnknown*>(3));
}

TEST(PublishedObjects, Folder) {
  void* const folder = PublishedFolder();
  ExpectUnknown<IMAPIFolder>(folder);
  ExpectProperties<IMAPIFolder>(folder);
  ExpectCall("CreateMessage", folder, &IMAPIFolder::CreateMessage, kIdentifier,
             MAPI_DEFERRED_ERRORS, Pointer<IMessage*>(1));
  ExpectCall("GetMessageStatus", folder, &IMAPIFolder::GetMessageStatus, 24u, Pointer<ENTRYID>(1),
             2u, Pointer<std::uint32_t>(3));
}

TEST(PublishedObjects, Message) {
  void* const message = PublishedMessage();
  ExpectUnknown<IMessage>(message);
  ExpectProperties<IMessage>(message);
  ExpectCall("CreateAttach", message, &IMessage::CreateAttach, kIdentifier, 1u,
             Pointer<std::uint32_t>(2), Pointer<IAttach*>(3));
  ExpectCall("ModifyRecipients", message, &IMessage::ModifyRecipients, MODRECIP_ADD,
             Pointer<ADRLIST>(1));
  ExpectCall("SubmitMessage", message, &IMessage::SubmitMessage, 0x80u);
}

TEST(PublishedObjects, Attachment) {
  ExpectUnknown<IAttach>(PublishedAttachment());
  ExpectProperties<IAttach>(PublishedAttachment());
}

TEST(PublishedObjects, Table) {
  ExpectUnknown<IMAPITable>(PublishedTable());
}

TEST(PublishedObjects, FormManager) {
  ExpectUnknown<IMAPIFormMgr>(PublishedFormManager());
}

// --- functions ---

class PublishedLibrary : public testing::Test {
 protected:
  void SetUp() override {
    platform::Module module;
    ASSERT_EQ(platform::LoadModule(ThePaths().library.u16string().c_str(), module),
              platform::kSuccess);
    SetMAPIHandle(std::move(module));
    platform::Procedure procedure = nullptr;
    ASSERT_EQ(platform::FindProcedure(GetMAPIHandle(), "TakeLastCall", procedure),
              platform::kSuccess);
    take_last_call_ = reinterpret_cast<TakeLastCallFunction>(procedure);
  }
  void TearDown() override { SetMAPIHandle({}); }

  // As ExpectCall does for methods, through the tool's own function of that name.
  template <class Result, class... Parameters, class... Arguments>
  void ExpectFunction(const std::string& name, Result (*function)(Parameters...),
                      Arguments... arguments) {
    std::uintptr_t first_place = 0;
    for (int round = 0; round < 3; ++round) {
      const std::uintptr_t place = StackPlace();
      std::int32_t result = 0;
      if constexpr (std::is_void_v<Result>) {
        function(static_cast<Parameters>(arguments)...);
      } else {
        result = static_cast<std::int32_t>(function(static_cast<Parameters>(arguments)...));
      }
      const LibraryCall call = take_last_call_();
      EXPECT_EQ(call.function, name);
      EXPECT_EQ(std::vector<std::uintptr_t>(call.arguments, call.arguments + call.count),
                std::vector<std::uintptr_t>{Word(arguments)...})
          << name;
      EXPECT_EQ(result, std::is_void_v<Result> ? 0 : call.result) << name;
      EXPECT_EQ(place, round == 0 ? place : first_place) << name;
      first_place = place;
    }
    EXPECT_EQ(StackPlace(), first_place) << name;
  }

 private:
  TakeLastCallFunction take_last_call_ = nullptr;
};

TEST_F(PublishedLibrary, AllNineFunctions) {
  ExpectFunction("MAPIInitialize", MAPIInitialize, Pointer<void>(1));
  ExpectFunction("MAPILogonEx", MAPILogonEx, kWindow, Pointer<char16_t>(1), Pointer<char16_t>(2),
                 MAPI_UNICODE | MAPI_EXTENDED, Pointer<IMAPISession*>(3));
  ExpectFunction("MAPIOpenFormMgr", MAPIOpenFormMgr, Pointer<IMAPISession>(1),
                 Pointer<IMAPIFormMgr*>(2));
  ExpectFunction("MAPIAdminProfiles", MAPIAdminProfiles, MAPI_UNICODE, Pointer<IProfAdmin*>(1));
  ExpectFunction("HrQueryAllRows", HrQueryAllRows, Pointer<IMAPITable>(1),
                 Pointer<SPropTagArray>(2), Pointer<SRestriction>(3), Pointer<SSortOrderSet>(4),
                 std::int32_t{-1}, Pointer<SRowSet*>(5));
  ExpectFunction("FreeProws", FreeProws, Pointer<SRowSet>(1));
  ExpectFunction("FreePadrlist", FreePadrlist, Pointer<ADRLIST>(1));
  ExpectFunction("MAPIAllocateBuffer", MAPIAllocateBuffer, 0x80000010u, Pointer<void*>(1));
  ExpectFunction("MAPIFreeBuffer", MAPIFreeBuffer, Pointer<void>(1));
}

}  // namespace
}  // namespace zentpost::abi
