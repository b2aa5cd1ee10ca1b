// What the books of the library in memory notice, and how its calls are made to fail.
#include "testing/fake_mapi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "mapiload/entry_points.h"
#include "testing/mapi_test.h"

namespace zentpost::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;  // which ends the program at writing out of bounds
#else
constexpr bool kSanitized = false;
#endif

class FakeMapiTest : public MapiTest {
 protected:
  static void* Allocate(std::uint32_t size) {
    void* block = nullptr;
    EXPECT_EQ(MAPIAllocateBuffer(size, &block), S_OK);
    return block;
  }
};

TEST_F(FakeMapiTest, BooksAreInOrderWhenAllIsGivenBack) {
  void* const block = Allocate(40);
  std::memset(block, 0, 40);
  EXPECT_EQ(MAPIFreeBuffer(block), 0u);
  EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u);
  FreeProws(nullptr);
  FreePadrlist(nullptr);
  IMAPISession* const session = mapi_->OpenSession();
  EXPECT_EQ(session->AddRef(), 2u);
  EXPECT_EQ(session->Release(), 1u);
  EXPECT_EQ(session->Release(), 0u);
  EXPECT_EQ(Trace(),
            Lines({"MAPIAllocateBuffer(40)", "MAPIFreeBuffer(block 1)", "MAPIFreeBuffer(null)",
                   "FreeProws(null)", "FreePadrlist(null)", "IMAPISession::AddRef()",
                   "IMAPISession::Release()", "IMAPISession::Release()"}));
}

TEST_F(FakeMapiTest, WhatIsNotGivenBackIsAComplaint) {
  static_cast<void>(Allocate(1));
  static_cast<void>(Allocate(0));
  IMAPISession* const session = mapi_->OpenSession();
  session->AddRef();
  IMAPITable* table = nullptr;
  EXPECT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
  SizedSPropTagArray<1> tags = {1, {PR_ENTRYID}};
  SRowSet* rows = nullptr;
  EXPECT_EQ(HrQueryAllRows(table, &tags, nullptr, nullptr, 0, &rows), S_OK);
  SettleAccounts(
      "session: references left: 2\n"
      "store table: references left: 1\n"
      "block 1 of MAPIAllocateBuffer: not freed\n"
      "block 2 of MAPIAllocateBuffer: not freed\n"
      "rows of the store table of HrQueryAllRows: not freed\n");
}

TEST_F(FakeMapiTest, WhatIsFreedTwiceOrWronglyIsAComplaint) {
  void* const block = Allocate(4);
  MAPIFreeBuffer(block);
  MAPIFreeBuffer(block);
  int foreign = 0;
  MAPIFreeBuffer(&foreign);

  IMAPISession* const session = mapi_->OpenSession();
  IMAPITable* table = nullptr;
  EXPECT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
  SizedSPropTagArray<1> tags = {1, {PR_ENTRYID}};
  SRowSet* rows = nullptr;
  EXPECT_EQ(HrQueryAllRows(table, &tags, nullptr, nullptr, 0, &rows), S_OK);
  MAPIFreeBuffer(rows);
  MAPIFreeBuffer(rows->aRow[0].lpProps);
  FreeProws(rows);
  table->Release();
  session->Release();
  SettleAccounts(
      "MAPIFreeBuffer of block 1, which is freed already\n"
      "MAPIFreeBuffer of a block that is not the library's\n"
      "MAPIFreeBuffer of rows of the store table\n"
      "MAPIFreeBuffer of a part of rows of the store table\n");
}

TEST_F(FakeMapiTest, AnAddressListEndsWithItsEntries) {
  auto* const list = static_cast<ADRLIST*>(Allocate(sizeof(ADRLIST)));
  list->cEntries = 1;
  list->aEntries[0].rgPropVals = static_cast<SPropValue*>(Allocate(sizeof(SPropValue)));
  FreePadrlist(list);
  FreePadrlist(list);
  SettleAccounts("FreePadrlist of block 1, which is freed already\n");
}

TEST_F(FakeMapiTest, WhatIsUsedAfterItWasReleasedIsAComplaint) {
  IMessage* const message = mapi_->OpenMessage();
  message->Release();
  EXPECT_EQ(message->SubmitMessage(0), S_OK);
  message->Release();
  SettleAccounts(
      "IMessage::SubmitMessage on the released message\n"
      "IMessage::Release on the released message\n");
}

TEST_F(FakeMapiTest, APlaceForTheResultIsNeeded) {
  IMessage* const message = mapi_->OpenMessage();
  EXPECT_EQ(message->CreateAttach(nullptr, 0, nullptr, nullptr), S_OK);
  message->Release();
  SettleAccounts(
      "IMessage::CreateAttach without a place for its result\n"
      "IMessage::CreateAttach without a place for its result\n");
}

