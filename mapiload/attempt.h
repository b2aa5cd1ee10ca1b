// Keeps memory or a lock that cannot be had from ending a search: what could not be done gave
// nothing.
#pragma once

#include <new>
#include <stdexcept>
#include <system_error>

namespace zentpost {

// What `source` gives, or an empty result when it wants more memory than there is or could be, or
// when the system refuses it a lock.
template <class Source>
auto Attempt(Source source) -> decltype(source()) {
  try {
    return source();
  } catch (const std::bad_alloc&) {
  } catch (const std::length_error&) {
    // A size that a library of the system told, and that no text can have.
  } catch (const std::system_error&) {
    // Of a mutex.
  }
  return decltype(source())();
}

}  // namespace zentpost
