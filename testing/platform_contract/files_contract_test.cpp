#include "platform/files.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

using namespace std::string_literals;

class FilesContract : public ContractTest {
 protected:
  static std::u16string Path(const char16_t* name) { return Folder() + u"\\" + name; }

  static File Opened(const std::u16string& path, OpenMode mode = OpenMode::kRead) {
    File file;
    EXPECT_EQ(OpenFileAt(path, mode, file), kSuccess);
    EXPECT_TRUE(file);
    return file;
  }

  // Everything that is in the file, through the platform layer.
  static std::string ReadAll(const std::u16string& path, std::size_t capacity = 1000) {
    std::string bytes(capacity, '\0');
    std::size_t count = 0;
    EXPECT_EQ(ReadBytes(Opened(path), bytes.data(), bytes.size(), count), kSuccess);
    bytes.resize(count);
    return bytes;
  }

  static std::uint64_t SizeOf(const File& file) {
    std::uint64_t size = 99;
    EXPECT_EQ(QueryFileSize(file, size), kSuccess);
    return size;
  }

  static FileIdentity Identity(const std::u16string& path) {
    FileIdentity identity;
    EXPECT_EQ(IdentifyFile(path, identity), kSuccess);
    EXPECT_FALSE(identity == FileIdentity());
    return identity;
  }

  const std::u16string a_ = Path(u"a.txt");
};

TEST_F(FilesContract, WhatIsNoFileOnADiskIsRefusedWithItsNumberAndAtOnce) {
  constexpr Status kNotAsked = 99999;
  struct Case {
    std::u16string path;
    Status read;
    Status write;  // rewriting and appending
    Status remove;
  };
  SetFile(a_, "x");
  AddFolder(Path(u"folder"));
  const Case cases[] = {
      {Path(u"none.txt"), kFileNotFound, kNotAsked, kFileNotFound},
      {Path(u"none\\a.txt"), kPathNotFound, kPathNotFound, kPathNotFound},
      {Path(u"a.txt\\b.txt"), kPathNotFound, kNotAsked, kNotAsked},
      {u"", kPathNotFound, kPathNotFound, kNotAsked},
      {Path(u"folder"), kAccessDenied, kAccessDenied, kAccessDenied},
      {Pipe(), kAccessDenied, kAccessDenied, kNotAsked},
  };
  const auto begin = std::chrono::steady_clock::now();
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::PrintToString(test.path));
    const auto expect = [](Status expected, const auto& call) {
      if (expected != kNotAsked) {
        EXPECT_EQ(call(), expected);
      }
    };
    // Asked twice: a pipe may be busy behind the first attempt.
    for (int attempt = 0; attempt < 2; ++attempt) {
      for (const OpenMode mode : {OpenMode::kRead, OpenMode::kRewrite}) {
        expect(mode == OpenMode::kRead ? test.read : test.write, [&] {
          File file = Opened(a_);
          const Status status = OpenFileAt(test.path, mode, file);
          EXPECT_FALSE(file);
          return status;
        });
      }
      expect(test.write, [&] { return AppendToFile(test.path, "x", 1); });
      expect(test.remove, [&] { return RemoveFile(test.path); });
      const FileIdentity untouched = {7, {7}};
      FileIdentity identity = untouched;
      EXPECT_EQ(IdentifyFile(test.path, identity), test.read);
      EXPECT_TRUE(identity == untouched);
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  EXPECT_TRUE(FolderExists(Path(u"folder")));
  EXPECT_FALSE(FolderExists(Path(u"none")));
  EXPECT_EQ(FileBytes(a_), "x");
}

TEST_F(FilesContract, BytesAreWrittenAndReadAsTheyAreWhateverTheFilesName) {
  std::string every = "line\r\nline\nline\r\x1A";
  for (int byte = 0; byte < 256; ++byte) {
    every.push_back(static_cast<char>(byte));
  }
  struct Case {
    const char16_t* name;
    std::string bytes;
  };
  for (const Case& test :
       {Case{u"every.txt", every}, Case{u"empty.txt", ""}, Case{u"large.bin", Pattern(9'000'001)},
        Case{u"Gr\u00FC\u00DFe \u4E2D\u6587 \U0001F600.txt", "x"}}) {
    const std::u16string path = Path(test.name);
    SCOPED_TRACE(testing::PrintToString(path));
    EXPECT_EQ(WriteBytes(Opened(path, OpenMode::kRewrite), test.bytes.data(), test.bytes.size()),
              kSuccess);
    EXPECT_TRUE(FileBytes(path) == test.bytes);
    EXPECT_EQ(SizeOf(Opened(path)), test.bytes.size());
    EXPECT_TRUE(ReadAll(path, test.bytes.size() + 10) == test.bytes);
    EXPECT_EQ(RemoveFile(path), kSuccess);
    EXPECT_EQ(FileBytes(path), std::nullopt);
    EXPECT_EQ(RemoveFile(path), kFileNotFound);
  }
}

