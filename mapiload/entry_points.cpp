#include "mapiload/entry_points.h"

#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "mapiload/library.h"
#include "mapiload/process_state.h"
#include "platform/call.h"
#include "platform/modules.h"

namespace zentpost {
namespace {

// One function of the library.
struct Binding {
  const char* name;
  std::uint32_t argument_bytes;  // on the stack, in 32 bits
  BoundFunction& bound;
};

// The name under which a linker for 32 bits knows the function.
using DecoratedName = std::array<char, 32>;
DecoratedName Decorated(const Binding& binding) {
  DecoratedName decorated{};  // has space for the longest of the nine and any number
  const std::size_t length = std::strlen(binding.name);
  std::memcpy(decorated.data(), binding.name, length);
  decorated[length] = '@';
  std::to_chars(decorated.data() + length + 1, std::prev(decorated.end()), binding.argument_bytes);
  return decorated;
}

// The function in `library`; null when it has none. In 32 bits a library may export it under the
// linker's name alone.
platform::Procedure Find(platform::RawModule library, const Binding& binding) {
  platform::Procedure procedure = nullptr;
  // The address tells; a failure leaves none.
  static_cast<void>(platform::FindProcedure(library, binding.name, procedure));
  if (PLATFORM_STDCALL_IS_DECORATED != 0 && procedure == nullptr) {
    static_cast<void>(platform::FindProcedure(library, Decorated(binding).data(), procedure));
  }
  return procedure;
}

// Looks the function up in the library, which is searched for when there is none. Null when it
// cannot be had.
//
// Without a library nothing is noted. A thread whose search found nothing must not undo what
// another one has bound in the meantime.
platform::Procedure Bind(const Binding& binding) {
  const platform::RawModule library = GetPrivateMAPI();
  if (library == platform::RawModule{}) {
    return nullptr;
  }
  // A failure leaves null, which stands until a new library is installed.
  const platform::Procedure procedure = Find(library, binding);
  binding.bound.BoundProc.store(procedure, std::memory_order_relaxed);
  // Read only now: an installation that GetPrivateMAPI made counts.
  binding.bound.BoundGeneration.store(MapiHandleGeneration.load(std::memory_order_acquire),
                                      std::memory_order_release);
  return procedure;
}

// What an argument takes on the stack in 32 bits.
template <class Argument>
constexpr std::uint32_t kStackBytes = (sizeof(Argument) + 3) / 4 * 4;

template <class Signature>
class EntryPoint;

// An entry point with the signature of the function that tools call. What it has bound stands at
// `place` in the state of the process; each has a place of its own.
template <class Result, class... Arguments>
class EntryPoint<Result(Arguments...)> {
 public:
  constexpr EntryPoint(std::size_t place, const char* name)
      : binding_{name, (std::uint32_t{0} + ... + kStackBytes<Arguments>),
                 processState.entry_points[place]} {}

  Result operator()(Arguments... arguments) const {
    if (binding_.bound.BoundGeneration.load(std::memory_order_acquire) ==
            MapiHandleGeneration.load(std::memory_order_acquire) &&
        GetMAPIHandle() != platform::RawModule{}) [[likely]] {
      return Call(binding_.bound.BoundProc.load(std::memory_order_relaxed), arguments...);
    }
    return BindAndCall(arguments...);
  }

 private:
  // Apart, so that a call of what is bound already needs no stack for it.
  [[gnu::noinline]] Result BindAndCall(Arguments... arguments) const {
    return Call(Bind(binding_), arguments...);
  }

  static Result Call(platform::Procedure procedure, Arguments... arguments) {
    if (procedure == nullptr) [[unlikely]] {
      return Unavailable();
    }
    return reinterpret_cast<Result(PLATFORM_STDCALL*)(Arguments...)>(procedure)(arguments...);
  }

  // Never a success where the result tells of one: only MAPIFreeBuffer's, unsigned, does not.
  static Result Unavailable() {
    if constexpr (std::is_same_v<Result, HRESULT>) {
      return MAPI_E_CALL_FAILED;
    } else {
      return Result();
    }
  }

  Binding binding_;
};

constexpr EntryPoint<decltype(MAPIInitialize)> initialize(0, "MAPIInitialize");
constexpr EntryPoint<decltype(MAPILogonEx)> logon_ex(1, "MAPILogonEx");
constexpr EntryPoint<decltype(MAPIOpenFormMgr)> open_form_mgr(2, "MAPIOpenFormMgr");
constexpr EntryPoint<decltype(MAPIAdminProfiles)> admin_profiles(3, "MAPIAdminProfiles");
constexpr EntryPoint<decltype(HrQueryAllRows)> query_all_rows(4, "HrQueryAllRows");
constexpr EntryPoint<decltype(FreeProws)> free_prows(5, "FreeProws");
constexpr EntryPoint<decltype(FreePadrlist)> free_padrlist(6, "FreePadrlist");
constexpr EntryPoint<decltype(MAPIAllocateBuffer)> allocate_buffer(7, "MAPIAllocateBuffer");
constexpr EntryPoint<decltype(MAPIFreeBuffer)> free_buffer(8, "MAPIFreeBuffer");

}  // namespace

HRESULT MAPIInitialize(void* init) {
  return initialize(init);
}

HRESULT MAPILogonEx(std::uintptr_t ui_parameter, char16_t* profile, char16_t* password,
                    std::uint32_t flags, IMAPISession** session) {
  return logon_ex(ui_parameter, profile, password, flags, session);
}

HRESULT MAPIOpenFormMgr(IMAPISession* session, IMAPIFormMgr** form_manager) {
  return open_form_mgr(session, form_manager);
}

HRESULT MAPIAdminProfiles(std::uint32_t flags, IProfAdmin** profile_admin) {
  return admin_profiles(flags, profile_admin);
}

HRESULT HrQueryAllRows(IMAPITable* table, SPropTagArray* tags, SRestriction* restriction,
                       SSortOrderSet* sort_order, std::int32_t maximum_rows, SRowSet** rows) {
  return query_all_rows(table, tags, restriction, sort_order, maximum_rows, rows);
}

void FreeProws(SRowSet* rows) {
  free_prows(rows);
}

void FreePadrlist(ADRLIST* list) {
  free_padrlist(list);
}

SCODE MAPIAllocateBuffer(std::uint32_t size, void** buffer) {
  return allocate_buffer(size, buffer);
}

std::uint32_t MAPIFreeBuffer(void* buffer) {
  return free_buffer(buffer);
}

}  // namespace zentpost
