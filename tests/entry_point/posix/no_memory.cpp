// Memory as entry_point_probe has it: none while this variable of the environment is set.
#include <cstdlib>
#include <new>

void* operator new(std::size_t size) {
  void* const block =
      std::getenv("ENTRY_POINT_PROBE_NO_MEMORY") != nullptr ? nullptr : std::malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
