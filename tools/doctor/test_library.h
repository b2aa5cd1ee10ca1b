// Files of libraries, made for tests byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/library_file.h"

namespace zentpost::doctor {

// Overwrites `size` bytes at `offset` with `number`, low byte first.
void PutNumber(std::string& bytes, std::size_t offset, std::size_t size, std::uint64_t number);

struct TestExport {
  std::string name;
  std::string forwarder;  // empty: a function of its own
};

// A library that Windows can load: its headers, a section with code and one with the exports.
struct TestPe {
  // Where things stand in it, in the file; the fields of the optional header on are for 64 bits.
  static constexpr std::size_t kHeader = 0x40;
  static constexpr std::size_t kOptional = kHeader + 24;
  static constexpr std::size_t kDirectories = kOptional + 112;
  static constexpr std::size_t kSections = kOptional + 240;
  static constexpr std::size_t kExports = 0x600;
  // In memory.
  static constexpr std::uint64_t kCodeAddress = 0x1000;
  static constexpr std::uint64_t kExportsAddress = 0x2000;

  std::uint16_t machine = 0x8664;
  int bitness = 64;
  std::uint16_t characteristics = 0x2022;  // executable, large addresses, DLL
  std::vector<TestExport> exports;         // in the table's order, at most 64

  [[nodiscard]] std::string Build() const;
};

enum class TestElfHash { kNone, kHash, kGnuHash };

struct TestSymbol {
  std::string name;
  std::uint8_t binding = 1;  // STB_GLOBAL
  std::uint8_t visibility = 0;
  bool is_defined = true;
};

// A shared object that Linux can load: one segment that is the whole file.
struct TestElf {
  // Where things stand in it; the program headers are for 64 bits.
  static constexpr std::size_t kSegments = 64;
  static constexpr std::size_t kSegmentSize = 56;
  static constexpr std::size_t kDynamic = 0x100;
  static constexpr std::size_t kSymbols = 0x200;
  static constexpr std::size_t kHash = 0x800;
  static constexpr std::size_t kStrings = 0xA00;

  std::uint16_t machine = 62;  // EM_X86_64
  int bitness = 64;
  TestElfHash hash = TestElfHash::kGnuHash;
  std::uint32_t flags_1 = 0;        // DT_FLAGS_1
  std::vector<TestSymbol> symbols;  // at most 32

  [[nodiscard]] std::string Build() const;
};

// Bytes in memory, which fail the test that reads beyond them.
class BytesInMemory : public ByteSource {
 public:
  // `bytes` must outlive it.
  explicit BytesInMemory(std::string_view bytes) : bytes_(bytes) {}

  [[nodiscard]] std::uint64_t Size() const override { return bytes_.size(); }
  [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t size) override;

  // Every read from this one on fails, counted from 0.
  void FailFrom(std::size_t read) { first_failing_ = read; }
  [[nodiscard]] std::size_t Reads() const { return reads_; }
  [[nodiscard]] std::uint64_t BytesRead() const { return bytes_read_; }

 private:
  std::string_view bytes_;
  std::size_t first_failing_ = static_cast<std::size_t>(-1);
  std::size_t reads_ = 0;
  std::uint64_t bytes_read_ = 0;
};

}  // namespace zentpost::doctor
