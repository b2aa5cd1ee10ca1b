// A stand-in for a mail client's 32-bit library that has two functions for each of the tool's: one
// under the plain name and one under the linker's, as both_names.def says. Each notes which it is
// and the bytes that it takes; see stand_in.h for how that is asked for.
#include <cstdint>
#include <cstdio>

#include "platform/call.h"
#include "tests/mapi_search/stand_in.h"

namespace zentpost::mapi_search {
namespace {

char last_call[32];
char told_call[32];

std::int32_t Note(const char* kind, int bytes) {
  std::snprintf(last_call, sizeof last_call, "%s %d", kind, bytes);
  return static_cast<std::int32_t>(kFirstResult) + bytes;
}

}  // namespace

extern "C" {

const char* StandInLastCall() {
  std::snprintf(told_call, sizeof told_call, "%s", last_call);
  last_call[0] = '\0';
  return told_call;
}

std::int32_t PLATFORM_STDCALL Plain1(int) {
  return Note("plain", 4);
}
std::int32_t PLATFORM_STDCALL Plain2(int, int) {
  return Note("plain", 8);
}
std::int32_t PLATFORM_STDCALL Plain5(int, int, int, int, int) {
  return Note("plain", 20);
}
std::int32_t PLATFORM_STDCALL Plain6(int, int, int, int, int, int) {
  return Note("plain", 24);
}
std::int32_t PLATFORM_STDCALL Decorated1(int) {
  return Note("decorated", 4);
}
std::int32_t PLATFORM_STDCALL Decorated2(int, int) {
  return Note("decorated", 8);
}
std::int32_t PLATFORM_STDCALL Decorated5(int, int, int, int, int) {
  return Note("decorated", 20);
}
std::int32_t PLATFORM_STDCALL Decorated6(int, int, int, int, int, int) {
  return Note("decorated", 24);
}

}  // extern "C"
}  // namespace zentpost::mapi_search
