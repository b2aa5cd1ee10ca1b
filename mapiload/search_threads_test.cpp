// Several threads that search for the library and call its functions at the same time. Run under
// the thread sanitizer, too.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <utility>
#include <variant>

#include "mapiload/entry_points.h"
#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "mapiload/system_libraries.h"
#include "mapiload/trace.h"
#include "platform/call.h"
#include "platform/worker.h"
#include "testing/fake_mapi.h"
#include "testing/mapi_search.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::RawModule;

constexpr std::uint32_t kFreed = 4242;

// Whether the seven entry points that have a result reach the library. The other two are called,
// too.
bool CallAll() {
  FreeProws(nullptr);
  FreePadrlist(nullptr);
  return MAPIInitialize(nullptr) == S_OK && MAPILogonEx(0, nullptr, nullptr, 0, nullptr) == S_OK &&
         MAPIOpenFormMgr(nullptr, nullptr) == S_OK && MAPIAdminProfiles(0, nullptr) == S_OK &&
         HrQueryAllRows(nullptr, nullptr, nullptr, nullptr, 0, nullptr) == S_OK &&
         MAPIAllocateBuffer(0, nullptr) == S_OK && MAPIFreeBuffer(nullptr) == kFreed;
}

// Where threads wait for each other.
class Meeting {
 public:
  explicit Meeting(int expected) : expected_(expected) {}

  // Waits until as many threads as are expected have come.
  void Join() {
    std::unique_lock lock(mutex_);
    ++arrived_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return arrived_ >= expected_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  const int expected_;
  int arrived_ = 0;
};

class SearchThreads : public test::MapiSearchTest {
 protected:
  SearchThreads() {
    RecordNothing();
    client_.is_inert = true;
    client_.Plan({.call = "MAPIFreeBuffer", .from = true, .code = kFreed});
  }
  static void AddLibrary() {
    platform::fake::TheMachine().AddModule(kSystemMapi, test::MapiExports());
  }
  // How often each of the nine functions was reached; -1: not all of them equally often.
  int TimesReached() const {
    const auto times = static_cast<int>(client_.CallsOf("MAPIInitialize").size());
    for (const fake_mapi::Function& function : fake_mapi::Functions()) {
      if (static_cast<int>(client_.CallsOf(function.name).size()) != times) {
        return -1;
      }
    }
    return times;
  }
  // Runs `procedure` on a thread of its own.
  static platform::Worker Start(platform::WorkerProcedure procedure, void* parameter) {
    platform::Worker worker;
    EXPECT_EQ(platform::StartWorker(procedure, parameter, worker), platform::kSuccess);
    return worker;
  }

