// Everything that mapiload/ keeps for the process, in one place. The tool searches once and ends; a
// test program searches thousands of times, each time like a process that has just started.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/modules.h"

namespace zentpost {

// A function of a library, and where it was found. What is bound is what a thread finds there whose
// generation is MapiHandleGeneration: BoundProc is written before BoundGeneration and read behind
// it. Both are plain loads and stores in machine code.
struct BoundFunction {
  std::atomic<platform::Procedure> BoundProc{};
  std::atomic<std::uint32_t> BoundGeneration{};  // generations begin with 1
};

// A function of a system library. Null is not remembered.
struct LazyFunction {
  std::atomic<platform::RawModule> handle{};  // with a reference
  std::atomic<platform::Procedure> procedure{};
};

struct ProcessState {
  static constexpr std::size_t kMostEntryPoints = 16;

  // See mapiload/library.h.
  std::atomic<std::uint32_t> MapiHandleGeneration{1};
  std::atomic<platform::RawModule> installedMapiHandle{};
  std::atomic<platform::RawModule> storeProxyHandle{};

  // By the places of the entry points in their source.
  std::array<BoundFunction, kMostEntryPoints> entry_points;

  // Null until the system has been asked, then for the process.
  std::atomic<const std::u16string*> system_directory{};
  LazyFunction provide_qualified_component;
  LazyFunction get_module_handle_ex;
  // Whether the installer has been told to show nothing, or cannot be told.
  std::atomic<bool> is_installer_silent{false};
};

extern ProcessState processState;

// For tests only: makes it new, and gives back the references that it holds. That is harmless when
// the fake platform on which they were taken has been reset meanwhile. No other thread may use
// mapiload/ meanwhile.
void ForgetMapiLoading();

}  // namespace zentpost
