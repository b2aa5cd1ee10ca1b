// A back-end that reads the machine and has no effect on it. What would be written, removed,
// loaded, sent or told is kept here instead, and whatever is read later sees it. Used by one
// thread, but for a worker's sleep and for CancelBlockingCall.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/modules.h"
#include "platform/status.h"

namespace platform::rehearsal {

// A library as the loader finds it.
struct Library {
  Status status = kModuleNotFound;  // what LoadModule gives
  // The function that it exports under a name; null when there is none. Called while it is loaded.
  std::function<Procedure(std::string_view name)> find;
};

// What cannot be known without an effect.
struct Answers {
  // What loading `path`, which names a file, would come to. Without one, no library is there.
  std::function<Library(const std::u16string& path)> load;
  // What connecting to 127.0.0.1 would give. Without one, nobody listens.
  std::function<Status(std::uint16_t port)> connect;
  // Takes each text that the debugger would get, which may be long. It may throw std::bad_alloc.
  std::function<void(std::u16string_view text)> debug_output;
};

// Something that the rehearsed program would have done, or tried to do.
struct Step {
  enum class Kind {
    kRewrite,  // `what` is the file's path, as for the next two
    kAppend,
    kRemove,
    kConnect,  // `what` is the host, `number` the port
    kSend,     // `number` is how many bytes
    kLoad,     // `what` is the library's path
  };
  Kind kind;
  std::u16string what;
  std::uint64_t number = 0;
  Status status = kSuccess;
};

struct Record {
  std::vector<Step> steps;
  std::vector<std::string> connections;  // the bytes that each one got
};

// Begins afresh: no file is changed, nothing is loaded, nothing recorded. What is still open may
// only be closed.
void Begin(Answers answers);

[[nodiscard]] const Record& Recorded();

// What the file at `path` would hold now; nothing when it was not changed, or is gone. Throws
// std::bad_alloc when memory runs out.
[[nodiscard]] std::optional<std::string> ChangedBytes(const std::u16string& path);

// The path of a loaded library, as it was asked for first; empty for anything else.
[[nodiscard]] std::u16string PathOfLibrary(RawModule module);

}  // namespace platform::rehearsal
