// The lock of those who append, on Wine as on Windows: what happens to the mutex behind the layer's
// back.
#include "platform/windows/append_lock.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "platform/files.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

struct CloseIt {
  using pointer = HANDLE;
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Owned = std::unique_ptr<HANDLE, CloseIt>;

class AppendLock : public testing::Test {
 protected:
  AppendLock() {
    const std::string process = std::to_string(GetCurrentProcessId());
    path_ = (std::filesystem::temp_directory_path() / ("zentpost-append-lock-" + process + ".log"))
                .u16string();
    std::filesystem::remove(path_);
  }
  ~AppendLock() override { std::filesystem::remove(path_); }

  std::u16string Name() const { return NameOfAppendLock(path_).data(); }
  Owned OpenMutex() const { return Owned(CreateMutexW(nullptr, FALSE, ToSystem(Name().c_str()))); }

  // Whether another thread than the one that had it can take it, which gives it back.
  static bool IsFree(const Owned& mutex) {
    DWORD result = WAIT_FAILED;
    std::thread([&] {
      result = WaitForSingleObject(mutex.get(), 0);
      ReleaseMutex(mutex.get());
    }).join();
    return result == WAIT_OBJECT_0;
  }

  // Appends a line and gives the time that it took.
  milliseconds Append() const {
    const auto begin = steady_clock::now();
    EXPECT_EQ(AppendToFile(path_, "line\r\n", 6), kSuccess);
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
  }

  std::size_t Lines() const {
    std::ifstream file(std::filesystem::path(path_), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(bytes.size() % 6, 0U);
    return bytes.size() / 6;
  }

  std::u16string path_;
};

static_assert(std::u16string_view(NameOfAppendLock(u"").data()) ==
              u"Global\\Zentpost-append-cbf29ce484222325");
// Worked out with another program.
static_assert(std::u16string_view(NameOfAppendLock(u"C:\\Gr\u00FC\u00DFe\\\u20AC.log").data()) ==
              u"Global\\Zentpost-append-ccfb6d45f41da6f1");

TEST_F(AppendLock, IsGivenBackBehindEachLineAndWhenItCannotBeWritten) {
  const Owned mutex = OpenMutex();
  ASSERT_TRUE(mutex);
  for (int line = 1; line <= 3; ++line) {
    Append();
    EXPECT_TRUE(IsFree(mutex));
  }
  EXPECT_EQ(Lines(), 3U);
  // No memory stands behind these bytes.
  EXPECT_NE(AppendToFile(path_, reinterpret_cast<const void*>(std::uintptr_t{16}), 6), kSuccess);
  EXPECT_TRUE(IsFree(mutex));
}

TEST_F(AppendLock, ThatWasAbandonedIsTaken) {
  const Owned mutex = OpenMutex();
  ASSERT_TRUE(mutex);
  std::thread([&] { WaitForSingleObject(mutex.get(), INFINITE); }).join();
  EXPECT_LT(Append(), milliseconds(1000));
  EXPECT_LT(Append(), milliseconds(1000));
  EXPECT_EQ(Lines(), 2U);
}

TEST_F(AppendLock, WhoseNameSomethingElseHasIsDoneWithout) {
  const Owned event(CreateEventW(nullptr, TRUE, FALSE, ToSystem(Name().c_str())));
  ASSERT_TRUE(event);
  ASSERT_FALSE(OpenMutex());
  EXPECT_LT(Append(), milliseconds(1000));
  EXPECT_EQ(Lines(), 1U);
}

// The one test here that lets a wait be given up: that holds for the rest of the process.
TEST_F(AppendLock, ThatAnotherKeepsIsWaitedForOnceAndNotForLong) {
  const Owned mutex = OpenMutex();
  const Owned done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const Owned taken(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ASSERT_TRUE(mutex && done && taken);
  std::thread keeper([&] {
    WaitForSingleObject(mutex.get(), INFINITE);
    SetEvent(taken.get());
    WaitForSingleObject(done.get(), INFINITE);
    ReleaseMutex(mutex.get());
  });
  WaitForSingleObject(taken.get(), INFINITE);

  const milliseconds first = Append();
  EXPECT_GE(first, milliseconds(1900));
  EXPECT_LT(first, milliseconds(2500));
  milliseconds later(0);
  for (int line = 0; line < 50; ++line) {
    later += Append();
  }
  EXPECT_LT(later, milliseconds(1000));
  EXPECT_EQ(Lines(), 51U);
  std::printf("the first line took %d ms, 50 later ones %d ms\n", static_cast<int>(first.count()),
              static_cast<int>(later.count()));
  SetEvent(done.get());
  keeper.join();

  // Without waiting it still takes the lock when it is free.
  EXPECT_LT(Append(), milliseconds(1000));
  EXPECT_EQ(Lines(), 52U);
}

}  // namespace
}  // namespace platform
