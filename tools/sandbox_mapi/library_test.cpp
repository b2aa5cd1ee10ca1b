// What becomes of the orders, and what is in the report: the tool finds the sandbox on the fake
// platform, and the sandbox's files are real ones. What becomes of mails is seen end to end.
#include "tools/sandbox_mapi/library.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "fake_mapi/codes.h"
#include "mapi/send_mail.h"
#include "mapiload/entry_points.h"
#include "mapiload/process_state.h"
#include "testing/fake_mapi.h"
#include "testing/fake_platform/fixture.h"
#include "tools/support/files.h"

namespace zentpost::fake_mapi::sandbox {
namespace {

namespace fs = std::filesystem;
using support::WriteBytes;

constexpr char kClean[] = "findings:\nresult: no leaks, no double frees, no overruns\n";

std::string Failing(const std::string& call) {
  return R"({"Fail": [{"Call": ")" + call + R"(", "Code": "0x80040123", "From": true}]})";
}

class LibraryTest : public platform::fake::FakePlatformTest {
 protected:
  void PrepareMachine() {
    ForgetMapiLoading();
    fake_.Reset();
    fake_.AddModule(u"C:\\Windows\\system32\\mapi32.dll", test::MapiExports());
    fake_.SetFile(u"C:\\a.pdf", "PDF");
  }
  // One process: sends a mail, with the sandbox that has these orders.
  HRESULT Send(const std::optional<std::string>& orders) {
    const Library library(folder_, orders);
    PrepareMachine();
    const HRESULT result = SendMail(u"Invoice 42", u"Hello", 0, 1, 0, 0, u"030 1", u"Jane",
                                    u"C:\\a.pdf", u"a b.pdf", u"Zo\u00EB");
    ForgetMapiLoading();
    return result;
  }
  void ExpectInReport(const std::string& text, bool is_there = true) const {
    const std::string report = support::ReadBytes(folder_ / "report.txt").value_or("none");
    EXPECT_EQ(report.find(text) != std::string::npos, is_there) << report;
  }

