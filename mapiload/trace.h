// The trace of the search for the MAPI library: two sinks for whoever looks for the reason of a
// search that went wrong. The tool sets neither, so that its trace is silent.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <variant>

#include "platform/modules.h"
#include "platform/registry.h"

namespace zentpost {

// The handle of a module or of a registry key, for %p.
enum class TraceHandle : std::uintptr_t {};

// What one conversion of a format stands for: %p, %ws (also %s), or %d and %X. A text is
// zero-terminated and never null; it lives as long as the sink's call.
using TraceArgument = std::variant<TraceHandle, const char16_t*, std::uint32_t>;
using TraceArguments = std::span<const TraceArgument>;

// Gets the format as it stands in the code, with its line feed where it has one, and its arguments.
using TraceSink = std::function<void(const char16_t* format, TraceArguments arguments)>;

// The way of the search, and what failed on it.
extern TraceSink MapiTraceSink;
// What the search loads of the system and of the mail client's companions.
extern TraceSink MapiLoadTraceSink;

// Hand a line to a sink, if it is set.
void MapiTrace(const char16_t* format, std::initializer_list<TraceArgument> arguments = {});
void MapiLoadTrace(const char16_t* format, std::initializer_list<TraceArgument> arguments = {});

inline TraceHandle ForTrace(platform::RawModule module) {
  return static_cast<TraceHandle>(module);
}
inline TraceHandle ForTrace(platform::RawKey key) {
  return static_cast<TraceHandle>(key);
}

}  // namespace zentpost
