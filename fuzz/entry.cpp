// A fuzzer of one target; the build defines ZENTPOST_FUZZ_TARGET as the target's function.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input =
      size == 0 ? std::string_view() : std::string_view(reinterpret_cast<const char*>(data), size);
  zentpost::fuzz::ZENTPOST_FUZZ_TARGET(input);
  return 0;
}

// Where memory that is found wrong was taken and freed is told when the input is run again with
// ASAN_OPTIONS=malloc_context_size=30. Freed memory is kept long enough for one input.
extern "C" const char* __asan_default_options() {
  return "malloc_context_size=0:quarantine_size_mb=8:thread_local_quarantine_size_kb=64";
}
