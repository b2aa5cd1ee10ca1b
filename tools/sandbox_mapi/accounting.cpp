#include "tools/sandbox_mapi/accounting.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zentpost::sandbox_mapi {
namespace {

// Before and behind each buffer; also keeps the buffer aligned for every type.
constexpr std::size_t kCanarySize = 32;
constexpr unsigned char kCanary = 0xCA;
constexpr unsigned char kFresh = 0xCD;
constexpr unsigned char kFreed = 0xDD;

// Freed buffers are kept so that their address is not handed out again: a second free, or a write
// after the free, is then seen as what it is. Large ones are given back.
constexpr std::size_t kLargestKept = std::size_t{1} << 20;
constexpr std::size_t kMostKept = std::size_t{32} << 20;

bool IsFilledWith(const unsigned char* data, std::size_t size, unsigned char value) {
  return std::all_of(data, data + size, [value](unsigned char byte) { return byte == value; });
}

const char* Name(BufferKind kind) {
  switch (kind) {
    case BufferKind::kBuffer:
      return "buffer";
    case BufferKind::kPropertyValues:
      return "property values";
    case BufferKind::kEntryId:
      return "entry identifier";
    case BufferKind::kRowSet:
      return "row set";
    case BufferKind::kRow:
      return "values of a row";
  }
  return "";
}

std::string Counted(std::size_t count, const char* one, const char* many) {
  return (count == 0 ? "no" : std::to_string(count)) + ' ' + (count == 1 ? one : many);
}

}  // namespace

Accounting::~Accounting() {
  // An object's end may free what it owns.
  for (auto& [address, object] : objects_) {
    object.destroy();
  }
  for (auto& [address, buffer] : buffers_) {
    std::free(buffer.block);
  }
}

void Accounting::SetSink(std::function<void(std::string_view)> sink) {
  const std::lock_guard lock(mutex_);
  sink_ = std::move(sink);
}

void Accounting::Emit(std::string_view line) {
  if (sink_) {
    sink_(line);
  }
}

void Accounting::AddCall(std::string_view text) {
  const std::lock_guard lock(mutex_);
  ++calls_made_;
  calls_.push_back(std::to_string(calls_made_) + ' ' + std::string(text));
  Emit(calls_.back());
}

std::uint64_t Accounting::NextCall() const {
  const std::lock_guard lock(mutex_);
  return calls_made_ + 1;
}

std::uint64_t Accounting::Count(const std::string& name) {
  const std::lock_guard lock(mutex_);
  return ++counts_[name];
}

void Accounting::Add(Problem problem, const std::string& text) {
  problems_.emplace_back(problem, text + " (call " + std::to_string(calls_made_ + 1) + ")");
  Emit(problems_.back().second);
}

void Accounting::AddProblem(const std::string& text) {
  const std::lock_guard lock(mutex_);
  Add(Problem::kOther, text);
}

std::string Accounting::Describe(const Buffer& buffer) {
  return std::string(Name(buffer.kind)) + " of " + std::to_string(buffer.size) +
         " bytes from call " + std::to_string(buffer.call);
}

bool Accounting::CanariesAreWhole(const Buffer& buffer) {
  return buffer.block == nullptr ||
         (IsFilledWith(buffer.block, kCanarySize, kCanary) &&
          IsFilledWith(buffer.block + kCanarySize + buffer.size, kCanarySize, kCanary));
}

bool Accounting::IsUntouched(const Buffer& buffer) {
  return !buffer.is_freed || buffer.block == nullptr ||
         IsFilledWith(buffer.block + kCanarySize, buffer.size, kFreed);
}

void* Accounting::AllocateLocked(std::size_t size, BufferKind kind) {
  auto* const block = static_cast<unsigned char*>(std::malloc(size + 2 * kCanarySize));
  if (block == nullptr) {
    return nullptr;
  }
  std::memset(block, kCanary, kCanarySize);
  std::memset(block + kCanarySize, kFresh, size);
  std::memset(block + kCanarySize + size, kCanary, kCanarySize);
  void* const data = block + kCanarySize;
  buffers_[data] = Buffer{size, kind, calls_made_ + 1, false, false, block, {}};
  return data;
}

void* Accounting::Allocate(std::size_t size, BufferKind kind) {
  const std::lock_guard lock(mutex_);
  return AllocateLocked(size, kind);
}

void* Accounting::AllocateMore(std::size_t size, void* owner) {
  const std::lock_guard lock(mutex_);
  const auto found = buffers_.find(owner);
  if (found == buffers_.end() || found->second.is_freed || found->second.is_more) {
    Add(Problem::kForeign, "more memory for what is no buffer");
    return nullptr;
  }
  void* const data = AllocateLocked(size, found->second.kind);
  if (data != nullptr) {
    buffers_[data].is_more = true;
    found->second.more.push_back(data);
  }
  return data;
}

