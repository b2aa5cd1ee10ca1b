// The only casts between the layer's text units and the system's: both are UTF-16 here, but two
// types to the compiler.
#pragma once

namespace platform {

static_assert(sizeof(char16_t) == sizeof(wchar_t));

inline const wchar_t* ToSystem(const char16_t* text) {
  return reinterpret_cast<const wchar_t*>(text);
}
inline wchar_t* ToSystem(char16_t* text) {
  return reinterpret_cast<wchar_t*>(text);
}
inline const char16_t* FromSystem(const wchar_t* text) {
  return reinterpret_cast<const char16_t*>(text);
}

}  // namespace platform
