// Extended MAPI in memory: a mail client's library that tests put on the machine in memory. It is
// furnished with profiles, stores and answers, records every call with its arguments, can make
// single calls fail, and keeps the books of everything that it hands out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mapiload/extended_mapi.h"
#include "testing/fake_platform/fake_platform.h"

namespace zentpost::test {

// A property value as tests write it down. Which member holds the value is told by the tag's type.
struct Property {
  std::uint32_t tag = 0;
  std::int32_t number = 0;  // PT_LONG, PT_BOOLEAN, PT_ERROR
  std::string bytes{};      // PT_BINARY, PT_STRING8
  std::u16string text{};    // PT_UNICODE
  bool has_null = false;    // PT_STRING8, PT_UNICODE: a null pointer stands in the text's place
};
Property Number(std::uint32_t tag, std::int32_t number);
Property Bytes(std::uint32_t tag, std::string bytes);
Property Text(std::uint32_t tag, std::u16string text);

// The rows of a table of profiles and of one of stores. A store's identifier is four bytes.
using Row = std::vector<Property>;
Row ProfileRow(bool is_default, std::string name);
Row StoreRow(bool is_default, std::string entry_id);

struct MapiState;

// The library exists from Install on, and what it handed out until its own end. One at a time.
//
// Every call is recorded by the machine (Machine::Calls), in order with the machine's own, and all
// but those that give no result count among its fallible calls; with a number below 0x80000000 such
// a call fails with its HRESULT_FROM_WIN32. A failing call does nothing, and writes nothing unless
// it is to leave garbage. Calls are told without the places for their results, arguments as they
// came:
//   MAPILogonEx(0, "Outlook", null, 0x80000029)
//   IMAPISession::OpenMsgStore(0, 4 bytes 01020304, null, 0x10c)
//   IMessage::SetProps(2, [0x001a001f "IPM.Note", 0x0e0a0102 4 bytes 0a0b0c0d], null)
//   HrQueryAllRows(store table, [0x3400000b, 0x0fff0102], null, null, 0)
//   MAPIFreeBuffer(block 3)      FreeProws(rows of the store table)
// Blocks are numbered from 1 in the order in which they were handed out.
class FakeMapi {
 public:
  using FaultMode = platform::fake::FaultMode;

  FakeMapi();
  FakeMapi(const FakeMapi&) = delete;
  FakeMapi& operator=(const FakeMapi&) = delete;
  ~FakeMapi();

  // Puts the library, without the exports named, to where it is looked for last.
  static void Install(const std::vector<std::string>& without = {});

  // What it is furnished with. Tables and values are handed out as they stand here.
  std::vector<Row> profiles;
  std::vector<Row> stores;
  Row store_values;
  Row message_values;
  std::uint32_t message_status = 0x40;
  std::uintptr_t form_token = 0x1234;
  // Only the token's lower 32 bits are written, as libraries do that know no wider one.
  bool has_narrow_token = false;
  std::uint32_t attachment_number = 0;
  // Whether a session has an IMAPIClientShutdown.
  bool has_shutdown = true;
  // What CreateOneOff gives.
  std::string one_off = "one-off";
  // Whether a failing call leaves garbage in the places for its results: objects that were released
  // and blocks that were freed before anybody got them, and great numbers.
  bool failures_leave_garbage = false;
  // A resolved entry of an address list comes in a block of its own, which replaces the old one.
  bool resolving_moves_entries = false;

  // Makes the call at `index`, counted from 0 among those of that name from now on, give `result`.
  // With a result that is not negative it does what it always does.
  void Answer(std::string_view name, std::size_t index, HRESULT result,
              FaultMode mode = FaultMode::kOnce);
  // Makes that call succeed without handing out what it was called for.
  void GiveNothing(std::string_view name, std::size_t index = 0);

  // The calls so far.
  [[nodiscard]] const std::vector<std::string>& Calls() const;
  [[nodiscard]] std::vector<std::string> CallsOf(std::string_view name) const;

  // The content of each attachment that was saved.
  [[nodiscard]] const std::vector<std::string>& SavedAttachments() const;

  // What is wrong with the books, one complaint on each line: what was not given back, given back
  // twice or by the wrong function, used after it was given back, or written beyond its end. Empty
  // when they are in order.
  [[nodiscard]] std::string Accounts() const;

  // Objects and blocks for tests that call below the logon. The test gives them back.
  IMAPISession* OpenSession();
  IMsgStore* OpenStore();
  IMAPIFolder* OpenOutbox();
  IMessage* OpenMessage();

 private:
  std::unique_ptr<MapiState> state_;
};

}  // namespace zentpost::test