void Accounting::FreeLocked(void* data, Buffer& buffer) {
  if (!CanariesAreWhole(buffer)) {
    Add(Problem::kOverrun, "written beyond the " + Describe(buffer));
    // Said once.
    std::memset(buffer.block, kCanary, kCanarySize);
    std::memset(buffer.block + kCanarySize + buffer.size, kCanary, kCanarySize);
  }
  for (void* const more : std::exchange(buffer.more, {})) {
    FreeLocked(more, buffers_.at(more));
  }
  buffer.is_freed = true;
  if (buffer.size > kLargestKept || kept_ + buffer.size > kMostKept) {
    std::free(std::exchange(buffer.block, nullptr));
  } else {
    std::memset(data, kFreed, buffer.size);
    kept_ += buffer.size;
  }
}

bool Accounting::Free(void* buffer) {
  if (buffer == nullptr) {
    return true;
  }
  const std::lock_guard lock(mutex_);
  const auto found = buffers_.find(buffer);
  if (found == buffers_.end()) {
    Add(Problem::kForeign, "freed what this library did not allocate");
    return false;
  }
  if (found->second.is_freed) {
    Add(Problem::kDoubleFree, "freed again: " + Describe(found->second));
    return false;
  }
  if (found->second.is_more) {
    Add(Problem::kForeign,
        "freed by itself what belongs to another buffer: " + Describe(found->second));
    return false;
  }
  FreeLocked(buffer, found->second);
  return true;
}

std::size_t Accounting::SizeOf(const void* buffer) const {
  const std::lock_guard lock(mutex_);
  const auto found = buffers_.find(buffer);
  return found == buffers_.end() || found->second.is_freed ? 0 : found->second.size;
}

void Accounting::AddObject(const void* object, std::string_view type,
                           std::function<void()> destroy) {
  const std::lock_guard lock(mutex_);
  objects_[object] =
      Object{std::string(type), objects_.size() + 1, calls_made_ + 1, 1, std::move(destroy)};
}

std::uint32_t Accounting::AddRef(const void* object) {
  const std::lock_guard lock(mutex_);
  Object& known = objects_.at(object);
  if (known.references == 0) {
    Add(Problem::kRelease, "AddRef of the released " + known.type);
    return 0;
  }
  return ++known.references;
}

std::uint32_t Accounting::Release(const void* object) {
  const std::lock_guard lock(mutex_);
  Object& known = objects_.at(object);
  if (known.references == 0) {
    Add(Problem::kRelease,
        "released once too often: " + known.type + " from call " + std::to_string(known.call));
    return 0;
  }
  return --known.references;
}

bool Accounting::IsAlive(const void* object, std::string_view call) {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(object);
  if (found != objects_.end() && found->second.references > 0) {
    return true;
  }
  Add(Problem::kRelease,
      std::string(call) + (found == objects_.end()
                               ? " got an object that is not of this library"
                               : " was called on, or got, the released " + found->second.type));
  return false;
}

bool Accounting::IsReferenced(const void* object) const {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(object);
  return found != objects_.end() && found->second.references > 0;
}

bool Accounting::IsOfType(const void* object, std::string_view type) const {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(object);
  return found != objects_.end() && found->second.type == type;
}

std::string Accounting::NameOf(const void* object) const {
  if (object == nullptr) {
    return "null";
  }
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(object);
  return found == objects_.end()
             ? "foreign"
             : '#' + std::to_string(found->second.number) + ' ' + found->second.type;
}

std::vector<std::string> Accounting::Calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

bool Accounting::IsUnused() const {
  const std::lock_guard lock(mutex_);
  return calls_.empty() && problems_.empty();
}

std::vector<std::string> Accounting::Findings() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::pair<Problem, std::string>> problems = problems_;
  for (const auto& [address, object] : objects_) {
    if (object.references > 0) {
      problems.emplace_back(Problem::kLeak,
                            "not released: " + object.type + " from call " +
                                std::to_string(object.call) + ", " +
                                std::to_string(object.references) +
                                (object.references == 1 ? " reference" : " references"));
    }
  }
  for (const auto& [address, buffer] : buffers_) {
    if (!CanariesAreWhole(buffer)) {
      problems.emplace_back(Problem::kOverrun, "written beyond the " + Describe(buffer));
    }
    if (!IsUntouched(buffer)) {
      problems.emplace_back(Problem::kOverrun, "written after it was freed: " + Describe(buffer));
    }
    if (!buffer.is_freed && !buffer.is_more) {
      problems.emplace_back(Problem::kLeak, "not freed: " + Describe(buffer));
    }
  }
  std::vector<std::string> lines;
  std::map<Problem, std::size_t> counts;
  for (const auto& [problem, text] : problems) {
    lines.push_back(text);
    ++counts[problem];
  }
  std::string sum = Counted(counts[Problem::kLeak], "leak", "leaks") + ", " +
                    Counted(counts[Problem::kDoubleFree], "double free", "double frees") + ", " +
                    Counted(counts[Problem::kOverrun], "overrun", "overruns");
  const auto add = [&sum](std::size_t count, const char* one, const char* many) {
    if (count > 0) {
      sum += ", " + Counted(count, one, many);
    }
  };
  add(counts[Problem::kForeign], "wrong free", "wrong frees");
  add(counts[Problem::kRelease], "use of a released interface", "uses of released interfaces");
  add(counts[Problem::kOther], "other problem", "other problems");
  lines.push_back(sum);
  return lines;
}

}  // namespace zentpost::sandbox_mapi
