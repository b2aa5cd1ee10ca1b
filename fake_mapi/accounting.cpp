#include "fake_mapi/accounting.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zentpost::fake_mapi {
namespace {

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer sees more than guards and kept blocks would.
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Stands on both sides of a block; so wide that the block is aligned for any type.
constexpr std::size_t kGuardSize = kSanitized ? 0 : 2 * alignof(std::max_align_t);
constexpr unsigned char kGuardByte = 0xA5;
constexpr unsigned char kFreshByte = 0xCD;
constexpr unsigned char kFreedByte = 0xDD;
// A freed block keeps its memory, so that nobody gets it again and late writing is seen; but not a
// large one.
constexpr std::size_t kLargestKept = kSanitized ? 0 : std::size_t{1} << 20;

bool IsAll(const unsigned char* bytes, std::size_t size, unsigned char expected) {
  return std::all_of(bytes, bytes + size, [&](unsigned char byte) { return byte == expected; });
}

}  // namespace

std::string SumOf(const std::vector<Finding>& findings) {
  constexpr struct {
    FindingKind kind;
    const char* one;
    const char* many;
    bool is_always_told;
  } kKinds[] = {
      {FindingKind::kLeak, "leak", "leaks", true},
      {FindingKind::kDoubleFree, "double free", "double frees", true},
      {FindingKind::kOverrun, "overrun", "overruns", true},
      {FindingKind::kWrongFree, "wrong free", "wrong frees", false},
      {FindingKind::kReleased, "use of a released interface", "uses of released interfaces", false},
      {FindingKind::kOther, "other problem", "other problems", false},
  };
  std::string sum;
  for (const auto& kind : kKinds) {
    const auto count = std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) {
      return finding.kind == kind.kind;
    });
    if (count > 0 || kind.is_always_told) {
      sum += (sum.empty() ? "" : ", ") + (count == 0 ? "no" : std::to_string(count)) + ' ' +
             (count == 1 ? kind.one : kind.many);
    }
  }
  return sum;
}

Accounting::~Accounting() {
  objects_.clear();
  for (const Block& block : blocks_) {
    std::free(block.start);
  }
}

void Accounting::Add(FindingKind kind, std::string text) {
  findings_.push_back({kind, std::move(text), call_});
}

void* Accounting::Allocate(Block block) {
  const std::size_t size = block.size;
  block.start =
      static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(size + 2 * kGuardSize, 1)));
  if (block.start == nullptr) {
    return nullptr;
  }
  block.address = block.start + kGuardSize;
  std::memset(block.start, kGuardByte, kGuardSize);
  std::memset(block.address, kFreshByte, size);
  std::memset(block.address + size, kGuardByte, kGuardSize);
  block.call = call_;
  return blocks_.emplace_back(std::move(block)).address;
}

void* Accounting::Allocate(std::size_t size, std::string_view origin) {
  return Allocate({.name = "block " + std::to_string(++last_number_),
                   .origin = std::string(origin),
                   .size = size});
}

void* Accounting::AllocateRows(std::size_t size, std::string_view table) {
  return Allocate({.name = "rows of the " + std::string(table),
                   .origin = "HrQueryAllRows",
                   .size = size,
                   .use = BlockUse::kRows});
}

void* Accounting::AllocatePart(std::size_t size, void* whole) {
  const Block* const block = FindBlock(whole);
  if (block == nullptr || block->is_freed || block->whole != nullptr) {
    Add(FindingKind::kWrongFree, "a part for " + NameOfBlock(whole) + ", which can have none");
    return nullptr;
  }
  return Allocate(
      {.name = "a part of " + block->name, .origin = block->origin, .size = size, .whole = whole});
}

const Accounting::Block* Accounting::FindBlock(const void* address) const {
  // The memory of one that was given back may be another one's by now.
  const auto found = std::find_if(blocks_.rbegin(), blocks_.rend(),
                                  [&](const Block& block) { return block.address == address; });
  return found == blocks_.rend() ? nullptr : &*found;
}

