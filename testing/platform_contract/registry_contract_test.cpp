#include "platform/registry.h"

#include <cstring>
#include <iterator>
#include <optional>
#include <string>

#include "testing/platform_contract/contract_test.h"

namespace platform::contract {
namespace {

using namespace std::string_literals;

constexpr Hive kUser = Hive::kCurrentUser;
constexpr Hive kHives[] = {kUser, Hive::kLocalMachine, Hive::kClassesRoot};

class RegistryContract : public ContractTest {
 protected:
  void SetUp() override {
    if (!MayChangeRegistry()) {
      GTEST_SKIP() << "this machine's registry is not to be changed";
    }
  }

  static void Add(const std::u16string& name, const std::string& bytes,
                  std::uint32_t type = kRegBinary, const char16_t* below = u"") {
    ASSERT_TRUE(SetValue(kUser, KeyPath(below), name, type, bytes));
  }

  static RegistryKey Opened(const char16_t* below = u"", Hive hive = kUser) {
    RegistryKey key;
    EXPECT_EQ(OpenKey(hive, KeyPath(below).c_str(), kKeyRead, key), kSuccess);
    EXPECT_TRUE(key);
    return key;
  }

  // Absent: it is not there, and the buffer is as it was.
  static std::optional<std::string> ValueOf(const RegistryKey& key, const char16_t* name) {
    char data[16] = "#";
    std::uint32_t size = sizeof(data);
    const Status status = QueryValue(key, name, nullptr, data, size);
    if (status == kSuccess) {
      return std::string(data, size);
    }
    EXPECT_EQ(status, kFileNotFound);
    EXPECT_STREQ(data, "#");
    return std::nullopt;
  }
};

TEST_F(RegistryContract, AKeyIsFoundInItsHiveWithItsParentsWhateverTheCaseOfItsPath) {
  struct Case {
    const char16_t* below;
    Status status;
    Hive hive = kUser;
  };
  ASSERT_TRUE(AddKey(kUser, KeyPath(u"\\One\\Two")));
  ASSERT_TRUE(AddKey(kUser, KeyPath(u"\\Other")));
  for (const Case& test :
       {Case{u"", kSuccess}, Case{u"\\One", kSuccess}, Case{u"\\One\\Two", kSuccess},
        Case{u"\\oNE\\TWO", kSuccess}, Case{u"\\One\\Tw", kFileNotFound},
        Case{u"\\None", kFileNotFound}, Case{u"", kFileNotFound, Hive::kLocalMachine},
        Case{u"", kFileNotFound, Hive::kClassesRoot}}) {
    SCOPED_TRACE(testing::PrintToString(std::u16string(test.below)));
    for (const std::uint32_t access : {kKeyQueryValue, kKeyRead, kKeyReadWrite}) {
      RegistryKey key = Opened(u"\\Other");
      EXPECT_EQ(OpenKey(test.hive, KeyPath(test.below).c_str(), access, key), test.status);
      EXPECT_EQ(static_cast<bool>(key), test.status == kSuccess);
    }
  }
}

TEST_F(RegistryContract, OpensBelowAnOpenKey) {
  Add(u"Name", "deep", kRegBinary, u"\\One\\Two");
  const RegistryKey parent = Opened(u"\\One");
  RegistryKey key;
  ASSERT_EQ(OpenSubKey(parent, u"tWO", kKeyRead, key), kSuccess);
  EXPECT_EQ(ValueOf(key, u"Name"), "deep");
  EXPECT_EQ(OpenSubKey(parent, u"Three", kKeyRead, key), kFileNotFound);
  EXPECT_FALSE(key);
}

TEST_F(RegistryContract, EveryHiveIsRead) {
  const auto bytes_of = [](Hive hive) { return std::to_string(static_cast<int>(hive)); };
  for (const Hive hive : kHives) {
    if (!SetValue(hive, KeyPath(u""), u"Name", kRegBinary, bytes_of(hive))) {
      GTEST_SKIP() << "this user may not write to every hive";
    }
  }
  for (const Hive hive : kHives) {
    EXPECT_EQ(ValueOf(Opened(u"", hive), u"Name"), bytes_of(hive));
  }
}

TEST_F(RegistryContract, DataComesAsItIsStored) {
  struct Case {
    std::u16string name;
    std::uint32_t type;
    std::string bytes;
  };
  const Case cases[] = {
      {u"text", kRegSz, "t\0e\0x\0t\0\0\0"s},
      {u"empty text", kRegSz, "\0\0"s},
      {u"text without a terminator", kRegSz, "t\0e\0"s},
      {u"text of an odd number of bytes", kRegSz, "t\0e"s},
      {u"text of one byte", kRegSz, "4"s},
      {u"text without any bytes", kRegSz, ""s},
      {u"text with zeros in it", kRegSz, "a\0\0\0b\0\0\0"s},
      {u"text to be expanded", kRegExpandSz, "%\0P\0A\0T\0H\0%\0\0\0"s},
      {u"list of texts", kRegMultiSz, "a\0\0\0b\0\0\0\0\0"s},
      {u"number", kRegDword, "\x01\x02\x03\x04"s},
      {u"number of too few bytes", kRegDword, "\x01\x02\x03"s},
      {u"number of too many bytes", kRegDword, "\x01\x02\x03\x04\x05"s},
      {u"number without any bytes", kRegDword, ""s},
      {u"bytes", kRegBinary, "\x00\xFF\x80\n\r\x1A"s},
      {u"many bytes", kRegBinary, std::string(2000, 'x')},
      {u"none", 0, "z"s},
      {u"a type that nobody knows", 0x1234, "z"s},
  };
  for (const Case& test : cases) {
    Add(test.name, test.bytes, test.type);
  }
  const RegistryKey key = Opened();
  for (const Case& test : cases) {
    SCOPED_TRACE(testing::PrintToString(test.name));
    const auto full = static_cast<std::uint32_t>(test.bytes.size());
    for (const std::uint32_t capacity : {full - 1, full, full + 1, full + 50}) {
      if (full == 0 && capacity > 50) {
        continue;
      }
      SCOPED_TRACE(capacity);
      std::string data(capacity + 2, '\x55');
      std::uint32_t size = capacity;
      std::uint32_t type = 99;
      const Status status = QueryValue(key, test.name.c_str(), &type, data.data(), size);
      EXPECT_EQ(type, test.type);
      EXPECT_EQ(size, full);
      if (capacity < full) {
        EXPECT_EQ(status, kMoreData);
      } else {
        EXPECT_EQ(status, kSuccess);
        EXPECT_EQ(data.substr(0, full), test.bytes);
      }
      if (capacity != 1 || capacity < full) {
        // Not so with one byte: Wine puts a terminator of two bytes behind an odd text.
        EXPECT_EQ(data.substr(capacity), "\x55\x55");
      }
    }
    std::uint32_t size = 0;
    EXPECT_EQ(QueryValue(key, test.name.c_str(), nullptr, nullptr, size), kSuccess);
    EXPECT_EQ(size, full);
  }
}

TEST_F(RegistryContract, AValueMayHaveAnyNameWhoseCaseDoesNotMatter) {
  const std::u16string names[] = {
      u"a\\b", u"with \"quotes\"", u" blank ", u"Gr\u00FC\u00DFe \u4E2D", u"a=b", u"[x]", u";",
      u"@",    u"AzLevel"};
  const auto bytes_of = [](const std::u16string& name) { return std::to_string(name[0]); };
  for (const std::u16string& name : names) {
    Add(name, bytes_of(name));
  }
  const RegistryKey key = Opened();
  for (const std::u16string& name : names) {
    EXPECT_EQ(ValueOf(key, name.c_str()), bytes_of(name)) << testing::PrintToString(name);
  }
  EXPECT_EQ(ValueOf(key, u"aZlevel"), bytes_of(u"A"));
}

TEST_F(RegistryContract, TheDefaultValueHasNoName) {
  Add(u"", "default", kRegBinary, u"\\Below");
  for (const char16_t* const name : {static_cast<const char16_t*>(nullptr), u""}) {
    EXPECT_EQ(ValueOf(Opened(u"\\Below"), name), "default");
    EXPECT_EQ(ValueOf(Opened(), name), std::nullopt);
  }
}

TEST_F(RegistryContract, AValueOfAnotherKeyIsNotFound) {
  Add(u"Name", "x", kRegBinary, u"\\Below");
  Add(u"Name", "x", kRegBinary, u"\\Beside");
  EXPECT_EQ(ValueOf(Opened(), u"Name"), std::nullopt);
  EXPECT_EQ(ValueOf(Opened(u"\\Below"), u"Name"), "x");
  EXPECT_EQ(ValueOf(Opened(u"\\Below"), u"Nam"), std::nullopt);
}

TEST_F(RegistryContract, ClosingEmptiesTheOwnerAndAnEmptyOwnerIsNoKey) {
  ASSERT_TRUE(AddKey(kUser, KeyPath(u"\\One")));
  RegistryKey key = Opened();
  EXPECT_EQ(CloseKey(key), kSuccess);
  EXPECT_FALSE(key);
  EXPECT_EQ(CloseKey(key), kInvalidHandle);
  std::uint32_t size = 0;
  EXPECT_EQ(QueryValue(key, u"Name", nullptr, nullptr, size), kInvalidHandle);
  RegistryKey below;
  EXPECT_EQ(OpenSubKey(key, u"One", kKeyRead, below), kInvalidHandle);
  EXPECT_FALSE(below);
}

}  // namespace
}  // namespace platform::contract
