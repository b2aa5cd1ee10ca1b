// Who owns what: every block and every interface reference that the mail client hands out, and what
// became of it. Whoever calls has the client's lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::fake_mapi {

enum class FindingKind { kLeak, kDoubleFree, kOverrun, kWrongFree, kReleased, kOther };

struct Finding {
  FindingKind kind;
  std::string text;  // "block 3 of IAddrBook::CreateOneOff: not freed"
  std::size_t call;  // which call broke the rule, or handed out what is left; from 1
};

// "1 leak, no double frees, no overruns", and what else there is.
[[nodiscard]] std::string SumOf(const std::vector<Finding>& findings);

// An interface of the client's. It exists as long as the accounts, so that a call on one that was
// released is a finding and nothing worse.
struct Object {
  Object(std::string_view interface_called, std::string_view called)
      : interface_name(interface_called), name(called) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  std::string interface_name;  // "IMAPISession"
  std::string name;            // "session"
  std::size_t ordinal = 0;     // among all objects, from 1
  std::size_t from_call = 0;   // that made it
  std::uint32_t references = 1;
  const void* address = nullptr;  // as callers know it
};

enum class BlockUse { kBuffer, kRows };

class Accounting {
 public:
  Accounting() = default;
  Accounting(const Accounting&) = delete;
  Accounting& operator=(const Accounting&) = delete;
  ~Accounting();

  // The number of the call that does all that follows.
  void BeginCall(std::size_t number) { call_ = number; }
  void Add(FindingKind kind, std::string text);

  // Memory with unspecified content; null when there is none. Blocks are called "block 1" and so
  // on, in the order in which they are handed out, rows "rows of the store table".
  [[nodiscard]] void* Allocate(std::size_t size, std::string_view origin);
  [[nodiscard]] void* AllocateRows(std::size_t size, std::string_view table);
  // Memory that is freed with `whole`, which is a block and no part of one; null when it is not,
  // which is a finding, or there is no memory.
  [[nodiscard]] void* AllocatePart(std::size_t size, void* whole);
  // False when `function` cannot free that, which is a finding. Null can always be freed.
  bool Free(void* address, std::string_view function, BlockUse use = BlockUse::kBuffer);
  // The bytes in a block that was not freed, 0 of any other.
  [[nodiscard]] std::size_t SizeOf(const void* address) const;
  // "block 3", "null", "an unknown block".
  [[nodiscard]] std::string NameOfBlock(const void* address) const;

  void Add(std::unique_ptr<Object> object);
  // The object that callers know by `address`, released or not; null for any other.
  [[nodiscard]] Object* Find(const void* address) const;
  // "session", "session (released)", "null", "an unknown object".
  [[nodiscard]] std::string NameOfObject(const void* address) const;

  // Puts the block, or the newest object, among what is gone, so that using it is a finding. It
  // counts as no block that was handed out.
  void MakeGarbage(const void* handed_out);

  // What is wrong by now: rules that were broken, as they were broken, and what is left.
  [[nodiscard]] std::vector<Finding> Findings() const;

 private:
  struct Block {
    std::string name;
    std::string origin;
    std::size_t size = 0;
    BlockUse use = BlockUse::kBuffer;
    const void* whole = nullptr;       // of which it is a part
    unsigned char* address = nullptr;  // as callers know it
    unsigned char* start = nullptr;    // of the memory, with its guards; null when given back
    bool is_freed = false;
    std::size_t call = 0;  // that made it
  };

  void* Allocate(Block block);
  [[nodiscard]] const Block* FindBlock(const void* address) const;
  void End(const void* address);
  static void CheckGuards(const Block& block, std::size_t call, std::vector<Finding>& findings);

  std::vector<Finding> findings_;
  std::vector<Block> blocks_;  // as they came
  std::vector<std::unique_ptr<Object>> objects_;
  std::size_t call_ = 0;
  std::size_t last_number_ = 0;
};

}  // namespace zentpost::fake_mapi
