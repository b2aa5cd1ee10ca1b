// Keeps what a source throws from ending a search: what could not be done gave nothing.
#pragma once

namespace zentpost {

// What `source` gives, or an empty result when it throws: when it wants more memory than there is,
// or when a library of the system told a size that no text can have. Does not throw.
template <class Source>
auto Attempt(Source source) -> decltype(source()) {
  try {
    return source();
  } catch (...) {
    return decltype(source())();
  }
}

}  // namespace zentpost
