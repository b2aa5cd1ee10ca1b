// The fuzz targets: each takes arbitrary bytes in memory, runs a part of the core on the fake
// platform, or of the tools, and ends the process when something that must hold for every input
// does not. They never read files; entry.cpp hands them a fuzzer's inputs, replay_test.cpp the
// committed ones.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

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

// What the file of a library tells without being loaded.
void FuzzLibraryFile(std::string_view input);

// What the doctor says of a command line. Apart from the others: it rehearses.
void FuzzDoctorLine(std::string_view input);

// A target, and the name of its folder in corpus/.
struct Target {
  const char* name;
  void (*run)(std::string_view input);
};
// Those that a program replays.
[[nodiscard]] std::vector<Target> Targets();

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
