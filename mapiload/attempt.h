// Keeps memory that runs out from ending a search: what could not be done gave nothing.
#pragma once

#include <new>
#include <stdexcept>

namespace zentpost {

// What `source` gives, or an empty result when it wants more memory than there is or could be.
template <class Source>
auto Attempt(Source source) -> decltype(source()) {
  try {
    return source();
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
    // A size that a library of the system told, and that no text can have.
  }
  return decltype(source())();
}

}  // namespace zentpost
