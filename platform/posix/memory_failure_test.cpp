// What the host's functions do when memory runs out: each allocation of each of them fails once.
#include "platform/memory_failure.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/sockets.h"
#include "platform/system.h"
#include "platform/worker.h"
#include "testing/end_to_end/files.h"

namespace {

// Counts down on this thread; the allocation at 0 fails, and every later one. Negative: none does.
thread_local int allocations_left = -1;

void* Allocate(std::size_t size) noexcept {
  if (allocations_left == 0) {
    return nullptr;
  }
  if (allocations_left > 0) {
    --allocations_left;
  }
  return std::malloc(size != 0 ? size : 1);
}

}  // namespace

// The back-end has no arrays of its own.
void* operator new(std::size_t size) {
  void* const block = Allocate(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace platform {
namespace {

class MemoryFailure : public testing::Test {
 protected:
  MemoryFailure() {
    std::ofstream(folder_ / kName) << "bytes";
    std::ofstream(folder_ / "registry.reg")
        << "Windows Registry Editor Version 5.00\n\n[HKEY_CURRENT_USER\\Software\\Sollvex]\n"
           "\"A value of some length\"=\"and a text of some length\"\n";
    Set("ZENTPOST_REGISTRY", folder_ / "registry.reg");
    Set("ZENTPOST_DEBUG_OUTPUT", folder_ / "debug.txt");
    Set("ZENTPOST_SYSTEM_DIRECTORY", folder_);
    Set("XDG_DATA_HOME", folder_);
    Set("TMPDIR", folder_);
  }
  ~MemoryFailure() override {
    for (const std::string& name : names_) {
      unsetenv(name.c_str());
    }
    std::filesystem::remove_all(folder_);
  }

  std::u16string Path() const { return (folder_ / kName).u16string(); }

  // Calls `function` with no memory left from its first, second ... allocation on, until there is
  // enough. It gives `failure` each time and `success` at last, and never throws.
  static void ExpectFailure(std::uint32_t success, std::uint32_t failure,
                            const std::function<std::uint32_t()>& function) {
    constexpr int kMost = 100;
    for (int allowed = 0; allowed < kMost; ++allowed) {
      SCOPED_TRACE(allowed);
      allocations_left = allowed;
      std::uint32_t result = 0;
      bool threw = false;
      try {
        result = function();
      } catch (...) {
        threw = true;
      }
      const bool met = allocations_left == 0;
      allocations_left = -1;
      ASSERT_FALSE(threw);
      if (result == success) {
        EXPECT_GT(allowed, 0) << "there was nothing that could fail";
        return;
      }
      ASSERT_TRUE(met);
      ASSERT_EQ(result, failure);
    }
    FAIL() << "never succeeded";
  }
  static void ExpectFailure(const std::function<Status()>& function) {
    ExpectFailure(kSuccess, kNotEnoughMemory, function);
  }

  static constexpr char kName[] = "a document whose name needs memory.txt";

 private:
  void Set(const char* name, const std::filesystem::path& value) {
    setenv(name, value.c_str(), 1);
    names_.emplace_back(name);
  }

  const std::filesystem::path folder_ = zentpost::e2e::MakeTestFolder();
  std::vector<std::string> names_;
};

TEST_F(MemoryFailure, OfFilesHasItsNumber) {
  const std::u16string path = Path();
  const std::u16string other = path + u".log";
  const std::u16string missing = path + u".none";
  ExpectFailure([&] {
    File file;
    const Status status = OpenFileAt(path, OpenMode::kRead, file);
    EXPECT_EQ(static_cast<bool>(file), status == kSuccess);
    return status;
  });
  ExpectFailure([&] {
    File file;
    return OpenFileAt(other, OpenMode::kRewrite, file);
  });
  ExpectFailure(kFileNotFound, kNotEnoughMemory, [&]() -> Status {
    File file;
    return OpenFileAt(missing, OpenMode::kRead, file);
  });
  ExpectFailure([&] { return AppendToFile(other, "x", 1); });
  ExpectFailure([&] {
    FileIdentity identity;
    const Status status = IdentifyFile(path, identity);
    EXPECT_EQ(identity == FileIdentity(), status != kSuccess);
    return status;
  });
  ExpectFailure([&] { return RemoveFile(other); });
  EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(MemoryFailure, OfFoldersHasItsNumberAndGivesNoFolder) {
  using Fill = std::function<Status(std::uint32_t, char16_t*, std::uint32_t&)>;
  const auto expand = [](std::uint32_t capacity, char16_t* buffer, std::uint32_t& length) {
    return ExpandEnvironment(u"%TMPDIR%\\a name", buffer, capacity, length);
  };
  for (const Fill& fill : {Fill(TemporaryFolder), Fill(SystemDirectory), Fill(expand)}) {
    char16_t buffer[4096] = {};
    ExpectFailure([&] {
      std::uint32_t length = 99;
      const Status status = fill(4096, buffer, length);
      EXPECT_EQ(length != 0, status == kSuccess);
      return status;
    });
  }
  std::u16string folder;
  ExpectFailure(0, 0x8007000E, [&] {
    const std::int32_t result = LocalApplicationDataFolder(folder);
    EXPECT_EQ(folder.empty(), result < 0);
    return static_cast<std::uint32_t>(result);
  });
}

TEST_F(MemoryFailure, OfTheRegistryHasItsNumber) {
  RegistryKey root;
  ExpectFailure([&] {
    const Status status = OpenKey(Hive::kCurrentUser, u"Software", kKeyRead, root);
    EXPECT_EQ(static_cast<bool>(root), status == kSuccess);
    return status;
  });
  RegistryKey key;
  ExpectFailure([&] {
    const Status status = OpenSubKey(root, u"Sollvex", kKeyRead, key);
    EXPECT_EQ(static_cast<bool>(key), status == kSuccess);
    return status;
  });
  ExpectFailure([&] {
    std::uint32_t size = 0;
    return QueryValue(key, u"A value of some length", nullptr, nullptr, size);
  });
}

TEST_F(MemoryFailure, OfLibrariesHasItsNumber) {
  Module module;
  ExpectFailure([&] {
    const Status status = LoadModule(u"libBrokenLocale.so.1", module);
    EXPECT_EQ(static_cast<bool>(module), status == kSuccess);
    return status;
  });
  ExpectFailure([&] {
    RawModule found{1};
    const Status status = FindLoadedModule(u"libBrokenLocale.so.1", found);
    EXPECT_EQ(found != RawModule{}, status == kSuccess);
    return status;
  });
}

TEST_F(MemoryFailure, OfSocketsAndWorkersHasItsNumber) {
  ASSERT_EQ(StartSockets(0x0202), kSuccess);
  CSocket socket;
  ExpectFailure([&] { return socket.Create(); });
  // Port 9 of a host that is no address: no name of that length can be asked for.
  const std::u16string host(300, u'.');
  Status refused = socket.Connect(host, 9);
  EXPECT_NE(refused, kSuccess);
  ExpectFailure(refused, kNotEnoughMemory, [&] { return socket.Connect(host, 9); });
  socket.Close();
  EndSockets();
  Worker worker;
  ExpectFailure(
      [&] { return StartWorker([](void*) -> std::uint32_t { return 0; }, nullptr, worker); });
}

TEST_F(MemoryFailure, DropsATextForTheDebugger) {
  allocations_left = 0;
  EXPECT_NO_THROW(WriteDebugOutput(u"a text that needs memory to be written at all"));
  allocations_left = -1;
  WriteDebugOutput(u"another");
  std::ifstream file(std::getenv("ZENTPOST_DEBUG_OUTPUT"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "another");
}

TEST(MemoryFailureResult, IsTheSameForWhatIsLargerThanAnyMemory) {
  EXPECT_EQ(UnlessMemoryRunsOut([] {
              std::string text;
              text.resize(std::numeric_limits<std::size_t>::max());
              return kSuccess;
            }),
            kNotEnoughMemory);
  EXPECT_EQ(UnlessMemoryRunsOut(-7, []() -> int { throw std::bad_alloc(); }), -7);
  EXPECT_EQ(UnlessMemoryRunsOut(-7, [] { return 3; }), 3);
}

}  // namespace
}  // namespace platform
