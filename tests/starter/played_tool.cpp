// In the place of the tool, what the starters have to tell from a job that is done. The part is
// that of STARTER_TEST_PART. The job file's folder is the only one in the folder for temporary
// files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

fs::path JobFile() {
  for (const fs::directory_entry& entry : fs::directory_iterator(fs::temp_directory_path())) {
    if (fs::exists(entry.path() / "job.json")) {
      return entry.path() / "job.json";
    }
  }
  std::_Exit(99);
}

void Write(const char* text) {
  std::ofstream(JobFile(), std::ios::binary | std::ios::trunc) << text;
}

}  // namespace

int main() {
  const char* const variable = std::getenv("STARTER_TEST_PART");
  const std::string part = variable == nullptr ? "" : variable;
  if (part == "ended") {
    return 1;
  }
  if (part == "tears") {
    Write("{\"FilePath\": \"a");
  } else if (part == "ended late") {
    Write(R"({"Result": {"Status": 0, "ErrorCode": 0, "ErrorText": ""}})");
    return 1;
  } else if (part == "ended between") {
    Write(R"({"Result": {"Status": 1, "ErrorCode": 1003, "ErrorText": "x"}})");
    return 7;
  } else if (part == "deletes") {
    fs::remove(JobFile());
  } else if (part == "crashes") {
    std::abort();
  }
  return part == "says nothing" || part == "tears" || part == "deletes" ? 0 : 99;
}
