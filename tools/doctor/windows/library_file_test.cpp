// The libraries of this machine, and the system's own loader's word on them.
#include "tools/doctor/library_file.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>

#include "tools/doctor/test_library.h"
#include "tools/support/files.h"

namespace zentpost::doctor {
namespace {

using enum Export::State;

constexpr bool kIsWide = sizeof(void*) == 8;

// A library that is loaded for a while.
class Loaded {
 public:
  explicit Loaded(const std::filesystem::path& path) : library_(LoadLibraryW(path.c_str())) {}
  ~Loaded() {
    if (library_ != nullptr) {
      FreeLibrary(library_);
    }
  }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;

  [[nodiscard]] HMODULE Get() const { return library_; }

 private:
  HMODULE library_;
};

TEST(LibraryFileOfTheSystem, HasWhatTheLoaderFinds) {
  wchar_t folder[MAX_PATH];
  ASSERT_NE(GetSystemDirectoryW(folder, MAX_PATH), 0U);
  for (const char* const name : {"kernel32.dll", "ntdll.dll", "advapi32.dll"}) {
    const std::filesystem::path path = std::filesystem::path(folder) / name;
    const auto bytes = support::ReadBytes(path);
    ASSERT_TRUE(bytes) << path;
    BytesInMemory source(*bytes);
    LibraryFile file(source);
    EXPECT_EQ(file.Header().state, LibraryState::kLibrary) << file.Header().problem;
    EXPECT_EQ(file.Header().bitness, kIsWide ? 64 : 32);
    EXPECT_EQ(file.Header().machine, kIsWide ? LibraryMachine::kX64 : LibraryMachine::kX86);
    const Loaded library(path);
    for (const char* const function :
         {"CreateFileW", "HeapAlloc", "RtlAllocateHeap", "NtCreateFile", "RegOpenKeyExW",
          "createfilew", "CreateFileWW", "CreateFile", ""}) {
      EXPECT_EQ(file.Find(function).state == kThere,
                GetProcAddress(library.Get(), function) != nullptr)
          << name << " " << function;
    }
  }
}

TEST(LibraryFileOfTheSystem, DecoratedNamesAreNamesOfTheirOwn) {
  if (kIsWide) {
    GTEST_SKIP() << "64 bits know none";
  }
  const auto bytes = support::ReadBytes("../sandbox_mapi/decorated/sandbox_mapi.dll");
  ASSERT_TRUE(bytes);
  BytesInMemory source(*bytes);
  LibraryFile file(source);
  for (const char* const name : {"FreeProws@4", "MAPILogonEx@20", "HrQueryAllRows@24"}) {
    EXPECT_EQ(file.Find(name), (Export{kThere, ""})) << name;
  }
  for (const char* const name : {"FreeProws", "_FreeProws@4", "FreeProws@8"}) {
    EXPECT_EQ(file.Find(name), Export{}) << name;
  }
}

// The loader's word on what the tests make by hand.
TEST(LibraryFileOfTheSystem, MadeLibrariesLoad) {
  const support::TemporaryFolder folder;
  TestPe pe;
  pe.machine = kIsWide ? 0x8664 : 0x014C;
  pe.bitness = kIsWide ? 64 : 32;
  pe.exports = {{"A", ""}, {"B", "KERNEL32.Sleep"}, {"FreeProws@4", ""}, {"M", ""}, {"C", ""}};
  for (const bool is_program : {false, true}) {
    pe.characteristics = is_program ? 0x0022 : 0x2022;
    const std::string bytes = pe.Build();
    const std::filesystem::path path = folder.Path() / (is_program ? "a.exe" : "a.dll");
    ASSERT_TRUE(support::WriteBytes(path, bytes));
    const Loaded library(path);
    ASSERT_NE(library.Get(), nullptr) << GetLastError();
    BytesInMemory source(bytes);
    LibraryFile file(source);
    // C stands where bisection does not find it.
    for (const char* const name : {"A", "B", "C", "FreeProws@4", "FreeProws", "M", "Z"}) {
      EXPECT_EQ(file.Find(name).state == kThere, GetProcAddress(library.Get(), name) != nullptr)
          << name;
    }
  }
}

TEST(LibraryFileOfTheSystem, ALibraryForAnotherMachineOrCutShortDoesNotLoad) {
  const support::TemporaryFolder folder;
  const std::filesystem::path path = folder.Path() / "a.dll";
  TestPe pe;
  pe.machine = kIsWide ? 0x014C : 0x8664;
  pe.bitness = kIsWide ? 32 : 64;
  ASSERT_TRUE(support::WriteBytes(path, pe.Build()));
  EXPECT_EQ(Loaded(path).Get(), nullptr);
  pe.machine = kIsWide ? 0x8664 : 0x014C;
  pe.bitness = kIsWide ? 64 : 32;
  const std::string bytes = pe.Build();
  for (const std::size_t size : {std::size_t{0}, TestPe::kHeader, TestPe::kExports}) {
    ASSERT_TRUE(support::WriteBytes(path, bytes.substr(0, size)));
    EXPECT_EQ(Loaded(path).Get(), nullptr) << size;
  }
  ASSERT_TRUE(support::WriteBytes(path, bytes));
  EXPECT_NE(Loaded(path).Get(), nullptr);
}

}  // namespace
}  // namespace zentpost::doctor