TEST_F(FilesContract, ReadsOnFromWhereItEnded) {
  SetFile(a_, "abcdefg");
  const File file = Opened(a_);
  std::size_t count = 99;
  EXPECT_EQ(ReadBytes(file, nullptr, 0, count), kSuccess);
  EXPECT_EQ(count, 0U);
  for (const std::string_view expected : {"abc", "def", "g", ""}) {
    char buffer[3] = {};
    EXPECT_EQ(ReadBytes(file, buffer, sizeof(buffer), count), kSuccess);
    EXPECT_EQ(std::string_view(buffer, count), expected);
  }
}

TEST_F(FilesContract, RewritingEmptiesAtOnceAndWritesBehindWhatWasWrittenLast) {
  SetFile(a_, "something");
  File file = Opened(a_, OpenMode::kRewrite);
  EXPECT_EQ(SizeOf(file), 0U);
  EXPECT_EQ(FileBytes(a_), "");
  EXPECT_EQ(WriteBytes(file, "abc", 3), kSuccess);
  EXPECT_EQ(WriteBytes(file, "", 0), kSuccess);
  EXPECT_EQ(SizeOf(file), 3U);
  EXPECT_EQ(WriteBytes(file, "def", 3), kSuccess);
  EXPECT_EQ(SizeOf(file), 6U);
  file.Reset();
  EXPECT_EQ(FileBytes(a_), "abcdef");
}

TEST_F(FilesContract, AnEmptyOwnerIsNoFile) {
  std::uint64_t size = 99;
  EXPECT_EQ(QueryFileSize(File(), size), kInvalidHandle);
  char buffer[1] = {};
  std::size_t count = 99;
  EXPECT_EQ(ReadBytes(File(), buffer, 1, count), kInvalidHandle);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(WriteBytes(File(), buffer, 1), kInvalidHandle);
}

TEST_F(FilesContract, OthersMayUseAnOpenFile) {
  SetFile(a_, "abc");
  const File first = Opened(a_);
  const File second = Opened(a_);
  EXPECT_EQ(ReadAll(a_), "abc");
  EXPECT_EQ(AppendToFile(a_, "def", 3), kSuccess);
  EXPECT_EQ(ReadAll(a_), "abcdef");
  Opened(a_, OpenMode::kRewrite);
}

TEST_F(FilesContract, AReadOnlyFileIsOnlyRead) {
  SetFile(a_, "abc");
  const bool binds = MakeReadOnly(a_);
  EXPECT_EQ(ReadAll(a_), "abc");
  EXPECT_EQ(RemoveFile(a_), kAccessDenied);
  EXPECT_EQ(FileBytes(a_), "abc");
  if (!binds) {
    GTEST_SKIP() << "this user may write everything";
  }
  EXPECT_EQ(AppendToFile(a_, "d", 1), kAccessDenied);
  File file = Opened(a_);
  EXPECT_EQ(OpenFileAt(a_, OpenMode::kRewrite, file), kAccessDenied);
  EXPECT_FALSE(file);
  EXPECT_EQ(FileBytes(a_), "abc");
}

TEST_F(FilesContract, ASlashSeparatesAsABackslashDoes) {
  AddFolder(Path(u"sub"));
  EXPECT_EQ(AppendToFile(Path(u"sub/a.txt"), "x", 1), kSuccess);
  EXPECT_EQ(ReadAll(Path(u"sub\\a.txt")), "x");
}

TEST_F(FilesContract, AppendingMakesTheFileAndGoesOnAtItsEnd) {
  EXPECT_EQ(AppendToFile(a_, "", 0), kSuccess);
  EXPECT_EQ(FileBytes(a_), "");
  EXPECT_EQ(AppendToFile(a_, "one\r\n", 5), kSuccess);
  EXPECT_EQ(AppendToFile(a_, "two\n\0", 5), kSuccess);
  EXPECT_EQ(FileBytes(a_), "one\r\ntwo\n\0"s);
}

TEST_F(FilesContract, AppendingWaitsForNobodysLock) {
  SetFile(a_, "one\r\n");
  std::shared_ptr<void> held = HoldFile(a_, Hold::kLocked);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(AppendToFile(a_, "two\r\n", 5), kSuccess);
  EXPECT_EQ(AppendToFile(a_, "three\r\n", 7), kSuccess);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  held.reset();
  EXPECT_EQ(FileBytes(a_), "one\r\ntwo\r\nthree\r\n");
}

