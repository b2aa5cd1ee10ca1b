// The fuzz targets: each takes arbitrary bytes in memory, runs a part of the core on the fake
// platform, and ends the process when something that must hold for every input does not. They never
// read files; entry.cpp hands them a fuzzer's inputs, replay_test.cpp the committed ones.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "testing/fake_platform/fake_platform.h"

namespace zentpost::fuzz {

// Splitting quoted texts, fax commands and whole command lines.
void FuzzCommandLine(std::string_view input);

// Reading a job file, writing its outcome and reading it again.
void FuzzJobFile(std::string_view input);

// The conversions between UTF-16, UTF-8 and the ANSI code page, there and back.
void FuzzTextEncoding(std::string_view input);

// The formatter against the C library's.
void FuzzFormat(std::string_view input);

// Ends the process when `holds` is false, and says where. (clang 14 has no std::source_location.)
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
    std::abort();
  }
}

// The fake platform for one input: new for each, and given back at its end, so that a fuzzer sees
// no leak. Nobody reads what it records, so it records nothing.
class FuzzedPlatform {
 public:
  FuzzedPlatform() { platform::fake::TheFakePlatform().SetRecording(false); }
  FuzzedPlatform(const FuzzedPlatform&) = delete;
  FuzzedPlatform& operator=(const FuzzedPlatform&) = delete;
  ~FuzzedPlatform() {
    Require(platform::fake::TheFakePlatform().OpenHandles() == 0);
    platform::fake::TheFakePlatform().Reset();
  }
};

}  // namespace zentpost::fuzz
