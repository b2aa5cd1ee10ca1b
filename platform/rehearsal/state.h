// What a rehearsal consists of. Only this folder's own files look in here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "platform/rehearsal/rehearsal.h"

namespace platform::rehearsal {

// A file as it would be.
struct ChangedFile {
  std::uint64_t kept = 0;  // so many bytes of the real file stand in front
  std::string bytes;
};

struct LoadedLibrary {
  std::u16string path;
  Library library;
  std::size_t references = 0;
};

struct State {
  Answers answers;
  Record record;
  std::map<std::u16string, std::shared_ptr<ChangedFile>> changed;  // see FileKey in files.cpp
  std::set<std::u16string> removed;                                // the keys of paths
  std::list<LoadedLibrary> libraries;
  unsigned socket_starts = 0;
};

[[nodiscard]] State& TheState();

// Records a step, and gives its status. Throws std::bad_alloc when memory runs out.
Status Took(Step::Kind kind, std::u16string_view what, std::uint64_t number, Status status);

}  // namespace platform::rehearsal
