// Several threads that search for the library and call its functions at the same time. Run under
// the thread sanitizer, too.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iterator>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "mapiload/system_libraries.h"
#include "mapiload/trace.h"
#include "testing/entry_points.h"
#include "testing/fake_mapi.h"
#include "testing/mapi_search.h"

namespace zentpost {
namespace {

using platform::Module;
using platform::RawModule;

constexpr std::uint32_t kFreed = 0xFFFFFFFF;  // what the library's MAPIFreeBuffer gives
constexpr char16_t kOther[] = u"C:\\b.dll";

// Whether the entry points reach the library.
bool CallAll() {
  return std::all_of(std::begin(test::kEntryPoints), std::end(test::kEntryPoints),
                     [](const test::EntryPoint& entry) {
                       return test::CallEntryPoint(entry.name) == entry.result;
                     });
}

// Does each on a thread of its own.
void DoBoth(const std::function<void()>& one, const std::function<void()>& other) {
  std::thread first(one);
  std::thread second(other);
  first.join();
  second.join();
}

// Where threads wait for each other. std::latch hangs now and then in 32-bit MinGW builds.
class Meeting {
 public:
  explicit Meeting(int expected) : missing_(expected) {}

  void Join() {
    std::unique_lock lock(mutex_);
    --missing_;
    changed_.notify_all();
    changed_.wait(lock, [&] { return missing_ <= 0; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int missing_;
};

class SearchThreads : public test::MapiSearchTest {
 protected:
  SearchThreads() {
    RecordNothing();
    client_.is_inert = true;
    for (const test::EntryPoint& entry : test::kEntryPoints) {
      client_.Plan({.call = entry.name, .from = true, .code = MakeResult(entry.result)});
    }
  }
  static void AddLibrary() {
    platform::fake::TheFakePlatform().AddModule(kSystemMapi, test::MapiExports());
  }
  // Calls `look` at every line of the search's trace whose format begins so.
  static void At(std::u16string_view start, std::function<void(TraceArguments)> look) {
    MapiTraceSink = [start, look = std::move(look)](const char16_t* format,
                                                    TraceArguments arguments) {
      if (std::u16string_view(format).starts_with(start)) {
        look(arguments);
      }
    };
  }

  fake_mapi::Client client_;
};

TEST_F(SearchThreads, ThatFindALibraryAtTheSameTimeKeepOneReference) {
  AddLibrary();
  // Each has loaded the library before one of them installs it.
  Meeting loaded(2);
  At(u"Exit GetDefaultMapiHandle", [&](TraceArguments) { loaded.Join(); });
  RawModule first{};
  RawModule second{};
  DoBoth([&] { first = GetPrivateMAPI(); }, [&] { second = GetPrivateMAPI(); });
  EXPECT_NE(first, RawModule{});
  EXPECT_EQ(first, second);
  EXPECT_EQ(GetMAPIHandle(), first);
  EXPECT_EQ(fake_.ModuleReferences(kSystemMapi), 1u);
  EXPECT_EQ(MapiHandleGeneration, 3u);
  EXPECT_TRUE(CallAll());
}

TEST_F(SearchThreads, ThatInstallDifferentLibrariesKeepOne) {
  AddLibrary();
  AddEmptyLibrary(kOther);
  Meeting loaded(2);
  const auto install = [&loaded](const char16_t* path) {
    Module module;
    EXPECT_EQ(platform::LoadModule(path, module), platform::kSuccess);
    loaded.Join();
    SetMAPIHandle(std::move(module));
    EXPECT_NE(GetMAPIHandle(), RawModule{});
  };
  DoBoth([&] { install(kSystemMapi); }, [&] { install(kOther); });
  EXPECT_EQ(fake_.ModuleReferences(kSystemMapi) + fake_.ModuleReferences(kOther), 1u);
  EXPECT_EQ(fake_.ModuleReferences(fake_.ModulePath(GetMAPIHandle())), 1u);
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
  const auto ask = [] {
    std::uint32_t count = 0;
    // Which the installer itself says.
    EXPECT_EQ(ProvideQualifiedComponent(u"{A}", u"b", 0, nullptr, &count), 1607u);
  };
  DoBoth(ask, ask);
  EXPECT_EQ(fake_.ModuleReferences(kInstaller), 1u);
}

TEST_F(SearchThreads, ThatAskForTheSystemDirectoryAtTheSameTimeKeepTheFirstAnswer) {
  constexpr char16_t kFirst[] = u"D:\\first";
  AddEmptyLibrary(u"D:\\first\\a.dll");
  // A thread has an answer and is about to keep it when another has kept its own.
  Meeting answered(2);
  Meeting kept(2);
  At(u"Exit GetSystemDirectory", [&](TraceArguments arguments) {
    if (std::get<const char16_t*>(arguments[0]) != std::u16string_view(kFirst)) {
      answered.Join();
      kept.Join();
    }
  });
  DoBoth([] { EXPECT_TRUE(LoadFromSystemDir(u"a.dll")); },
         [&] {
           answered.Join();
           fake_.SetSystemDirectory(kFirst);
           EXPECT_TRUE(LoadFromSystemDir(u"a.dll"));
           kept.Join();
         });
}

TEST_F(SearchThreads, WhoseSearchFoundNothingDoNotUndoWhatAnotherHasBound) {
  // A thread has found nothing and is about to say so when the library is found by another.
  Meeting nothing_found(2);
  Meeting bound(2);
  At(u"Exit GetPrivateMAPI: Returning", [&](TraceArguments arguments) {
    if (std::get<TraceHandle>(arguments[0]) == TraceHandle{}) {
      nothing_found.Join();
      bound.Join();
    }
  });
  DoBoth([] { EXPECT_EQ(MAPIFreeBuffer(nullptr), 0u); },
         [&] {
           nothing_found.Join();
           AddLibrary();
           EXPECT_EQ(MAPIFreeBuffer(nullptr), kFreed);
           bound.Join();
         });
  EXPECT_EQ(MAPIFreeBuffer(nullptr), kFreed);
}

TEST_F(SearchThreads, ReachAllFunctionsFromTheirFirstCallOn) {
  for (std::size_t round = 1; round <= 50; ++round) {
    ForgetMapiLoading();
    fake_.Reset();
    AddLibrary();
    Meeting start(2);
    const auto call_all = [&start] {
      start.Join();
      EXPECT_TRUE(CallAll());
    };
    DoBoth(call_all, call_all);
    for (const test::EntryPoint& entry : test::kEntryPoints) {
      EXPECT_EQ(client_.CallsOf(entry.name).size(), 2 * round) << entry.name;
    }
    EXPECT_EQ(fake_.ModuleReferences(kSystemMapi), 1u);
    EXPECT_EQ(fake_.ModuleReferences(kKernel), 1u);
  }
}

}  // namespace
}  // namespace zentpost
