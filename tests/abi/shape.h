// How functions and methods look to whoever calls them: what a caller passes where, and in which
// slot of the table it finds a method. Everything is told as text, so that two declarations that
// never meet in one file can be compared.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "platform/call.h"

namespace zentpost::abi {

// A parameter or a result: texts and structures are pointers, and so is a reference.
template <class Type>
std::string KindOf() {
  if constexpr (std::is_void_v<Type>) {
    return "nothing";
  } else if constexpr (std::is_pointer_v<Type> || std::is_reference_v<Type>) {
    return "pointer";
  } else {
    static_assert(std::is_integral_v<Type>);
    return "integer of " + std::to_string(sizeof(Type));
  }
}

template <class Result, class... Parameters>
std::string SignatureText() {
  std::string parameters;
  (parameters.append(parameters.empty() ? "" : ", ").append(KindOf<Parameters>()), ...);
  return KindOf<Result>() + " (" + parameters + ")";
}

// Matches functions of the system's calling convention only.
template <class Result, class... Parameters>
std::string FunctionShape(Result(PLATFORM_STDCALL*)(Parameters...)) {
  return SignatureText<Result, Parameters...>();
}

template <class Result, class Class, class... Parameters>
std::string MethodShape(Result (PLATFORM_STDCALL Class::*)(Parameters...)) {
  return SignatureText<Result, Parameters...>();
}

// The number of a virtual method's slot. The compiler's pointers to methods (two words, the first
// of them the slot's offset plus one) say so themselves.
template <class Method>
std::string SlotOf(Method method) {
  struct {
    std::uintptr_t pointer;
    std::uintptr_t adjustment;
  } words;
  static_assert(sizeof(words) == sizeof(method));
  std::memcpy(&words, &method, sizeof(words));
  if (words.pointer % 2 == 0 || words.adjustment != 0) {
    return "not virtual";
  }
  return "slot " + std::to_string((words.pointer - 1) / sizeof(void*));
}

}  // namespace zentpost::abi
