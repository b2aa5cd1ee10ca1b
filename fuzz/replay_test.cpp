// Runs every fuzz target over its committed inputs, in every build. The folder corpus/ is looked
// for in the current folder.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/targets.h"

namespace zentpost::fuzz {
namespace {

class FuzzReplay : public testing::TestWithParam<Target> {};

TEST_P(FuzzReplay, EveryCommittedInputHolds) {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path("corpus") / GetParam().name)) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  ASSERT_FALSE(paths.empty());
  for (const std::filesystem::path& path : paths) {
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file.is_open()) << path;
    const std::string input(std::istreambuf_iterator<char>(file), {});
    SCOPED_TRACE(path.filename().string());
    GetParam().run(input);
  }
  std::cout << GetParam().name << ": " << paths.size() << " inputs\n";
}

TEST_P(FuzzReplay, ShortInputsHold) {
  GetParam().run("");
  for (unsigned byte = 0; byte < 256; ++byte) {
    GetParam().run(std::string(1, static_cast<char>(byte)));
  }
}

INSTANTIATE_TEST_SUITE_P(OfTheProgram, FuzzReplay, testing::ValuesIn(Targets()),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace zentpost::fuzz
