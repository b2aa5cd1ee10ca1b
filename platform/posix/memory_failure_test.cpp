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
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
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

  static constexpr char kName[] = "a document whose name needs memory.txt";
  const std::filesystem::path folder_ = zentpost::e2e::MakeTestFolder();

 private:
  void Set(const char* name, const std::filesystem::path& value) {
    setenv(name, value.c_str(), 1);
    names_.emplace_back(name);
  }

  std::vector<std::string> names_;
};

struct LittleMemory {
  explicit LittleMemory(int allocations) { allocations_left = allocations; }
  LittleMemory(const LittleMemory&) = delete;
  LittleMemory& operator=(const LittleMemory&) = delete;
  ~LittleMemory() { allocations_left = -1; }
};

struct Case {
  const char* name;
  std::function<Status()> call;
  std::function<bool()> has_given = nullptr;  // Whether there is what a call gives that succeeds.
  Status success = kSuccess;
  Status failure = kNotEnoughMemory;
};

// Calls the function with no memory left from its first, second ... allocation on, until there is
// enough. It fails each time, succeeds at last, and never throws.
void ExpectFailures(const Case& test) {
  constexpr int kMost = 100;
  for (int allowed = 0; allowed < kMost; ++allowed) {
    SCOPED_TRACE(allowed);
    Status status = kSuccess;
    bool met = false;
    {
      const LittleMemory memory(allowed);
      status = test.call();
      met = allocations_left == 0;
    }
    if (test.has_given) {
      ASSERT_EQ(test.has_given(), status == test.success);
    }
    if (status == test.success) {
      EXPECT_GT(allowed, 0) << "there was nothing that could fail";
      return;
    }
    ASSERT_TRUE(met);
    ASSERT_EQ(status, test.failure);
  }
  FAIL() << "never succeeded";
}

TEST_F(MemoryFailure, HasItsNumberInEveryFunction) {
  const std::u16string path = (folder_ / kName).u16string();
  const std::u16string other = path + u".log";
  const std::u16string missing = path + u".none";
  const char16_t* const library = u"libBrokenLocale.so.1";
  // No name of that length can be asked for.
  const std::u16string host(300, u'.');
  File file;
  FileIdentity identity;
  char16_t buffer[4096];
  std::uint32_t length = 99;
  std::u16string text = u"before";
  RegistryKey root;
  RegistryKey key;
  Module module;
  RawModule found{1};
  CSocket socket;
  Worker worker;
  ASSERT_EQ(StartSockets(0x0202), kSuccess);
  ASSERT_EQ(socket.Create(), kSuccess);
  const Status refused = socket.Connect(host, 9);
  ASSERT_NE(refused, kSuccess);
  socket.Close();
  const auto has_file = [&] { return static_cast<bool>(file); };
  const auto has_text = [&] { return length != 0; };

  const Case cases[] = {
      {"open", [&] { return OpenFileAt(path, OpenMode::kRead, file); }, has_file},
      {"rewrite", [&] { return OpenFileAt(other, OpenMode::kRewrite, file); }, has_file},
      {"find no file", [&] { return OpenFileAt(missing, OpenMode::kRead, file); }, nullptr,
       kFileNotFound},
      {"append", [&] { return AppendToFile(other, "x", 1); }},
      {"identify", [&] { return IdentifyFile(path, identity); },
       [&] { return identity != FileIdentity(); }},
      {"remove", [&] { return RemoveFile(other); },
       [&] { return !std::filesystem::exists(other); }},
      {"temporary folder", [&] { return TemporaryFolder(4096, buffer, length); }, has_text},
      {"system directory", [&] { return SystemDirectory(4096, buffer, length); }, has_text},
      {"environment", [&] { return ExpandEnvironment(u"%TMPDIR%\\a name", buffer, 4096, length); },
       has_text},
      {"application data", [&] { return static_cast<Status>(LocalApplicationDataFolder(text)); },
       [&] { return !text.empty(); }, 0, 0x8007000E},
      {"key", [&] { return OpenKey(Hive::kCurrentUser, u"Software", kKeyRead, root); },
       [&] { return static_cast<bool>(root); }},
      {"key below", [&] { return OpenSubKey(root, u"Sollvex", kKeyRead, key); },
       [&] { return static_cast<bool>(key); }},
      {"value",
       [&] { return QueryValue(key, u"A value of some length", nullptr, nullptr, length); }},
      {"load", [&] { return LoadModule(library, module); },
       [&] { return static_cast<bool>(module); }},
      {"find library", [&] { return FindLoadedModule(library, found); },
       [&] { return found != RawModule{}; }},
      {"socket", [&] { return socket.Create(); }},
      {"connect", [&] { return socket.Connect(host, 9); }, nullptr, refused},
      {"worker",
       [&] { return StartWorker([](void*) -> std::uint32_t { return 0; }, nullptr, worker); }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    ExpectFailures(test);
  }
  socket.Close();
  EndSockets();
}

TEST_F(MemoryFailure, DropsATextForTheDebugger) {
  {
    const LittleMemory memory(0);
    WriteDebugOutput(u"a text that needs memory to be written at all");
  }
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
