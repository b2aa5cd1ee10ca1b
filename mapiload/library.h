// The mail client's MAPI library: found at its first use, installed for the rest of the process.
// Only GetPrivateMAPI is for the rest of the tool, and only the entry points call it; how the
// library is found stands in mapiload/discovery.h.
//
// May be used from several threads without a lock: two may search at the same time, and the library
// that is installed first stays.
#pragma once

#include <atomic>
#include <cstdint>

#include "mapiload/process_state.h"
#include "platform/modules.h"

namespace zentpost {

// Moves by one whenever a library is installed, also when another one was there already and stays.
// The entry points notice by it that they have to look their functions up again. 1 at first.
inline constinit std::atomic<std::uint32_t>& MapiHandleGeneration =
    processState.MapiHandleGeneration;

// What GetMAPIHandle reads. Only SetMAPIHandle writes it.
inline constinit std::atomic<platform::RawModule>& installedMapiHandle =
    processState.installedMapiHandle;

// The installed MAPI library; RawModule{} when there is none. It stays loaded, and its reference is
// the process's own.
inline platform::RawModule GetMAPIHandle() {
  return installedMapiHandle.load(std::memory_order_acquire);
}

// The installed MAPI library; when there is none, searches for one and installs it. RawModule{}
// when nothing was found, of which nothing is remembered: every call searches again. Does not
// throw: a source for which memory does not suffice is a source that has nothing.
platform::RawModule GetPrivateMAPI();

// Installs `hinstMAPI` and takes its reference over. When a library is installed already, that one
// stays and `hinstMAPI` is released; MapiHandleGeneration moves in both cases. Without a library
// (which the tool never asks for), releases the installed one and storeProxyHandle; the generation
// then stays as it is. Does not throw.
void SetMAPIHandle(platform::Module hinstMAPI);

// pstprx32.dll, the companion that the mail client's library would find beside itself, with a
// reference; RawModule{} while it is not loaded. Only SetMAPIHandle writes it.
inline constinit std::atomic<platform::RawModule>& storeProxyHandle = processState.storeProxyHandle;

}  // namespace zentpost
