// Single property values, as arrays of them are put together, and finding one among many.
#pragma once

#include <cstdint>

#include "mapiload/extended_mapi.h"

namespace zentpost {

// A wide text. The value refers to `text`; MAPI only reads it, but publishes the member without
// const.
inline SPropValue TextProperty(std::uint32_t tag, const char16_t* text) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.lpszW = const_cast<char16_t*>(text);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
  return value;
}

// A 32-bit number.
inline SPropValue NumberProperty(std::uint32_t tag, std::int32_t number) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.l = number;
  return value;
}

// `size` bytes, to which the value refers.
inline SPropValue BinaryProperty(std::uint32_t tag, std::uint8_t* bytes, std::uint32_t size) {
  SPropValue value = {};
  value.ulPropTag = tag;
  value.Value.bin = {size, bytes};
  return value;
}

// The first of `count` values that carries exactly `tag`, or null.
inline SPropValue* FindProperty(SPropValue* values, std::uint32_t count, std::uint32_t tag) {
  for (std::uint32_t i = 0; values != nullptr && i < count; ++i) {
    if (values[i].ulPropTag == tag) {
      return &values[i];
    }
  }
  return nullptr;
}

}  // namespace zentpost
