#include "fuzz/targets.h"

namespace zentpost::fuzz {

std::vector<Target> Targets() {
  return {{"command_line", FuzzCommandLine},
          {"job_file", FuzzJobFile},
          {"text_encoding", FuzzTextEncoding},
          {"format", FuzzFormat},
          {"library_file", FuzzLibraryFile}};
}

}  // namespace zentpost::fuzz
