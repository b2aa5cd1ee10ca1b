#include "tools/doctor/test_library.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zentpost::doctor {
namespace {

// Appends `text` and its terminator; gives where it begins.
std::size_t Append(std::string& bytes, std::string_view text) {
  const std::size_t at = bytes.size();
  bytes.append(text).push_back('\0');
  return at;
}

std::uint32_t GnuHash(std::string_view name) {
  std::uint32_t hash = 5381;
  for (const char character : name) {
    hash = hash * 33 + static_cast<unsigned char>(character);
  }
  return hash;
}

}  // namespace

void PutNumber(std::string& bytes, std::size_t offset, std::size_t size, std::uint64_t number) {
  for (std::size_t i = 0; i < size; ++i) {
    bytes.at(offset + i) = static_cast<char>(number >> 8 * i);
  }
}

std::string TestPe::Build() const {
  constexpr std::size_t kCode = 0x400;
  const bool is_wide = bitness == 64;
  const std::size_t optional_size = is_wide ? 240 : 224;

  // IMAGE_EXPORT_DIRECTORY, functions, names, ordinals; then the texts.
  const std::size_t count = exports.size();
  const std::size_t functions = 40;
  const std::size_t names = functions + 4 * count;
  const std::size_t ordinals = names + 4 * count;
  std::string table(ordinals + 2 * count, '\0');
  PutNumber(table, 12, 4, kExportsAddress + Append(table, "test.dll"));
  PutNumber(table, 16, 4, 1);
  PutNumber(table, 20, 4, count);
  PutNumber(table, 24, 4, count);
  PutNumber(table, 28, 4, kExportsAddress + functions);
  PutNumber(table, 32, 4, kExportsAddress + names);
  PutNumber(table, 36, 4, kExportsAddress + ordinals);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string& forwarder = exports[i].forwarder;
    const std::uint64_t address =
        forwarder.empty() ? kCodeAddress + i : kExportsAddress + Append(table, forwarder);
    // The functions stand in the opposite order, so that their numbers are not those of the names.
    const std::size_t ordinal = count - 1 - i;
    PutNumber(table, functions + 4 * ordinal, 4, address);
    PutNumber(table, names + 4 * i, 4, kExportsAddress + Append(table, exports[i].name));
    PutNumber(table, ordinals + 2 * i, 2, ordinal);
  }
  const std::size_t table_size = table.size();
  table.resize((table_size + 0x1FF) / 0x200 * 0x200);

  std::string bytes(kCode, '\0');
  bytes.replace(0, 2, "MZ");
  PutNumber(bytes, 0x3C, 4, kHeader);
  bytes.replace(kHeader, 2, "PE");
  PutNumber(bytes, kHeader + 4, 2, machine);
  PutNumber(bytes, kHeader + 6, 2, 2);
  PutNumber(bytes, kHeader + 20, 2, optional_size);
  PutNumber(bytes, kHeader + 22, 2, characteristics);
  // IMAGE_OPTIONAL_HEADER32 and 64
  PutNumber(bytes, kOptional, 2, is_wide ? 0x20B : 0x10B);
  if (is_wide) {
    PutNumber(bytes, kOptional + 24, 8, 0x180000000);
  } else {
    PutNumber(bytes, kOptional + 28, 4, 0x10000000);
  }
  PutNumber(bytes, kOptional + 32, 4, 0x1000);
  PutNumber(bytes, kOptional + 36, 4, 0x200);
  PutNumber(bytes, kOptional + 40, 2, 6);  // the oldest system
  PutNumber(bytes, kOptional + 48, 2, 6);
  PutNumber(bytes, kOptional + 56, 4, kExportsAddress + (table.size() + 0xFFF) / 0x1000 * 0x1000);
  PutNumber(bytes, kOptional + 60, 4, kCode);
  PutNumber(bytes, kOptional + 68, 2, 2);      // IMAGE_SUBSYSTEM_WINDOWS_GUI
  PutNumber(bytes, kOptional + 70, 2, 0x140);  // may lie anywhere, and executes no data
  const std::size_t directories = kOptional + optional_size - 128;  // 16 of 8 bytes
  PutNumber(bytes, directories - 4, 4, 16);
  PutNumber(bytes, directories, 4, kExportsAddress);
  PutNumber(bytes, directories + 4, 4, table_size);
  // IMAGE_SECTION_HEADER, twice
  const std::size_t sections = kOptional + optional_size;
  const auto put_section = [&](std::size_t at, std::string_view name, std::uint64_t virtual_size,
                               std::uint64_t address, std::size_t raw, std::size_t raw_size,
                               std::uint64_t flags) {
    bytes.replace(at, name.size(), name);
    PutNumber(bytes, at + 8, 4, virtual_size);
    PutNumber(bytes, at + 12, 4, address);
    PutNumber(bytes, at + 16, 4, raw_size);
    PutNumber(bytes, at + 20, 4, raw);
    PutNumber(bytes, at + 36, 4, flags);
  };
  put_section(sections, ".text", 0x100, kCodeAddress, kCode, 0x200, 0x60000020);
  put_section(sections + 40, ".edata", table_size, kExportsAddress, kExports, table.size(),
              0x40000040);
  bytes.append(0x200, '\xC3');  // returns
  return bytes + table;
}

