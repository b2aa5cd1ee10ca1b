// The JSON library's memory. It is taken from operator new, and whoever parses can tell a text that
// is no JSON from one for which memory ran out: the library itself answers both with null.
#pragma once

#include <cstddef>

namespace zentpost {

// Sees whether the JSON library has been refused memory while it lives. One at a time, on the
// thread that uses the library.
class JsonMemoryWatch {
 public:
  JsonMemoryWatch();

  [[nodiscard]] bool RanOut() const;

 private:
  std::size_t refused_before_;
};

}  // namespace zentpost
