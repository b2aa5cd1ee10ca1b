// The libraries of this machine, and the system's own loader's word on them.
#include "tools/doctor/library_file.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tools/doctor/test_library.h"
#include "tools/support/files.h"

namespace zentpost::doctor {
namespace {

using enum Export::State;

std::string PathOf(void* function) {
  Dl_info info{};
  return dladdr(function, &info) != 0 ? std::filesystem::canonical(info.dli_fname).string() : "";
}

TEST(LibraryFileOfTheSystem, TheCLibraryHasWhatTheLoaderFinds) {
  // A function that no sanitizer has one of its own for.
  const std::string path = PathOf(dlsym(RTLD_DEFAULT, "gnu_get_libc_version"));
  const auto bytes = support::ReadBytes(path);
  ASSERT_TRUE(bytes) << path;
  BytesInMemory source(*bytes);
  LibraryFile file(source);
  ASSERT_EQ(file.Header().state, LibraryState::kLibrary) << file.Header().problem;
  EXPECT_EQ(file.Header().format, LibraryFormat::kElf);
  EXPECT_EQ(file.Header().bitness, static_cast<int>(sizeof(void*) * 8));

  void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr);
  for (const char* const name :
       {"malloc", "free", "printf", "memcpy", "environ", "errno", "stdout", "dlopen", "qsort",
        "Malloc", "no_such_function", "", "__libc_start_call_main", "_IO_file_jumps"}) {
    EXPECT_EQ(file.Find(name).state == kThere, dlsym(library, name) != nullptr) << name;
  }
  dlclose(library);
  EXPECT_LT(source.BytesRead(), 10'000U);
}

TEST(LibraryFileOfTheSystem, ATestProgramIsNoLibrary) {
  const auto bytes = support::ReadBytes("/proc/self/exe");
  ASSERT_TRUE(bytes);
  BytesInMemory source(*bytes);
  EXPECT_EQ(LibraryFile(source).Header().state, LibraryState::kNoLibrary);
}

// The loader's word on what the tests make by hand.
TEST(LibraryFileOfTheSystem, MadeLibrariesLoad) {
  const support::TemporaryFolder folder;
  const auto self = support::ReadBytes("/proc/self/exe");
  ASSERT_TRUE(self);
  TestElf elf;
  elf.machine = static_cast<std::uint16_t>(static_cast<unsigned char>((*self)[18]));
  elf.bitness = static_cast<int>(sizeof(void*) * 8);
  elf.symbols = {{"global", 1, 0}, {"protected", 1, 3}, {"local", 0, 0}, {"hidden", 1, 2}};
  for (const TestElfHash hash : {TestElfHash::kHash, TestElfHash::kGnuHash}) {
    elf.hash = hash;
    const std::string bytes = elf.Build();
    const std::filesystem::path path =
        folder.Path() / (hash == TestElfHash::kHash ? "hash.so" : "gnu_hash.so");
    ASSERT_TRUE(support::WriteBytes(path, bytes));
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    BytesInMemory source(bytes);
    LibraryFile file(source);
    for (const char* const name : {"global", "protected", "local", "hidden", "other"}) {
      EXPECT_EQ(file.Find(name).state == kThere, dlsym(library, name) != nullptr) << name;
    }
    dlclose(library);
  }
}

TEST(LibraryFileOfTheSystem, WinesLibrariesAreReadAsWhatTheyAre) {
  const std::filesystem::path folder = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows";
  const auto mapi = support::ReadBytes(folder / "mapi32.dll");
  const auto kernel = support::ReadBytes(folder / "kernel32.dll");
  if (!mapi || !kernel) {
    GTEST_SKIP() << "there is no Wine here";
  }
  BytesInMemory mapi_source(*mapi);
  LibraryFile mapi_file(mapi_source);
  EXPECT_EQ(mapi_file.Header().state, LibraryState::kLibrary);
  EXPECT_EQ(mapi_file.Header().machine, LibraryMachine::kX64);
  EXPECT_FALSE(mapi_file.Header().is_program);
  EXPECT_EQ(mapi_file.Find("MAPIInitialize").state, kThere);
  EXPECT_EQ(mapi_file.Find("MAPISendMail").state, kThere);
  EXPECT_EQ(mapi_file.Find("MAPINothing").state, kMissing);

  BytesInMemory kernel_source(*kernel);
  LibraryFile kernel_file(kernel_source);
  EXPECT_EQ(kernel_file.Find("CreateFileW"), (Export{kThere, ""}));
  EXPECT_EQ(kernel_file.Find("HeapAlloc"), (Export{kThere, "NTDLL.RtlAllocateHeap"}));
}

}  // namespace
}  // namespace zentpost::doctor