std::string TestElf::Build() const {
  const bool is_wide = bitness == 64;
  const std::size_t word = is_wide ? 8 : 4;
  const std::size_t symbol_size = is_wide ? 24 : 16;
  std::string bytes(kStrings + 1, '\0');
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    const TestSymbol& symbol = symbols[i];
    const std::size_t at = kSymbols + (i + 1) * symbol_size;
    const std::size_t info = at + (is_wide ? 4 : 12);
    PutNumber(bytes, at, 4, Append(bytes, symbol.name) - kStrings);
    PutNumber(bytes, info, 1, symbol.binding * 16U + 1);  // STT_OBJECT
    PutNumber(bytes, info + 1, 1, symbol.visibility);
    PutNumber(bytes, info + 2, 2, symbol.is_defined ? 1 : 0);
    PutNumber(bytes, at + (is_wide ? 8 : 4), word, kSymbols + i);
  }

  // One bucket, in which all symbols are.
  const std::size_t count = symbols.size() + 1;
  if (hash == TestElfHash::kHash) {
    PutNumber(bytes, kHash, 4, 1);
    PutNumber(bytes, kHash + 4, 4, count);
    PutNumber(bytes, kHash + 8, 4, 1 % count);
    for (std::size_t i = 1; i < count; ++i) {
      PutNumber(bytes, kHash + 12 + 4 * i, 4, (i + 1) % count);
    }
  } else if (hash == TestElfHash::kGnuHash) {
    PutNumber(bytes, kHash, 4, 1);
    PutNumber(bytes, kHash + 4, 4, 1);
    PutNumber(bytes, kHash + 8, 4, 1);
    PutNumber(bytes, kHash + 16, word, ~std::uint64_t{0});
    PutNumber(bytes, kHash + 16 + word, 4, symbols.empty() ? 0 : 1);
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      const std::uint32_t last = i + 1 == symbols.size() ? 1 : 0;
      PutNumber(bytes, kHash + 20 + word + 4 * i, 4, (GnuHash(symbols[i].name) & ~1U) | last);
    }
  }

  // Elf32_Ehdr, Elf64_Ehdr
  bytes.replace(0, 4,
                "\x7F"
                "ELF");
  PutNumber(bytes, 4, 1, is_wide ? 2 : 1);
  PutNumber(bytes, 5, 1, 1);
  PutNumber(bytes, 6, 1, 1);
  PutNumber(bytes, 16, 2, 3);  // ET_DYN
  PutNumber(bytes, 18, 2, machine);
  PutNumber(bytes, 20, 4, 1);
  const std::size_t segment_size = is_wide ? 56 : 32;
  PutNumber(bytes, 24 + word, word, kSegments);
  PutNumber(bytes, is_wide ? 52 : 40, 2, is_wide ? 64 : 52);
  PutNumber(bytes, is_wide ? 54 : 42, 2, segment_size);
  PutNumber(bytes, is_wide ? 56 : 44, 2, 2);

  std::size_t entry = kDynamic;
  const auto put_entry = [&](std::uint64_t tag, std::uint64_t value) {
    PutNumber(bytes, entry, word, tag);
    PutNumber(bytes, entry + word, word, value);
    entry += 2 * word;
  };
  put_entry(5, kStrings);
  put_entry(10, bytes.size() - kStrings);
  put_entry(6, kSymbols);
  put_entry(11, symbol_size);
  if (hash != TestElfHash::kNone) {
    put_entry(hash == TestElfHash::kHash ? 4 : 0x6FFFFEF5, kHash);
  }
  put_entry(0x6FFFFFFB, flags_1);
  put_entry(0, 0);

  const auto put_segment = [&](std::size_t at, std::uint64_t type, std::uint64_t offset,
                               std::uint64_t size) {
    PutNumber(bytes, at, 4, type);
    PutNumber(bytes, at + (is_wide ? 4 : 24), 4, 6);  // to be read and written
    PutNumber(bytes, at + word, word, offset);
    PutNumber(bytes, at + 2 * word, word, offset);
    PutNumber(bytes, at + 4 * word, word, size);
    PutNumber(bytes, at + 5 * word, word, size);
    PutNumber(bytes, at + (is_wide ? 48 : 28), word, type == 1 ? 0x1000 : word);
  };
  put_segment(kSegments, 1, 0, bytes.size());
  put_segment(kSegments + segment_size, 2, kDynamic, entry - kDynamic);
  return bytes;
}

bool BytesInMemory::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) {
  if (size == 0 || offset > bytes_.size() || size > bytes_.size() - offset) {
    std::fprintf(stderr, "reads %zu bytes outside of the file\n", size);
    std::abort();
  }
  if (reads_++ >= first_failing_) {
    return false;
  }
  bytes_read_ += size;
  std::memcpy(buffer, bytes_.data() + offset, size);
  return true;
}

}  // namespace zentpost::doctor
