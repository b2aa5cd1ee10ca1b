// Owners of what the MAPI library hands out: each gives it back the way that the library asks for.
#pragma once

#include <cstdint>
#include <cstring>

#include "mapi/results.h"
#include "mapiload/entry_points.h"
#include "mapiload/extended_mapi.h"
#include "platform/unique_handle.h"

namespace zentpost {

template <class Interface>
struct InterfaceTraits {
  using Value = Interface*;
  static constexpr Interface* kNone = nullptr;
  static void Close(Interface* object) noexcept { object->Release(); }
};

// One reference to an interface.
template <class Interface>
using MapiReference = platform::UniqueHandle<InterfaceTraits<Interface>>;

template <class T>
struct BufferTraits {
  using Value = T*;
  static constexpr T* kNone = nullptr;
  static void Close(T* buffer) noexcept { MAPIFreeBuffer(buffer); }
};

// A block that the library has allocated.
template <class T>
using MapiBuffer = platform::UniqueHandle<BufferTraits<T>>;

// Takes a zeroed block of `size` bytes from the library, which `block`'s caller owns. On failure
// `block` is null, also where the library claims a success without one.
inline HRESULT AllocateZeroed(std::uint32_t size, void*& block) {
  block = nullptr;
  const HRESULT result = ForgetOnFailure(MAPIAllocateBuffer(size, &block), block);
  if (Failed(result)) {
    return result;
  }
  if (block == nullptr) {
    return MAPI_E_NOT_ENOUGH_MEMORY;
  }
  std::memset(block, 0, size);
  return result;
}

struct RowSetTraits {
  using Value = SRowSet*;
  static constexpr SRowSet* kNone = nullptr;
  static void Close(SRowSet* rows) noexcept { FreeProws(rows); }
};
using MapiRowSet = platform::UniqueHandle<RowSetTraits>;

struct AddressListTraits {
  using Value = ADRLIST*;
  static constexpr ADRLIST* kNone = nullptr;
  static void Close(ADRLIST* list) noexcept { FreePadrlist(list); }
};
using MapiAddressList = platform::UniqueHandle<AddressListTraits>;

}  // namespace zentpost
