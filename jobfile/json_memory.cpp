#include "jobfile/json_memory.h"

#include <cjson/cJSON.h>

#include <new>

namespace zentpost {
namespace {

std::size_t refused = 0;

void* CJSON_CDECL AllocateForJson(std::size_t size) {
  void* const block = ::operator new(size, std::nothrow);
  if (block == nullptr) {
    ++refused;
  }
  return block;
}

void CJSON_CDECL FreeForJson(void* block) {
  ::operator delete(block);
}

bool InstallHooks() {
  cJSON_Hooks hooks = {AllocateForJson, FreeForJson};
  cJSON_InitHooks(&hooks);
  return true;
}

// Before the program's first tree, since a tree is freed by the functions that allocated it.
[[maybe_unused]] const bool are_hooks_installed = InstallHooks();

}  // namespace

JsonMemoryWatch::JsonMemoryWatch() : refused_before_(refused) {}

bool JsonMemoryWatch::RanOut() const {
  return refused != refused_before_;
}

}  // namespace zentpost
