// A library that leaves a file behind when it is loaded: the one that the environment names.

#include <cstdio>
#include <cstdlib>

namespace {

struct Trace {
  Trace() {
    if (const char* const path = std::getenv("TRACE_LIBRARY_FILE")) {
      if (std::FILE* const file = std::fopen(path, "wb")) {
        std::fclose(file);
      }
    }
  }
} trace;

}  // namespace
