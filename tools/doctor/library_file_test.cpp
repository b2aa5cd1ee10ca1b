#include "tools/doctor/library_file.h"

#include <gtest/gtest.h>

#include <optional>

#include "tools/doctor/test_library.h"
#include "tools/support/files.h"

namespace zentpost::doctor {
namespace {

using enum Export::State;

LibraryHeader HeaderOf(const std::string& bytes) {
  BytesInMemory source(bytes);
  return LibraryFile(source).Header();
}

Export Found(const std::string& bytes, std::string_view name) {
  BytesInMemory source(bytes);
  return LibraryFile(source).Find(name);
}

// The names of these must be in order.
std::string Pe(const std::vector<TestExport>& exports) {
  TestPe pe;
  pe.exports = exports;
  return pe.Build();
}

std::string Elf(const std::vector<TestSymbol>& symbols, TestElfHash hash = TestElfHash::kGnuHash,
                int bitness = 64) {
  TestElf elf;
  elf.symbols = symbols;
  elf.hash = hash;
  elf.bitness = bitness;
  return elf.Build();
}

const std::vector<TestElfHash> kHashes = {TestElfHash::kHash, TestElfHash::kGnuHash};

TEST(LibraryFile, APeFileTellsItsMachineAndBitness) {
  struct Case {
    std::uint16_t number;
    int bitness;
    LibraryMachine machine;
  };
  for (const Case& c :
       {Case{0x014C, 32, LibraryMachine::kX86}, Case{0x8664, 64, LibraryMachine::kX64},
        Case{0xAA64, 64, LibraryMachine::kArm64},
        Case{0x01C4, 32, LibraryMachine::kOther},     // ARM in 32 bits
        Case{0x0200, 64, LibraryMachine::kOther}}) {  // IA64
    TestPe pe;
    pe.machine = c.number;
    pe.bitness = c.bitness;
    pe.exports = {{"FreeProws", ""}};
    const std::string bytes = pe.Build();
    SCOPED_TRACE(c.number);
    const LibraryHeader header = HeaderOf(bytes);
    EXPECT_EQ(header.state, LibraryState::kLibrary) << header.problem;
    EXPECT_EQ(header.problem, "");
    EXPECT_EQ(header.format, LibraryFormat::kPe);
    EXPECT_EQ(header.machine, c.machine);
    EXPECT_EQ(header.machine_number, c.number);
    EXPECT_EQ(header.bitness, c.bitness);
    EXPECT_FALSE(header.is_program);
    EXPECT_EQ(Found(bytes, "FreeProws").state, kThere);
  }
}

TEST(LibraryFile, AProgramIsNoDllAndCanBeLoaded) {
  TestPe pe;
  pe.characteristics = 0x22;
  const LibraryHeader header = HeaderOf(pe.Build());
  EXPECT_EQ(header.state, LibraryState::kLibrary);
  EXPECT_TRUE(header.is_program);
}

TEST(LibraryFile, AnElfFileTellsItsMachineAndBitness) {
  struct Case {
    std::uint16_t number;
    int bitness;
    LibraryMachine machine;
  };
  for (const Case& c : {Case{3, 32, LibraryMachine::kX86}, Case{62, 64, LibraryMachine::kX64},
                        Case{62, 32, LibraryMachine::kX64}, Case{183, 64, LibraryMachine::kArm64},
                        Case{243, 64, LibraryMachine::kOther}}) {  // RISC-V
    TestElf elf;
    elf.machine = c.number;
    elf.bitness = c.bitness;
    SCOPED_TRACE(c.number);
    const LibraryHeader header = HeaderOf(elf.Build());
    EXPECT_EQ(header.state, LibraryState::kLibrary) << header.problem;
    EXPECT_EQ(header.format, LibraryFormat::kElf);
    EXPECT_EQ(header.machine, c.machine);
    EXPECT_EQ(header.machine_number, c.number);
    EXPECT_EQ(header.bitness, c.bitness);
    EXPECT_FALSE(header.is_program);
  }
}

// A number put into a good file, and what is wrong with that then; empty: nothing.
struct Change {
  std::size_t offset;
  std::size_t size;
  std::uint64_t number;
  const char* problem;
};

void ExpectProblems(const std::string& good, const std::vector<Change>& changes) {
  ASSERT_EQ(HeaderOf(good).state, LibraryState::kLibrary);
  for (const Change& change : changes) {
    std::string bytes = good;
    PutNumber(bytes, change.offset, change.size, change.number);
    SCOPED_TRACE(testing::Message() << change.number << " at " << change.offset);
    const LibraryHeader header = HeaderOf(bytes);
    const bool is_good = *change.problem == '\0';
    EXPECT_EQ(header.problem, change.problem);
    EXPECT_EQ(header.state, is_good ? LibraryState::kLibrary : LibraryState::kNoLibrary);
    EXPECT_EQ(header.format, is_good ? HeaderOf(good).format : LibraryFormat::kNone);
    EXPECT_EQ(header.bitness, is_good ? HeaderOf(good).bitness : 0);
    EXPECT_NE(Found(bytes, "FreeProws").state, kUnknown);
  }
}

TEST(LibraryFile, WhatNoWindowsLoadsIsNoLibrary) {
  constexpr std::size_t kHeader = TestPe::kHeader;
  constexpr std::size_t kOptional = TestPe::kOptional;
  constexpr std::size_t kSections = TestPe::kSections;
  const char* const neither = "it is neither a PE nor an ELF file";
  const char* const no_header = "it has no PE header";
  const char* const misfit = "its optional header does not fit its machine";
  const char* const alignment = "its sections are aligned too little";
  const char* const headers = "it ends within its headers";
  const char* const image = "it ends before what is loaded of it";
  const std::string pe = Pe({{"FreeProws", ""}});
  ASSERT_EQ(pe.size(), 0x800U);
  ExpectProblems(pe, {
                         {0, 1, 'X', neither},
                         {1, 1, 'X', neither},
                         {0x3C, 4, 0, no_header},
                         {0x3C, 4, 0x7F0, no_header},
                         {0x3C, 4, 0xFFFFFFFF, no_header},
                         {kHeader, 4, 0x454E, no_header},  // for Windows in 16 bits
                         {kHeader + 4, 2, 0x014C, misfit},
                         {kOptional, 2, 0x10B, misfit},
                         {kOptional, 2, 0x107, misfit},  // a ROM
                         {kHeader + 22, 2, 0x2020, "it is not marked as executable"},
                         {kOptional + 32, 4, 0, alignment},
                         {kOptional + 32, 4, 0x100, alignment},
                         {kOptional + 36, 4, 0x2000, alignment},
                         {kOptional + 56, 4, 0, "it takes no memory"},
                         {kHeader + 6, 2, 0xFFFF, headers},
                         {kHeader + 20, 2, 0xFFFF, headers},
                         {kSections + 40 + 20, 4, 0x800, image},
                         {kSections + 40 + 20, 4, 0xFFFFFFFF, image},
                         {kSections + 40 + 16, 4, 0x201, image},
                         {kSections + 40 + 16, 4, 0xFFFFFFFF, image},
                     });
  TestPe narrow;
  narrow.machine = 0x014C;
  narrow.bitness = 32;
  ExpectProblems(narrow.Build(), {{kOptional, 2, 0x20B, misfit}, {kHeader + 4, 2, 0x8664, misfit}});
}

// Odd, but no reason to refuse it.
TEST(LibraryFile, WhatMayLoadIsALibrary) {
  constexpr std::size_t kOptional = TestPe::kOptional;
  constexpr std::size_t kSections = TestPe::kSections;
  ExpectProblems(Pe({{"FreeProws", ""}}),
                 {
                     {TestPe::kHeader + 4, 2, 0, ""},
                     {TestPe::kHeader + 6, 2, 0, ""},
                     {TestPe::kHeader + 22, 2, 0xFFFF, ""},
                     {kOptional + 32, 4, 0x200, ""},
                     {kOptional + 36, 4, 0, ""},
                     {kOptional + 36, 4, 0x300, ""},
                     {kOptional + 60, 4, 0xFFFFFFFF, ""},
                     {kOptional + 64, 4, 0x12345678, ""},
                     {TestPe::kDirectories - 4, 4, 0xFFFFFFFF, ""},
                     // More than a page of it is not used, so that it may be missing.
                     {kSections + 40 + 8, 4, 0xFFFFFFFF, ""},
                     {kSections + 40 + 20, 4, 0x7FF, ""},
                     {kSections + 40 + 20, 4, 0, ""},
                 });
}

TEST(LibraryFile, WhatLinuxDoesNotLoadIsNoLibrary) {
  constexpr std::size_t kLoad = TestElf::kSegments;
  constexpr std::size_t kDynamic = kLoad + TestElf::kSegmentSize;
  const char* const kind = "it is of an unknown kind of ELF";
  const char* const headers = "it ends within its headers";
  const char* const image = "it ends before what is loaded of it";
  const char* const nothing = "it has nothing to be loaded";
  ExpectProblems(Elf({{"FreeProws"}}), {
                                           {3, 1, 'G', "it is neither a PE nor an ELF file"},
                                           {4, 1, 0, kind},
                                           {4, 1, 3, kind},
                                           {5, 1, 2, kind},  // the high byte first
                                           {6, 1, 0, kind},
                                           {16, 2, 1, "it is no shared object"},
                                           {16, 2, 2, "it is no shared object"},
                                           {54, 2, 32, "its program headers have another size"},
                                           {32, 8, 0xFFFFFFFFFFFFFFFF, headers},
                                           {56, 2, 0xFFFF, headers},
                                           {56, 2, 0, nothing},
                                           {kLoad, 4, 6, nothing},
                                           {kDynamic, 4, 6, nothing},
                                           {kLoad + 8, 8, 1, image},
                                           {kLoad + 8, 8, 0xFFFFFFFFFFFFFFFF, image},
                                           {kLoad + 32, 8, 0xFFFFFFFFFFFFFFFF, image},
                                           {kLoad + 40, 8, 0xFFFFFFFFFFFFFFFF, ""},
                                           {kLoad + 16, 8, 0xFFFFFFFFFFFFFFFF, ""},
                                           {kDynamic + 16, 8, 0xFFFFFFFFFFFFFFFF, ""},
                                           {kDynamic + 40, 8, 0xFFFFFFFFFFFFFFFF, ""},
                                       });
  TestElf program;
  program.flags_1 = 0x08000001;
  EXPECT_EQ(HeaderOf(program.Build()).problem, "it is a program");
}

TEST(LibraryFile, AnExportHasExactlyItsName) {
  const std::string bytes =
      Pe({{"A", ""}, {"FreeProws@4", ""}, {"MAPIFreeBuffer", ""}, {"_HrQueryAllRows@24", ""}});
  for (const char* const name : {"A", "FreeProws@4", "MAPIFreeBuffer", "_HrQueryAllRows@24"}) {
    EXPECT_EQ(Found(bytes, name), (Export{kThere, ""})) << name;
  }
  for (const char* const name : {"", "B", "FreeProws", "FreeProws@40", "HrQueryAllRows",
                                 "MAPIFreeBuffe", "MAPIFreeBuffers", "mapifreebuffer", "z"}) {
    EXPECT_EQ(Found(bytes, name), Export{}) << name;
  }
  EXPECT_EQ(Found(bytes, std::string_view("A\0", 2)), Export{});
  EXPECT_EQ(Found(Pe({}), "A"), Export{});
}

TEST(LibraryFile, EveryOneOfManyExportsIsFound) {
  std::vector<TestExport> exports;
  for (char c = 'A'; c <= 'Z'; ++c) {
    exports.push_back({std::string("Function") + c, ""});
    for (std::size_t size = exports.size(); size == exports.size(); ++size) {
      const std::string bytes = Pe(exports);
      for (const TestExport& one : exports) {
        EXPECT_EQ(Found(bytes, one.name).state, kThere) << one.name << " of " << size;
      }
    }
  }
}

TEST(LibraryFile, AForwarderNamesAnotherFunction) {
  const std::string bytes =
      Pe({{"A", "OTHER.Function"}, {"B", "OTHER.#7"}, {"C", std::string(300, 'x')}, {"D", ""}});
  EXPECT_EQ(Found(bytes, "A"), (Export{kThere, "OTHER.Function"}));
  EXPECT_EQ(Found(bytes, "B"), (Export{kThere, "OTHER.#7"}));
  EXPECT_EQ(Found(bytes, "C"), (Export{kThere, std::string(256, 'x')}));
  EXPECT_EQ(Found(bytes, "D"), (Export{kThere, ""}));
}

// What GetProcAddress does not find is not there for the tool either.
TEST(LibraryFile, ATableThatIsNotSortedIsSearchedByBisection) {
  const std::string bytes = Pe({{"C", ""}, {"B", ""}, {"A", ""}});
  EXPECT_EQ(Found(bytes, "B").state, kThere);
  EXPECT_EQ(Found(bytes, "A").state, kMissing);
  EXPECT_EQ(Found(bytes, "C").state, kMissing);
}

TEST(LibraryFile, BrokenExportTablesHaveNothing) {
  const std::string good = Pe({{"FreeProws", "OTHER.A"}});
  constexpr std::size_t kTable = TestPe::kExports;
  constexpr std::uint64_t kAddress = TestPe::kExportsAddress;
  const Change changes[] = {
      {TestPe::kDirectories - 4, 4, 0, "no directories"},
      {TestPe::kDirectories, 4, 0, "no table"},
      {TestPe::kDirectories, 4, 0x3000, "a table behind the image"},
      {TestPe::kDirectories, 4, 0xFFFFFFFF, "a table at the end of all"},
      {TestPe::kDirectories, 4, 0x2FF0, "a table across the end"},
      {TestPe::kDirectories, 4, TestPe::kCodeAddress, "a table that is code"},
      {kTable + 20, 4, 0, "no functions"},
      {kTable + 24, 4, 0, "no names"},
      {kTable + 24, 4, 0xFFFFFFFF, "too many names"},
      {kTable + 28, 4, 0xFFFFFFFF, "functions nowhere"},
      {kTable + 28, 4, kAddress + 4, "functions of which the first is 0"},
      {kTable + 32, 4, 0xFFFFFFFF, "names nowhere"},
      {kTable + 32, 4, kAddress, "names that are the table itself"},
      {kTable + 36, 4, 0xFFFFFFFF, "numbers nowhere"},
      {kTable + 40, 4, 0, "no function"},
      {kTable + 44, 4, 0xFFFFFFFF, "a name nowhere"},
      {kTable + 44, 4, kAddress, "a name that is the table itself"},
      {kTable + 48, 2, 1, "a number beyond the functions"},
  };
  ASSERT_EQ(Found(good, "FreeProws"), (Export{kThere, "OTHER.A"}));
  for (const Change& change : changes) {
    std::string bytes = good;
    PutNumber(bytes, change.offset, change.size, change.number);
    EXPECT_EQ(HeaderOf(bytes).state, LibraryState::kLibrary) << change.problem;
    EXPECT_EQ(Found(bytes, "FreeProws"), Export{}) << change.problem;
  }
}

TEST(LibraryFile, WhatIsBehindASectionsBytesIsZero) {
  std::string bytes = Pe({{"", "OTHER.A"}});
  // The name is among the zeros that fill the page.
  PutNumber(bytes, TestPe::kExports + 44, 4, TestPe::kExportsAddress + 0xFFF);
  EXPECT_EQ(Found(bytes, "").state, kThere);
  PutNumber(bytes, TestPe::kExports + 44, 4, TestPe::kExportsAddress + 0x1000);
  EXPECT_EQ(Found(bytes, "").state, kMissing);
}

TEST(LibraryFile, AForwarderThatNeverEndsIsNoExport) {
  std::string bytes = Pe({{"A", "OTHER.A"}});
  // The last bytes of the page, all of which are in the file.
  bytes.resize(TestPe::kExports + 0x1000, 'x');
  PutNumber(bytes, TestPe::kSections + 40 + 16, 4, 0x1000);
  PutNumber(bytes, TestPe::kDirectories + 4, 4, 0x1000);
  PutNumber(bytes, TestPe::kExports + 40, 4, TestPe::kExportsAddress + 0xF00);
  EXPECT_EQ(Found(bytes, "A"), (Export{kThere, std::string(256, 'x')}));
  PutNumber(bytes, TestPe::kExports + 40, 4, TestPe::kExportsAddress + 0xF01);
  EXPECT_EQ(Found(bytes, "A"), Export{});
}

TEST(LibraryFile, ExportsMayStandInTheHeaders) {
  std::string bytes = Pe({{"A", ""}});
  // The headers reach as far as to the sections' bytes, and there is no section.
  PutNumber(bytes, TestPe::kHeader + 6, 2, 0);
  PutNumber(bytes, TestPe::kDirectories, 4, TestPe::kExports);
  EXPECT_EQ(Found(bytes, "A").state, kMissing);
  PutNumber(bytes, TestPe::kOptional + 60, 4, bytes.size());
  for (const std::size_t field : {28U, 32U, 36U, 44U}) {
    const std::size_t at = TestPe::kExports + field;
    const auto low = static_cast<unsigned char>(bytes[at]);
    PutNumber(bytes, at, 4, TestPe::kExports + low);
  }
  EXPECT_EQ(Found(bytes, "A").state, kThere);
  // With sections less than a page apart the file itself is what is in memory.
  PutNumber(bytes, TestPe::kOptional + 60, 4, 0x400);
  EXPECT_EQ(Found(bytes, "A").state, kMissing);
  PutNumber(bytes, TestPe::kOptional + 32, 4, 0x200);
  EXPECT_EQ(Found(bytes, "A").state, kThere);
}

TEST(LibraryFile, AnElfFileExportsWhatOthersSee) {
  const std::vector<TestSymbol> symbols = {
      {"global", 1, 0}, {"weak", 2, 0},     {"unique", 10, 0}, {"protected", 1, 3},
      {"local", 0, 0},  {"internal", 1, 1}, {"hidden", 1, 2},  {"undefined", 1, 0, false}};
  for (const int bitness : {32, 64}) {
    for (const TestElfHash hash : kHashes) {
      const std::string bytes = Elf(symbols, hash, bitness);
      for (const char* const name : {"global", "weak", "unique", "protected"}) {
        EXPECT_EQ(Found(bytes, name), (Export{kThere, ""})) << name << bitness;
      }
      for (const char* const name :
           {"local", "internal", "hidden", "undefined", "", "globa", "globals"}) {
        EXPECT_EQ(Found(bytes, name), Export{}) << name << bitness;
      }
      EXPECT_EQ(Found(Elf({}, hash, bitness), "global"), Export{});
    }
    EXPECT_EQ(Found(Elf(symbols, TestElfHash::kNone, bitness), "global"), Export{});
  }
}

TEST(LibraryFile, BrokenSymbolTablesHaveNothing) {
  constexpr std::size_t kGnu = TestElf::kHash;
  constexpr std::size_t kEntry = 16;
  struct Case {
    TestElfHash hash;
    Change change;
  };
  for (const auto& [hash, change] : {
           Case{TestElfHash::kGnuHash, {TestElf::kDynamic + 8, 8, ~0ULL, "texts nowhere"}},
           Case{TestElfHash::kGnuHash, {TestElf::kDynamic, 8, 0, "no tables"}},
           Case{TestElfHash::kGnuHash, {TestElf::kDynamic + 2 * kEntry, 8, 99, "no symbols"}},
           Case{TestElfHash::kGnuHash,
                {TestElf::kDynamic + 2 * kEntry + 8, 8, ~0ULL, "symbols nowhere"}},
           Case{TestElfHash::kGnuHash,
                {TestElf::kDynamic + 4 * kEntry + 8, 8, ~0ULL, "a hash table nowhere"}},
           Case{TestElfHash::kGnuHash, {TestElf::kSymbols + 24, 4, ~0U, "a name nowhere"}},
           Case{TestElfHash::kGnuHash, {kGnu, 4, 0, "no buckets"}},
           Case{TestElfHash::kGnuHash, {kGnu + 4, 4, 2, "a bucket before the first symbol"}},
           Case{TestElfHash::kGnuHash, {kGnu + 8, 4, ~0U, "buckets nowhere"}},
           Case{TestElfHash::kGnuHash, {kGnu + 24, 4, 0, "an empty bucket"}},
           Case{TestElfHash::kGnuHash, {kGnu + 24, 4, ~0U, "a chain nowhere"}},
           Case{TestElfHash::kGnuHash, {kGnu + 28, 4, 1, "another hash"}},
           Case{TestElfHash::kHash, {TestElf::kHash, 4, 0, "no buckets"}},
           Case{TestElfHash::kHash, {TestElf::kHash, 4, ~0U, "too many buckets"}},
           Case{TestElfHash::kHash, {TestElf::kHash + 8, 4, ~0U, "a symbol nowhere"}},
           Case{TestElfHash::kHash, {TestElf::kHash + 8, 4, 0, "an empty bucket"}},
       }) {
    std::string bytes = Elf({{"FreeProws"}}, hash);
    ASSERT_EQ(Found(bytes, "FreeProws").state, kThere);
    PutNumber(bytes, change.offset, change.size, change.number);
    EXPECT_EQ(HeaderOf(bytes).state, LibraryState::kLibrary) << change.problem;
    EXPECT_EQ(Found(bytes, "FreeProws"), Export{}) << change.problem;
  }
}

TEST(LibraryFile, WhatALinkerMadeIsReadToo) {
  const auto bytes = support::ReadBytes(SANDBOX_LIBRARY);
  ASSERT_TRUE(bytes) << SANDBOX_LIBRARY;
  const LibraryHeader header = HeaderOf(*bytes);
  EXPECT_EQ(header.state, LibraryState::kLibrary) << header.problem;
  EXPECT_EQ(header.bitness, static_cast<int>(sizeof(void*) * 8));
  for (const char* const name :
       {"MAPIInitialize", "MAPILogonEx", "MAPIOpenFormMgr", "MAPIAdminProfiles", "HrQueryAllRows",
        "FreeProws", "FreePadrlist", "MAPIAllocateBuffer", "MAPIFreeBuffer"}) {
    EXPECT_EQ(Found(*bytes, name), (Export{kThere, ""})) << name;
  }
  for (const char* const name : {"FreeProws@4", "MAPISendMail", "malloc", "TheClient"}) {
    EXPECT_EQ(Found(*bytes, name), Export{}) << name;
  }
}

// Good files of each kind.
std::vector<std::string> GoodFiles() {
  TestPe narrow;
  narrow.machine = 0x014C;
  narrow.bitness = 32;
  narrow.exports = {{"A", "B.C"}, {"FreeProws@4", ""}};
  std::vector<std::string> files = {Pe({{"A", "B.C"}, {"FreeProws@4", ""}}), narrow.Build()};
  for (const TestElfHash hash : kHashes) {
    files.push_back(Elf({{"A"}, {"FreeProws@4"}}, hash));
    files.push_back(Elf({{"A"}, {"FreeProws@4"}}, hash, 32));
  }
  return files;
}

TEST(LibraryFile, AFileThatIsCutAnywhereIsNoLibrary) {
  for (const std::string& good : GoodFiles()) {
    for (std::size_t size = 0; size < good.size(); ++size) {
      const std::string cut = good.substr(0, size);
      ASSERT_EQ(HeaderOf(cut).state, LibraryState::kNoLibrary) << size;
      ASSERT_NE(HeaderOf(cut).problem, "") << size;
      ASSERT_EQ(Found(cut, "A"), Export{}) << size;
    }
    EXPECT_EQ(Found(good, "A").state, kThere);
  }
}

TEST(LibraryFile, AnyNumberAnywhereIsSurvived) {
  constexpr std::uint64_t kMost = 64 << 20;
  for (const std::string& good : GoodFiles()) {
    for (std::size_t at = 0; at + 8 <= good.size(); ++at) {
      for (const std::uint64_t number :
           {std::uint64_t{0}, ~std::uint64_t{0}, 0x7FFFFFFFFFFFFFFFU, std::uint64_t{0x1000}}) {
        for (const std::size_t size : {2U, 8U}) {
          std::string bytes = good;
          PutNumber(bytes, at, size, number);
          BytesInMemory source(bytes);
          LibraryFile file(source);
          const Export found = file.Find("A");
          ASSERT_TRUE(found.state == kThere || found.forwarder.empty());
          ASSERT_EQ(file.Find("A"), found);
          ASSERT_LE(source.BytesRead(), kMost);
        }
      }
    }
  }
}

TEST(LibraryFile, WhatCannotBeReadIsUnknown) {
  for (const std::string& good : GoodFiles()) {
    BytesInMemory whole(good);
    EXPECT_EQ(LibraryFile(whole).Header().state, LibraryState::kLibrary);
    const std::size_t reads_of_header = whole.Reads();
    ASSERT_GT(reads_of_header, 0U);
    for (std::size_t read = 0; read < reads_of_header; ++read) {
      BytesInMemory source(good);
      source.FailFrom(read);
      LibraryFile file(source);
      EXPECT_EQ(file.Header().state, LibraryState::kUnreadable) << read;
      EXPECT_EQ(file.Header().problem, "it could not be read");
      EXPECT_EQ(file.Header().bitness, 0);
    }
    bool is_found = false;
    for (std::size_t read = reads_of_header; !is_found; ++read) {
      BytesInMemory source(good);
      source.FailFrom(read);
      LibraryFile file(source);
      EXPECT_EQ(file.Header().state, LibraryState::kLibrary) << read;
      const Export found = file.Find("A");
      is_found = found.state == kThere;
      EXPECT_EQ(found.state, is_found ? kThere : kUnknown) << read;
      ASSERT_LT(read, reads_of_header + 100);
    }
  }
}

TEST(LibraryFile, AReadThatFailsOnceLeavesTheRest) {
  const std::string bytes = Pe({{"A", ""}});
  BytesInMemory source(bytes);
  LibraryFile file(source);
  source.FailFrom(source.Reads());
  EXPECT_EQ(file.Find("A").state, kUnknown);
  source.FailFrom(1000);
  EXPECT_EQ(file.Find("A").state, kThere);
}

TEST(LibraryFile, WhatGoesRoundInCirclesIsUnknown) {
  std::string bytes = Elf({{"A"}}, TestElfHash::kHash);
  PutNumber(bytes, TestElf::kHash + 12 + 4, 4, 1);  // behind the symbol comes that symbol
  BytesInMemory source(bytes);
  LibraryFile file(source);
  EXPECT_EQ(file.Header().state, LibraryState::kLibrary);
  EXPECT_EQ(file.Find("A").state, kThere);
  EXPECT_EQ(file.Find("B").state, kUnknown);
  EXPECT_LT(source.Reads(), 20'000U);
  EXPECT_EQ(file.Find("A").state, kUnknown);
}

// A file of 1 TiB: a good start, then zeros.
class HugeFile : public ByteSource {
 public:
  explicit HugeFile(std::string start) : start_(std::move(start)) {}

  [[nodiscard]] std::uint64_t Size() const override { return std::uint64_t{1} << 40; }
  [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t size) override {
    bytes_read_ += size;
    for (std::size_t i = 0; i < size; ++i) {
      static_cast<char*>(buffer)[i] =
          offset + i < start_.size() ? start_[static_cast<std::size_t>(offset) + i] : '\0';
    }
    return true;
  }

  [[nodiscard]] std::uint64_t BytesRead() const { return bytes_read_; }

 private:
  std::string start_;
  std::uint64_t bytes_read_ = 0;
};

TEST(LibraryFile, LittleIsReadOfAHugeFile) {
  for (const std::string& good : GoodFiles()) {
    HugeFile source(good);
    LibraryFile file(source);
    EXPECT_EQ(file.Find("A").state, kThere);
    EXPECT_EQ(file.Find("B").state, kMissing);
    EXPECT_LT(source.BytesRead(), 10'000U);
  }
}

TEST(LibraryFile, NoMoreThan64MibAreEverRead) {
  // As many sections as there can be, the first of which holds all, and a name of 16 MiB.
  std::string bytes = Pe({{"A", ""}});
  PutNumber(bytes, TestPe::kHeader + 6, 2, 0xFFFF);
  PutNumber(bytes, TestPe::kSections + 8, 4, 0xF0000000);
  PutNumber(bytes, TestPe::kSections + 16, 4, 0xF0000000);
  PutNumber(bytes, TestPe::kDirectories, 4, TestPe::kCodeAddress + 0x200);
  for (const std::size_t field : {28U, 32U, 36U, 40U, 44U}) {
    const std::size_t at = TestPe::kExports + field;
    const auto low = static_cast<unsigned char>(bytes[at]);
    PutNumber(bytes, at, 4, TestPe::kCodeAddress + 0x200 + low);
  }
  HugeFile source(bytes);
  LibraryFile file(source);
  ASSERT_EQ(file.Header().state, LibraryState::kLibrary) << file.Header().problem;
  EXPECT_EQ(file.Find("A").state, kThere);
  const std::string name(16 << 20, 'A');
  int looks = 0;
  while (file.Find(name).state == kMissing) {
    ASSERT_LT(++looks, 5);
  }
  EXPECT_EQ(looks, 3);
  EXPECT_LE(source.BytesRead(), 64U << 20);
}

}  // namespace
}  // namespace zentpost::doctor
