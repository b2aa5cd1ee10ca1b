// What errno and stat say about a file, and how files are opened.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "platform/files.h"

namespace platform {

// RawFile counts from 1, since 0 owns nothing.
inline int DescriptorOf(RawFile file) {
  return static_cast<int>(static_cast<std::uintptr_t>(file)) - 1;
}
inline RawFile FileOf(int descriptor) {
  return RawFile{static_cast<std::uintptr_t>(descriptor) + 1};
}

// What errno says about `path`. The host has one number for a missing file and for a missing
// folder.
[[nodiscard]] Status PathStatus(const std::string& path, int error);

// A file that nobody may write is what Windows calls read-only, and Windows makes no exception for
// administrators.
inline bool IsReadOnly(const struct stat& properties) {
  return (properties.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

// What stands behind a pipe or a device may keep its user waiting for ever; so opening does not
// wait, and only files on a disk are used.
inline constexpr int kOpenFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

}  // namespace platform
