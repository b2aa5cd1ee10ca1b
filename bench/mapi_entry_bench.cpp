// What an entry point costs once it is bound, against a bare call through a pointer to the same
// function.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <utility>

#include "mapiload/entry_points.h"
#include "mapiload/library.h"
#include "platform/call.h"
#include "platform/modules.h"
#include "testing/fake_platform/fake_platform.h"

namespace zentpost {
namespace {

using FreeBufferFunction = std::uint32_t(PLATFORM_STDCALL*)(void*);

// As cheap as a function can be, so that the way to it is what is measured.
std::uint32_t PLATFORM_STDCALL FreeBuffer(void* /*buffer*/) {
  return 0;
}

// Installs a library that exports FreeBuffer, on the fake platform.
bool InstallLibrary() {
  platform::fake::TheFakePlatform().AddModule(
      u"C:\\mapi.dll", {{"MAPIFreeBuffer", reinterpret_cast<platform::Procedure>(FreeBuffer)}});
  platform::Module library;
  if (platform::LoadModule(u"C:\\mapi.dll", library) != platform::kSuccess) {
    return false;
  }
  SetMAPIHandle(std::move(library));
  return true;
}

void BenchBareIndirectCall(benchmark::State& state) {
  // Read afresh for each call, as an entry point does.
  volatile FreeBufferFunction function = FreeBuffer;
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(function(nullptr));
  }
}
BENCHMARK(BenchBareIndirectCall);

void BenchBoundEntryPoint(benchmark::State& state) {
  if (!InstallLibrary()) {
    state.SkipWithError("the library cannot be loaded");
    return;
  }
  for ([[maybe_unused]] auto step : state) {
    benchmark::DoNotOptimize(MAPIFreeBuffer(nullptr));
  }
}
BENCHMARK(BenchBoundEntryPoint);

}  // namespace
}  // namespace zentpost

BENCHMARK_MAIN();