TEST_F(FilesContract, AFileIsTheSameByWhateverPathItIsReached) {
  AddFolder(Path(u"A folder of some length"));
  const std::u16string path = Path(u"A folder of some length\\A document of some length.txt");
  SetFile(path, "abc");
  AddLink(path, Path(u"link.txt"));
  std::vector<std::u16string> paths = {
      Path(u"link.txt"),
      Path(u"A folder of some length/A document of some length.txt"),
      Path(u".\\A folder of some length\\\\.\\A document of some length.txt"),
      Path(u"A folder of some length\\..\\link.txt"),
  };
  // Where case does not matter, the machine itself finds the file by it.
  const std::u16string other_case = Path(u"A FOLDER of some length\\a document OF SOME length.TXT");
  if (FileBytes(other_case)) {
    paths.push_back(other_case);
  }
  if (const std::optional<std::u16string> short_name = ShortName(path)) {
    paths.push_back(*short_name);
  }
  for (const std::u16string& each : paths) {
    EXPECT_TRUE(Identity(each) == Identity(path)) << testing::PrintToString(each);
  }
  EXPECT_EQ(FileBytes(path), "abc");
}

TEST_F(FilesContract, AFileStaysTheSameWhenItIsWrittenHoweverOthersHoldIt) {
  AddFolder(Path(u"folder"));
  for (const std::u16string& path : {a_, Path(u"b.txt"), Path(u"folder\\a.txt")}) {
    SetFile(path, "abc");
  }
  const FileIdentity before = Identity(a_);
  EXPECT_EQ(AppendToFile(a_, "def", 3), kSuccess);
  Opened(a_, OpenMode::kRewrite);
  EXPECT_TRUE(Identity(a_) == before);
  EXPECT_FALSE(Identity(Path(u"b.txt")) == before);
  EXPECT_FALSE(Identity(Path(u"folder\\a.txt")) == before);
  const std::shared_ptr<void> held = HoldFile(a_, Hold::kAlone);
  EXPECT_TRUE(Identity(a_) == before);
}

TEST_F(FilesContract, TheTemporaryFolderExistsAndEndsWithASeparator) {
  char16_t buffer[261] = {};
  std::uint32_t length = 0;
  ASSERT_EQ(TemporaryFolder(260, buffer, length), kSuccess);
  const std::u16string folder(buffer, length);
  ASSERT_FALSE(folder.empty());
  EXPECT_TRUE(folder.back() == u'\\' || folder.back() == u'/');
  EXPECT_TRUE(FolderExists(folder));
  ExpectFills(TemporaryFolder, folder);
}

TEST_F(FilesContract, TheFolderOfLocalApplicationDataEndsWithoutASeparator) {
  std::u16string folder = u"before";
  ASSERT_EQ(LocalApplicationDataFolder(folder), 0);
  ASSERT_FALSE(folder.empty());
  EXPECT_TRUE(folder.back() != u'\\' && folder.back() != u'/');
  EXPECT_TRUE(FolderExists(folder));
}

// Lines of different lengths, so that one that overwrites or splits another shows.
std::string AppendedLine(int process, int line) {
  return "process " + std::to_string(process) + " line " + std::to_string(line) + ' ' +
         std::string(static_cast<std::size_t>(20 + (process * 37 + line * 11) % 180),
                     static_cast<char>('a' + process % 26)) +
         "\r\n";
}

constexpr char16_t kShared[] = u"shared.log";
constexpr int kProcesses = 16;
constexpr int kLines = 200;

TEST_F(FilesContract, ACopyOfThisProgramAppendsItsLines) {
  const int process = GTEST_FLAG_GET(random_seed);
  if (process == 0) {
    GTEST_SKIP() << "runs in the copies only";
  }
  // Ready; the end of the input says that all are.
  std::putchar('r');
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  for (int line = 0; line < kLines; ++line) {
    const std::string bytes = AppendedLine(process, line);
    ASSERT_EQ(AppendToFile(kShared, bytes.data(), bytes.size()), kSuccess);
    std::this_thread::yield();  // So that the others get in between, however few processors.
  }
}

TEST_F(FilesContract, LinesOfSixteenProcessesNeitherMixNorVanish) {
  const std::optional<std::vector<int>> exit_codes =
      RunCopies(kProcesses, "FilesContract.ACopyOfThisProgramAppendsItsLines");
  if (!exit_codes) {
    GTEST_SKIP() << "this machine has no other processes";
  }
  EXPECT_EQ(*exit_codes, std::vector<int>(kProcesses, 0));
  std::vector<std::string> expected;
  for (int process = 1; process <= kProcesses; ++process) {
    for (int line = 0; line < kLines; ++line) {
      expected.push_back(AppendedLine(process, line));
    }
  }
  const std::string bytes = FileBytes(Path(kShared)).value_or("");
  std::vector<std::string> found;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
    found.push_back(bytes.substr(at, end - at));
    at = end;
  }
  // The processes did meet: else their lines would stand one process after the other.
  const auto process_of = [](const std::string& line) {
    return line.substr(0, line.find(" line"));
  };
  int changes = 0;
  for (std::size_t i = 1; i < found.size(); ++i) {
    changes += process_of(found[i]) != process_of(found[i - 1]) ? 1 : 0;
  }
  EXPECT_GE(changes, kProcesses);
  std::sort(expected.begin(), expected.end());
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found.size(), expected.size());
  EXPECT_TRUE(found == expected);
}

}  // namespace
}  // namespace platform::contract
