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
