// Writes down what the binary interface of a type, a method or a function is: widths, kinds, places
// and the calling convention, without the names that the two sides' headers give to types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "platform/call.h"

namespace zentpost::abi {

// Each source has types of its own under names that the other has too: what is made of them here
// must stay in that source.
namespace {

template <class Type>
std::string Kind() {
  if constexpr (std::is_void_v<Type>) {
    return "void";
  } else if constexpr (std::is_reference_v<Type>) {
    return Kind<std::remove_reference_t<Type>*>();  // the same on the stack
  } else if constexpr (std::is_pointer_v<Type>) {
    return Kind<std::remove_pointer_t<Type>>() + "*";
  } else if constexpr (std::is_array_v<Type>) {
    return Kind<std::remove_extent_t<Type>>() + "[" + std::to_string(std::extent_v<Type>) + "]";
  } else if constexpr (std::is_class_v<Type> || std::is_union_v<Type>) {
    return std::is_const_v<Type> ? "const struct" : "struct";  // may be incomplete
  } else if constexpr (std::is_same_v<std::remove_cv_t<Type>, wchar_t> ||
                       std::is_same_v<std::remove_cv_t<Type>, char16_t>) {
    return "wide" + std::to_string(sizeof(Type));
  } else if constexpr (std::is_same_v<std::remove_cv_t<Type>, char>) {
    return "char";
  } else {
    static_assert(std::is_integral_v<Type>);
    return (std::is_signed_v<Type> ? "i" : "u") + std::to_string(8 * sizeof(Type));
  }
}

template <class Result, class... Arguments>
std::string Signature() {
  std::string text = Kind<Result>() + "(";
  ((text += Kind<Arguments>() + ","), ...);
  if (text.back() == ',') {
    text.pop_back();
  }
  return text + ")";
}

// On x86 a method's arguments are taken off the stack by the method or by its caller, and the
// object is an argument or in a register. Elsewhere there is but one convention.
template <class Result, class Interface, class... Arguments>
std::string MethodSignature(Result (PLATFORM_STDCALL Interface::*)(Arguments...)) {
  return Signature<Result, Arguments...>();
}
#ifdef __i386__
template <class Result, class Interface, class... Arguments>
std::string MethodSignature(Result (Interface::*)(Arguments...)) {
  return "unmarked " + Signature<Result, Arguments...>();
}
#endif

// Without the convention: the tool's own functions call the library's, and are called by the tool.
template <class Result, class... Arguments>
std::string FunctionSignature(Result(PLATFORM_STDCALL*)(Arguments...)) {
  return Signature<Result, Arguments...>();
}
#ifdef __i386__
template <class Result, class... Arguments>
std::string FunctionSignature(Result (*)(Arguments...)) {
  return Signature<Result, Arguments...>();
}
#endif

// A pointer to a virtual method holds the offset in the table of methods, in bytes and with one
// added, and no adjustment of the object's address.
template <class Method>
std::string Slot(Method method) {
  struct {
    std::uintptr_t offset;
    std::ptrdiff_t adjustment;
  } words;
  static_assert(sizeof(words) == sizeof(method));
  std::memcpy(&words, &method, sizeof(words));
  if (words.offset % sizeof(void*) != 1 || words.adjustment != 0) {
    return "no slot";
  }
  return std::to_string(words.offset / sizeof(void*));
}

template <class Method>
std::string DescribeMethod(Method method) {
  return "slot " + Slot(method) + " " + MethodSignature(method);
}

template <class Type>
std::string DescribeSize() {
  return std::to_string(sizeof(Type)) + " aligned to " + std::to_string(alignof(Type));
}

inline std::string DescribePlace(std::size_t offset, std::size_t size) {
  return "at " + std::to_string(offset) + " for " + std::to_string(size);
}

template <class Type>
std::string DescribeMember(std::size_t offset) {
  return DescribePlace(offset, sizeof(Type)) + " " + Kind<Type>();
}

// All constants have 32 bits, whatever sign a header gives to them.
template <class Value>
std::string DescribeValue(Value value) {
  static_assert(sizeof(value) <= sizeof(std::uint32_t));
  return std::to_string(static_cast<std::uint32_t>(value));
}

template <class Identifier>
std::string DescribeIdentifier(const Identifier& identifier) {
  static_assert(sizeof(identifier) == 16);
  unsigned char bytes[sizeof(identifier)];
  std::memcpy(bytes, &identifier, sizeof(bytes));
  std::string text;
  for (const unsigned char byte : bytes) {
    text += std::to_string(byte) + " ";
  }
  return text;
}

}  // namespace

#define SIZE(type) {#type, DescribeSize<type>()},
#define MEMBER(type, member) \
  {#type "." #member, DescribeMember<decltype(type::member)>(offsetof(type, member))},
#define PLACE(type, member) \
  {#type "." #member, DescribePlace(offsetof(type, member), sizeof(type::member))},
#define VALUE(name) {#name, DescribeValue(name)},
#define IDENTIFIER(name) {#name, DescribeIdentifier(name)},
#define METHOD(interface_name, method) \
  {#interface_name "::" #method, DescribeMethod(&interface_name::method)},
// The type alone: nothing here links a library that has the function.
#define FUNCTION(name) {#name, FunctionSignature(static_cast<decltype(&name)>(nullptr))},

}  // namespace zentpost::abi
