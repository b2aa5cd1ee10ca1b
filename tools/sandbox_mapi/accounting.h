// Who owns what: every buffer and every interface reference that the library hands out, what became
// of it, and every call in its order. Written down at the end of the process. Any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace zentpost::sandbox_mapi {

// What a buffer was handed out for; how it must be freed follows from it.
enum class BufferKind { kBuffer, kPropertyValues, kEntryId, kRowSet, kRow };

class Accounting {
 public:
  Accounting() = default;
  ~Accounting();
  Accounting(const Accounting&) = delete;
  Accounting& operator=(const Accounting&) = delete;

  // Each line of the report as soon as it is known, for a process that does not come to its end.
  void SetSink(std::function<void(std::string_view line)> sink);

  // `call` with its arguments and its result. Gives the call's number.
  void AddCall(std::string_view text);
  // The number that the next finished call will have.
  [[nodiscard]] std::uint64_t NextCall() const;

  // How often `name` was counted, this time included.
  [[nodiscard]] std::uint64_t Count(const std::string& name);

  // A rule that was broken besides those below.
  void AddProblem(const std::string& text);

  // Memory with unspecified content; null when there is none.
  [[nodiscard]] void* Allocate(std::size_t size, BufferKind kind);
  // Memory that is freed with `owner`; null when there is none or `owner` is no buffer.
  [[nodiscard]] void* AllocateMore(std::size_t size, void* owner);
  // False for what is no live buffer; that is a finding. Null is freed too.
  bool Free(void* buffer);
  // The bytes in a live buffer, 0 for what is none.
  [[nodiscard]] std::size_t SizeOf(const void* buffer) const;

  // An interface, with one reference. `destroy` ends the object, when this accounting ends: until
  // then it stays there to tell of late calls.
  void AddObject(const void* object, std::string_view type, std::function<void()> destroy);
  [[nodiscard]] std::uint32_t AddRef(const void* object);
  [[nodiscard]] std::uint32_t Release(const void* object);
  // Whether the object is known and has references; a finding with the call's name when not.
  [[nodiscard]] bool IsAlive(const void* object, std::string_view call);
  [[nodiscard]] bool IsReferenced(const void* object) const;
  // Whether the object is known and of this type.
  [[nodiscard]] bool IsOfType(const void* object, std::string_view type) const;
  // "#3 IMessage"; "null"; "foreign".
  [[nodiscard]] std::string NameOf(const void* object) const;

  // What is wrong by now, one line each, and then one line that sums it up. Looks at each canary.
  [[nodiscard]] std::vector<std::string> Findings() const;
  [[nodiscard]] std::vector<std::string> Calls() const;
  [[nodiscard]] bool IsUnused() const;

 private:
  struct Buffer {
    std::size_t size = 0;
    BufferKind kind = BufferKind::kBuffer;
    std::uint64_t call = 0;
    bool is_freed = false;
    bool is_more = false;
    unsigned char* block = nullptr;  // Null when the memory of a freed one was given back.
    std::vector<void*> more;
  };
  struct Object {
    std::string type;
    std::uint64_t number = 0;
    std::uint64_t call = 0;
    std::uint32_t references = 0;
    std::function<void()> destroy;
  };
  enum class Problem { kLeak, kDoubleFree, kOverrun, kForeign, kRelease, kOther };

  void* AllocateLocked(std::size_t size, BufferKind kind);
  void FreeLocked(void* data, Buffer& buffer);
  void Add(Problem problem, const std::string& text);
  [[nodiscard]] static std::string Describe(const Buffer& buffer);
  [[nodiscard]] static bool CanariesAreWhole(const Buffer& buffer);
  [[nodiscard]] static bool IsUntouched(const Buffer& buffer);
  void Emit(std::string_view line);

  mutable std::mutex mutex_;
  std::function<void(std::string_view)> sink_;
  std::vector<std::string> calls_;
  std::map<std::string, std::uint64_t> counts_;
  std::map<const void*, Buffer> buffers_;
  std::map<const void*, Object> objects_;
  std::vector<std::pair<Problem, std::string>> problems_;
  std::size_t kept_ = 0;  // Bytes in freed buffers that were not given back yet.
  std::uint64_t calls_made_ = 0;
};

}  // namespace zentpost::sandbox_mapi
