// The fake mail client on the fake platform: its calls are recorded in order with the
// platform's own and count among its fallible ones, and its own memory is not that of the
// code under test.
#pragma once

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "fake_mapi/client.h"
#include "fake_mapi/functions.h"
#include "fake_mapi/interfaces.h"
#include "testing/fake_platform/fake_platform.h"

namespace zentpost::test {

using fake_mapi::Bytes;
using fake_mapi::Number;
using fake_mapi::ProfileRow;
using fake_mapi::Property;
using fake_mapi::StoreRow;
using fake_mapi::Text;
using Row = fake_mapi::Properties;

// The exports of a library that has the client's functions, but for those named.
inline platform::fake::FakePlatform::Exports MapiExports(
    const std::vector<std::string>& without = {}) {
  platform::fake::FakePlatform::Exports exports = fake_mapi::Functions();
  for (const std::string& name : without) {
    exports.erase(name);
  }
  return exports;
}

// With a number below 0x80000000 a call that the platform makes fail gives its HRESULT_FROM_WIN32.
class FakeMapi : public fake_mapi::Client, private fake_mapi::CallHook {
 public:
  FakeMapi() {
    SetHook(*this);
    message_values = {Number(PR_MESSAGE_FLAGS, 0x9), Text(PR_MESSAGE_CLASS_W, u"IPM.Note"),
                      Number(PR_ACCESS, 0x3f), Bytes(PR_ENTRYID, "msg!"),
                      Number(PR_MSG_STATUS, 0x77)};
    message_status = 0x40;
    form_token = 0x1234;
    one_off = "one-off";
  }

  // Puts the library, without the exports named, to where it is looked for last.
  static void Install(const std::vector<std::string>& without = {}) {
    platform::fake::TheFakePlatform().AddModule(u"C:\\Windows\\system32\\mapi32.dll",
                                                MapiExports(without));
  }

  // The call of this name throws std::bad_alloc.
  std::string throwing;

 private:
  void CallBegins() noexcept override { ThisCall().emplace(); }
  void CallEnds() noexcept override { ThisCall().reset(); }

  std::int32_t CallIsRecorded(const std::string& text, bool can_fail) override {
    constexpr std::uint32_t kFailureBit = 0x80000000;
    constexpr std::uint32_t kFromWin32 = 0x80070000;
    if (!can_fail) {
      ThisCall()->Record(text);
      return S_OK;
    }
    const platform::Status fault = ThisCall()->RecordFallible(text);
    if (!throwing.empty() && text.starts_with(throwing)) {
      throw std::bad_alloc();
    }
    return fault == platform::kSuccess || (fault & kFailureBit) != 0
               ? MakeResult(fault)
               : MakeResult(kFromWin32 | (fault & 0xffff));
  }

  static std::optional<platform::fake::LibraryCall>& ThisCall() {
    static thread_local std::optional<platform::fake::LibraryCall> call;
    return call;
  }
};

}  // namespace zentpost::test