void Accounting::CheckGuards(const Block& block, std::size_t call, std::vector<Finding>& findings) {
  const auto check = [&](const unsigned char* guard, const char* where) {
    if (!IsAll(guard, kGuardSize, kGuardByte)) {
      findings.push_back(
          {FindingKind::kOverrun, block.name + " of " + block.origin + ": written " + where, call});
    }
  };
  check(block.start, "before its beginning");
  check(block.address + block.size, "beyond its end");
}

// Frees a block with its parts.
void Accounting::End(const void* address) {
  for (Block& block : blocks_) {
    if (block.is_freed || (block.address != address && block.whole != address)) {
      continue;
    }
    CheckGuards(block, call_, findings_);
    block.is_freed = true;
    if (block.size > kLargestKept || kSanitized) {
      std::free(std::exchange(block.start, nullptr));
    } else {
      std::memset(block.address, kFreedByte, block.size);
    }
  }
}

bool Accounting::Free(void* address, std::string_view function, BlockUse use) {
  if (address == nullptr) {
    return true;
  }
  const std::string by(function);
  const Block* const block = FindBlock(address);
  if (block == nullptr) {
    Add(FindingKind::kWrongFree, by + " of a block that is not the library's");
  } else if (block->is_freed) {
    Add(FindingKind::kDoubleFree, by + " of " + block->name + ", which is freed already");
  } else if (block->use != use || block->whole != nullptr) {
    Add(FindingKind::kWrongFree, by + " of " + block->name);
  } else {
    End(address);
    return true;
  }
  return false;
}

std::size_t Accounting::SizeOf(const void* address) const {
  const Block* const block = FindBlock(address);
  return block == nullptr || block->is_freed ? 0 : block->size;
}

std::string Accounting::NameOfBlock(const void* address) const {
  const Block* const block = FindBlock(address);
  return address == nullptr ? "null" : block == nullptr ? "an unknown block" : block->name;
}

void Accounting::Add(std::unique_ptr<Object> object) {
  object->ordinal = objects_.size() + 1;
  object->from_call = call_;
  objects_.push_back(std::move(object));
}

Object* Accounting::Find(const void* address) const {
  for (const auto& object : objects_) {
    if (object->address == address) {
      return object.get();
    }
  }
  return nullptr;
}

std::string Accounting::NameOfObject(const void* address) const {
  if (address == nullptr) {
    return "null";
  }
  const Object* const object = Find(address);
  return object == nullptr ? "an unknown object"
                           : object->name + (object->references == 0 ? " (released)" : "");
}

void Accounting::MakeGarbage(const void* handed_out) {
  const auto found = std::find_if(blocks_.rbegin(), blocks_.rend(),
                                  [&](const Block& block) { return block.address == handed_out; });
  if (found != blocks_.rend()) {
    last_number_ -= found->use == BlockUse::kBuffer ? 1 : 0;
    found->name = "garbage of " + found->origin;
    End(handed_out);
  } else {
    Object& object = *objects_.back();
    object.name = "garbage " + object.name;
    object.references = 0;
  }
}

std::vector<Finding> Accounting::Findings() const {
  std::vector<Finding> findings = findings_;
  for (const auto& object : objects_) {
    if (object->references != 0) {
      findings.push_back({FindingKind::kLeak,
                          object->name + ": references left: " + std::to_string(object->references),
                          object->from_call});
    }
  }
  for (const Block& block : blocks_) {
    const std::string name = block.name + " of " + block.origin;
    if (!block.is_freed) {
      CheckGuards(block, block.call, findings);
      if (block.whole == nullptr) {
        findings.push_back({FindingKind::kLeak, name + ": not freed", block.call});
      }
    } else if (block.start != nullptr && !IsAll(block.address, block.size, kFreedByte)) {
      findings.push_back(
          {FindingKind::kOverrun, name + ": written after it was freed", block.call});
    }
  }
  return findings;
}

}  // namespace zentpost::fake_mapi
