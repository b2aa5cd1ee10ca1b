#include "tests/mapi_search/machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "testing/end_to_end/files.h"
#include "testing/end_to_end/settings.h"

namespace zentpost::mapi_search {

std::filesystem::path FakeLibrary(std::string_view name) {
  return e2e::Setting("libraries") / (std::string(name) + ".dll");
}

std::string Machine::Put(std::string_view fake_library, const std::filesystem::path& below) {
  const std::filesystem::path path = (Folder() / below).make_preferred();
  std::filesystem::create_directories(path.parent_path());
  std::filesystem::copy_file(FakeLibrary(fake_library), path,
                             std::filesystem::copy_options::overwrite_existing);
  return path.string();
}

std::string Machine::PutBroken(const std::filesystem::path& below) {
  const std::filesystem::path path = (Folder() / below).make_preferred();
  std::filesystem::create_directories(path.parent_path());
  e2e::WriteBytes(path, "This is no library.");
  return path.string();
}

void Machine::Remove(const std::filesystem::path& below) {
  std::filesystem::remove(Folder() / below);
}

std::vector<std::string> Machine::Search(const std::vector<std::string>& steps) const {
  const char* const output = "search.txt";
  std::vector<std::string> arguments = {output};
  arguments.insert(arguments.end(), steps.begin(), steps.end());
  const e2e::ProcessRun run = e2e::RunProcess(program_, arguments, Options());
  EXPECT_EQ(run.exit_code, 0) << run.printed;
  std::istringstream text(e2e::ReadBytes(Folder() / output).value_or(""));
  std::filesystem::remove(Folder() / output);
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> Lines(const std::vector<std::string>& all, std::string_view name) {
  const std::string begin = std::string(name) + ": ";
  std::vector<std::string> lines;
  for (const std::string& line : all) {
    if (line.starts_with(begin)) {
      lines.push_back(line.substr(begin.size()));
    }
  }
  return lines;
}

bool IsTraced(const std::vector<std::string>& all, std::string_view text) {
  const std::vector<std::string> lines = Lines(all, "trace");
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.starts_with(text); });
}

}  // namespace zentpost::mapi_search