  support::TemporaryFolder place_;
  const fs::path folder_ = place_.Path() / "mail";
};

TEST_F(LibraryTest, ClientIsAsOrdered) {
  const struct {
    std::string orders;
    HRESULT result;
    std::string call;  // as the report has it
    bool is_there = true;
  } cases[] = {
      {"{}", S_OK, "\ncalls:\n  1 MAPIInitialize(null) = 0x00000000\n"},
      {"{}", S_OK, " #3 IMAPISession::GetMsgStoresTable(0x0) = 0x00000000\n"},
      {R"({"SentItems": false})", S_OK, "IMessage::SubmitMessage(0x0) = 0x00000000"},
      {R"({"Outbox": false})", MAPI_E_NOT_FOUND, "IMsgStore::OpenEntry(", false},
      {R"({"DefaultStore": false})", MAPI_E_NOT_FOUND, "IMAPISession::OpenMsgStore(", false},
      {R"({"ProfileName": "J\u00FCrgen \u20AC"})", S_OK,
       "MAPILogonEx(0, \"J\xC3\xBCrgen \xE2\x82\xAC\", null, 0x80000029) = 0x00000000"},
      {R"({"DefaultProfile": false})", S_OK, "MAPILogonEx(0, \"\", null, 0x80000023) = 0x00000000"},
      {R"({"ClientShutdown": false})", S_OK,
       "IMAPISession::QueryInterface(IMAPIClientShutdown) = 0x80004002"},
      {R"({"Fail": [{"Call": "HrQueryAllRows", "At": 2, "Code": "0x80040123"}]})", Code(0x80040123),
       "= 0x80040123"},
      {Failing("IMessage::SaveChanges"), Code(0x80040123), "IMessage::SaveChanges("},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.orders);
    fs::remove_all(folder_);
    EXPECT_EQ(Send(one.orders), one.result);
    EXPECT_EQ(fs::exists(folder_ / "Store" / "Sent Items" / "0001.eml"),
              one.result == S_OK && one.orders.find("SentItems") == one.orders.npos);
    ExpectInReport(one.call, one.is_there);
    ExpectInReport(kClean);
    EXPECT_EQ(fs::exists(folder_ / "Profiles" / u"J\u00FCrgen \u20AC"),
              one.orders.find("ProfileName") != one.orders.npos);
  }
  EXPECT_TRUE(fs::is_empty(folder_ / "Store" / "Outbox")) << "a message that was never saved";
}

TEST_F(LibraryTest, WhatFailsLeavesGarbageWhereThatIsOrdered) {
  for (const bool is_ordered : {false, true}) {
    const Library library(
        folder_, R"({"Fail": [{"Call": "MAPIAllocateBuffer", "Code": "0x80040123"}], "Garbage": )" +
                     std::string(is_ordered ? "true}" : "false}"));
    PrepareMachine();
    void* buffer = this;
    EXPECT_EQ(MAPIAllocateBuffer(24, &buffer), Code(0x80040123));
    EXPECT_EQ(buffer != nullptr, is_ordered);
    ForgetMapiLoading();
  }
}

TEST_F(LibraryTest, OrdersComeFromAFileInTheFolderOrFromOneThatIsNamed) {
  fs::create_directories(folder_);
  WriteBytes(folder_ / "sandbox.json", Failing("MAPILogonEx"));
  EXPECT_EQ(Send(std::nullopt), Code(0x80040123));
  WriteBytes(place_.Path() / "other.json", "{}");
  EXPECT_EQ(Send(support::PathText(place_.Path() / "other.json")), S_OK);
}

TEST_F(LibraryTest, OrdersThatCannotBeReadEndEverythingAtTheFirstCall) {
  for (const std::string& orders :
       {std::string(" {\"Fial\": 1}"), support::PathText(place_.Path() / "missing.json"),
        support::PathText(place_.Path())}) {
    EXPECT_EQ(Send(orders), E_FAIL);
  }
  ExpectInReport(
      "  1 MAPIInitialize(null) = 0x8004011c\nfindings:\n  SANDBOX_MAPI_CONFIG: "
      "line 1: unknown member \"Fial\"; there are Fail, Garbage, ShowForm, ClientShutdown, "
      "DefaultProfile, DefaultStore, Outbox, SentItems and ProfileName (call 0)\n");
  ExpectInReport("missing.json: cannot be read");
}

TEST_F(LibraryTest, CallsAreToldAtOnceAndWhatIsNotGivenBackAtTheEnd) {
  const auto texts = [&] {
    std::string text;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      text += entry.is_regular_file() ? support::ReadBytes(entry.path()).value_or("") : "";
    }
    return text;
  };
  {
    const Library library(folder_, "{}");
    PrepareMachine();
    void* buffer = nullptr;
    EXPECT_EQ(MAPIAllocateBuffer(24, &buffer), S_OK);
    EXPECT_EQ(texts(), "1 MAPIAllocateBuffer(24) = 0x00000000\n");
    EXPECT_EQ(MAPIAllocateBuffer(25, &buffer), S_OK);
    EXPECT_EQ(MAPIFreeBuffer(buffer), 0u);
    EXPECT_NE(MAPIFreeBuffer(buffer), 0u);
    ForgetMapiLoading();
  }
  EXPECT_TRUE(
      texts().ends_with("\n  4 MAPIFreeBuffer(block 2) = 0x80004005\nfindings:\n"
                        "  MAPIFreeBuffer of block 2, which is freed already (call 4)\n"
                        "  block 1 of MAPIAllocateBuffer: not freed (call 1)\n"
                        "result: 1 leak, 1 double free, no overruns\n\n"))
      << texts();
}

}  // namespace
}  // namespace zentpost::fake_mapi::sandbox
