#include "testing/end_to_end/settings.h"

#include <cstdio>
#include <map>
#include <string>

namespace zentpost::e2e {
namespace {

std::map<std::string, std::filesystem::path, std::less<>>& Settings() {
  static std::map<std::string, std::filesystem::path, std::less<>> settings;
  return settings;
}

}  // namespace

bool ReadSettings(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    const std::size_t equals = argument.find('=');
    if (!argument.starts_with("--") || equals == std::string_view::npos) {
      std::fprintf(stderr, "usage: PROGRAM [--NAME=PATH]...\n");
      return false;
    }
    Settings()[std::string(argument.substr(2, equals - 2))] =
        std::filesystem::absolute(argument.substr(equals + 1)).lexically_normal().make_preferred();
  }
  return true;
}

std::filesystem::path Setting(std::string_view name) {
  const auto found = Settings().find(name);
  return found == Settings().end() ? std::filesystem::path() : found->second;
}

}  // namespace zentpost::e2e
