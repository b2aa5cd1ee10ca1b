// For tests only: what the search and the entry points keep for the process, set back to how it is
// at a process's start. The tool never forgets anything. No other thread may use mapiload/
// meanwhile.
#pragma once

namespace zentpost {

// The parts: the installed library with storeProxyHandle and MapiHandleGeneration; the cached
// system directory and the functions bound in the system's libraries; what the nine entry points
// have bound. References that were kept are given back. That is harmless when the machine in memory
// on which they were taken has been reset meanwhile.
void ForgetMapiLibrary();
void ForgetSystemLibraries();
void ForgetEntryPoints();

// All of it.
inline void ForgetMapiLoading() {
  ForgetEntryPoints();
  ForgetMapiLibrary();
  ForgetSystemLibraries();
}

}  // namespace zentpost
