// The fixture of tests that search for a MAPI library on the fake platform: a process as it was
// at its start, the trace as text, and doubles of what the search finds (an installer, the system's
// stub, mail clients and their libraries).
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "testing/fake_platform/fixture.h"

namespace zentpost::test {

class MapiSearchTest : public platform::fake::FakePlatformTest {
 public:
  // Where the system has its own library and the installer's.
  static constexpr char16_t kSystemMapi[] = u"C:\\Windows\\system32\\mapi32.dll";
  static constexpr char16_t kInstaller[] = u"C:\\Windows\\system32\\msi.dll";
  static constexpr char16_t kKernel[] = u"C:\\Windows\\system32\\kernel32.dll";

  static constexpr char16_t kMailKey[] = u"Software\\Clients\\Mail";
  static constexpr char16_t kClient[] = u"Some Client";
  static constexpr char16_t kClientKey[] = u"Software\\Clients\\Mail\\Some Client";

  // What was seen so far.
  struct Seen {
    // Line by line: "FORMAT [ARGUMENT, ARGUMENT]" with a line feed as "\n". A handle is the file
    // name of its library, "null", or "handle". Lines of the load trace begin with "load: ".
    std::vector<std::string> trace;
    // "CATEGORY, QUALIFIER, MODE, size COUNT" or "..., fetch COUNT".
    std::vector<std::string> installer_questions;
    // What the installer was told to show: "LEVEL, no window, QUESTIONS", how many were asked
    // before.
    std::vector<std::string> installer_settings;
    // "COMPONENT, QUALIFIER, SIZE, INSTALL", and whether the buffer was zeroed.
    std::vector<std::string> stub_questions;
  };
  static inline Seen seen_;

 protected:
  MapiSearchTest();
  ~MapiSearchTest() override;
  void TearDown() override;

  // Registers `kClient` as the default mail client, with a text value.
  static void SetDefaultClient();
  static void SetClientText(std::u16string_view name, std::u16string_view text,
                            std::uint32_t type = platform::kRegSz);

  // A library that is loaded, and one that exports nothing.
  static platform::Module Load(std::u16string_view path,
                               platform::fake::FakePlatform::Exports exports = {});
  static void AddEmptyLibrary(std::u16string_view path);

  // The installer: puts a msi.dll into the system directory that knows no component, and tells it
  // of one. It answers 1607 where it knows nothing, and a fetch that does not fit with 234.
  static void AddInstaller();
  // A component whose fetch, not its size, fails with `fetch_status`, unless that is 0. With a
  // `careless_count` the installer heeds nothing but the size of the buffer: it says that count to
  // both questions, and writes as many units of `path` as there is space for, with no terminator of
  // its own.
  static void AddComponent(std::u16string_view category, std::u16string_view qualifier,
                           std::u16string_view path, std::uint32_t fetch_status = 0,
                           std::optional<std::uint32_t> careless_count = std::nullopt);
  // The system's stub: a mapi32.dll or mapistub.dll with an FGetComponentPath that gives `answer`
  // and the bytes of `path`, with a terminator unless they fill all of the buffer.
  static void AddStub(std::u16string_view library, std::string path, std::int32_t answer = 1);
  // Records neither trace nor questions from now on: for a search on several threads, or one whose
  // allocations are counted.
  static void RecordNothing();
  // Calls `look` at every line of either trace whose format begins so, when it is handed over: what
  // it sees is how things are at that step.
  static void WatchTrace(std::u16string_view start, std::function<void()> look);
};

}  // namespace zentpost::test