  fake_mapi::Client client_;
};

TEST_F(SearchThreads, ThatFindALibraryAtTheSameTimeKeepOneReference) {
  AddLibrary();
  // Each has loaded the library before one of them installs it.
  Meeting loaded(2);
  MapiTraceSink = [&](const char16_t* format, TraceArguments) {
    if (std::u16string_view(format).starts_with(u"Exit GetDefaultMapiHandle")) {
      loaded.Join();
    }
  };
  const auto search = [](void* found) -> std::uint32_t {
    *static_cast<RawModule*>(found) = GetPrivateMAPI();
    return 0;
  };
  RawModule first{};
  RawModule second{};
  {
    const platform::Worker one = Start(search, &first);
    const platform::Worker other = Start(search, &second);
  }
  MapiTraceSink = nullptr;
  EXPECT_NE(first, RawModule{});
  EXPECT_EQ(first, second);
  EXPECT_EQ(GetMAPIHandle(), first);
  EXPECT_EQ(machine_.ModuleReferences(kSystemMapi), 1u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
  EXPECT_TRUE(CallAll());
  EXPECT_EQ(TimesReached(), 1);
}

TEST_F(SearchThreads, ThatInstallDifferentLibrariesKeepOne) {
  AddLibrary();
  AddEmptyLibrary(u"C:\\b.dll");
  struct Newcomer {
    const char16_t* path;
    Meeting& meeting;
  };
  const auto install = [](void* parameter) -> std::uint32_t {
    const Newcomer& newcomer = *static_cast<Newcomer*>(parameter);
    Module module;
    EXPECT_EQ(platform::LoadModule(newcomer.path, module), platform::kSuccess);
    newcomer.meeting.Join();
    SetMAPIHandle(std::move(module));
    EXPECT_NE(GetMAPIHandle(), RawModule{});
    return 0;
  };
  Meeting loaded(2);
  Newcomer first{kSystemMapi, loaded};
  Newcomer second{u"C:\\b.dll", loaded};
  {
    const platform::Worker one = Start(install, &first);
    const platform::Worker other = Start(install, &second);
  }
  EXPECT_EQ(machine_.ModuleReferences(kSystemMapi) + machine_.ModuleReferences(u"C:\\b.dll"), 1u);
  EXPECT_EQ(machine_.ModuleReferences(machine_.ModulePath(GetMAPIHandle())), 1u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
}

TEST_F(SearchThreads, ThatLoadASystemLibraryAtTheSameTimeKeepOneReference) {
  AddInstaller();
  // Each has found that the library is not loaded yet before one of them loads it.
  Meeting not_loaded(2);
  MapiLoadTraceSink = [&](const char16_t* format, TraceArguments) {
    if (std::u16string_view(format).starts_with(u"LoadFromSystemDir - loading from")) {
      not_loaded.Join();
    }
  };
  const auto ask = [](void* status) -> std::uint32_t {
    std::uint32_t count = 0;
    *static_cast<std::uint32_t*>(status) =
        ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count);
    return 0;
  };
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  {
    const platform::Worker one = Start(ask, &first);
    const platform::Worker other = Start(ask, &second);
  }
  MapiLoadTraceSink = nullptr;
  EXPECT_EQ(first, 1607u);  // which the installer itself says
  EXPECT_EQ(second, 1607u);
  EXPECT_EQ(machine_.ModuleReferences(kInstaller), 1u);
}

TEST_F(SearchThreads, ThatAskForTheSystemDirectoryAtTheSameTimeKeepTheFirstAnswer) {
  constexpr char16_t kFirst[] = u"D:\\first";
  AddEmptyLibrary(u"D:\\first\\a.dll");
  // A thread has an answer and is about to keep it when another has kept its own.
  Meeting answered(2);
  Meeting kept(2);
  MapiTraceSink = [&](const char16_t* format, TraceArguments arguments) {
    if (std::u16string_view(format).starts_with(u"Exit GetSystemDirectory") &&
        std::get<const char16_t*>(arguments[0]) != std::u16string_view(kFirst)) {
      answered.Join();
      kept.Join();
    }
  };
  bool has_loaded = false;
  {
    const platform::Worker late = Start(
        [](void* loaded) -> std::uint32_t {
          *static_cast<bool*>(loaded) = static_cast<bool>(LoadFromSystemDir(u"a.dll"));
          return 0;
        },
        &has_loaded);
    answered.Join();
    machine_.SetSystemDirectory(kFirst);
    EXPECT_TRUE(LoadFromSystemDir(u"a.dll"));
    kept.Join();
  }
  MapiTraceSink = nullptr;
  EXPECT_TRUE(has_loaded);
}

TEST_F(SearchThreads, WhoseSearchFoundNothingDoNotUndoWhatAnotherHasBound) {
  // A thread has searched in vain and is about to say so when the library is found by another.
  Meeting in_vain(2);
  Meeting bound(2);
  MapiTraceSink = [&](const char16_t* format, TraceArguments arguments) {
    if (std::u16string_view(format).starts_with(u"Exit GetPrivateMAPI: Returning") &&
        std::get<TraceHandle>(arguments[0]) == TraceHandle{}) {
      in_vain.Join();
      bound.Join();
    }
  };
  std::uint32_t result = 1;
  {
    const platform::Worker searcher = Start(
        [](void* freed) -> std::uint32_t {
          *static_cast<std::uint32_t*>(freed) = MAPIFreeBuffer(nullptr);
          return 0;
        },
        &result);
    in_vain.Join();
    AddLibrary();
    EXPECT_EQ(MAPIFreeBuffer(nullptr), kFreed);
    bound.Join();
  }
  MapiTraceSink = nullptr;
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(MAPIFreeBuffer(nullptr), kFreed);
}

TEST_F(SearchThreads, ReachAllFunctionsFromTheirFirstCallOn) {
  for (int round = 0; round < 50; ++round) {
    ForgetMapiLoading();
    machine_.Reset();
    AddLibrary();
    struct Caller {
      Meeting& start;
      bool has_reached_all = false;
    };
    Meeting start(2);
    Caller first{start};
    Caller second{start};
    const auto call_all = [](void* parameter) -> std::uint32_t {
      Caller& caller = *static_cast<Caller*>(parameter);
      caller.start.Join();
      caller.has_reached_all = CallAll();
      return 0;
    };
    {
      const platform::Worker one = Start(call_all, &first);
      const platform::Worker other = Start(call_all, &second);
    }
    EXPECT_TRUE(first.has_reached_all);
    EXPECT_TRUE(second.has_reached_all);
    EXPECT_EQ(TimesReached(), 2 * (round + 1));
    EXPECT_EQ(machine_.ModuleReferences(kSystemMapi), 1u);
    EXPECT_EQ(machine_.ModuleReferences(kKernel), 1u);
  }
}

}  // namespace
}  // namespace zentpost
