// The fuzz targets: each takes arbitrary bytes in memory, runs a part of the core on the machine in
// memory, and ends the process when something that must hold for every input does not. They never
// read files; entry.cpp hands them a fuzzer's inputs, replay_test.cpp the committed ones.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

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

}  // namespace zentpost::fuzz