TEST_F(FakeMapiTest, WritingOutsideOfABlockIsAComplaint) {
  if (kSanitized) {
    GTEST_SKIP() << "the sanitizer's own business";
  }
  auto* volatile beyond = static_cast<char*>(Allocate(4));
  beyond[4] = 0;
  auto* volatile before = static_cast<char*>(Allocate(4));
  before[-1] = 0;
  MAPIFreeBuffer(before);
  auto* volatile late = static_cast<char*>(Allocate(4));
  MAPIFreeBuffer(late);
  late[3] = 0;
  SettleAccounts(
      "block 2 of MAPIAllocateBuffer: written before its beginning\n"
      "block 1 of MAPIAllocateBuffer: written beyond its end\n"
      "block 1 of MAPIAllocateBuffer: not freed\n"
      "block 3 of MAPIAllocateBuffer: written after it was freed\n");
}

TEST_F(FakeMapiTest, SingleCallsAreMadeToFail) {
  mapi_->Answer("MAPIInitialize", 1, E_FAIL);
  mapi_->Answer("MAPIInitialize", 3, E_INVALIDARG, FakeMapi::FaultMode::kFromThere);
  std::vector<HRESULT> results;
  for (int i = 0; i < 6; ++i) {
    results.push_back(MAPIInitialize(nullptr));
  }
  EXPECT_EQ(results,
            (std::vector<HRESULT>{S_OK, E_FAIL, S_OK, E_INVALIDARG, E_INVALIDARG, E_INVALIDARG}));
}

TEST_F(FakeMapiTest, CallsFailWithTheMachinesToo) {
  machine_.FailCallOf("MAPIInitialize", 1, platform::kAccessDenied);
  EXPECT_EQ(MAPIInitialize(nullptr), S_OK);
  EXPECT_EQ(MAPIInitialize(nullptr), MakeResult(0x80070005));
  machine_.FailCallOf("MAPIInitialize", 0, 0x80040111);
  EXPECT_EQ(MAPIInitialize(nullptr), MakeResult(0x80040111));
  EXPECT_EQ(machine_.FaultedCall(), "MAPIInitialize(null)");
  machine_.ClearFault();
  EXPECT_EQ(MAPIInitialize(nullptr), S_OK);
}

TEST_F(FakeMapiTest, AFailingCallWritesNothing) {
  mapi_->Answer("MAPIAllocateBuffer", 0, E_FAIL);
  int untouched = 0;
  void* block = &untouched;
  EXPECT_EQ(MAPIAllocateBuffer(4, &block), E_FAIL);
  EXPECT_EQ(block, &untouched);
  mapi_->GiveNothing("MAPIAllocateBuffer");
  EXPECT_EQ(MAPIAllocateBuffer(4, &block), S_OK);
  EXPECT_EQ(block, nullptr);
}

TEST_F(FakeMapiTest, AFailingCallMayLeaveGarbageThatNobodyMayUse) {
  mapi_->failures_leave_garbage = true;
  IMAPISession* const session = mapi_->OpenSession();
  IMsgStore* const store = mapi_->OpenStore();
  mapi_->Answer("MAPIAllocateBuffer", 0, E_FAIL);
  void* block = nullptr;
  EXPECT_EQ(MAPIAllocateBuffer(4, &block), E_FAIL);
  MAPIFreeBuffer(block);
  mapi_->Answer("IMsgStore::GetProps", 0, E_FAIL);
  std::uint32_t count = 0;
  SPropValue* values = nullptr;
  EXPECT_EQ(store->GetProps(nullptr, 0, &count, &values), E_FAIL);
  EXPECT_EQ(count, 0xDDDDDDDDu);
  MAPIFreeBuffer(values);
  mapi_->Answer("IMAPISession::OpenMsgStore", 0, E_FAIL);
  IMsgStore* garbage = nullptr;
  EXPECT_EQ(session->OpenMsgStore(0, 0, nullptr, nullptr, 0, &garbage), E_FAIL);
  garbage->Release();
  store->Release();
  session->Release();
  SettleAccounts(
      "MAPIFreeBuffer of garbage of MAPIAllocateBuffer, which is freed already\n"
      "MAPIFreeBuffer of garbage of IMsgStore::GetProps, which is freed already\n"
      "IMsgStore::Release on the released garbage store\n");
}

TEST_F(FakeMapiTest, GarbageTakesNoBlocksNumber) {
  mapi_->failures_leave_garbage = true;
  mapi_->Answer("MAPIAllocateBuffer", 0, E_FAIL);
  void* block = nullptr;
  EXPECT_EQ(MAPIAllocateBuffer(4, &block), E_FAIL);
  EXPECT_EQ(MAPIAllocateBuffer(4, &block), S_OK);
  MAPIFreeBuffer(block);
  EXPECT_EQ(Trace(),
            Lines({"MAPIAllocateBuffer(4)", "MAPIAllocateBuffer(4)", "MAPIFreeBuffer(block 1)"}));
}

}  // namespace
}  // namespace zentpost::test
