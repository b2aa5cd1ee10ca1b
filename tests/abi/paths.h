// Where this run finds what it looks at, as the command line says.
#pragma once

#include <filesystem>

namespace zentpost::abi {

struct Paths {
  std::filesystem::path declarations;  // mapiload/extended_mapi.h
  std::filesystem::path library;       // the one made of published_library.cpp
};
[[nodiscard]] const Paths& ThePaths();

}  // namespace zentpost::abi
