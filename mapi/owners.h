// Owners of what the MAPI library hands out: each gives it back the way that the library asks for.
#pragma once

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
